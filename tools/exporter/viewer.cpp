/* viewer.cpp: what one viewer of the live page has seen. */
#include "viewer.h"

#include "json.h"

namespace exporter {

namespace {

using console::JsonText;

std::string Event(const char *name, const std::string &host, const std::string &more) {
  return std::string("event: ") + name + "\ndata: {\"host\":" + JsonText(host) + "," + more +
         "}\n\n";
}

std::string HostEvent(const HostView &host) {
  return Event("host", host.name,
               std::string("\"isUp\":") + (host.isUp ? "true" : "false") + ",\"reason\":" +
                   JsonText(host.reason) + ",\"p50\":" + std::to_string(host.answerP50) +
                   ",\"p99\":" + std::to_string(host.answerP99));
}

std::string GoneEvent(const HostView &host, const TableId &id) {
  return Event("gone", host.name,
               "\"object\":" + JsonText(id.object) + ",\"command\":" + JsonText(id.command) +
                   ",\"argument\":" + JsonText(id.argument));
}

// TableEvent sends only the changes to a viewer who has the version that they are for.
std::string TableEvent(const HostView &host, const Table *seen, const Table &table) {
  const bool isNext = seen && !table.changes.empty() && table.follows == seen->version;
  return isNext ? Event("rows", host.name, "\"table\":" + table.changes)
                : Event("table", host.name, "\"table\":" + TableJson(table));
}

}  // namespace

std::string Viewer::Next(const HostView &host) {
  Seen &seen = hosts_[host.name];
  std::string events;
  const bool isSame = seen.isKnown && seen.isUp == host.isUp && seen.reason == host.reason;
  if (isSame && seen.numRounds == host.numRounds) return events;
  events += HostEvent(host);
  for (const auto &[id, table] : seen.tables) {
    if (!host.tables.contains(id)) events += GoneEvent(host, id);
  }
  for (const auto &[id, table] : host.tables) {
    const auto old = seen.tables.find(id);
    const Table *before = old != seen.tables.end() ? old->second.get() : nullptr;
    if (before != table.get()) events += TableEvent(host, before, *table);
  }
  seen = {true, host.isUp, host.reason, host.numRounds, host.tables};
  return events;
}

}  // namespace exporter
