#include "coap_svc/rpc/libadapter/direct/coap_rpc_lib_direct_async.h"

#include <cstring>

#include "coap_svc/rpc/common/coap_rpc_limits.h"
#include "coap_svc/rpc/common/coap_rpc_log_site.h"
#include "coap_svc/rpc/common/coap_rpc_own.h"
#include "coap_svc/rpc/common/coap_rpc_table.h"
#include "coap_svc/rpc/libadapter/direct/coap_rpc_lib_direct_reply.h"
#include "coap_svc/rpc/libadapter/message/coap_rpc_lib_clock.h"
#include "coap_svc/rpc/server/coap_rpc_ser_uri.h"
#include "libcoap/ext/coap_rpc_lib_answer.h"
#include "libcoap/ext/coap_rpc_lib_internals.h"

namespace coap_rpc {
namespace {

// Peers that are kept without requests.
constexpr uint32_t kNumIdlePeers = 256;

int32_t CompareWords(const void *a, const void *b) {
  const uintptr_t wordA = *static_cast<const uintptr_t *>(a);
  const uintptr_t wordB = *static_cast<const uintptr_t *>(b);
  return (wordA > wordB) - (wordA < wordB);
}

static_assert(sizeof(coap_session_t *) == sizeof(uintptr_t));

using Handles = COAP_RPC_TABLE(DirectAsync, id, uintptr_t, CompareWords);
using Peers = COAP_RPC_TABLE(DirectPeer, session, coap_session_t *, CompareWords);
using OpenRequests = COAP_RPC_LIST(DirectAsync, openLink);
using PeerRequests = COAP_RPC_LIST(DirectAsync, peerLink);
using AnsweredRequests = COAP_RPC_LIST(DirectAsync, queueLink);
using QueuedPeers = COAP_RPC_LIST(DirectPeer, queuedLink);
using IdlePeers = COAP_RPC_LIST(DirectPeer, idleLink);
using Entries = COAP_RPC_LIST(DirectEntry, link);

CoapRpcDirect *DirectOf(const CoapRpcCtx *ctx) { return ctx->lib ? ctx->lib->direct : nullptr; }

// ---- peers ----

// HostOf numbers the address of a peer, or its network of 64 bits for IPv6; some addresses share a
// number.  A host has as many ports as there are peers in all, and must not take every place.
uint32_t HostOf(const CoapRpcDirect *direct, const coap_session_t *session) {
  const coap_address_t &addr = *coap_session_get_addr_remote(session);
  uint64_t host = 0;
  if (addr.addr.sa.sa_family == AF_INET) {
    host = addr.addr.sin.sin_addr.s_addr;
  } else {
    memcpy(&host, &addr.addr.sin6.sin6_addr, sizeof(host));
  }
  const uint64_t hash = (host ^ direct->once.seed) * 0x9E3779B97F4A7C15u;
  return static_cast<uint32_t>(hash >> 32) % kNumHostCounts;
}

uint16_t &NumOfHost(CoapRpcDirect *direct, const coap_session_t *session) {
  return direct->numPeersOfHosts[HostOf(direct, session)];
}

uint32_t &NumOpenOfHost(CoapRpcDirect *direct, const coap_session_t *session) {
  return direct->numOpenOfHosts[HostOf(direct, session)];
}

bool HasPlace(CoapRpcDirect *direct, const coap_session_t *session) {
  return direct->numPeers < kMaxDirectPeers && NumOfHost(direct, session) < kMaxDirectPeersOfHost;
}

void LeaveIdle(CoapRpcDirect *direct, DirectPeer *peer) {
  if (LinkIsAlone(peer->idleLink)) return;
  LinkRemove(peer->idleLink);
  --direct->numIdlePeers;
}

void FreePeer(CoapRpcCtx *ctx, DirectPeer *peer) {
  CoapRpcDirect *direct = DirectOf(ctx);
  Peers(direct->peerTree).Remove(peer);
  LinkRemove(peer->queuedLink);
  LeaveIdle(direct, peer);
  --direct->numPeers;
  --NumOfHost(direct, peer->session);
  coap_session_release(peer->session);
  PoolFree(ctx->param.memHandle, peer);
}

void FreeIdlePeers(CoapRpcCtx *ctx) {
  IdlePeers(DirectOf(ctx)->idlePeerList).Drain([=](DirectPeer *peer) { FreePeer(ctx, peer); });
}

DirectPeer *NewPeer(CoapRpcCtx *ctx, coap_session_t *session) {
  CoapRpcDirect *direct = DirectOf(ctx);
  if (!HasPlace(direct, session)) FreeIdlePeers(ctx);
  if (!HasPlace(direct, session)) {
    ++ctx->counts.refused[COAP_RPC_LIMIT_DIRECT_PEERS];
    return nullptr;
  }
  DirectPeer *peer = NewZeroed<DirectPeer>(ctx->param.memHandle).release();
  if (!peer) return nullptr;
  peer->session = coap_session_reference(session);
  (void)Peers(direct->peerTree).Insert(peer);
  ++direct->numPeers;
  ++NumOfHost(direct, session);
  return peer;
}

DirectPeer *FindOrNewPeer(CoapRpcCtx *ctx, coap_session_t *session) {
  DirectPeer *peer = Peers(DirectOf(ctx)->peerTree).Find(&session);
  return peer ? peer : NewPeer(ctx, session);
}

void FreePeerIfUnused(CoapRpcCtx *ctx, DirectPeer *peer) {
  if (LinkIsAlone(peer->requestList)) FreePeer(ctx, peer);
}

// Rest keeps a peer without requests until the next tick, unless many rest.
void Rest(CoapRpcCtx *ctx, DirectPeer *peer) {
  CoapRpcDirect *direct = DirectOf(ctx);
  if (!LinkIsAlone(peer->requestList)) return;
  if (direct->numIdlePeers == kNumIdlePeers) FreeIdlePeers(ctx);
  LinkRemove(peer->queuedLink);
  IdlePeers(direct->idlePeerList).Append(peer);
  ++direct->numIdlePeers;
}

bool HasRoom(const CoapRpcCtx *ctx, const DirectPeer *peer) {
  CoapRpcDirect *direct = DirectOf(ctx);
  return MayOpen(ctx->lib, NumOpenOfHost(direct, peer->session)) &&
         peer->numQueued < kMaxWaitingAnswers && direct->numQueued < kMaxWaitingInAll;
}

// ---- states ----

void CountOpen(DirectAsync *async, uint32_t num) {
  async->ctx->lib->numOpenAsync += num;
  NumOpenOfHost(DirectOf(async->ctx), async->peer->session) += num;
}

void CountQueued(DirectAsync *async, uint32_t num) {
  DirectOf(async->ctx)->numQueued += num;
  async->peer->numQueued += num;
}

// Leave takes a request out of everything that names it but its own record.
void Leave(DirectAsync *async) {
  if (async->isAnswered) {
    CountQueued(async, -1u);
  } else {
    CountOpen(async, -1u);
  }
  Handles(DirectOf(async->ctx)->asyncTree).Remove(async);
  LinkRemove(async->openLink);
  LinkRemove(async->queueLink);
  LinkRemove(async->peerLink);
}

void Free(DirectAsync *async) {
  COAP_RpcFreePayload(async->answer.large);
  FreeReplyOptions(async->ctx, async->options);
  coap_delete_pdu(async->request);
  PoolFree(async->ctx->param.memHandle, async);
}

// LoseAnswer notes that a request, which was executed, gets no answer.
void LoseAnswer(DirectAsync *async) {
  ForgetOpen(async->ctx, async->once);
  if (IsOnce(async->once.record.method)) RememberLost(async->ctx, async->once);
}

// Drop frees a request in any state; its peer stays.
void Drop(DirectAsync *async) {
  LoseAnswer(async);
  Leave(async);
  Free(async);
}

void Enqueue(DirectAsync *async) {
  CountOpen(async, -1u);
  async->isAnswered = true;
  CountQueued(async, 1);
  LinkRemove(async->openLink);
  AnsweredRequests(async->peer->answeredList).Append(async);
  QueuedPeers(DirectOf(async->ctx)->queuedPeerList).Append(async->peer);
}

// SetAnswer returns false, changing nothing, without memory.
bool SetAnswer(DirectAsync *async, const void *data, uint32_t len) {
  DirectAnswer &answer = async->answer;
  const bool isLarge = len > sizeof(answer.small);
  CoapRpcPayload *large = isLarge ? COAP_RpcNewPayload(async->ctx, data, len) : nullptr;
  if (isLarge && !large) return false;
  COAP_RpcFreePayload(answer.large);
  answer.large = large;
  answer.len = len;
  if (!isLarge && len != 0) memcpy(answer.small, data, len);
  return true;
}

const uint8_t *BytesOf(const DirectAnswer &answer) {
  return answer.large ? answer.large->data : answer.small;
}

void SetReply(DirectAsync *async, const ReplyHead &head) {
  CoapRpcCtx *ctx = async->ctx;
  async->answerHead = head;
  if (!async->isAnswered) Enqueue(async);
  // Inside libcoap's I/O, the turn serves it before it ends.
  if (ctx->ioDepth == 0) CoapRpcLibWakeIn(ctx->lib->coapCtx, 0);
}

// ---- sending ----

struct PduDeleter {
  void operator()(coap_pdu_t *pdu) const { coap_delete_pdu(pdu); }
};
using PduRef = std::unique_ptr<coap_pdu_t, PduDeleter>;

// TypeOf is the type of the request, if libcoap can keep one more until it is acknowledged.
coap_pdu_type_t TypeOf(const DirectAsync *async) {
  const bool isMany = DirectOf(async->ctx)->numUnacknowledged >= kMaxUnacknowledged;
  return isMany ? COAP_MESSAGE_NON : coap_pdu_get_type(async->request);
}

PduRef NewResponse(const DirectAsync *async) {
  coap_session_t *session = async->peer->session;
  PduRef response(coap_pdu_init(TypeOf(async), COAP_EMPTY_CODE, coap_new_message_id(session),
                                coap_session_max_pdu_size(session)));
  const coap_bin_const_t token = coap_pdu_get_token(async->request);
  if (response && coap_add_token(response.get(), token.length, token.s) == 0) response.reset();
  return response;
}

// ResourceOf returns null when the entry is not attached.
coap_resource_t *ResourceOf(const DirectAsync *async) {
  const CoapRpcSerUriVtbl *entry = async->entry->entry;
  const UriText uri(entry->key.uri);
  coap_str_const_t path{strlen(uri.c_str()), reinterpret_cast<const uint8_t *>(uri.c_str())};
  return entry->listen ? coap_get_resource_from_uri_path(async->ctx->lib->coapCtx, &path) : nullptr;
}

// FillReply fills a response; an entry that is no longer attached has no answer.
void FillReply(const DirectAsync *async, const Exchange &exchange) {
  if (!exchange.resource) {
    ReplyCode(exchange, COAP_RESPONSE_CODE_SERVICE_UNAVAILABLE);
  } else {
    Reply(exchange, async->answerHead, async->options, BytesOf(async->answer), async->answer.len);
  }
}

// Remember notes the answer of a request that is about to end.
void Remember(DirectAsync *async, const coap_pdu_t *response) {
  ForgetOpen(async->ctx, async->once);
  if (IsOnce(async->once.record.method)) RememberAnswer(async->ctx, async->once, response);
}

// IsWanted says whether the peer wants to hear an answer.
bool IsWanted(const DirectAsync *async, const coap_pdu_t *response) {
  return (async->unwanted >> ((coap_pdu_get_code(response) >> 5) - 1) & 1) == 0;
}

void HandOver(const DirectAsync *async, coap_pdu_t *response) {
  if (coap_pdu_get_type(response) == COAP_MESSAGE_CON) ++DirectOf(async->ctx)->numUnacknowledged;
  coap_send(async->peer->session, response);
}

// Send hands libcoap an answer and ends the request.  False: no memory, it is still answered.
bool Send(DirectAsync *async) {
  PduRef response = NewResponse(async);
  if (!response) return false;
  coap_session_t *session = async->peer->session;
  FillReply(async, {async->ctx, async->entry->entry, ResourceOf(async), session, async->request,
                    nullptr, response.get()});
  Remember(async, response.get());
  if (IsWanted(async, response.get())) HandOver(async, response.release());
  Leave(async);
  Free(async);
  return true;
}

// SendAnswers gives libcoap a peer's share of a turn.  True: there are more that it could send.
bool SendAnswers(DirectPeer *peer) {
  AnsweredRequests answered(peer->answeredList);
  for (uint32_t num = 0; num < kMaxAnswersPerTurn; ++num) {
    DirectAsync *async = answered.First();
    if (!async || CoapRpcLibNumDelayed(peer->session) >= kMaxAnswersInLibcoap) return false;
    if (!Send(async)) return false;
  }
  return !answered.IsEmpty();
}

bool ServePeer(CoapRpcCtx *ctx, DirectPeer *peer) {
  const bool isMore = SendAnswers(peer);
  if (LinkIsAlone(peer->answeredList)) LinkRemove(peer->queuedLink);
  Rest(ctx, peer);
  return isMore;
}

// ---- ends ----

// Tell says that a handle has ended.
void Tell(const DirectEntry *entry, uintptr_t id, uint32_t reason) {
  if (!entry->param.onAsyncEnd) return;
  entry->param.onAsyncEnd(entry->entry->reg.userData, reinterpret_cast<void *>(id), reason);
}

void TimeOut(DirectAsync *async) {
  const DirectEntry *entry = async->entry;
  const uintptr_t id = async->id;
  FreeReplyOptions(async->ctx, async->options);
  (void)SetAnswer(async, nullptr, 0);
  SetReply(async, {CodeOf(504), COAP_RPC_DIRECT_NO_FORMAT});
  Handles(DirectOf(async->ctx)->asyncTree).Remove(async);
  Tell(entry, id, COAP_RPC_ASYNC_TIMEOUT);
}

// TimeOutOldest ends an entry's oldest request if it is due.  The callback may free the entry.
bool TimeOutOldest(DirectEntry *entry) {
  DirectAsync *async = OpenRequests(entry->openList).First();
  if (!async || !HasPassed(async->arrived, entry->param.timeoutMs)) return false;
  TimeOut(async);
  return true;
}

void DropAnswered(DirectPeer *peer) {
  AnsweredRequests(peer->answeredList).Drain([](DirectAsync *async) { Drop(async); });
  LinkRemove(peer->queuedLink);
}

// DropPeer frees a peer and its requests, but the open ones, which it moves to closedList.
void DropPeer(CoapRpcCtx *ctx, DirectPeer *peer) {
  OpenRequests closed(DirectOf(ctx)->closedList);
  DropAnswered(peer);
  PeerRequests(peer->requestList).Drain([&](DirectAsync *async) {
    LoseAnswer(async);
    Leave(async);
    closed.Append(async);
  });
  FreePeerIfUnused(ctx, peer);
}

void TellClosed(DirectAsync *async) {
  const DirectEntry *entry = async->entry;
  const uintptr_t id = async->id;
  LinkRemove(async->openLink);
  Free(async);
  Tell(entry, id, COAP_RPC_ASYNC_CLOSED);
}

// ForgetClosed frees those of an entry of whose end nobody will be told.
void ForgetClosed(CoapRpcDirect *direct, const DirectEntry *entry) {
  OpenRequests closed(direct->closedList);
  DirectAsync *next = nullptr;
  for (DirectAsync *async = closed.First(); async; async = next) {
    next = closed.After(async);
    if (async->entry != entry) continue;
    LinkRemove(async->openLink);
    Free(async);
  }
}

// DropOfEntry drops a peer's requests of an entry, those of all for null.
void DropOfEntry(CoapRpcCtx *ctx, DirectPeer *peer, const DirectEntry *entry) {
  PeerRequests requests(peer->requestList);
  DirectAsync *next = nullptr;
  for (DirectAsync *async = requests.First(); async; async = next) {
    next = requests.After(async);
    if (!entry || async->entry == entry) Drop(async);
  }
  FreePeerIfUnused(ctx, peer);
}

// ForEachPeer calls `work` for each peer; `work` may free the one that it is given.
template <typename Work>
void ForEachPeer(CoapRpcDirect *direct, Work work) {
  Peers peers(direct->peerTree);
  DirectPeer *next = nullptr;
  for (DirectPeer *peer = peers.First(); peer; peer = next) {
    next = peers.Next(peer);
    work(peer);
  }
}

// IsAnswer says whether a message is a response of ours that is no notification.
bool IsAnswer(coap_session_t *session, const coap_pdu_t *sent) {
  return sent && coap_pdu_get_code(sent) >= COAP_RESPONSE_CODE_CREATED &&
         coap_session_get_type(session) != COAP_SESSION_TYPE_CLIENT &&
         COAP_RpcCheckObserveOption(sent) == 0;
}

// ---- arrival ----

bool Fill(DirectAsync *async, const Exchange &exchange) {
  const coap_bin_const_t token = coap_pdu_get_token(exchange.request);
  async->request =
      coap_pdu_duplicate(exchange.request, exchange.session, token.length, token.s, nullptr);
  async->id = ++exchange.ctx->lib->lastAsyncId;
  async->arrived = NowTicks();
  async->ctx = exchange.ctx;
  async->entry = DirectEntryOf(exchange.entry);
  async->head = DefaultHead(exchange.request);
  return async->request != nullptr;
}

DirectAsync *Enlist(DirectAsync *async, DirectPeer *peer) {
  async->peer = peer;
  (void)Handles(DirectOf(async->ctx)->asyncTree).Insert(async);
  OpenRequests(async->entry->openList).Append(async);
  PeerRequests(peer->requestList).Append(async);
  LeaveIdle(DirectOf(async->ctx), peer);
  CountOpen(async, 1);
  return async;
}

DirectAsync *OpenOfPeer(const Exchange &exchange, DirectPeer *peer) {
  if (!HasRoom(exchange.ctx, peer)) {
    ++exchange.ctx->counts.refused[COAP_RPC_LIMIT_DIRECT];
    return nullptr;
  }
  auto async = NewZeroed<DirectAsync>(exchange.ctx->param.memHandle);
  return async && Fill(async.get(), exchange) ? Enlist(async.release(), peer) : nullptr;
}

// DiagnosticLen returns how much of a text fits a message, in whole UTF-8 characters.
uint32_t DiagnosticLen(const char *text) {
  constexpr uint8_t kMark = 0xC0, kContinued = 0x80;
  size_t len = strnlen(text, kMaxAnswerInOneMessage + 1);
  if (len <= kMaxAnswerInOneMessage) return static_cast<uint32_t>(len);
  do --len;
  while (len != 0 && (static_cast<uint8_t>(text[len]) & kMark) == kContinued);
  return static_cast<uint32_t>(len);
}

}  // namespace

DirectAsync *OpenAsync(const DirectRequest &request) {
  const Exchange &exchange = request.exchange;
  DirectPeer *peer = FindOrNewPeer(exchange.ctx, exchange.session);
  if (!peer) return nullptr;
  DirectAsync *async = OpenOfPeer(exchange, peer);
  if (async) {
    async->once = request.id;
    async->unwanted = request.options.unwanted;
    RememberOpen(exchange.ctx, async->once);
  } else {
    FreePeerIfUnused(exchange.ctx, peer);
  }
  return async;
}

DirectAsync *FindDirectAsync(CoapRpcCtx *ctx, uintptr_t id) {
  CoapRpcDirect *direct = DirectOf(ctx);
  return direct ? Handles(direct->asyncTree).Find(&id) : nullptr;
}

void ReplyNow(DirectAsync *async, const Exchange &exchange) {
  DirectPeer *peer = async->peer;
  FillReply(async, exchange);
  Remember(async, exchange.response);
  Leave(async);
  Free(async);
  if (LinkIsAlone(peer->answeredList)) LinkRemove(peer->queuedLink);
  Rest(exchange.ctx, peer);
}

uint32_t AnswerDirect(CoapRpcCtx *ctx, const void *handle, const uint8_t *data, uint32_t len) {
  DirectAsync *async = FindDirectAsync(ctx, reinterpret_cast<uintptr_t>(handle));
  if (!async) return Code(kSiteAsyncNotPending);
  if (!SetAnswer(async, data, len)) return Code(kSiteSendAsyncNoMemory);
  SetReply(async, async->head);
  return 0;
}

uint32_t AbortDirect(CoapRpcCtx *ctx, const void *handle) {
  DirectAsync *async = FindDirectAsync(ctx, reinterpret_cast<uintptr_t>(handle));
  if (!async) return Code(kSiteAsyncNotPending);
  (void)SetAnswer(async, nullptr, 0);
  SetReply(async, {CodeOf(503), COAP_RPC_DIRECT_NO_FORMAT});
  return 0;
}

uint32_t FailDirect(DirectAsync *async, uint32_t code, const char *text) {
  const uint32_t len = text ? DiagnosticLen(text) : 0;
  if (!SetAnswer(async, text, len)) return Code(kSiteFailAsyncNoMemory);
  SetReply(async, {CodeOf(code), COAP_RPC_DIRECT_NO_FORMAT});
  return 0;
}

bool NoteDirectNack(coap_session_t *session, const coap_pdu_t *sent, coap_nack_reason_t reason) {
  CoapRpcCtx *ctx = CoapRpcLibRootOf(session);
  CoapRpcDirect *direct = ctx ? DirectOf(ctx) : nullptr;
  if (!direct || !IsAnswer(session, sent)) return false;
  DirectPeer *peer = Peers(direct->peerTree).Find(&session);
  if (!peer || reason != COAP_NACK_TOO_MANY_RETRIES) return true;
  CoapRpcLibDropDelayed(session);
  DropAnswered(peer);
  FreePeerIfUnused(ctx, peer);
  return true;
}

void DropDirectRequests(CoapRpcCtx *ctx, const DirectEntry *entry) {
  if (!DirectOf(ctx)) return;
  ForEachPeer(DirectOf(ctx), [=](DirectPeer *peer) { DropOfEntry(ctx, peer, entry); });
  ForgetClosed(DirectOf(ctx), entry);
}

void ServeDirectAnswers(CoapRpcCtx *ctx) {
  CoapRpcDirect *direct = DirectOf(ctx);
  if (!direct || LinkIsAlone(direct->queuedPeerList)) return;
  direct->numUnacknowledged = CoapRpcLibNumUnacknowledged(ctx->lib->coapCtx, kMaxUnacknowledged);
  QueuedPeers peers(direct->queuedPeerList);
  bool isMore = false;
  DirectPeer *next = nullptr;
  for (DirectPeer *peer = peers.First(); peer; peer = next) {
    next = peers.After(peer);
    if (ServePeer(ctx, peer)) isMore = true;
  }
  if (isMore) CoapRpcLibWakeIn(ctx->lib->coapCtx, 0);
}

void TickDirect(CoapRpcCtx *ctx) {
  if (!DirectOf(ctx)) return;
  FreeIdlePeers(ctx);
  TrimOnce(ctx);
  CoapRpcDirect *direct = DirectOf(ctx);
  Entries entries(direct->entryList);
  for (DirectEntry *entry = entries.First(); entry;) {
    const uint32_t numLeft = direct->numLeft;
    const bool isMore = TimeOutOldest(entry);
    if (direct->numLeft != numLeft) {
      entry = entries.First();
    } else if (!isMore) {
      entry = entries.After(entry);
    }
  }
}

bool HasDirectRequests(const CoapRpcCtx *ctx) {
  return DirectOf(ctx) && DirectOf(ctx)->numPeers != 0;
}

void StopDirect(CoapRpcCtx *ctx) {
  if (!DirectOf(ctx)) return;
  ForEachPeer(DirectOf(ctx), [=](DirectPeer *peer) { DropOfEntry(ctx, peer, nullptr); });
  ForgetAllOnce(ctx);
}

void DropEndPointRequests(CoapRpcCtx *ctx, const coap_endpoint_t *endPoint) {
  if (!DirectOf(ctx)) return;
  ForEachPeer(DirectOf(ctx), [&](DirectPeer *peer) {
    if (CoapRpcLibIsOfEndPoint(peer->session, endPoint) != 0) DropPeer(ctx, peer);
  });
  OpenRequests(DirectOf(ctx)->closedList).Drain(TellClosed);
}

}  // namespace coap_rpc
