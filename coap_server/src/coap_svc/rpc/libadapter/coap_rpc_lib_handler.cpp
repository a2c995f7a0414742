#include "coap_svc/rpc/libadapter/coap_rpc_lib_handler.h"

#include "coap_svc/rpc/common/coap_rpc_log_site.h"
#include "coap_svc/rpc/libadapter/call/coap_rpc_lib_call_event.h"
#include "coap_svc/rpc/libadapter/call/coap_rpc_lib_call_response.h"
#include "coap_svc/rpc/libadapter/call/coap_rpc_lib_relation.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_data.h"
#include "coap_svc/rpc/libadapter/direct/coap_rpc_lib_direct.h"
#include "coap_svc/rpc/libadapter/direct/coap_rpc_lib_direct_async.h"
#include "coap_svc/rpc/libadapter/message/coap_rpc_lib_lookup.h"
#include "coap_svc/rpc/libadapter/mirror/coap_rpc_lib_mirror_io.h"
#include "coap_svc/rpc/libadapter/publish/coap_rpc_lib_block.h"
#include "coap_svc/rpc/libadapter/publish/coap_rpc_lib_flight.h"
#include "coap_svc/rpc/libadapter/publish/coap_rpc_lib_observe.h"
#include "coap_svc/rpc/libadapter/publish/coap_rpc_lib_payload.h"
#include "coap_svc/rpc/libadapter/rpc_call/coap_rpc_lib_rpc_call_answer.h"
#include "coap_svc/rpc/libadapter/serve/coap_rpc_lib_async.h"
#include "coap_svc/rpc/libadapter/serve/coap_rpc_lib_request.h"
#include "coap_svc/rpc/libadapter/stats/coap_rpc_lib_traffic.h"
#include "coap_svc/rpc/libadapter/sync/coap_rpc_lib_sync.h"
#include "coap_svc/rpc/server/coap_rpc_ser_uri.h"

namespace {

using namespace coap_rpc;

bool IsConfirmable(const coap_pdu_t *request) {
  return coap_pdu_get_type(request) == COAP_MESSAGE_CON;
}

// IsResponse is false for the POST request that answers an asynchronous request.
bool IsResponse(const coap_pdu_t *pdu) { return coap_pdu_get_code(pdu) >= COAP_RESPONSE_CODE(200); }

// ForgetSession drops what refers to a session that libcoap is about to free.
void ForgetSession(const coap_session_t *session) {
  CoapRpcCtx *ctx = CoapRpcLibRootOf(session);
  if (ctx) ForgetSessionBlocks(ctx, session);
}

// NoteFailure handles what became of an asynchronous answer.  A peer that refuses one is there.
// False: the session sends no answers.
bool NoteFailure(coap_session_t *session, coap_nack_reason_t reason) {
  CoapRpcCtx *ctx = CoapRpcLibRootOf(session);
  if (!ctx || !ctx->lib || coap_session_get_type(session) != COAP_SESSION_TYPE_CLIENT) return false;
  if (reason == COAP_NACK_RST || reason == COAP_NACK_BAD_RESPONSE) return false;
  if (reason != COAP_NACK_TOO_MANY_RETRIES) return CoapRpcAsyncFail(ctx, session) != 0;
  return CoapRpcAsyncGiveUp(ctx, session) != 0;
}

// IsAnswerSession says whether a silent peer is one that is only sent answers: no onDisconnect is
// told of it.
bool IsAnswerSession(coap_session_t *session) {
  CoapRpcCtx *ctx = CoapRpcLibRootOf(session);
  return ctx && ctx->lib && CoapRpcAsyncFail(ctx, session) != 0;
}

// EndCallByNack ends the call that a message was of.  False: it was of none.
bool EndCallByNack(coap_session_t *session, const coap_pdu_t *sent, coap_nack_reason_t reason,
                   coap_mid_t mid) {
  CoapRpcCtx *ctx = CoapRpcLibCallerOf(session);
  if (!ctx || !TakeCallNack(ctx, session, sent, reason, mid)) return false;
  if (reason == COAP_NACK_TOO_MANY_RETRIES) CoapRpcCallLeaveStale(session);
  return true;
}

void Retransmitted(coap_session_t *session) {
  if (CoapRpcCtx *ctx = CoapRpcLibCallerOf(session)) CheckCallSource(ctx, session);
  CoapRpcCallRetransmitted(session);
}

}  // namespace

int coap_rpc::HandleOrder(coap_session_t *session, const coap_pdu_t *sent,
                          const coap_pdu_t *received) {
  CoapRpcCtx *ctx = CoapRpcLibCallerOf(session);
  int order = 0;
  if (DropMirrorBlock(session, received, &order)) return order;
  if (ctx && OrderCallResponse(ctx, session, sent, received, &order)) return order;
  return CoapRpcRelationOrder(session, sent, received);
}

