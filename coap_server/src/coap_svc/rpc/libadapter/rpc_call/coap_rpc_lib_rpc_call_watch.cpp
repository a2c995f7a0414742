/* coap_rpc_lib_rpc_call_watch.cpp: observations (RFC 7641).
 *
 * An observation is a call with an Observe option, whose record stays when it is answered.  Its
 * token stays the same, so whatever has it belongs to the observation; the order of notifications
 * is that of base relations (coap_rpc_lib_order.h), asked before anything is done with a
 * message.
 *
 *   sent      a registration is unanswered; the call's deadline counts.  Notifications may come
 *             meanwhile, and count as the answer
 *   watched   the latest message was accepted and has Observe.  It is fresh for its Max-Age; 5 to
 *             15 s later the observation is sent again (RFC 7641 section 3.3.1), unless a payload
 *             is coming in in blocks, which that would end
 *   leaving   the application has cancelled: what is still being sent is stopped, and a GET with
 *             Observe 1 tells the server.  Its answer frees the record, or time does
 *
 * A payload whose blocks do not fit together is not told: the state is asked for again, soon.
 * libcoap says so with 4.08, and leaves the Observe option, which no error of a server has.
 *
 * Observations of the same are registered once (coap_rpc_lib_rpc_call_share.cpp).
 *
 * Any other message without Observe, or with an error code, ends the observation, and so does
 * whatever ends a call. */
#include "coap_svc/rpc/libadapter/rpc_call/coap_rpc_lib_rpc_call_watch.h"

#include "coap_svc/rpc/common/coap_rpc_limits.h"
#include "coap_svc/rpc/common/coap_rpc_own.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_data.h"
#include "coap_svc/rpc/libadapter/message/coap_rpc_lib_clock.h"
#include "coap_svc/rpc/libadapter/message/coap_rpc_lib_order.h"
#include "coap_svc/rpc/libadapter/rpc_call/coap_rpc_lib_rpc_call.h"
#include "coap_svc/rpc/libadapter/rpc_call/coap_rpc_lib_rpc_call_peer.h"
#include "coap_svc/rpc/libadapter/rpc_call/coap_rpc_lib_rpc_call_share.h"
#include "coap_svc/rpc/libadapter/rpc_call/coap_rpc_lib_rpc_call_timer.h"
#include "libcoap/ext/coap_rpc_lib_end_request.h"
#include "libcoap/ext/coap_rpc_lib_internals.h"

namespace coap_rpc {
namespace {

constexpr uint32_t kClassSuccess = 2;

bool IsAccepted(const coap_pdu_t *message) {
  return COAP_RESPONSE_CLASS(coap_pdu_get_code(message)) == kClassSuccess &&
         COAP_RpcCheckObserveOption(message) != 0;
}

// IsBroken says whether libcoap could not put a notification together.
bool IsBroken(const coap_pdu_t *message) {
  return coap_pdu_get_code(message) == COAP_RESPONSE_CODE_INCOMPLETE &&
         COAP_RpcCheckObserveOption(message) != 0;
}

uint64_t MaxAgeMs(const coap_pdu_t *message) {
  coap_opt_iterator_t it;
  const coap_opt_t *opt = coap_check_option(message, COAP_OPTION_MAXAGE, &it);
  if (!opt) return uint64_t{COAP_DEFAULT_MAX_AGE} * 1000;
  return uint64_t{coap_decode_var_bytes(coap_opt_value(opt), coap_opt_length(opt))} * 1000;
}

uint64_t PatienceMs() {
  uint16_t drawn = 0;
  coap_prng(&drawn, sizeof(drawn));
  return kMinRenewalDelayMs + drawn % (kMaxRenewalDelayMs - kMinRenewalDelayMs + 1);
}

coap_pdu_t *Renewal(const RpcCall &call) {
  const coap_bin_const_t token = TokenOf(call);
  return coap_pdu_duplicate(call.watch->request, SessionOf(call), token.length, token.s, nullptr);
}

bool Register(RpcCall *call) {
  coap_pdu_t *pdu = Renewal(*call);
  if (!pdu || !SendAgain(call, pdu)) return false;
  AwaitAnswer(&call->watch->relation);
  return true;
}

}  // namespace

bool BeginWatch(CoapRpcCtx *ctx, RpcCall *call) {
  call->watch = NewZeroed<CallWatch>(ctx->param.memHandle).release();
  if (!call->watch) return false;
  call->watch->call = call;
  LinkInit(call->watch->followers);
  LinkInit(call->watch->followLink);
  call->watch->request = coap_pdu_duplicate(call->pdu, SessionOf(*call), 0, nullptr, nullptr);
  AwaitAnswer(&call->watch->relation);
  return call->watch->request != nullptr;
}

void TakeNotification(CoapRpcCtx *ctx, RpcCall *call, const coap_pdu_t *message) {
  if (IsBroken(message)) {
    call->state = CallState::kWatched;
    WaitFor(ctx, call, kMinRenewalDelayMs);
    return;
  }
  if (!IsAccepted(message)) {
    AnswerCall(ctx, call, message);
    return;
  }
  call->state = CallState::kWatched;
  WaitFor(ctx, call, MaxAgeMs(message) + PatienceMs());
  const RpcCall told = *call;
  call->sentUs = 0;
  if (told.onRsp) TellCall(ctx, told, message, 0);
  TellFollowers(ctx, call, message);
}

void RenewWatch(CoapRpcCtx *ctx, RpcCall *call) {
  if (IsFollower(*call)) {
    WaitFor(ctx, call, UINT32_MAX);
    return;
  }
  const coap_bin_const_t token = TokenOf(*call);
  if (ctx->ioDepth != 0 || CoapRpcLibIsReceiving(SessionOf(*call), &token, kIncomingIdleMs) != 0) {
    WaitFor(ctx, call, kMinRenewalDelayMs);
    return;
  }
  if (!Register(call)) {
    EndCall(ctx, call, COAP_RPC_CALL_UNREACHABLE);
    return;
  }
  call->state = CallState::kSent;
  WaitFor(ctx, call, call->deadlineMs);
}

bool LeaveWatch(RpcCall *call) {
  coap_session_t *session = SessionOf(*call);
  const coap_bin_const_t token = TokenOf(*call);
  coap_binary_t name = {token.length, reinterpret_cast<uint8_t *>(&call->id)};
  CoapRpcLibStopSending(session, &token);
  CoapRpcLibAllowCancel(session, &name);
  return coap_cancel_observe(session, &name,
                             call->isNon != 0 ? COAP_MESSAGE_NON : COAP_MESSAGE_CON) != 0;
}

}  // namespace coap_rpc
