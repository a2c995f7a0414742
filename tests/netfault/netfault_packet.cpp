#include "netfault_packet.h"

#include <algorithm>
#include <cstdio>

#include "coap_message.h"

namespace netfault {
namespace {

constexpr size_t kIpv4Header = 20, kIpv6Header = 40, kUdpHeader = 8, kFragmentHeader = 8;
constexpr uint8_t kUdp = 17, kIcmp = 1, kIcmpv6 = 58, kIpv6Fragment = 44;

uint32_t Number16(const Bytes &bytes, size_t at) {
  return static_cast<uint32_t>(bytes[at]) << 8 | bytes[at + 1];
}

void Put16(Bytes &bytes, size_t at, uint32_t value) {
  bytes[at] = static_cast<uint8_t>(value >> 8);
  bytes[at + 1] = static_cast<uint8_t>(value);
}

// Sum adds 16-bit numbers as the internet checksum does, an odd last byte as a high one.
uint32_t Sum(const Bytes &bytes, size_t from, size_t to) {
  uint32_t sum = 0;
  for (size_t i = from; i < to; ++i) sum += uint32_t{bytes[i]} << (i % 2 == from % 2 ? 8 : 0);
  return sum;
}

uint32_t Folded(uint32_t sum) {
  while (sum >> 16) sum = (sum & 0xFFFF) + (sum >> 16);
  return ~sum & 0xFFFF;
}

// PseudoSum covers addresses, length and protocol.
uint32_t PseudoSum(const Bytes &packet, bool isIpv6, size_t len, uint8_t protocol) {
  const uint32_t addresses = isIpv6 ? Sum(packet, 8, 40) : Sum(packet, 12, 20);
  return addresses + static_cast<uint32_t>(len) + protocol;
}

void CorrectUdp(Bytes &packet, const Layout &layout) {
  const size_t at = layout.transportAt;
  Put16(packet, at + 6, 0);
  const uint32_t sum =
      PseudoSum(packet, layout.isIpv6, packet.size() - at, kUdp) + Sum(packet, at, packet.size());
  const uint32_t folded = Folded(sum);
  Put16(packet, at + 6, folded != 0 ? folded : 0xFFFF);
}

Layout WithPayload(Layout layout) {
  layout.payloadAt = layout.transportAt + (layout.HasUdpHeader() ? kUdpHeader : 0);
  return layout;
}

std::optional<Layout> Ipv4Layout(const Bytes &packet) {
  if (packet[9] != kUdp) return std::nullopt;
  Layout layout;
  layout.transportAt = size_t{4} * (packet[0] & 15);
  layout.fragmentAt = 8 * (Number16(packet, 6) & 0x1FFF);
  layout.isFragment = (Number16(packet, 6) & 0x3FFF) != 0;
  return WithPayload(layout);
}

std::optional<Layout> Ipv6Layout(const Bytes &packet) {
  Layout layout;
  layout.isIpv6 = true;
  layout.transportAt = kIpv6Header;
  uint8_t next = packet[6];
  if (next == kIpv6Fragment && packet.size() > kIpv6Header + kFragmentHeader) {
    next = packet[kIpv6Header];
    layout.transportAt += kFragmentHeader;
    layout.fragmentAt = Number16(packet, kIpv6Header + 2) & 0xFFF8;
    layout.isFragment = true;
  }
  if (next != kUdp) return std::nullopt;
  return WithPayload(layout);
}

// IpHeader is that of an answer to a packet: the addresses change places.
Bytes IpHeader(const Bytes &packet, bool isIpv6, size_t len) {
  Bytes header(isIpv6 ? kIpv6Header : kIpv4Header);
  const size_t addrAt = isIpv6 ? 8 : 12;
  const size_t addrLen = isIpv6 ? 16 : 4;
  header[0] = isIpv6 ? 0x60 : 0x45;
  header[isIpv6 ? 7 : 8] = 64;
  header[isIpv6 ? 6 : 9] = isIpv6 ? kIcmpv6 : kIcmp;
  Put16(header, isIpv6 ? 4 : 2, static_cast<uint32_t>(isIpv6 ? len : header.size() + len));
  for (size_t i = 0; i < 2 * addrLen; ++i) {
    header[addrAt + i] = packet[addrAt + (i + addrLen) % (2 * addrLen)];
  }
  if (!isIpv6) Put16(header, 10, Folded(Sum(header, 0, kIpv4Header)));
  return header;
}

}  // namespace

std::optional<Layout> LayoutOf(const Bytes &packet) {
  if (packet.size() < kIpv4Header) return std::nullopt;
  const bool isIpv6 = packet[0] >> 4 == 6;
  if (isIpv6 && packet.size() < kIpv6Header) return std::nullopt;
  const std::optional<Layout> layout = isIpv6 ? Ipv6Layout(packet) : Ipv4Layout(packet);
  if (!layout || packet.size() < layout->payloadAt) return std::nullopt;
  return layout;
}

void FlipBit(Bytes &packet, uint32_t random) {
  const std::optional<Layout> layout = LayoutOf(packet);
  if (!layout || packet.size() == layout->payloadAt) return;
  const size_t numBits = 8 * (packet.size() - layout->payloadAt);
  const size_t bit = random % numBits;
  packet[layout->payloadAt + bit / 8] ^= static_cast<uint8_t>(1 << bit % 8);
}

void ForgeBit(Bytes &packet, uint32_t random) {
  const std::optional<Layout> layout = LayoutOf(packet);
  if (!layout || layout->isFragment) return;
  FlipBit(packet, random);
  CorrectUdp(packet, *layout);
}

void Renumber(Bytes &packet) {
  const std::optional<Layout> layout = LayoutOf(packet);
  if (!layout || layout->isFragment || packet.size() < layout->payloadAt + 4) return;
  Put16(packet, layout->payloadAt + 2, Number16(packet, layout->payloadAt + 2) + 0x4000);
  CorrectUdp(packet, *layout);
}

Bytes PortUnreachable(const Bytes &packet) {
  const bool isIpv6 = packet[0] >> 4 == 6;
  const size_t quoted = std::min(packet.size(), (isIpv6 ? kIpv6Header : kIpv4Header) + kUdpHeader);
  Bytes icmp = {isIpv6 ? uint8_t{1} : uint8_t{3}, isIpv6 ? uint8_t{4} : uint8_t{3}};
  icmp.resize(8);
  icmp.insert(icmp.end(), packet.begin(), packet.begin() + static_cast<ptrdiff_t>(quoted));
  Bytes answer = IpHeader(packet, isIpv6, icmp.size());
  const uint32_t pseudo = isIpv6 ? PseudoSum(answer, true, icmp.size(), kIcmpv6) : 0;
  Put16(icmp, 2, Folded(pseudo + Sum(icmp, 0, icmp.size())));
  answer.insert(answer.end(), icmp.begin(), icmp.end());
  return answer;
}

void Digest::Add(uint64_t nowMs, uint32_t from, const Bytes &packet) {
  const std::optional<Layout> layout = LayoutOf(packet);
  if (!layout) return;
  for (int shift = 0; shift < 64; shift += 8) AddByte(static_cast<uint8_t>(nowMs >> shift));
  AddByte(static_cast<uint8_t>(from));
  AddByte(static_cast<uint8_t>(layout->fragmentAt >> 8));
  AddByte(static_cast<uint8_t>(layout->fragmentAt));
  for (size_t i = layout->transportAt; i < packet.size(); ++i) AddByte(packet[i]);
}

std::string CoapText(const Bytes &packet) {
  const std::optional<Layout> layout = LayoutOf(packet);
  if (!layout) return "not UDP";
  if (!layout->HasUdpHeader()) return "fragment at " + std::to_string(layout->fragmentAt);
  static constexpr const char *kTypes[] = {"CON", "NON", "ACK", "RST"};
  coap_rpc_test::CoapMessage message;
  const Bytes bytes(packet.begin() + static_cast<ptrdiff_t>(layout->payloadAt), packet.end());
  const std::string fault = coap_rpc_test::Parse(bytes, &message);
  if (!fault.empty()) return std::to_string(bytes.size()) + " bytes: " + fault;
  std::string text = kTypes[static_cast<int>(message.type)];
  text += ' ' + coap_rpc_test::CodeText(message.code) + " #" + std::to_string(message.messageId);
  text += " token " + coap_rpc_test::HexText(message.token);
  const auto observe = message.Uint(coap_rpc_test::kOptObserve);
  const auto block = message.Block(coap_rpc_test::kOptBlock2);
  if (observe) text += " observe " + std::to_string(*observe);
  if (block) text += " block " + std::to_string(block->num) + (block->more ? "+" : "");
  for (const Bytes &query : message.Values(coap_rpc_test::kOptUriQuery)) {
    text += " ?" + std::string(query.begin(), query.end());
  }
  return text + ", " + std::to_string(message.payload.size()) + " bytes";
}

}  // namespace netfault
