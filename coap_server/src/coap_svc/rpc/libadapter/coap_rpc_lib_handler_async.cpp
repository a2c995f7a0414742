#include "coap_svc/rpc/libadapter/coap_rpc_lib_handler_async.h"

#include <algorithm>
#include <type_traits>

#include "coap_svc/rpc/coap_rpc_ext.h"
#include "coap_svc/rpc/common/coap_rpc_limits.h"
#include "coap_svc/rpc/common/coap_rpc_list.h"
#include "coap_svc/rpc/common/coap_rpc_log_site.h"
#include "coap_svc/rpc/common/coap_rpc_own.h"
#include "coap_svc/rpc/common/coap_rpc_table.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_ctx.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_handler.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_handler_target.h"
#include "coap_svc/rpc/server/coap_rpc_ser_uri.h"
#include "libcoap/ext/coap_rpc_lib_internals.h"

using namespace coap_rpc;

namespace {

constexpr size_t kMaxTokenLen = 8;

// RequestId tells one request of an entry from another.
struct RequestId {
  const CoapRpcSerUriVtbl *entry;
  PeerKey peer;
  uint8_t token[kMaxTokenLen];
  uint64_t tokenLen;
  int64_t mid;
};

// Compared as bytes.
static_assert(std::has_unique_object_representations_v<RequestId>);

int32_t CompareRequestIds(const void *a, const void *b) {
  return OSAL_MemCmp(a, b, sizeof(RequestId));
}

int32_t CompareHandles(const void *a, const void *b) {
  const uintptr_t idA = *static_cast<const uintptr_t *>(a);
  const uintptr_t idB = *static_cast<const uintptr_t *>(b);
  return (idA > idB) - (idA < idB);
}

int32_t CompareNewestFirst(const void *a, const void *b) { return CompareHandles(b, a); }

enum class State : uint8_t { kOpen, kAnswered, kHeld, kReady, kRunning };

}  // namespace

// CoapRpcAsync is one asynchronous request, followed by the segments of its path, each after a
// byte with its length.
struct CoapRpcAsync {
  OSAL_AVL3_NODE node;          // in asyncTree while its handle is valid
  OSAL_AVL3_NODE reqNode;       // in asyncReqTree, until the request is too old to be repeated
  OSAL_AVL3_NODE answeredNode;  // in asyncAnsweredTree while answered
  CoapRpcLink requestLink;      // on its target's requestList
  CoapRpcLink queueLink;        // on its target's heldList or readyList
  uintptr_t id;                 // the application's handle
  RequestId request;
  coap_tick_t arrived;
  CoapRpcCtx *ctx;
  CoapRpcSerUriVtbl *entry;
  Target *target;
  CoapRpcPayload *answer;  // owned; null for none
  uint32_t pathLen;
  uint8_t type;
  uint8_t code;
  State state;
};

