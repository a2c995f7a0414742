/* dbg_channel.h: what a debug handle points to.
 *
 * The debug library asks before it formats a text of the debug channel, and hands the text over; it
 * needs nothing else of the host. */
#ifndef KESTREL_SRC_DBG_DBG_CHANNEL_H
#define KESTREL_SRC_DBG_DBG_CHANNEL_H

#include <cstdint>

namespace kestrel {

struct DbgChannel {
  // takes says whether a text of the debug channel is printed now; one that is not counts as
  // dropped.  Does not throw.
  bool (*takes)(void *owner, uint32_t level);

  // write takes one text; `toSyslog` tells the system log from the debug channel.  Does not throw.
  void (*write)(void *owner, bool toSyslog, uint32_t level, const char *text);
  void *owner;
};

}  // namespace kestrel

#endif /* KESTREL_SRC_DBG_DBG_CHANNEL_H */
