/* shell.h: asks the operator for commands, one after the other. */
#ifndef KESTREL_TOOLS_CONSOLE_SHELL_H
#define KESTREL_TOOLS_CONSOLE_SHELL_H

#include "client.h"
#include "options.h"

namespace console {

// RunShell reads commands until the end of the input or "quit".  On a terminal it waits for a host
// that went, and returns kOk.  Without one it neither prompts nor pages, ends when the connection
// is lost, and returns the last failure, or kOk.
Outcome RunShell(Client &client, const Options &options);

}  // namespace console

#endif /* KESTREL_TOOLS_CONSOLE_SHELL_H */
