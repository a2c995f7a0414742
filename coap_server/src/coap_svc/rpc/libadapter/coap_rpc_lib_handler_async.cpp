#include "coap_svc/rpc/libadapter/coap_rpc_lib_handler_async.h"

#include <netinet/in.h>

#include <algorithm>

#include "coap_svc/rpc/common/coap_rpc_limits.h"
#include "coap_svc/rpc/common/coap_rpc_list.h"
#include "coap_svc/rpc/common/coap_rpc_log_site.h"
#include "coap_svc/rpc/common/coap_rpc_own.h"
#include "coap_svc/rpc/common/coap_rpc_table.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_ctx.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_handler.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_internals.h"
#include "coap_svc/rpc/server/coap_rpc_ser_uri.h"

namespace {

constexpr size_t kMaxTokenLen = 8;

// RequestId tells one request of an entry from another; zeroed before it is filled.
struct RequestId {
  const CoapRpcSerUriVtbl *entry;
  uint8_t peer[16];
  uint8_t token[kMaxTokenLen];
  uint16_t family;
  uint16_t port;
  int32_t mid;
  uint64_t tokenLen;
};

int32_t CompareRequestIds(const void *a, const void *b) {
  return OSAL_MemCmp(a, b, sizeof(RequestId));
}

int32_t CompareHandles(const void *a, const void *b) {
  const uintptr_t idA = *static_cast<const uintptr_t *>(a);
  const uintptr_t idB = *static_cast<const uintptr_t *>(b);
  return (idA > idB) - (idA < idB);
}

}  // namespace

// CoapRpcAsync is one asynchronous request.
struct CoapRpcAsync {
  OSAL_AVL3_NODE node;       // in asyncTree
  OSAL_AVL3_NODE reqNode;    // in asyncReqTree, until the request is too old to be repeated
  CoapRpcLink answeredLink;  // on asyncAnsweredList or asyncHeldList
  uintptr_t id;              // the application's handle
  RequestId request;
  coap_tick_t arrived;
  CoapRpcCtx *ctx;
  CoapRpcSerUriVtbl *entry;
  coap_session_t *target;  // referenced
  coap_async_t *async;     // libcoap's stand-in; not to be touched once it was triggered
  CoapRpcPayload *answer;  // owned; null for none
  bool isSwept;            // answered before the last sweep
};

namespace {

using namespace coap_rpc;

using Pending = COAP_RPC_TABLE(CoapRpcAsync, id, uintptr_t, CompareHandles);
using PendingRequests = FixedTable<CoapRpcAsync, RequestId, offsetof(CoapRpcAsync, reqNode),
                                   offsetof(CoapRpcAsync, request), CompareRequestIds>;
using Answered = COAP_RPC_LIST(CoapRpcAsync, answeredLink);

// Token is a handle as the token of its stand-in.
struct Token {
  uint8_t bytes[sizeof(uintptr_t)];