namespace {

using Pending = COAP_RPC_TABLE(CoapRpcAsync, id, uintptr_t, CompareHandles);
using PendingRequests = FixedTable<CoapRpcAsync, RequestId, offsetof(CoapRpcAsync, reqNode),
                                   offsetof(CoapRpcAsync, request), CompareRequestIds>;
using Answered = FixedTable<CoapRpcAsync, uintptr_t, offsetof(CoapRpcAsync, answeredNode),
                            offsetof(CoapRpcAsync, id), CompareNewestFirst>;
using Requests = COAP_RPC_LIST(CoapRpcAsync, requestLink);
using Queue = COAP_RPC_LIST(CoapRpcAsync, queueLink);
using QueuedTargets = COAP_RPC_LIST(Target, queuedLink);

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

coap_tick_t NowTicks() {
  coap_tick_t now = 0;
  coap_ticks(&now);
  return now;
}

bool MayBeRepeated(const CoapRpcAsync *async) {
  return NowTicks() < async->arrived + uint64_t{kExchangeLifetimeMs} * COAP_TICKS_PER_SECOND / 1000;
}

// ---- paths ----

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

uint8_t *PathOf(CoapRpcAsync *async) { return reinterpret_cast<uint8_t *>(async + 1); }

void StorePath(CoapRpcAsync *async, const coap_pdu_t *request) {
  uint8_t *to = PathOf(async);
  ForEachSegment(request, [&](const uint8_t *segment, uint8_t len) {
    *to++ = len;
    if (len != 0) memcpy(to, segment, len);
    to += len;
  });
}

bool AddPath(CoapRpcAsync *async, coap_pdu_t *pdu) {
  const uint8_t *segment = PathOf(async);
  const uint8_t *end = segment + async->pathLen;
  for (; segment != end; segment += 1 + *segment) {
    if (coap_add_option(pdu, COAP_OPTION_URI_PATH, *segment, segment + 1) == 0) return false;
  }
  return true;
}

// ---- tables ----

// Insert puts a record into both tables.  A request with the same identity is too old to be this
// one's retransmission and leaves the second table.
void Insert(CoapRpcAsync *async) {
  PendingRequests requests(async->ctx->lib->asyncReqTree);
  NodeInit(async->reqNode);
  NodeInit(async->answeredNode);
  if (CoapRpcAsync *old = requests.Find(&async->request)) requests.Remove(old);
  (void)requests.Insert(async);
  (void)Pending(async->ctx->lib->asyncTree).Insert(async);
  Requests(async->target->requestList).Append(async);
}

// EndHandle takes a record out of all tables.
void EndHandle(CoapRpcAsync *async) {
  CoapRpcLibCtx *lib = async->ctx->lib;
  Pending(lib->asyncTree).Remove(async);
  PendingRequests(lib->asyncReqTree).Remove(async);
  Answered(lib->asyncAnsweredTree).Remove(async);
}

CoapRpcAsync *Find(CoapRpcCtx *ctx, uintptr_t id) {
  return ctx->lib ? Pending(ctx->lib->asyncTree).Find(&id) : nullptr;
}

// ---- counts ----

bool TravelsInBlocks(const CoapRpcAsync *async) {
  return async->answer && async->answer->len > kMaxAnswerInOneMessage;
}

bool IsQueued(const CoapRpcAsync *async) {
  return async->state != State::kOpen && async->state != State::kRunning;
}

// Weight is what a record amounts to in its target's counts.
struct Weight {
  uint32_t numQueued;
  uint32_t numBlocks;
};

Weight WeightOf(const CoapRpcAsync *async) {
  if (!IsQueued(async)) return {0, 0};
  if (!TravelsInBlocks(async)) return {1, 0};
  return {kWaitingOfBlocks, async->state == State::kHeld ? 0u : 1u};
}

// Recount makes a change to a record and keeps its target's counts right.
template <typename Change>
void Recount(CoapRpcAsync *async, Change change) {
  Target *target = async->target;
  const Weight before = WeightOf(async);
  change();
  const Weight after = WeightOf(async);
  target->numQueued += after.numQueued - before.numQueued;
  target->numBlocks += after.numBlocks - before.numBlocks;
}

void SetState(CoapRpcAsync *async, State state) {
  Recount(async, [=] { async->state = state; });
}

void CountOpen(CoapRpcAsync *async) {
  ++async->ctx->lib->numOpenAsync;
  ++async->target->peer->numOpen;
}

void CountClosed(CoapRpcAsync *async) {
  --async->ctx->lib->numOpenAsync;
  --async->target->peer->numOpen;
}

// MaxQueued returns each target's share of what may be queued in all.
uint32_t MaxQueued(const CoapRpcCtx *ctx) {
  return std::min(kMaxWaitingInAll / std::max(NumBusyTargets(ctx), 1u), kMaxWaitingAnswers);
}

// HasRoom says whether one more answer may travel to a target in blocks.
bool HasRoom(const Target *target) {
  return CoapRpcLibNumBlocks(target->session) + target->numBlocks < kMaxAnswersInBlocks;
}

// ---- life ----

void Drop(CoapRpcAsync *async) {
  CoapRpcCtx *ctx = async->ctx;
  Target *target = async->target;
  if (async->state == State::kOpen) CountClosed(async);
  SetState(async, State::kRunning);
  EndHandle(async);
  LinkRemove(async->queueLink);
  LinkRemove(async->requestLink);
  COAP_RpcFreePayload(async->answer);
  PoolFree(ctx->param.memHandle, async);
  LeaveTarget(ctx, target);
}

void DropQueue(CoapRpcLink &list) {
  Queue(list).Drain([](CoapRpcAsync *async) { Drop(async); });
}

void DropRequests(Target *target) {
  Requests(target->requestList).Drain([](CoapRpcAsync *async) { Drop(async); });
}

void Enqueue(CoapRpcAsync *async, CoapRpcLink &list, State state) {
  SetState(async, state);
  Queue(list).Append(async);
  Target *target = async->target;
  if (!LinkIsAlone(target->queuedLink)) return;
  QueuedTargets(async->ctx->lib->queuedTargetList).Append(target);
}

void MakeReady(CoapRpcAsync *async) {
  EndHandle(async);
  Enqueue(async, async->target->readyList, State::kReady);
}

// Place decides on the way of a request that is answered and not held: each time, because the new
// answer may be one in blocks.  Its former answer takes no room from it.
void Place(CoapRpcAsync *async) {
  Answered answered(async->ctx->lib->asyncAnsweredTree);
  answered.Remove(async);
  SetState(async, State::kOpen);
  if (TravelsInBlocks(async) && !HasRoom(async->target)) {
    Enqueue(async, async->target->heldList, State::kHeld);
  } else {
    SetState(async, State::kAnswered);
    (void)answered.Insert(async);
  }
}

// SetAnswer takes the payload; null aborts.  The last call before the answer is sent counts.
void SetAnswer(CoapRpcAsync *async, CoapRpcPayload *answer) {
  CoapRpcCtx *ctx = async->ctx;
  if (async->state == State::kOpen) CountClosed(async);
  Recount(async, [=] {
    COAP_RpcFreePayload(async->answer);
    async->answer = answer;
  });
  if (async->state != State::kHeld) Place(async);
  // Inside libcoap's I/O, the turn serves it before it ends.
  if (ctx->ioDepth == 0) CoapRpcLibWakeIn(ctx->lib->coapCtx, 0);
}

// ---- stand-ins ----

struct PduDeleter {
  void operator()(coap_pdu_t *pdu) const { coap_delete_pdu(pdu); }
};
using PduRef = std::unique_ptr<coap_pdu_t, PduDeleter>;

// MakeStandIn gives libcoap what leads back to the handler: type, method and path.  Payload and the
// other options stay out, Observe above all: it would make an observer of the target session.
PduRef MakeStandIn(CoapRpcAsync *async) {
  coap_session_t *session = async->target->session;
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
  SetState(async, State::kRunning);
  const bool isRun = CoapRpcLibRunAsync(async->target->session, standIn.get()) != 0;
  if (!lib->asyncRunning) return true;
  lib->asyncRunning = nullptr;
  if (isRun) {
    Drop(async);
  } else {
    SetState(async, State::kReady);
  }
  return isRun;
}

void ReleaseHeld(Target *target) {
  Queue held(target->heldList);
  for (CoapRpcAsync *async = held.First(); async && HasRoom(target); async = held.First()) {
    MakeReady(async);
  }
}

// IsFull says whether libcoap has enough answers to a target.  They are counted when the first of
// them has been sent, not in each turn: many targets may be full for long.
bool IsFull(Target *target) {
  const coap_mid_t first = CoapRpcLibFirstDelayed(target->session);
  if (first != COAP_INVALID_MID && first == target->fullUntil) return true;
  const bool isFull = CoapRpcLibNumDelayed(target->session) >= kMaxAnswersInLibcoap;
  target->fullUntil = isFull ? first : COAP_INVALID_MID;
  return isFull;
}

// RunReady gives libcoap a target's share of a turn.  True: there are more that it could send.  NON
// answers never fill libcoap's queue.
bool RunReady(Target *target) {
  Queue ready(target->readyList);
  for (uint32_t num = 0; num < kMaxAnswersPerTurn; ++num) {
    CoapRpcAsync *async = ready.First();
    if (!async || IsFull(target) || !Run(async)) return false;
  }
  return !ready.IsEmpty();
}

bool Feed(Target *target) {
  ReleaseHeld(target);
  const bool isMore = RunReady(target);
  if (LinkIsAlone(target->heldList) && LinkIsAlone(target->readyList)) {
    LinkRemove(target->queuedLink);
  }
  return isMore;
}

void RestoreToken(const RequestId &request, coap_pdu_t *response) {
  if (request.tokenLen == 0 || request.tokenLen > kMaxTokenLen) return;
  const coap_bin_const_t token{static_cast<size_t>(request.tokenLen), request.token};
  CoapRpcLibSetToken(response, &token);
}

Target *CachedTarget(const CoapRpcSerUriVtbl *entry) {
  return static_cast<Target *>(entry->asyncTarget);
}

}  // namespace

