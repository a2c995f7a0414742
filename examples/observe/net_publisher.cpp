#include "net_publisher.h"

#include <kst_tmr.h>

#include <cstdio>
#include <cstring>

namespace {

constexpr uint32_t kPeriodMs = 1000;

int32_t CompareNames(const void *a, const void *b) { return std::memcmp(a, b, sizeof(NetName)); }

const char *NameText(const void *name, char *buf, uint32_t size) {
  std::snprintf(buf, size, "%.16s", static_cast<const char *>(name));
  return buf;
}

void OnObserverNum(uint64_t, uint32_t num) { std::printf("observers: %u\n", num); }

uint32_t Give(const NetTable &table, NetTable::const_iterator it, void *key, void *val) {
  if (it == table.end()) return 1;
  std::memcpy(key, it->first.data(), sizeof(NetName));
  std::memcpy(val, &it->second, sizeof(NetCounters));
  return 0;
}

}  // namespace

NetPublisher::NetPublisher(Example &example, const char *uri, uint8_t payloadFormat,
                           CoapRpcBuildUpdate update, CoapRpcBuildDelete gone)
    : example_(example), key_(ExampleKey(uri, 1, COAP_RPC_DEFAULT)) {
  reg_.payloadFormat = payloadFormat;
  reg_.userData = reinterpret_cast<uint64_t>(this);
  obReg_.keyLen = sizeof(NetName);
  obReg_.valLen = sizeof(NetCounters);
  obReg_.tupleKeyCmp = CompareNames;
  obReg_.keyToStr = NameText;
  obReg_.onObserverNum = OnObserverNum;
  obReg_.buildUpdate = update;
  obReg_.buildDelete = gone;
  obReg_.getFirstTuple = First;
  obReg_.getNextTuple = Next;
}

bool NetPublisher::Serve(const char *address) {
  if (ExampleServe(example_.ctx, &key_, &reg_, &obReg_, address, EXAMPLE_PORT) != 0) return false;
  Publish();
  return KST_TmrStartLoop(KestrelTmr(example_.host), Tick, kPeriodMs, this) != 0;
}

uint32_t NetPublisher::Tick(void *self) {
  static_cast<NetPublisher *>(self)->Publish();
  return 0;
}

// The library merges what changes between two notifications and sends nothing while nobody
// observes, so there is no harm in telling it everything.
void NetPublisher::Publish() {
  NetTable now = ReadNetDev();
  for (const auto &[name, counters] : now) {
    const auto old = published_.find(name);
    if (old != published_.end() && old->second == counters) continue;
    COAP_RpcSerObserveDataUpdate(example_.ctx, &key_, name.data(), &counters);
  }
  for (const auto &[name, counters] : published_) {
    if (!now.count(name)) COAP_RpcSerObserveDataDel(example_.ctx, &key_, name.data());
  }
  published_ = std::move(now);
}

// First begins the walk with which an observer gets everything again.
uint32_t NetPublisher::First(uint64_t userData, void *, void *key, void *val) {
  NetPublisher &self = Of(userData);
  self.isFullSet_ = true;
  return Give(self.published_, self.published_.begin(), key, val);
}

uint32_t NetPublisher::Next(uint64_t userData, void *, const void *lastKey, void *key, void *val) {
  NetPublisher &self = Of(userData);
  NetName last;
  std::memcpy(last.data(), lastKey, sizeof(last));
  return Give(self.published_, self.published_.upper_bound(last), key, val);
}
