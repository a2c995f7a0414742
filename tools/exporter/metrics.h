/* metrics.h: what is known of the hosts, as metrics.
 *
 * Each numeric column of a table is a metric "kestrel_<command>_<column>".  Its labels are the
 * host, the object and the fields that identify the row. */
#ifndef KESTREL_TOOLS_EXPORTER_METRICS_H
#define KESTREL_TOOLS_EXPORTER_METRICS_H

#include <string>
#include <vector>

#include "host_poller.h"

namespace exporter {

// Limits of what a scrape gets.
inline constexpr size_t kMaxSeries = 1000;  // of a metric
inline constexpr size_t kMaxMetrics = 200;  // that come from tables

// MetricsText gives the metrics of all hosts.
//
//   isOpenMetrics   as OpenMetrics 1.0; else in the older text format, version 0.0.4
std::string MetricsText(const std::vector<HostView> &hosts, bool isOpenMetrics);

}  // namespace exporter

#endif /* KESTREL_TOOLS_EXPORTER_METRICS_H */
