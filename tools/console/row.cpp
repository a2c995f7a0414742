/* row.cpp: takes lines of name(value) apart. */
#include "row.h"

#include <algorithm>

namespace console {

namespace {

constexpr size_t kMaxFields = 256;

bool IsNameStart(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_'; }

bool IsNameChar(char c) { return IsNameStart(c) || (c >= '0' && c <= '9'); }

// NameLength returns how long the name is that stands at `at` before a parenthesis; 0: none does.
size_t NameLength(std::string_view line, size_t at) {
  if (at >= line.size() || !IsNameStart(line[at])) return 0;
  size_t end = at + 1;
  while (end < line.size() && IsNameChar(line[end])) ++end;
  return end < line.size() && line[end] == '(' ? end - at : 0;
}

// RowStart skips "label[  0]: ".
size_t RowStart(std::string_view line) {
  constexpr std::string_view kAfterLabel = "]: ";
  if (NameLength(line, 0) != 0) return 0;
  const size_t found = line.find(kAfterLabel);
  return found != line.npos ? found + kAfterLabel.size() : 0;
}

// ValueEnd finds the parenthesis that closes the value at `at`, or npos.
size_t ValueEnd(std::string_view line, size_t at) {
  for (size_t end = line.find(")/", at); end != line.npos; end = line.find(")/", end + 1)) {
    if (NameLength(line, end + 2) != 0) return end;
  }
  return line.size() > at && line.back() == ')' ? line.size() - 1 : line.npos;
}

bool HasName(const Row &row, std::string_view name) {
  return std::any_of(row.begin(), row.end(), [&](const Field &one) { return one.name == name; });
}

}  // namespace

std::optional<Row> ParseRow(std::string_view line) {
  Row row;
  for (size_t at = RowStart(line); at < line.size();) {
    const size_t nameLen = NameLength(line, at);
    if (nameLen == 0) return std::nullopt;
    const size_t valueAt = at + nameLen + 1;
    const size_t end = ValueEnd(line, valueAt);
    const std::string_view name = line.substr(at, nameLen);
    const bool isField = end != line.npos && row.size() < kMaxFields && !HasName(row, name);
    if (!isField) return std::nullopt;
    row.push_back({std::string(name), std::string(line.substr(valueAt, end - valueAt)), valueAt});
    at = end + 2;  // after the parenthesis and the slash
  }
  if (row.empty()) return std::nullopt;
  return row;
}

bool IsTotal(std::string_view line) {
  return line.starts_with(" ***total ") && line.ends_with(" ***");
}

}  // namespace console
