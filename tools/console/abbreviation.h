/* abbreviation.h: commands of which the operator typed only the beginnings of words. */
#ifndef KESTREL_TOOLS_CONSOLE_ABBREVIATION_H
#define KESTREL_TOOLS_CONSOLE_ABBREVIATION_H

#include <string>
#include <string_view>
#include <vector>

namespace console {

// Expansion is what an abbreviated line stands for.
struct Expansion {
  std::string line;                  // with the command's words in full; empty: none or several
  std::vector<std::string> choices;  // the commands that it may stand for, when there are several
};

// Expand replaces the words of a command that `line` begins with; what follows them stays as it is.
// A whole word is preferred to the beginning of another one, and a longer command to a shorter one.
Expansion Expand(std::string_view line, const std::vector<std::string> &commands);

}  // namespace console

#endif /* KESTREL_TOOLS_CONSOLE_ABBREVIATION_H */
