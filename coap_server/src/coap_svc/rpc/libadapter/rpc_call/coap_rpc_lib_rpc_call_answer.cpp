/* coap_rpc_lib_rpc_call_answer.cpp: what libcoap tells of calls.
 *
 * The tokens of calls have eight bytes, those that a session counts for base requests fewer.  So
 * once an instance has made a call, a response with a token of eight bytes is for calls, of
 * whatever call it may be: one that has ended is not known any more, and its answer must not become
 * a base request's because of its path.  Such a response is refused, which ends notifications of a
 * server that goes on (RFC 7641 section 3.6), unless it has answered a call: then its
 * acknowledgement is lost, and it is acknowledged again.
 *
 * What libcoap needs for an answer in blocks is kept with the call until an answer is there:
 * libcoap looks through all that it has of a session with each message.  An ICMP error ends the
 * call whose datagram it quotes; without a quotation the call has its deadline. */
#include "coap_svc/rpc/libadapter/rpc_call/coap_rpc_lib_rpc_call_answer.h"

#include <utility>

#include "coap_svc/rpc/libadapter/coap_rpc_lib_data.h"
#include "coap_svc/rpc/libadapter/message/coap_rpc_lib_order.h"
#include "coap_svc/rpc/libadapter/rpc_call/coap_rpc_lib_rpc_call.h"
#include "coap_svc/rpc/libadapter/rpc_call/coap_rpc_lib_rpc_call_peer.h"
#include "coap_svc/rpc/libadapter/rpc_call/coap_rpc_lib_rpc_call_share.h"
#include "coap_svc/rpc/libadapter/rpc_call/coap_rpc_lib_rpc_call_watch.h"
#include "libcoap/ext/coap_rpc_lib_end_request.h"
#include "libcoap/ext/coap_rpc_lib_internals.h"
#include "libcoap/ext/coap_rpc_lib_quoted.h"
#include "libcoap/ext/coap_rpc_lib_source.h"

