#include "coap_svc/rpc/libadapter/coap_rpc_lib_ctx.h"

#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <ctime>

#include "coap_svc/rpc/coap_rpc_ext.h"
#include "coap_svc/rpc/common/coap_rpc_limits.h"
#include "coap_svc/rpc/common/coap_rpc_log_site.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_handler.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_handler_async.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_handler_block.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_handler_cli.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_handler_observe.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_handler_target.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_log.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_msg.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_relation.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_rounds.h"
#include "coap_svc/rpc/server/coap_rpc_ser_conn.h"
#include "kst_tmr.h"
#include "libcoap/ext/coap_rpc_lib_internals.h"

namespace {

using namespace coap_rpc;

// libcoap's clean-up resets state that all instances of the process share: the last one does it.
uint32_t g_numStarted = 0;

CoapRpcLibSleep g_sleep = sleep;

void StartLibCoap(const CoapRpcLibCtx *lib) {
  coap_startup();
  coap_set_log_level(static_cast<coap_log_t>(lib->logLevel));
  coap_set_log_handler(lib->logHandler);
  if (lib->logHandler == CORP_RpcLibCoapLog) CoapRpcLibAskLog();
  // libcoap prints dumps of messages to the standard output otherwise.
  coap_set_show_pdu_output(0);
}

void RegisterHandlers(CoapRpcCtx *ctx, const CoapRpcLibCtx *lib) {
  coap_context_set_block_mode(lib->coapCtx, lib->blockMode);
  coap_context_set_max_idle_sessions(lib->coapCtx, kMaxIdleSessions);
  coap_context_set_app_data(lib->coapCtx, ctx);
  coap_register_event_handler(lib->coapCtx, lib->eventHandler);
  coap_register_nack_handler(lib->coapCtx, lib->nackHandler);
  coap_register_response_handler(lib->coapCtx, lib->responseHandler);
  CoapRpcLibSetRepeat(lib->coapCtx, coap_rpc::AnswerRepeated);
  CoapRpcLibSetOrder(lib->coapCtx, CoapRpcRelationOrder);
  coap_persist_track_funcs(lib->coapCtx, lib->observeAdded, lib->observeDeleted, nullptr, nullptr,
                           nullptr, 0, ctx);
}

// Libcoap returns the instance's libcoap context; null while it is not started.
coap_context_t *Libcoap(const CoapRpcCtx *ctx) { return ctx->lib ? ctx->lib->coapCtx : nullptr; }

// PathOf borrows a uri of up to 64 characters, which need not be terminated then.
coap_str_const_t PathOf(const char *uri) {
  return {strnlen(uri, COAP_RPC_URI_SIZE), reinterpret_cast<const uint8_t *>(uri)};
}

coap_resource_t *FindResource(const CoapRpcCtx *ctx, const char *uri) {
  coap_str_const_t path = PathOf(uri);
  coap_context_t *coapCtx = Libcoap(ctx);
  return coapCtx ? coap_get_resource_from_uri_path(coapCtx, &path) : nullptr;
}

// NewResource returns null without memory.  libcoap copies the path, and makes a resource without
// path when that fails, which none of its functions can take, not even the one that deletes.
coap_resource_t *NewResource(const CoapRpcCtx *ctx, const char *uri) {
  coap_str_const_t path = PathOf(uri);
  coap_resource_t *resource = Libcoap(ctx) ? coap_resource_init(&path, 0) : nullptr;
  if (!resource || coap_resource_get_uri_path(resource)) return resource;
  coap_free_type(COAP_RESOURCE, resource);
  return nullptr;
}

void RegisterMethods(const CoapRpcLibCtx *lib, coap_resource_t *resource) {
  coap_register_handler(resource, COAP_REQUEST_GET, lib->getHandler);
  coap_register_handler(resource, COAP_REQUEST_POST, lib->postHandler);
  coap_register_handler(resource, COAP_REQUEST_PUT, lib->putHandler);
  coap_register_handler(resource, COAP_REQUEST_DELETE, lib->deleteHandler);
}

void MakeObservable(coap_resource_t *resource, const CoapRpcUriKey *key) {
  coap_resource_set_get_observable(resource, key->observe != 0);
}

void SetNotifyMode(CoapRpcCtx *ctx, coap_resource_t *resource, const CoapRpcUriKey *key) {
  if (key->observe == 0) return;
  const uint32_t mode = key->msgType == COAP_RPC_CON ? COAP_RESOURCE_FLAGS_NOTIFY_CON
                                                     : COAP_RESOURCE_FLAGS_NOTIFY_NON;
  coap_resource_set_mode(resource, static_cast<int>(mode));
  // Neither prefix nor line end, deliberately (CreateOrUpdateResource_* in test_coap_rpc_lib_ctx).
  COAP_RPC_DEBUG(ctx, "set observe mode:%u.", mode);
}

// FreeRetired frees what was given up.  Observers are told that they are gone: what their callbacks
// give up meanwhile is freed in the same run, and what they take back stays.
void FreeRetired(CoapRpcCtx *ctx) {
  if (ctx->lib->hasRetired != 0) {
    ++ctx->ioDepth;
    CoapRpcLibFreeRetired(ctx->lib->coapCtx);
    --ctx->ioDepth;
    CoapRpcLibWakeIn(ctx->lib->coapCtx, 0);  // for what callbacks have answered
    ctx->lib->hasRetired = 0;
  }
  SettleTargets(ctx);
}

// Retired frees what was just released, unless inside libcoap's I/O.
void Retired(CoapRpcCtx *ctx) {
  ctx->lib->hasRetired = 1;
  if (ctx->ioDepth == 0) FreeRetired(ctx);
}

// EndTurn bounds what the datagrams of a turn made libcoap set aside: the next turn may come at
// once.
void EndTurn(CoapRpcCtx *ctx) {
  if (!Libcoap(ctx)) return;
  CoapRpcLibLimitUploads(Libcoap(ctx), kMaxUploads, kMaxUploadBytes);
  FreeRetired(ctx);
}

// Reclaim gives an endpoint back that a callback has just given up, if it has this address.
coap_endpoint_t *Reclaim(const CoapRpcCtx *ctx, const coap_address_t *address) {
  return ctx->lib->hasRetired != 0 ? CoapRpcLibReclaim(ctx->lib->coapCtx, address) : nullptr;
}

// RunLibcoap runs `work` on the libcoap context.  False: there is none; a callback may have freed
// it.  The depth tells callbacks that they are inside libcoap's I/O, which still uses the sessions
// and observers that it is about to serve; for the same reason it is not run inside itself.
template <typename Work>
bool RunLibcoap(CoapRpcCtx *ctx, Work work) {
  coap_context_t *coapCtx = Libcoap(ctx);
  if (!coapCtx || ctx->ioDepth != 0) return false;
  ++ctx->ioDepth;
  work(coapCtx);
  if (Libcoap(ctx)) CoapRpcAsyncServe(ctx);
  if (--ctx->ioDepth == 0) EndTurn(ctx);
  return true;
}

// ProcessOnce lets libcoap do what is due, without waiting.
bool ProcessOnce(CoapRpcCtx *ctx) {
  return RunLibcoap(ctx,
                    [](coap_context_t *coapCtx) { coap_io_process(coapCtx, COAP_IO_NO_WAIT); });
}

// ServeRound is ProcessOnce for many datagrams at once.  True: there may be more.
bool ServeRound(CoapRpcCtx *ctx, ReadRounds &rounds) {
  bool isMore = false;
  RunLibcoap(ctx, [&](coap_context_t *coapCtx) { isMore = rounds.Serve(coapCtx); });
  return isMore;
}

// OpenOnce makes one attempt to open an endpoint; null when it fails.
coap_endpoint_t *OpenOnce(const CoapRpcCtx *ctx, const CoapRpcSerListenAddr &addr) {
  coap_address_t address;
  uint32_t protocol = 0;
  COAP_RpcSetAddress(&address, &addr.listenAddr, addr.port);
  COAP_RpcSetPort(&protocol, addr.port);
  if (coap_endpoint_t *reclaimed = Reclaim(ctx, &address)) return reclaimed;
  return CoapRpcLibNewEndPoint(Libcoap(ctx), &address, static_cast<coap_proto_t>(protocol));
}

void LogOpened(CoapRpcCtx *ctx, const CoapRpcSerListenAddr &addr) {
  COAP_RPC_DEBUG(ctx, "[CoapRpc]add endPoint success, addr:0x%x, port:%u.\n",
                 addr.listenAddr.addr.ipv4, addr.port);
}

uint64_t MonotonicMs() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_nsec) / 1000000;
}

