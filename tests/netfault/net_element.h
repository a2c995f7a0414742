// net_element.h: one element of a notification: an interface that is there, or one that was
// removed.
//
// JSON, an object:
//   {"set":7,"name":"eth0","rxBytes":1,"rxPackets":2,"txBytes":3,"txPackets":4}
//   {"set":7,"name":"eth0","gone":true}
// IDL, a binary message:
//   kind   1 byte      1: the interface is there, 0: it was removed
//   set    4 bytes     little-endian
//   name   16 bytes    padded with zeros
//   then, unless it was removed, rxBytes, rxPackets, txBytes, txPackets: 8 bytes each,
//   little-endian
#ifndef NET_ELEMENT_H
#define NET_ELEMENT_H

#include <cstddef>
#include <string_view>

#include "net_table.h"

// TakeNumber takes a little-endian number off the front; the caller has checked the size.
uint64_t TakeNumber(std::string_view &bytes, size_t size);

struct NetElement {
  static constexpr size_t kGoneSize = 1 + sizeof(uint32_t) + sizeof(NetName);
  static constexpr size_t kUpdateSize = kGoneSize + sizeof(NetCounters);

  bool isThere = false;
  uint32_t set = 0;  // which full set it belongs to, or changes; see net_publisher.h
  NetName name = {};
  NetCounters counters = {};

  void WriteJson(void *object) const;  // a json_t
  bool ReadJson(const void *object);   // false when it is not understood

  // WriteIdl puts the message into `out`, which holds kUpdateSize bytes.  Returns its size.
  size_t WriteIdl(uint8_t *out) const;
  bool ReadIdl(std::string_view message);
};

// kNetSum is the name of one more tuple, whose first number is NetSum of all others.  By it a
// mirror knows that it has everything, and has it right.
inline constexpr NetName kNetSum = {'#', 's', 'u', 'm'};
uint64_t NetSum(const NetTable &table);

// NetSumOf is a tuple's part of that sum: an exclusive or of the parts.
uint64_t NetSumOf(const NetName &name, const NetCounters &counters);

#endif  // NET_ELEMENT_H
