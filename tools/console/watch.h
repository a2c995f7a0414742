/* watch.h: what changed between two rounds of a command. */
#ifndef KESTREL_TOOLS_CONSOLE_WATCH_H
#define KESTREL_TOOLS_CONSOLE_WATCH_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "style.h"

namespace console {

// WatchRequest is "watch <seconds> <command>".
struct WatchRequest {
  uint32_t periodMs = 0;
  std::string command;
};

bool IsWatch(std::string_view line);

// ParseWatch takes seconds from 0.1 to 86400.  REQUIRES: IsWatch(line)
// On failure returns none and sets `reason`.
std::optional<WatchRequest> ParseWatch(std::string_view line, std::string &reason);

// MarkedLine is a line of a round, compared with the round before.
struct MarkedLine {
  char mark = ' ';  // '+' new, '*' changed, '-' gone, ' ' as before
  std::string text;
  Parts changed;  // what changed
};

// MarkChanges compares two rounds.  A row is identified by its first field, whatever its number
// in the table; any other line by its text without digits.  Removed lines come last.
std::vector<MarkedLine> MarkChanges(const std::vector<std::string> &before,
                                    const std::vector<std::string> &now);

// Unmarked gives the lines of a first round, which has nothing to be compared with.
std::vector<MarkedLine> Unmarked(const std::vector<std::string> &now);

}  // namespace console

#endif /* KESTREL_TOOLS_CONSOLE_WATCH_H */
