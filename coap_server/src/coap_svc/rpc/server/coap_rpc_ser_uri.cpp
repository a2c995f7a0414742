#include "coap_svc/rpc/server/coap_rpc_ser_uri.h"

#include "coap_svc/rpc/common/coap_rpc_clock.h"
#include "coap_svc/rpc/common/coap_rpc_key.h"
#include "coap_svc/rpc/common/coap_rpc_list.h"
#include "coap_svc/rpc/common/coap_rpc_log_site.h"
#include "coap_svc/rpc/common/coap_rpc_own.h"
#include "coap_svc/rpc/common/coap_rpc_stopwatch.h"
#include "coap_svc/rpc/common/coap_rpc_table.h"
#include "coap_svc/rpc/server/coap_rpc_ser_conn.h"
#include "coap_svc/rpc/server/coap_rpc_ser_observe.h"
#include "coap_svc/rpc/server/coap_rpc_ser_res.h"
#include "coap_svc/rpc/server/sync/coap_rpc_ser_sync.h"

using namespace coap_rpc;

namespace {

using UriTable = COAP_RPC_TABLE(CoapRpcSerUriVtbl, key, CoapRpcUriKey, COAP_RpcUriKeyCmp);

UriTable TableOf(CoapRpcSerData *ser) { return UriTable(ser->uriVtblTree); }

void InitSets(CoapRpcSerUriVtbl &entry) {
  const OSAL_AVL3_CMP cmp = entry.obVtbl->tupleKeyCmp;
  entry.tupleSetTree = {};
  entry.tupleSetDesc = {cmp, offsetof(CoapRpcUriTuple, key), offsetof(CoapRpcUriTuple, node)};
  entry.tupleChgTree = {};
  entry.tupleChgDesc = {cmp, offsetof(CoapRpcTupleChg, key), offsetof(CoapRpcTupleChg, node)};
  LinkInit(entry.tupleChgList);
}

// DropObserveRecord frees the observe record and the tuples that it describes.  Pending changes are
// not freed: a payload that is being built may still hold one.
void DropObserveRecord(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry) {
  if (!entry->obVtbl) return;
  CoapRpcSerOrphanChgs(entry);
  SyncDrop(entry);
  COAP_RpcSerDelAllUriTuple(ctx, entry);
  PoolFree(ctx->param.memHandle, entry->obVtbl);
  entry->obVtbl = nullptr;
}

}  // namespace

uint32_t COAP_RpcSerVtblInit(void *ser) {
  auto *data = static_cast<CoapRpcSerData *>(ser);
  data->findUriVtbl = COAP_RpcSerFindUriVtbl;
  data->procTupleChg = COAP_RpcSerProcTupleChg;
  data->delTupleChgData = COAP_RpcSerDelTupleChgData;
  data->getFirstUriTuple = COAP_RpcSerGetFirstUriTuple;
  data->getNextUriTuple = COAP_RpcSerGetNextUriTuple;
  data->updateTuple = COAP_RpcSerUpdateTuple;
  return 0;
}

uint32_t COAP_RpcSerVtblUninit(void *) { return 0; }

uint32_t COAP_RpcSerUriInit(void *ser) {
  TableOf(static_cast<CoapRpcSerData *>(ser)).Init();
  return 0;
}

uint32_t COAP_RpcSerUriUninit(void *ser) {
  auto *data = static_cast<CoapRpcSerData *>(ser);
  if (!data || !data->owner) return 0;
  TableOf(data).Drain([=](CoapRpcSerUriVtbl *entry) { COAP_RpcSerDelUriVtbl(data, entry); });
  CoapRpcSerFreeOrphanChgs(data->owner);
  return 0;
}

