#include "coap_svc/rpc/libadapter/coap_rpc_lib_handler.h"

#include <algorithm>
#include <cstring>

#include "coap_svc/rpc/common/coap_rpc_limits.h"
#include "coap_svc/rpc/common/coap_rpc_list.h"
#include "coap_svc/rpc/common/coap_rpc_log_site.h"
#include "coap_svc/rpc/common/coap_rpc_own.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_ctx.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_flight.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_handler_async.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_handler_block.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_handler_cli.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_handler_observe.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_handler_target.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_lookup.h"
#include "coap_svc/rpc/server/coap_rpc_ser_uri.h"
#include "csvc_dbg.h"
#include "libcoap/ext/coap_rpc_lib_internals.h"

namespace {

using namespace coap_rpc;

constexpr uint32_t kModeMask = 0x03;
constexpr uint32_t kModeSync = 0;
constexpr uint32_t kModeAsync = 1;

constexpr int32_t kResultChanged = -1;
constexpr int32_t kResultFailed = -2;

constexpr uint32_t kIsObserve = 2;

CoapRpcCtx *RootOf(coap_resource_t *resource) {
  return resource ? static_cast<CoapRpcCtx *>(coap_resource_get_userdata(resource)) : nullptr;
}

bool IsConfirmable(const coap_pdu_t *request) {
  return coap_pdu_get_type(request) == COAP_MESSAGE_CON;
}

uint32_t ModeOf(const CoapRpcSerUriVtbl *entry) { return entry->reg.mode & kModeMask; }

// Request is what libcoap gives to a method handler.
struct Request {
  coap_resource_t *resource;
  coap_session_t *session;
  const coap_pdu_t *request;
  const coap_string_t *query;
  coap_pdu_t *response;
};

void LogRequest(CoapRpcCtx *ctx, const CoapRpcSerUriVtbl *entry, const uint8_t *payload,
                uint32_t len) {
  const UriText uri(entry->key.uri);
  const auto *text = reinterpret_cast<const char *>(payload);
  COAP_RPC_DEBUG(ctx, "[CoapRpc]get req success, uri:%s, mode:%u, len:%u, payload:%s.\n",
                 uri.c_str(), ModeOf(entry), len, LineText(text).c_str());
  if (COAP_RpcNeedRecordDiag(ctx, uri.c_str()) == 0) return;
  CSVC_DBG_SysLog(ctx->param.dbgHandle, kDebugChannelLevel,
                  "[CoapRpc]get request success, uri:%s, len:%u, payload:%s.", uri.c_str(), len,
                  text);
}

uint32_t RunMode(const Request &req, CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry, uint8_t *payload,
                 uint32_t len) {
  const CoapRpcMsgInfo info = COAP_RpcGetMsgInfo(req.request, req.session);
  if (ModeOf(entry) == kModeSync) {
    return COAP_RpcSvrHandleReqSync(req.resource, req.session, req.request, req.query, req.response,
                                    ctx, entry, payload, len, &info);
  }
  if (ModeOf(entry) == kModeAsync) {
    return COAP_RpcSvrHandleReqAsync(req.resource, req.session, req.request, req.query,
                                     req.response, ctx, entry, payload, len, &info);
  }
  return 0;
}

// HandlePayload gives the entry a NUL-terminated copy of the request's payload.
uint32_t HandlePayload(const Request &req, CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry,
                       const uint8_t *data, size_t len) {
  const uint64_t mem = ctx->param.memHandle;
  const PoolPtr<uint8_t> copy(static_cast<uint8_t *>(PoolAlloc(mem, len + 1)), {mem});
  if (!copy) {
    COAP_RPC_LOG(ctx->log, kLogHandleRequestNoMemory,
                 "[CoapRpc]parse req failed[malloc error], uri:%s.\n",
                 UriText(entry->key.uri).c_str());
    return Code(kSiteHandleRequestNoMemory);
  }
  memcpy_s(copy.get(), len + 1, data, len);
  LogRequest(ctx, entry, copy.get(), static_cast<uint32_t>(len));
  return RunMode(req, ctx, entry, copy.get(), static_cast<uint32_t>(len));
}

// ClearAnswer clears the part of the answer buffer that handlers have written to.  That is little,
// as a rule, and to look at memory costs less than to write it.
void ClearAnswer(uint8_t *buf) {
  static constexpr uint8_t kZeros[4096] = {};
  for (size_t at = 0; at < kPayloadBufSize; at += sizeof(kZeros)) {
    const size_t len = std::min(sizeof(kZeros), kPayloadBufSize - at);
    if (memcmp(buf + at, kZeros, len) != 0) memset_s(buf + at, len, 0, len);
  }
}

uint8_t *AnswerBuffer(CoapRpcSerData *ser) {
  if (!ser->reqBuf) {
    ser->reqBuf = static_cast<uint8_t *>(PoolAlloc(ser->owner->param.memHandle, kPayloadBufSize));
  }
  if (ser->reqBuf) ClearAnswer(ser->reqBuf);
  return ser->reqBuf;
}

CoapRpcSerReqInfo MakeReqInfo(const CoapRpcMsgInfo &info) {
  CoapRpcSerReqInfo reqInfo = {};
  reqInfo.isObserve = (info.opt.optMask & COAP_RPC_OPT_OBSERVE) != 0 ? kIsObserve : 0;
  reqInfo.srcAddr = info.peer;
  reqInfo.hasETag =
      info.code == COAP_RPC_POST && (info.opt.optMask & COAP_RPC_OPT_ETAG) != 0 ? 1 : 0;
  return reqInfo;
}

// AttachAnswer sends len + 1 bytes of the shared buffer, the first len of them cleared,
// deliberately: what the handler wrote does not go out.  Held by the SyncAnswer_* tests.
uint32_t AttachAnswer(const Request &req, CoapRpcSerData *ser, size_t len) {
  memset_s(ser->reqBuf, len, 0, len);
  if (coap_add_data_large_response(req.resource, req.session, req.request, req.response, req.query,
                                   COAP_MEDIATYPE_TEXT_PLAIN, -1, 0, len + 1, ser->reqBuf, nullptr,
                                   nullptr) == 0) {
    return Code(kSiteReqSyncNotAttached);
  }
  coap_pdu_set_code(req.response, COAP_RESPONSE_CODE_CREATED);
  return 0;
}

uint32_t Unavailable(coap_pdu_t *response, const Site &site) {
  coap_pdu_set_code(response, COAP_RESPONSE_CODE_SERVICE_UNAVAILABLE);
  return Code(site);
}

// IsNotification says whether libcoap is running the handler for an observer and not for a message.
bool IsNotification(coap_resource_t *resource, coap_session_t *session, const coap_pdu_t *request) {
  return CoapRpcLibStoredRequest(resource, session, request) == request;
}

// RegisterAsync keeps a request that is here for the first time and tells the application.
uint32_t RegisterAsync(const Request &req, CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry,
                       uint8_t *payload, uint32_t len) {
  if (CoapRpcAsyncIsFull(ctx)) return Unavailable(req.response, kSiteReqAsyncTooManyOpen);
  coap_session_t *target = COAP_RpcSvrGetTargetSession(ctx, entry, req.session);
  if (!target || CoapRpcAsyncHasBacklog(ctx, entry)) {
    return Unavailable(req.response, kSiteReqAsyncNoSession);
  }
  if (CoapRpcAsyncIsPeerFull(entry)) return Unavailable(req.response, kSiteReqAsyncPeerTooManyOpen);
  void *handle = CoapRpcAsyncRegister(ctx, entry, req.session, req.request);
  if (!handle) return Unavailable(req.response, kSiteReqAsyncNotRegistered);
  return entry->reg.onAsyncRequest(entry->reg.userData, payload, len, handle);
}

}  // namespace

