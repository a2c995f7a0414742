/* watch_loop.h: repeats a command and shows what changed. */
#ifndef KESTREL_TOOLS_CONSOLE_WATCH_LOOP_H
#define KESTREL_TOOLS_CONSOLE_WATCH_LOOP_H

#include "client.h"
#include "filter.h"
#include "round_view.h"

namespace console {

// WatchTask is what WatchCommand does.
struct WatchTask {
  uint32_t periodMs = 0;
  uint32_t count = 0;  // rounds; 0: until Ctrl-C
  FilteredCommand command;
  RoundStyle style;
};

// WatchCommand runs a command again and again.  On a terminal each round redraws the screen, except
// as JSON, and a host that goes is waited for; without one, rounds follow each other.
Outcome WatchCommand(Client &client, const WatchTask &task);

}  // namespace console

#endif /* KESTREL_TOOLS_CONSOLE_WATCH_LOOP_H */
