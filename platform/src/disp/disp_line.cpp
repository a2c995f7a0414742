/* disp_line.cpp: words and numbers of a command line. */
#include "disp/disp_line.h"

#include <charconv>

#include "host/edge.h"
#include "kestrel.h"

namespace kestrel {

namespace {

bool IsBlank(char c) { return c == ' ' || c == '\t'; }

std::string_view WithoutLineEnd(std::string_view line) {
  if (line.ends_with('\n')) line.remove_suffix(1);
  if (line.ends_with('\r')) line.remove_suffix(1);
  return line;
}

bool HasControl(std::string_view line) {
  for (const char c : line) {
    if (IsControl(c) && c != '\t') return true;
  }
  return false;
}

// TakeWord cuts the first word off `line`, which begins with it; none when quotes stay open.
std::optional<std::string> TakeWord(std::string_view &line) {
  const bool quoted = line.front() == '"';
  if (quoted) line.remove_prefix(1);
  const size_t end = quoted ? line.find('"') : line.find_first_of(" \t");
  if (quoted && end == line.npos) return std::nullopt;
  std::string word(line.substr(0, end));
  line.remove_prefix(end == line.npos ? line.size() : end + 1);
  return word;
}

}  // namespace

std::optional<std::vector<std::string>> SplitDispLine(std::string_view line, std::string &reason) {
  line = WithoutLineEnd(line);
  if (line.size() > KESTREL_DISP_MAX_LINE) {
    reason = "the command line is longer than 4096 bytes";
    return std::nullopt;
  }
  if (HasControl(line)) {
    reason = "the command line has control characters";
    return std::nullopt;
  }
  std::vector<std::string> words;
  while (!line.empty()) {
    if (IsBlank(line.front())) {
      line.remove_prefix(1);
      continue;
    }
    auto word = TakeWord(line);
    if (!word) {
      reason = "a double quote is not closed";
      return std::nullopt;
    }
    words.push_back(std::move(*word));
  }
  return words;
}

std::optional<uint32_t> ParseDispNumber(std::string_view word) {
  uint32_t number = 0;
  const char *end = word.data() + word.size();
  const auto parsed = std::from_chars(word.data(), end, number, 10);
  if (parsed.ec != std::errc() || parsed.ptr != end) return std::nullopt;
  return number;
}

std::string QuoteForReply(std::string_view text) {
  constexpr size_t kMaxShown = 64;
  std::string shown = "\"";
  for (const char c : text.substr(0, kMaxShown)) shown += IsControl(c) ? '?' : c;
  return shown + (text.size() > kMaxShown ? "...\"" : "\"");
}

}  // namespace kestrel
