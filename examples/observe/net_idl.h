// net_idl.h: the binary message of one interface, for both sides of the IDL examples.
//
//   kind   1 byte      bit 0: the interface is there, else it has gone; bit 1: first of a full set
//   name   16 bytes    padded with zeros
//   then, unless it has gone, rxBytes, rxPackets, txBytes, txPackets: 8 bytes each, little-endian
#ifndef NET_IDL_H
#define NET_IDL_H

#include <cstring>
#include <optional>
#include <string_view>

#include "net_dev.h"

struct NetIdl {
  static constexpr uint8_t kIsThere = 1, kIsFirst = 2;
  static constexpr size_t kGoneSize = 1 + sizeof(NetName);
  static constexpr size_t kUpdateSize = kGoneSize + sizeof(NetCounters);

  uint8_t kind = 0;
  NetName name = {};
  NetCounters counters = {};

  // Write puts the message into `out`, which holds kUpdateSize bytes.  Returns its size.
  size_t Write(uint8_t *out) const {
    out[0] = kind;
    std::memcpy(out + 1, name.data(), name.size());
    if (!(kind & kIsThere)) return kGoneSize;
    const uint64_t numbers[] = {counters.rxBytes, counters.rxPackets, counters.txBytes,
                                counters.txPackets};
    for (size_t i = 0; i < sizeof(numbers); ++i) {
      out[kGoneSize + i] = static_cast<uint8_t>(numbers[i / 8] >> 8 * (i % 8));
    }
    return kUpdateSize;
  }

  // Read takes a message apart; nothing when its size is wrong.
  static std::optional<NetIdl> Read(std::string_view bytes) {
    NetIdl msg;
    if (bytes.empty()) return std::nullopt;
    msg.kind = static_cast<uint8_t>(bytes[0]);
    if (bytes.size() != (msg.kind & kIsThere ? kUpdateSize : kGoneSize)) return std::nullopt;
    std::memcpy(msg.name.data(), bytes.data() + 1, msg.name.size() - 1);
    uint64_t numbers[4] = {};
    for (size_t i = 0; msg.kind & kIsThere && i < sizeof(numbers); ++i) {
      numbers[i / 8] |= uint64_t{static_cast<uint8_t>(bytes[kGoneSize + i])} << 8 * (i % 8);
    }
    msg.counters = {numbers[0], numbers[1], numbers[2], numbers[3]};
    return msg;
  }
};

#endif  // NET_IDL_H
