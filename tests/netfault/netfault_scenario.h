/* netfault_scenario.h: what happens in a run, as text.
 *
 * A scenario is a text of lines; "#" begins a comment.  Settings, with their defaults:
 *
 *   name <word>                      of the scenario
 *   seed 1                           of everything that is left to chance
 *   tuples 450                       size of the table
 *   format json | idl
 *   policy none | verify <s> | batch <s> | hand | mirror <s>   what keeps the mirror right
 *   ip 4 | 6
 *   io prompt | polled               whether the hosts watch their descriptors (COAP_RpcGetIoFd)
 *   icmp on | off                    hosts answer packets for ports that nobody has
 *   changes 5                        of the table for each second, deletions included
 *   deletions 10                     percent of the changes
 *   base settled | start             when the timeline begins: once the mirror is right, or at once
 *   tail 30                          seconds for which changes go on after the last event
 *   limit 300                        seconds of patience after the last change
 *   watch 60                         seconds for which a mirror that is right has to stay so
 *   reason <policy> <words>          why a mirror of this policy may stay wrong; none: it may not
 *
 * The timeline: "at <seconds> <who> <what> [<arguments>]", where <who> <what> is one of
 *
 *   link | to-mirror | to-publisher   of both directions, or of packets to one side:
 *     up, down                        whether anything passes
 *     delay <ms>, jitter <ms>         5 and 0 at the start
 *     loss <%>, late <%> <ms>, copy <%> <ms>, renumbered <%> <ms>    (netfault_link.h)
 *     flip <%>, forge <%>, fragment-loss <%>, max-size <bytes>, lose-next <packets>
 *   publisher | mirror
 *     interface up | down             of its namespace
 *     address <host>                  another one, 10.78.0.<host>; publisher 1, mirror 2 at first
 *     mtu <bytes>                     of its interface; larger packets are sent in fragments
 *     route normal | prohibit | unreachable | blackhole     to the other side
 *     sends ok | EPERM | ENOBUFS | ENETUNREACH | EAGAIN     what its sockets say
 *     stop | start                    its process dies without a word, a new one comes
 *     start same-port                 ... which sends from the port of the former one
 *     freeze | thaw                   its process stands still
 *   publisher attach | detach         its URI, at the address of the moment
 *   publisher change <n>, delete <n>  tuples, at once
 *   publisher erase <i>               one tuple, by its number
 *   mirror observe | verify | batch | cancel
 *   mirror peer <host>                where it looks for the publisher when it starts next
 *   changes rate <n>                  for each second, from now on */
#ifndef NETFAULT_SCENARIO_H
#define NETFAULT_SCENARIO_H

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "netfault_apps.h"

namespace netfault {

struct Event {
  uint64_t atMs = 0;
  std::string who, what;
  std::vector<std::string> args;

  double Number(size_t i) const { return i < args.size() ? std::stod(args[i]) : 0; }
  uint32_t Count(size_t i) const { return static_cast<uint32_t>(Number(i)); }
};

struct Scenario {
  std::string name = "unnamed";
  uint32_t seed = 1;
  uint32_t numTuples = 450;
  bool isIdl = false;
  Policy policy;
  bool isIpv6 = false;
  bool isPolled = false;
  bool hasIcmp = true;
  double changesPerSecond = 5;
  double deletionPercent = 10;
  bool isBaseStart = false;
  uint64_t tailMs = 30'000;
  uint64_t limitMs = 300'000;
  uint64_t watchMs = 60'000;
  std::map<Policy::Kind, std::string> reasons;  // why it may stay wrong
  std::vector<Event> events;                    // in order of time

  // Apply takes one line.  Returns "" or what is wrong with it.
  std::string Apply(const std::string &line);
};

// ParseScenario reads a text.  Returns "" and fills `scenario`, or says what is wrong, and where.
std::string ParseScenario(const std::string &text, Scenario *scenario);

}  // namespace netfault

#endif /* NETFAULT_SCENARIO_H */
