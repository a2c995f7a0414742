/* shell.h: asks the operator for commands, one after the other. */
#ifndef KESTREL_TOOLS_CONSOLE_SHELL_H
#define KESTREL_TOOLS_CONSOLE_SHELL_H

#include "client.h"
#include "options.h"

namespace console {

// RunShell reads commands until the end of the input, "quit", or the loss of the connection.
// Without a terminal it neither prompts nor pages.  Returns the last failure, or kOk.
Outcome RunShell(Client &client, const Options &options);

}  // namespace console

#endif /* KESTREL_TOOLS_CONSOLE_SHELL_H */
