/* coap_rpc_lib_rpc_call.cpp: the life of a call.
 *
 * A call goes through these states:
 *
 *   queued    its message is built, but its session has as many CON messages unacknowledged as it
 *             may (NSTART).  The end of each turn of the I/O sends the first of such a session
 *   sent      libcoap has the message: it repeats it, sends the payload in blocks and puts the
 *             answer together.  An empty acknowledgement changes nothing here
 *   watched   observations only: the server has accepted the registration, and its latest
 *             notification is fresh (coap_rpc_lib_rpc_call_watch.cpp)
 *   leaving   a cancelled observation, whose server is told.  Nobody waits for the outcome
 *   ended     the application has been told.  libcoap may still be using the transfers of the call,
 *             so they are dropped after the turn; then the record is freed
 *
 * Who ends a call:
 *
 *   an answer                 coap_rpc_lib_rpc_call_answer.cpp, by its token
 *   a reset, an ICMP error,   the same, by the token of what was sent
 *   no acknowledgement
 *   a deadline                the timer
 *   the application           COAP_RpcCallCancel, and COAP_RpcUninit for all
 *   its source is gone        a transmission that is repeated finds out
 *
 * All deadlines hang on one timer of the host, set to the earliest.  When that call ends early the
 * timer stays as it is and finds nothing due.  An observation's time is when to register again.
 *
 * At most kMaxCalls are under way.  A call costs about 300 bytes, its message and its payload. */
#include "coap_svc/rpc/libadapter/rpc_call/coap_rpc_lib_rpc_call.h"

#include <utility>

#include "coap_svc/rpc/client/coap_rpc_cli_data.h"
#include "coap_svc/rpc/common/coap_rpc_limits.h"
#include "coap_svc/rpc/common/coap_rpc_own.h"
#include "coap_svc/rpc/common/coap_rpc_sites.h"
#include "coap_svc/rpc/common/coap_rpc_stopwatch.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_data.h"
#include "coap_svc/rpc/libadapter/message/coap_rpc_lib_clock.h"
#include "coap_svc/rpc/libadapter/rpc_call/coap_rpc_lib_rpc_call_pdu.h"
#include "coap_svc/rpc/libadapter/rpc_call/coap_rpc_lib_rpc_call_peer.h"
#include "coap_svc/rpc/libadapter/rpc_call/coap_rpc_lib_rpc_call_share.h"
#include "coap_svc/rpc/libadapter/rpc_call/coap_rpc_lib_rpc_call_timer.h"
#include "coap_svc/rpc/libadapter/rpc_call/coap_rpc_lib_rpc_call_watch.h"
#include "libcoap/ext/coap_rpc_lib_end_request.h"
#include "libcoap/ext/coap_rpc_lib_internals.h"

