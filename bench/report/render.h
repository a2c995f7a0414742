/* render.h: figures as text tables, Markdown, JSON and pictures. */
#ifndef BENCH_REPORT_RENDER_H
#define BENCH_REPORT_RENDER_H

#include <string>

#include "figures.h"

namespace bench_report {

// Table is a figure as a Markdown table, aligned so that it can be read as plain text as well;
// empty when the figure was not measured.  A cell is the median, with minimum and maximum.
std::string Table(const Samples &samples, const Figure &figure);
std::string BarTable(const Samples &samples);

std::string Json(const Samples &samples);

// Svg draws the medians of a figure's first column on a logarithmic scale, with a line from minimum
// to maximum.
std::string Svg(const Samples &samples, const Figure &figure);

// Replace puts `text` between the lines "<!-- bench:name -->" and "<!-- /bench:name -->".
void Replace(std::string &document, const std::string &name, const std::string &text);

}  // namespace bench_report

#endif /* BENCH_REPORT_RENDER_H */