void COAP_RpcSerGetHandler(coap_resource_t *resource, coap_session_t *session,
                           const coap_pdu_t *request, const coap_string_t *query,
                           coap_pdu_t *response) {
  if (!request || !response) return;
  Exchange exchange = MakeExchange(resource, session, request, query, response);
  if (AnswerLastBlock(exchange)) return;
  if (ServeSync(exchange) || ServeDirect(exchange)) return;
  const uint32_t ret = HandleRequest(exchange);
  if (!resource || COAP_RpcCheckObserveOption(request) == 0) return;

  exchange.ctx = RootOf(resource);  // a callback may have given the resource up
  NoteObserverQuery(exchange);
  if (ret != 0) {
    COAP_RpcAddUriPath(resource, request, response, session);
  } else {
    UpdateObserver(exchange);
  }
  // A notification without a code is malformed and costs the observer its registration.
  if (coap_pdu_get_code(response) == COAP_EMPTY_CODE && IsNotification(exchange)) {
    coap_pdu_set_code(response, COAP_RESPONSE_CODE_CREATED);
  }
  AcceptObserver(exchange);
}

void COAP_RpcSerPostHandler(coap_resource_t *resource, coap_session_t *session,
                            const coap_pdu_t *request, const coap_string_t *query,
                            coap_pdu_t *response) {
  if (!resource || !request) return;
  Exchange exchange = MakeExchange(resource, session, request, query, response);
  if (ServeDirect(exchange) || HandleRequest(exchange) != 0) return;
  if (response && IsConfirmable(request)) {
    coap_pdu_set_code(response, COAP_RESPONSE_CODE_CREATED);
  }
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

uint32_t COAP_RpcSerHandleRequest(coap_resource_t *resource, coap_session_t *session,
                                  const coap_pdu_t *request, const coap_string_t *query,
                                  coap_pdu_t *response) {
  Exchange exchange = MakeExchange(resource, session, request, query, response);
  return HandleRequest(exchange);
}

uint32_t COAP_RpcSvrHandleReqSync(coap_resource_t *resource, coap_session_t *session,
                                  const coap_pdu_t *request, const coap_string_t *query,
                                  coap_pdu_t *response, CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry,
                                  uint8_t *payload, uint32_t payloadLen,
                                  const CoapRpcMsgInfo *info) {
  return AnswerSync({ctx, entry, resource, session, request, query, response}, payload, payloadLen,
                    *info);
}

uint32_t COAP_RpcSvrHandleReqAsync(coap_resource_t *resource, coap_session_t *session,
                                   const coap_pdu_t *request, const coap_string_t *query,
                                   coap_pdu_t *response, CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry,
                                   uint8_t *payload, uint32_t payloadLen, const CoapRpcMsgInfo *) {
  return AnswerAsync({ctx, entry, resource, session, request, query, response}, payload,
                     payloadLen);
}

void COAP_RpcSerHandleObserveUpdate(coap_resource_t *resource, coap_session_t *session,
                                    const coap_pdu_t *request, const coap_string_t *query,
                                    coap_pdu_t *response) {
  Exchange exchange = MakeExchange(resource, session, request, query, response);
  UpdateObserver(exchange);
}

void COAP_RpcSerHandleJson(CoapRpcSerUriVtbl *entry, coap_resource_t *resource,
                           coap_session_t *session, const coap_pdu_t *request,
                           const coap_string_t *query, coap_pdu_t *response) {
  PublishJson({CoapRpcSerRootOf(entry), entry, resource, session, request, query, response});
}

void COAP_RpcSerHandleIdl(CoapRpcSerUriVtbl *entry, coap_resource_t *resource,
                          coap_session_t *session, const coap_pdu_t *request,
                          const coap_string_t *query, coap_pdu_t *response) {
  PublishIdl({CoapRpcSerRootOf(entry), entry, resource, session, request, query, response});
}

void COAP_RpcNackhandler(coap_session_t *session, const coap_pdu_t *sent,
                         const coap_nack_reason_t reason, const coap_mid_t mid) {
  if (TakeMirrorNack(session, sent, reason)) return;
  CountNack(session, reason, mid);
  if (NoteNack(session, sent, reason, mid) || NoteDirectNack(session, sent, reason)) return;
  if (NoteFailure(session, reason) || EndCallByNack(session, sent, reason, mid)) return;
  CoapRpcCallGiveUp(session, sent, reason, mid);
}

coap_response_t COAP_RpcCliResponseHandler(coap_session_t *session, const coap_pdu_t *sent,
                                           const coap_pdu_t *received, const coap_mid_t) {
  if (received && TakeMirrorMessage(session, received)) return COAP_RESPONSE_OK;
  CoapRpcCtx *ctx = CoapRpcLibCallerOf(session);
  if (!ctx || !ctx->cli || !received) return COAP_RESPONSE_OK;
  coap_response_t result = COAP_RESPONSE_OK;
  if (IsResponse(received) && TakeCallAnswer(ctx, session, received, &result)) return result;
  return CoapRpcCallTakeResponse(session, sent, received);
}

int COAP_RpcEventHandler(coap_session_t *session, const coap_event_t event) {
  CountEvent(session, event);
  if (event == COAP_EVENT_KEEPALIVE_FAILURE && !IsAnswerSession(session)) {
    COAP_RpcDisConnectedEventHandler(session);
  }
  if (event == COAP_EVENT_MSG_RETRANSMITTED) Retransmitted(session);
  if (event == COAP_EVENT_BAD_PACKET) CountBadPacket(session);
  if (event == COAP_EVENT_SERVER_SESSION_DEL) ForgetSession(session);
  return 0;
}
