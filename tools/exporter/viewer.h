/* viewer.h: what one viewer of the live page has seen, and what is to be sent next. */
#ifndef KESTREL_TOOLS_EXPORTER_VIEWER_H
#define KESTREL_TOOLS_EXPORTER_VIEWER_H

#include <map>
#include <string>

#include "host_poller.h"

namespace exporter {

// Viewer turns views of hosts into server-sent events:
//
//   host    {"host", "isUp", "reason", "p50", "p99"}     sent when one of them changed
//   table   {"host", "table": a whole table}
//   rows    {"host", "table": the rows that changed}     after a table that the viewer has
//   gone    {"host", "object", "command", "argument"}
class Viewer {
 public:
  // Next gives the events that bring the viewer to this view of a host; empty: nothing changed.
  std::string Next(const HostView &host);

 private:
  struct Seen {
    bool isKnown = false;
    bool isUp = false;
    std::string reason;
    uint64_t numRounds = 0;
    std::map<TableId, TablePtr> tables;
  };

  std::map<std::string, Seen> hosts_;
};

}  // namespace exporter

#endif /* KESTREL_TOOLS_EXPORTER_VIEWER_H */
