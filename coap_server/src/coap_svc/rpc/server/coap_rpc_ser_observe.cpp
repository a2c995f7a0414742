#include "coap_svc/rpc/server/coap_rpc_ser_observe.h"

#include "coap_svc/rpc/common/coap_rpc_limits.h"
#include "coap_svc/rpc/common/coap_rpc_log_site.h"
#include "coap_svc/rpc/common/coap_rpc_own.h"
#include "coap_svc/rpc/server/coap_rpc_ser_chg_index.h"
#include "coap_svc/rpc/server/coap_rpc_ser_flight.h"
#include "coap_svc/rpc/server/coap_rpc_ser_tuple_bytes.h"
#include "coap_svc/rpc/server/coap_rpc_ser_uri_tuple.h"
#include "kst_tmr.h"

using namespace coap_rpc;

namespace {

using OrphanChgs = COAP_RPC_LIST(CoapRpcTupleChg, chgLink);

CoapRpcSerUriVtbl *CallFindUriVtbl(CoapRpcCtx *ctx, const CoapRpcUriKey *key) {
  CoapRpcSerData *ser = ctx->ser;
  return ser && ser->findUriVtbl ? ser->findUriVtbl(ser, key) : nullptr;
}

void CallNotifyObservers(CoapRpcSerUriVtbl *entry) {
  CoapRpcSerData *ser = entry->owner;
  if (ser && ser->notifyObservers) ser->notifyObservers(ser->owner, entry);
}

bool IsObserved(const CoapRpcSerUriVtbl *entry) { return entry->obVtbl && entry->observerNum != 0; }

// FreeChgsInFlight leaves the flights, which have nothing to lose then.
void FreeChgsInFlight(CoapRpcSerUriVtbl *entry) {
  EntryFlights(entry->flights.list).ForEach([](ChgFlight *flight) { FreeChgs(*flight); });
}

// QueueChg merges a change into the pending one of its key, or appends it.
uint32_t QueueChg(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry, const void *tupleKey,
                  const void *tupleVal, uint8_t chgType) {
  if (COAP_RpcSerMergeTupleData(entry, tupleKey, tupleVal, chgType) != 0) return 0;
  if (COAP_RpcSerAddTupleChgData(ctx, entry, tupleKey, tupleVal, chgType) != 0) {
    return Code(kSiteProcTupleChgNoMemory);
  }
  COAP_RPC_LOG(ctx->log, kLogProcTupleChgQueued, "COAP_RpcSerProcTupleChg success\n");
  return 0;
}

}  // namespace

uint32_t COAP_RpcSerUpdateTuple(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry, const void *tupleKey,
                                const void *tupleVal) {
  if (!ctx || !entry || !tupleKey) return Violated(kSiteUpdateTupleNullArg);
  if (COAP_RpcSerProcUpdateTuple(ctx, entry, &entry->key, tupleKey, tupleVal) != 0) {
    return Code(kSiteUpdateTupleFailed);
  }
  return COAP_RpcSerProcTupleChg(ctx, entry, &entry->key, tupleKey, tupleVal, COAP_RPC_CHG_UPDATE);
}

uint32_t COAP_RpcSerProcTupleChg(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry,
                                 const CoapRpcUriKey *key, const void *tupleKey,
                                 const void *tupleVal, uint32_t chgType) {
  if (!IsObserved(entry)) {
    COAP_RPC_LOG(ctx->log, kLogProcTupleChgNoObserver, "COAP_RpcSerProcTupleChg observer 0\n");
    return 0;
  }
  const uint32_t ret = QueueChg(ctx, entry, tupleKey, tupleVal, static_cast<uint8_t>(chgType));
  return ret != 0 ? ret : COAP_RpcSerStartUriUpdateTimer(ctx, key);
}

uint32_t COAP_RpcSerAddTupleChgData(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry, const void *tupleKey,
                                    const void *tupleVal, uint8_t chgType) {
  const uint64_t mem = ctx->param.memHandle;
  auto chg = NewZeroed<CoapRpcTupleChg>(mem, TupleBytes(*entry->obVtbl));
  if (!chg) return Code(kSiteAddTupleChgNoMemory);
  COAP_RpcSerFillTupleData(entry, chg.get(), tupleKey, tupleVal, chgType);
  AppendPendingChg(mem, entry, chg.release());
  return 0;
}

uint32_t COAP_RpcSerMergeTupleData(CoapRpcSerUriVtbl *entry, const void *tupleKey,
                                   const void *tupleVal, uint8_t chgType) {
  CoapRpcTupleChg *chg = FindPendingChg(entry, tupleKey);
  if (!chg) return 0;
  CopyTupleVal(*entry->obVtbl, chg->key, tupleVal, kSiteMergeTupleChgValCopy);
  chg->chgType = chgType;
  return 1;
}

void COAP_RpcSerFillTupleData(CoapRpcSerUriVtbl *entry, CoapRpcTupleChg *chg, const void *tupleKey,
                              const void *tupleVal, uint8_t chgType) {
  CopyTupleKey(*entry->obVtbl, chg->key, tupleKey, kSiteAddTupleChgKeyCopy);
  CopyTupleVal(*entry->obVtbl, chg->key, tupleVal, kSiteAddTupleChgValCopy);
  chg->chgType = chgType;
}

void COAP_RpcSerDelTupleChgData(CoapRpcCtx *ctx, CoapRpcTupleChg *chg) {
  if (!chg) return;
  RemovePendingChg(chg);
  PoolFree(ctx->param.memHandle, chg);
}

uint32_t COAP_RpcSerStartUriUpdateTimer(CoapRpcCtx *ctx, const CoapRpcUriKey *key) {
  CoapRpcSerUriVtbl *entry = CallFindUriVtbl(ctx, key);
  if (!entry) return Code(kSiteStartUpdateTimerNoUri);
  if (entry->updateTimer != 0) return 0;
  entry->updateTimer =
      KST_TmrStartLoop(ctx->param.tmrHandle, COAP_RpcSerUriUpdateHandle, kUpdatePeriodMs, entry);
  return entry->updateTimer != 0 ? 0 : Code(kSiteStartUpdateTimerFailed);
}

void COAP_RpcSerStopUriUpdateTimer(CoapRpcSerUriVtbl *entry) {
  if (entry->updateTimer == 0) return;
  KST_TmrStop(CoapRpcSerRootOf(entry)->param.tmrHandle, entry->updateTimer);
  entry->updateTimer = 0;
}

uint32_t COAP_RpcSerUriUpdateHandle(void *uriVtbl) {
  auto *entry = static_cast<CoapRpcSerUriVtbl *>(uriVtbl);
  if (PendingChgs(entry->tupleChgList).IsEmpty() || entry->isSendingLargeBlock != 0) return 0;
  CallNotifyObservers(entry);
  return 0;
}

void CoapRpcSerOrphanChgs(CoapRpcSerUriVtbl *entry) {
  FreeChgsInFlight(entry);
  PendingChgs chgs(entry->tupleChgList);
  if (chgs.IsEmpty() && !entry->chgIndex) return;
  CoapRpcCtx *ctx = CoapRpcSerRootOf(entry);
  DropChgIndex(ctx->param.memHandle, entry);
  OrphanChgs orphans(ctx->orphanChgList);
  chgs.Drain([&](CoapRpcTupleChg *chg) { orphans.Append(chg); });
}

void CoapRpcSerFreeOrphanChgs(CoapRpcCtx *ctx) {
  OrphanChgs(ctx->orphanChgList).Drain([&](CoapRpcTupleChg *chg) {
    COAP_RpcSerDelTupleChgData(ctx, chg);
  });
}
