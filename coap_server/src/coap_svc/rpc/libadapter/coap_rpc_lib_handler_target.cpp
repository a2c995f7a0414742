#include "coap_svc/rpc/libadapter/coap_rpc_lib_handler_target.h"

#include <netinet/in.h>

#include <algorithm>
#include <type_traits>

#include "coap_svc/rpc/common/coap_rpc_limits.h"
#include "coap_svc/rpc/common/coap_rpc_own.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_ctx.h"
#include "coap_svc/rpc/server/coap_rpc_ser_uri.h"
#include "libcoap/ext/coap_rpc_lib_internals.h"
#include "libcoap/ext/coap_rpc_lib_source.h"
#include "osal.h"

namespace coap_rpc {
namespace {

// Keys are compared as bytes.
static_assert(std::has_unique_object_representations_v<TargetKey>);

int32_t ComparePeers(const void *a, const void *b) { return OSAL_MemCmp(a, b, sizeof(PeerKey)); }

int32_t CompareTargets(const void *a, const void *b) {
  return OSAL_MemCmp(a, b, sizeof(TargetKey));
}

using Peers = COAP_RPC_TABLE(Peer, key, PeerKey, ComparePeers);
using TargetTable = COAP_RPC_TABLE(Target, key, TargetKey, CompareTargets);
using AllTargets = COAP_RPC_LIST(Target, allLink);
using IdleTargets = COAP_RPC_LIST(Target, idleLink);

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
  if (peer->numTargets != 0) return;
  Peers(ctx->lib->peerTree).Remove(peer);
  PoolFree(ctx->param.memHandle, peer);
}

// ---- spare targets ----

coap_tick_t NowTicks() {
  coap_tick_t now = 0;
  coap_ticks(&now);
  return now;
}

void MakeSpare(CoapRpcCtx *ctx, Target *target) {
  target->isSpare = true;
  target->spareSince = NowTicks();
  IdleTargets(ctx->lib->spareTargetList).Append(target);
  ++ctx->lib->numSpareTargets;
}

// Unlist takes a target off the list of leaving or of spare ones.
void Unlist(CoapRpcCtx *ctx, Target *target) {
  if (target->isSpare) --ctx->lib->numSpareTargets;
  target->isSpare = false;
  LinkRemove(target->idleLink);
}

void Release(CoapRpcCtx *ctx, Target *target) {
  Unlist(ctx, target);
  TargetTable(ctx->lib->targetTree).Remove(target);
  LinkRemove(target->allLink);
  LinkRemove(target->queuedLink);
  --ctx->lib->numTargets;
  --target->peer->numTargets;
  FreePeerIfUnused(ctx, target->peer);
  coap_session_release(target->session);
  PoolFree(ctx->param.memHandle, target);
}

bool IsTooOld(const Target &spare) {
  return NowTicks() >=
         spare.spareSince + uint64_t{kSpareTargetKeepMs} * COAP_TICKS_PER_SECOND / 1000;
}

// MaxSpare leaves room for the new peers of a turn, in which no target can be released.
uint32_t MaxSpare(const CoapRpcCtx *ctx) {
  constexpr uint32_t kMost = kMaxTargets - kTargetsPerTurn;
  return std::min(kMaxSpareTargets, kMost - std::min(NumBusyTargets(ctx), kMost));
}

void TrimSpare(CoapRpcCtx *ctx) {
  IdleTargets spare(ctx->lib->spareTargetList);
  while (Target *oldest = spare.First()) {
    if (ctx->lib->numSpareTargets <= MaxSpare(ctx) && !IsTooOld(*oldest)) return;
    Release(ctx, oldest);
  }
}

// Settle decides on a target that has no requests any more.
void Settle(CoapRpcCtx *ctx, Target *target) {
  if (!target->isClosed && !CoapRpcLibIsIdle(target->session)) return;
  if (target->isClosed || target->isFailed) {
    Release(ctx, target);
  } else {
    MakeSpare(ctx, target);
  }
}

// ---- opening ----

bool OpenSession(CoapRpcCtx *ctx, Target *target, const coap_address_t &peer) {
  target->session = coap_new_client_session(ctx->lib->coapCtx, nullptr, &peer,
                                            static_cast<coap_proto_t>(target->key.peer.proto));
  if (!target->session) return false;
  coap_session_init_token(target->session, sizeof(kFirstToken), kFirstToken);
  CoapRpcLibSetOneWay(target->session);
  return true;
}

Target *Enlist(CoapRpcCtx *ctx, Target *target, Peer *peer) {
  target->peer = peer;
  ++peer->numTargets;
  ++ctx->lib->numTargets;
  (void)TargetTable(ctx->lib->targetTree).Insert(target);
  AllTargets(ctx->lib->targetList).Append(target);
  return target;
}

Target *Open(CoapRpcCtx *ctx, const TargetKey &key, const coap_address_t &addr) {
  if (ctx->lib->numTargets >= kMaxTargets) return nullptr;
  auto target = NewZeroed<Target>(ctx->param.memHandle);
  if (!target) return nullptr;
  target->key = key;
  target->fullUntil = COAP_INVALID_MID;
  Peer *peer = FindOrNewPeer(ctx, key.peer);
  if (!peer) return nullptr;
  if (OpenSession(ctx, target.get(), addr)) return Enlist(ctx, target.release(), peer);
  FreePeerIfUnused(ctx, peer);
  return nullptr;
}

TargetKey KeyOf(CoapRpcSerUriVtbl *entry, const coap_address_t &peer, coap_proto_t proto) {
  TargetKey key = {};
  key.entry = entry;
  key.peer = PeerKeyOf(peer, proto);
  return key;
}

// ---- caching ----

void Uncache(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry) {
  Target *target = static_cast<Target *>(entry->asyncTarget);
  entry->asyncSession = nullptr;
  entry->asyncTarget = nullptr;
  if (!target) return;
  target->isCached = false;
  if (target->isFailed) TargetTable(ctx->lib->targetTree).Remove(target);
  LeaveTarget(ctx, target);
}

void Cache(CoapRpcCtx *ctx, Target *target) {
  Unlist(ctx, target);
  target->isCached = true;
  target->key.entry->asyncSession = target->session;
  target->key.entry->asyncTarget = target;
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

Target *AcquireTarget(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry, const coap_address_t &peer,
                      coap_proto_t proto) {
  const TargetKey key = KeyOf(entry, peer, proto);
  Uncache(ctx, entry);
  Target *target = TargetTable(ctx->lib->targetTree).Find(&key);
  if (!target) target = Open(ctx, key, peer);
  if (target) Cache(ctx, target);
  return target;
}

void LeaveTarget(CoapRpcCtx *ctx, Target *target) {
  if (target->isCached || !LinkIsAlone(target->requestList)) return;
  IdleTargets(ctx->lib->leavingTargetList).Append(target);
}

Target *FindTarget(CoapRpcCtx *ctx, const coap_session_t *session) {
  return AllTargets(ctx->lib->targetList).FindIf([=](const Target &target) {
    return target.session == session;
  });
}

void FailTarget(CoapRpcCtx *ctx, Target *target) {
  target->isFailed = true;
  if (target->isCached) return;
  Unlist(ctx, target);
  TargetTable(ctx->lib->targetTree).Remove(target);
  LeaveTarget(ctx, target);
}

void CloseTarget(CoapRpcCtx *ctx, Target *target) {
  if (target->isCached) Uncache(ctx, target->key.entry);
  if (ctx->ioDepth == 0) {
    Release(ctx, target);
    return;
  }
  Unlist(ctx, target);
  TargetTable(ctx->lib->targetTree).Remove(target);
  target->isClosed = true;
  IdleTargets(ctx->lib->leavingTargetList).Append(target);
}

void RenewTargets(coap_session_t *session) {
  CoapRpcCtx *ctx = CoapRpcLibRootOf(session);
  const Target *cached = ctx && ctx->lib ? FindTarget(ctx, session) : nullptr;
  if (!cached) return;
  ForEachTarget(ctx->lib->targetList, [=](const Target *target) {
    if (target->key.entry == cached->key.entry) CoapRpcLibRenewSource(target->session);
  });
}

void SettleTargets(CoapRpcCtx *ctx) {
  IdleTargets leaving(ctx->lib->leavingTargetList);
  Target *next = nullptr;
  for (Target *target = leaving.First(); target; target = next) {
    next = leaving.After(target);
    Settle(ctx, target);
  }
  TrimSpare(ctx);
}

uint32_t NumBusyTargets(const CoapRpcCtx *ctx) {
  return ctx->lib->numTargets - ctx->lib->numSpareTargets;
}

void FreeTargets(CoapRpcCtx *ctx) {
  AllTargets(ctx->lib->targetList).Drain([=](Target *target) {
    if (target->isCached) Uncache(ctx, target->key.entry);
    Release(ctx, target);
  });
}

}  // namespace coap_rpc
