#include "coap_svc/rpc/init/coap_rpc_cli.h"

#include <iterator>

#include "coap_svc/rpc/client/coap_rpc_cli_data.h"
#include "coap_svc/rpc/client/coap_rpc_cli_disp.h"
#include "coap_svc/rpc/client/coap_rpc_cli_req.h"
#include "coap_svc/rpc/client/coap_rpc_cli_session.h"
#include "coap_svc/rpc/client/coap_rpc_cli_uri.h"
#include "coap_svc/rpc/coap_rpc_ext.h"
#include "coap_svc/rpc/common/coap_rpc_key.h"
#include "coap_svc/rpc/init/coap_rpc_advice.h"
#include "coap_svc/rpc/init/coap_rpc_main.h"
#include "coap_svc/rpc/init/coap_rpc_side.h"

using namespace coap_rpc;

const KST_ModEntry g_CoapRpcCliModVTbl[] = {
    {COAP_RpcCliVtblInit, COAP_RpcCliVtblUninit},        // URI-table operation slots
    {COAP_RpcCliSessionInit, COAP_RpcCliSessionUninit},  // sessionTree, aging list and timer
    {COAP_RpcCliReqInit, COAP_RpcCliReqUninit},          // reqTree, resend list and timer
    {COAP_RpcCliUriInit, COAP_RpcCliUriUninit},          // uriVtblTree
    {COAP_RpcCliDispInit, COAP_RpcCliDispUninit},        // display commands
};
static_assert(std::size(g_CoapRpcCliModVTbl) == COAP_RPC_CLI_MOD_ROWS);

namespace {

const SideModules<CoapRpcCliData> kClient{&CoapRpcCtx::cli, g_CoapRpcCliModVTbl,
                                          COAP_RPC_CLI_MOD_ROWS, kSiteCliInitNoMemory,
                                          kSiteCliInitModules};

constexpr uint32_t kMaxPort = 65535;

// CallSites are the failure sites of one entry point.
struct CallSites {
  const Site &nullArg;
  const Site &badAddr;
  const Site &badPort;
};

constexpr CallSites kNonReq{kSiteCliNonReqNullArg, kSiteCliNonReqBadAddr, kSiteCliNonReqBadPort};
constexpr CallSites kConReq{kSiteCliConReqNullArg, kSiteCliConReqBadAddr, kSiteCliConReqBadPort};
constexpr CallSites kObserveReq{kSiteCliObserveReqNullArg, kSiteCliObserveReqBadAddr,
                                kSiteCliObserveReqBadPort};
constexpr CallSites kVerifyReq{kSiteCliVerifyReqNullArg, kSiteCliVerifyReqBadAddr,
                               kSiteCliVerifyReqBadPort};
constexpr CallSites kBatchReq{kSiteCliBatchReqNullArg, kSiteCliBatchReqBadAddr,
                              kSiteCliBatchReqBadPort};

// Call is what the application handed to a request function.
struct Call {
  CoapRpcCtx *ctx;
  const CoapRpcUriKey *key;
  const CoapRpcCliReqParam *param;
  const CoapRpcCliAddr *addr;

  bool IsComplete() const { return ctx && ctx->cli && key && param && addr; }
};

uint32_t CheckCall(const Call &call, const CallSites &sites) {
  if (!call.IsComplete()) return Violated(sites.nullArg);
  if (!COAP_RpcCliCheckAddrValid(call.addr)) return Code(sites.badAddr);
  const uint32_t port = call.addr->dstPort;
  return port != 0 && port <= kMaxPort ? 0 : Code(sites.badPort);
}

uint32_t CallReq(const Call &call, const CallSites &sites) {
  if (const uint32_t ret = CheckCall(call, sites)) return ret;
  AdviseOnRequest(call.ctx, *call.key, *call.addr);
  return COAP_RpcCliReq(call.ctx, call.key, call.param, call.addr);
}

uint32_t CallObserveReq(const Call &call, const CallSites &sites, uint32_t mode) {
  if (const uint32_t ret = CheckCall(call, sites)) return ret;
  AdviseOnRelation(call.ctx, *call.key, *call.addr);
  // Fails for a relation that is new: its first request is a plain one, deliberately.
  COAP_RpcCliSetReqMode(call.ctx, call.key, call.param, call.addr, mode);
  return COAP_RpcCliReq(call.ctx, call.key, call.param, call.addr);
}

}  // namespace

