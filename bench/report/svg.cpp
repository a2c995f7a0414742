/* svg.cpp: a figure's medians as columns, a group for each case. */
#include <algorithm>
#include <cmath>

#include "format.h"
#include "render.h"

namespace bench_report {
namespace {

constexpr double kLeft = 70, kTop = 40, kPlotHeight = 260, kColumnWidth = 16, kGroupGap = 22;
constexpr double kLegendLine = 18, kLegendWidth = 240, kCharWidth = 7;
constexpr const char *kColours[] = {"#4477aa", "#66ccee", "#228833", "#ccbb44",
                                    "#ee6677", "#aa3377", "#bbbbbb", "#774422"};

const char *ColourOf(size_t variant) { return kColours[variant % std::size(kColours)]; }

// Scale maps values to heights, by whole decades.
class Scale {
 public:
  Scale(double min, double max)
      : low_(static_cast<int>(std::floor(std::log10(min)))),
        high_(std::max(static_cast<int>(std::ceil(std::log10(max))), low_ + 1)) {}

  double Y(double value) const {
    const double share = (std::log10(std::max(value, 1e-9)) - low_) / (high_ - low_);
    return kTop + kPlotHeight * (1 - std::clamp(share, 0.0, 1.0));
  }

  std::string Grid(double width) const {
    std::string svg;
    for (int decade = low_; decade <= high_; ++decade) {
      const double y = Y(std::pow(10, decade));
      svg += Format("<line x1='%g' x2='%g' y1='%g' y2='%g' stroke='#ddd'/>\n", kLeft, kLeft + width,
                    y, y);
      svg += Format("<text x='%g' y='%g' text-anchor='end'>%g</text>\n", kLeft - 6, y + 4,
                    std::pow(10, decade));
    }
    return svg;
  }

 private:
  int low_;
  int high_;
};

struct Column {
  size_t variant;
  Stat stat;
};
struct Group {
  std::string label;
  std::vector<Column> columns;
};

std::vector<Group> GroupsOf(const Samples &samples, const Figure &figure) {
  const std::vector<std::string> variants = samples.Variants(figure.name);
  std::vector<Group> groups;
  for (const std::string &label : samples.Labels(figure.name)) {
    Group group{label, {}};
    for (size_t i = 0; i < variants.size(); ++i) {
      const Stat stat = samples.Of({figure.name, label, variants[i], figure.columns[0].metric});
      if (stat.num != 0 && stat.median > 0) group.columns.push_back({i, stat});
    }
    if (!group.columns.empty()) groups.push_back(group);
  }
  return groups;
}

Scale ScaleOf(const std::vector<Group> &groups) {
  double min = 1e300;
  double max = 0;
  for (const Group &group : groups) {
    for (const Column &column : group.columns) {
      min = std::min(min, column.stat.min > 0 ? column.stat.min : column.stat.median);
      max = std::max(max, column.stat.max);
    }
  }
  return {min, max};
}

std::string DrawColumn(const Column &column, const Scale &scale, double x) {
  const double y = scale.Y(column.stat.median);
  const double middle = x + kColumnWidth / 2;
  return Format("<rect x='%g' y='%g' width='%g' height='%g' fill='%s'/>\n", x, y, kColumnWidth - 2,
                kTop + kPlotHeight - y, ColourOf(column.variant)) +
         Format("<line x1='%g' x2='%g' y1='%g' y2='%g' stroke='#333'/>\n", middle, middle,
                scale.Y(column.stat.min), scale.Y(column.stat.max));
}

std::string DrawGroup(const Group &group, const Scale &scale, double *x) {
  std::string svg;
  const double columnsWidth = kColumnWidth * static_cast<double>(group.columns.size());
  const double width = std::max(columnsWidth, kCharWidth * static_cast<double>(group.label.size()));
  double at = *x + (width - columnsWidth) / 2;
  for (const Column &column : group.columns) {
    svg += DrawColumn(column, scale, at);
    at += kColumnWidth;
  }
  svg += Format("<text x='%g' y='%g' text-anchor='middle'>%s</text>\n", *x + width / 2,
                kTop + kPlotHeight + 16, group.label.c_str());
  *x += width + kGroupGap;
  return svg;
}

std::string Legend(const std::vector<std::string> &variants, double x) {
  std::string svg;
  double y = kTop;
  for (size_t i = 0; i < variants.size(); ++i, y += kLegendLine) {
    svg += Format("<rect x='%g' y='%g' width='12' height='12' fill='%s'/>\n", x, y, ColourOf(i)) +
           Format("<text x='%g' y='%g'>%s</text>\n", x + 18, y + 11, variants[i].c_str());
  }
  return svg;
}

}  // namespace

std::string Svg(const Samples &samples, const Figure &figure) {
  const std::vector<Group> groups = GroupsOf(samples, figure);
  if (groups.empty()) return "";
  const Scale scale = ScaleOf(groups);
  double x = kLeft + kGroupGap / 2;
  std::string columns;
  for (const Group &group : groups) columns += DrawGroup(group, scale, &x);
  const double width = x - kLeft;
  return Format(
             "<svg xmlns='http://www.w3.org/2000/svg' width='%g' height='%g' "
             "font-family='sans-serif' font-size='12'>\n"
             "<rect width='100%%' height='100%%' fill='white'/>\n",
             x + kLegendWidth, kTop + kPlotHeight + 50) +
         Format("<text x='%g' y='20' font-size='14'>%s: %s, by %s</text>\n", kLeft,
                figure.title.c_str(), figure.columns[0].head.c_str(), figure.caseHead.c_str()) +
         scale.Grid(width) + columns + Legend(samples.Variants(figure.name), x + 10) + "</svg>\n";
}

}  // namespace bench_report
