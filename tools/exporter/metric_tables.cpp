/* metric_tables.cpp: tables that say what their rows are. */
#include "metric_tables.h"

#include <algorithm>
#include <charconv>
#include <initializer_list>
#include <limits>

#include "escape.h"

namespace exporter {

namespace {

using prometheus::ClientMetric;
using prometheus::MetricType;

constexpr char kHelp[] = "of the instance: docs/counters.md";
constexpr double kNsPerSecond = 1e9;
constexpr double kMsPerSecond = 1e3;

bool HasColumns(const Table &table, std::initializer_list<std::string_view> names) {
  return std::all_of(names.begin(), names.end(), [&](std::string_view name) {
    return std::find(table.columns.begin(), table.columns.end(), name) != table.columns.end();
  });
}

std::string TextOf(const Table &table, const TableRow &row, std::string_view column) {
  const std::string *value = table.Value(row, column);
  return value ? *value : std::string();
}

double ValueOf(const Table &table, const TableRow &row, std::string_view column) {
  return NumberOf(TextOf(table, row, column)).value_or(0);
}

// Unit is what a value is divided by, and what its metric's name ends in.
struct Unit {
  double divisor;
  const char *suffix;
};

Unit UnitOf(const std::string &unit) {
  if (unit == "ns") return {kNsPerSecond, "_seconds"};
  if (unit == "ms") return {kMsPerSecond, "_seconds"};
  if (unit == "bytes") return {1, "_bytes"};
  return {1, ""};
}

std::string WithSuffix(std::string name, std::string_view suffix) {
  return name.ends_with(suffix) ? name : name += suffix;
}

void AddNumber(const Table &table, const TableRow &row, Labels labels, Families &families) {
  const bool isCounter = TextOf(table, row, "kind") == "counter";
  const Unit unit = UnitOf(TextOf(table, row, "unit"));
  const std::string of = TextOf(table, row, "of");
  if (of != "-") labels.push_back({"of", console::Escaped(of)});
  std::string name = "kestrel_" + SideOf(table.id) + "_" + NamePart(TextOf(table, row, "name"));
  name = WithSuffix(std::move(name), unit.suffix);
  if (isCounter) name += "_total";
  families.Add(name, kHelp, isCounter ? MetricType::Counter : MetricType::Gauge, std::move(labels),
               ValueOf(table, row, "value") / unit.divisor);
}

// Sum is a number of events, however large the text says it is.
uint64_t Sum(uint64_t count, double more) {
  constexpr uint64_t kMost = 1000000000000000000;
  return std::min(count + static_cast<uint64_t>(std::min(more, static_cast<double>(kMost))), kMost);
}

double BoundOf(const Table &table, const TableRow &row) {
  const auto below = NumberOf(TextOf(table, row, "below"));
  return below ? *below / kNsPerSecond : std::numeric_limits<double>::infinity();
}

bool DoBoundsGrow(const Table &table) {
  return std::adjacent_find(table.rows.begin(), table.rows.end(),
                            [&](const TableRow &row, const TableRow &next) {
                              return BoundOf(table, row) >= BoundOf(table, next);
                            }) == table.rows.end();
}

// HistogramOf reads all rows; the last one also has the sum.
ClientMetric::Histogram HistogramOf(const Table &table) {
  ClientMetric::Histogram histogram;
  for (const TableRow &row : table.rows) {
    histogram.sample_count = Sum(histogram.sample_count, ValueOf(table, row, "count"));
    histogram.sample_sum += ValueOf(table, row, "sum") / kNsPerSecond;
    histogram.bucket.push_back({histogram.sample_count, BoundOf(table, row)});
  }
  return histogram;
}

// Column is a column of "disp server perUri".
struct Column {
  const char *column;
  const char *name;
  bool isCounter;
  double divisor;
};

constexpr Column kUriColumns[] = {
    {"requests", "requests_total", true, 1},
    {"callbackNs", "callback_seconds_total", true, kNsPerSecond},
    {"callbackMaxNs", "callback_longest_seconds", false, kNsPerSecond},
    {"notifications", "notifications_total", true, 1},
    {"delivered", "notifications_delivered_total", true, 1},
    {"failed", "notifications_failed_total", true, 1},
    {"putBack", "changes_putBack_total", true, 1},
    {"tuples", "tuples", false, 1},
    {"pending", "changes_pending", false, 1},
    {"inFlight", "changes_inFlight", false, 1},
    {"oldestMs", "changes_oldest_seconds", false, kMsPerSecond},
    {"observers", "observers", false, 1},
};

void AddUri(const Table &table, const TableRow &row, Labels labels, Families &families) {
  for (const char *column : {"uri", "msgType", "observe", "pktType"}) {
    labels.push_back({column, console::Escaped(TextOf(table, row, column))});
  }
  for (const Column &column : kUriColumns) {
    families.Add(std::string("kestrel_server_uri_") + column.name, kHelp,
                 column.isCounter ? MetricType::Counter : MetricType::Gauge, labels,
                 ValueOf(table, row, column.column) / column.divisor);
  }
}

}  // namespace

std::optional<double> NumberOf(const std::string &text) {
  if (text.empty() || text.find_first_not_of("0123456789.") != text.npos) return std::nullopt;
  double number = 0;
  const auto parsed = std::from_chars(text.data(), text.data() + text.size(), number);
  const bool isNumber = parsed.ec == std::errc() && parsed.ptr == text.data() + text.size();
  return isNumber ? std::optional(number) : std::nullopt;
}

std::string NamePart(std::string_view text) {
  std::string name;
  for (const char c : text) {
    const bool isAllowed =
        (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
    name += isAllowed ? c : '_';
  }
  return name;
}

std::string SideOf(const TableId &id) {
  std::string_view command = id.command;
  if (command.starts_with("disp ")) command.remove_prefix(5);
  return NamePart(command.substr(0, command.find(' ')));
}

bool AddNumbers(const Table &table, const Labels &labels, Families &families) {
  if (!HasColumns(table, {"name", "of", "kind", "unit", "value"})) return false;
  for (const TableRow &row : table.rows) AddNumber(table, row, labels, families);
  return true;
}

bool AddTimes(const Table &table, const Labels &labels, Families &families) {
  const bool isTimes = HasColumns(table, {"name", "below", "count", "sum"}) && !table.isCut;
  if (!isTimes || !DoBoundsGrow(table)) return false;
  const std::string name = NamePart(TextOf(table, table.rows.front(), "name"));
  families.AddHistogram("kestrel_" + SideOf(table.id) + "_" + name + "_duration_seconds", kHelp,
                        labels, HistogramOf(table));
  return true;
}

bool AddUris(const Table &table, const Labels &labels, Families &families) {
  if (table.id.command != "disp server perUri") return false;
  for (const TableRow &row : table.rows) AddUri(table, row, labels, families);
  return true;
}

}  // namespace exporter
