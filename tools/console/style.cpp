/* style.cpp: how changed and failed values are shown on a terminal. */
#include "style.h"

#include <algorithm>
#include <cstdlib>

#include "escape.h"
#include "terminal.h"
#include "words.h"

namespace console {

namespace {

constexpr char kReverse[] = "\x1b[7m";
constexpr char kYellow[] = "\x1b[1;33m";
constexpr char kRed[] = "\x1b[1;31m";
constexpr char kNormal[] = "\x1b[0m";

bool IsNotZero(const std::string &value) {
  return !value.empty() && value.find_first_not_of("0123456789") == value.npos &&
         value.find_first_not_of('0') != value.npos;
}

bool CountsFailures(std::string_view name) {
  constexpr std::string_view kBeginnings[] = {"fail", "refuse", "drop", "timeout", "reset", "nack"};
  const std::string lower = Lower(name);
  return std::any_of(std::begin(kBeginnings), std::end(kBeginnings),
                     [&](std::string_view begin) { return lower.starts_with(begin); });
}

// Painting is a part of a line with its paint.
struct Painting {
  size_t begin;
  size_t end;
  Paint paint;
};

bool IsIn(const Field &field, const Parts &parts) {
  return std::any_of(parts.begin(), parts.end(), [&](const auto &part) {
    return part.first <= field.valueAt && field.valueAt < part.second;
  });
}

// PaintingsOf gives the painted parts of a line in order.
std::vector<Painting> PaintingsOf(std::string_view line, const Parts &changed) {
  std::vector<Painting> paintings;
  for (const auto &[begin, end] : changed) paintings.push_back({begin, end, Paint::kChanged});
  for (const Field &field : ParseRow(line).value_or(Row{})) {
    if (PaintOf(field, changed) != Paint::kFailed) continue;
    paintings.push_back({field.valueAt, field.valueAt + field.value.size(), Paint::kFailed});
  }
  std::sort(paintings.begin(), paintings.end(),
            [](const Painting &a, const Painting &b) { return a.begin < b.begin; });
  return paintings;
}

}  // namespace

Palette Palette::Of(int fd) {
  if (!HasStyle(fd)) return Palette(Kind::kPlain);
  const char *noColor = std::getenv("NO_COLOR");
  return Palette(noColor && *noColor ? Kind::kMono : Kind::kColor);
}

std::string Palette::Painted(std::string_view text, Paint paint) const {
  const bool isPlain = kind_ == Kind::kPlain || paint == Paint::kNone || text.empty() ||
                       (kind_ == Kind::kMono && paint == Paint::kFailed);
  if (isPlain) return std::string(text);
  const char *begin = kind_ == Kind::kMono ? kReverse : paint == Paint::kFailed ? kRed : kYellow;
  return begin + std::string(text) + kNormal;
}

bool IsFailure(const Field &field) {
  if (field.name == "resndLstEmpty") return field.value == "0";
  if (field.name == "endPointIsNull" || field.name == "Tout") return IsNotZero(field.value);
  return CountsFailures(field.name) && IsNotZero(field.value);
}

Paint PaintOf(const Field &field, const Parts &changed) {
  if (IsIn(field, changed)) return Paint::kChanged;
  return IsFailure(field) ? Paint::kFailed : Paint::kNone;
}

std::string PaintedLine(std::string_view line, const Parts &changed, Palette palette) {
  std::string shown;
  size_t at = 0;
  for (const Painting &painting : PaintingsOf(line, changed)) {
    shown += Escaped(line.substr(at, painting.begin - at));
    shown += palette.Painted(Escaped(line.substr(painting.begin, painting.end - painting.begin)),
                             painting.paint);
    at = painting.end;
  }
  return shown + Escaped(line.substr(at));
}

}  // namespace console
