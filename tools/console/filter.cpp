/* filter.cpp: what an operator puts after a command. */
#include "filter.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <set>

#include "row.h"
#include "words.h"

namespace console {

namespace {

constexpr char kUsage[] =
    "after a bar comes include TEXT, sort COLUMN, columns A,B or count, as in \"| sort uri\"";

const Field *FieldOf(const Row &row, const std::string &name) {
  const std::string wanted = Lower(name);
  const auto found = std::find_if(row.begin(), row.end(),
                                  [&](const Field &field) { return Lower(field.name) == wanted; });
  return found != row.end() ? &*found : nullptr;
}

std::string NoColumn(const std::string &name) { return "no column \"" + name + "\""; }

class Include : public Filter {
 public:
  Include(LineSink &next, std::string text) : Filter(next), text_(std::move(text)) {}
  bool Line(std::string_view line) override {
    return line.find(text_) == line.npos || next_.Line(line);
  }

 private:
  std::string text_;
};

// Value orders numbers by size, and before texts.
class Value {
 public:
  explicit Value(std::string text) : text_(std::move(text)) {
    const char *end = text_.data() + text_.size();
    const auto parsed = std::from_chars(text_.data(), end, number_);
    // "nan" and "inf" are texts: a number that is not one has no place in an order.
    isText_ = parsed.ec != std::errc() || parsed.ptr != end || !std::isfinite(number_);
  }
  bool operator<(const Value &other) const {
    if (isText_ != other.isText_) return other.isText_;
    return isText_ ? text_ < other.text_ : number_ < other.number_;
  }

 private:
  std::string text_;
  double number_ = 0;
  bool isText_ = false;
};

// Sort puts rows in order; rows without the column follow, then all other lines.
class Sort : public Filter {
 public:
  Sort(LineSink &next, std::string column) : Filter(next), column_(std::move(column)) {}

  bool Line(std::string_view line) override {
    const auto row = ParseRow(line);
    const Field *field = row ? FieldOf(*row, column_) : nullptr;
    if (field) {
      sorted_.emplace_back(Value(field->value), line);
    } else {
      (row ? rows_ : others_).emplace_back(line);
    }
    return true;
  }

  void End() override {
    if (sorted_.empty() && !rows_.empty()) problem_ = NoColumn(column_);
    std::stable_sort(sorted_.begin(), sorted_.end(),
                     [](const auto &a, const auto &b) { return a.first < b.first; });
    std::vector<std::string> lines;
    for (auto &entry : sorted_) lines.push_back(std::move(entry.second));
    lines.insert(lines.end(), rows_.begin(), rows_.end());
    lines.insert(lines.end(), others_.begin(), others_.end());
    for (const std::string &line : lines) {
      if (!next_.Line(line)) break;
    }
    next_.End();
  }

 private:
  std::string column_;
  std::vector<std::pair<Value, std::string>> sorted_;
  std::vector<std::string> rows_;
  std::vector<std::string> others_;
};

// Columns makes rows of the named columns, in the order of the names.
class Columns : public Filter {
 public:
  Columns(LineSink &next, std::vector<std::string> names)
      : Filter(next), names_(std::move(names)), missing_(names_.begin(), names_.end()) {}

  bool Line(std::string_view line) override {
    const auto row = ParseRow(line);
    if (!row) return next_.Line(line);
    hasRows_ = true;
    const std::string chosen = Chosen(*row);
    return chosen.empty() || next_.Line(chosen);
  }

  void End() override {
    if (hasRows_ && !missing_.empty()) problem_ = NoColumn(*missing_.begin());
    next_.End();
  }

 private:
  std::string Chosen(const Row &row) {
    std::string line;
    for (const std::string &name : names_) {
      const Field *field = FieldOf(row, name);
      if (!field) continue;
      missing_.erase(name);
      line += (line.empty() ? "" : "/") + field->name + "(" + field->value + ")";
    }
    return line;
  }

