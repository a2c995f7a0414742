/* round_view.h: how a round of watch is shown in each format. */
#ifndef KESTREL_TOOLS_CONSOLE_ROUND_VIEW_H
#define KESTREL_TOOLS_CONSOLE_ROUND_VIEW_H

#include <string>
#include <vector>

#include "options.h"
#include "style.h"
#include "watch.h"

namespace console {

// RoundHead says when a round was, and of what.
struct RoundHead {
  std::string time;
  std::string command;
};

struct RoundStyle {
  Format format = Format::kLines;
  size_t width = 0;  // of tables; 0: no limit
  Palette palette;
};

// RenderRound gives the lines of a round, escaped and each with its mark: the host's lines, or
// tables of them.
std::vector<std::string> RenderRound(const std::vector<MarkedLine> &lines, const RoundStyle &style);

// RoundAsJson is a round as one JSON object on one line:
//   {"time": ..., "command": ..., "rows": [{"change": ..., "row": {...}}, ...]}
// A change is "", "new", "changed" or "removed".  The total at the end of a table is left out.
std::string RoundAsJson(const RoundHead &head, const std::vector<MarkedLine> &lines);

}  // namespace console

#endif /* KESTREL_TOOLS_CONSOLE_ROUND_VIEW_H */