int CoapRpcAsyncIsKnown(CoapRpcCtx *ctx, const CoapRpcSerUriVtbl *entry,
                        const coap_session_t *session, const coap_pdu_t *request) {
  const RequestId id = MakeRequestId(entry, session, request);
  const CoapRpcAsync *async = PendingRequests(ctx->lib->asyncReqTree).Find(&id);
  return async && MayBeRepeated(async);
}

int CoapRpcAsyncHasBacklog(const CoapRpcCtx *ctx, const CoapRpcSerUriVtbl *entry) {
  const Target *target = CachedTarget(entry);
  return target->numQueued + CoapRpcLibNumDelayed(target->session) >= MaxQueued(ctx);
}

int CoapRpcAsyncIsPeerFull(const CoapRpcSerUriVtbl *entry) {
  return CachedTarget(entry)->peer->numOpen >= kMaxOpenAsyncOfPeer;
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
  async->target = CachedTarget(entry);
  async->type = static_cast<uint8_t>(coap_pdu_get_type(request));
  async->code = static_cast<uint8_t>(coap_pdu_get_code(request));
  async->pathLen = pathLen;
  StorePath(async.get(), request);
  Insert(async.get());
  CountOpen(async.get());
  return reinterpret_cast<void *>(async.release()->id);
}

