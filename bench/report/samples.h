/* samples.h: what was measured: values of a metric, by figure, case and variant, in the order of
 * the runs.  The n-th values of two variants were measured next to one another. */
#ifndef BENCH_REPORT_SAMPLES_H
#define BENCH_REPORT_SAMPLES_H

#include <istream>
#include <map>
#include <string>
#include <tuple>
#include <vector>

namespace bench_report {

struct Stat {
  double median = 0;
  double min = 0;
  double max = 0;
  size_t num = 0;  // of runs; 0: not measured
};

Stat StatOf(std::vector<double> values);

// Which names one series of values.
struct Which {
  std::string figure;
  std::string label;  // of the case, say "16 ports"
  std::string variant;
  std::string metric;

  // NOLINTNEXTLINE(modernize-use-nullptr): a fault of clang-tidy 14
  auto operator<=>(const Which &) const = default;
};

class Samples {
 public:
  // Read takes lines of five fields with tabs between: figure, case, variant, metric, value.
  void Read(std::istream &in);

  const std::vector<double> &Values(const Which &which) const;
  Stat Of(const Which &which) const { return StatOf(Values(which)); }

  // Ratio is over the pairs of runs of two series.
  Stat Ratio(const Which &over, const Which &under) const;

  // In the order in which they were first read.
  std::vector<std::string> Labels(const std::string &figure) const;
  std::vector<std::string> Variants(const std::string &figure) const;

 private:
  std::map<Which, std::vector<double>> series_;
  std::vector<Which> order_;
};

}  // namespace bench_report

#endif /* BENCH_REPORT_SAMPLES_H */
