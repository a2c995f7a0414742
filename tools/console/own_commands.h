/* own_commands.h: the commands of the console itself. */
#ifndef KESTREL_TOOLS_CONSOLE_OWN_COMMANDS_H
#define KESTREL_TOOLS_CONSOLE_OWN_COMMANDS_H

#include <string>
#include <string_view>
#include <vector>

#include "client.h"
#include "words.h"

namespace console {

// OwnCommand is one of them, for help.
struct OwnCommand {
  const char *word;
  const char *usage;
  const char *about;
};

const std::vector<OwnCommand> &OwnCommands();

// OwnPhrases are the commands for completion, word by word.
std::vector<Words> OwnPhrases();

// MayBeOwn tells that the first word of a line begins one of them, but is not one.
bool MayBeOwn(std::string_view line);

// ExpandOwn replaces the first word if it begins exactly one of them, and no command of the host.
std::string ExpandOwn(std::string_view line, const std::vector<HostCommand> &commands);

}  // namespace console

#endif /* KESTREL_TOOLS_CONSOLE_OWN_COMMANDS_H */
