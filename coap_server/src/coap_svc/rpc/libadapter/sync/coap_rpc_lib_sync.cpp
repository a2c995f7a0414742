#include "coap_svc/rpc/libadapter/sync/coap_rpc_lib_sync.h"

#include <algorithm>

#include "coap_svc/rpc/common/coap_rpc_limits.h"
#include "coap_svc/rpc/common/coap_rpc_list.h"
#include "coap_svc/rpc/common/coap_rpc_probe.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_data.h"
#include "coap_svc/rpc/libadapter/message/coap_rpc_lib_lookup.h"
#include "coap_svc/rpc/libadapter/message/coap_rpc_lib_msg.h"
#include "coap_svc/rpc/libadapter/sync/coap_rpc_lib_sync_body.h"
#include "coap_svc/rpc/libadapter/sync/coap_rpc_lib_sync_page.h"
#include "coap_svc/rpc/libadapter/sync/coap_rpc_lib_sync_query.h"
#include "coap_svc/rpc/server/sync/coap_rpc_ser_sync.h"
#include "libcoap/ext/coap_rpc_lib_internals.h"
#include "libcoap/ext/coap_rpc_lib_observers.h"

namespace coap_rpc {
namespace {

constexpr uint16_t kCbor = COAP_MEDIATYPE_APPLICATION_CBOR;
constexpr uint16_t kJson = COAP_MEDIATYPE_APPLICATION_JSON;

using TellList = COAP_RPC_LIST(CoapRpcSerSync, tellLink);

// RequestOf returns the stored request of a reader; null for other observers.
const coap_pdu_t *RequestOf(const CoapRpcCtx *ctx, const coap_subscription_t *subscription) {
  const coap_pdu_t *request = CoapRpcLibSubscriptionPdu(subscription);
  return ctx && ctx->ser && request && IsSyncRequest(request) ? request : nullptr;
}

// SyncedEntryOf returns the entry with versions that a reader's request reaches, or null.  That of
// the request's own type comes first.
CoapRpcSerUriVtbl *SyncedEntryOf(CoapRpcCtx *ctx, const coap_pdu_t *request,
                                 const coap_session_t *session) {
  CoapRpcSerUriVtbl *own = CoapRpcLibObservableVtbl(ctx, request, session, 0);
  if (own && own->sync) return own;
  CoapRpcSerUriVtbl *other = CoapRpcLibObservableVtbl(ctx, request, session, 1);
  return other && other->sync ? other : nullptr;
}

// Registration is one that ends, with what its libcoap record says of its peer.
struct Registration {
  const coap_session_t *session;
  const void *peer;
};

// IsCountedAt says whether an entry has counted a registration: its peer is named in the record, or
// has none because it has had several.
int IsCountedAt(CoapRpcSerUriVtbl *entry, const void *arg) {
  const auto &ending = *static_cast<const Registration *>(arg);
  const SyncPeer *peer = entry->sync ? SyncPeerFind(entry->sync->peers, ending.session) : nullptr;
  if (!peer) return 0;
  return (ending.peer ? peer == ending.peer : !peer->record) ? 1 : 0;
}

CoapRpcSerSync &SyncOf(const Exchange &exchange) { return *exchange.entry->sync; }

SyncPeer *PeerOf(const Exchange &exchange) {
  return SyncPeerFind(SyncOf(exchange).peers, exchange.session);
}

bool HasOption(const coap_pdu_t *pdu, coap_option_num_t number) {
  coap_opt_iterator_t it;
  return coap_check_option(pdu, number, &it) != nullptr;
}

// AcceptOf returns the format that a request wants.
uint32_t AcceptOf(const coap_pdu_t *request) {
  coap_opt_iterator_t it;
  const coap_opt_t *option = coap_check_option(request, COAP_OPTION_ACCEPT, &it);
  return option ? coap_decode_var_bytes(coap_opt_value(option), coap_opt_length(option)) : kCbor;
}

void AddFormat(coap_pdu_t *response, uint16_t format) {
  uint8_t value[2];
  const unsigned len = coap_encode_var_safe(value, sizeof(value), format);
  coap_add_option(response, COAP_OPTION_CONTENT_FORMAT, len, value);
}

// AttachMessage puts a page into the response's only message.
bool AttachMessage(const Exchange &exchange, const uint8_t *bytes, size_t len) {
  AddFormat(exchange.response, kCbor);
  return coap_add_data(exchange.response, len, bytes) != 0;
}

bool AttachCborBody(const Exchange &exchange, const SyncPage &page) {
  PoolPtr<SyncBody> body = NewSyncBody(exchange, SyncPageBound(page));
  if (!body) return false;
  body->len = WriteSyncPage(page, BytesOf(body.get()));
  return AttachSyncBody(exchange, kCbor, std::move(body));
}

bool AttachJsonBody(const Exchange &exchange, const SyncPage &page) {
  size_t len = 0;
  const PoolPtr<char> text = WriteSyncJson(page, &len);
  PoolPtr<SyncBody> body = text ? NewSyncBody(exchange, len) : nullptr;
  if (!body) return false;
  std::copy_n(text.get(), len, BytesOf(body.get()));
  return AttachSyncBody(exchange, kJson, std::move(body));
}

bool AttachCbor(const Exchange &exchange, const SyncPage &page) {
  uint8_t bytes[COAP_RPC_SYNC_MAX_PAGE];
  const bool isOneMessage = SyncPageBound(page) <= sizeof(bytes);
  if (!isOneMessage || HasOption(exchange.request, COAP_OPTION_BLOCK2)) {
    return AttachCborBody(exchange, page);
  }
  return AttachMessage(exchange, bytes, WriteSyncPage(page, bytes));
}

// AnswerPage answers with a page, or with 5.03 for want of memory.
void AnswerPage(const Exchange &exchange, const SyncPage &page) {
  ++exchange.ctx->counts.syncPages;
  const bool isJson = AcceptOf(exchange.request) == kJson;
  const bool isAttached = isJson ? AttachJsonBody(exchange, page) : AttachCbor(exchange, page);
  coap_pdu_set_code(exchange.response, isAttached ? COAP_RESPONSE_CODE_CONTENT
                                                  : COAP_RESPONSE_CODE_SERVICE_UNAVAILABLE);
}

uint32_t FlagsFor(const SyncPeer *peer) { return peer ? 0u : uint32_t{kSyncNotObserving}; }

// IsLost says whether a reader that knows the set's life cannot go on from what it has.
bool IsLost(const SyncSet &set, const SyncQuery &query) {
  const bool isFull = (query.found & kSyncArgFull) != 0;
  return query.since > set.head || (!isFull && query.since < set.floor);
}

// CollectFor takes what a reader is to get.
void CollectFor(CoapRpcSerSync &sync, const SyncQuery &query, uint32_t flags, SyncPage &page) {
  const bool isOtherLife = query.id != sync.set.replid;
  const bool isNewcomer = (query.found & kSyncArgId) == 0;
  if (isNewcomer) {
    EmptySyncPage(sync.set, 0, flags, page);
  } else if (isOtherLife || IsLost(sync.set, query)) {
    EmptySyncPage(sync.set, 0, flags | kSyncRestart, page);
  } else {
    CollectSyncPage(sync.set, {query.since, query.until, flags}, sync.param.pageBytes, page);
  }
}

// NoteConfirmed takes a pull as the confirmation that it is.
void NoteConfirmed(const Exchange &exchange, SyncPeer *peer, const SyncQuery &query) {
  const SyncSet &set = SyncOf(exchange).set;
  const bool isOfThisLife = query.id == set.replid && query.since <= set.head;
  if (!isOfThisLife || (query.found & kSyncArgFull) != 0) return;
  SyncObserverHas(exchange.entry, peer, query.since);
}

// IsFull says whether a reader begins to read everything.
bool IsFull(const SyncSet &set, const SyncQuery &query) {
  const bool isOfThisLife = query.id == set.replid && (query.found & kSyncArgId) != 0;
  return isOfThisLife && query.since == 0 && set.head != 0;
}

void CountPull(const Exchange &exchange, const SyncQuery &query) {
  CoapRpcStats &counts = exchange.ctx->counts;
  const char *path = exchange.entry->key.uri;
  ++counts.syncPulls;
  COAP_RPC_PROBE4(sync__pull, exchange.ctx, path, query.since, query.until);
  if (!IsFull(SyncOf(exchange).set, query)) return;
  ++counts.syncFull;
  COAP_RPC_PROBE2(sync__full, exchange.ctx, path);
}

void AnswerPull(const Exchange &exchange, const SyncQuery &query) {
  CountPull(exchange, query);
  SyncPeer *peer = PeerOf(exchange);
  const uint32_t flags = FlagsFor(peer);
  if (peer) SyncObserverAsks(exchange.entry, peer);
  if (peer) NoteConfirmed(exchange, peer, query);
  SyncPage page;
  CollectFor(SyncOf(exchange), query, flags, page);
  AnswerPage(exchange, page);
}

// IsObserved says whether libcoap has taken a registration.
bool IsObserved(const Exchange &exchange) {
  return CoapRpcLibStoredRequest(exchange.resource, exchange.session, exchange.request) != nullptr;
}

// Replace registers a request in place of what its session observes under its token.
const coap_pdu_t *Replace(const Exchange &exchange) {
  return CoapRpcLibReplaceObserver(exchange.resource, exchange.session, exchange.request);
}

// TakeToken makes a registration one of a reader whose token the session has been observing with by
// the change list.  False: no memory.
bool TakeToken(const Exchange &exchange) {
  const coap_pdu_t *stored =
      CoapRpcLibStoredRequest(exchange.resource, exchange.session, exchange.request);
  return !stored || IsSyncRequest(stored) || Replace(exchange) != nullptr;
}

void SetPeerAddress(SyncPeer &peer, const coap_session_t *session) {
  peer.addr = {};
  peer.addr.port = coap_address_get_port(COAP_RpcGetRemoteAddr(session, &peer.addr.listenAddr));
}

// IsTooMany says whether a registration is one that libcoap has taken and that cannot be kept.
bool IsTooMany(const Exchange &exchange, const SyncPeer *peer) {
  const bool isKept = peer && peer->numRegistrations <= kMaxSyncRegistrations;
  return !isKept && IsObserved(exchange);
}

// AnswerRegistration gives the head.  An error, as when the observer was not counted for want of
// memory, makes libcoap forget it.
void AnswerRegistration(const Exchange &exchange, const SyncQuery &query) {
  if (query.found != kSyncArgSync) {
    coap_pdu_set_code(exchange.response, COAP_RESPONSE_CODE_BAD_REQUEST);
  } else if (AcceptOf(exchange.request) != kCbor) {
    coap_pdu_set_code(exchange.response, COAP_RESPONSE_CODE_NOT_ACCEPTABLE);
  } else if (!TakeToken(exchange)) {
    coap_pdu_set_code(exchange.response, COAP_RESPONSE_CODE_SERVICE_UNAVAILABLE);
  } else if (IsTooMany(exchange, PeerOf(exchange))) {
    ++exchange.ctx->counts.refused[COAP_RPC_LIMIT_SYNC_REGISTRATIONS];
    coap_pdu_set_code(exchange.response, COAP_RESPONSE_CODE_SERVICE_UNAVAILABLE);
  } else {
    AnswerPull(exchange, query);
  }
}

void AnswerReader(const Exchange &exchange) {
  SyncQuery query;
  uint32_t isRegistration = 0;
  COAP_RpcGetObserveOption(exchange.request, &isRegistration);
  const uint32_t accept = AcceptOf(exchange.request);
  if (!ReadSyncQuery(exchange.request, query)) {
    coap_pdu_set_code(exchange.response, COAP_RESPONSE_CODE_BAD_REQUEST);
  } else if (accept != kCbor && accept != kJson) {
    coap_pdu_set_code(exchange.response, COAP_RESPONSE_CODE_NOT_ACCEPTABLE);
  } else if (isRegistration != 0) {
    AnswerRegistration(exchange, query);
  } else {
    AnswerPull(exchange, query);
  }
}

// BuildRound makes the page of a round, for the first of its observers.
void BuildRound(CoapRpcSerSync &sync) {
  const uint32_t flags = kSyncNotification | (sync.param.onConfirmed ? uint32_t{kSyncConfirm} : 0u);
  SyncPage page;
  CollectSyncRound(sync.set, sync.notified, flags, sync.param.pageBytes, page);
  sync.pageLen = WriteSyncPage(page, sync.page);
  SyncRoundBegins(sync);
}

// RoomIn returns how long an observer wants messages to be at most, by its registration.
size_t RoomIn(const coap_pdu_t *request) {
  coap_block_t block = {};
  const bool isAsked = coap_get_block(request, COAP_OPTION_BLOCK2, &block) != 0;
  return isAsked ? size_t{1} << (block.szx + 4) : COAP_RPC_SYNC_MAX_PAGE;
}

void Notify(const Exchange &exchange) {
  CoapRpcSerSync &sync = SyncOf(exchange);
  ++exchange.ctx->counts.syncPages;
  ++exchange.ctx->counts.notifications;
  ++exchange.entry->counts.stats.notifications;
  COAP_RPC_PROBE3(notification, exchange.ctx, exchange.entry->key.uri,
                  coap_pdu_get_mid(exchange.response));
  if (sync.pageLen == 0 || sync.pageHead != sync.set.head) BuildRound(sync);
  coap_pdu_set_type(exchange.response, COAP_MESSAGE_NON);
  coap_pdu_set_code(exchange.response, COAP_RESPONSE_CODE_CONTENT);
  if (sync.pageLen <= RoomIn(exchange.request)) AttachMessage(exchange, sync.page, sync.pageLen);
}

// IsNotificationOf asks the peer first: libcoap goes through all observers for it.
bool IsNotificationOf(const SyncPeer *peer, const Exchange &exchange) {
  if (peer && CoapRpcLibRequestOf(peer->record) == exchange.request) return true;
  return HasOption(exchange.request, COAP_OPTION_OBSERVE) &&
         CoapRpcLibStoredRequest(exchange.resource, exchange.session, exchange.request) ==
             exchange.request;
}

// MayBeRead spares most requests the look at their options.  libcoap gives no query when there was
// no memory for it, which must not make the notification of a reader that of another observer.
bool MayBeRead(const Exchange &exchange) {
  return exchange.query || exchange.ctx->lib->numSyncObservers != 0;
}

void WakeSoon(CoapRpcCtx *ctx) {
  CoapRpcLibWakeIn(ctx->lib->coapCtx, 0);
  ctx->libExt->runSoon(ctx);
}

// ListSync puts an entry on the list of those that the last step of a turn looks at.
void ListSync(CoapRpcCtx *ctx, CoapRpcSerSync &sync) {
  if (LinkIsAlone(sync.tellLink)) TellList(ctx->lib->syncTellList).Append(&sync);
}

// NotifyPeer notifies the next of a URI's observers; a URI without any is taken off the list.
void NotifyPeer(CoapRpcCtx *ctx, CoapRpcSerSync *sync) {
  coap_resource_t *resource = CoapRpcLibResourceOf(ctx, sync->set.entry);
  SyncPeer *peer = resource ? SyncPeerTakeTurn(sync->peers) : nullptr;
  if (!peer) {
    LinkRemove(sync->tellLink);
    SyncObserversHaveLeft(sync->set.entry);
  } else if (peer->record) {
    CoapRpcLibNotifyOne(resource, peer->record);
  } else {
    CoapRpcLibNotifyQueried(resource, peer->session);
  }
}

// EndRegistration counts one less.  What that means for the others is left to a turn's end: this
// one's, or the next one's outside of a turn.
void EndRegistration(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry, const coap_session_t *session) {
  SyncObserverLeaves(entry, session);
  if (!ctx->lib) return;
  ListSync(ctx, *entry->sync);
  WakeSoon(ctx);
}

}  // namespace

bool ServeSync(Exchange &exchange) {
  if (!exchange.ctx || !MayBeRead(exchange) || !IsSyncRequest(exchange.request)) return false;
  exchange.entry = SyncedEntryOf(exchange.ctx, exchange.request, exchange.session);
  if (!exchange.entry) return false;
  if (IsNotificationOf(PeerOf(exchange), exchange)) {
    Notify(exchange);
  } else {
    AnswerReader(exchange);
  }
  return true;
}

void TellSyncRounds(CoapRpcCtx *ctx) {
  TellList syncs(ctx->lib->syncTellList);
  for (uint32_t i = 0; i < kSyncPortion && !syncs.IsEmpty(); ++i) NotifyPeer(ctx, syncs.First());
  if (syncs.IsEmpty()) return;
  syncs.Append(syncs.First());
  WakeSoon(ctx);
}

const coap_pdu_t *LeaveToken(const Exchange &exchange, const coap_pdu_t *stored) {
  if (exchange.ctx->lib->numSyncObservers == 0 || !IsSyncRequest(stored)) return stored;
  return Replace(exchange);
}

bool AddSyncObserver(CoapRpcCtx *ctx, const coap_session_t *session,
                     coap_subscription_t *subscription) {
  const coap_pdu_t *request = RequestOf(ctx, subscription);
  CoapRpcSerUriVtbl *entry = request ? SyncedEntryOf(ctx, request, session) : nullptr;
  if (!entry) return false;
  ++ctx->lib->numSyncObservers;
  SyncPeer *peer = SyncObserverComes(entry, session, CoapRpcLibOwnerOf(subscription));
  if (peer) SetPeerAddress(*peer, session);
  return true;
}

bool DelSyncObserver(CoapRpcCtx *ctx, const coap_session_t *session,
                     coap_subscription_t *subscription) {
  const coap_pdu_t *request = RequestOf(ctx, subscription);
  if (!request) return false;
  void **record = CoapRpcLibOwnerOf(subscription);
  const Registration ending = {session, *record};
  CoapRpcSerUriVtbl *counted = CoapRpcLibFindObservable(ctx, request, IsCountedAt, &ending);
  SyncRecordGoes(record);
  if (!counted && !SyncedEntryOf(ctx, request, session)) return false;
  if (ctx->lib && ctx->lib->numSyncObservers != 0) --ctx->lib->numSyncObservers;
  if (counted) EndRegistration(ctx, counted, session);
  return true;
}

void NotifyUnsynced(CoapRpcCtx *ctx, coap_resource_t *resource) {
  if (ctx->lib->numSyncObservers == 0) {
    coap_resource_notify_observers(resource, nullptr);
  } else {
    CoapRpcLibNotifyUnqueried(resource);
  }
}

uint32_t PushSync(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry) {
  coap_resource_t *resource = CoapRpcLibResourceOf(ctx, entry);
  CoapRpcSerSync &sync = *entry->sync;
  if (!resource || sync.peers.num == 0) return 0;
  SyncPeersBeginRound(sync.peers);
  CoapRpcLibBeginRound(resource);
  ListSync(ctx, sync);
  return sync.peers.num;
}

// libcoap goes on with the resource after its callbacks: what they give up is freed by the next
// turn of the I/O.
void DropSyncObserver(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry, const void *session) {
  coap_resource_t *resource = CoapRpcLibResourceOf(ctx, entry);
  if (!resource) return;
  ++ctx->ioDepth;
  CoapRpcLibDropQueried(resource, session);
  --ctx->ioDepth;
  if (ctx->lib->hasRetired != 0) WakeSoon(ctx);
}

}  // namespace coap_rpc
