#include "coap_svc/rpc/libadapter/serve/coap_rpc_lib_async_queue.h"

#include <algorithm>

#include "coap_svc/rpc/common/coap_rpc_limits.h"
#include "coap_svc/rpc/common/coap_rpc_own.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_data.h"
#include "libcoap/ext/coap_rpc_lib_internals.h"
#include "osal.h"

namespace coap_rpc {
namespace {

int32_t CompareRequestIds(const void *a, const void *b) {
  return OSAL_MemCmp(a, b, sizeof(RequestId));
}

int32_t CompareHandles(const void *a, const void *b) {
  const uintptr_t idA = *static_cast<const uintptr_t *>(a);
  const uintptr_t idB = *static_cast<const uintptr_t *>(b);
  return (idA > idB) - (idA < idB);
}

int32_t CompareNewestFirst(const void *a, const void *b) { return CompareHandles(b, a); }

using Pending = COAP_RPC_TABLE(CoapRpcAsync, id, uintptr_t, CompareHandles);
using PendingRequests = FixedTable<CoapRpcAsync, RequestId, offsetof(CoapRpcAsync, reqNode),
                                   offsetof(CoapRpcAsync, request), CompareRequestIds>;
using Answered = FixedTable<CoapRpcAsync, uintptr_t, offsetof(CoapRpcAsync, answeredNode),
                            offsetof(CoapRpcAsync, id), CompareNewestFirst>;
using Requests = COAP_RPC_LIST(CoapRpcAsync, requestLink);
using AnswerQueue = COAP_RPC_LIST(CoapRpcAsync, queueLink);
using QueuedSessions = COAP_RPC_LIST(AnswerSession, queuedLink);

// EndHandle takes a record out of all tables.
void EndHandle(CoapRpcAsync *async) {
  CoapRpcLibCtx *lib = async->ctx->lib;
  Pending(lib->asyncTree).Remove(async);
  PendingRequests(lib->asyncReqTree).Remove(async);
  Answered(lib->asyncAnsweredTree).Remove(async);
}

// ---- counts ----

bool TravelsInBlocks(const CoapRpcAsync *async) {
  return async->answer && async->answer->len > kMaxAnswerInOneMessage;
}

bool IsQueued(const CoapRpcAsync *async) {
  return async->state != AsyncState::kOpen && async->state != AsyncState::kRunning;
}

// Weight is what a record amounts to in its answer session's counts.
struct Weight {
  uint32_t numQueued;
  uint32_t numBlocks;
};

Weight WeightOf(const CoapRpcAsync *async) {
  if (!IsQueued(async)) return {0, 0};
  if (!TravelsInBlocks(async)) return {1, 0};
  return {kWaitingOfBlocks, async->state == AsyncState::kHeld ? 0u : 1u};
}

// Recount makes a change to a record and keeps its answer session's counts right.
template <typename Change>
void Recount(CoapRpcAsync *async, Change change) {
  AnswerSession *sender = async->sender;
  const Weight before = WeightOf(async);
  change();
  const Weight after = WeightOf(async);
  sender->numQueued += after.numQueued - before.numQueued;
  sender->numBlocks += after.numBlocks - before.numBlocks;
}

void SetState(CoapRpcAsync *async, AsyncState state) {
  Recount(async, [=] { async->state = state; });
}

void CountClosed(CoapRpcAsync *async) {
  --async->ctx->lib->numOpenAsync;
  --async->sender->peer->numOpen;
}

// HasRoom says whether one more answer of a session may travel in blocks.
bool HasRoom(const AnswerSession *sender) {
  return CoapRpcLibNumBlocks(sender->session) + sender->numBlocks < kMaxAnswersInBlocks;
}

// ---- states ----

void Enqueue(CoapRpcAsync *async, CoapRpcLink &list, AsyncState state) {
  SetState(async, state);
  AnswerQueue(list).Append(async);
  AnswerSession *sender = async->sender;
  if (!LinkIsAlone(sender->queuedLink)) return;
  QueuedSessions(async->ctx->lib->queuedSessionList).Append(sender);
}

void MakeReady(CoapRpcAsync *async) {
  EndHandle(async);
  Enqueue(async, async->sender->readyList, AsyncState::kReady);
}

// Queue decides on the way of a request that is answered and not held: each time, because the new
// answer may be one in blocks.  Its former answer takes no room from it.
void Queue(CoapRpcAsync *async) {
  Answered answered(async->ctx->lib->asyncAnsweredTree);
  answered.Remove(async);
  SetState(async, AsyncState::kOpen);
  if (TravelsInBlocks(async) && !HasRoom(async->sender)) {
    Enqueue(async, async->sender->heldList, AsyncState::kHeld);
  } else {
    SetState(async, AsyncState::kAnswered);
    (void)answered.Insert(async);
  }
}

// ---- stand-ins ----

// Token is a handle as the token of its stand-in.
struct Token {
  uint8_t bytes[sizeof(uintptr_t)];

