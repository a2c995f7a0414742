/* watch_loop.h: repeats a command and shows what changed. */
#ifndef KESTREL_TOOLS_CONSOLE_WATCH_LOOP_H
#define KESTREL_TOOLS_CONSOLE_WATCH_LOOP_H

#include "client.h"
#include "watch.h"

namespace console {

// WatchCommand runs a command `count` times (0: until Ctrl-C).  On a terminal each round redraws
// the screen, and changed values are shown in reverse; without one, rounds follow each other.
Outcome WatchCommand(Client &client, const WatchRequest &request, uint32_t count);

}  // namespace console

#endif /* KESTREL_TOOLS_CONSOLE_WATCH_LOOP_H */
