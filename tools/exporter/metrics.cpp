/* metrics.cpp: what is known of the hosts, as metrics. */
#include "metrics.h"

#include <prometheus/text_serializer.h>

#include <algorithm>
#include <charconv>
#include <map>
#include <optional>
#include <set>
#include <sstream>

#include "escape.h"

namespace exporter {

namespace {

using prometheus::ClientMetric;
using prometheus::MetricFamily;
using prometheus::MetricType;
using Labels = std::vector<ClientMetric::Label>;

constexpr char kLeftOut[] = "kestrel_exporter_left_out";

// Numbers that mean nothing as numbers.
constexpr std::string_view kNoValues[] = {"mid", "token"};

// Columns that only grow.
constexpr std::string_view kCounters[] = {"ConMsgStatistic", "NonMsgStatistic", "count", "total"};

template <typename List>
bool IsOneOf(std::string_view name, const List &list) {
  return std::find(std::begin(list), std::end(list), name) != std::end(list);
}

std::optional<double> NumberOf(const std::string &text) {
  if (text.empty() || text.find_first_not_of("0123456789.") != text.npos) return std::nullopt;
  double number = 0;
  const auto parsed = std::from_chars(text.data(), text.data() + text.size(), number);
  const bool isNumber = parsed.ec == std::errc() && parsed.ptr == text.data() + text.size();
  return isNumber ? std::optional(number) : std::nullopt;
}

// NamePart has only characters that a metric's name may have.
std::string NamePart(std::string_view text) {
  std::string name;
  for (const char c : text) {
    const bool isAllowed =
        (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
    name += isAllowed ? c : '_';
  }
  return name;
}

std::string MetricName(const TableId &id, std::string_view column) {
  std::string_view command = id.command;
  if (command.starts_with("disp ")) command.remove_prefix(5);
  std::string name = "kestrel_" + NamePart(command) + "_" + NamePart(column);
  return IsOneOf(column, kCounters) ? name + "_total" : name;
}

// Families collects series by metric, within the limits.
class Families {
 public:
  void Add(const std::string &name, const char *help, MetricType type, Labels &&labels,
           double value) {
    MetricFamily *family = Find(name, help, type);
    if (!family) return;
    std::sort(labels.begin(), labels.end());
    if (family->metric.size() >= kMaxSeries || !seen_[name].insert(labels).second) {
      ++leftOut_[name];
      return;
    }
    ClientMetric metric;
    metric.label = std::move(labels);
    (type == MetricType::Counter ? metric.counter.value : metric.gauge.value) = value;
    family->metric.push_back(std::move(metric));
  }

  // Take gives all families, and what was left out.
  std::vector<MetricFamily> Take() {
    for (const auto &[name, count] : leftOut_) {
      Add(kLeftOut, "series that this scrape leaves out, by metric", MetricType::Gauge,
          {{"metric", name}}, static_cast<double>(count));
    }
    std::vector<MetricFamily> all;
    for (auto &entry : families_) all.push_back(std::move(entry.second));
    return all;
  }

 private:
  MetricFamily *Find(const std::string &name, const char *help, MetricType type) {
    const auto found = families_.find(name);
    if (found != families_.end()) return &found->second;
    if (families_.size() >= kMaxMetrics && name != kLeftOut) {
      ++leftOut_["*"];
      return nullptr;
    }
    return &families_.emplace(name, MetricFamily{name, help, type, {}}).first->second;
  }

  std::map<std::string, MetricFamily> families_;
  std::map<std::string, std::set<Labels>> seen_;
  std::map<std::string, size_t> leftOut_;
};

Labels LabelsOf(const HostView &host, const TableId &id) {
  Labels labels{{"host", host.name}, {"object", console::Escaped(id.object)}};
  if (!id.argument.empty()) labels.push_back({"of", console::Escaped(id.argument)});
  return labels;
}

void AddRow(const HostView &host, const Table &table, const TableRow &row, Families &families) {
  Labels labels = LabelsOf(host, table.id);
  for (const console::Field &field : row.fields) {
    const bool isText = &field == &row.fields.front() && !NumberOf(field.value);
    if (!IsIdentity(field.name) && !isText) continue;
    labels.push_back({NamePart(field.name), console::Escaped(field.value)});
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
  for (const TableRow &row : table.rows) AddRow(host, table, row, families);
}

void AddHost(const HostView &host, Families &families) {
  families.Add("kestrel_up", "1: the host answers", MetricType::Gauge, {{"host", host.name}},
               host.isUp ? 1 : 0);
  if (!host.isUp) return;
  constexpr char kAnswer[] = "kestrel_answer_seconds";
  constexpr char kAnswerHelp[] = "time that the host takes for a display command";
  families.Add(kAnswer, kAnswerHelp, MetricType::Gauge, {{"host", host.name}, {"quantile", "0.5"}},
               host.answerP50);
  families.Add(kAnswer, kAnswerHelp, MetricType::Gauge, {{"host", host.name}, {"quantile", "0.99"}},
               host.answerP99);
  families.Add("kestrel_tables_left_out", "tables beyond the limit for a host", MetricType::Gauge,
               {{"host", host.name}}, static_cast<double>(host.numLeftOut));
}

// AsOpenMetrics: there a counter is described by its name without "_total", and the text has an
// end.
std::string AsOpenMetrics(const std::string &text) {
  constexpr std::string_view kTotal = "_total";
  std::istringstream in(text);
  std::string result;
  for (std::string line; std::getline(in, line);) {
    if (line.starts_with("# ")) {
      const size_t nameEnd = line.find(' ', line.find(' ', 2) + 1);
      const size_t at = nameEnd - kTotal.size();
      if (nameEnd != line.npos && line.compare(at, kTotal.size(), kTotal) == 0) {
        line.erase(at, kTotal.size());
      }
    }
    result += line + "\n";
  }
  return result + "# EOF\n";
}

}  // namespace

std::string MetricsText(const std::vector<HostView> &hosts, bool isOpenMetrics) {
  Families families;
  for (const HostView &host : hosts) AddHost(host, families);
  for (const HostView &host : hosts) {
    for (const auto &entry : host.tables) AddTable(host, *entry.second, families);
  }
  const std::string text = prometheus::TextSerializer().Serialize(families.Take());
  return isOpenMetrics ? AsOpenMetrics(text) : text;
}

}  // namespace exporter
