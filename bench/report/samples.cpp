#include "samples.h"

#include <algorithm>
#include <sstream>

namespace bench_report {
namespace {

void AddOnce(std::vector<std::string> &list, const std::string &text) {
  if (std::find(list.begin(), list.end(), text) == list.end()) list.push_back(text);
}

}  // namespace

Stat StatOf(std::vector<double> values) {
  if (values.empty()) return {};
  std::sort(values.begin(), values.end());
  const size_t half = values.size() / 2;
  const double median =
      values.size() % 2 == 1 ? values[half] : (values[half - 1] + values[half]) / 2;
  return {median, values.front(), values.back(), values.size()};
}

void Samples::Read(std::istream &in) {
  for (std::string line; std::getline(in, line);) {
    std::istringstream fields(line);
    Which which;
    std::string value;
    for (std::string *field : {&which.figure, &which.label, &which.variant, &which.metric}) {
      std::getline(fields, *field, '\t');
    }
    if (!std::getline(fields, value, '\t')) continue;
    std::vector<double> &series = series_[which];
    if (series.empty()) order_.push_back(which);
    series.push_back(std::stod(value));
  }
}

const std::vector<double> &Samples::Values(const Which &which) const {
  static const std::vector<double> kNone;
  const auto found = series_.find(which);
  return found != series_.end() ? found->second : kNone;
}

Stat Samples::Ratio(const Which &over, const Which &under) const {
  const std::vector<double> &a = Values(over);
  const std::vector<double> &b = Values(under);
  std::vector<double> ratios;
  for (size_t i = 0; i < std::min(a.size(), b.size()); ++i) {
    if (b[i] > 0) ratios.push_back(a[i] / b[i]);
  }
  return StatOf(std::move(ratios));
}

std::vector<std::string> Samples::Labels(const std::string &figure) const {
  std::vector<std::string> labels;
  for (const Which &which : order_) {
    if (which.figure == figure) AddOnce(labels, which.label);
  }
  return labels;
}

std::vector<std::string> Samples::Variants(const std::string &figure) const {
  std::vector<std::string> variants;
  for (const Which &which : order_) {
    if (which.figure == figure) AddOnce(variants, which.variant);
  }
  return variants;
}

}  // namespace bench_report