bool IsServicePending(const CoapRpcCtx *ctx) { return ctx->lib && ctx->lib->svcFlag != 0; }

// WakeForTick does a tick's work when it is time, and says when the next is, for a host that serves
// the descriptor and runs no I/O timer.
void WakeForTick(CoapRpcCtx *ctx) {
  constexpr coap_tick_t kPeriod = kQuickPeriodMs * COAP_TICKS_PER_SECOND / 1000;
  CoapRpcLibCtx *lib = ctx->lib;
  coap_tick_t now = 0;
  coap_ticks(&now);
  if (lib->nextTick <= now) {
    CoapRpcHandlerTick(ctx);
    lib->nextTick = now + kPeriod;
  }
  CoapRpcLibWakeIn(lib->coapCtx, lib->nextTick - now);
}

void TickWithIo(CoapRpcCtx *ctx) {
  if (Libcoap(ctx) && ctx->ioDepth == 0 && CoapRpcHandlerIsRetaining(ctx)) WakeForTick(ctx);
}

uint32_t StartTimer(CoapRpcCtx *ctx, CoapRpcLibCtx *lib) {
  if (lib->taskTmr != 0) return 0;
  lib->taskTmr = KST_TmrStartLoop(ctx->param.tmrHandle, COAP_RpcProcTask, kTaskPeriodMs, ctx);
  return lib->taskTmr != 0 ? 0 : Code(kSiteStartTaskTimerFailed);
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
  StartTimer(ctx, lib);
  return 0;
}

