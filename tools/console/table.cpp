/* table.cpp: the rows of a command as aligned columns. */
#include "table.h"

#include <algorithm>

#include "escape.h"

namespace console {

namespace {

constexpr size_t kGap = 2;        // blanks between columns
constexpr size_t kMinWidth = 16;  // a column is not made narrower than this before tables are split

size_t TotalWidth(const std::vector<size_t> &widths) {
  size_t total = 0;
  for (const size_t width : widths) total += width + kGap;
  return total - std::min(total, kGap);
}

// Narrow takes from the widest columns until all fit, or none can be made narrower.
void Narrow(std::vector<size_t> &widths, size_t width) {
  while (TotalWidth(widths) > width) {
    size_t &widest = *std::max_element(widths.begin(), widths.end());
    if (widest <= kMinWidth) return;
    --widest;
  }
}

// CapForSeveralTables lets a table hold at least its first column and one more.
void CapForSeveralTables(std::vector<size_t> &widths, size_t width) {
  widths[0] = std::min(widths[0], std::max(kMinWidth, width / 4));
  const size_t rest = width > widths[0] + kGap ? width - widths[0] - kGap : 0;
  for (size_t i = 1; i < widths.size(); ++i) {
    widths[i] = std::min(widths[i], std::max(kMinWidth, rest));
  }
}

// NextColumns takes columns from `next` on, as many as fit next to the first one, at least one.
std::vector<size_t> NextColumns(const std::vector<size_t> &widths, size_t width, size_t &next) {
  std::vector<size_t> columns{0};
  size_t used = widths[0];
  if (next == 0) next = 1;
  while (next < widths.size()) {
    used += kGap + widths[next];
    if (width != 0 && used > width && columns.size() > 1) break;
    columns.push_back(next++);
  }
  return columns;
}

std::string WithoutTrailingBlanks(std::string line) {
  line.erase(line.find_last_not_of(' ') + 1);
  return line;
}

}  // namespace

void Table::Add(const Row &row, char mark, const Parts &changed) {
  Line line{mark, {}};
  for (const Field &field : row) {
    const size_t column = ColumnOf(field.name);
    if (column >= line.cells.size()) line.cells.resize(column + 1);
    line.cells[column] = {Escaped(field.value), PaintOf(field, changed)};
  }
  rows_.push_back(std::move(line));
}

const Table::Cell &Table::CellOf(const Cells &cells, size_t column) {
  static const Cell empty;
  return column < cells.size() ? cells[column] : empty;
}

// HasAny: a row has a value in one of the columns after the first, or there is no other column.
bool Table::HasAny(const Cells &cells, const std::vector<size_t> &columns) {
  return columns.size() == 1 || std::any_of(columns.begin() + 1, columns.end(), [&](size_t column) {
           return !CellOf(cells, column).text.empty();
         });
}

void Table::AddCell(std::string &line, const Cell &cell, size_t width) const {
  const std::string text = Cut(cell.text, width);
  line += palette_.Painted(text, cell.paint) + std::string(width - NumColumns(text) + kGap, ' ');
}

void Table::AddLine(char mark, std::string line, std::vector<std::string> &lines) const {
  if (hasMarks_) line = std::string{mark, ' '} + line;
  lines.push_back(WithoutTrailingBlanks(std::move(line)));
}

void Table::Clear() {
  names_.clear();
  rows_.clear();
}

size_t Table::ColumnOf(const std::string &name) {
  const auto found = std::find(names_.begin(), names_.end(), name);
  const auto column = static_cast<size_t>(found - names_.begin());
  if (found == names_.end()) names_.push_back(name);
  return column;
}

std::vector<size_t> Table::Widths(size_t width) const {
  std::vector<size_t> widths;
  for (const std::string &name : names_) widths.push_back(NumColumns(name));
  for (const Line &line : rows_) {
    for (size_t i = 0; i < line.cells.size(); ++i) {
      widths[i] = std::max(widths[i], NumColumns(line.cells[i].text));
    }
  }
  if (width == 0) return widths;
  std::vector<size_t> narrow = widths;
  Narrow(narrow, width);
  if (TotalWidth(narrow) <= width) return narrow;
  CapForSeveralTables(widths, width);
  return widths;
}

std::vector<std::string> Table::Render(size_t width) const {
  std::vector<std::string> lines;
  if (IsEmpty()) return lines;
  if (hasMarks_ && width != 0) width -= std::min<size_t>(width - 1, 2);
  std::vector<size_t> widths = Widths(width);
  size_t next = 0;
  do {
    if (!lines.empty()) lines.emplace_back();
    RenderColumns(NextColumns(widths, width, next), widths, lines);
  } while (next < widths.size());
  return lines;
}

void Table::RenderColumns(const std::vector<size_t> &columns, const std::vector<size_t> &widths,
                          std::vector<std::string> &lines) const {
  std::string head;
  for (const size_t column : columns) AddCell(head, {names_[column], Paint::kNone}, widths[column]);
  AddLine(' ', std::move(head), lines);
  for (const Line &row : rows_) {
    if (!HasAny(row.cells, columns)) continue;
    std::string line;
    for (const size_t column : columns) AddCell(line, CellOf(row.cells, column), widths[column]);
    AddLine(row.mark, std::move(line), lines);
  }
}

bool TableLines::Line(std::string_view line) {
  if (const auto row = ParseRow(line)) {
    table_.Add(*row);
    return true;
  }
  return PrintTable() && out_.Print(Escaped(line));
}

bool TableLines::PrintTable() {
  for (const std::string &line : table_.Render(width_)) {
    if (!out_.Print(line)) return false;
  }
  table_.Clear();
  return true;
}

}  // namespace console
