#include "coap_svc/rpc/libadapter/serve/coap_rpc_lib_async.h"

#include <algorithm>

#include "coap_svc/rpc/coap_rpc_ext.h"
#include "coap_svc/rpc/common/coap_rpc_limits.h"
#include "coap_svc/rpc/common/coap_rpc_log_site.h"
#include "coap_svc/rpc/common/coap_rpc_own.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_data.h"
#include "coap_svc/rpc/libadapter/direct/coap_rpc_lib_direct_async.h"
#include "coap_svc/rpc/libadapter/message/coap_rpc_lib_clock.h"
#include "coap_svc/rpc/libadapter/serve/coap_rpc_lib_async_queue.h"
#include "coap_svc/rpc/server/coap_rpc_ser_uri.h"
#include "libcoap/ext/coap_rpc_lib_internals.h"

using namespace coap_rpc;

namespace {

RequestId MakeRequestId(const CoapRpcSerUriVtbl *entry, const coap_session_t *session,
                        const coap_pdu_t *request) {
  RequestId id = {};
  const coap_bin_const_t token = coap_pdu_get_token(request);
  id.entry = entry;
  id.peer = PeerKeyOf(*coap_session_get_addr_remote(session), coap_session_get_proto(session));
  id.mid = coap_pdu_get_mid(request);
  id.tokenLen = token.length;
  if (token.length != 0) memcpy(id.token, token.s, std::min(token.length, kMaxTokenLen));
  return id;
}

bool CanBeRepeated(const CoapRpcAsync *async) {
  return !HasPassed(async->arrived, kExchangeLifetimeMs);
}

// ForEachSegment calls `work` with the bytes of each segment of a message's path.
template <typename Work>
void ForEachSegment(const coap_pdu_t *pdu, Work work) {
  coap_opt_iterator_t it;
  coap_option_iterator_init(pdu, &it, COAP_OPT_ALL);
  while (const coap_opt_t *option = coap_option_next(&it)) {
    if (it.number != COAP_OPTION_URI_PATH) continue;
    work(coap_opt_value(option), static_cast<uint8_t>(coap_opt_length(option)));
  }
}

uint32_t PathLenOf(const coap_pdu_t *request) {
  uint32_t len = 0;
  ForEachSegment(request, [&](const uint8_t *, uint8_t segmentLen) { len += 1u + segmentLen; });
  return len;
}

void StorePath(CoapRpcAsync *async, const coap_pdu_t *request) {
  auto *to = reinterpret_cast<uint8_t *>(async + 1);
  ForEachSegment(request, [&](const uint8_t *segment, uint8_t len) {
    *to++ = len;
    if (len != 0) memcpy(to, segment, len);
    to += len;
  });
}

void RestoreToken(const RequestId &request, coap_pdu_t *response) {
  if (request.tokenLen == 0 || request.tokenLen > kMaxTokenLen) return;
  const coap_bin_const_t token{static_cast<size_t>(request.tokenLen), request.token};
  CoapRpcLibSetToken(response, &token);
}

AnswerSession *CachedAnswerSession(const CoapRpcSerUriVtbl *entry) {
  return static_cast<AnswerSession *>(entry->lib.answerSession);
}

}  // namespace

int CoapRpcAsyncIsKnown(CoapRpcCtx *ctx, const CoapRpcSerUriVtbl *entry,
                        const coap_session_t *session, const coap_pdu_t *request) {
  const RequestId id = MakeRequestId(entry, session, request);
  const CoapRpcAsync *async = FindAsyncRequest(ctx, id);
  const bool isKnown = async && CanBeRepeated(async);
  if (isKnown) ++ctx->counts.repeats;
  return isKnown;
}

int CoapRpcAsyncHasBacklog(const CoapRpcCtx *ctx, const CoapRpcSerUriVtbl *entry) {
  const AnswerSession *sender = CachedAnswerSession(entry);
  return sender->numQueued + CoapRpcLibNumDelayed(sender->session) >= MaxQueuedAnswers(ctx);
}

int CoapRpcAsyncIsPeerFull(const CoapRpcCtx *ctx, const CoapRpcSerUriVtbl *entry) {
  return !MayOpen(ctx->lib, CachedAnswerSession(entry)->peer->numOpen);
}

int CoapRpcAsyncIsFull(const CoapRpcCtx *ctx) { return ctx->lib->numOpenAsync >= kMaxOpenAsync; }

