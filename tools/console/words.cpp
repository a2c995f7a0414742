/* words.cpp: the words of a line that an operator types. */
#include "words.h"

#include <algorithm>
#include <cctype>

namespace console {

namespace {

constexpr std::string_view kBlanks = " \t\r";

std::string_view WithoutLeadingBlanks(std::string_view line) {
  return line.substr(std::min(line.find_first_not_of(kBlanks), line.size()));
}

}  // namespace

Words SplitWords(std::string_view line) {
  Words words;
  for (line = WithoutLeadingBlanks(line); !line.empty(); line = SkipWords(line, 1)) {
    words.emplace_back(FirstWord(line));
  }
  return words;
}

std::string_view FirstWord(std::string_view line) {
  line = WithoutLeadingBlanks(line);
  return line.substr(0, line.find_first_of(kBlanks));
}

std::string_view SkipWords(std::string_view line, size_t count) {
  line = WithoutLeadingBlanks(line);
  for (; count > 0; --count) {
    line.remove_prefix(std::min(line.find_first_of(kBlanks), line.size()));
    line = WithoutLeadingBlanks(line);
  }
  return line;
}

std::string_view Trimmed(std::string_view text) {
  text = WithoutLeadingBlanks(text);
  return text.substr(0, text.find_last_not_of(kBlanks) + 1);
}

std::string Unquoted(std::string_view text) {
  if (text.size() >= 2 && text.front() == '"' && text.back() == '"') {
    text = text.substr(1, text.size() - 2);
  }
  return std::string(text);
}

std::string Lower(std::string_view text) {
  std::string lower(text);
  std::transform(lower.begin(), lower.end(), lower.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return lower;
}

}  // namespace console