  std::vector<std::string> names_;
  std::set<std::string> missing_;
  bool hasRows_ = false;
};

// Count gives one line, the number of lines without the total of a table.
class Count : public Filter {
 public:
  using Filter::Filter;
  bool Line(std::string_view line) override {
    if (!IsTotal(line)) ++count_;
    return true;
  }
  void End() override {
    next_.Line(std::to_string(count_));
    next_.End();
  }

 private:
  uint64_t count_ = 0;
};

std::unique_ptr<Filter> NewFilter(const FilterSpec &spec, LineSink &next) {
  switch (spec.kind) {
    case FilterSpec::Kind::kInclude:
      return std::make_unique<Include>(next, spec.words[0]);
    case FilterSpec::Kind::kSort:
      return std::make_unique<Sort>(next, spec.words[0]);
    case FilterSpec::Kind::kColumns:
      return std::make_unique<Columns>(next, spec.words);
    default:
      return std::make_unique<Count>(next);
  }
}

// BarAt is where the next filter begins, or npos.
size_t BarAt(std::string_view line) {
  bool isQuoted = false;
  for (size_t i = 0; i < line.size(); ++i) {
    if (line[i] == '"') isQuoted = !isQuoted;
    const bool isAlone = (i == 0 || line[i - 1] == ' ' || line[i - 1] == '\t') &&
                         (i + 1 == line.size() || line[i + 1] == ' ' || line[i + 1] == '\t');
    if (line[i] == '|' && isAlone && !isQuoted) return i;
  }
  return line.npos;
}

// NamesIn splits at commas and blanks.
std::vector<std::string> NamesIn(std::string_view text) {
  std::string blanks(text);
  std::replace(blanks.begin(), blanks.end(), ',', ' ');
  return SplitWords(blanks);
}

std::optional<FilterSpec> ParseFilter(std::string_view text) {
  const Words words = SplitWords(text);
  if (words.empty()) return std::nullopt;
  const std::string_view rest = Trimmed(SkipWords(text, 1));
  const auto is = [&](std::string_view name) { return name.starts_with(words[0]); };
  if (words[0] == "c" || words[0] == "co") return std::nullopt;  // count, or columns
  if (is("include") && !rest.empty())
    return FilterSpec{FilterSpec::Kind::kInclude, {Unquoted(rest)}};
  if (is("sort") && words.size() == 2) return FilterSpec{FilterSpec::Kind::kSort, {words[1]}};
  if (is("columns") && !NamesIn(rest).empty()) {
    return FilterSpec{FilterSpec::Kind::kColumns, NamesIn(rest)};
  }
  if (is("count") && rest.empty()) return FilterSpec{FilterSpec::Kind::kCount, {}};
  return std::nullopt;
}

}  // namespace

std::optional<FilteredCommand> ParseFilters(std::string_view line, std::string &reason) {
  size_t bar = BarAt(line);
  FilteredCommand result{std::string(Trimmed(line.substr(0, bar))), {}};
  while (bar != line.npos) {
    line.remove_prefix(bar + 1);
    bar = BarAt(line);
    const auto filter = ParseFilter(line.substr(0, bar));
    if (!filter) {
      reason = kUsage;
      return std::nullopt;
    }
    result.filters.push_back(*filter);
  }
  if (!result.filters.empty() && result.command.empty()) {
    reason = "there is no command before the bar";
    return std::nullopt;
  }
  return result;
}

Filters::Filters(const std::vector<FilterSpec> &specs, LineSink &last) : first_(&last) {
  for (auto spec = specs.rbegin(); spec != specs.rend(); ++spec) {
    filters_.push_back(NewFilter(*spec, *first_));
    first_ = filters_.back().get();
  }
}

std::string Filters::Problem() const {
  for (auto filter = filters_.rbegin(); filter != filters_.rend(); ++filter) {
    if (!(*filter)->Problem().empty()) return (*filter)->Problem();
  }
  return "";
}

}  // namespace console
