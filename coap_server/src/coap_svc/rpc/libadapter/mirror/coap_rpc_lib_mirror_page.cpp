#include "coap_svc/rpc/libadapter/mirror/coap_rpc_lib_mirror_page.h"

#include <cbor/callbacks.h>
#include <cbor/streaming.h>

#include "coap_svc/rpc/common/coap_rpc_sites.h"

namespace coap_rpc {
namespace {

constexpr uint64_t kHeadItems = 8;
constexpr uint64_t kItemsPerChange = 3;

enum class ItemType { kOther, kNumber, kBytes, kArray, kNull };

struct Item {
  ItemType type;
  uint64_t number;  // or how many items or bytes there are
  const uint8_t *bytes;
};

void Set(void *item, ItemType type, uint64_t number, const uint8_t *bytes = nullptr) {
  *static_cast<Item *>(item) = {type, number, bytes};
}

void OnUint8(void *item, uint8_t number) { Set(item, ItemType::kNumber, number); }
void OnUint16(void *item, uint16_t number) { Set(item, ItemType::kNumber, number); }
void OnUint32(void *item, uint32_t number) { Set(item, ItemType::kNumber, number); }
void OnUint64(void *item, uint64_t number) { Set(item, ItemType::kNumber, number); }
void OnBytes(void *item, cbor_data bytes, uint64_t len) { Set(item, ItemType::kBytes, len, bytes); }
void OnArray(void *item, uint64_t num) { Set(item, ItemType::kArray, num); }
void OnNull(void *item) { Set(item, ItemType::kNull, 0); }

// Callbacks are for what a page may have; whatever else there is stays kOther.
cbor_callbacks Callbacks() {
  cbor_callbacks callbacks = cbor_empty_callbacks;
  callbacks.uint8 = OnUint8;
  callbacks.uint16 = OnUint16;
  callbacks.uint32 = OnUint32;
  callbacks.uint64 = OnUint64;
  callbacks.byte_string = OnBytes;
  callbacks.array_start = OnArray;
  callbacks.null = OnNull;
  return callbacks;
}

// CborIn reads items one after the other; after the first that is not there, none is.
class CborIn {
 public:
  CborIn(const uint8_t *bytes, size_t len) : at_(bytes), left_(len) {}

  bool IsAtEnd() const { return left_ == 0; }

  Item Next() {
    static const cbor_callbacks kCallbacks = Callbacks();
    Item item = {};
    const cbor_decoder_result result = cbor_stream_decode(at_, left_, &kCallbacks, &item);
    if (result.status != CBOR_DECODER_FINISHED) return {};
    at_ += result.read;
    left_ -= result.read;
    return item;
  }

  bool Number(uint64_t *out) { return Take(ItemType::kNumber, out); }
  bool Array(uint64_t *out) { return Take(ItemType::kArray, out); }

 private:
  bool Take(ItemType type, uint64_t *out) {
    const Item item = Next();
    *out = item.number;
    return item.type == type;
  }

  const uint8_t *at_;
  size_t left_;
};

bool ReadHead(CborIn &in, MirrorPage &page) {
  uint64_t *const fields[] = {&page.flags, &page.replid, &page.from,  &page.to,
                              &page.head,  &page.floor,  &page.digest};
  for (uint64_t *field : fields) {
    if (!in.Number(field)) return false;
  }
  return page.replid != 0 && page.from <= page.to && page.to <= page.head &&
         page.floor <= page.head;
}

bool IsKey(const Item &item) { return item.type == ItemType::kBytes; }

bool IsValue(const Item &item) {
  return item.type == ItemType::kBytes || item.type == ItemType::kNull;
}

bool HasLengths(const Item &key, const Item &val, const CoapRpcMirrorParam &param) {
  return key.number == param.keyLen && (val.type == ItemType::kNull || val.number == param.valLen);
}

// ReadChange reads a change, whose version is above `before` and not above the page's end.
uint32_t ReadChange(CborIn &in, const CoapRpcMirrorParam &param, const MirrorPage &page,
                    uint64_t before, MirrorChange &change) {
  uint64_t delta = 0;
  const bool isNumber = in.Number(&delta);
  const Item key = in.Next();
  const Item val = in.Next();
  if (!isNumber || !IsKey(key) || !IsValue(val)) return Code(kSiteMirrorBadPage);
  if (delta == 0 || delta > page.to - before) return Code(kSiteMirrorBadPage);
  if (!HasLengths(key, val, param)) return Code(kSiteMirrorOtherLength);
  change = {before + delta, key.bytes, val.type == ItemType::kNull ? nullptr : val.bytes};
  return 0;
}

uint32_t ReadChanges(CborIn &in, const CoapRpcMirrorParam &param, MirrorPage &page) {
  uint64_t before = page.from;
  for (size_t i = 0; i < page.num; ++i) {
    const uint32_t ret = ReadChange(in, param, page, before, page.changes[i]);
    if (ret != 0) return ret;
    before = page.changes[i].version;
  }
  return in.IsAtEnd() ? 0 : Code(kSiteMirrorBadPage);
}

bool IsPageLength(uint64_t numItems) {
  return numItems >= kHeadItems && (numItems - kHeadItems) % kItemsPerChange == 0 &&
         (numItems - kHeadItems) / kItemsPerChange <= kSyncMaxChanges;
}

}  // namespace

uint32_t ReadMirrorPage(const uint8_t *payload, size_t len, const CoapRpcMirrorParam &param,
                        MirrorPage &page) {
  CborIn in(payload, len);
  uint64_t numItems = 0;
  uint64_t format = 0;
  if (!in.Array(&numItems) || !in.Number(&format) || format != kSyncPageFormat) {
    return Code(kSiteMirrorNoPage);
  }
  if (!IsPageLength(numItems) || !ReadHead(in, page)) return Code(kSiteMirrorBadPage);
  page.num = static_cast<size_t>((numItems - kHeadItems) / kItemsPerChange);
  return ReadChanges(in, param, page);
}

}  // namespace coap_rpc
