#include <iterator>

#include "coap_svc/rpc/coap_rpc_ext.h"
#include "coap_svc/rpc/coap_rpc_ser.h"
#include "coap_svc/rpc/common/coap_rpc_log_site.h"
#include "coap_svc/rpc/init/coap_rpc_advice.h"
#include "coap_svc/rpc/init/coap_rpc_main.h"
#include "coap_svc/rpc/init/coap_rpc_side.h"
#include "coap_svc/rpc/server/coap_rpc_ser_attach.h"
#include "coap_svc/rpc/server/coap_rpc_ser_conn.h"
#include "coap_svc/rpc/server/coap_rpc_ser_data.h"
#include "coap_svc/rpc/server/coap_rpc_ser_disp.h"
#include "coap_svc/rpc/server/coap_rpc_ser_observe.h"
#include "coap_svc/rpc/server/coap_rpc_ser_res.h"
#include "coap_svc/rpc/server/coap_rpc_ser_uri.h"
#include "csvc_dbg.h"

using namespace coap_rpc;

const KST_ModEntry g_CoapRpcSerModVTbl[] = {
    {COAP_RpcSerVtblInit, COAP_RpcSerVtblUninit},          // operation slots
    {COAP_RpcSerResourceInit, COAP_RpcSerResourceUninit},  // uriResTree
    {COAP_RpcSerConnInit, COAP_RpcSerConnUninit},          // listenTree, endpoints
    {COAP_RpcSerUriInit, COAP_RpcSerUriUninit},            // uriVtblTree, tuples, changes
    {COAP_RpcSerDispInit, COAP_RpcSerDispUninit},          // display commands
};
static_assert(std::size(g_CoapRpcSerModVTbl) == COAP_RPC_SER_MOD_ROWS);

namespace {

const SideModules<CoapRpcSerData> kServer{&CoapRpcCtx::ser, g_CoapRpcSerModVTbl,
                                          COAP_RPC_SER_MOD_ROWS, kSiteSerInitNoMemory,
                                          kSiteSerInitModules};

bool IsKnownFamily(const CoapRpcIpAddr &addr) {
  return addr.family == COAP_RPC_IPV4 || addr.family == COAP_RPC_IPV6;
}

bool IsZeroIpv4(const CoapRpcIpAddr &addr) {
  return addr.family == COAP_RPC_IPV4 && addr.addr.ipv4 == 0;
}

void LogSetListenFailed(const CoapRpcCtx *ctx, const CoapRpcUriKey &key,
                        const CoapRpcSerListenAddr &addr, uint32_t ret) {
  static constexpr char kText[] =
      "[CoapRpc]set listen Failed, addr:0x%x, port:%u, uri:%s, observe:%u, msgTyp:%u, "
      "pktType:%u, ret:%u.\n";
  const uint32_t addrWord = addr.listenAddr.addr.ipv4;
  const UriText uri(key.uri);
  COAP_RPC_LOG(ctx->log, kLogSerSetUriFailed, kText, addrWord, addr.port, uri.c_str(), key.observe,
               key.msgType, key.pktType, ret);
  if (ctx->param.dbgHandle == 0) return;
  CSVC_DBG_Debug(ctx->param.dbgHandle, kDebugChannelLevel, kText, addrWord, addr.port, uri.c_str(),
                 key.observe, key.msgType, key.pktType, ret);
}

// FindObservable returns the entry of a key that publishes tuples, or null.
CoapRpcSerUriVtbl *FindObservable(CoapRpcCtx *ctx, const CoapRpcUriKey *key) {
  CoapRpcSerUriVtbl *entry = ctx->ser->findUriVtbl(ctx->ser, key);
  return entry && entry->obVtbl ? entry : nullptr;
}

}  // namespace

uint32_t COAP_RpcSerInit(void *root) { return SideInit(static_cast<CoapRpcCtx *>(root), kServer); }

uint32_t COAP_RpcSerUninit(void *root) {
  return SideUninit(static_cast<CoapRpcCtx *>(root), kServer);
}

CoapRpcSerData *COAP_RpcSerDataCreate_(CoapRpcCtx *ctx) { return SideCreate<CoapRpcSerData>(ctx); }

