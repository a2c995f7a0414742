/* coap_malformed.h: datagrams that are no CoAP messages, made from ones that are.
 *
 * Each function encodes `message` and breaks exactly one thing. */
#ifndef COAP_MALFORMED_H
#define COAP_MALFORMED_H

#include "coap_message.h"

namespace coap_rpc_test {

// WithVersion puts a version (0 to 3) into the header.
Bytes WithVersion(const CoapMessage &message, uint8_t version);

// WithTokenLen claims a token of 0 to 15 bytes, whatever the token is; 9 to 15 are reserved.
Bytes WithTokenLen(const CoapMessage &message, uint8_t tokenLen);

// WithReservedDelta and WithReservedLen end the options with one whose nibble for the delta or the
// length is 15 (and the other is not, so that it is no payload marker).
Bytes WithReservedDelta(CoapMessage message);
Bytes WithReservedLen(CoapMessage message);

// WithCutExtension ends the datagram where the extended delta of an option should follow;
// WithCutValue claims `len` (1 to 12) bytes for the value of a last option and gives one less.
// A payload is dropped.
Bytes WithCutExtension(CoapMessage message);
Bytes WithCutValue(CoapMessage message, uint8_t len);

// WithHugeNumber adds an option whose number is above 65535.
Bytes WithHugeNumber(CoapMessage message);

// WithBareMarker ends the datagram with a payload marker and no payload.
Bytes WithBareMarker(CoapMessage message);

// Truncated gives the first `len` bytes of the encoded message.
Bytes Truncated(const CoapMessage &message, size_t len);

}  // namespace coap_rpc_test

#endif /* COAP_MALFORMED_H */
