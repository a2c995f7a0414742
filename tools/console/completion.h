/* completion.h: what may follow what the operator has typed. */
#ifndef KESTREL_TOOLS_CONSOLE_COMPLETION_H
#define KESTREL_TOOLS_CONSOLE_COMPLETION_H

#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "client.h"
#include "row.h"

namespace console {

// Catalog is what can be completed.
struct Catalog {
  std::vector<std::vector<std::string>> ownCommands;  // of the console, word by word
  std::vector<std::string> objects;
  std::vector<HostCommand> commands;
  std::map<std::string, std::set<std::string>> values;  // seen in rows, by lower-case field name

  // Remember keeps the values of a row for the parameters of their names, up to a limit.
  void Remember(const Row &row);
};

// Completion is what Tab does.
struct Completion {
  std::string insert;                // to be added to the line
  std::vector<std::string> choices;  // to be shown when nothing is added; parameters as <name>
};

// Complete completes a line at its end.
Completion Complete(const Catalog &catalog, std::string_view line);

}  // namespace console

#endif /* KESTREL_TOOLS_CONSOLE_COMPLETION_H */
