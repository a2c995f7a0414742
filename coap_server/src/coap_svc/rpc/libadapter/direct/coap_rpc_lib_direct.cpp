#include "coap_svc/rpc/libadapter/direct/coap_rpc_lib_direct.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "coap_svc/rpc/common/coap_rpc_key.h"
#include "coap_svc/rpc/common/coap_rpc_limits.h"
#include "coap_svc/rpc/common/coap_rpc_log_site.h"
#include "coap_svc/rpc/common/coap_rpc_own.h"
#include "coap_svc/rpc/common/coap_rpc_stopwatch.h"
#include "coap_svc/rpc/libadapter/direct/coap_rpc_lib_direct_async.h"
#include "coap_svc/rpc/libadapter/direct/coap_rpc_lib_direct_reply.h"
#include "coap_svc/rpc/libadapter/message/coap_rpc_lib_lookup.h"
#include "coap_svc/rpc/server/coap_rpc_ser_conn.h"
#include "coap_svc/rpc/server/coap_rpc_ser_res.h"
#include "libcoap/ext/coap_rpc_lib_answer.h"
#include "libcoap/ext/coap_rpc_lib_internals.h"

namespace coap_rpc {
namespace {

constexpr uint32_t kIsObserve = 2;

// Requests that have fewer bytes are copied to the stack.
constexpr size_t kSmallPayload = 2048;

// The methods that base resources do not have.
constexpr uint8_t kOfferedMethods[] = {COAP_REQUEST_CODE_PUT, COAP_REQUEST_CODE_DELETE,
                                       COAP_REQUEST_CODE_FETCH, COAP_REQUEST_CODE_PATCH,
                                       COAP_REQUEST_CODE_IPATCH};

using Entries = COAP_RPC_LIST(DirectEntry, link);
using ResEntries = COAP_RPC_LIST(CoapRpcSerUriVtbl, resLink);

uint8_t MethodOf(const Exchange &exchange) {
  return static_cast<uint8_t>(coap_pdu_get_code(exchange.request));
}

// ---- look-up ----

CoapRpcSerUriRes *UriResOf(CoapRpcCtx *ctx, coap_resource_t *resource) {
  const coap_str_const_t *path = coap_resource_get_uri_path(resource);
  char uri[COAP_RPC_URI_SIZE] = {};
  if (!ctx->ser || path->length >= sizeof(uri)) return nullptr;
  if (path->length != 0) memcpy(uri, path->s, path->length);
  return COAP_RpcSerFindUriRes(ctx->ser, uri);
}

// FirstDirect returns the first direct entry of a uri from `entry` on; null for none.
CoapRpcSerUriVtbl *FirstDirect(const ResEntries &entries, CoapRpcSerUriVtbl *entry) {
  while (entry && (!entry->lib.direct || !entry->listen)) entry = entries.After(entry);
  return entry;
}

bool IsAt(const CoapRpcSerUriVtbl *entry, const CoapRpcIpAddr &local) {
  return COAP_RpcAddrCmp(&entry->listen->key.listenAddr, &local) == 0;
}

// FindAt returns the direct entry of a listen among those from `first` on; else `first`.
CoapRpcSerUriVtbl *FindAt(const ResEntries &entries, CoapRpcSerUriVtbl *first,
                          const coap_session_t *session) {
  CoapRpcIpAddr local = {};
  COAP_RpcGetLocalAddr(session, &local);
  CoapRpcSerUriVtbl *entry = first;
  while (entry && !IsAt(entry, local)) entry = FirstDirect(entries, entries.After(entry));
  return entry ? entry : first;
}

CoapRpcSerUriVtbl *FindDirect(const Exchange &exchange) {
  CoapRpcSerUriRes *res = UriResOf(exchange.ctx, exchange.resource);
  if (!res) return nullptr;
  const ResEntries entries(res->uriDataList);
  CoapRpcSerUriVtbl *first = FirstDirect(entries, entries.First());
  const bool isOnly = !first || !FirstDirect(entries, entries.After(first));
  return isOnly ? first : FindAt(entries, first, exchange.session);
}

bool HasDirectEntry(const Exchange &exchange) {
  return exchange.ctx && exchange.ctx->lib->direct && FindDirect(exchange);
}

// ---- observers ----

// HasObserveRecord says whether a registration has an entry that publishes.
bool HasObserveRecord(const Exchange &exchange) {
  const CoapRpcSerUriVtbl *entry =
      COAP_RpcSerGetVtbl(exchange.ctx, exchange.request, exchange.session);
  return entry && entry->obVtbl;
}

// IsForObservers says whether publish answers the request.  Else nobody observes.
bool IsForObservers(const Exchange &exchange, const DirectOptions &options) {
  if (!options.isObserve) return false;
  if (MethodOf(exchange) == COAP_REQUEST_CODE_GET && HasObserveRecord(exchange)) return true;
  CoapRpcLibRefuseObserver(exchange.resource, exchange.session, exchange.request,
                           exchange.response);
  return false;
}

// ---- calling the application ----

CoapRpcSerReqInfo ReqInfoOf(const DirectRequest &request) {
  CoapRpcSerReqInfo info = {};
  const bool isPost = MethodOf(request.exchange) == COAP_REQUEST_CODE_POST;
  COAP_RpcGetRemoteAddr(request.exchange.session, &info.srcAddr);
  info.isObserve = request.options.isObserve ? kIsObserve : 0;
  info.hasETag = isPost && request.options.hasETag ? 1 : 0;
  return info;
}

// Calling is a DirectCall that the application can reach.
class Calling {
 public:
  Calling(CoapRpcDirect *direct, DirectCall *call) : direct_(direct) { direct_->calling = call; }
  ~Calling() { direct_->calling = nullptr; }
  Calling(const Calling &) = delete;
  Calling &operator=(const Calling &) = delete;