  explicit Token(uintptr_t id) {
    for (size_t i = 0; i < sizeof(bytes); ++i) {
      bytes[i] = static_cast<uint8_t>(id >> (8 * (sizeof(bytes) - 1 - i)));
    }
  }
  coap_bin_const_t AsBinary() const { return {sizeof(bytes), bytes}; }
};

uintptr_t HandleOf(const coap_bin_const_t &token) {
  if (token.length != sizeof(uintptr_t)) return 0;
  uintptr_t id = 0;
  for (size_t i = 0; i < token.length; ++i) id = id << 8 | token.s[i];
  return id;
}

void CopyPeer(const coap_address_t &addr, RequestId &id) {
  id.family = static_cast<uint16_t>(addr.addr.sa.sa_family);
  id.port = coap_address_get_port(&addr);
  if (id.family == AF_INET) {
    memcpy(id.peer, &addr.addr.sin.sin_addr, sizeof(addr.addr.sin.sin_addr));
  } else if (id.family == AF_INET6) {
    memcpy(id.peer, &addr.addr.sin6.sin6_addr, sizeof(addr.addr.sin6.sin6_addr));
  }
}

RequestId MakeRequestId(const CoapRpcSerUriVtbl *entry, const coap_session_t *session,
                        const coap_pdu_t *request) {
  RequestId id;
  memset_s(&id, sizeof(id), 0, sizeof(id));
  const coap_bin_const_t token = coap_pdu_get_token(request);
  id.entry = entry;
  CopyPeer(*coap_session_get_addr_remote(session), id);
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

void CopyPath(const coap_pdu_t *from, coap_pdu_t *to) {
  coap_opt_iterator_t it;
  coap_option_iterator_init(from, &it, COAP_OPT_ALL);
  while (const coap_opt_t *option = coap_option_next(&it)) {
    if (it.number != COAP_OPTION_URI_PATH) continue;
    coap_add_option(to, it.number, coap_opt_length(option), coap_opt_value(option));
  }
}

struct PduDeleter {
  void operator()(coap_pdu_t *pdu) const { coap_delete_pdu(pdu); }
};
using PduRef = std::unique_ptr<coap_pdu_t, PduDeleter>;

// RegisterStandIn gives libcoap what leads back to the handler: type, method and path.  Payload and
// the other options stay out, Observe above all: it would make an observer of the target session.
coap_async_t *RegisterStandIn(const CoapRpcAsync *async, const coap_pdu_t *request) {
  const PduRef standIn(coap_pdu_init(coap_pdu_get_type(request), coap_pdu_get_code(request),
                                     coap_new_message_id(async->target),
                                     coap_session_max_pdu_size(async->target)));
  const Token token(async->id);
  if (!standIn || !coap_add_token(standIn.get(), sizeof(token.bytes), token.bytes)) return nullptr;
  CopyPath(request, standIn.get());
  return coap_register_async(async->target, standIn.get(), 0);
}

PendingRequests RequestsOf(const CoapRpcAsync *async) {
  return PendingRequests(async->ctx->lib->asyncReqTree);
}

// Insert puts a record into both tables.  A request with the same identity is too old to be this
// one's retransmission and leaves the second table.
void Insert(CoapRpcAsync *async) {
  PendingRequests requests = RequestsOf(async);
  NodeInit(async->reqNode);
  if (CoapRpcAsync *old = requests.Find(&async->request)) requests.Remove(old);
  (void)requests.Insert(async);
  (void)Pending(async->ctx->lib->asyncTree).Insert(async);
}

CoapRpcAsync *Find(CoapRpcCtx *ctx, uintptr_t id) {
  return ctx->lib ? Pending(ctx->lib->asyncTree).Find(&id) : nullptr;
}

bool IsInBlocks(const CoapRpcPayload &answer) { return answer.len > kMaxAnswerInOneMessage; }

bool TravelsInBlocks(const CoapRpcAsync *async) {
  return async->answer && IsInBlocks(*async->answer);
}

// FreeAnswer may give others their turn.
void FreeAnswer(CoapRpcAsync *async) {
  if (TravelsInBlocks(async)) async->ctx->lib->hasRoom = 1;
  COAP_RpcFreePayload(async->answer);
}

void Drop(CoapRpcAsync *async) {
  Pending(async->ctx->lib->asyncTree).Remove(async);
  RequestsOf(async).Remove(async);
  LinkRemove(async->answeredLink);
  FreeAnswer(async);
  coap_session_release(async->target);
  PoolFree(async->ctx->param.memHandle, async);
}

// DropWithStandIn looks the stand-in up: once triggered it may be gone.
void DropWithStandIn(CoapRpcAsync *async) {
  const Token token(async->id);
  coap_async_t *standIn = coap_find_async(async->target, token.AsBinary());
  if (standIn) coap_free_async(async->target, standIn);
  Drop(async);
}

uint32_t WeightOf(const CoapRpcAsync *async) {
  return TravelsInBlocks(async) ? kWaitingOfBlocks : 1;
}

// CountWaiting weighs the answers that wait to be sent to a target.
uint32_t CountWaiting(CoapRpcLibCtx *lib, const coap_session_t *target) {
  uint32_t num = CoapRpcLibNumDelayed(target);
  for (CoapRpcLink *list : {&lib->asyncAnsweredList, &lib->asyncHeldList}) {
    Answered answers(*list);
    for (const CoapRpcAsync *async = answers.First(); async; async = answers.After(async)) {
      if (async->target == target) num += WeightOf(async);
    }
  }
  return num;
}

// MaxWaiting returns each target's share of what may wait in all.
uint32_t MaxWaiting(const CoapRpcLibCtx *lib) {
  return std::min(kMaxWaitingInAll / std::max(lib->numTargets, 1u), kMaxWaitingAnswers);
}

// HasRoom says whether one more answer may travel to a target in blocks.
bool HasRoom(CoapRpcCtx *ctx, const coap_session_t *target) {
  unsigned num = CoapRpcLibNumBlocks(target);
  Answered answered(ctx->lib->asyncAnsweredList);
  for (const CoapRpcAsync *async = answered.First(); async; async = answered.After(async)) {
    if (async->target == target && TravelsInBlocks(async)) ++num;
  }
  return num < kMaxAnswersInBlocks;
}

// Send lets libcoap run the stand-in in its next turn.
void Send(CoapRpcAsync *async) {
  CoapRpcLibTriggerAsync(async->async, async->ctx->ioDepth != 0);
  Answered(async->ctx->lib->asyncAnsweredList).Append(async);
}

// SetAnswer takes the payload; null aborts.  The last call before the answer is sent counts.
void SetAnswer(CoapRpcAsync *async, CoapRpcPayload *answer) {
  FreeAnswer(async);
  async->answer = answer;
  async->entry->asyncWaiting += WeightOf(async);
  if (!LinkIsAlone(async->answeredLink)) return;
  if (TravelsInBlocks(async) && !HasRoom(async->ctx, async->target)) {
    Answered(async->ctx->lib->asyncHeldList).Append(async);
  } else {
    Send(async);
  }
}

void RestoreToken(const RequestId &request, coap_pdu_t *response) {
  if (request.tokenLen == 0 || request.tokenLen > kMaxTokenLen) return;
  const coap_bin_const_t token{static_cast<size_t>(request.tokenLen), request.token};
  CoapRpcLibSetToken(response, &token);
}

}  // namespace

int CoapRpcAsyncIsKnown(CoapRpcCtx *ctx, const CoapRpcSerUriVtbl *entry,
                        const coap_session_t *session, const coap_pdu_t *request) {
  const RequestId id = MakeRequestId(entry, session, request);
  const CoapRpcAsync *async = PendingRequests(ctx->lib->asyncReqTree).Find(&id);
  return async && MayBeRepeated(async);
}

// Answers are added up as they are given and counted when that is too many, but not for each of the
// requests that a peer goes on sending.
int CoapRpcAsyncIsBehind(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry) {
  CoapRpcLibCtx *lib = ctx->lib;
  const coap_tick_t now = NowTicks();
  if (entry->asyncWaiting >= MaxWaiting(lib) && entry->asyncCountedAt != now) {
    entry->asyncCountedAt = now;
    entry->asyncWaiting = CountWaiting(lib, entry->asyncSession);
    lib->numTargets = CoapRpcLibNumAnonymous(lib->coapCtx);
  }
  return entry->asyncWaiting >= MaxWaiting(lib);
}

void *CoapRpcAsyncRegister(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry, coap_session_t *target,
                           const coap_session_t *session, const coap_pdu_t *request) {
  auto async = NewZeroed<CoapRpcAsync>(ctx->param.memHandle);
  if (!async) return nullptr;
  async->id = ++ctx->lib->lastAsyncId;
  async->request = MakeRequestId(entry, session, request);
  async->arrived = NowTicks();
  async->ctx = ctx;
  async->entry = entry;
  async->target = target;
  async->async = RegisterStandIn(async.get(), request);
  if (!async->async) return nullptr;
  coap_session_reference(target);
  Insert(async.get());
  return reinterpret_cast<void *>(async.release()->id);
}

CoapRpcAsync *CoapRpcAsyncFindRerun(CoapRpcCtx *ctx, const coap_session_t *session,
                                    const coap_pdu_t *request) {
  CoapRpcAsync *async = Find(ctx, HandleOf(coap_pdu_get_token(request)));
  const bool isRerun = async && async->target == session && !LinkIsAlone(async->answeredLink);
  return isRerun ? async : nullptr;
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
  Drop(async);
}

void CoapRpcAsyncSweep(CoapRpcCtx *ctx) {
  Answered answered(ctx->lib->asyncAnsweredList);
  CoapRpcAsync *next = nullptr;
  for (CoapRpcAsync *async = answered.First(); async; async = next) {
    next = answered.After(async);
    if (async->isSwept)
      Drop(async);
    else
      async->isSwept = true;
  }
}

void CoapRpcAsyncResume(CoapRpcCtx *ctx) {
  if (ctx->lib->hasRoom == 0) return;
  ctx->lib->hasRoom = 0;
  Answered held(ctx->lib->asyncHeldList);
  CoapRpcAsync *next = nullptr;
  for (CoapRpcAsync *async = held.First(); async; async = next) {
    next = held.After(async);
    if (!HasRoom(ctx, async->target)) continue;
    LinkRemove(async->answeredLink);
    Send(async);
  }
}

void CoapRpcAsyncGiveUp(CoapRpcCtx *ctx, coap_session_t *target) {
  CoapRpcLibDropDelayed(target);
  Answered held(ctx->lib->asyncHeldList);
  CoapRpcAsync *next = nullptr;
  for (CoapRpcAsync *async = held.First(); async; async = next) {
    next = held.After(async);
    if (async->target == target) DropWithStandIn(async);
  }
}

void CoapRpcAsyncForgetEntry(CoapRpcCtx *ctx, const CoapRpcSerUriVtbl *entry) {
  if (!ctx->lib) return;
  Pending pending(ctx->lib->asyncTree);
  CoapRpcAsync *next = nullptr;
  for (CoapRpcAsync *async = pending.First(); async; async = next) {
    next = pending.Next(async);
    if (!entry || async->entry == entry) DropWithStandIn(async);
  }
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

void COAP_RpcReleaseAsyncRequest(coap_session_t *session, void *payload) {
  auto *answer = static_cast<CoapRpcPayload *>(payload);
  CoapRpcCtx *ctx = CoapRpcLibRootOf(session);
  if (ctx && ctx->lib && answer && IsInBlocks(*answer)) ctx->lib->hasRoom = 1;
  COAP_RpcFreePayload(answer);
}
