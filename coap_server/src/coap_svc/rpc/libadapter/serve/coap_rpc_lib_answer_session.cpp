#include "coap_svc/rpc/libadapter/serve/coap_rpc_lib_answer_session.h"

#include <netinet/in.h>

#include <algorithm>
#include <type_traits>

#include "coap_svc/rpc/common/coap_rpc_limits.h"
#include "coap_svc/rpc/common/coap_rpc_own.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_data.h"
#include "coap_svc/rpc/libadapter/message/coap_rpc_lib_clock.h"
#include "coap_svc/rpc/server/coap_rpc_ser_uri.h"
#include "libcoap/ext/coap_rpc_lib_internals.h"
#include "libcoap/ext/coap_rpc_lib_source.h"
#include "osal.h"

namespace coap_rpc {
namespace {

// Keys are compared as bytes.
static_assert(std::has_unique_object_representations_v<AnswerSessionKey>);

int32_t ComparePeers(const void *a, const void *b) { return OSAL_MemCmp(a, b, sizeof(PeerKey)); }

int32_t CompareSessions(const void *a, const void *b) {
  return OSAL_MemCmp(a, b, sizeof(AnswerSessionKey));
}

using Peers = COAP_RPC_TABLE(Peer, key, PeerKey, ComparePeers);
using SessionTable = COAP_RPC_TABLE(AnswerSession, key, AnswerSessionKey, CompareSessions);
using IdleSessions = COAP_RPC_LIST(AnswerSession, idleLink);

// libcoap finds the transfer that a response belongs to by the low 48 bits of its token, and counts
// the tokens of its transfers from 1: keep them away from those of requests and stand-ins.
constexpr uint8_t kFirstToken[] = {0x80, 0, 0, 0, 0, 1};

// ---- peers ----

Peer *NewPeer(CoapRpcCtx *ctx, const PeerKey &key) {
  auto peer = NewZeroed<Peer>(ctx->param.memHandle);
  if (!peer) return nullptr;
  peer->key = key;
  (void)Peers(ctx->lib->peerTree).Insert(peer.get());
  return peer.release();
}

Peer *FindOrNewPeer(CoapRpcCtx *ctx, const PeerKey &key) {
  Peer *peer = Peers(ctx->lib->peerTree).Find(&key);
  return peer ? peer : NewPeer(ctx, key);
}

void FreePeerIfUnused(CoapRpcCtx *ctx, Peer *peer) {
  if (peer->numAnswerSessions != 0) return;
  Peers(ctx->lib->peerTree).Remove(peer);
  PoolFree(ctx->param.memHandle, peer);
}

// ---- spare answer sessions ----

void MakeSpare(CoapRpcCtx *ctx, AnswerSession *sender) {
  sender->isSpare = true;
  sender->spareSince = NowTicks();
  IdleSessions(ctx->lib->spareSessionList).Append(sender);
  ++ctx->lib->numSpareSessions;
}

// Unlist takes an answer session off the list of leaving or of spare ones.
void Unlist(CoapRpcCtx *ctx, AnswerSession *sender) {
  if (sender->isSpare) --ctx->lib->numSpareSessions;
  sender->isSpare = false;
  LinkRemove(sender->idleLink);
}

void Release(CoapRpcCtx *ctx, AnswerSession *sender) {
  Unlist(ctx, sender);
  SessionTable(ctx->lib->answerSessionTree).Remove(sender);
  LinkRemove(sender->allLink);
  LinkRemove(sender->queuedLink);
  --ctx->lib->numAnswerSessions;
  --sender->peer->numAnswerSessions;
  FreePeerIfUnused(ctx, sender->peer);
  coap_session_release(sender->session);
  PoolFree(ctx->param.memHandle, sender);
}

bool IsTooOld(const AnswerSession &spare) {
  return HasPassed(spare.spareSince, kSpareSessionKeepMs);
}

// MaxSpare leaves room for the new peers of a turn, in which no answer session can be released.
uint32_t MaxSpare(const CoapRpcCtx *ctx) {
  constexpr uint32_t kMost = kMaxAnswerSessions - kAnswerSessionsPerTurn;
  return std::min(kMaxSpareSessions, kMost - std::min(NumAnswerSessions(ctx), kMost));
}

void TrimSpare(CoapRpcCtx *ctx) {
  IdleSessions spare(ctx->lib->spareSessionList);
  while (AnswerSession *oldest = spare.First()) {
    if (ctx->lib->numSpareSessions <= MaxSpare(ctx) && !IsTooOld(*oldest)) return;
    Release(ctx, oldest);
  }
}

// Settle decides on an answer session that has no requests any more.
void Settle(CoapRpcCtx *ctx, AnswerSession *sender) {
  if (!sender->isClosed && !CoapRpcLibIsIdle(sender->session)) return;
  if (sender->isClosed || sender->isFailed) {
    Release(ctx, sender);
  } else {
    MakeSpare(ctx, sender);
  }
}

// ---- opening ----

bool OpenSession(CoapRpcCtx *ctx, AnswerSession *sender, const coap_address_t &peer) {
  sender->session = coap_new_client_session(ctx->lib->coapCtx, nullptr, &peer,
                                            static_cast<coap_proto_t>(sender->key.peer.proto));
  if (!sender->session) return false;
  coap_session_init_token(sender->session, sizeof(kFirstToken), kFirstToken);
  CoapRpcLibSetOneWay(sender->session);
  return true;
}

AnswerSession *Enlist(CoapRpcCtx *ctx, AnswerSession *sender, Peer *peer) {
  sender->peer = peer;
  ++peer->numAnswerSessions;
  ++ctx->lib->numAnswerSessions;
  (void)SessionTable(ctx->lib->answerSessionTree).Insert(sender);
  AllSessions(ctx->lib->answerSessionList).Append(sender);
  return sender;
}

AnswerSession *Open(CoapRpcCtx *ctx, const AnswerSessionKey &key, const coap_address_t &addr) {
  if (ctx->lib->numAnswerSessions >= kMaxAnswerSessions) return nullptr;
  auto sender = NewZeroed<AnswerSession>(ctx->param.memHandle);
  if (!sender) return nullptr;
  sender->key = key;
  sender->fullUntil = COAP_INVALID_MID;
  Peer *peer = FindOrNewPeer(ctx, key.peer);
  if (!peer) return nullptr;
  if (OpenSession(ctx, sender.get(), addr)) return Enlist(ctx, sender.release(), peer);
  FreePeerIfUnused(ctx, peer);
  return nullptr;
}

AnswerSessionKey KeyOf(CoapRpcSerUriVtbl *entry, const coap_address_t &peer, coap_proto_t proto) {
  AnswerSessionKey key = {};
  key.entry = entry;
  key.peer = PeerKeyOf(peer, proto);
  return key;
}

// ---- caching ----

void Uncache(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry) {
  AnswerSession *sender = static_cast<AnswerSession *>(entry->lib.answerSession);
  entry->asyncSession = nullptr;
  entry->lib.answerSession = nullptr;
  if (!sender) return;
  sender->isCached = false;
  if (sender->isFailed) SessionTable(ctx->lib->answerSessionTree).Remove(sender);
  LeaveAnswerSession(ctx, sender);
}

void Cache(CoapRpcCtx *ctx, AnswerSession *sender) {
  Unlist(ctx, sender);
  sender->isCached = true;
  sender->key.entry->asyncSession = sender->session;
  sender->key.entry->lib.answerSession = sender;
}

}  // namespace

PeerKey PeerKeyOf(const coap_address_t &addr, coap_proto_t proto) {
  PeerKey key = {};
  key.family = static_cast<uint16_t>(addr.addr.sa.sa_family);
  key.port = coap_address_get_port(&addr);
  key.proto = static_cast<uint32_t>(proto);
  if (key.family == AF_INET) {
    memcpy(key.addr, &addr.addr.sin.sin_addr, sizeof(addr.addr.sin.sin_addr));
  } else if (key.family == AF_INET6) {
    memcpy(key.addr, &addr.addr.sin6.sin6_addr, sizeof(addr.addr.sin6.sin6_addr));
  }
  return key;
}

AnswerSession *AcquireAnswerSession(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry,
                                    const coap_address_t &peer, coap_proto_t proto) {
  const AnswerSessionKey key = KeyOf(entry, peer, proto);
  Uncache(ctx, entry);
  AnswerSession *sender = SessionTable(ctx->lib->answerSessionTree).Find(&key);
  if (!sender) sender = Open(ctx, key, peer);
  if (sender) Cache(ctx, sender);
  return sender;
}

void LeaveAnswerSession(CoapRpcCtx *ctx, AnswerSession *sender) {
  if (sender->isCached || !LinkIsAlone(sender->requestList)) return;
  IdleSessions(ctx->lib->leavingSessionList).Append(sender);
}

AnswerSession *FindAnswerSession(CoapRpcCtx *ctx, const coap_session_t *session) {
  return AllSessions(ctx->lib->answerSessionList).FindIf([=](const AnswerSession &sender) {
    return sender.session == session;
  });
}

void FailAnswerSession(CoapRpcCtx *ctx, AnswerSession *sender) {
  sender->isFailed = true;
  if (sender->isCached) return;
  Unlist(ctx, sender);
  SessionTable(ctx->lib->answerSessionTree).Remove(sender);
  LeaveAnswerSession(ctx, sender);
}

void CloseAnswerSession(CoapRpcCtx *ctx, AnswerSession *sender) {
  if (sender->isCached) Uncache(ctx, sender->key.entry);
  if (ctx->ioDepth == 0) {
    Release(ctx, sender);
    return;
  }
  Unlist(ctx, sender);
  SessionTable(ctx->lib->answerSessionTree).Remove(sender);
  sender->isClosed = true;
  IdleSessions(ctx->lib->leavingSessionList).Append(sender);
}

void RenewAnswerSessions(coap_session_t *session) {
  CoapRpcCtx *ctx = CoapRpcLibRootOf(session);
  const AnswerSession *cached = ctx && ctx->lib ? FindAnswerSession(ctx, session) : nullptr;
  if (!cached) return;
  AllSessions(ctx->lib->answerSessionList).ForEach([=](const AnswerSession *sender) {
    if (sender->key.entry == cached->key.entry) CoapRpcLibRenewSource(sender->session);
  });
}

void SettleAnswerSessions(CoapRpcCtx *ctx) {
  IdleSessions(ctx->lib->leavingSessionList).ForEach([=](AnswerSession *sender) {
    Settle(ctx, sender);
  });
  TrimSpare(ctx);
}

uint32_t NumAnswerSessions(const CoapRpcCtx *ctx) {
  return ctx->lib->numAnswerSessions - ctx->lib->numSpareSessions;
}

void FreeAnswerSessions(CoapRpcCtx *ctx) {
  AllSessions(ctx->lib->answerSessionList).Drain([=](AnswerSession *sender) {
    if (sender->isCached) Uncache(ctx, sender->key.entry);
    Release(ctx, sender);
  });
}

}  // namespace coap_rpc
