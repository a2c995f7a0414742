/* state_page.h: pages of changes as a reader without a CoAP or CBOR library takes them apart. */
#ifndef BENCH_WIRE_STATE_PAGE_H
#define BENCH_WIRE_STATE_PAGE_H

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "state.h"

namespace coap_rpc_bench {

// Page is its head, and what it has of versions greater than the reader's: rows, and how many of
// them are of the latest round.
struct Page {
  bool isPage = false;
  uint64_t flags = 0, replid = 0, from = 0, to = 0, head = 0;
  uint32_t numRows = 0;
  uint64_t roundNs = 0;
  uint32_t numOfRound = 0;
};

// PageReader reads items of CBOR; what is none ends the reading.
class PageReader {
 public:
  PageReader(const uint8_t *bytes, size_t len, uint64_t after)
      : at_(bytes), end_(bytes + len), after_(after) {}

  Page Read() {
    Page page;
    const uint64_t numItems = Item();
    page.isPage = numItems >= 8 && Item() == 1;
    if (!page.isPage) return page;
    for (uint64_t *field : {&page.flags, &page.replid, &page.from, &page.to, &page.head}) {
      *field = Item();
    }
    Item();  // floor
    Item();  // digest
    version_ = page.from;
    for (uint64_t i = 8; i + 2 < numItems && at_ < end_; i += 3) ReadRow(page);
    return page;
  }

 private:
  static constexpr uint8_t kNull = 0xF6, kBytes = 2;

  // Item reads a number, or the head of a string or an array.
  uint64_t Item() {
    if (at_ >= end_) return 0;
    const uint8_t info = *at_++ & 31;
    if (info < 24) return info;
    uint64_t number = 0;
    for (int num = 1 << (info - 24); num > 0 && at_ < end_; --num) number = number << 8 | *at_++;
    return number;
  }
  const uint8_t *String() {
    const bool isString = at_ < end_ && *at_ >> 5 == kBytes;
    const uint64_t len = isString ? Item() : 1;
    const uint8_t *string = at_;
    at_ += std::min<uint64_t>(len, static_cast<uint64_t>(end_ - at_));
    return isString && len == kRowField ? string : nullptr;
  }
  void ReadRow(Page &page) {
    version_ += Item();
    String();
    const uint8_t *val = String();
    if (version_ <= after_) return;
    ++page.numRows;
    if (!val) return;
    const uint64_t roundNs = RoundOf(val);
    if (roundNs > page.roundNs) page.numOfRound = 0;
    if (roundNs > page.roundNs) page.roundNs = roundNs;
    if (roundNs == page.roundNs) ++page.numOfRound;
  }

  const uint8_t *at_;
  const uint8_t *end_;
  uint64_t after_;
  uint64_t version_ = 0;
};

// PayloadOf finds the payload of a message; its length is 0 when there is none.
inline const uint8_t *PayloadOf(const uint8_t *message, size_t len, size_t *payloadLen) {
  size_t at = 4 + (message[0] & 15u);
  while (at < len && message[at] != 0xFF) {
    const unsigned first = message[at++];
    for (const unsigned nibble : {first >> 4, first & 15}) {
      if (nibble == 13) at += 1;
      if (nibble == 14) at += 2;
    }
    const unsigned length = first & 15;
    const size_t ext = length == 13 ? message[at - 1] + 13u
                       : length == 14
                           ? static_cast<size_t>(message[at - 2] << 8 | message[at - 1]) + 269
                           : length;
    at += ext;
  }
  *payloadLen = at < len ? len - at - 1 : 0;
  return message + at + 1;
}

}  // namespace coap_rpc_bench

#endif /* BENCH_WIRE_STATE_PAGE_H */
