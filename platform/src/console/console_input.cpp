/* console_input.cpp: the requests of a console. */
#include "console/console_input.h"

#include <utility>

#include "kestrel_console.h"

namespace kestrel {

ConsoleRequest ParseConsoleRequest(std::string_view line) {
  if (line.ends_with('\r')) line.remove_suffix(1);
  const size_t blank = line.find(' ');
  ConsoleRequest request;
  request.word = line.substr(0, blank);
  if (blank != line.npos) request.rest = line.substr(blank + 1);
  return request;
}

bool ConsoleInput::Feed(std::string_view bytes) {
  bool hasStop = false;
  while (!bytes.empty()) {
    const size_t end = bytes.find('\n');
    AddToLine(bytes.substr(0, end));
    if (end == bytes.npos) break;
    if (EndLine()) hasStop = true;
    bytes.remove_prefix(end + 1);
  }
  return hasStop;
}

void ConsoleInput::AddToLine(std::string_view bytes) {
  if (line_.size() + bytes.size() > KESTREL_CONSOLE_MAX_REQUEST) {
    isTooLong_ = true;
    line_.clear();
  }
  if (!isTooLong_) line_ += bytes;
}

// EndLine returns whether the line was a stop.
bool ConsoleInput::EndLine() {
  ConsoleRequest request = ParseConsoleRequest(line_);
  request.isTooLong = std::exchange(isTooLong_, false);
  line_.clear();
  if (!request.IsStop()) {
    requests_.push_back(std::move(request));
    return false;
  }
  for (ConsoleRequest &earlier : requests_) earlier.isStopped = true;
  return true;
}

ConsoleRequest ConsoleInput::Take() {
  ConsoleRequest request = std::move(requests_.front());
  requests_.pop_front();
  return request;
}

}  // namespace kestrel