void COAP_RpcLibCleanup_(CoapRpcCtx *ctx, CoapRpcLibCtx *lib) {
  if (!lib || !lib->coapCtx) return;
  CoapRpcHandlerStop(ctx);
  coap_free_context(lib->coapCtx);
  lib->coapCtx = nullptr;
  CoapRpcHandlerFree(ctx);
  StopTimer(ctx, lib);
  if (--g_numStarted == 0) coap_cleanup();
}

CoapRpcCtx *CoapRpcLibRootOf(const coap_session_t *session) {
  const coap_context_t *coapCtx = session ? coap_session_get_context(session) : nullptr;
  return coapCtx ? static_cast<CoapRpcCtx *>(coap_context_get_app_data(coapCtx)) : nullptr;
}

CoapRpcLibSleep CoapRpcLibSetSleep(CoapRpcLibSleep sleepFunc) {
  const CoapRpcLibSleep old = g_sleep;
  g_sleep = sleepFunc;
  return old;
}

coap_endpoint_t *COAP_RpcCreateEndPoint(CoapRpcCtx *ctx, const CoapRpcSerListenAddr *addr) {
  if (!Libcoap(ctx)) return nullptr;
  for (uint32_t i = 0; i < kEndPointAttempts; ++i) {
    if (coap_endpoint_t *endPoint = CoapRpcLibOpenEndPoint(ctx, addr)) return endPoint;
    g_sleep(kEndPointRetrySeconds);
  }
  return nullptr;
}

coap_endpoint_t *CoapRpcLibOpenEndPoint(CoapRpcCtx *ctx, const CoapRpcSerListenAddr *addr) {
  coap_endpoint_t *endPoint = Libcoap(ctx) ? OpenOnce(ctx, *addr) : nullptr;
  if (endPoint) LogOpened(ctx, *addr);
  return endPoint;
}

