#include "coap_svc/rpc/libadapter/coap_rpc_lib_ctx.h"

#include <unistd.h>

#include <cstring>

#include "coap_svc/rpc/coap_rpc_ext.h"
#include "coap_svc/rpc/common/coap_rpc_limits.h"
#include "coap_svc/rpc/common/coap_rpc_log_site.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_handler.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_io.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_parts.h"
#include "coap_svc/rpc/libadapter/direct/coap_rpc_lib_direct.h"
#include "coap_svc/rpc/libadapter/log/coap_rpc_lib_log.h"
#include "coap_svc/rpc/libadapter/message/coap_rpc_lib_msg.h"
#include "coap_svc/rpc/libadapter/publish/coap_rpc_lib_block.h"
#include "coap_svc/rpc/libadapter/publish/coap_rpc_lib_observe.h"
#include "coap_svc/rpc/libadapter/rpc_call/coap_rpc_lib_rpc_call_answer.h"
#include "coap_svc/rpc/libadapter/stats/coap_rpc_lib_traffic.h"
#include "coap_svc/rpc/server/coap_rpc_ser_conn.h"
#include "libcoap/ext/coap_rpc_lib_end_request.h"
#include "libcoap/ext/coap_rpc_lib_internals.h"
#include "libcoap/ext/coap_rpc_lib_quoted.h"
#include "libcoap/ext/coap_rpc_lib_traffic.h"

namespace {

using namespace coap_rpc;

// libcoap's clean-up resets state that all instances of the process share: the last one does it.
uint32_t g_numStarted = 0;

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
  CoapRpcLibSetBlock(lib->coapCtx, coap_rpc::ServeDirectBlock);
  CoapRpcLibSetOrder(lib->coapCtx, coap_rpc::HandleOrder);
  CoapRpcLibSetKeep(lib->coapCtx, coap_rpc::KeepCallAnswer);
  CoapRpcLibSetErrors(lib->coapCtx, coap_rpc::TakeCallErrors);
  CoapRpcLibSetTraffic(lib->coapCtx, coap_rpc::CountMessage);
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

// Reclaim gives an endpoint back that a callback has just given up, if it has this address.
coap_endpoint_t *Reclaim(const CoapRpcCtx *ctx, const coap_address_t *address) {
  return ctx->lib->hasRetired != 0 ? CoapRpcLibReclaim(ctx->lib->coapCtx, address) : nullptr;
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
  CoapRpcLibStartTimer(ctx, lib);
  return 0;
}

void COAP_RpcLibCleanup_(CoapRpcCtx *ctx, CoapRpcLibCtx *lib) {
  if (!lib || !lib->coapCtx) return;
  CoapRpcPartsStop(ctx);
  coap_free_context(lib->coapCtx);
  lib->coapCtx = nullptr;
  CoapRpcPartsFree(ctx);
  CoapRpcLibStopTimer(ctx, lib);
  if (--g_numStarted == 0) coap_cleanup();
}

coap_endpoint_t *COAP_RpcCreateEndPoint(CoapRpcCtx *ctx, const CoapRpcSerListenAddr *addr) {
  if (!Libcoap(ctx)) return nullptr;
  for (uint32_t i = 0; i < kEndPointAttempts; ++i) {
    if (coap_endpoint_t *endPoint = CoapRpcLibOpenEndPoint(ctx, addr)) return endPoint;
    sleep(kEndPointRetrySeconds);
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
  CoapRpcPartsForgetEndPoint(ctx, endPoint);
  CoapRpcLibRetire(endPoint);
  CoapRpcLibRetired(ctx);
  COAP_RPC_DEBUG(ctx, "[CoapRpc]del endPoint success, addr:0x%x, port:%u.\n",
                 listen->key.listenAddr.addr.ipv4, listen->key.port);
}

uint32_t COAP_RpcCreateOrUpdateResource(CoapRpcCtx *ctx, const CoapRpcUriKey *key) {
  coap_resource_t *resource = FindResource(ctx, key->uri);
  // One without user data has been deleted by a callback and waits for the end of it.
  if (resource && coap_resource_get_userdata(resource)) {
    if (key->observe != 0) MakeObservable(resource, key);
    OfferDirect(ctx, resource);
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
  OfferDirect(ctx, resource);
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
  CoapRpcLibRetired(ctx);
  COAP_RPC_DEBUG(ctx, "[CoapRpc]del resource success, uri:%.*s.\n", COAP_RPC_URI_SIZE, uri);
}

uint32_t COAP_RpcSetKeepAlive(CoapRpcCtx *ctx, uint32_t seconds) {
  if (!ctx || !ctx->lib || !ctx->lib->coapCtx) return Violated(kSiteSetKeepAliveNullArg);
  coap_context_set_keepalive(ctx->lib->coapCtx, seconds);
  CoapRpcLibWakeIn(ctx->lib->coapCtx, 0);  // the next turn sets the timer for the pings
  return 0;
}

uint32_t COAP_RpcSetNstart(CoapRpcCtx *ctx, uint16_t nstart) {
  if (!ctx || !ctx->lib) return Violated(kSiteSetNstartNullArg);
  ctx->lib->nstart = nstart;
  return 0;
}

uint32_t COAP_RpcSetLibLogLevel(CoapRpcCtx *ctx, uint32_t level) {
  if (!ctx || !ctx->lib) return Violated(kSiteSetLibLogLevelNullArg);
  ctx->lib->logLevel = level < kLibLogLevel ? level : kLibLogLevel;
  coap_set_log_level(static_cast<coap_log_t>(ctx->lib->logLevel));
  return 0;
}
