#include "coap_svc/rpc/init/coap_rpc_main.h"

#include <iterator>

#include "coap_svc/rpc/client/coap_rpc_cli_data.h"
#include "coap_svc/rpc/common/coap_rpc_log_site.h"
#include "coap_svc/rpc/common/coap_rpc_own.h"
#include "coap_svc/rpc/libadapter/call/coap_rpc_lib_call_send.h"
#include "coap_svc/rpc/libadapter/call/coap_rpc_lib_call_session.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_ctx.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_ext.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_io.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_parts.h"
#include "coap_svc/rpc/libadapter/publish/coap_rpc_lib_observe.h"
#include "coap_svc/rpc/server/coap_rpc_ser_data.h"
#include "kst_disp.h"

using namespace coap_rpc;

const KST_ModEntry g_CoapRpcModVTbl[] = {
    {COAP_RpcDispInit, COAP_RpcDispUninit},  // display object
    {COAP_RpcLibInit, COAP_RpcLibUninit},    // adapter context, libcoap, I/O timer
    {COAP_RpcSerInit, COAP_RpcSerUninit},    // server tables
    {COAP_RpcCliInit, COAP_RpcCliUninit},    // client tables
    {COAP_RpcLibRegInit, nullptr},           // pointers only, in what the two rows above own
    {COAP_RpcLogInit, COAP_RpcLogUninit},    // URIs under diagnosis
};
static_assert(std::size(g_CoapRpcModVTbl) == COAP_RPC_MOD_ROWS);

const KST_ModEntry g_CoapRpcLibModVTbl[] = {
    {COAP_RpcLibVtblInit, COAP_RpcLibVtblUninit},  // callbacks, process-wide log root
    {COAP_RpcCtxInit, COAP_RpcCtxUninit},          // libcoap context, I/O timer
};
static_assert(std::size(g_CoapRpcLibModVTbl) == COAP_RPC_LIB_MOD_ROWS);

namespace {

void TakeDown(CoapRpcCtx *ctx) {
  COAP_RPC_DEBUG(ctx, "[CoapRpc]rpc(%#x)\n", ContextTag(reinterpret_cast<uintptr_t>(ctx)));
  KST_ModsUninit(g_CoapRpcModVTbl, ctx, COAP_RPC_MOD_ROWS);
  COAP_RpcDataDelete_(ctx);
}

void WireClient(CoapRpcCliData &cli) {
  cli.createCliSession = COAP_RpcCreateCliSession;
  cli.deleteCliSession = COAP_RpcDeleteCliSession;
  cli.sendRequest = COAP_RpcCliSendRequest;
  cli.cancelRequest = COAP_RpcCliCancelRequest;
  cli.refreshTaskTimer = COAP_RpcRefreshTaskTimer;
  cli.setSvcFlag = COAP_RpcSetSvcFlag;
}

void WireServer(CoapRpcSerData &ser) {
  ser.createEndPoint = COAP_RpcCreateEndPoint;
  ser.deleteEndPoint = COAP_RpcDeleteEndPoint;
  ser.createOrUpdateResource = COAP_RpcCreateOrUpdateResource;
  ser.deleteResource = COAP_RpcDeleteResource;
  ser.notifyObservers = COAP_RpcSerNotifyObservers;
  ser.refreshTaskTimer = COAP_RpcRefreshTaskTimer;
}

}  // namespace

CoapRpcCtx *COAP_RpcInit(const CoapRpcInitParam *param) {
  if (!param || !param->name) {
    Assert(kSiteInitNullParam);
    return nullptr;
  }
  CoapRpcCtx *ctx = COAP_RpcDataNew_(param);
  if (!ctx) return nullptr;

  COAP_RPC_DEBUG(ctx, "[CoapRpc]\n");
  const uint32_t ret = KST_ModsInit(g_CoapRpcModVTbl, ctx, COAP_RPC_MOD_ROWS);
  if (ret == 0) return ctx;

  COAP_RPC_LOG_AS(ctx->log, ctx->nameStr, kLogInitFailed, "[CoapRpc]ret(%u), ng\n", ret);
  TakeDown(ctx);
  return nullptr;
}

void COAP_RpcUninit(CoapRpcCtx *ctx) {
  if (!ctx) return;
  CoapRpcPartsLeave(ctx);
  TakeDown(ctx);
}

CoapRpcCtx *COAP_RpcDataNew_(const CoapRpcInitParam *param) {
  auto ctx = NewZeroed<CoapRpcCtx>(param->memHandle);
  if (!ctx) return nullptr;
  ctx->param = *param;
  ctx->log = param->logEnable != 0 ? param->logHandle : 0;
  ctx->nameStr = KST_StrNew(param->memHandle, "%s", param->name);
  if (!ctx->nameStr) return nullptr;
  ctx->param.name = ctx->nameStr;
  return ctx.release();
}

void COAP_RpcDataDelete_(CoapRpcCtx *ctx) {
  if (!ctx) return;
  const uint64_t mem = ctx->param.memHandle;
  if (ctx->nameStr) KST_StrDel(mem, ctx->nameStr);
  ctx->nameStr = nullptr;
  PoolFree(mem, ctx);
}

uint32_t COAP_RpcDispInit(void *root) {
  auto *ctx = static_cast<CoapRpcCtx *>(root);
  KST_DispRegObj(ctx->param.dispHandle, ctx->nameStr, ctx);
  return 0;
}

uint32_t COAP_RpcDispUninit(void *root) {
  auto *ctx = static_cast<CoapRpcCtx *>(root);
  return ctx && ctx->nameStr ? KST_DispUnregObj(ctx->param.dispHandle, ctx->nameStr) : 0;
}

uint32_t COAP_RpcLibInit(void *root) {
  auto *ctx = static_cast<CoapRpcCtx *>(root);
  ctx->lib = COAP_RpclibDataCreate_(ctx);
  if (!ctx->lib) return Code(kSiteLibInitNoMemory);
  const uint32_t ret = KST_ModsInit(g_CoapRpcLibModVTbl, ctx, COAP_RPC_LIB_MOD_ROWS);
  return ret == 0 ? 0 : Code(kSiteLibInitModules);
}

uint32_t COAP_RpcLibUninit(void *root) {
  auto *ctx = static_cast<CoapRpcCtx *>(root);
  KST_ModsUninit(g_CoapRpcLibModVTbl, ctx, COAP_RPC_LIB_MOD_ROWS);
  COAP_RpclibDataDelete_(ctx);
  return 0;
}

CoapRpcLibCtx *COAP_RpclibDataCreate_(CoapRpcCtx *ctx) {
  return ctx ? NewZeroed<CoapRpcLibCtx>(ctx->param.memHandle).release() : nullptr;
}

void COAP_RpclibDataDelete_(CoapRpcCtx *ctx) {
  if (!ctx) return;
  PoolFree(ctx->param.memHandle, ctx->lib);
  ctx->lib = nullptr;
}

// A side is missing when its row failed and the host runs the rows after it all the same.
uint32_t COAP_RpcLibRegInit(void *root) {
  auto *ctx = static_cast<CoapRpcCtx *>(root);
  if (ctx->cli) WireClient(*ctx->cli);
  if (ctx->ser) WireServer(*ctx->ser);
  ctx->libExt = &g_coapRpcLibExtOps;
  return 0;
}
