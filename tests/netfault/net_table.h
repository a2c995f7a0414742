// net_table.h: network interfaces and their counters, as the tuples of a URI.
#ifndef NET_TABLE_H
#define NET_TABLE_H

#include <array>
#include <cstdint>
#include <map>

// NetName is an interface's name, padded with zeros: the key of a tuple.
using NetName = std::array<char, 16>;

// NetCounters is the value of a tuple.
struct NetCounters {
  uint64_t rxBytes, rxPackets, txBytes, txPackets;
  bool operator==(const NetCounters &) const = default;
};
static_assert(sizeof(NetCounters) == 32, "tuple value size");

using NetTable = std::map<NetName, NetCounters>;

#endif  // NET_TABLE_H
