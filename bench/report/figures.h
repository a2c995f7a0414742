/* figures.h: the figures and their columns, and the bars that ratios have to reach. */
#ifndef BENCH_REPORT_FIGURES_H
#define BENCH_REPORT_FIGURES_H

#include <string>
#include <vector>

#include "samples.h"

namespace bench_report {

struct Column {
  std::string metric;
  std::string head;
};

struct Figure {
  std::string name;
  std::string title;
  std::string caseHead;
  std::vector<Column> columns;  // the first one is plotted
};

const std::vector<Figure> &Figures();

// Bar is a ratio of two series of one figure that has to be at least, or at most, `limit`.
struct Bar {
  std::string text;
  Which over;
  Which under;
  bool isLeast;
  double limit;
};

const std::vector<Bar> &Bars();

struct Verdict {
  Stat ratio;  // num 0: not measured
  bool isMet;
};
Verdict Judge(const Samples &samples, const Bar &bar);

}  // namespace bench_report

#endif /* BENCH_REPORT_FIGURES_H */