void COAP_RpcSerGetHandler(coap_resource_t *resource, coap_session_t *session,
                           const coap_pdu_t *request, const coap_string_t *query,
                           coap_pdu_t *response) {
  if (!request || !response) return;
  if (AnswerLastBlock(RootOf(resource), resource, session, request, query, response)) return;
  const uint32_t ret = COAP_RpcSerHandleRequest(resource, session, request, query, response);
  if (!resource || COAP_RpcCheckObserveOption(request) == 0) return;

  CoapRpcObserveNoteQuery(resource, session, request, query);
  if (ret != 0) {
    COAP_RpcAddUriPath(resource, request, response, session);
  } else {
    COAP_RpcSerHandleObserveUpdate(resource, session, request, query, response);
  }
  // A notification without a code is malformed and costs the observer its registration.
  if (coap_pdu_get_code(response) == COAP_EMPTY_CODE &&
      IsNotification(resource, session, request)) {
    coap_pdu_set_code(response, COAP_RESPONSE_CODE_CREATED);
  }
}

void COAP_RpcSerPostHandler(coap_resource_t *resource, coap_session_t *session,
                            const coap_pdu_t *request, const coap_string_t *query,
                            coap_pdu_t *response) {
  if (!resource || !request) return;
  if (COAP_RpcSerHandleRequest(resource, session, request, query, response) != 0) return;
  if (response && IsConfirmable(request)) {
    coap_pdu_set_code(response, COAP_RESPONSE_CODE_CREATED);
  }
}