uint32_t COAP_RpcCliInit(void *root) { return SideInit(static_cast<CoapRpcCtx *>(root), kClient); }

uint32_t COAP_RpcCliUninit(void *root) {
  return SideUninit(static_cast<CoapRpcCtx *>(root), kClient);
}

CoapRpcCliData *COAP_RpcCliDataCreate_(CoapRpcCtx *ctx) { return SideCreate<CoapRpcCliData>(ctx); }

void COAP_RpcCliDataDelete_(CoapRpcCtx *ctx) { SideDelete(ctx, &CoapRpcCtx::cli); }

uint32_t COAP_RpcCliCheckAddrValid(const CoapRpcCliAddr *addr) {
  const CoapRpcIpAddr &src = addr->srcIp;
  const CoapRpcIpAddr &dst = addr->dstIp;
  if (src.family != dst.family) return 0;
  if (src.family != COAP_RPC_IPV4 && src.family != COAP_RPC_IPV6) return 0;
  return COAP_RpcAddrCmp(&src, &dst) != 0;
}

uint32_t COAP_RpcCliRegVtbl(CoapRpcCtx *ctx, const CoapRpcUriKey *key,
                            const CoapRpcCliVtblReg *reg) {
  if (!ctx || !ctx->cli || !key || !reg) return Violated(kSiteCliRegVtblNullArg);
  AdviseOnCallable(ctx, *key);
  return COAP_RpcUriRegCliVtbl(ctx->cli, key, reg);
}

uint32_t COAP_RpcCliNonReq(CoapRpcCtx *ctx, const CoapRpcUriKey *key,
                           const CoapRpcCliReqParam *param, const CoapRpcCliAddr *addr) {
  return CallReq({ctx, key, param, addr}, kNonReq);
}

uint32_t COAP_RpcCliConReq(CoapRpcCtx *ctx, const CoapRpcUriKey *key,
                           const CoapRpcCliReqParam *param, const CoapRpcCliAddr *addr) {
  return CallReq({ctx, key, param, addr}, kConReq);
}

uint32_t COAP_RpcCliObserveReq(CoapRpcCtx *ctx, const CoapRpcUriKey *key,
                               const CoapRpcCliReqParam *param, const CoapRpcCliAddr *addr) {
  return CallObserveReq({ctx, key, param, addr}, kObserveReq, COAP_RPC_MODE_PLAIN);
}

uint32_t COAP_RpcCliObserveReqVerify(CoapRpcCtx *ctx, const CoapRpcUriKey *key,
                                     const CoapRpcCliReqParam *param, const CoapRpcCliAddr *addr) {
  return CallObserveReq({ctx, key, param, addr}, kVerifyReq, COAP_RPC_MODE_VERIFY);
}

uint32_t COAP_RpcCliObserveReqBatch(CoapRpcCtx *ctx, const CoapRpcUriKey *key,
                                    const CoapRpcCliReqParam *param, const CoapRpcCliAddr *addr) {
  return CallObserveReq({ctx, key, param, addr}, kBatchReq, COAP_RPC_MODE_BATCH);
}

uint32_t COAP_RpcCliObserveUnReq(CoapRpcCtx *ctx, const CoapRpcUriKey *key,
                                 const CoapRpcCliReqParam *param, const CoapRpcCliAddr *addr) {
  if (!Call{ctx, key, param, addr}.IsComplete()) return Assert(kSiteCliUnReqNullArg);
  return COAP_RpcCliUnReq(ctx, key, param, addr);
}

uint32_t COAP_RpcGetTokenlessRspNum(const CoapRpcCtx *ctx) {
  return ctx && ctx->cli ? ctx->cli->numTokenlessRsp : 0;
}

uint64_t COAP_RpcGetOldNotificationNum(const CoapRpcCtx *ctx) {
  return ctx && ctx->cli ? ctx->cli->numOldNotified : 0;
}
