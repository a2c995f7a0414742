#include "coap_svc/rpc/server/sync/coap_rpc_ser_sync.h"

#include <sys/random.h>

#include "coap_svc/rpc/common/coap_rpc_own.h"
#include "coap_svc/rpc/server/coap_rpc_ser_tuple_bytes.h"

namespace coap_rpc {
namespace {

uint32_t Or(uint32_t value, uint32_t ifZero) { return value != 0 ? value : ifZero; }

CoapRpcSerSyncParam WithDefaults(CoapRpcSerSyncParam param) {
  param.pageBytes = Or(param.pageBytes, COAP_RPC_SYNC_MAX_PAGE);
  param.minTombstones = Or(param.minTombstones, COAP_RPC_SYNC_MIN_TOMBSTONES);
  param.leaseMs = Or(param.leaseMs, COAP_RPC_SYNC_LEASE_MS);
  return param;
}

bool IsPageSize(uint32_t bytes) {
  return bytes >= COAP_RPC_SYNC_MIN_PAGE && bytes <= COAP_RPC_SYNC_MAX_PAGE;
}

// NewReplid draws the name of a set's life; 0 without randomness.
uint64_t NewReplid() {
  uint64_t replid = 0;
  if (getrandom(&replid, sizeof(replid), 0) != static_cast<ssize_t>(sizeof(replid))) return 0;
  return replid != 0 ? replid : 1;
}

void Apply(CoapRpcSerSync &sync, const CoapRpcSerSyncParam &param) {
  sync.param = param;
  sync.set.minTombs = param.minTombstones;
}

uint32_t Begin(CoapRpcSerUriVtbl *entry, const CoapRpcSerSyncParam &param) {
  auto sync = NewZeroed<CoapRpcSerSync>(CoapRpcSerRootOf(entry)->param.memHandle);
  if (!sync) return Code(kSiteSetUriSyncNoMemory);
  sync->set.entry = entry;
  sync->set.replid = NewReplid();
  if (sync->set.replid == 0) return Code(kSiteSetUriSyncNoRandom);
  Apply(*sync, param);
  if (!SyncSetAdopt(sync->set)) return Code(kSiteSetUriSyncNoMemory);
  entry->sync = sync.release();
  return 0;
}

}  // namespace

uint32_t SetSync(CoapRpcSerUriVtbl *entry, const CoapRpcSerSyncParam &given) {
  const CoapRpcSerSyncParam param = WithDefaults(given);
  if (!IsPageSize(param.pageBytes)) return Code(kSiteSetUriSyncPageBytes);
  if (TupleBytes(*entry->obVtbl) > COAP_RPC_SYNC_MAX_TUPLE) return Code(kSiteSetUriSyncTooLong);
  if (!entry->sync) return Begin(entry, param);
  Apply(*entry->sync, param);
  return 0;
}

void SyncDrop(CoapRpcSerUriVtbl *entry) {
  if (!entry->sync) return;
  SyncSetClear(entry->sync->set);
  PoolFree(CoapRpcSerRootOf(entry)->param.memHandle, entry->sync);
  entry->sync = nullptr;
}

}  // namespace coap_rpc
