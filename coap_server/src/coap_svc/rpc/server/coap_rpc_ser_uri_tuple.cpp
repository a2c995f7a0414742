#include "coap_svc/rpc/server/coap_rpc_ser_uri_tuple.h"

#include "coap_svc/rpc/common/coap_rpc_log_site.h"
#include "coap_svc/rpc/common/coap_rpc_own.h"
#include "coap_svc/rpc/common/coap_rpc_table.h"
#include "coap_svc/rpc/server/coap_rpc_ser_tuple_bytes.h"
#include "coap_svc/rpc/server/sync/coap_rpc_ser_sync.h"

using namespace coap_rpc;

namespace {

using TupleTable = Table<CoapRpcUriTuple, void, offsetof(CoapRpcUriTuple, node)>;

TupleTable TuplesOf(CoapRpcSerUriVtbl *entry) {
  return TupleTable(entry->tupleSetTree, entry->tupleSetDesc);
}

// HoldsTuples is false for a URI that publishes nothing, whose set has no order either.
bool HoldsTuples(const CoapRpcSerUriVtbl *entry) {
  return entry->obVtbl && entry->tupleSetDesc.cmp;
}

// AddPlain adds a tuple without a version.
CoapRpcUriTuple *AddPlain(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry, const void *tupleKey,
                          const void *tupleVal) {
  const CoapRpcSerObVtblReg &ob = *entry->obVtbl;
  auto tuple = NewZeroed<CoapRpcUriTuple>(ctx->param.memHandle, TupleBytes(ob));
  if (!tuple) return nullptr;
  CopyTupleKey(ob, tuple->key, tupleKey, kSiteAddUriTupleKeyCopy);
  CopyTupleVal(ob, tuple->key, tupleVal, kSiteAddUriTupleValCopy);
  if (!TuplesOf(entry).Insert(tuple.get())) return nullptr;
  ++entry->counts.stats.tuples;
  return tuple.release();
}

}  // namespace

uint32_t COAP_RpcSerProcUpdateTuple(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry,
                                    const CoapRpcUriKey *, const void *tupleKey,
                                    const void *tupleVal) {
  CoapRpcUriTuple *tuple = COAP_RpcSerFindUriTuple(entry, tupleKey);
  if (!tuple) {
    // A tuple that finds no memory is deliberately not reported, unless it was to have a version:
    // its change is still to be queued.
    const CoapRpcUriTuple *added = COAP_RpcSerAddUriTuple(ctx, entry, tupleKey, tupleVal);
    return added || !entry->sync ? 0 : Code(kSiteProcUpdateTupleFailed);
  }
  const uint32_t ret = COAP_RpcSerUpdateUriTuple(ctx, entry, tuple, tupleKey, tupleVal);
  return ret == 0 ? 0 : Code(kSiteProcUpdateTupleFailed);
}

void COAP_RpcSerProcDelTuple(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry, const CoapRpcUriKey *,
                             const void *tupleKey) {
  COAP_RpcSerDelUriTuple(ctx, entry, COAP_RpcSerFindUriTuple(entry, tupleKey));
}

CoapRpcUriTuple *COAP_RpcSerFindUriTuple(CoapRpcSerUriVtbl *entry, const void *tupleKey) {
  return HoldsTuples(entry) ? TuplesOf(entry).Find(tupleKey) : nullptr;
}

CoapRpcUriTuple *COAP_RpcSerGetFirstUriTuple(CoapRpcSerUriVtbl *entry) {
  return TuplesOf(entry).First();
}

CoapRpcUriTuple *COAP_RpcSerGetNextUriTuple(CoapRpcSerUriVtbl *entry,
                                            const CoapRpcUriTuple *tuple) {
  return TuplesOf(entry).Next(tuple);
}

CoapRpcUriTuple *COAP_RpcSerAddUriTuple(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry,
                                        const void *tupleKey, const void *tupleVal) {
  if (!HoldsTuples(entry)) return nullptr;
  CoapRpcUriTuple *tuple = entry->sync ? SyncSetAdd(entry->sync->set, tupleKey, tupleVal)
                                       : AddPlain(ctx, entry, tupleKey, tupleVal);
  if (!tuple) return nullptr;
  COAP_RPC_LOG(ctx->log, kLogAddUriTuple,
               "[CoapRpc]insert when add uri tuple, uri:%s, msgType:%u, observe:%u, pktType:%u.\n",
               COAP_RPC_KEY_ARGS(entry->key));
  return tuple;
}

uint32_t COAP_RpcSerUpdateUriTuple(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry,
                                   CoapRpcUriTuple *tuple, const void *, const void *tupleVal) {
  if (entry->sync) {
    SyncSetUpdate(entry->sync->set, tuple, tupleVal);
  } else {
    CopyTupleVal(*entry->obVtbl, tuple->key, tupleVal, kSiteUpdateUriTupleValCopy);
  }
  COAP_RPC_LOG(ctx->log, kLogUpdateUriTuple,
               "[CoapRpc]update when add uri tuple, uri:%s, msgType:%u, observe:%u, pktType:%u.\n",
               COAP_RPC_KEY_ARGS(entry->key));
  return 0;
}

void COAP_RpcSerDelUriTuple(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry, CoapRpcUriTuple *tuple) {
  if (!tuple) return;
  if (entry->sync) {
    SyncSetDelete(entry->sync->set, tuple);
    return;
  }
  TuplesOf(entry).Remove(tuple);
  --entry->counts.stats.tuples;
  PoolFree(ctx->param.memHandle, tuple);
}

void COAP_RpcSerDelAllUriTuple(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry) {
  TuplesOf(entry).Drain([&](CoapRpcUriTuple *tuple) { COAP_RpcSerDelUriTuple(ctx, entry, tuple); });
  entry->counts.stats.tuples = 0;
}

uint32_t COAP_RpcGetTupleSetCnt(CoapRpcSerUriVtbl *entry) {
  uint32_t numTuples = 0;
  for (CoapRpcUriTuple *tuple = COAP_RpcSerGetFirstUriTuple(entry); tuple;
       tuple = COAP_RpcSerGetNextUriTuple(entry, tuple)) {
    ++numTuples;
  }
  return numTuples;
}
