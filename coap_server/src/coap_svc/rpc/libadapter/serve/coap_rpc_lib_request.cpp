#include "coap_svc/rpc/libadapter/serve/coap_rpc_lib_request.h"

#include <algorithm>
#include <cstring>

#include "coap_svc/rpc/common/coap_rpc_limits.h"
#include "coap_svc/rpc/common/coap_rpc_log_site.h"
#include "coap_svc/rpc/common/coap_rpc_own.h"
#include "coap_svc/rpc/common/coap_rpc_stopwatch.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_data.h"
#include "coap_svc/rpc/libadapter/message/coap_rpc_lib_lookup.h"
#include "coap_svc/rpc/libadapter/serve/coap_rpc_lib_answer_session.h"
#include "coap_svc/rpc/libadapter/serve/coap_rpc_lib_async.h"
#include "coap_svc/rpc/server/coap_rpc_ser_uri.h"
#include "libcoap/ext/coap_rpc_lib_internals.h"

namespace {

using namespace coap_rpc;

constexpr int32_t kResultChanged = -1;
constexpr int32_t kResultFailed = -2;

constexpr uint32_t kIsObserve = 2;

uint32_t Unavailable(coap_pdu_t *response, const Site &site) {
  coap_pdu_set_code(response, COAP_RESPONSE_CODE_SERVICE_UNAVAILABLE);
  return Code(site);
}

// Refused is Unavailable because of a limit, COAP_RPC_LIMIT_*.
uint32_t Refused(const Exchange &exchange, uint32_t limit, const Site &site) {
  ++exchange.ctx->counts.refused[limit];
  return Unavailable(exchange.response, site);
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
  uint8_t *buf = SharedAnswerBuffer(ser);
  if (buf) ClearAnswer(buf);
  return buf;
}

CoapRpcSerReqInfo MakeReqInfo(const CoapRpcMsgInfo &info) {
  CoapRpcSerReqInfo reqInfo = {};
  reqInfo.isObserve = (info.opt.optMask & COAP_RPC_OPT_OBSERVE) != 0 ? kIsObserve : 0;
  reqInfo.srcAddr = info.peer;
  reqInfo.hasETag =
      info.code == COAP_RPC_POST && (info.opt.optMask & COAP_RPC_OPT_ETAG) != 0 ? 1 : 0;
  return reqInfo;
}

int32_t CallOnRequest(CoapRpcSerUriVtbl *entry, const CoapRpcMsgInfo &info, uint8_t *payload,
                      uint32_t len, uint8_t *out) {
  const CoapRpcSerReqInfo reqInfo = MakeReqInfo(info);
  ++entry->counts.stats.requests;
  CallbackTime time(CoapRpcSerRootOf(entry), entry->key.uri, &entry->counts);
  return entry->reg.onRequest(entry->reg.userData, &reqInfo, payload, len, out, kPayloadBufSize);
}

// AttachAnswer sends len + 1 bytes of the shared buffer, the first len of them cleared,
// deliberately: what the handler wrote does not go out.  Held by the SyncAnswer_* tests.
uint32_t AttachAnswer(const Exchange &exchange, size_t len) {
  uint8_t *answer = exchange.ctx->ser->reqBuf;
  memset_s(answer, len, 0, len);
  if (coap_add_data_large_response(exchange.resource, exchange.session, exchange.request,
                                   exchange.response, exchange.query, COAP_MEDIATYPE_TEXT_PLAIN, -1,
                                   0, len + 1, answer, nullptr, nullptr) == 0) {
    return Code(kSiteReqSyncNotAttached);
  }
  coap_pdu_set_code(exchange.response, COAP_RESPONSE_CODE_CREATED);
  return 0;
}

// RegisterAsync keeps a request that is here for the first time and tells the application.
uint32_t RegisterAsync(const Exchange &exchange, uint8_t *payload, uint32_t len) {
  CoapRpcCtx *ctx = exchange.ctx;
  CoapRpcSerUriVtbl *entry = exchange.entry;
  if (CoapRpcAsyncIsFull(ctx)) {
    return Refused(exchange, COAP_RPC_LIMIT_OPEN, kSiteReqAsyncTooManyOpen);
  }
  if (!COAP_RpcSvrGetTargetSession(ctx, entry, exchange.session)) {
    return Refused(exchange, COAP_RPC_LIMIT_ASKERS, kSiteReqAsyncNoSession);
  }
  if (CoapRpcAsyncHasBacklog(ctx, entry)) {
    return Refused(exchange, COAP_RPC_LIMIT_ANSWERS, kSiteReqAsyncNoSession);
  }
  if (CoapRpcAsyncIsPeerFull(ctx, entry)) {
    return Refused(exchange, COAP_RPC_LIMIT_OPEN_OF_PEER, kSiteReqAsyncPeerTooManyOpen);
  }
  void *handle = CoapRpcAsyncRegister(ctx, entry, exchange.session, exchange.request);
  if (!handle) return Unavailable(exchange.response, kSiteReqAsyncNotRegistered);
  ++entry->counts.stats.requests;
  CallbackTime time(ctx, entry->key.uri, &entry->counts);
  return entry->reg.onAsyncRequest(entry->reg.userData, payload, len, handle);
}

uint32_t RunMode(const Exchange &exchange, uint8_t *payload, uint32_t len) {
  const CoapRpcMsgInfo info = COAP_RpcGetMsgInfo(exchange.request, exchange.session);
  if (ModeOf(exchange.entry) == kModeSync) return AnswerSync(exchange, payload, len, info);
  if (ModeOf(exchange.entry) == kModeAsync) return AnswerAsync(exchange, payload, len);
  return 0;
}

// HandlePayload gives the entry a NUL-terminated copy of the request's payload.
uint32_t HandlePayload(const Exchange &exchange, const uint8_t *data, size_t len) {
  CoapRpcCtx *ctx = exchange.ctx;
  const uint64_t mem = ctx->param.memHandle;
  const PoolPtr<uint8_t> copy(static_cast<uint8_t *>(PoolAlloc(mem, len + 1)), {mem});
  if (!copy) {
    COAP_RPC_LOG(ctx->log, kLogHandleRequestNoMemory,
                 "[CoapRpc]parse req failed[malloc error], uri:%s.\n",
                 UriText(exchange.entry->key.uri).c_str());
    return Code(kSiteHandleRequestNoMemory);
  }
  memcpy_s(copy.get(), len + 1, data, len);
  LogRequest(exchange, copy.get(), static_cast<uint32_t>(len));
  return RunMode(exchange, copy.get(), static_cast<uint32_t>(len));
}

}  // namespace

