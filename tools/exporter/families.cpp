/* families.cpp: the metrics of one scrape, within the limits. */
#include "families.h"

#include <algorithm>
#include <string_view>

#include "metrics.h"

namespace exporter {

using prometheus::ClientMetric;
using prometheus::MetricFamily;
using prometheus::MetricType;

namespace {

// NamesOf gives the names that OpenMetrics gives to a metric and its series.
std::vector<std::string> NamesOf(const std::string &name, MetricType type) {
  constexpr std::string_view kTotal = "_total";
  if (type == MetricType::Histogram) {
    return {name, name + "_bucket", name + "_count", name + "_sum", name + "_created"};
  }
  if (type != MetricType::Counter || !name.ends_with(kTotal)) return {name};
  const std::string base = name.substr(0, name.size() - kTotal.size());
  return {base, name, base + "_created"};
}

}  // namespace

void AddLabel(Labels &labels, std::string name, std::string value) {
  const auto isTaken = [&](const ClientMetric::Label &label) { return label.name == name; };
  while (std::any_of(labels.begin(), labels.end(), isTaken)) name += '_';
  labels.push_back({std::move(name), std::move(value)});
}

MetricFamily *Families::Find(const std::string &name, const char *help, MetricType type) {
  const auto found = families_.find(name);
  if (found != families_.end()) return found->second.type == type ? &found->second : nullptr;
  if (families_.size() >= kMaxMetrics && name != kLeftOutMetric) return nullptr;
  const auto names = NamesOf(name, type);
  const auto isTaken = [&](const std::string &one) { return names_.contains(one); };
  if (std::any_of(names.begin(), names.end(), isTaken)) return nullptr;
  names_.insert(names.begin(), names.end());
  return &families_.emplace(name, MetricFamily{name, help, type, {}}).first->second;
}

// NewSeries returns null, and counts it, for a series beyond a limit or one that is there already.
ClientMetric *Families::NewSeries(const std::string &name, const char *help, MetricType type,
                                  Labels &&labels) {
  MetricFamily *family = Find(name, help, type);
  if (!family) {
    ++leftOut_["*"];
    return nullptr;
  }
  std::sort(labels.begin(), labels.end());
  if (family->metric.size() >= kMaxSeries || !seen_[name].insert(labels).second) {
    ++leftOut_[name];
    return nullptr;
  }
  family->metric.emplace_back().label = std::move(labels);
  return &family->metric.back();
}

void Families::Add(const std::string &name, const char *help, MetricType type, Labels labels,
                   double value) {
  ClientMetric *metric = NewSeries(name, help, type, std::move(labels));
  if (!metric) return;
  (type == MetricType::Counter ? metric->counter.value : metric->gauge.value) = value;
}

void Families::AddHistogram(const std::string &name, const char *help, Labels labels,
                            ClientMetric::Histogram &&histogram) {
  ClientMetric *metric = NewSeries(name, help, MetricType::Histogram, std::move(labels));
  if (metric) metric->histogram = std::move(histogram);
}

std::vector<MetricFamily> Families::Take() {
  std::vector<MetricFamily> all;
  for (auto &entry : families_) all.push_back(std::move(entry.second));
  families_.clear();
  return all;
}

}  // namespace exporter
