#include "demo_publisher.h"

#include <cstring>
#include <random>

namespace {

int32_t CompareKeys(const void *a, const void *b) { return std::memcmp(a, b, sizeof(RowKey)); }

const char *KeyText(const void *key, char *buf, uint32_t size) {
  std::snprintf(buf, size, "%s", static_cast<const char *>(key));
  return buf;
}

const char *ValueText(const void *val, char *buf, uint32_t size) {
  RowValue value;
  std::memcpy(&value, val, sizeof(value));  // not aligned
  std::snprintf(buf, size, "%llu %llu %llu %llu", static_cast<unsigned long long>(value[0]),
                static_cast<unsigned long long>(value[1]),
                static_cast<unsigned long long>(value[2]),
                static_cast<unsigned long long>(value[3]));
  return buf;
}

RowKey KeyAt(const void *bytes) {
  RowKey key;
  std::memcpy(key.data(), bytes, sizeof(key));
  return key;
}

}  // namespace

Publisher::Publisher(Node &node, const char *uri, uint8_t payloadFormat)
    : node_(node),
      key_(ExampleKey(uri, 1, COAP_RPC_DEFAULT)),
      payloadFormat_(payloadFormat),
      set_(std::random_device()()) {}

bool Publisher::Start() {
  CoapRpcSerVtblReg reg = {};
  reg.payloadFormat = payloadFormat_;
  reg.userData = reinterpret_cast<uint64_t>(this);
  CoapRpcSerObVtblReg obReg = {};
  obReg.keyLen = sizeof(RowKey);
  obReg.valLen = sizeof(RowValue);
  obReg.tupleKeyCmp = CompareKeys;
  obReg.keyToStr = KeyText;
  obReg.valToStr = ValueText;
  obReg.onObserverNum = OnObserverNum;
  obReg.buildUpdate = BuildUpdate;
  obReg.buildDelete = BuildDelete;
  obReg.getFirstTuple = First;
  obReg.getNextTuple = Next;
  return ExampleServe(node_.Ctx(), &key_, &reg, &obReg, node_.Self().c_str(), EXAMPLE_PORT) == 0;
}

void Publisher::Set(Table now) {
  for (const auto &[key, value] : now) {
    const auto old = table_.find(key);
    if (old != table_.end() && old->second == value) continue;
    COAP_RpcSerObserveDataUpdate(node_.Ctx(), &key_, key.data(), value.data());
  }
  for (const auto &[key, value] : table_) {
    if (!now.count(key)) COAP_RpcSerObserveDataDel(node_.Ctx(), &key_, key.data());
  }
  table_ = std::move(now);
}

uint32_t Publisher::Write(const Row &row, void *out) const {
  if (payloadFormat_ == COAP_RPC_JSON) {
    row.WriteJson(out);
  } else {
    auto *buf = static_cast<CoapRpcSerIdlMsgBuf *>(out);
    buf->len = row.WriteIdl(buf->buf);
  }
  return 0;
}

// A newcomer gets all that the library knows.
void Publisher::OnObserverNum(uint64_t userData, uint32_t num) {
  Publisher &self = Of(userData);
  if (num > self.numObservers_) ++self.set_;
  self.numObservers_ = num;
}

// A change that was queued when the last observer left may be of a row that was removed since.
uint32_t Publisher::BuildUpdate(uint64_t userData, uint8_t *key, uint8_t *val, void *out) {
  const Publisher &self = Of(userData);
  if (self.table_.count(KeyAt(key)) == 0) return BuildDelete(userData, key, out);
  Row row;
  row.set = self.set_;
  row.key = KeyAt(key);
  std::memcpy(&row.value, val, sizeof(row.value));
  return self.Write(row, out);
}

uint32_t Publisher::BuildDelete(uint64_t userData, uint8_t *key, void *out) {
  Row row;
  row.set = Of(userData).set_;
  row.key = KeyAt(key);
  row.isThere = false;
  return Of(userData).Write(row, out);
}

uint32_t Publisher::Give(Table::const_iterator it, void *key, void *val) const {
  if (it == table_.end()) return 1;
  std::memcpy(key, it->first.data(), sizeof(RowKey));
  std::memcpy(val, it->second.data(), sizeof(RowValue));
  return 0;
}

// First begins the walk with which an observer that is not up to date gets everything again.
uint32_t Publisher::First(uint64_t userData, void *, void *key, void *val) {
  Publisher &self = Of(userData);
  ++self.set_;
  return self.Give(self.table_.begin(), key, val);
}

uint32_t Publisher::Next(uint64_t userData, void *, const void *lastKey, void *key, void *val) {
  const Publisher &self = Of(userData);
  return self.Give(self.table_.upper_bound(KeyAt(lastKey)), key, val);
}
