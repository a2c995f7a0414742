/* table.h: the rows of a command as aligned columns. */
#ifndef KESTREL_TOOLS_CONSOLE_TABLE_H
#define KESTREL_TOOLS_CONSOLE_TABLE_H

#include "line_sink.h"
#include "row.h"
#include "style.h"

namespace console {

// Table collects rows; its columns are the names of their fields, in the order of appearance.
class Table {
 public:
  // Values are painted by `palette`; with marks, each line begins with that of its row.
  explicit Table(Palette palette = Palette(), bool hasMarks = false)
      : palette_(palette), hasMarks_(hasMarks) {}

  // Add takes a row of which the parts `changed` changed.
  void Add(const Row &row, char mark = ' ', const Parts &changed = {});
  bool IsEmpty() const { return rows_.empty(); }
  void Clear();

  // Render gives the lines of the table: a line of names, then the rows.
  //
  //   width   most characters of a line; 0: no limit.  Long values are cut first.  When that is
  //           not enough the columns are spread over several tables, one below the other, each
  //           with the first column and without the rows that have nothing else to show in it.
  std::vector<std::string> Render(size_t width) const;

 private:
  struct Cell {
    std::string text;
    Paint paint = Paint::kNone;
  };
  using Cells = std::vector<Cell>;

  // Line is a row; it may have fewer cells than there are names.
  struct Line {
    char mark = ' ';
    Cells cells;
  };

  size_t ColumnOf(const std::string &name);
  void AddCell(std::string &line, const Cell &cell, size_t width) const;
  void AddLine(char mark, std::string line, std::vector<std::string> &lines) const;
  static const Cell &CellOf(const Cells &cells, size_t column);
  static bool HasAny(const Cells &cells, const std::vector<size_t> &columns);
  std::vector<size_t> Widths(size_t width) const;
  void RenderColumns(const std::vector<size_t> &columns, const std::vector<size_t> &widths,
                     std::vector<std::string> &lines) const;

  Palette palette_;
  bool hasMarks_;
  std::vector<std::string> names_;
  std::vector<Line> rows_;
};

// TableLines prints the rows of a command as tables; other lines stand between them as they are.
class TableLines : public LineSink {
 public:
  TableLines(Printer &out, size_t width, Palette palette = Palette())
      : out_(out), width_(width), palette_(palette), table_(palette) {}
  bool Line(std::string_view line) override;
  void End() override { PrintTable(); }

 private:
  bool PrintTable();

  Printer &out_;
  size_t width_;
  Palette palette_;
  Table table_;
};

}  // namespace console

#endif /* KESTREL_TOOLS_CONSOLE_TABLE_H */