 private:
  CoapRpcDirect *direct_;
};

int32_t CallOnRequest(const DirectRequest &request, DirectCall *call, uint8_t *payload,
                      uint32_t len, uint8_t *out) {
  const Exchange &exchange = request.exchange;
  const CoapRpcSerVtblReg &reg = exchange.entry->reg;
  const CoapRpcSerReqInfo info = ReqInfoOf(request);
  const Calling calling(exchange.ctx->lib->direct, call);
  ++exchange.entry->counts.stats.requests;
  CallbackTime time(exchange.ctx, exchange.entry->key.uri, &exchange.entry->counts);
  return reg.onRequest(reg.userData, &info, payload, len, out, kPayloadBufSize);
}

void ReplySync(const Exchange &exchange, const DirectCall &call, const uint8_t *out,
               int32_t result) {
  if (result < 0 || result > kMaxPayload) {
    ReplyCode(exchange, COAP_RESPONSE_CODE_INTERNAL_ERROR);
  } else {
    Reply(exchange, call.head, call.options, out, static_cast<size_t>(result));
  }
}

void AnswerSync(const DirectRequest &request, uint8_t *payload, uint32_t len) {
  const Exchange &exchange = request.exchange;
  uint8_t *out = SharedAnswerBuffer(exchange.ctx->ser);
  if (!out) {
    ReplyCode(exchange, COAP_RESPONSE_CODE_SERVICE_UNAVAILABLE);
    return;
  }
  DirectCall call = {exchange, DefaultHead(exchange.request), 0, nullptr};
  const int32_t result = CallOnRequest(request, &call, payload, len, out);
  ReplySync(exchange, call, out, result);
  FreeReplyOptions(exchange.ctx, call.options);
  if (IsOnce(MethodOf(exchange))) RememberAnswer(exchange.ctx, request.id, exchange.response);
}

// CallOnAsync returns the request afterwards; null when the callback has closed its listen.
DirectAsync *CallOnAsync(const Exchange &exchange, uintptr_t id, uint8_t *payload, uint32_t len) {
  const CoapRpcSerVtblReg &reg = exchange.entry->reg;
  DirectCall call = {exchange, {}, id, nullptr};
  const Calling calling(exchange.ctx->lib->direct, &call);
  ++exchange.entry->counts.stats.requests;
  {
    CallbackTime time(exchange.ctx, exchange.entry->key.uri, &exchange.entry->counts);
    reg.onAsyncRequest(reg.userData, payload, len, reinterpret_cast<void *>(id));
  }
  return FindDirectAsync(exchange.ctx, id);
}

void AnswerAsync(const DirectRequest &request, uint8_t *payload, uint32_t len) {
  const Exchange &exchange = request.exchange;
  DirectAsync *async = OpenAsync(request);
  if (async) async = CallOnAsync(exchange, async->id, payload, len);
  if (!async) {
    ReplyCode(exchange, COAP_RESPONSE_CODE_SERVICE_UNAVAILABLE);
  } else if (async->isAnswered) {
    ReplyNow(async, exchange);
  }
}

void RunMode(const DirectRequest &request, uint8_t *payload, uint32_t len) {
  const Exchange &exchange = request.exchange;
  const CoapRpcSerVtblReg &reg = exchange.entry->reg;
  const uint32_t mode = ModeOf(exchange.entry);
  LogRequest(exchange, payload, len);
  if (mode == kModeSync && reg.onRequest) {
    AnswerSync(request, payload, len);
  } else if (mode == kModeAsync && reg.onAsyncRequest) {
    AnswerAsync(request, payload, len);
  } else {
    ReplyCode(exchange, COAP_RESPONSE_CODE_NOT_IMPLEMENTED);
  }
}

// RunCopy gives the application a NUL-terminated copy of the payload in `room`.
void RunCopy(const DirectRequest &request, const uint8_t *data, size_t len, uint8_t *room) {
  if (len != 0) memcpy(room, data, len);
  room[len] = '\0';
  RunMode(request, room, static_cast<uint32_t>(len));
}

void Run(const DirectRequest &request) {
  const Exchange &exchange = request.exchange;
  size_t len = 0;
  const uint8_t *data = nullptr;
  if (coap_get_data(exchange.request, &len, &data) == 0) len = 0;
  uint8_t small[kSmallPayload];
  if (len < sizeof(small)) {
    RunCopy(request, data, len, small);
    return;
  }
  const uint64_t mem = exchange.ctx->param.memHandle;
  const PoolPtr<uint8_t> copy(static_cast<uint8_t *>(PoolAlloc(mem, len + 1)), {mem});
  if (copy) {
    RunCopy(request, data, len, copy.get());
  } else {
    ReplyCode(exchange, COAP_RESPONSE_CODE_SERVICE_UNAVAILABLE);
  }
}

// ---- requests ----

bool IsAllowed(const Exchange &exchange) {
  const uint32_t methods = DirectEntryOf(exchange.entry)->param.methods;
  return (methods >> MethodOf(exchange) & 1) != 0;
}

// ByteOf returns the lowest byte of a number.
uint8_t ByteOf(const coap_opt_t *option) {
  return static_cast<uint8_t>(
      coap_decode_var_bytes(coap_opt_value(option), coap_opt_length(option)));
}

DirectOptions OptionsOf(const coap_pdu_t *request) {
  DirectOptions options = {};
  coap_opt_iterator_t it;
  coap_option_iterator_init(request, &it, COAP_OPT_ALL);
  while (const coap_opt_t *option = coap_option_next(&it)) {
    if (it.number == COAP_OPTION_ETAG) options.hasETag = true;
    if (it.number == COAP_OPTION_OBSERVE) options.isObserve = true;
    if (it.number == COAP_OPTION_BLOCK2) options.isLaterBlock = coap_opt_block_num(option) != 0;
    if (it.number == COAP_OPTION_NORESPONSE) options.unwanted = ByteOf(option);
  }
  return options;
}

// Serve: a record of a read request is one of an open one, and libcoap itself answers for the later
// blocks that it still has.
void Serve(const DirectRequest &request) {
  const Exchange &exchange = request.exchange;
  const OnceRecord *known = FindOnce(exchange.ctx, request.id);
  if (known) {
    RepeatAnswer(known, exchange.response);
  } else if (IsOnce(MethodOf(exchange)) && request.options.isLaterBlock) {
    ReplyCode(exchange, COAP_RESPONSE_CODE_INCOMPLETE);
  } else {
    Run(request);
  }
}

void HandleOffered(coap_resource_t *resource, coap_session_t *session, const coap_pdu_t *request,
                   const coap_string_t *query, coap_pdu_t *response) {
  Exchange exchange = MakeExchange(resource, session, request, query, response);
  if (!ServeDirect(exchange)) ReplyCode(exchange, COAP_RESPONSE_CODE_NOT_ALLOWED);
}

// AllowedMethods are those of all direct entries of a resource.
uint32_t AllowedMethods(CoapRpcCtx *ctx, coap_resource_t *resource) {
  CoapRpcSerUriRes *res = UriResOf(ctx, resource);
  uint32_t methods = 0;
  if (!res) return methods;
  const ResEntries entries(res->uriDataList);
  CoapRpcSerUriVtbl *entry = FirstDirect(entries, entries.First());
  for (; entry; entry = FirstDirect(entries, entries.After(entry))) {
    methods |= DirectEntryOf(entry)->param.methods;
  }
  return methods;
}

// ---- links ----

// LinkTextOf returns the first text that a direct entry of a uri has of a kind; null for none.
const char *LinkTextOf(const ResEntries &entries, uint32_t kind) {
  CoapRpcSerUriVtbl *entry = FirstDirect(entries, entries.First());
  while (entry && !DirectEntryOf(entry)->links[kind]) {
    entry = FirstDirect(entries, entries.After(entry));
  }
  return entry ? DirectEntryOf(entry)->links[kind] : nullptr;
}

// ShowLink returns false without memory; the resource shows what it did.
bool ShowLink(CoapRpcCtx *ctx, coap_resource_t *resource, uint32_t kind) {
  CoapRpcSerUriRes *res = UriResOf(ctx, resource);
  if (!res) return true;
  const char *text = LinkTextOf(ResEntries(res->uriDataList), kind);
  return CoapRpcLibSetLinkAttribute(resource, kLinkNames[kind], text) != 0;
}

// ---- entries ----

bool HasRoom(CoapRpcCtx *ctx) {
  if (ctx->lib->direct) return true;
  ctx->lib->direct = NewZeroed<CoapRpcDirect>(ctx->param.memHandle).release();
  if (!ctx->lib->direct) return false;
  InitOnce(ctx->lib->direct->once);
  return true;
}

DirectEntry *NewEntry(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry) {
  DirectEntry *direct = NewZeroed<DirectEntry>(ctx->param.memHandle).release();
  if (!direct) return nullptr;
  direct->entry = entry;
  entry->lib.direct = direct;
  Entries(ctx->lib->direct->entryList).Append(direct);
  return direct;
}

DirectEntry *FindOrNewEntry(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry) {
  if (!HasRoom(ctx)) return nullptr;
  return entry->lib.direct ? DirectEntryOf(entry) : NewEntry(ctx, entry);
}

CoapRpcSerDirectParam WithDefaults(const CoapRpcSerDirectParam *param) {
  CoapRpcSerDirectParam out = param ? *param : CoapRpcSerDirectParam{};
  if (out.methods == 0) out.methods = COAP_RPC_ALLOW_GET | COAP_RPC_ALLOW_POST;
  if (out.timeoutMs == 0) out.timeoutMs = kDirectTimeoutMs;
  return out;
}

// ResourceOf returns null while no entry of the uri is attached.
coap_resource_t *ResourceOf(CoapRpcCtx *ctx, const CoapRpcSerUriVtbl *entry) {
  const UriText uri(entry->key.uri);
  coap_str_const_t path{strlen(uri.c_str()), reinterpret_cast<const uint8_t *>(uri.c_str())};
  return coap_get_resource_from_uri_path(ctx->lib->coapCtx, &path);
}

void OfferMethods(CoapRpcCtx *ctx, coap_resource_t *resource) {
  const uint32_t allowed = AllowedMethods(ctx, resource);
  for (const uint8_t method : kOfferedMethods) {
    const bool isAllowed = (allowed >> method & 1) != 0;
    coap_register_handler(resource, static_cast<coap_request_t>(method),
                          isAllowed ? HandleOffered : nullptr);
  }
}

CoapRpcSerUriVtbl *FindEntry(CoapRpcCtx *ctx, const CoapRpcUriKey *key) {
  return ctx->ser && ctx->lib ? ctx->ser->findUriVtbl(ctx->ser, key) : nullptr;
}

// SetLink gives an entry a text, or null; false, changing nothing, without memory to show it.
bool SetLink(CoapRpcCtx *ctx, DirectEntry *direct, uint32_t kind, PoolPtr<char> text) {
  coap_resource_t *resource = ResourceOf(ctx, direct->entry);
  char *former = direct->links[kind];
  direct->links[kind] = text.get();
  if (resource && !ShowLink(ctx, resource, kind)) {
    direct->links[kind] = former;
    return false;
  }
  (void)text.release();
  PoolFree(ctx->param.memHandle, former);
  return true;
}

}  // namespace

bool ServeDirect(Exchange &exchange) {
  if (!exchange.ctx || !exchange.ctx->lib->direct) return false;
  CoapRpcSerUriVtbl *entry = FindDirect(exchange);
  if (!entry) return false;
  const DirectRequest request = {exchange, IdOf(exchange), OptionsOf(exchange.request)};
  if (IsForObservers(exchange, request.options)) return false;
  exchange.entry = entry;
  if (IsAllowed(exchange)) {
    Serve(request);
  } else {
    ReplyCode(exchange, COAP_RESPONSE_CODE_NOT_ALLOWED);
  }
  return true;
}

int ServeDirectBlock(coap_session_t *session, coap_resource_t *resource, const coap_pdu_t *request,
                     coap_pdu_t *response, int isAnswered) {
  const Exchange exchange = MakeExchange(resource, session, request, nullptr, response);
  if (!IsOnce(MethodOf(exchange)) || !HasDirectEntry(exchange)) return 0;
  const OnceId id = IdOf(exchange);
  const OnceRecord *known = FindOnce(exchange.ctx, id);
  if (known) {
    RepeatAnswer(known, response);
  } else if (isAnswered != 0) {
    RememberAnswer(exchange.ctx, id, exchange.response);
  }
  return known ? 1 : 0;
}

void AcceptObserver(const Exchange &exchange) {
  const bool isFirst = exchange.entry && exchange.entry->lib.direct &&
                       coap_pdu_get_code(exchange.response) == COAP_RESPONSE_CODE_CREATED &&
                       CoapRpcLibStoredRequest(exchange.resource, exchange.session,
                                               exchange.request) != exchange.request;
  if (isFirst) ReplyCode(exchange, COAP_RESPONSE_CODE_CONTENT);
}

void OfferDirect(CoapRpcCtx *ctx, coap_resource_t *resource) {
  if (!ctx->lib->direct) return;
  OfferMethods(ctx, resource);
  // Without memory the resource is served all the same.
  for (uint32_t kind = 0; kind < kNumLinks; ++kind) (void)ShowLink(ctx, resource, kind);
}

void FreeDirect(CoapRpcCtx *ctx) {
  CoapRpcDirect *direct = ctx->lib->direct;
  if (!direct) return;
  Entries(direct->entryList).Drain([](DirectEntry *entry) { LinkRemove(entry->link); });
  PoolFree(ctx->param.memHandle, direct);
  ctx->lib->direct = nullptr;
}

void ForgetDirectEntry(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry) {
  DirectEntry *direct = DirectEntryOf(entry);
  if (!direct) return;
  if (ctx->lib) DropDirectRequests(ctx, direct);
  LinkRemove(direct->link);
  if (ctx->lib) ++ctx->lib->direct->numLeft;
  for (char *text : direct->links) PoolFree(ctx->param.memHandle, text);
  PoolFree(ctx->param.memHandle, direct);
  entry->lib.direct = nullptr;
}

}  // namespace coap_rpc

