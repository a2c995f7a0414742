/* netfault_packet.h: IP packets with UDP datagrams, as tunnel devices give and take them. */
#ifndef NETFAULT_PACKET_H
#define NETFAULT_PACKET_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace netfault {

using Bytes = std::vector<uint8_t>;

// Layout says where the parts of a packet are.
struct Layout {
  size_t transportAt = 0;  // UDP header, or the data of a later fragment
  size_t payloadAt = 0;    // after the UDP header; as transportAt in a later fragment
  uint32_t fragmentAt = 0;
  bool isIpv6 = false;
  bool isFragment = false;
  bool HasUdpHeader() const { return fragmentAt == 0; }
};

// LayoutOf takes a packet apart; nothing for one that is not UDP (the systems' own ICMP).
std::optional<Layout> LayoutOf(const Bytes &packet);

// FlipBit damages a bit of the UDP payload; the receiver's checksum finds it.
void FlipBit(Bytes &packet, uint32_t random);

// ForgeBit does so and corrects the checksum.  Fragments are left alone.
void ForgeBit(Bytes &packet, uint32_t random);

// Renumber gives the CoAP message in the packet another message id, with the right checksum.
void Renumber(Bytes &packet);

// PortUnreachable is what a host answers to a packet for a port that nobody has opened.
Bytes PortUnreachable(const Bytes &packet);

// Digest is a running number over packets: what makes runs differ that are alike (identification,
// flow label, IP checksum) is left out.
class Digest {
 public:
  void Add(uint64_t nowMs, uint32_t from, const Bytes &packet);
  uint64_t Value() const { return hash_; }

 private:
  void AddByte(uint8_t byte) { hash_ = (hash_ ^ byte) * 0x100000001B3u; }

  uint64_t hash_ = 0xCBF29CE484222325u;
};

// CoapText shows a packet's CoAP message for traces: type, code, message id, size, block.
std::string CoapText(const Bytes &packet);

}  // namespace netfault

#endif /* NETFAULT_PACKET_H */
