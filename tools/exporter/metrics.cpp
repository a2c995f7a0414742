/* metrics.cpp: what is known of the hosts, as metrics. */
#include "metrics.h"

#include <prometheus/text_serializer.h>

#include <algorithm>
#include <set>
#include <sstream>

#include "escape.h"
#include "families.h"
#include "metric_tables.h"

namespace exporter {

namespace {

using prometheus::MetricType;

// Numbers that mean nothing as numbers.
constexpr std::string_view kNoValues[] = {"mid", "token"};

// Columns that only grow.
constexpr std::string_view kCounters[] = {"ConMsgStatistic", "NonMsgStatistic", "count", "total"};

template <typename List>
bool IsOneOf(std::string_view name, const List &list) {
  return std::find(std::begin(list), std::end(list), name) != std::end(list);
}

std::string MetricName(const TableId &id, std::string_view column) {
  std::string_view command = id.command;
  if (command.starts_with("disp ")) command.remove_prefix(5);
  std::string name = "kestrel_" + NamePart(command) + "_" + NamePart(column);
  return IsOneOf(column, kCounters) ? name + "_total" : name;
}

Labels LabelsOf(const HostView &host, const TableId &id) {
  Labels labels{{"host", console::Escaped(host.name)}, {"object", console::Escaped(id.object)}};
  if (!id.argument.empty()) labels.push_back({"of", console::Escaped(id.argument)});
  return labels;
}

void AddRow(const HostView &host, const Table &table, const TableRow &row, Families &families) {
  Labels labels = LabelsOf(host, table.id);
  for (const console::Field &field : row.fields) {
    const bool isText = &field == &row.fields.front() && !NumberOf(field.value);
    if (!IsIdentity(field.name) && !isText) continue;
    AddLabel(labels, NamePart(field.name), console::Escaped(field.value));
  }
  for (const console::Field &field : row.fields) {
    const auto value = NumberOf(field.value);
    if (!value || IsIdentity(field.name) || IsOneOf(field.name, kNoValues)) continue;
    const MetricType type =
        IsOneOf(field.name, kCounters) ? MetricType::Counter : MetricType::Gauge;
    families.Add(MetricName(table.id, field.name), "a column of a display command", type,
                 Labels(labels), *value);
  }
}

void AddTable(const HostView &host, const Table &table, Families &families) {
  Labels labels = LabelsOf(host, table.id);
  labels.push_back({"command", console::Escaped(table.id.command)});
  families.Add("kestrel_rows", "rows of a table", MetricType::Gauge, Labels(labels),
               static_cast<double>(table.rows.size()));
  families.Add("kestrel_table_is_cut", "1: the table has more rows than are kept",
               MetricType::Gauge, std::move(labels), table.isCut ? 1 : 0);
  const Labels own = LabelsOf(host, table.id);
  if (AddNumbers(table, own, families) || AddTimes(table, own, families) ||
      AddUris(table, own, families)) {
    return;
  }
  for (const TableRow &row : table.rows) AddRow(host, table, row, families);
}

void AddHost(const HostView &host, Families &families) {
  families.Add("kestrel_up", "1: the host answers", MetricType::Gauge,
               {{"host", console::Escaped(host.name)}}, host.isUp ? 1 : 0);
  if (!host.isUp) return;
  constexpr char kAnswer[] = "kestrel_answer_seconds";
  constexpr char kAnswerHelp[] = "time that the host takes for a display command";
  families.Add(kAnswer, kAnswerHelp, MetricType::Gauge,
               {{"host", console::Escaped(host.name)}, {"quantile", "0.5"}}, host.answerP50);
  families.Add(kAnswer, kAnswerHelp, MetricType::Gauge,
               {{"host", console::Escaped(host.name)}, {"quantile", "0.99"}}, host.answerP99);
  families.Add("kestrel_tables_left_out", "tables beyond the limit for a host", MetricType::Gauge,
               {{"host", console::Escaped(host.name)}}, static_cast<double>(host.numLeftOut));
}

std::set<std::string> CountersOf(const std::vector<prometheus::MetricFamily> &families) {
  std::set<std::string> names;
  for (const prometheus::MetricFamily &family : families) {
    if (family.type == MetricType::Counter) names.insert(family.name);
  }
  return names;
}

// AsOpenMetrics: there a counter is described by its name without "_total", and the text has an
// end.
std::string AsOpenMetrics(const std::string &text, const std::set<std::string> &counters) {
  constexpr std::string_view kTotal = "_total";
  std::istringstream in(text);
  std::string result;
  for (std::string line; std::getline(in, line);) {
    const size_t nameAt = line.starts_with("# ") ? line.find(' ', 2) + 1 : 0;
    const size_t nameEnd = nameAt != 0 ? line.find(' ', nameAt) : line.npos;
    if (nameEnd != line.npos && counters.contains(line.substr(nameAt, nameEnd - nameAt))) {
      line.erase(nameEnd - kTotal.size(), kTotal.size());
    }
    result += line + "\n";
  }
  return result + "# EOF\n";
}

void AddLeftOut(LeftOut &leftOut, Families &families) {
  for (const auto &[metric, count] : leftOut.Add(families.LeftOut())) {
    families.Add(kLeftOutMetric, "series that scrapes have left out, by metric",
                 MetricType::Counter, {{"metric", metric}}, static_cast<double>(count));
  }
}

}  // namespace

std::map<std::string, uint64_t> LeftOut::Add(const std::map<std::string, uint64_t> &more) {
  const std::lock_guard lock(mutex_);
  for (const auto &[metric, count] : more) {
    const bool hasPlace = all_.size() < kMaxMetrics || all_.contains(metric);
    all_[hasPlace ? metric : "*"] += count;
  }
  return all_;
}

std::string MetricsText(const std::vector<HostView> &hosts, bool isOpenMetrics, LeftOut &leftOut) {
  Families families;
  for (const HostView &host : hosts) AddHost(host, families);
  for (const HostView &host : hosts) {
    for (const auto &entry : host.tables) AddTable(host, *entry.second, families);
  }
  AddLeftOut(leftOut, families);
  const auto all = families.Take();
  const std::string text = prometheus::TextSerializer().Serialize(all);
  return isOpenMetrics ? AsOpenMetrics(text, CountersOf(all)) : text;
}

}  // namespace exporter
