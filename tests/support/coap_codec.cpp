/* coap_codec.cpp: CoAP messages to bytes and back. */
#include <algorithm>
#include <iterator>

#include "coap_message.h"

namespace coap_rpc_test {
namespace {

constexpr uint8_t kVersion = 1;
constexpr uint8_t kPayloadMarker = 0xFF;
constexpr size_t kHeaderLen = 4;
constexpr size_t kMaxTokenLen = 8;
constexpr uint32_t kOneByteMore = 13;   // nibble: the number minus 13 follows in one byte
constexpr uint32_t kTwoBytesMore = 14;  // nibble: the number minus 269 follows in two bytes
constexpr uint32_t kTwoBytesFrom = 269;

void Append(const Bytes &bytes, Bytes *out) {
  std::copy(bytes.begin(), bytes.end(), std::back_inserter(*out));
}

void PutHeader(const CoapMessage &message, Bytes *out) {
  const auto type = static_cast<uint8_t>(message.type);
  const auto tokenLen = static_cast<uint8_t>(message.token.size() & 0x0F);
  out->push_back(static_cast<uint8_t>(kVersion << 6 | type << 4 | tokenLen));
  out->push_back(message.code);
  out->push_back(static_cast<uint8_t>(message.messageId >> 8));
  out->push_back(static_cast<uint8_t>(message.messageId));
}

uint8_t Nibble(size_t number) {
  if (number < kOneByteMore) return static_cast<uint8_t>(number);
  return number < kTwoBytesFrom ? kOneByteMore : kTwoBytesMore;
}

void PutExtended(size_t number, Bytes *out) {
  if (number < kOneByteMore) return;
  if (number < kTwoBytesFrom) {
    out->push_back(static_cast<uint8_t>(number - kOneByteMore));
    return;
  }
  out->push_back(static_cast<uint8_t>((number - kTwoBytesFrom) >> 8));
  out->push_back(static_cast<uint8_t>(number - kTwoBytesFrom));
}

void PutOption(const CoapOption &option, uint16_t previous, Bytes *out) {
  const size_t delta = static_cast<size_t>(option.number - previous);
  out->push_back(static_cast<uint8_t>(Nibble(delta) << 4 | Nibble(option.value.size())));
  PutExtended(delta, out);
  PutExtended(option.value.size(), out);
  Append(option.value, out);
}

void PutOptions(std::vector<CoapOption> options, Bytes *out) {
  std::stable_sort(options.begin(), options.end(),
                   [](const CoapOption &a, const CoapOption &b) { return a.number < b.number; });
  uint16_t previous = 0;
  for (const CoapOption &option : options) {
    PutOption(option, previous, out);
    previous = option.number;
  }
}

// Reader walks through a datagram.  Its functions return "" or what is wrong.
class Reader {
 public:
  Reader(const Bytes &datagram, CoapMessage *message) : bytes_(datagram), message_(message) {}

  std::string Header();
  std::string Token();
  std::string Options();
  std::string Payload();

 private:
  size_t Left() const { return bytes_.size() - at_; }
  uint8_t TakeByte() { return bytes_[at_++]; }
  uint16_t TakeTwo();
  Bytes Take(size_t len);
  std::string Option();
  std::string Extend(uint32_t nibble, const char *what, uint32_t *number);

  const Bytes &bytes_;
  CoapMessage *message_;
  size_t at_ = 0;
  uint32_t optionNumber_ = 0;
};

uint16_t Reader::TakeTwo() {
  const uint8_t high = TakeByte();
  return static_cast<uint16_t>(high << 8 | TakeByte());
}

Bytes Reader::Take(size_t len) {
  const auto begin = bytes_.begin() + static_cast<ptrdiff_t>(at_);
  at_ += len;
  return {begin, begin + static_cast<ptrdiff_t>(len)};
}

std::string Reader::Header() {
  if (Left() < kHeaderLen) return "shorter than the header";
  const uint8_t first = TakeByte();
  if (first >> 6 != kVersion) return "version is not 1";
  message_->type = static_cast<CoapType>(first >> 4 & 3);
  message_->code = TakeByte();
  message_->messageId = TakeTwo();
  return message_->code == kCodeEmpty && (Left() > 0 || (first & 0x0F) != 0)
             ? "empty message with more than a header"
             : "";
}

std::string Reader::Token() {
  const size_t len = bytes_[0] & 0x0F;
  if (len > kMaxTokenLen) return "token length is reserved";
  if (len > Left()) return "token is cut off";
  message_->token = Take(len);
  return "";
}

std::string Reader::Options() {
  std::string error;
  while (error.empty() && Left() > 0 && bytes_[at_] != kPayloadMarker) error = Option();
  return error;
}

std::string Reader::Option() {
  const uint8_t nibbles = TakeByte();
  uint32_t delta = 0;
  uint32_t len = 0;
  std::string error = Extend(nibbles >> 4, "option delta", &delta);
  if (error.empty()) error = Extend(nibbles & 0x0F, "option length", &len);
  if (!error.empty()) return error;
  if (len > Left()) return "option value is cut off";
  optionNumber_ += delta;
  if (optionNumber_ > UINT16_MAX) return "option number is above 65535";
  message_->options.push_back({static_cast<uint16_t>(optionNumber_), Take(len)});
  return "";
}

std::string Reader::Extend(uint32_t nibble, const char *what, uint32_t *number) {
  *number = nibble;
  if (nibble < kOneByteMore) return "";
  if (nibble > kTwoBytesMore) return std::string(what) + " is reserved";
  const size_t len = nibble == kOneByteMore ? 1 : 2;
  if (len > Left()) return std::string(what) + " is cut off";
  *number = len == 1 ? kOneByteMore + TakeByte() : kTwoBytesFrom + TakeTwo();
  return "";
}

std::string Reader::Payload() {
  if (Left() == 0) return "";
  TakeByte();  // the marker: nothing else ends the options
  if (Left() == 0) return "payload marker without payload";
  message_->payload = Take(Left());
  return "";
}

}  // namespace

Bytes ToBytes(const CoapMessage &message) {
  Bytes out;
  PutHeader(message, &out);
  Append(message.token, &out);
  PutOptions(message.options, &out);
  Append(message.rawOptions, &out);
  if (message.payload.empty()) return out;
  out.push_back(kPayloadMarker);
  Append(message.payload, &out);
  return out;
}

std::string Parse(const Bytes &datagram, CoapMessage *message) {
  *message = CoapMessage();
  Reader reader(datagram, message);
  std::string error = reader.Header();
  if (error.empty()) error = reader.Token();
  if (error.empty()) error = reader.Options();
  if (error.empty()) error = reader.Payload();
  return error;
}

}  // namespace coap_rpc_test