CoapRpcAsync *CoapRpcAsyncFindRerun(CoapRpcCtx *ctx, const coap_session_t *session,
                                    const coap_pdu_t *request) {
  CoapRpcAsync *async = ctx->lib->asyncRunning;
  if (!async || async->target->session != session) return nullptr;
  return HandleOf(coap_pdu_get_token(request)) == async->id ? async : nullptr;
}

void CoapRpcAsyncAnswer(CoapRpcAsync *async, coap_resource_t *resource, coap_session_t *session,
                        const coap_pdu_t *request, const coap_string_t *query,
                        coap_pdu_t *response) {
  CoapRpcPayload *answer = async->answer;
  async->answer = nullptr;
  if (answer) {
    COAP_RpcSvrHandleSetResponseHeader(response, async->entry, async->ctx);
    coap_add_data_large_response(resource, session, request, response, query,
                                 COAP_MEDIATYPE_APPLICATION_JSON, -1, 0, answer->len, answer->data,
                                 COAP_RpcReleaseAsyncRequest, answer);
  } else if (coap_pdu_get_type(request) == COAP_MESSAGE_CON) {
    coap_pdu_set_code(response, COAP_RESPONSE_CODE_CONTENT);
  }
  RestoreToken(async->request, response);
  async->ctx->lib->asyncRunning = nullptr;
  Drop(async);
}

void CoapRpcAsyncServe(CoapRpcCtx *ctx) {
  Answered(ctx->lib->asyncAnsweredTree).Drain([](CoapRpcAsync *async) { MakeReady(async); });
  QueuedTargets targets(ctx->lib->queuedTargetList);
  bool isMore = false;
  Target *next = nullptr;
  for (Target *target = targets.First(); target; target = next) {
    next = targets.After(target);
    if (Feed(target)) isMore = true;
  }
  if (isMore) CoapRpcLibWakeIn(ctx->lib->coapCtx, 0);
}

int CoapRpcAsyncFail(CoapRpcCtx *ctx, coap_session_t *session) {
  Target *target = FindTarget(ctx, session);
  if (target) FailTarget(ctx, target);
  return target != nullptr;
}

// The turn that is under way takes the target off the list of those with queued answers.
int CoapRpcAsyncGiveUp(CoapRpcCtx *ctx, coap_session_t *session) {
  Target *target = FindTarget(ctx, session);
  if (!target) return 0;
  CoapRpcLibDropDelayed(session);
  DropQueue(target->heldList);
  DropQueue(target->readyList);
  FailTarget(ctx, target);
  return 1;
}

void CoapRpcAsyncForgetEntry(CoapRpcCtx *ctx, const CoapRpcSerUriVtbl *entry) {
  if (!ctx->lib) return;
  ForEachTarget(ctx->lib->targetList, [=](Target *target) {
    if (entry && target->key.entry != entry) return;
    DropRequests(target);
    CloseTarget(ctx, target);
  });
}

uint32_t COAP_RpcSerSendAsyncResponse(CoapRpcCtx *ctx, void *handle, const uint8_t *data,
                                      uint32_t len) {
  if (!ctx || !handle || !data) return Code(kSiteSendAsyncNullArg);
  CoapRpcAsync *async = Find(ctx, reinterpret_cast<uintptr_t>(handle));
  if (!async) return Code(kSiteAsyncNotPending);
  CoapRpcPayload *answer = COAP_RpcNewPayload(ctx, data, len);
  if (!answer) return Code(kSiteSendAsyncNoMemory);
  COAP_RpcLogMemDump(data, static_cast<int32_t>(len), "COAP_RpcSerSendAsyncResponse", ctx->log);
  SetAnswer(async, answer);
  return 0;
}

uint32_t COAP_RpcSerAbortAsyncResponse(CoapRpcCtx *ctx, void *handle) {
  if (!ctx || !handle) return Code(kSiteAbortAsyncNullArg);
  CoapRpcAsync *async = Find(ctx, reinterpret_cast<uintptr_t>(handle));
  if (!async) return Code(kSiteAsyncNotPending);
  SetAnswer(async, nullptr);
  return 0;
}

void COAP_RpcReleaseAsyncRequest(coap_session_t *, void *payload) {
  COAP_RpcFreePayload(static_cast<CoapRpcPayload *>(payload));
}

uint32_t COAP_RpcGetOpenAsyncNum(const CoapRpcCtx *ctx) {
  return ctx && ctx->lib ? ctx->lib->numOpenAsync : 0;
}
