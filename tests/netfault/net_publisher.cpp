#include "net_publisher.h"

#include <cstdio>
#include <cstring>

namespace {

int32_t CompareNames(const void *a, const void *b) { return std::memcmp(a, b, sizeof(NetName)); }

const char *NameText(const void *name, char *buf, uint32_t size) {
  std::snprintf(buf, size, "%.16s", static_cast<const char *>(name));
  return buf;
}

NetName NameAt(const void *bytes) {
  NetName name;
  std::memcpy(name.data(), bytes, sizeof(name));
  return name;
}

uint32_t Give(const NetTable &table, NetTable::const_iterator it, void *key, void *val) {
  if (it == table.end()) return 1;
  std::memcpy(key, it->first.data(), sizeof(NetName));
  std::memcpy(val, &it->second, sizeof(NetCounters));
  return 0;
}

}  // namespace

NetPublisher::NetPublisher(const CoapRpcUriKey &key, uint8_t payloadFormat, uint32_t firstSet)
    : key_(key), payloadFormat_(payloadFormat), set_(firstSet) {}

bool NetPublisher::Register(CoapRpcCtx *ctx) {
  CoapRpcSerVtblReg reg = {};
  reg.payloadFormat = payloadFormat_;
  reg.userData = reinterpret_cast<uint64_t>(this);
  CoapRpcSerObVtblReg obReg = {};
  obReg.keyLen = sizeof(NetName);
  obReg.valLen = sizeof(NetCounters);
  obReg.tupleKeyCmp = CompareNames;
  obReg.keyToStr = NameText;
  obReg.onObserverNum = OnObserverNum;
  obReg.buildUpdate = BuildUpdate;
  obReg.buildDelete = BuildDelete;
  obReg.getFirstTuple = First;
  obReg.getNextTuple = Next;
  if (COAP_RpcSerRegVtbl(ctx, &key_, &reg, &obReg) != 0) return false;
  ctx_ = ctx;
  numObservers_ = 0;
  for (const auto &[name, counters] : table_) {
    COAP_RpcSerObserveDataUpdate(ctx_, &key_, name.data(), &counters);
  }
  return true;
}

// The library merges what changes between two notifications and sends nothing while nobody
// observes, so there is no harm in telling it everything.
void NetPublisher::Publish(const NetTable &now) {
  for (const auto &[name, counters] : now) {
    const auto old = table_.find(name);
    if (old == table_.end() || !(old->second == counters)) Set(name, counters);
  }
  for (const auto &[name, counters] : NetTable(table_)) {
    if (name != kNetSum && now.count(name) == 0) Erase(name);
  }
}

void NetPublisher::Set(const NetName &name, const NetCounters &counters) {
  const auto old = table_.find(name);
  if (old != table_.end()) sum_ ^= NetSumOf(name, old->second);
  sum_ ^= NetSumOf(name, counters);
  Put(name, counters);
  Put(kNetSum, {sum_, 0, 0, 0});
}

void NetPublisher::Erase(const NetName &name) {
  const auto old = table_.find(name);
  if (old == table_.end()) return;
  sum_ ^= NetSumOf(name, old->second);
  table_.erase(old);
  if (ctx_) COAP_RpcSerObserveDataDel(ctx_, &key_, name.data());
  Put(kNetSum, {sum_, 0, 0, 0});
}

void NetPublisher::Put(const NetName &name, const NetCounters &counters) {
  table_[name] = counters;
  if (ctx_) COAP_RpcSerObserveDataUpdate(ctx_, &key_, name.data(), &counters);
}

// A newcomer gets all that the library knows.
void NetPublisher::OnObserverNum(uint64_t userData, uint32_t num) {
  NetPublisher &self = Of(userData);
  if (num > self.numObservers_) ++self.set_;
  self.numObservers_ = num;
  self.OnObservers(num);
}

uint32_t NetPublisher::Write(const NetElement &element, void *out) const {
  if (payloadFormat_ == COAP_RPC_JSON) {
    element.WriteJson(out);
  } else {
    auto *buf = static_cast<CoapRpcSerIdlMsgBuf *>(out);
    buf->len = static_cast<uint32_t>(element.WriteIdl(buf->buf));
  }
  return 0;
}

// A change stays queued when the last observer leaves, and deletions are not queued until one
// comes: a tuple that is no longer in the table was removed, whatever the change says.
uint32_t NetPublisher::BuildUpdate(uint64_t userData, uint8_t *key, uint8_t *val, void *out) {
  const NetPublisher &self = Of(userData);
  if (self.table_.count(NameAt(key)) == 0) return BuildDelete(userData, key, out);
  NetElement element;
  element.isThere = true;
  element.set = self.set_;
  element.name = NameAt(key);
  std::memcpy(&element.counters, val, sizeof(element.counters));  // not aligned
  return self.Write(element, out);
}

uint32_t NetPublisher::BuildDelete(uint64_t userData, uint8_t *key, void *out) {
  NetElement element;
  element.set = Of(userData).set_;
  element.name = NameAt(key);
  return Of(userData).Write(element, out);
}

// First begins the walk with which an observer that is not up to date gets everything.
uint32_t NetPublisher::First(uint64_t userData, void *, void *key, void *val) {
  NetPublisher &self = Of(userData);
  ++self.set_;
  return Give(self.table_, self.table_.begin(), key, val);
}

uint32_t NetPublisher::Next(uint64_t userData, void *, const void *lastKey, void *key, void *val) {
  const NetPublisher &self = Of(userData);
  return Give(self.table_, self.table_.upper_bound(NameAt(lastKey)), key, val);
}