uint32_t COAP_RpcUriRegSerVtbl(CoapRpcSerData *ser, const CoapRpcUriKey *key,
                               const CoapRpcSerVtblReg *reg, const CoapRpcSerObVtblReg *obReg) {
  CoapRpcCtx *ctx = ser->owner;
  if (COAP_RpcSerFindUriVtbl(ser, key)) {
    COAP_RPC_DEBUG(ctx,
                   "[CoapRpc]Dup uriVtbl ser reg, uri:%s, msgType:%u, observe:%u, pktType:%u.\n",
                   COAP_RPC_KEY_ARGS(*key));
    return 0;
  }
  if (!COAP_RpcSerAddUriVtbl(ser, key, reg, obReg)) {
    COAP_RPC_LOG(ctx->log, kLogUriRegSerVtblFailed,
                 "[CoapRpc]add ser uriVtbl reg Failed, uri:%s, msgType:%u, observe:%u, "
                 "pktType:%u.\n",
                 COAP_RPC_KEY_ARGS(*key));
    return Code(kSiteUriRegSerVtblFailed);
  }
  COAP_RPC_DEBUG(ctx,
                 "[CoapRpc]add ser Vtbl reg success, uri:%s, msgType:%u, observe:%u, "
                 "pktType:%u.\n",
                 COAP_RPC_KEY_ARGS(*key));
  return 0;
}

CoapRpcSerUriVtbl *COAP_RpcSerFindUriVtbl(CoapRpcSerData *ser, const CoapRpcUriKey *key) {
  return TableOf(ser).Find(key);
}

CoapRpcSerUriVtbl *COAP_RpcSerFindFirstUriVtbl(CoapRpcSerData *ser) { return TableOf(ser).First(); }

CoapRpcSerUriVtbl *COAP_RpcSerFindNextUriVtbl(CoapRpcSerData *ser, const CoapRpcUriKey *key) {
  return TableOf(ser).After(key);
}

CoapRpcSerUriVtbl *COAP_RpcSerAddUriVtbl(CoapRpcSerData *ser, const CoapRpcUriKey *key,
                                         const CoapRpcSerVtblReg *reg,
                                         const CoapRpcSerObVtblReg *obReg) {
  auto entry = NewZeroed<CoapRpcSerUriVtbl>(ser->owner->param.memHandle);
  if (!entry) return nullptr;
  entry->key = *key;
  entry->reg = *reg;
  entry->owner = ser;
  entry->etag = NowMs().value_or(0);
  LinkInit(entry->listenLink);
  LinkInit(entry->resLink);
  if (COAP_RpcSerAddUriObVtbl(ser->owner, entry.get(), obReg) != 0) return nullptr;
  if (!TableOf(ser).Insert(entry.get())) {
    DropObserveRecord(ser->owner, entry.get());
    return nullptr;
  }
  return entry.release();
}

uint32_t COAP_RpcSerAddUriObVtbl(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry,
                                 const CoapRpcSerObVtblReg *obReg) {
  if (!obReg) return 0;
  if (!obReg->tupleKeyCmp) return Code(kSiteAddUriObVtblNoCmp);
  auto copy = NewZeroed<CoapRpcSerObVtblReg>(ctx->param.memHandle);
  if (!copy) return Code(kSiteAddUriObVtblNoMemory);
  *copy = *obReg;
  DropObserveRecord(ctx, entry);
  entry->obVtbl = copy.release();
  InitSets(*entry);
  return 0;
}

void COAP_RpcSerDelUriVtbl(CoapRpcSerData *ser, CoapRpcSerUriVtbl *entry) {
  CoapRpcCtx *ctx = ser->owner;
  if (ctx->libExt) ctx->libExt->forgetEntry(ctx, entry);
  CallbackTime::Forget(ctx, entry->key.uri);
  DropObserveRecord(ctx, entry);
  COAP_RpcSerStopUriUpdateTimer(entry);
  COAP_RpcSerConnUnBindUriVtbl(nullptr, nullptr, entry);
  COAP_RpcSerResUnBindUriVtbl(nullptr, nullptr, entry);
  TableOf(ser).Remove(entry);
  PoolFree(ctx->param.memHandle, entry);
}