  explicit Token(uintptr_t id) {
    for (size_t i = 0; i < sizeof(bytes); ++i) {
      bytes[i] = static_cast<uint8_t>(id >> (8 * (sizeof(bytes) - 1 - i)));
    }
  }
};

uintptr_t HandleOf(const coap_bin_const_t &token) {
  if (token.length != sizeof(uintptr_t)) return 0;
  uintptr_t id = 0;
  for (size_t i = 0; i < token.length; ++i) id = id << 8 | token.s[i];
  return id;
}

bool AddPath(CoapRpcAsync *async, coap_pdu_t *pdu) {
  const uint8_t *segment = reinterpret_cast<uint8_t *>(async + 1);
  const uint8_t *end = segment + async->pathLen;
  for (; segment != end; segment += 1 + *segment) {
    if (coap_add_option(pdu, COAP_OPTION_URI_PATH, *segment, segment + 1) == 0) return false;
  }
  return true;
}

struct PduDeleter {
  void operator()(coap_pdu_t *pdu) const { coap_delete_pdu(pdu); }
};
using PduRef = std::unique_ptr<coap_pdu_t, PduDeleter>;

// MakeStandIn gives libcoap what leads back to the handler: type, method and path.  Payload and the
// other options stay out, Observe above all: it would make an observer of the session.
PduRef MakeStandIn(CoapRpcAsync *async) {
  coap_session_t *session = async->sender->session;
  PduRef standIn(coap_pdu_init(static_cast<coap_pdu_type_t>(async->type),
                               static_cast<coap_pdu_code_t>(async->code),
                               coap_new_message_id(session), coap_session_max_pdu_size(session)));
  const Token token(async->id);
  const bool isMade = standIn && coap_add_token(standIn.get(), sizeof(token.bytes), token.bytes) &&
                      AddPath(async, standIn.get());
  if (!isMade) standIn.reset();
  return standIn;
}

// Run has libcoap run the handler.  False: no memory, the record is still ready.
bool Run(CoapRpcAsync *async) {
  CoapRpcLibCtx *lib = async->ctx->lib;
  const PduRef standIn = MakeStandIn(async);
  if (!standIn) return false;
  lib->asyncRunning = async;
  SetState(async, AsyncState::kRunning);
  const bool isRun = CoapRpcLibRunAsync(async->sender->session, standIn.get()) != 0;
  if (!lib->asyncRunning) return true;
  lib->asyncRunning = nullptr;
  if (isRun) {
    DropAsync(async);
  } else {
    SetState(async, AsyncState::kReady);
  }
  return isRun;
}

void ReleaseHeld(AnswerSession *sender) {
  AnswerQueue held(sender->heldList);
  for (CoapRpcAsync *async = held.First(); async && HasRoom(sender); async = held.First()) {
    MakeReady(async);
  }
}

// IsFull says whether libcoap has enough answers of a session.  They are counted when the first of
// them has been sent, not in each turn: many sessions may be full for long.
bool IsFull(AnswerSession *sender) {
  const coap_mid_t first = CoapRpcLibFirstDelayed(sender->session);
  if (first != COAP_INVALID_MID && first == sender->fullUntil) return true;
  const bool isFull = CoapRpcLibNumDelayed(sender->session) >= kMaxAnswersInLibcoap;
  sender->fullUntil = isFull ? first : COAP_INVALID_MID;
  return isFull;
}

// RunReady gives libcoap a session's share of a turn.  True: there are more that it could send. NON
// answers never fill libcoap's queue.
bool RunReady(AnswerSession *sender) {
  AnswerQueue ready(sender->readyList);
  for (uint32_t num = 0; num < kMaxAnswersPerTurn; ++num) {
    CoapRpcAsync *async = ready.First();
    if (!async || IsFull(sender) || !Run(async)) return false;
  }
  return !ready.IsEmpty();
}

bool Feed(AnswerSession *sender) {
  ReleaseHeld(sender);
  const bool isMore = RunReady(sender);
  if (LinkIsAlone(sender->heldList) && LinkIsAlone(sender->readyList)) {
    LinkRemove(sender->queuedLink);
  }
  return isMore;
}

}  // namespace

void EnlistAsync(CoapRpcAsync *async) {
  PendingRequests requests(async->ctx->lib->asyncReqTree);
  NodeInit(async->reqNode);
  NodeInit(async->answeredNode);
  if (CoapRpcAsync *old = requests.Find(&async->request)) requests.Remove(old);
  (void)requests.Insert(async);
  (void)Pending(async->ctx->lib->asyncTree).Insert(async);
  Requests(async->sender->requestList).Append(async);
  ++async->ctx->lib->numOpenAsync;
  ++async->sender->peer->numOpen;
}

CoapRpcAsync *FindAsync(CoapRpcCtx *ctx, uintptr_t id) {
  return ctx->lib ? Pending(ctx->lib->asyncTree).Find(&id) : nullptr;
}

CoapRpcAsync *FindAsyncRequest(CoapRpcCtx *ctx, const RequestId &request) {
  return PendingRequests(ctx->lib->asyncReqTree).Find(&request);
}

CoapRpcAsync *FindRunningAsync(CoapRpcCtx *ctx, const coap_session_t *session,
                               const coap_pdu_t *request) {
  CoapRpcAsync *async = ctx->lib->asyncRunning;
  if (!async || async->sender->session != session) return nullptr;
  return HandleOf(coap_pdu_get_token(request)) == async->id ? async : nullptr;
}

void SetAsyncAnswer(CoapRpcAsync *async, CoapRpcPayload *answer) {
  CoapRpcCtx *ctx = async->ctx;
  if (async->state == AsyncState::kOpen) CountClosed(async);
  Recount(async, [=] {
    COAP_RpcFreePayload(async->answer);
    async->answer = answer;
  });
  if (async->state != AsyncState::kHeld) Queue(async);
  // Inside libcoap's I/O, the turn serves it before it ends.
  if (ctx->ioDepth == 0) CoapRpcLibWakeIn(ctx->lib->coapCtx, 0);
}

void DropAsync(CoapRpcAsync *async) {
  CoapRpcCtx *ctx = async->ctx;
  AnswerSession *sender = async->sender;
  if (ctx->lib->asyncRunning == async) ctx->lib->asyncRunning = nullptr;
  if (async->state == AsyncState::kOpen) CountClosed(async);
  SetState(async, AsyncState::kRunning);
  EndHandle(async);
  LinkRemove(async->queueLink);
  LinkRemove(async->requestLink);
  COAP_RpcFreePayload(async->answer);
  PoolFree(ctx->param.memHandle, async);
  LeaveAnswerSession(ctx, sender);
}

// The turn that is under way takes the session off the list of those with queued answers.
void DropQueuedAsync(AnswerSession *sender) {
  AnswerQueue(sender->heldList).Drain([](CoapRpcAsync *async) { DropAsync(async); });
  AnswerQueue(sender->readyList).Drain([](CoapRpcAsync *async) { DropAsync(async); });
}

void DropAllAsync(AnswerSession *sender) {
  Requests(sender->requestList).Drain([](CoapRpcAsync *async) { DropAsync(async); });
}

uint32_t MaxQueuedAnswers(const CoapRpcCtx *ctx) {
  return std::min(kMaxWaitingInAll / std::max(NumAnswerSessions(ctx), 1u), kMaxWaitingAnswers);
}

void ServeAnswers(CoapRpcCtx *ctx) {
  Answered(ctx->lib->asyncAnsweredTree).Drain([](CoapRpcAsync *async) { MakeReady(async); });
  bool isMore = false;
  QueuedSessions(ctx->lib->queuedSessionList).ForEach([&](AnswerSession *sender) {
    if (Feed(sender)) isMore = true;
  });
  if (isMore) CoapRpcLibWakeIn(ctx->lib->coapCtx, 0);
}

bool HasQueuedAnswers(const CoapRpcCtx *ctx) { return !LinkIsAlone(ctx->lib->queuedSessionList); }

}  // namespace coap_rpc