namespace coap_rpc {
namespace {

constexpr uint32_t kRequestIncomplete = 408;

uint64_t NowUs() { return MonotonicNs() / 1000; }

// RttUs counts the time of an answer; 0 for a notification.
uint64_t RttUs(CoapRpcCtx *ctx, const RpcCall &call) {
  if (call.sentUs == 0) return 0;
  const uint64_t us = NowUs() - call.sentUs;
  ctx->counts.callNs += us * 1000;
  CountTime(ctx->counts.callTimes, us * 1000);
  return us;
}

// CallOnRsp tells the application of an answer or an end.
void CallOnRsp(CoapRpcCtx *ctx, CoapRpcOnCallRsp onRsp, uint64_t userData,
               const CoapRpcCallRsp &rsp) {
  CoapRpcStats &counts = ctx->counts;
  ++(rsp.isLast != 0 ? counts.callEnds[rsp.status] : counts.callNotifications);
  CallbackTime time(ctx, "", nullptr);
  onRsp(userData, &rsp);
}

uint32_t Open(CoapRpcCtx *ctx, CoapRpcCalls **out) {
  CoapRpcLibCtx *lib = ctx->lib;
  if (!lib->calls) lib->calls = NewZeroed<CoapRpcCalls>(ctx->param.memHandle).release();
  *out = lib->calls;
  if (!*out) return Code(kSiteCallNoMemory);
  if ((*out)->isStopping != 0) return Code(kSiteCallNoSession);
  if ((*out)->num < kMaxCalls) return 0;
  ++ctx->counts.refused[COAP_RPC_LIMIT_CALLS];
  return Code(kSiteCallTooMany);
}

PoolPtr<RpcCall> NewCall(CoapRpcCtx *ctx, const CoapRpcCall &call) {
  auto out = NewZeroed<RpcCall>(ctx->param.memHandle);
  if (!out) return out;
  LinkInit(out->peerLink);
  LinkInit(out->endLink);
  out->deadlineMs = call.deadlineMs != 0 ? call.deadlineMs : COAP_RPC_CALL_DEADLINE_MS;
  out->isNon = call.isNon;
  out->userData = call.userData;
  out->onRsp = call.onRsp;
  return out;
}

// TakePayload puts a payload that fits into a call's message, and keeps a copy of a longer one: the
// caller may free all that it gave.
bool TakePayload(CoapRpcCtx *ctx, const CoapRpcCall &request, RpcCall *call) {
  if (request.payloadLen == 0) return true;
  if (CoapRpcLibFits(call->pdu, request.payloadLen) != 0) {
    return coap_add_data(call->pdu, request.payloadLen, request.payload) != 0;
  }
  call->payload = COAP_RpcNewPayload(ctx, request.payload, request.payloadLen);
  return call->payload != nullptr;
}

// Hand gives a call's message to libcoap, which owns it from then on.
bool Hand(RpcCall *call) {
  coap_pdu_t *pdu = std::exchange(call->pdu, nullptr);
  coap_session_t *session = SessionOf(*call);
  call->state = CallState::kSent;
  call->sentUs = NowUs();
  coap_pdu_set_mid(pdu, coap_new_message_id(session));
  const bool isWhole = AddCallBlocks(session, pdu, std::exchange(call->payload, nullptr));
  if (isWhole && CoapRpcLibExpectAnswer(session, pdu) != 0) return SendAgain(call, pdu);
  coap_delete_pdu(pdu);
  return false;
}

// Launch queues a call, and sends it when nobody is before it; an observation may need no message.
uint32_t Launch(CoapRpcCtx *ctx, CoapRpcCalls *calls, RpcCall *call) {
  if (call->watch && JoinShare(ctx, call)) return 0;
  const bool hasTurn = HasTurn(*call->peer, call->isNon != 0);
  if (!hasTurn) {
    QueueCall(calls, call);
    return 0;
  }
  MoveToSent(calls, call);
  return Hand(call) ? 0 : Code(kSiteCallNotSent);
}

void Drop(CoapRpcCtx *ctx, CoapRpcCalls *calls, RpcCall *call) {
  const coap_bin_const_t token = TokenOf(*call);
  CoapRpcLibEndRequest(SessionOf(*call), &token);
  LeavePeer(ctx, calls, call);
  FreeRpcCall(ctx, call);
}

// Prepare gives a call its token and message.
uint32_t Prepare(CoapRpcCtx *ctx, CoapRpcCalls *calls, const CoapRpcCall &request, bool isObserve,
                 RpcCall *call) {
  call->startedAt = NowTicks();
  const coap_tick_t dueAt = call->startedAt + TicksOfMs(call->deadlineMs);
  if (!AddRpcCall(ctx, calls, call, dueAt)) return Code(kSiteCallNoMemory);
  uint32_t ret = BuildCall(SessionOf(*call), request, TokenOf(*call), isObserve, &call->pdu);
  if (ret == 0 && !TakePayload(ctx, request, call)) ret = Code(kSiteCallNoMemory);
  if (ret == 0 && isObserve && !BeginWatch(ctx, call)) ret = Code(kSiteCallNoMemory);
  if (ret == 0 && !SetCallTimer(ctx)) ret = Code(kSiteCallNoTimer);
  if (ret != 0) RemoveRpcCall(calls, call);
  return ret;
}

// Start makes the call whose peer is open.  What is left of one that fails is dropped.
uint32_t Start(CoapRpcCtx *ctx, CoapRpcCalls *calls, const CoapRpcCall &request, bool isObserve,
               RpcCall *call, uint64_t *id) {
  uint32_t ret = Prepare(ctx, calls, request, isObserve, call);
  if (ret == 0) {
    *id = call->id;
    ret = Launch(ctx, calls, call);
    if (ret != 0) RemoveRpcCall(calls, call);
  }
  if (ret != 0) {
    Drop(ctx, calls, call);
  } else {
    ++ctx->counts.calls;
  }
  return ret;
}

void LeaveServer(CoapRpcCtx *ctx, RpcCall *call);

void TakeOff(CoapRpcCtx *ctx, RpcCall *call) {
  CoapRpcCalls *calls = ctx->lib->calls;
  RemoveRpcCall(calls, call);
  TakeOffPeer(calls, call);
  LinkRemove(call->endLink);
  call->state = CallState::kEnded;
  RpcCall *unheard = LeaveShare(call);
  if (unheard && calls->isStopping == 0) LeaveServer(ctx, unheard);
}

CoapRpcCallRsp RspOf(const RpcCall &call, uint32_t status) {
  CoapRpcCallRsp rsp = {};
  rsp.id = call.id;
  rsp.status = status;
  rsp.isLast = 1;
  return rsp;
}

// Retire ends in libcoap what has ended, after the turn if there is one: libcoap may be using it.
// Then the application is told, if it has not been.
void Retire(CoapRpcCtx *ctx, RpcCall *call, const CoapRpcCallRsp &rsp) {
  const CoapRpcOnCallRsp onRsp = std::exchange(call->onRsp, nullptr);
  const uint64_t userData = call->userData;
  EndedCalls(ctx->lib->calls->endedList).Append(call);
  if (ctx->ioDepth == 0) RpcCallsSettle(ctx);
  if (onRsp) CallOnRsp(ctx, onRsp, userData, rsp);
}

void SettleCall(CoapRpcCtx *ctx, CoapRpcCalls *calls, RpcCall *call) {
  LinkRemove(call->endLink);
  if (call->state == CallState::kLeaving && LeaveWatch(call)) return;
  if (call->state == CallState::kLeaving) RemoveRpcCall(calls, call);
  Drop(ctx, calls, call);
}

// LeaveServer ends an observation that nobody follows, and tells the server if it may know of it.
void LeaveServer(CoapRpcCtx *ctx, RpcCall *call) {
  if (call->state == CallState::kQueued) {
    EndCall(ctx, call, COAP_RPC_CALL_CANCELLED);
    return;
  }
  call->state = CallState::kLeaving;
  StopLeading(ctx->lib->calls, call);
  SetDue(ctx->lib->calls, call, NowTicks() + TicksOfMs(COAP_RPC_CALL_DEADLINE_MS));
  Retire(ctx, call, RspOf(*call, COAP_RPC_CALL_CANCELLED));
}

// Silence tells the application that an observation is cancelled, which others follow.
void Silence(CoapRpcCtx *ctx, RpcCall *call) {
  CallOnRsp(ctx, std::exchange(call->onRsp, nullptr), call->userData,
            RspOf(*call, COAP_RPC_CALL_CANCELLED));
}

// WithFollowers ends a call, and then those that have followed it.
template <typename End>
void WithFollowers(RpcCall *call, End end) {
  CoapRpcLink link;
  LinkInit(link);
  Followers followers(link);
  TakeFollowers(call, &followers);
  end(call);
  followers.Drain([&end](CallWatch *follower) { end(follower->call); });
}

// SendFirst sends the first call that a peer has queued.  False: there is none, or it has no turn,
// or it has ended, and with it maybe the peer.
bool SendFirst(CoapRpcCtx *ctx, CoapRpcCalls *calls, RpcCallPeer *peer) {
  RpcCall *call = CallsOfPeer(peer->queuedList).First();
  if (!call || CoapRpcLibHasTurn(peer->coapSession) == 0) return false;
  MoveToSent(calls, call);
  if (Hand(call)) return true;
  CoapRpcLibWakeIn(ctx->lib->coapCtx, 0);  // another turn for the next one
  EndCall(ctx, call, COAP_RPC_CALL_UNREACHABLE);
  return false;
}

}  // namespace

bool SendAgain(RpcCall *call, coap_pdu_t *pdu) {
  call->mid = coap_send(SessionOf(*call), pdu);
  return call->mid != COAP_INVALID_MID;
}

uint32_t StartCall(CoapRpcCtx *ctx, const CoapRpcCallAddr &addr, const CoapRpcCall &call,
                   bool isObserve, uint64_t *id) {
  CoapRpcCalls *calls = nullptr;
  RpcCallPeer *peer = nullptr;
  uint32_t ret = Open(ctx, &calls);
  if (ret == 0) ret = OpenCallPeer(ctx, calls, addr, &peer);
  if (ret != 0) return ret;
  ctx->cli->refreshTaskTimer(ctx);  // answers are read at least ten times a second from now on
  RpcCall *record = NewCall(ctx, call).release();
  if (!record) {
    ReleaseCallPeer(ctx, calls, peer);
    return Code(kSiteCallNoMemory);
  }
  JoinPeer(record, peer);
  return Start(ctx, calls, call, isObserve, record, id);
}

void TellCall(CoapRpcCtx *ctx, const RpcCall &call, const coap_pdu_t *answer, uint32_t isLast) {
  CoapRpcCallRsp rsp = RspOf(call, COAP_RPC_CALL_ANSWERED);
  rsp.isLast = isLast;
  rsp.rttUs = RttUs(ctx, call);
  ReadAnswer(answer, &rsp);
  char *location = LocationOf(ctx, answer);
  rsp.locationPath = location;
  CallOnRsp(ctx, call.onRsp, call.userData, rsp);
  PoolFree(ctx->param.memHandle, location);
}

// The application is told last: it may start and cancel whatever it likes.
void AnswerOne(CoapRpcCtx *ctx, RpcCall *call, const coap_pdu_t *answer) {
  CoapRpcCalls *calls = ctx->lib->calls;
  NoteAnswer(calls, *call, answer);
  TakeOff(ctx, call);
  const RpcCall told = *call;
  LeavePeer(ctx, calls, call);
  FreeRpcCall(ctx, call);
  if (told.onRsp) TellCall(ctx, told, answer, 1);
}

void AnswerCall(CoapRpcCtx *ctx, RpcCall *call, const coap_pdu_t *answer) {
  WithFollowers(call, [=](RpcCall *one) { AnswerOne(ctx, one, answer); });
}

void EndCall(CoapRpcCtx *ctx, RpcCall *call, uint32_t status) {
  WithFollowers(call, [=](RpcCall *one) {
    TakeOff(ctx, one);
    Retire(ctx, one, RspOf(*one, status));
  });
}

void FailCall(CoapRpcCtx *ctx, RpcCall *call) {
  WithFollowers(call, [=](RpcCall *one) {
    TakeOff(ctx, one);
    CoapRpcCallRsp rsp = RspOf(*one, COAP_RPC_CALL_ANSWERED);
    rsp.code = kRequestIncomplete;
    Retire(ctx, one, rsp);
  });
}

void CancelCall(CoapRpcCtx *ctx, RpcCall *call) {
  if (HasFollowers(*call)) {
    Silence(ctx, call);
  } else if (!call->watch || IsFollower(*call)) {
    EndCall(ctx, call, COAP_RPC_CALL_CANCELLED);
  } else {
    LeaveServer(ctx, call);
  }
}

void RpcCallsServe(CoapRpcCtx *ctx) {
  CoapRpcCalls *calls = ctx->lib->calls;
  if (!calls) return;
  Backlog backlog(calls->backlogList);
  for (uint32_t left = calls->numBacklog; left != 0 && !backlog.IsEmpty(); --left) {
    RpcCallPeer *peer = backlog.First();
    backlog.Append(peer);
    while (SendFirst(ctx, calls, peer)) {
    }
  }
}

void RpcCallsSettle(CoapRpcCtx *ctx) {
  CoapRpcCalls *calls = ctx->lib->calls;
  if (!calls) return;
  EndedCalls ended(calls->endedList);
  if (ended.IsEmpty()) return;
  ended.Drain([&](RpcCall *call) { SettleCall(ctx, calls, call); });
  if (calls->numBacklog != 0) CoapRpcLibWakeIn(ctx->lib->coapCtx, 0);  // some have their turn now
}

void StopRpcCalls(CoapRpcCtx *ctx) {
  CoapRpcCalls *calls = ctx->lib ? ctx->lib->calls : nullptr;
  if (!calls) return;
  calls->isStopping = 1;
  while (RpcCall *call = FirstDue(calls)) EndCall(ctx, call, COAP_RPC_CALL_STOPPED);
  StopCallTimer(ctx);
}

void FreeRpcCalls(CoapRpcCtx *ctx) {
  CoapRpcCalls *calls = std::exchange(ctx->lib->calls, nullptr);
  if (!calls) return;
  PoolFree(ctx->param.memHandle, calls->buckets);
  PoolFree(ctx->param.memHandle, calls);
}

}  // namespace coap_rpc

