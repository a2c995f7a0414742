#include "render.h"

#include <algorithm>

#include "format.h"

namespace bench_report {
namespace {

using Row = std::vector<std::string>;

// Number has about three digits, and commas in large ones.
std::string Number(double value) {
  if (value < 10) return Format("%.2f", value);
  if (value < 100) return Format("%.1f", value);
  std::string text = Format("%.0f", value);
  for (size_t at = text.size(); at > 3;) text.insert(at -= 3, ",");
  return text;
}

std::string Cell(const Stat &stat) {
  if (stat.num == 0) return "";
  std::string median = Number(stat.median);
  if (stat.min == stat.max) return median;
  return median + " (" + Number(stat.min) + " to " + Number(stat.max) + ")";
}

std::string Line(const Row &row, const std::vector<size_t> &widths) {
  std::string line = "|";
  for (size_t i = 0; i < row.size(); ++i) {
    line += " " + row[i] + std::string(widths[i] - row[i].size(), ' ') + " |";
  }
  return line + "\n";
}

// Rows that stand under a head of the same width.
std::string Markdown(const std::vector<Row> &rows) {
  std::vector<size_t> widths(rows[0].size(), 3);
  for (const Row &row : rows) {
    for (size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], row[i].size());
  }
  std::string text = Line(rows[0], widths) + "|";
  for (const size_t width : widths) text += std::string(width + 2, '-') + "|";
  text += "\n";
  for (size_t i = 1; i < rows.size(); ++i) text += Line(rows[i], widths);
  return text;
}

std::string Quoted(const std::string &text) { return "\"" + text + "\""; }

std::string JsonStat(const Stat &stat) {
  return Format("{\"median\": %.6g, \"min\": %.6g, \"max\": %.6g, \"runs\": %zu}", stat.median,
                stat.min, stat.max, stat.num);
}

std::string JsonFigure(const Samples &samples, const Figure &figure) {
  std::string text;
  for (const std::string &label : samples.Labels(figure.name)) {
    for (const std::string &variant : samples.Variants(figure.name)) {
      for (const Column &column : figure.columns) {
        const Stat stat = samples.Of({figure.name, label, variant, column.metric});
        if (stat.num == 0) continue;
        text += std::string(text.empty() ? "" : ",\n") + "    {\"case\": " + Quoted(label) +
                ", \"variant\": " + Quoted(variant) + ", \"metric\": " + Quoted(column.metric) +
                ", \"value\": " + JsonStat(stat) + "}";
      }
    }
  }
  return text;
}

std::string JsonBars(const Samples &samples) {
  std::string text;
  for (const Bar &bar : Bars()) {
    const Verdict verdict = Judge(samples, bar);
    if (verdict.ratio.num == 0) continue;
    text += std::string(text.empty() ? "" : ",\n") + "    {\"bar\": " + Quoted(bar.text) +
            Format(", \"%s\": %g, \"met\": %s, \"ratio\": ", bar.isLeast ? "least" : "most",
                   bar.limit, verdict.isMet ? "true" : "false") +
            JsonStat(verdict.ratio) + "}";
  }
  return text;
}

}  // namespace

std::string Table(const Samples &samples, const Figure &figure) {
  std::vector<Row> rows = {{figure.caseHead, ""}};
  for (const Column &column : figure.columns) rows[0].push_back(column.head);
  for (const std::string &label : samples.Labels(figure.name)) {
    for (const std::string &variant : samples.Variants(figure.name)) {
      Row row = {label, variant};
      for (const Column &column : figure.columns) {
        row.push_back(Cell(samples.Of({figure.name, label, variant, column.metric})));
      }
      const bool isMeasured =
          std::any_of(row.begin() + 2, row.end(), [](auto &cell) { return !cell.empty(); });
      if (isMeasured) rows.push_back(row);
    }
  }
  return rows.size() > 1 ? Markdown(rows) : "";
}

std::string BarTable(const Samples &samples) {
  std::vector<Row> rows = {{"Ratio, median over pairs of runs", "Bar", "Measured", ""}};
  for (const Bar &bar : Bars()) {
    const Verdict verdict = Judge(samples, bar);
    if (verdict.ratio.num == 0) continue;
    rows.push_back({bar.text, Format("at %s %.2f", bar.isLeast ? "least" : "most", bar.limit),
                    Cell(verdict.ratio), verdict.isMet ? "met" : "MISSED"});
  }
  return rows.size() > 1 ? Markdown(rows) : "";
}

std::string Json(const Samples &samples) {
  std::string text = "{\n";
  for (const Figure &figure : Figures()) {
    text += "  " + Quoted(figure.name) + ": [\n" + JsonFigure(samples, figure) + "\n  ],\n";
  }
  return text + "  \"bars\": [\n" + JsonBars(samples) + "\n  ]\n}\n";
}

void Replace(std::string &document, const std::string &name, const std::string &text) {
  const std::string from = "<!-- bench:" + name + " -->\n";
  const size_t start = document.find(from);
  const size_t end = document.find("<!-- /bench:" + name + " -->");
  if (start == std::string::npos || end == std::string::npos || text.empty()) return;
  document.replace(start + from.size(), end - start - from.size(), text);
}

}  // namespace bench_report
