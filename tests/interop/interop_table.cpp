#include "interop_table.h"

#include <jansson.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace {

constexpr size_t kLen = 4;  // of keys and of values

std::string Fitted(std::string text) {
  text.resize(kLen, ' ');
  return text;
}

std::string TextAt(const void *bytes) { return {static_cast<const char *>(bytes), kLen}; }

int32_t CompareKeys(const void *a, const void *b) { return std::memcmp(a, b, kLen); }

void SetText(void *object, const char *name, const std::string &text) {
  json_object_set_new(static_cast<json_t *>(object), name, json_string(text.c_str()));
}

void WriteJson(void *out, const std::string &key, const std::string *val) {
  SetText(out, "op", val ? "u" : "d");
  SetText(out, "key", key);
  if (val) SetText(out, "val", *val);
}

void WriteIdl(void *out, const std::string &key, const std::string *val) {
  const std::string text = val ? "u:" + key + "=" + *val : "d:" + key;
  auto *message = static_cast<CoapRpcSerIdlMsgBuf *>(out);
  message->len =
      static_cast<uint32_t>(text.copy(reinterpret_cast<char *>(message->buf), message->size));
}

}  // namespace

InteropTable::InteropTable(CoapRpcCtx *ctx, const char *uri, InteropFormat format)
    : ctx_(ctx), uri_(uri), format_(format), key_(ExampleKey(uri, 1, COAP_RPC_DEFAULT)) {}

InteropTable &InteropTable::Of(uint64_t userData) {
  return *reinterpret_cast<InteropTable *>(userData);
}

bool InteropTable::Serve() {
  const bool isJson = format_ == InteropFormat::kJson;
  CoapRpcSerVtblReg reg = {};
  reg.payloadFormat = isJson ? COAP_RPC_JSON : COAP_RPC_BYTE;
  reg.userData = reinterpret_cast<uint64_t>(this);
  CoapRpcSerObVtblReg ob = {};
  ob.keyLen = ob.valLen = kLen;
  ob.tupleKeyCmp = CompareKeys;
  ob.onObserverNum = OnObserverNum;
  ob.buildUpdate = BuildUpdate;
  ob.buildDelete = BuildDelete;
  ob.getFirstTuple = First;
  ob.getNextTuple = Next;
  return ExampleServe(ctx_, &key_, &reg, &ob, EXAMPLE_SERVER, EXAMPLE_PORT) == 0;
}

void InteropTable::Set(const std::string &key, const std::string &val) {
  const std::string fittedKey = Fitted(key), fittedVal = Fitted(val);
  rows_[fittedKey] = fittedVal;
  COAP_RpcSerObserveDataUpdate(ctx_, &key_, fittedKey.data(), fittedVal.data());
}

void InteropTable::Remove(const std::string &key) {
  rows_.erase(Fitted(key));
  COAP_RpcSerObserveDataDel(ctx_, &key_, Fitted(key).data());
}

void InteropTable::TakeAway() { COAP_RpcSerUnsetUri(ctx_, &key_); }

void InteropTable::OnObserverNum(uint64_t userData, uint32_t num) {
  std::printf("observers %s %u\n", Of(userData).uri_.c_str(), num);
}

// A change that was queued when the last observer left may be of a row that was removed since.
uint32_t InteropTable::BuildUpdate(uint64_t userData, uint8_t *key, uint8_t *val, void *out) {
  const InteropTable &self = Of(userData);
  if (self.rows_.count(TextAt(key)) == 0) return BuildDelete(userData, key, out);
  const std::string text = TextAt(val);
  self.Write(out, TextAt(key), &text);
  return 0;
}

uint32_t InteropTable::BuildDelete(uint64_t userData, uint8_t *key, void *out) {
  Of(userData).Write(out, TextAt(key), nullptr);
  return 0;
}

void InteropTable::Write(void *out, const std::string &key, const std::string *val) const {
  format_ == InteropFormat::kJson ? WriteJson(out, key, val) : WriteIdl(out, key, val);
}

uint32_t InteropTable::Copy(std::map<std::string, std::string>::const_iterator at, void *key,
                            void *val) const {
  if (at == rows_.end()) return 1;
  at->first.copy(static_cast<char *>(key), kLen);
  at->second.copy(static_cast<char *>(val), kLen);
  return 0;
}

uint32_t InteropTable::First(uint64_t userData, void *, void *key, void *val) {
  const InteropTable &self = Of(userData);
  return self.Copy(self.rows_.begin(), key, val);
}

uint32_t InteropTable::Next(uint64_t userData, void *, const void *lastKey, void *key, void *val) {
  const InteropTable &self = Of(userData);
  return self.Copy(self.rows_.upper_bound(TextAt(lastKey)), key, val);
}
