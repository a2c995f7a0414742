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
  if (m_line.size() + bytes.size() > KESTREL_CONSOLE_MAX_REQUEST) {
    m_isTooLong = true;
    m_line.clear();
  }
  if (!m_isTooLong) m_line += bytes;
}

// EndLine returns whether the line was a stop.
bool ConsoleInput::EndLine() {
  ConsoleRequest request = ParseConsoleRequest(m_line);
  request.isTooLong = std::exchange(m_isTooLong, false);
  m_line.clear();
  if (!request.IsStop()) {
    m_requests.push_back(std::move(request));
    return false;
  }
  for (ConsoleRequest &earlier : m_requests) earlier.isStopped = true;
  return true;
}

ConsoleRequest ConsoleInput::Take() {
  ConsoleRequest request = std::move(m_requests.front());
  m_requests.pop_front();
  return request;
}

}  // namespace kestrel
