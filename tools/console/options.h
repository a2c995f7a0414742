/* options.h: the command line of the console. */
#ifndef KESTREL_TOOLS_CONSOLE_OPTIONS_H
#define KESTREL_TOOLS_CONSOLE_OPTIONS_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace console {

enum class Format { kLines, kJson, kTable };

struct Options {
  std::string socket;
  std::string object;
  Format format = Format::kLines;  // as tables on a terminal, unless asked otherwise
  size_t width = 0;                // of tables; 0: that of the terminal
  uint32_t count = 0;              // rounds of watch; 0: no limit
  uint32_t timeoutS = 10;          // the host may be silent for; 0: for ever
  bool usePager = true;
  bool useHistory = true;
  std::vector<std::string> command;  // empty: interactive
};

// ParseOptions reads the command line.  Returns none when there is nothing to do, because help was
// printed or the line makes no sense; `exitCode` then says which.
std::optional<Options> ParseOptions(int argc, char **argv, int &exitCode);

}  // namespace console

#endif /* KESTREL_TOOLS_CONSOLE_OPTIONS_H */
