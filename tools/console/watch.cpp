/* watch.cpp: what changed between two rounds of a command. */
#include "watch.h"

#include <charconv>
#include <map>

#include "row.h"

namespace console {

namespace {

constexpr std::string_view kWord = "watch";

std::string_view TakeWord(std::string_view &line) {
  line.remove_prefix(std::min(line.find_first_not_of(" \t"), line.size()));
  const size_t end = std::min(line.find_first_of(" \t"), line.size());
  const std::string_view word = line.substr(0, end);
  line.remove_prefix(end);
  line.remove_prefix(std::min(line.find_first_not_of(" \t"), line.size()));
  return word;
}

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// KeyOf is what stays of a line while its values change.
std::string KeyOf(const std::string &line) {
  if (const auto row = ParseRow(line)) return row->front().name + "(" + row->front().value + ")";
  std::string key;
  for (const char c : line) {
    if (!IsDigit(c)) key += c;
  }
  return key;
}

// The same key may stand in several lines, which are then counted.
using Key = std::pair<std::string, size_t>;

std::vector<Key> KeysOf(const std::vector<std::string> &lines) {
  std::map<std::string, size_t> counts;
  std::vector<Key> keys;
  for (const std::string &line : lines) {
    std::string key = KeyOf(line);
    const size_t count = counts[key]++;
    keys.emplace_back(std::move(key), count);
  }
  return keys;
}

const std::string *ValueIn(const Row &row, const std::string &name) {
  for (const Field &field : row) {
    if (field.name == name) return &field.value;
  }
  return nullptr;
}

MarkedLine MarkRow(const std::string &text, const Row &before, const Row &now) {
  MarkedLine line{' ', text, {}};
  for (const Field &field : now) {
    const std::string *old = ValueIn(before, field.name);
    if (old && *old == field.value) continue;
    line.changed.emplace_back(field.valueAt, field.valueAt + field.value.size());
  }
  if (!line.changed.empty() || before.size() != now.size()) line.mark = '*';
  return line;
}

MarkedLine MarkLine(const std::string &before, const std::string &now) {
  const auto oldRow = ParseRow(before);
  const auto row = ParseRow(now);
  if (oldRow && row) return MarkRow(now, *oldRow, *row);
  if (before == now) return {' ', now, {}};
  return {'*', now, {{0, now.size()}}};
}

}  // namespace

bool IsWatch(std::string_view line) { return TakeWord(line) == kWord; }

std::optional<WatchRequest> ParseWatch(std::string_view line, std::string &reason) {
  constexpr double kMinS = 0.1;
  constexpr double kMaxS = 86400;
  TakeWord(line);
  const std::string_view number = TakeWord(line);
  double seconds = 0;
  const char *end = number.data() + number.size();
  const auto parsed = std::from_chars(number.data(), end, seconds, std::chars_format::fixed);
  if (parsed.ec != std::errc() || parsed.ptr != end || !(seconds >= kMinS && seconds <= kMaxS)) {
    reason = "watch needs a number of seconds from 0.1 to 86400, and then a command";
    return std::nullopt;
  }
  if (line.empty()) {
    reason = "watch needs a command after the seconds";
    return std::nullopt;
  }
  return WatchRequest{static_cast<uint32_t>(seconds * 1000), std::string(line)};
}

std::vector<MarkedLine> MarkChanges(const std::vector<std::string> &before,
                                    const std::vector<std::string> &now) {
  std::map<Key, size_t> old;
  const std::vector<Key> oldKeys = KeysOf(before);
  for (size_t i = 0; i < before.size(); ++i) old[oldKeys[i]] = i;

  std::vector<MarkedLine> lines;
  const std::vector<Key> keys = KeysOf(now);
  for (size_t i = 0; i < now.size(); ++i) {
    const auto found = old.find(keys[i]);
    if (found == old.end()) {
      lines.push_back({'+', now[i], {{0, now[i].size()}}});
      continue;
    }
    lines.push_back(MarkLine(before[found->second], now[i]));
    old.erase(found);
  }
  for (size_t i = 0; i < before.size(); ++i) {
    if (old.contains(oldKeys[i])) lines.push_back({'-', before[i], {}});
  }
  return lines;
}

std::vector<MarkedLine> Unmarked(const std::vector<std::string> &now) {
  std::vector<MarkedLine> lines;
  lines.reserve(now.size());
  for (const std::string &line : now) lines.push_back({' ', line, {}});
  return lines;
}

}  // namespace console
