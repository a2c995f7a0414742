#include "interop_table.h"

#include <coap_svc/rpc/coap_rpc_direct.h>
#include <jansson.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <sstream>

namespace {

constexpr size_t kLen = 4;  // of keys and of values
constexpr int kNumLarge = 300;
constexpr uint32_t kJsonFormat = 50;

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
  reg.onRequest = OnRequest;
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

// A GET without Observe reaches a table only when it is a direct entry.
int32_t InteropTable::OnRequest(uint64_t userData, const CoapRpcSerReqInfo *, uint8_t *, uint32_t,
                                uint8_t *out, uint32_t size) {
  json_t *data = json_array();
  for (const auto &[key, val] : Of(userData).rows_) {
    json_t *row = json_object();
    WriteJson(row, key, &val);
    json_array_append_new(data, row);
  }
  json_t *root = json_object();
  json_object_set_new(root, "data", data);
  COAP_RpcSerSetAnswer(Of(userData).ctx_, 205, kJsonFormat);
  const size_t len = json_dumpb(root, reinterpret_cast<char *>(out), size, JSON_COMPACT);
  json_decref(root);
  return len <= size ? static_cast<int32_t>(len) : -1;
}

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

// The tables are registered by address and stay where they are.
bool InteropTables::Serve(CoapRpcCtx *ctx, const std::vector<std::string> &peers) {
  for (const char *uri : {"obs", "obs-large", "obs-away"}) {
    tables_.emplace_back(ctx, uri, InteropFormat::kJson);
  }
  tables_.emplace_back(ctx, "obs-idl", InteropFormat::kIdl);
  for (const std::string &peer : peers) {
    tables_.emplace_back(ctx, ("gone/" + peer).c_str(), InteropFormat::kJson);
  }
  return Fill();
}

bool InteropTables::Fill() {
  for (InteropTable &table : tables_) {
    if (!table.Serve()) return false;
    const int num = table.Uri() == "obs-large" ? kNumLarge : 2;
    for (int i = 0; i < num; ++i) table.Set(std::to_string(1000 + i), "val0");
  }
  return true;
}

bool InteropTables::Obey(const std::string &order) {
  std::istringstream words(order);
  std::string verb, uri, key, val;
  words >> verb >> uri >> key >> val;
  const auto table = std::find_if(tables_.begin(), tables_.end(),
                                  [&](const InteropTable &each) { return each.Uri() == uri; });
  if (table == tables_.end()) return false;
  if (verb == "set") {
    table->Set(key, val);
  } else if (verb == "del") {
    table->Remove(key);
  } else {
    table->TakeAway();
  }
  return true;
}
