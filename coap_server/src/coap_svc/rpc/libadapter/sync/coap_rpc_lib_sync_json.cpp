/* coap_rpc_lib_sync_json.cpp: pages for people. */
#include <jansson.h>

#include <cinttypes>
#include <utility>

#include "coap_svc/rpc/common/coap_rpc_limits.h"
#include "coap_svc/rpc/libadapter/sync/coap_rpc_lib_sync_page.h"

namespace coap_rpc {
namespace {

struct JsonDeleter {
  void operator()(json_t *json) const { json_decref(json); }
};
using Json = std::unique_ptr<json_t, JsonDeleter>;

json_t *Hex(uint64_t number) { return json_sprintf("%016" PRIx64, number); }

json_t *Number(uint64_t number) { return json_integer(static_cast<json_int_t>(number)); }

PoolPtr<char> NewText(const SyncPage &page, size_t size) {
  const uint64_t mem = CoapRpcSerRootOf(page.set->entry)->param.memHandle;
  return {static_cast<char *>(PoolAlloc(mem, size)), {mem}};
}

void WriteHex(const uint8_t *bytes, size_t len, char *text) {
  static constexpr char kDigits[] = "0123456789abcdef";
  for (size_t i = 0; i < len; ++i) {
    text[2 * i] = kDigits[bytes[i] >> 4];
    text[2 * i + 1] = kDigits[bytes[i] & 0x0F];
  }
}

json_t *LongHexOf(const SyncPage &page, const uint8_t *bytes, size_t len) {
  const PoolPtr<char> text = NewText(page, 2 * len);
  if (!text) return nullptr;
  WriteHex(bytes, len, text.get());
  return json_stringn(text.get(), 2 * len);
}

// HexOf returns bytes as a text of digits, null without memory.
json_t *HexOf(const SyncPage &page, const uint8_t *bytes, size_t len) {
  char text[kTupleTextSize];
  if (2 * len > sizeof(text)) return LongHexOf(page, bytes, len);
  WriteHex(bytes, len, text);
  return json_stringn(text, 2 * len);
}

// TextOf returns bytes as the application shows them, which need not be UTF-8, else as digits.
json_t *TextOf(const SyncPage &page, const uint8_t *bytes, size_t len, CoapRpcTupleToStr toStr) {
  if (!toStr) return HexOf(page, bytes, len);
  char buf[kTupleTextSize] = {};
  const char *text = toStr(bytes, buf, sizeof(buf));
  json_t *shown = text ? json_string(text) : nullptr;
  return shown ? shown : HexOf(page, bytes, len);
}

json_t *ValueOf(const SyncPage &page, const SyncChange &change) {
  const CoapRpcSerObVtblReg &ob = *page.set->entry->obVtbl;
  return change.val ? TextOf(page, change.val, ob.valLen, ob.valToStr) : json_null();
}

// Append returns whether the array has taken an item; null is one that found no memory.
bool Append(json_t *array, json_t *item) { return json_array_append_new(array, item) == 0; }

bool AppendHead(json_t *array, const SyncPage &page) {
  const SyncSet &set = *page.set;
  return Append(array, Number(kSyncPageFormat)) && Append(array, Number(page.flags)) &&
         Append(array, Hex(set.replid)) && Append(array, Number(page.from)) &&
         Append(array, Number(page.to)) && Append(array, Number(set.head)) &&
         Append(array, Number(set.floor)) && Append(array, Hex(set.digest));
}

bool AppendChanges(json_t *array, const SyncPage &page) {
  const CoapRpcSerObVtblReg &ob = *page.set->entry->obVtbl;
  uint64_t before = page.from;
  for (size_t i = 0; i < page.num; ++i) {
    const SyncChange &change = page.changes[i];
    const bool isTaken = Append(array, Number(change.version - before)) &&
                         Append(array, TextOf(page, change.key, ob.keyLen, ob.keyToStr)) &&
                         Append(array, ValueOf(page, change));
    if (!isTaken) return false;
    before = change.version;
  }
  return true;
}

// NewArray makes the page; empty without memory.
Json NewArray(const SyncPage &page) {
  Json array(json_array());
  const bool isMade = array && AppendHead(array.get(), page) && AppendChanges(array.get(), page);
  return isMade ? std::move(array) : Json();
}

}  // namespace

PoolPtr<char> WriteSyncJson(const SyncPage &page, size_t *len) {
  const Json array = NewArray(page);
  *len = array ? json_dumpb(array.get(), nullptr, 0, JSON_COMPACT) : 0;
  PoolPtr<char> text = *len != 0 ? NewText(page, *len) : PoolPtr<char>(nullptr, {0});
  if (text) json_dumpb(array.get(), text.get(), *len, JSON_COMPACT);
  return text;
}

}  // namespace coap_rpc
