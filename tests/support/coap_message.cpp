/* coap_message.cpp: CoAP messages as values: building, looking at and printing them. */
#include "coap_message.h"

#include <cstdio>

namespace coap_rpc_test {
namespace {

Bytes UintBytes(uint32_t value) {
  Bytes bytes;
  for (int shift = 24; shift >= 0; shift -= 8) {
    const auto byte = static_cast<uint8_t>(value >> shift);
    if (byte != 0 || !bytes.empty()) bytes.push_back(byte);
  }
  return bytes;
}

uint32_t UintOf(const Bytes &bytes) {
  uint32_t value = 0;
  for (const uint8_t byte : bytes) value = value << 8 | byte;
  return value;
}

bool IsPrintable(const Bytes &bytes) {
  for (const uint8_t byte : bytes) {
    if (byte < 0x20 || byte > 0x7E) return false;
  }
  return !bytes.empty();
}

std::string ValueText(const Bytes &bytes) {
  const bool isText = IsPrintable(bytes);
  std::string text(1, isText ? '"' : '[');
  text += isText ? std::string(bytes.begin(), bytes.end()) : HexText(bytes);
  return text += isText ? '"' : ']';
}

const char *TypeText(CoapType type) {
  static const char *const kNames[] = {"CON", "NON", "ACK", "RST"};
  return kNames[static_cast<size_t>(type) & 3];
}

CoapMessage EmptyAnswer(CoapType type, uint16_t messageId) {
  return Request(type, kCodeEmpty, messageId);
}

}  // namespace

CoapMessage &CoapMessage::Token(Bytes value) {
  token = std::move(value);
  return *this;
}

CoapMessage &CoapMessage::Add(uint16_t number, Bytes value) {
  options.push_back({number, std::move(value)});
  return *this;
}

CoapMessage &CoapMessage::AddText(uint16_t number, std::string_view text) {
  return Add(number, BytesOf(text));
}

CoapMessage &CoapMessage::AddUint(uint16_t number, uint32_t value) {
  return Add(number, UintBytes(value));
}

CoapMessage &CoapMessage::AddPath(std::string_view path) {
  for (size_t slash = path.find('/'); slash != std::string_view::npos; slash = path.find('/')) {
    AddText(kOptUriPath, path.substr(0, slash));
    path.remove_prefix(slash + 1);
  }
  return AddText(kOptUriPath, path);
}

CoapMessage &CoapMessage::AddBlock(uint16_t number, const CoapBlock &block) {
  return AddUint(number, block.num << 4 | (block.more ? 8u : 0u) | block.szx);
}

CoapMessage &CoapMessage::Payload(Bytes value) {
  payload = std::move(value);
  return *this;
}

CoapMessage &CoapMessage::PayloadText(std::string_view text) { return Payload(BytesOf(text)); }

std::vector<Bytes> CoapMessage::Values(uint16_t number) const {
  std::vector<Bytes> values;
  for (const CoapOption &option : options) {
    if (option.number == number) values.push_back(option.value);
  }
  return values;
}

bool CoapMessage::Has(uint16_t number) const { return !Values(number).empty(); }

std::optional<uint32_t> CoapMessage::Uint(uint16_t number) const {
  const std::vector<Bytes> values = Values(number);
  if (values.empty() || values.front().size() > 4) return std::nullopt;
  return UintOf(values.front());
}

std::optional<CoapBlock> CoapMessage::Block(uint16_t number) const {
  const std::optional<uint32_t> value = Uint(number);
  if (!value || *value > 0xFFFFFF) return std::nullopt;
  return CoapBlock{*value >> 4, (*value & 8) != 0, static_cast<uint8_t>(*value & 7)};
}

std::string CoapMessage::Path() const {
  std::string path;
  const char *separator = "";
  for (const Bytes &value : Values(kOptUriPath)) {
    path.append(separator).append(value.begin(), value.end());
    separator = "/";
  }
  return path;
}

std::string CoapMessage::Text() const { return {payload.begin(), payload.end()}; }

CoapMessage Request(CoapType type, uint8_t code, uint16_t messageId, Bytes token) {
  CoapMessage message;
  message.type = type;
  message.code = code;
  message.messageId = messageId;
  message.token = std::move(token);
  return message;
}

CoapMessage AckOf(const CoapMessage &message) {
  return EmptyAnswer(CoapType::kAck, message.messageId);
}

CoapMessage RstOf(const CoapMessage &message) {
  return EmptyAnswer(CoapType::kRst, message.messageId);
}

Bytes BytesOf(std::string_view text) { return {text.begin(), text.end()}; }

std::string HexText(const Bytes &bytes) {
  std::string text;
  for (const uint8_t byte : bytes) {
    char digits[4];
    std::snprintf(digits, sizeof digits, "%02x ", byte);
    text += digits;
  }
  if (!text.empty()) text.pop_back();
  return text;
}

std::string CodeText(uint8_t code) {
  char text[8];
  std::snprintf(text, sizeof text, "%u.%02u", unsigned{code} >> 5u, code & 0x1Fu);
  return text;
}

std::ostream &operator<<(std::ostream &out, const CoapMessage &message) {
  out << TypeText(message.type) << " " << CodeText(message.code) << " id " << message.messageId
      << " token [" << HexText(message.token) << "]";
  for (const CoapOption &option : message.options) {
    out << " " << option.number << "=" << ValueText(option.value);
  }
  if (!message.rawOptions.empty()) out << " raw [" << HexText(message.rawOptions) << "]";
  if (!message.payload.empty()) out << " payload " << ValueText(message.payload);
  return out;
}

}  // namespace coap_rpc_test