using namespace coap_rpc;

uint32_t COAP_RpcSerSetDirect(CoapRpcCtx *ctx, const CoapRpcUriKey *key,
                              const CoapRpcSerDirectParam *param) {
  if (!ctx || !key) return Violated(kSiteSetDirectNullArg);
  const bool hasBadMethods = param && (param->methods & ~uint32_t{COAP_RPC_ALLOW_ALL}) != 0;
  if (hasBadMethods) return Code(kSiteSetDirectBadMethods);
  CoapRpcSerUriVtbl *entry = FindEntry(ctx, key);
  if (!entry) return Code(kSiteSetDirectNoEntry);
  DirectEntry *direct = FindOrNewEntry(ctx, entry);
  if (!direct) return Code(kSiteSetDirectNoMemory);
  direct->param = WithDefaults(param);
  if (coap_resource_t *resource = ResourceOf(ctx, entry)) OfferDirect(ctx, resource);
  return 0;
}

uint32_t COAP_RpcSerSetLinkAttribute(CoapRpcCtx *ctx, const CoapRpcUriKey *key, const char *name,
                                     const char *value) {
  if (!ctx || !key || !name) return Violated(kSiteSetLinkNullArg);
  const uint32_t kind = FindLink(name);
  if (kind == kNumLinks || (value && !IsLinkValue(kind, value))) return Code(kSiteSetLinkBadValue);
  CoapRpcSerUriVtbl *entry = FindEntry(ctx, key);
  if (!entry || !entry->lib.direct) return Code(kSiteSetLinkNoEntry);
  PoolPtr<char> text = NewLinkText(ctx, kind, value);
  const bool hasText = text || !value;
  const bool isSet = hasText && SetLink(ctx, DirectEntryOf(entry), kind, std::move(text));
  return isSet ? 0 : Code(kSiteSetLinkNoMemory);
}
