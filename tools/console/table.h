/* table.h: the rows of a command as aligned columns. */
#ifndef KESTREL_TOOLS_CONSOLE_TABLE_H
#define KESTREL_TOOLS_CONSOLE_TABLE_H

#include "line_sink.h"
#include "row.h"

namespace console {

// Table collects rows; its columns are the names of their fields, in the order of appearance.
class Table {
 public:
  void Add(const Row &row);
  bool IsEmpty() const { return rows_.empty(); }
  void Clear();

  // Render gives the lines of the table: a line of names, then the rows.
  //
  //   width   most characters of a line; 0: no limit.  Long values are cut first.  When that is
  //           not enough the columns are spread over several tables, one below the other, each
  //           with the first column and without the rows that have nothing else to show in it.
  std::vector<std::string> Render(size_t width) const;

 private:
  using Cells = std::vector<std::string>;

  size_t ColumnOf(const std::string &name);
  std::vector<size_t> Widths(size_t width) const;
  void RenderColumns(const std::vector<size_t> &columns, const std::vector<size_t> &widths,
                     std::vector<std::string> &lines) const;

  Cells names_;
  std::vector<Cells> rows_;  // a row may have fewer cells than there are names
};

// TableLines prints the rows of a command as tables; other lines stand between them as they are.
class TableLines : public LineSink {
 public:
  TableLines(FILE *out, size_t width) : out_(out), width_(width) {}
  bool Line(std::string_view line) override;
  void End() override { PrintTable(); }

 private:
  bool PrintTable();

  FILE *out_;
  size_t width_;
  Table table_;
};

}  // namespace console

#endif /* KESTREL_TOOLS_CONSOLE_TABLE_H */