uint32_t COAP_RpcSerHandleRequest(coap_resource_t *resource, coap_session_t *session,
                                  const coap_pdu_t *request, const coap_string_t *query,
                                  coap_pdu_t *response) {
  CoapRpcCtx *ctx = RootOf(resource);
  if (!ctx) return Code(kSiteHandleRequestNoEntry);
  if (CoapRpcAsync *async = CoapRpcAsyncFindRerun(ctx, session, request)) {
    CoapRpcAsyncAnswer(async, resource, session, request, query, response);
    return 0;
  }
  CoapRpcSerUriVtbl *entry = COAP_RpcSerGetVtbl(ctx, request, session);
  if (!entry) {
    COAP_RPC_LOG(ctx->log, kLogHandleRequestNoEntry, "[CoapRpc]sever get vtbl faild.");
    return Code(kSiteHandleRequestNoEntry);
  }
  size_t len = 0;
  const uint8_t *data = nullptr;
  if (coap_get_data(request, &len, &data) == 0 || len == 0) return 0;
  return HandlePayload({resource, session, request, query, response}, ctx, entry, data, len);
}

uint32_t COAP_RpcSvrHandleReqSync(coap_resource_t *resource, coap_session_t *session,
                                  const coap_pdu_t *request, const coap_string_t *query,
                                  coap_pdu_t *response, CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry,
                                  uint8_t *payload, uint32_t payloadLen,
                                  const CoapRpcMsgInfo *info) {
  if (!entry->reg.onRequest) return 0;
  const int32_t result = COAP_GetRpcData(ctx, entry, payload, payloadLen, info);
  if (result > kMaxPayload) return Code(kSiteReqSyncTooLong);
  if (result == 0) return 0;
  if (result == kResultChanged) {
    coap_pdu_set_code(response, COAP_RESPONSE_CODE_CHANGED);
    return Code(kSiteReqSyncChanged);
  }
  if (result < 0) return Code(kSiteReqSyncFailed);
  return AttachAnswer({resource, session, request, query, response}, ctx->ser,
                      static_cast<size_t>(result));
}

int32_t COAP_GetRpcData(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry, uint8_t *payload,
                        uint32_t payloadLen, const CoapRpcMsgInfo *info) {
  uint8_t *out = AnswerBuffer(ctx->ser);
  if (!out) return kResultFailed;
  const CoapRpcSerReqInfo reqInfo = MakeReqInfo(*info);
  const int32_t result = entry->reg.onRequest(entry->reg.userData, &reqInfo, payload, payloadLen,
                                              out, kPayloadBufSize);
  COAP_RPC_LOG(ctx->log, kLogGetRpcDataOutLen, "[CoapRpc]parse req[outLen: %d], uri:%s.\n", result,
               UriText(entry->key.uri).c_str());
  return result;
}