uint32_t coap_rpc::AnswerSync(const Exchange &exchange, uint8_t *payload, uint32_t len,
                              const CoapRpcMsgInfo &info) {
  if (!exchange.entry->reg.onRequest) return 0;
  const int32_t result = COAP_GetRpcData(exchange.ctx, exchange.entry, payload, len, &info);
  if (result > kMaxPayload) return Code(kSiteReqSyncTooLong);
  if (result == 0) return 0;
  if (result == kResultChanged) {
    coap_pdu_set_code(exchange.response, COAP_RESPONSE_CODE_CHANGED);
    return Code(kSiteReqSyncChanged);
  }
  if (result < 0) return Code(kSiteReqSyncFailed);
  return AttachAnswer(exchange, static_cast<size_t>(result));
}

uint32_t coap_rpc::AnswerAsync(const Exchange &exchange, uint8_t *payload, uint32_t len) {
  if (coap_pdu_get_code(exchange.request) == COAP_REQUEST_CODE_POST) {
    // Answers travel as POST requests: this one belongs to the client side.
    coap_session_set_app_data(exchange.session, exchange.ctx);
    exchange.ctx->lib->responseHandler(exchange.session, nullptr, exchange.request, 0);
    return 0;
  }
  if (coap_async_is_supported() == 0 || !exchange.entry->reg.onAsyncRequest) {
    return Unavailable(exchange.response, kSiteReqAsyncUnavailable);
  }
  // The application has a retransmitted request already, and an observer's as well.
  if (CoapRpcAsyncIsKnown(exchange.ctx, exchange.entry, exchange.session, exchange.request) ||
      IsNotification(exchange)) {
    return 0;
  }
  return RegisterAsync(exchange, payload, len);
}

bool coap_rpc::IsNotification(const Exchange &exchange) {
  return CoapRpcLibStoredRequest(exchange.resource, exchange.session, exchange.request) ==
         exchange.request;
}

uint32_t coap_rpc::HandleRequest(Exchange &exchange) {
  if (!exchange.ctx) return Code(kSiteHandleRequestNoEntry);
  if (CoapRpcAsyncAnswerRerun(exchange)) return 0;
  exchange.entry = COAP_RpcSerGetVtbl(exchange.ctx, exchange.request, exchange.session);
  if (!exchange.entry) {
    COAP_RPC_LOG(exchange.ctx->log, kLogHandleRequestNoEntry, "[CoapRpc]sever get vtbl faild.");
    return Code(kSiteHandleRequestNoEntry);
  }
  size_t len = 0;
  const uint8_t *data = nullptr;
  if (coap_get_data(exchange.request, &len, &data) == 0 || len == 0) return 0;
  return HandlePayload(exchange, data, len);
}

int32_t COAP_GetRpcData(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry, uint8_t *payload,
                        uint32_t payloadLen, const CoapRpcMsgInfo *info) {
  uint8_t *out = AnswerBuffer(ctx->ser);
  if (!out) return kResultFailed;
  const int32_t result = CallOnRequest(entry, *info, payload, payloadLen, out);
  COAP_RPC_LOG(ctx->log, kLogGetRpcDataOutLen, "[CoapRpc]parse req[outLen: %d], uri:%s.\n", result,
               UriText(entry->key.uri).c_str());
  return result;
}

coap_session_t *COAP_RpcSvrGetTargetSession(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry,
                                            const coap_session_t *session) {
  coap_address_t peer = *coap_session_get_addr_remote(session);
  coap_address_set_port(&peer, kDefaultCoapPort);
  const bool isCached =
      entry->asyncSession &&
      coap_address_equals(coap_session_get_addr_remote(entry->asyncSession), &peer) != 0;
  if (!isCached) AcquireAnswerSession(ctx, entry, peer, coap_session_get_proto(session));
  return entry->asyncSession;
}