void COAP_RpcDeleteEndPoint(CoapRpcCtx *ctx, CoapRpcSerListen *listen) {
  if (!listen || !listen->endPoint) return;
  coap_endpoint_t *endPoint = listen->endPoint;
  listen->endPoint = nullptr;
  CoapRpcLibRetire(endPoint);
  Retired(ctx);
  COAP_RPC_DEBUG(ctx, "[CoapRpc]del endPoint success, addr:0x%x, port:%u.\n",
                 listen->key.listenAddr.addr.ipv4, listen->key.port);
}

uint32_t COAP_RpcCreateOrUpdateResource(CoapRpcCtx *ctx, const CoapRpcUriKey *key) {
  coap_resource_t *resource = FindResource(ctx, key->uri);
  // One without user data has been deleted by a callback and waits for the end of it.
  if (resource && coap_resource_get_userdata(resource)) {
    if (key->observe != 0) MakeObservable(resource, key);
    return 0;
  }
  if (!resource) {
    resource = NewResource(ctx, key->uri);
    if (!resource) return Code(kSiteCreateResourceFailed);
    RegisterMethods(ctx->lib, resource);
    coap_add_resource(ctx->lib->coapCtx, resource);
    // libcoap has freed it when its table found no memory.
    if (!FindResource(ctx, key->uri)) return Code(kSiteCreateResourceFailed);
  }
  MakeObservable(resource, key);
  SetNotifyMode(ctx, resource, key);
  coap_resource_set_userdata(resource, ctx->lib->resUserData);
  COAP_RPC_DEBUG(ctx,
                 "[CoapRpc]add resource success, uri:%s, msgType:%u, observe:%u, pktType:%u.\n",
                 COAP_RPC_KEY_ARGS(*key));
  return 0;
}

void COAP_RpcDeleteResource(CoapRpcCtx *ctx, const char *uri) {
  coap_resource_t *resource = FindResource(ctx, uri);
  if (!resource || !coap_resource_get_userdata(resource)) return;
  // What libcoap still calls for this resource finds no instance then.
  coap_resource_set_userdata(resource, nullptr);
  Retired(ctx);
  COAP_RPC_DEBUG(ctx, "[CoapRpc]del resource success, uri:%.*s.\n", COAP_RPC_URI_SIZE, uri);
}

uint32_t COAP_RpcStartTaskTimer(CoapRpcCtx *ctx) { return StartTimer(ctx, ctx->lib); }

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
  auto *ctx = static_cast<CoapRpcCtx *>(root);
  uint32_t numCalls = 0;
  while (ProcessOnce(ctx) && ++numCalls < kCallsPerServiceTick && IsServicePending(ctx)) {
  }
  CoapRpcHandlerTick(ctx);
  return 0;
}

uint32_t COAP_RpcProcQuickTask(void *root) {
  auto *ctx = static_cast<CoapRpcCtx *>(root);
  uint32_t numCalls = 0;
  while (ProcessOnce(ctx) && ++numCalls < kCallsPerQuickTick) {
  }
  CoapRpcHandlerTick(ctx);
  return 0;
}

int COAP_RpcGetIoFd(CoapRpcCtx *ctx) {
  coap_context_t *coapCtx = ctx ? Libcoap(ctx) : nullptr;
  return coapCtx ? coap_context_get_coap_fd(coapCtx) : -1;
}

uint32_t COAP_RpcProcIo(CoapRpcCtx *ctx) {
  if (!ctx) return 0;
  const uint64_t endMs = MonotonicMs() + kIoBudgetMs;
  ReadRounds rounds(ctx->lib ? ctx->lib->numReads : 0);
  bool isTimeLeft = true;
  while (isTimeLeft && ServeRound(ctx, rounds)) isTimeLeft = MonotonicMs() < endMs;
  if (ctx->lib) ctx->lib->numReads = static_cast<uint16_t>(rounds.First());
  TickWithIo(ctx);
  return isTimeLeft ? 0 : 1;
}

uint32_t COAP_RpcSetLibLogLevel(CoapRpcCtx *ctx, uint32_t level) {
  if (!ctx || !ctx->lib) return Violated(kSiteSetLibLogLevelNullArg);
  ctx->lib->logLevel = level < kLibLogLevel ? level : kLibLogLevel;
  coap_set_log_level(static_cast<coap_log_t>(ctx->lib->logLevel));
  return 0;
}