uint32_t COAP_RpcSvrHandleReqAsync(coap_resource_t *resource, coap_session_t *session,
                                   const coap_pdu_t *request, const coap_string_t *query,
                                   coap_pdu_t *response, CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry,
                                   uint8_t *payload, uint32_t payloadLen, const CoapRpcMsgInfo *) {
  if (coap_pdu_get_code(request) == COAP_REQUEST_CODE_POST) {
    // Answers travel as POST requests: this one belongs to the client side.
    coap_session_set_app_data(session, ctx);
    COAP_RpcCliResponseHandler(session, nullptr, request, 0);
    return 0;
  }
  if (coap_async_is_supported() == 0 || !entry->reg.onAsyncRequest) {
    return Unavailable(response, kSiteReqAsyncUnavailable);
  }
  // The application has a retransmitted request already, and an observer's as well.
  if (CoapRpcAsyncIsKnown(ctx, entry, session, request) ||
      IsNotification(resource, session, request)) {
    return 0;
  }
  return RegisterAsync({resource, session, request, query, response}, ctx, entry, payload,
                       payloadLen);
}

coap_session_t *COAP_RpcSvrGetTargetSession(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry,
                                            const coap_session_t *session) {
  coap_address_t peer = *coap_session_get_addr_remote(session);
  coap_address_set_port(&peer, kDefaultCoapPort);
  const bool isCached =
      entry->asyncSession &&
      coap_address_equals(coap_session_get_addr_remote(entry->asyncSession), &peer) != 0;
  if (!isCached) AcquireTarget(ctx, entry, peer, coap_session_get_proto(session));
  return entry->asyncSession;
}

void COAP_RpcAddUriPath(coap_resource_t *resource, const coap_pdu_t *request, coap_pdu_t *response,
                        const coap_session_t *session) {
  CoapRpcCtx *ctx = RootOf(resource);
  if (!ctx) return;
  const CoapRpcSerUriVtbl *entry = COAP_RpcSerGetVtbl(ctx, request, session);
  if (!entry) {
    COAP_RPC_LOG(ctx->log, kLogAddUriPathNoEntry, "[CoapRpc]server get vtbl failed.\n");
    return;
  }
  COAP_RpcSetUriPath(ctx, response, UriText(entry->key.uri).c_str());
}

void COAP_RpcSvrHandleSetResponseHeader(coap_pdu_t *response, const CoapRpcSerUriVtbl *entry,
                                        CoapRpcCtx *ctx) {
  coap_pdu_set_code(response, static_cast<coap_pdu_code_t>(COAP_REQUEST_CODE_POST));
  if (entry->key.msgType == COAP_RPC_CON || entry->key.msgType == COAP_RPC_NON) {
    coap_pdu_set_type(response, static_cast<coap_pdu_type_t>(entry->key.msgType));
  }
  COAP_RpcSetUriPath(ctx, response, UriText(entry->key.uri).c_str());
}

void CoapRpcHandlerTick(CoapRpcCtx *ctx) {
  // Not inside libcoap's I/O: a callback that waits may run the host's timers.
  if (!ctx->lib || !ctx->lib->coapCtx || ctx->ioDepth != 0) return;
  ExpireBlocks(ctx);
  SettleFlights(ctx);
}

int CoapRpcHandlerIsRetaining(const CoapRpcCtx *ctx) {
  const CoapRpcLibCtx *lib = ctx->lib;
  return !LinkIsAlone(lib->blockList) || !LinkIsAlone(lib->lastBlockList) ||
         !LinkIsAlone(lib->flightList) || !LinkIsAlone(lib->queuedTargetList);
}

void CoapRpcHandlerStop(CoapRpcCtx *ctx) {
  CoapRpcAsyncForgetEntry(ctx, nullptr);
  ForgetLastBlocks(ctx);
  FreeTargets(ctx);
}

void CoapRpcHandlerFree(CoapRpcCtx *ctx) {
  ForgetFlights(ctx);
  CoapRpcObserveForgetQueries(ctx);
}