void COAP_RpcSerDataDelete_(CoapRpcCtx *ctx) { SideDelete(ctx, &CoapRpcCtx::ser); }

uint32_t COAP_RpcSerSetUri(CoapRpcCtx *ctx, const CoapRpcUriKey *key,
                           const CoapRpcSerListenAddr *addr) {
  if (!ctx || !key || !addr) return Violated(kSiteSerSetUriNullArg);
  if (!IsKnownFamily(addr->listenAddr)) return Code(kSiteSerSetUriBadFamily);
  if (IsZeroIpv4(addr->listenAddr)) return Code(kSiteSerSetUriZeroIpv4);

  AdviseOnAttached(ctx, *key, *addr);
  CoapRpcSerListen *listen = COAP_RpcSerConnFindListen(ctx->ser, addr);
  const uint32_t ret =
      listen ? COAP_RpcSerUpdateListen(ctx, listen, key) : COAP_RpcSerCreatListen(ctx, key, addr);
  if (ret != 0) LogSetListenFailed(ctx, *key, *addr, ret);
  return ret;
}

uint32_t COAP_RpcSerUnsetUri(CoapRpcCtx *ctx, const CoapRpcUriKey *key) {
  if (!ctx || !key) return Violated(kSiteSerUnsetUriNullArg);
  return COAP_RpcSerTryDelListen(ctx, key);
}

uint32_t COAP_RpcSerReopen(CoapRpcCtx *ctx, const CoapRpcSerListenAddr *addr) {
  if (!ctx || !ctx->ser || !addr) return Violated(kSiteSerReopenNullArg);
  CoapRpcSerListen *listen = COAP_RpcSerConnFindListen(ctx->ser, addr);
  if (!listen) return Code(kSiteSerReopenNoListen);
  if (!listen->endPoint && ctx->libExt) listen->endPoint = ctx->libExt->openEndPoint(ctx, addr);
  return listen->endPoint ? 0 : Code(kSiteSerReopenUnavailable);
}

uint32_t COAP_RpcSerObserveDataUpdate(CoapRpcCtx *ctx, const CoapRpcUriKey *key,
                                      const void *tupleKey, const void *tupleVal) {
  if (!ctx || !key || !tupleKey) return Violated(kSiteObserveDataUpdateNullArg);
  CoapRpcSerUriVtbl *entry = FindObservable(ctx, key);
  if (!entry) return Code(kSiteObserveDataUpdateNoUri);
  if (COAP_RpcSerProcUpdateTuple(ctx, entry, key, tupleKey, tupleVal) != 0) {
    return Code(kSiteObserveDataUpdateFailed);
  }
  ctx->ser->refreshTaskTimer(ctx);
  // The set holds the new value whether or not the change could be queued.
  ctx->ser->procTupleChg(ctx, entry, key, tupleKey, tupleVal, COAP_RPC_CHG_UPDATE);
  COAP_RPC_DEBUG(ctx,
                 "[CoapRpc]add uri tuple success, uri:%s, msgType:%u, observe:%u, pktType:%u.\n",
                 COAP_RPC_KEY_ARGS(*key));
  return 0;
}

void COAP_RpcSerObserveDataDel(CoapRpcCtx *ctx, const CoapRpcUriKey *key, const void *tupleKey) {
  if (!ctx || !key || !tupleKey) {
    Assert(kSiteObserveDataDelNullArg);
    return;
  }
  CoapRpcSerUriVtbl *entry = FindObservable(ctx, key);
  if (!entry) return;
  COAP_RpcSerProcDelTuple(ctx, entry, key, tupleKey);
  ctx->ser->procTupleChg(ctx, entry, key, tupleKey, nullptr, COAP_RPC_CHG_DELETE);
}

uint32_t COAP_RpcSerRegVtbl(CoapRpcCtx *ctx, const CoapRpcUriKey *key, const CoapRpcSerVtblReg *reg,
                            const CoapRpcSerObVtblReg *obReg) {
  if (!ctx || !key || !reg) return Violated(kSiteSerRegVtblNullArg);
  AdviseOnServed(ctx, *key, *reg, obReg);
  return COAP_RpcUriRegSerVtbl(ctx->ser, key, reg, obReg);
}
