/* metric_tables.h: tables that say what their rows are.
 *
 *   numbers   name(..)/of(..)/kind(counter or gauge)/unit(..)/value(..): "disp server stats"
 *   times     name(..)/below(..)/unit(ns)/count(..): how many took how long: "disp server times"
 *   URIs      the columns of "disp server perUri"
 *
 * Units are those of OpenMetrics: seconds and bytes. */
#ifndef KESTREL_TOOLS_EXPORTER_METRIC_TABLES_H
#define KESTREL_TOOLS_EXPORTER_METRIC_TABLES_H

#include <optional>
#include <string>
#include <string_view>

#include "families.h"
#include "table.h"

namespace exporter {

// NumberOf reads a value that is a plain number.
std::optional<double> NumberOf(const std::string &text);

// NamePart has only characters that a metric's name may have.
std::string NamePart(std::string_view text);

// SideOf is the first word of a table's command without "disp".
std::string SideOf(const TableId &id);

// AddNumbers, AddTimes and AddUris add a table if it is of their kind.  False: it is another one.
bool AddNumbers(const Table &table, const Labels &labels, Families &families);
bool AddTimes(const Table &table, const Labels &labels, Families &families);
bool AddUris(const Table &table, const Labels &labels, Families &families);

}  // namespace exporter

#endif /* KESTREL_TOOLS_EXPORTER_METRIC_TABLES_H */
