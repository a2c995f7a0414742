/* metrics.h: what is known of the hosts, as metrics.
 *
 * Each numeric column of a table is a metric "kestrel_<command>_<column>".  Its labels are the
 * host, the object and the fields that identify the row.  Tables that say what their rows are
 * become metrics of those names (metric_tables.h). */
#ifndef KESTREL_TOOLS_EXPORTER_METRICS_H
#define KESTREL_TOOLS_EXPORTER_METRICS_H

#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "host_poller.h"

namespace exporter {

// Limits of what a scrape gets.
inline constexpr size_t kMaxSeries = 1000;  // of a metric
inline constexpr size_t kMaxMetrics = 200;  // that come from tables

inline constexpr char kLeftOutMetric[] = "kestrel_exporter_left_out_total";

// LeftOut counts the series that scrapes leave out, by metric.  Any thread may add.
class LeftOut {
 public:
  // Add adds those of a scrape and returns all so far.
  std::map<std::string, uint64_t> Add(const std::map<std::string, uint64_t> &more);

 private:
  std::mutex mutex_;
  std::map<std::string, uint64_t> all_;  // kMaxMetrics at most, "*" has the others
};

// MetricsText gives the metrics of all hosts.
//
//   isOpenMetrics   as OpenMetrics 1.0; else in the older text format, version 0.0.4
std::string MetricsText(const std::vector<HostView> &hosts, bool isOpenMetrics, LeftOut &leftOut);

}  // namespace exporter

#endif /* KESTREL_TOOLS_EXPORTER_METRICS_H */
