#include "coap_svc/rpc/server/sync/coap_rpc_ser_sync.h"
#include "coap_svc/rpc/coap_rpc_sync.h"
#include "coap_svc/rpc/common/coap_rpc_own.h"
#include "coap_svc/rpc/common/coap_rpc_sites.h"
#include "coap_svc/rpc/server/coap_rpc_ser_uri.h"
#include "coap_svc/rpc/server/sync/coap_rpc_ser_sync_disp.h"

using namespace coap_rpc;

namespace {

CoapRpcSerUriVtbl *Find(const CoapRpcCtx *ctx, const CoapRpcUriKey *key) {
  return ctx->ser->findUriVtbl(ctx->ser, key);
}

// FindSynced returns the entry of a key whose tuples have versions, or null.
CoapRpcSerUriVtbl *FindSynced(const CoapRpcCtx *ctx, const CoapRpcUriKey *key) {
  CoapRpcSerUriVtbl *entry = Find(ctx, key);
  return entry && entry->sync ? entry : nullptr;
}

// Meet stores a tuple of the application's.  False: no memory.
bool Meet(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry, const void *tupleKey, const void *tupleVal) {
  if (COAP_RpcSerObserveDataUpdate(ctx, &entry->key, tupleKey, tupleVal) != 0) return false;
  SyncSetMeet(entry->sync->set, COAP_RpcSerFindUriTuple(entry, tupleKey));
  return true;
}

// MeetAll stores all tuples that `next` hands out, using `tuple` for them.
uint32_t MeetAll(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry, CoapRpcSerSyncNext next,
                 uint64_t userData, uint8_t *tuple) {
  uint8_t *val = tuple + entry->obVtbl->keyLen;
  uint32_t ret = 0;
  while ((ret = next(userData, tuple, val)) == 0) {
    if (!Meet(ctx, entry, tuple, val)) return Code(kSiteSyncReplaceNoMemory);
  }
  return ret == COAP_RPC_SYNC_END ? 0 : Code(kSiteSyncReplaceNextFailed);
}

void DeleteUnmet(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry) {
  SyncSet &set = entry->sync->set;
  CoapRpcUriTuple *following = nullptr;
  for (CoapRpcUriTuple *tuple = SyncSetUnmet(set, nullptr); tuple; tuple = following) {
    following = SyncSetUnmet(set, tuple);
    COAP_RpcSerObserveDataDel(ctx, &entry->key, tuple->key);
  }
}

}  // namespace

uint32_t COAP_RpcSerSetUriSync(CoapRpcCtx *ctx, const CoapRpcUriKey *key,
                               const CoapRpcSerSyncParam *param) {
  if (!ctx || !ctx->ser || !key) return Violated(kSiteSetUriSyncNullArg);
  CoapRpcSerUriVtbl *entry = Find(ctx, key);
  if (!entry || !entry->obVtbl || key->observe == 0) return Code(kSiteSetUriSyncNoUri);
  const uint32_t ret = SetSync(entry, param ? *param : CoapRpcSerSyncParam{});
  if (ret == 0) RegisterSyncCommand(ctx);
  return ret;
}

uint32_t COAP_RpcSerSyncReplace(CoapRpcCtx *ctx, const CoapRpcUriKey *key, CoapRpcSerSyncNext next,
                                uint64_t userData) {
  if (!ctx || !ctx->ser || !key || !next) return Violated(kSiteSyncReplaceNullArg);
  CoapRpcSerUriVtbl *entry = FindSynced(ctx, key);
  if (!entry) return Code(kSiteSyncReplaceNoSync);
  const uint64_t mem = ctx->param.memHandle;
  const size_t len = size_t{entry->obVtbl->keyLen} + entry->obVtbl->valLen;
  const PoolPtr<uint8_t> tuple(static_cast<uint8_t *>(PoolAlloc(mem, len)), {mem});
  if (!tuple) return Code(kSiteSyncReplaceNoMemory);
  SyncSetBeginReplacement(entry->sync->set);
  const uint32_t ret = MeetAll(ctx, entry, next, userData, tuple.get());
  if (ret == 0) DeleteUnmet(ctx, entry);
  return ret;
}

uint32_t COAP_RpcSerGetSyncState(CoapRpcCtx *ctx, const CoapRpcUriKey *key,
                                 CoapRpcSerSyncState *state) {
  if (!ctx || !ctx->ser || !key || !state) return Violated(kSiteGetSyncStateNullArg);
  CoapRpcSerUriVtbl *entry = FindSynced(ctx, key);
  if (!entry) return Code(kSiteGetSyncStateNoSync);
  *state = SyncStateOf(entry);
  return 0;
}

uint32_t COAP_RpcSerVisitTuples(CoapRpcCtx *ctx, const CoapRpcUriKey *key, CoapRpcVisitTuple visit,
                                uint64_t userData) {
  if (!ctx || !ctx->ser || !key || !visit) return Violated(kSiteVisitTuplesNullArg);
  CoapRpcSerUriVtbl *entry = FindSynced(ctx, key);
  if (!entry) return Code(kSiteVisitTuplesNoSync);
  const CoapRpcUriTuple *tuple = COAP_RpcSerGetFirstUriTuple(entry);
  while (tuple && visit(userData, tuple->key, tuple->key + entry->obVtbl->keyLen) == 0) {
    tuple = COAP_RpcSerGetNextUriTuple(entry, tuple);
  }
  return 0;
}

uint32_t COAP_RpcSerVisitSyncPeers(CoapRpcCtx *ctx, const CoapRpcUriKey *key,
                                   CoapRpcVisitSyncPeer visit, uint64_t userData) {
  if (!ctx || !ctx->ser || !key || !visit) return Violated(kSiteVisitSyncPeersNullArg);
  CoapRpcSerUriVtbl *entry = FindSynced(ctx, key);
  if (!entry) return Code(kSiteVisitSyncPeersNoSync);
  SyncPeers &peers = entry->sync->peers;
  for (SyncPeer *peer = SyncPeerFirst(peers); peer; peer = SyncPeerNext(peers, peer)) {
    const CoapRpcSyncPeer state = SyncPeerState(*entry->sync, *peer);
    visit(userData, &state);
  }
  return 0;
}