namespace coap_rpc {
namespace {

constexpr uint32_t kMaxErrorsPerRead = 64;  // the others follow at once

CoapRpcCalls *CallsOf(const CoapRpcCtx *ctx) { return ctx && ctx->lib ? ctx->lib->calls : nullptr; }

// FindOn finds the call of a token that libcoap has on a session.
RpcCall *FindOn(const CoapRpcCalls *calls, const coap_session_t *session,
                const coap_bin_const_t &token) {
  RpcCall *call = FindRpcCall(calls, IdOf(token));
  if (!call || call->state == CallState::kQueued || IsFollower(*call)) return nullptr;
  return SessionOf(*call) == session ? call : nullptr;
}

// FindNon finds the NON call that a message of its peer's names.
RpcCall *FindNon(CoapRpcCtx *ctx, coap_session_t *session, coap_mid_t mid) {
  RpcCallPeer *peer = FindCallPeer(ctx, session);
  if (!peer) return nullptr;
  return CallsOfPeer(peer->sentList).FindIf([mid](const RpcCall &call) {
    return call.isNon != 0 && call.mid == mid && call.state == CallState::kSent;
  });
}

RpcCall *FindSent(CoapRpcCtx *ctx, coap_session_t *session, const coap_pdu_t *sent,
                  coap_nack_reason_t reason, coap_mid_t mid) {
  if (sent) return FindOn(CallsOf(ctx), session, CoapRpcLibRequestToken(session, sent));
  return reason == COAP_NACK_RST ? FindNon(ctx, session, mid) : nullptr;
}

uint32_t StatusOf(coap_nack_reason_t reason) {
  if (reason == COAP_NACK_RST) return COAP_RPC_CALL_RESET;
  return reason == COAP_NACK_TOO_MANY_RETRIES ? COAP_RPC_CALL_TIMEOUT : COAP_RPC_CALL_UNREACHABLE;
}

// IsGuess says whether libcoap has only guessed which message a socket's error was about.
bool IsGuess(const coap_session_t *session, coap_nack_reason_t reason) {
  return reason == COAP_NACK_ICMP_ISSUE && CoapRpcLibQuotesErrors(session) != 0;
}

bool AwaitsAnswer(const RpcCall &call) {
  return call.state == CallState::kSent || call.state == CallState::kLeaving;
}

// EndRefused ends the call whose datagram found nobody, and says whether it was a call's.
bool EndRefused(CoapRpcCtx *ctx, const coap_session_t *session, const CoapRpcLibQuoted &quoted) {
  if (quoted.isRequest == 0 || !CallsOf(ctx)) return false;
  RpcCall *call = FindOn(CallsOf(ctx), session, {quoted.tokenLen, quoted.token});
  if (!call) return quoted.tokenLen == sizeof(call->id);
  if (AwaitsAnswer(*call) && LinkIsAlone(call->endLink)) {
    ++ctx->counts.nacks[COAP_RPC_NACK_UNREACHABLE];
    EndCall(ctx, call, COAP_RPC_CALL_UNREACHABLE);
  }
  return true;
}

void Take(CoapRpcCtx *ctx, RpcCall *call, const coap_pdu_t *received) {
  if (!call->watch) {
    AnswerCall(ctx, call, received);
  } else if (!IsOvertaken(ctx->cli, &call->watch->relation, received)) {
    TakeNotification(ctx, call, received);
  }
}

// TakeFarewell takes what comes for an observation that the application has left.
void TakeFarewell(CoapRpcCtx *ctx, RpcCall *call, const coap_pdu_t *received) {
  const bool isOver = COAP_RpcCheckObserveOption(received) == 0 && LinkIsAlone(call->endLink);
  if (isOver) AnswerCall(ctx, call, received);
}

// IsForCalls says whether a response is for calls, by its token; `call` is null when the call has
// ended or never was.
bool IsForCalls(const CoapRpcCtx *ctx, const coap_session_t *session, const coap_pdu_t *received,
                RpcCall **call) {
  const CoapRpcCalls *calls = CallsOf(ctx);
  if (!calls) return false;
  const coap_bin_const_t token = coap_pdu_get_token(received);
  *call = FindOn(calls, session, token);
  return token.length == sizeof(uint64_t);
}

// RelationOf returns the relation of an observation; null for a call that is none, and for null.
CoapRpcCliRelation *RelationOf(const RpcCall *call) {
  const bool isWatching = call && call->watch && call->state != CallState::kLeaving;
  return isWatching ? &call->watch->relation : nullptr;
}

// EndTooLong ends a call whose answer in blocks is longer than it may be, and says whether it did.
bool EndTooLong(CoapRpcCtx *ctx, const coap_session_t *session, const coap_pdu_t *received) {
  const CoapRpcCalls *calls = CallsOf(ctx);
  coap_block_t block;
  if (!calls || coap_get_block(received, COAP_OPTION_BLOCK2, &block) == 0) return false;
  RpcCall *call = FindOn(calls, session, CoapRpcLibRequestToken(session, received));
  if (!call) return false;
  if ((uint64_t{block.num} << (block.szx + 4)) < COAP_RPC_MAX_CALL_PAYLOAD) return false;
  FailCall(ctx, call);
  return true;
}

}  // namespace

bool TakeCallAnswer(CoapRpcCtx *ctx, coap_session_t *session, const coap_pdu_t *received,
                    coap_response_t *result) {
  RpcCall *call = nullptr;
  if (!IsForCalls(ctx, session, received, &call)) return false;
  const bool isKnown = call || IsAnswerAgain(ctx->lib->calls, received);
  *result = isKnown ? COAP_RESPONSE_OK : COAP_RESPONSE_FAIL;
  if (!call) {
    ++ctx->lib->calls->numDropped;
  } else if (call->state == CallState::kLeaving) {
    TakeFarewell(ctx, call, received);
  } else {
    Take(ctx, call, received);
  }
  return true;
}

bool OrderCallResponse(CoapRpcCtx *ctx, coap_session_t *session, const coap_pdu_t *sent,
                       const coap_pdu_t *received, int *order) {
  *order = kCoapRpcLibOld;
  if (EndTooLong(ctx, session, received)) return true;
  RpcCall *call = nullptr;
  if (!IsForCalls(ctx, session, received, &call)) return false;
  if (call) CoapRpcLibGiveBack(session, std::exchange(call->kept, nullptr));
  CoapRpcCliRelation *rel = RelationOf(call);
  *order = rel ? OrderResponse(ctx->cli, rel, session, sent, received) : int{kCoapRpcLibFresh};
  return true;
}

bool TakeCallNack(CoapRpcCtx *ctx, coap_session_t *session, const coap_pdu_t *sent,
                  coap_nack_reason_t reason, coap_mid_t mid) {
  RpcCall *call = CallsOf(ctx) ? FindSent(ctx, session, sent, reason, mid) : nullptr;
  if (!call) return false;
  if (reason == COAP_NACK_BAD_RESPONSE) {
    ++ctx->lib->calls->numDropped;
  } else if (LinkIsAlone(call->endLink) && !IsGuess(session, reason)) {
    EndCall(ctx, call, StatusOf(reason));
  }
  return true;
}

int TakeCallErrors(coap_session_t *session) {
  CoapRpcCtx *ctx = CoapRpcLibCallerOf(session);
  CoapRpcLibQuoted quoted;
  bool isAny = false;
  bool isForOthers = false;
  for (uint32_t left = kMaxErrorsPerRead; left != 0; --left) {
    if (CoapRpcLibNextQuoted(session, &quoted) == 0) break;
    isAny = true;
    if (quoted.isFinal != 0 && !EndRefused(ctx, session, quoted)) isForOthers = true;
  }
  return isAny && !isForOthers ? 1 : 0;
}

int KeepCallAnswer(coap_session_t *session, coap_lg_crcv_t *answer) {
  const CoapRpcCalls *calls = CallsOf(CoapRpcLibCallerOf(session));
  RpcCall *call = calls ? FindOn(calls, session, CoapRpcLibTokenOf(answer)) : nullptr;
  if (!call || call->watch || call->kept || CoapRpcLibCanBeKept(answer) == 0) return 0;
  call->kept = answer;
  return 1;
}

void CheckCallSource(CoapRpcCtx *ctx, coap_session_t *session) {
  if (!CallsOf(ctx) || !FindCallPeer(ctx, session) || CoapRpcLibIsCutOff(session) == 0) return;
  // A callback may start another call there: it finds out at its start.
  while (RpcCallPeer *peer = FindCallPeer(ctx, session)) {
    RpcCall *call = FirstOf(peer);
    if (!call) return;
    EndCall(ctx, call, COAP_RPC_CALL_UNREACHABLE);
  }
}

void CountBadPacket(coap_session_t *session) {
  CoapRpcCtx *ctx = CoapRpcLibRootOf(session);
  if (CallsOf(ctx) && FindCallPeer(ctx, session)) ++ctx->lib->calls->numDropped;
}

}  // namespace coap_rpc
