/* coap_malformed.cpp: datagrams that are no CoAP messages, made from ones that are. */
#include "coap_malformed.h"

#include <algorithm>

namespace coap_rpc_test {
namespace {

Bytes WithRawTail(CoapMessage message, const Bytes &tail) {
  message.rawOptions.insert(message.rawOptions.end(), tail.begin(), tail.end());
  return ToBytes(message);
}

CoapMessage WithoutPayload(CoapMessage message) {
  message.payload.clear();
  return message;
}

}  // namespace

Bytes WithVersion(const CoapMessage &message, uint8_t version) {
  Bytes datagram = ToBytes(message);
  datagram[0] = static_cast<uint8_t>(version << 6 | (datagram[0] & 0x3F));
  return datagram;
}

Bytes WithTokenLen(const CoapMessage &message, uint8_t tokenLen) {
  Bytes datagram = ToBytes(message);
  datagram[0] = static_cast<uint8_t>((datagram[0] & 0xF0) | (tokenLen & 0x0F));
  return datagram;
}

Bytes WithReservedDelta(CoapMessage message) { return WithRawTail(std::move(message), {0xF0}); }

Bytes WithReservedLen(CoapMessage message) { return WithRawTail(std::move(message), {0x0F}); }

Bytes WithCutExtension(CoapMessage message) {
  return WithRawTail(WithoutPayload(std::move(message)), {0xE0, 0x01});
}

Bytes WithCutValue(CoapMessage message, uint8_t len) {
  Bytes tail(len, 'x');  // the first byte says how many follow
  tail[0] = len;
  return WithRawTail(WithoutPayload(std::move(message)), tail);
}

Bytes WithHugeNumber(CoapMessage message) {
  return WithRawTail(std::move(message), {0xE0, 0xFE, 0xF2, 0xE0, 0xFE, 0xF2});
}

Bytes WithBareMarker(CoapMessage message) {
  return WithRawTail(WithoutPayload(std::move(message)), {0xFF});
}

Bytes Truncated(const CoapMessage &message, size_t len) {
  Bytes datagram = ToBytes(message);
  datagram.resize(std::min(len, datagram.size()));
  return datagram;
}

}  // namespace coap_rpc_test
