/* synced_entry.h: an observable entry whose tuples have versions. */
#ifndef SYNCED_ENTRY_H
#define SYNCED_ENTRY_H

#include "coap_svc/rpc/server/sync/coap_rpc_ser_sync.h"
#include "observed_entry.h"

namespace coap_rpc_test {

// SyncedTuple is a change as a walk hands it out.
struct SyncedTuple {
  uint64_t version;
  std::string key;
  std::string val;  // "-" when deleted

  bool operator==(const SyncedTuple &) const = default;
};

inline std::ostream &operator<<(std::ostream &out, const SyncedTuple &tuple) {
  return out << tuple.version << ":" << tuple.key << "=" << tuple.val;
}

class SyncedEntry : public ObservedEntry {
 public:
  explicit SyncedEntry(uint32_t minTombs = 0) { param.minTombstones = minTombs; }
  ~SyncedEntry() { coap_rpc::SyncDrop(&entry); }

  uint32_t SetSync() { return coap_rpc::SetSync(&entry, param); }
  coap_rpc::SyncSet &Set() { return entry.sync->set; }

  uint32_t Put(const std::string &key, const std::string &val) {
    return COAP_RpcSerProcUpdateTuple(&ctx, &entry, nullptr, key.c_str(), val.c_str());
  }
  void Delete(const std::string &key) {
    COAP_RpcSerProcDelTuple(&ctx, &entry, nullptr, key.c_str());
  }

  // Walk lists up to `maxNum` changes after a version.
  std::vector<SyncedTuple> Walk(uint64_t since = 0, size_t maxNum = SIZE_MAX) {
    std::vector<SyncedTuple> tuples;
    coap_rpc::SyncWalk walk(Set(), since);
    coap_rpc::SyncChange change;
    while (tuples.size() < maxNum && walk.Next(change)) {
      tuples.push_back({change.version, std::string(change.key, change.key + ob.keyLen),
                        change.val ? std::string(change.val, change.val + ob.valLen) : "-"});
    }
    return tuples;
  }

  CoapRpcSerSyncParam param = {};
};

}  // namespace coap_rpc_test

#endif /* SYNCED_ENTRY_H */
