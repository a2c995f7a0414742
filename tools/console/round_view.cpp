/* round_view.cpp: how a round of watch is shown in each format. */
#include "round_view.h"

#include "json.h"
#include "table.h"

namespace console {

namespace {

using Texts = std::vector<std::string>;

std::string WithMark(const MarkedLine &line, Palette palette) {
  return std::string{line.mark, ' '} + PaintedLine(line.text, line.changed, palette);
}

void AddAll(Texts &lines, const Texts &more) {
  lines.insert(lines.end(), more.begin(), more.end());
}

// RenderTables makes a table of rows that follow each other; other lines stand between them.
Texts RenderTables(const std::vector<MarkedLine> &lines, const RoundStyle &style) {
  Texts rendered;
  Table table(style.palette, true);
  for (const MarkedLine &line : lines) {
    if (const auto row = ParseRow(line.text)) {
      table.Add(*row, line.mark, line.changed);
      continue;
    }
    AddAll(rendered, table.Render(style.width));
    table.Clear();
    rendered.push_back(WithMark(line, style.palette));
  }
  AddAll(rendered, table.Render(style.width));
  return rendered;
}

const char *ChangeText(char mark) {
  return mark == '+' ? "new" : mark == '*' ? "changed" : mark == '-' ? "removed" : "";
}

}  // namespace

Texts RenderRound(const std::vector<MarkedLine> &lines, const RoundStyle &style) {
  if (style.format == Format::kTable) return RenderTables(lines, style);
  Texts rendered;
  for (const MarkedLine &line : lines) rendered.push_back(WithMark(line, style.palette));
  return rendered;
}

std::string RoundAsJson(const RoundHead &head, const std::vector<MarkedLine> &lines) {
  std::string rows;
  for (const MarkedLine &line : lines) {
    if (IsTotal(line.text)) continue;
    if (!rows.empty()) rows += ", ";
    rows += "{\"change\": " + JsonText(ChangeText(line.mark)) +
            ", \"row\": " + JsonObject(line.text) + "}";
  }
  return "{\"time\": " + JsonText(head.time) + ", \"command\": " + JsonText(head.command) +
         ", \"rows\": [" + rows + "]}";
}

}  // namespace console
