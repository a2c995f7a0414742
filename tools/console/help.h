/* help.h: what is said to an operator who asks. */
#ifndef KESTREL_TOOLS_CONSOLE_HELP_H
#define KESTREL_TOOLS_CONSOLE_HELP_H

#include <string>
#include <string_view>
#include <vector>

#include "client.h"

namespace console {

// HelpOnAll lists the console's own commands, the filters, and the host's commands.
std::vector<std::string> HelpOnAll(const std::vector<HostCommand> &commands);

// HelpOn lists the commands that the words of `line` begin, abbreviated or not, with a line for
// each; when it is one, with a line for each of its parameters.  None: no command begins so.
// Lines are escaped.
std::vector<std::string> HelpOn(std::string_view line, const std::vector<HostCommand> &commands);

}  // namespace console

#endif /* KESTREL_TOOLS_CONSOLE_HELP_H */