void *CoapRpcAsyncRegister(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry, const coap_session_t *session,
                           const coap_pdu_t *request) {
  const uint32_t pathLen = PathLenOf(request);
  auto async = NewZeroed<CoapRpcAsync>(ctx->param.memHandle, pathLen);
  if (!async) return nullptr;
  async->id = ++ctx->lib->lastAsyncId;
  async->request = MakeRequestId(entry, session, request);
  async->arrived = NowTicks();
  async->ctx = ctx;
  async->entry = entry;
  async->sender = CachedAnswerSession(entry);
  async->type = static_cast<uint8_t>(coap_pdu_get_type(request));
  async->code = static_cast<uint8_t>(coap_pdu_get_code(request));
  async->pathLen = pathLen;
  StorePath(async.get(), request);
  EnlistAsync(async.get());
  return reinterpret_cast<void *>(async.release()->id);
}

bool coap_rpc::CoapRpcAsyncAnswerRerun(const Exchange &exchange) {
  CoapRpcAsync *async = FindRunningAsync(exchange.ctx, exchange.session, exchange.request);
  if (!async) return false;
  CoapRpcPayload *answer = async->answer;
  async->answer = nullptr;
  if (answer) {
    COAP_RpcSvrHandleSetResponseHeader(exchange.response, async->entry, async->ctx);
    coap_add_data_large_response(exchange.resource, exchange.session, exchange.request,
                                 exchange.response, exchange.query, COAP_MEDIATYPE_APPLICATION_JSON,
                                 -1, 0, answer->len, answer->data, COAP_RpcReleaseAsyncRequest,
                                 answer);
  } else if (coap_pdu_get_type(exchange.request) == COAP_MESSAGE_CON) {
    coap_pdu_set_code(exchange.response, COAP_RESPONSE_CODE_CONTENT);
  }
  RestoreToken(async->request, exchange.response);
  DropAsync(async);
  return true;
}

void COAP_RpcSvrHandleSetResponseHeader(coap_pdu_t *response, const CoapRpcSerUriVtbl *entry,
                                        CoapRpcCtx *ctx) {
  coap_pdu_set_code(response, static_cast<coap_pdu_code_t>(COAP_REQUEST_CODE_POST));
  if (entry->key.msgType == COAP_RPC_CON || entry->key.msgType == COAP_RPC_NON) {
    coap_pdu_set_type(response, static_cast<coap_pdu_type_t>(entry->key.msgType));
  }
  COAP_RpcSetUriPath(ctx, response, UriText(entry->key.uri).c_str());
}

int CoapRpcAsyncFail(CoapRpcCtx *ctx, coap_session_t *session) {
  AnswerSession *sender = FindAnswerSession(ctx, session);
  if (sender) FailAnswerSession(ctx, sender);
  return sender != nullptr;
}

int CoapRpcAsyncGiveUp(CoapRpcCtx *ctx, coap_session_t *session) {
  AnswerSession *sender = FindAnswerSession(ctx, session);
  if (!sender) return 0;
  CoapRpcLibDropDelayed(session);
  DropQueuedAsync(sender);
  FailAnswerSession(ctx, sender);
  return 1;
}

void CoapRpcAsyncForgetEntry(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry) {
  if (!ctx->lib) return;
  AllSessions(ctx->lib->answerSessionList).ForEach([=](AnswerSession *sender) {
    if (entry && sender->key.entry != entry) return;
    DropAllAsync(sender);
    CloseAnswerSession(ctx, sender);
  });
}

void CoapRpcAsyncStop(CoapRpcCtx *ctx) { CoapRpcAsyncForgetEntry(ctx, nullptr); }

uint32_t COAP_RpcSerSendAsyncResponse(CoapRpcCtx *ctx, void *handle, const uint8_t *data,
                                      uint32_t len) {
  if (!ctx || !handle || !data) return Code(kSiteSendAsyncNullArg);
  CoapRpcAsync *async = FindAsync(ctx, reinterpret_cast<uintptr_t>(handle));
  if (!async) return AnswerDirect(ctx, handle, data, len);
  CoapRpcPayload *answer = COAP_RpcNewPayload(ctx, data, len);
  if (!answer) return Code(kSiteSendAsyncNoMemory);
  COAP_RpcLogMemDump(data, static_cast<int32_t>(len), "COAP_RpcSerSendAsyncResponse", ctx->log);
  SetAsyncAnswer(async, answer);
  return 0;
}

uint32_t COAP_RpcSerAbortAsyncResponse(CoapRpcCtx *ctx, void *handle) {
  if (!ctx || !handle) return Code(kSiteAbortAsyncNullArg);
  CoapRpcAsync *async = FindAsync(ctx, reinterpret_cast<uintptr_t>(handle));
  if (!async) return AbortDirect(ctx, handle);
  SetAsyncAnswer(async, nullptr);
  return 0;
}

void COAP_RpcReleaseAsyncRequest(coap_session_t *, void *payload) {
  COAP_RpcFreePayload(static_cast<CoapRpcPayload *>(payload));
}

uint32_t COAP_RpcGetOpenAsyncNum(const CoapRpcCtx *ctx) {
  return ctx && ctx->lib ? ctx->lib->numOpenAsync : 0;
}
