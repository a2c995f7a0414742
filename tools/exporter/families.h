/* families.h: the metrics of one scrape, within the limits.
 *
 * A name that means two things makes a scrape invalid as a whole, for all hosts.  So a metric takes
 * all names that its series may have, and one that needs a name of another is left out. */
#ifndef KESTREL_TOOLS_EXPORTER_FAMILIES_H
#define KESTREL_TOOLS_EXPORTER_FAMILIES_H

#include <prometheus/metric_family.h>

#include <map>
#include <set>
#include <string>
#include <vector>

namespace exporter {

using Labels = std::vector<prometheus::ClientMetric::Label>;

// AddLabel gives a label another name if there is one of that name.
void AddLabel(Labels &labels, std::string name, std::string value);

class Families {
 public:
  void Add(const std::string &name, const char *help, prometheus::MetricType type, Labels labels,
           double value);

  // AddHistogram adds a series of cumulative buckets; the last one is of anything.
  void AddHistogram(const std::string &name, const char *help, Labels labels,
                    prometheus::ClientMetric::Histogram &&histogram);

  const std::map<std::string, uint64_t> &LeftOut() const { return leftOut_; }

  // Take gives all families.
  std::vector<prometheus::MetricFamily> Take();

 private:
  prometheus::MetricFamily *Find(const std::string &name, const char *help,
                                 prometheus::MetricType type);
  prometheus::ClientMetric *NewSeries(const std::string &name, const char *help,
                                      prometheus::MetricType type, Labels &&labels);

  std::map<std::string, prometheus::MetricFamily> families_;
  std::set<std::string> names_;  // of all series
  std::map<std::string, std::set<Labels>> seen_;
  std::map<std::string, uint64_t> leftOut_;  // by metric; "*": for want of metrics
};

}  // namespace exporter

#endif /* KESTREL_TOOLS_EXPORTER_FAMILIES_H */