using namespace coap_rpc;

namespace {

uint32_t Check(const CoapRpcCtx *ctx, const CoapRpcCallAddr *addr, const CoapRpcCall *call,
               const uint64_t *id) {
  const bool isStarted = ctx && ctx->lib && ctx->lib->coapCtx && ctx->cli;
  if (!isStarted || !addr || !call || !id || !call->onRsp) return Violated(kSiteCallNullArg);
  const uint32_t ret = CheckCallAddr(*addr);
  return ret != 0 ? ret : CheckCall(*call);
}

uint32_t CheckObserve(const CoapRpcCall &call) {
  if (call.method != COAP_RPC_GET) return Code(kSiteCallBadMethod);
  return call.payloadLen == 0 ? 0 : Code(kSiteCallBadPayload);
}

}  // namespace

uint32_t COAP_RpcCall(CoapRpcCtx *ctx, const CoapRpcCallAddr *addr, const CoapRpcCall *call,
                      uint64_t *id) {
  const uint32_t ret = Check(ctx, addr, call, id);
  return ret != 0 ? ret : StartCall(ctx, *addr, *call, false, id);
}

uint32_t COAP_RpcCallObserve(CoapRpcCtx *ctx, const CoapRpcCallAddr *addr, const CoapRpcCall *call,
                             uint64_t *id) {
  uint32_t ret = Check(ctx, addr, call, id);
  if (ret == 0) ret = CheckObserve(*call);
  return ret != 0 ? ret : StartCall(ctx, *addr, *call, true, id);
}

uint32_t COAP_RpcCallCancel(CoapRpcCtx *ctx, uint64_t id) {
  if (!ctx || !ctx->lib) return Violated(kSiteCallCancelNullArg);
  RpcCall *call = FindRpcCall(ctx->lib->calls, id);
  if (!call || !call->onRsp) return Code(kSiteCallCancelUnknown);
  CancelCall(ctx, call);
  return 0;
}

uint32_t COAP_RpcGetCallNum(const CoapRpcCtx *ctx) {
  return ctx && ctx->lib && ctx->lib->calls ? ctx->lib->calls->num : 0;
}

uint64_t COAP_RpcGetDroppedAnswerNum(const CoapRpcCtx *ctx) {
  return ctx && ctx->lib && ctx->lib->calls ? ctx->lib->calls->numDropped : 0;
}
