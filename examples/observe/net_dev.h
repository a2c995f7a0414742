// net_dev.h: the network interfaces of this machine and their counters, as the tuples of a URI.
#ifndef NET_DEV_H
#define NET_DEV_H

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

// ReadNetDev reads /proc/net/dev; empty when it cannot be read.
NetTable ReadNetDev();

#endif  // NET_DEV_H
