/* table.h: a table of a host as it was at one moment, and what changed since the moment before. */
#ifndef KESTREL_TOOLS_EXPORTER_TABLE_H
#define KESTREL_TOOLS_EXPORTER_TABLE_H

#include <compare>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "line_sink.h"
#include "row.h"

namespace exporter {

// TableId names a table of a host.
struct TableId {
  std::string object;
  std::string command;   // in full
  std::string argument;  // of a command with a text parameter; else empty

  auto operator<=>(const TableId &) const = default;
};

struct TableRow {
  std::string key;  // identifies the row while its values change
  console::Row fields;
};

// Limits of what is kept of one table.
inline constexpr size_t kMaxRows = 20000;
inline constexpr size_t kMaxTexts = 100;
inline constexpr size_t kMaxTableBytes = 16u << 20;
inline constexpr size_t kMaxColumns = 64;

struct Table {
  TableId id;
  uint64_t version = 0;              // of all tables; 0: not finished
  uint64_t follows = 0;              // the version that `changes` is for
  std::vector<std::string> columns;  // in the order of appearance
  std::vector<TableRow> rows;
  std::vector<std::string> texts;  // lines that are not rows, without the total
  bool isCut = false;              // there was more than is kept
  std::string changes;             // since the version before, as JSON; empty: send it whole

  const std::string *Value(const TableRow &row, std::string_view column) const;
};

using TablePtr = std::shared_ptr<const Table>;

// IsIdentity tells a field that says what a row is about, rather than how it is.
bool IsIdentity(std::string_view column);

// TableBuilder makes a table of the lines of a command, up to the limits.
class TableBuilder : public console::LineSink {
 public:
  explicit TableBuilder(TableId id) { table_.id = std::move(id); }
  bool Line(std::string_view line) override;

  // Finish gives the table.  When nothing changed since `before`, which may be null, that is
  // `before` itself.
  TablePtr Finish(const TablePtr &before);

 private:
  void AddRow(console::Row &&row);

  Table table_;
  size_t numBytes_ = 0;
};

// TableJson is a whole table for the live page, RowsJson its rows as the console prints them.
std::string TableJson(const Table &table);
std::string RowsJson(const Table &table);

}  // namespace exporter

#endif /* KESTREL_TOOLS_EXPORTER_TABLE_H */
