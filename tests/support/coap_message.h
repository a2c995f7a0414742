/* coap_message.h: CoAP datagrams (RFC 7252), built and read byte by byte.
 *
 * Tests speak to the library with these instead of a CoAP library, so that both sides of an
 * exchange are not wrong in the same way.  Datagrams that break the format are made by the
 * functions of coap_malformed.h. */
#ifndef COAP_MESSAGE_H
#define COAP_MESSAGE_H

#include <cstdint>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

namespace coap_rpc_test {

using Bytes = std::vector<uint8_t>;

enum class CoapType : uint8_t { kCon = 0, kNon = 1, kAck = 2, kRst = 3 };

// Code makes a message code from its class and detail: Code(2, 5) is 2.05.
constexpr uint8_t Code(uint8_t codeClass, uint8_t detail) {
  return static_cast<uint8_t>(codeClass << 5 | detail);
}

inline constexpr uint8_t kCodeEmpty = 0, kCodeGet = 1, kCodePost = 2, kCodePut = 3, kCodeDelete = 4;

enum CoapOptionNumber : uint16_t {
  kOptIfMatch = 1,
  kOptUriHost = 3,
  kOptEtag = 4,
  kOptIfNoneMatch = 5,
  kOptObserve = 6,
  kOptUriPort = 7,
  kOptLocationPath = 8,
  kOptUriPath = 11,
  kOptContentFormat = 12,
  kOptMaxAge = 14,
  kOptUriQuery = 15,
  kOptAccept = 17,
  kOptBlock2 = 23,
  kOptBlock1 = 27,
  kOptSize2 = 28,
  kOptSize1 = 60,
};

struct CoapOption {
  uint16_t number = 0;
  Bytes value;

  bool operator==(const CoapOption &) const = default;
};

// CoapBlock is the value of a Block1 or Block2 option.
struct CoapBlock {
  uint32_t num = 0;  // 20 bits
  bool more = false;
  uint8_t szx = 0;  // block size is 16 << szx, at most 6

  bool operator==(const CoapBlock &) const = default;
};

// CoapMessage is one message.  The Add functions return the message itself, to be chained.
struct CoapMessage {
  CoapType type = CoapType::kCon;
  uint8_t code = kCodeEmpty;
  uint16_t messageId = 0;
  Bytes token;                      // at most 8 bytes
  std::vector<CoapOption> options;  // in any order: sorted by number when encoded, equal ones
                                    // stay as they are
  Bytes rawOptions;                 // bytes that follow the encoded options as they are
  Bytes payload;                    // empty: none

  bool operator==(const CoapMessage &) const = default;

  CoapMessage &Token(Bytes value);
  CoapMessage &Add(uint16_t number, Bytes value = {});
  CoapMessage &AddText(uint16_t number, std::string_view text);
  CoapMessage &AddUint(uint16_t number, uint32_t value);  // shortest form, 0 is empty
  CoapMessage &AddPath(std::string_view path);            // "a/b" gives two Uri-Path options
  CoapMessage &AddBlock(uint16_t number, const CoapBlock &block);
  CoapMessage &Payload(Bytes value);
  CoapMessage &PayloadText(std::string_view text);

  // What a received message holds.
  std::vector<Bytes> Values(uint16_t number) const;  // all options of the number, in order
  bool Has(uint16_t number) const;
  std::optional<uint32_t> Uint(uint16_t number) const;    // of the first; none when over 4 bytes
  std::optional<CoapBlock> Block(uint16_t number) const;  // of the first; none when over 3 bytes
  std::string Path() const;                               // Uri-Path options joined by "/"
  std::string Text() const;                               // the payload
};

// Request makes a message with code, id and token; further parts are added to it.
CoapMessage Request(CoapType type, uint8_t code, uint16_t messageId, Bytes token = {});

// AckOf and RstOf make the empty messages that answer `message`.
CoapMessage AckOf(const CoapMessage &message);
CoapMessage RstOf(const CoapMessage &message);

// ToBytes encodes a message.
// REQUIRES: a token of at most 8 bytes, option values below 65805 bytes.
Bytes ToBytes(const CoapMessage &message);

// Parse decodes one datagram.
//
// Returns "" and fills `message`, or says what is wrong with the datagram (`message` is then
// partly filled).  Strict: whatever RFC 7252 calls a message format error is one.
std::string Parse(const Bytes &datagram, CoapMessage *message);

// BytesOf makes bytes of a text; HexText renders bytes as "0a 1b".
Bytes BytesOf(std::string_view text);
std::string HexText(const Bytes &bytes);

// Readable forms for test failures: "2.05", and a message on one line.
std::string CodeText(uint8_t code);
std::ostream &operator<<(std::ostream &out, const CoapMessage &message);

}  // namespace coap_rpc_test

#endif /* COAP_MESSAGE_H */
