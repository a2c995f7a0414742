#include "coap_svc/rpc/libadapter/coap_rpc_lib_ctx.h"

#include "coap_svc/rpc/common/coap_rpc_limits.h"
#include "coap_svc/rpc/common/coap_rpc_log_site.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_handler.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_handler_cli.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_handler_observe.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_log.h"
#include "kst_tmr.h"

namespace {

using namespace coap_rpc;

// libcoap's clean-up resets state that all instances of the process share: the last one does it.
uint32_t g_numStarted = 0;

void StartLibCoap(const CoapRpcLibCtx *lib) {
  coap_startup();
  coap_set_log_level(static_cast<coap_log_t>(lib->logLevel));
  coap_set_log_handler(lib->logHandler);
  // libcoap prints dumps of messages to the standard output otherwise.
  coap_set_show_pdu_output(0);
}

void RegisterHandlers(CoapRpcCtx *ctx, const CoapRpcLibCtx *lib) {
  coap_context_set_block_mode(lib->coapCtx, lib->blockMode);
  coap_register_event_handler(lib->coapCtx, lib->eventHandler);
  coap_register_nack_handler(lib->coapCtx, lib->nackHandler);
  coap_register_response_handler(lib->coapCtx, lib->responseHandler);
  coap_persist_track_funcs(lib->coapCtx, lib->observeAdded, lib->observeDeleted, nullptr, nullptr,
                           nullptr, 0, ctx);
}

void StopTimer(CoapRpcCtx *ctx, CoapRpcLibCtx *lib) {
  if (lib->taskTmr == 0) return;
  KST_TmrStop(ctx->param.tmrHandle, lib->taskTmr);
  lib->taskTmr = 0;
}

}  // namespace

uint32_t COAP_RpcLibVtblInit(void *root) {
  auto *ctx = static_cast<CoapRpcCtx *>(root);
  CoapRpcLibCtx *lib = ctx->lib;
  lib->logLevel = kLibLogLevel;
  lib->blockMode = kBlockMode;
  lib->logHandler = CORP_RpcLibCoapLog;
  lib->eventHandler = COAP_RpcEventHandler;
  lib->nackHandler = COAP_RpcNackhandler;
  lib->resUserData = ctx;
  lib->getHandler = COAP_RpcSerGetHandler;
  lib->postHandler = COAP_RpcSerPostHandler;
  lib->observeAdded = COAP_RpcSerAddObserve;
  lib->observeDeleted = COAP_RpcSerDelObserve;
  lib->cbUserData = ctx;
  lib->responseHandler = COAP_RpcCliResponseHandler;
  CoapRpcLibSetLogRoot(ctx);
  return 0;
}

uint32_t COAP_RpcLibVtblUninit(void *) {
  CoapRpcLibSetLogRoot(nullptr);
  return 0;
}

uint32_t COAP_RpcCtxInit(void *root) {
  auto *ctx = static_cast<CoapRpcCtx *>(root);
  return COAP_RpcLibStartup_(ctx, ctx->lib);
}

uint32_t COAP_RpcCtxUninit(void *root) {
  auto *ctx = static_cast<CoapRpcCtx *>(root);
  if (ctx) COAP_RpcLibCleanup_(ctx, ctx->lib);
  return 0;
}

uint32_t COAP_RpcLibStartup_(CoapRpcCtx *ctx, CoapRpcLibCtx *lib) {
  StartLibCoap(lib);
  lib->coapCtx = coap_new_context(nullptr);
  if (!lib->coapCtx) return Code(kSiteLibStartupNoContext);
  ++g_numStarted;
  RegisterHandlers(ctx, lib);
  COAP_RpcStartTaskTimer(ctx);
  return 0;
}

void COAP_RpcLibCleanup_(CoapRpcCtx *ctx, CoapRpcLibCtx *lib) {
  if (!lib || !lib->coapCtx) return;
  coap_free_context(lib->coapCtx);
  lib->coapCtx = nullptr;
  StopTimer(ctx, lib);
  if (--g_numStarted == 0) coap_cleanup();
}

uint32_t COAP_RpcStartTaskTimer(CoapRpcCtx *ctx) {
  CoapRpcLibCtx *lib = ctx->lib;
  if (lib->taskTmr != 0) return 0;
  lib->taskTmr = KST_TmrStartLoop(ctx->param.tmrHandle, COAP_RpcProcTask, kTaskPeriodMs, ctx);
  return lib->taskTmr != 0 ? 0 : Code(kSiteStartTaskTimerFailed);
}

void COAP_RpcStopTaskTimer(CoapRpcCtx *ctx) { StopTimer(ctx, ctx->lib); }

uint32_t COAP_RpcRefreshTaskTimer(CoapRpcCtx *ctx) {
  CoapRpcLibCtx *lib = ctx->lib;
  if (lib->quickMode != 0) return 0;
  StopTimer(ctx, lib);
  lib->taskTmr = KST_TmrStartLoop(ctx->param.tmrHandle, COAP_RpcProcQuickTask, kQuickPeriodMs, ctx);
  lib->quickMode = lib->taskTmr != 0;
  return lib->taskTmr != 0 ? 0 : Code(kSiteRefreshTaskTimerFailed);
}

void COAP_RpcSetSvcFlag(CoapRpcCtx *ctx) { ctx->lib->svcFlag = 1; }

uint32_t COAP_RpcProcTask(void *root) {
  CoapRpcLibCtx *lib = static_cast<CoapRpcCtx *>(root)->lib;
  uint32_t numCalls = 0;
  do {
    if (!lib->coapCtx) break;
    coap_io_process(lib->coapCtx, COAP_IO_NO_WAIT);
  } while (++numCalls < kCallsPerServiceTick && lib->svcFlag != 0);
  return 0;
}

uint32_t COAP_RpcProcQuickTask(void *root) {
  CoapRpcLibCtx *lib = static_cast<CoapRpcCtx *>(root)->lib;
  for (uint32_t i = 0; i < kCallsPerQuickTick && lib->coapCtx; ++i) {
    coap_io_process(lib->coapCtx, COAP_IO_NO_WAIT);
  }
  return 0;
}
