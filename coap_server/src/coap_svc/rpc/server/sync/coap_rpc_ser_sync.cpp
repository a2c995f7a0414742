#include "coap_svc/rpc/server/sync/coap_rpc_ser_sync.h"

#include <sys/random.h>

#include <algorithm>

#include "coap_svc/rpc/common/coap_rpc_clock.h"
#include "coap_svc/rpc/common/coap_rpc_limits.h"
#include "coap_svc/rpc/common/coap_rpc_list.h"
#include "coap_svc/rpc/common/coap_rpc_own.h"
#include "coap_svc/rpc/server/coap_rpc_ser_tuple_bytes.h"
#include "kst_tmr.h"

namespace coap_rpc {
namespace {

CoapRpcCtx *RootOf(const CoapRpcSerUriVtbl *entry) { return CoapRpcSerRootOf(entry); }

uint64_t MemOf(const CoapRpcSerUriVtbl *entry) { return RootOf(entry)->param.memHandle; }

uint64_t StartTimer(CoapRpcSerUriVtbl *entry, KST_TmrTick tick, uint32_t periodMs) {
  return KST_TmrStartLoop(RootOf(entry)->param.tmrHandle, tick, std::max(periodMs, 1u), entry);
}

void StopTimer(const CoapRpcSerUriVtbl *entry, uint64_t &timer) {
  if (timer != 0) KST_TmrStop(RootOf(entry)->param.tmrHandle, timer);
  timer = 0;
}

// Push makes a round due.  Without anybody to notify there is none.
void Push(CoapRpcSerUriVtbl *entry) {
  const CoapRpcLibExtOps *ops = RootOf(entry)->libExt;
  entry->sync->isRoundAhead = ops && ops->pushSync(RootOf(entry), entry) != 0;
  if (entry->sync->isRoundAhead) ops->runSoon(RootOf(entry));
}

uint32_t EndWindow(void *param) {
  auto *entry = static_cast<CoapRpcSerUriVtbl *>(param);
  StopTimer(entry, entry->sync->windowTimer);
  Push(entry);
  return 0;
}

// StartWindow returns false when changes are not to be collected, or no timer can be started.
bool StartWindow(CoapRpcSerUriVtbl *entry) {
  CoapRpcSerSync &sync = *entry->sync;
  if (sync.param.windowMs == 0) return false;
  sync.windowTimer = StartTimer(entry, EndWindow, sync.param.windowMs);
  return sync.windowTimer != 0;
}

void OnChange(CoapRpcSerUriVtbl *entry) {
  CoapRpcSerSync &sync = *entry->sync;
  if (sync.peers.num == 0 || sync.isRoundAhead) return;
  sync.isRoundAhead = true;
  SyncAgesMark(sync.ages, sync.set.head, NowMs().value_or(0));
  if (!StartWindow(entry)) Push(entry);
}

// TellConfirmed comes after whatever may have raised the least version.
void TellConfirmed(CoapRpcSerUriVtbl *entry) {
  CoapRpcSerSync &sync = *entry->sync;
  SyncAgesForget(sync.ages, sync.peers.least + 1);
  if (sync.peers.num == 0 || sync.peers.least <= sync.told) return;
  sync.told = sync.peers.least;
  if (sync.param.onConfirmed) sync.param.onConfirmed(sync.param.userData, sync.told);
}

// Expire ends the registrations of a peer, and what is known of it if there was none.
void Expire(CoapRpcSerUriVtbl *entry, const void *session) {
  CoapRpcSerSync &sync = *entry->sync;
  const CoapRpcLibExtOps *ops = RootOf(entry)->libExt;
  if (ops) ops->dropSyncObserver(RootOf(entry), entry, session);
  SyncPeer *left = SyncPeerFind(sync.peers, session);
  if (left) SyncPeerRemove(MemOf(entry), sync.peers, left);
}

// OnLeaseTick does nothing inside libcoap's I/O, whose callbacks may run timers.
uint32_t OnLeaseTick(void *param) {
  auto *entry = static_cast<CoapRpcSerUriVtbl *>(param);
  if (RootOf(entry)->ioDepth != 0) return 0;
  SyncPeersTick(entry->sync->peers);
  while (const SyncPeer *peer = SyncPeerExpired(entry->sync->peers)) Expire(entry, peer->session);
  if (entry->sync->peers.num == 0) StopTimer(entry, entry->sync->leaseTimer);
  TellConfirmed(entry);
  return 0;
}

void RunLeases(CoapRpcSerUriVtbl *entry) {
  CoapRpcSerSync &sync = *entry->sync;
  if (sync.leaseTimer != 0 || sync.peers.num == 0) return;
  sync.leaseTimer = StartTimer(entry, OnLeaseTick, sync.param.leaseMs / kSyncLeaseTicks);
}

uint32_t Or(uint32_t value, uint32_t ifZero) { return value != 0 ? value : ifZero; }

CoapRpcSerSyncParam WithDefaults(CoapRpcSerSyncParam param) {
  param.pageBytes = Or(param.pageBytes, COAP_RPC_SYNC_MAX_PAGE);
  param.minTombstones = Or(param.minTombstones, COAP_RPC_SYNC_MIN_TOMBSTONES);
  param.leaseMs = Or(param.leaseMs, COAP_RPC_SYNC_LEASE_MS);
  return param;
}

bool IsPageSize(uint32_t bytes) {
  return bytes >= COAP_RPC_SYNC_MIN_PAGE && bytes <= COAP_RPC_SYNC_MAX_PAGE;
}

// NewReplid draws the name of a set's life; 0 without randomness.
uint64_t NewReplid() {
  uint64_t replid = 0;
  if (getrandom(&replid, sizeof(replid), 0) != static_cast<ssize_t>(sizeof(replid))) return 0;
  return replid != 0 ? replid : 1;
}

void Apply(CoapRpcSerSync &sync, const CoapRpcSerSyncParam &param) {
  sync.param = param;
  SyncSetLimit(sync.set, param.minTombstones);
}

uint32_t Begin(CoapRpcSerUriVtbl *entry, const CoapRpcSerSyncParam &param) {
  auto sync = NewZeroed<CoapRpcSerSync>(CoapRpcSerRootOf(entry)->param.memHandle);
  if (!sync) return Code(kSiteSetUriSyncNoMemory);
  sync->set.entry = entry;
  sync->set.replid = NewReplid();
  if (sync->set.replid == 0) return Code(kSiteSetUriSyncNoRandom);
  Apply(*sync, param);
  if (!SyncSetAdopt(sync->set)) return Code(kSiteSetUriSyncNoMemory);
  sync->set.onChange = OnChange;
  entry->sync = sync.release();
  return 0;
}

// Change gives other parameters.  What has begun goes on as it is: a window, and the time until the
// next tick of leases that are as long as before.
void Change(CoapRpcSerUriVtbl *entry, const CoapRpcSerSyncParam &param) {
  const bool isOtherLease = param.leaseMs != entry->sync->param.leaseMs;
  Apply(*entry->sync, param);
  if (isOtherLease) StopTimer(entry, entry->sync->leaseTimer);
  RunLeases(entry);
}

// BeginQuiet is when all changes have been told, or nobody was there to be told.
void BeginQuiet(CoapRpcSerSync &sync) {
  sync.notified = sync.set.head;
  sync.isRoundAhead = sync.windowTimer != 0;
}

// MeetFirst is for the first peer: what was changed before counts as old as its registration.
void MeetFirst(CoapRpcSerSync &sync) {
  BeginQuiet(sync);
  sync.ages.num = 0;
  SyncAgesMark(sync.ages, 0, NowMs().value_or(0));
}

uint32_t NumBehind(SyncPeers &peers, uint64_t head) {
  uint32_t num = 0;
  for (SyncPeer *peer = SyncPeerFirst(peers); peer; peer = SyncPeerNext(peers, peer)) {
    num += peer->confirmed < head;
  }
  return num;
}

uint64_t BytesOf(const CoapRpcSerSync &sync) {
  return sizeof(sync) + SyncSetBytes(sync.set) + sync.peers.num * sizeof(SyncPeer);
}

uint64_t UnconfirmedMs(const CoapRpcSerSync &sync) {
  if (sync.peers.num == 0 || sync.peers.least >= sync.set.head) return 0;
  return SyncAgeOf(sync.ages, sync.peers.least + 1, NowMs().value_or(0));
}

}  // namespace

uint32_t SetSync(CoapRpcSerUriVtbl *entry, const CoapRpcSerSyncParam &given) {
  const CoapRpcSerSyncParam param = WithDefaults(given);
  if (!IsPageSize(param.pageBytes)) return Code(kSiteSetUriSyncPageBytes);
  if (TupleBytes(*entry->obVtbl) > COAP_RPC_SYNC_MAX_TUPLE) return Code(kSiteSetUriSyncTooLong);
  if (!entry->sync) return Begin(entry, param);
  Change(entry, param);
  return 0;
}

void SyncDrop(CoapRpcSerUriVtbl *entry) {
  if (!entry->sync) return;
  CoapRpcSerSync &sync = *entry->sync;
  StopTimer(entry, sync.windowTimer);
  StopTimer(entry, sync.leaseTimer);
  LinkRemove(sync.tellLink);
  while (SyncPeer *peer = SyncPeerFirst(sync.peers)) SyncPeerRemove(MemOf(entry), sync.peers, peer);
  SyncSetClear(sync.set);
  PoolFree(MemOf(entry), entry->sync);
  entry->sync = nullptr;
}

SyncPeer *SyncObserverComes(CoapRpcSerUriVtbl *entry, const void *session, void **record) {
  CoapRpcSerSync &sync = *entry->sync;
  SyncPeer *peer = SyncPeerComes(MemOf(entry), sync.peers, session, record);
  if (!peer) return nullptr;
  SyncPeerAsks(sync.peers, peer);
  if (sync.peers.num == 1 && peer->numRegistrations == 1) MeetFirst(sync);
  // Those for whom a due round was may have left.
  if (sync.isRoundAhead && sync.windowTimer == 0) Push(entry);
  RunLeases(entry);
  return peer;
}

void SyncObserverLeaves(CoapRpcSerUriVtbl *entry, const void *session) {
  SyncPeerLeaves(MemOf(entry), entry->sync->peers, session);
}

void SyncObserversHaveLeft(CoapRpcSerUriVtbl *entry) { TellConfirmed(entry); }

// The timer of leases is tried again where there was none to be had before.
void SyncObserverAsks(CoapRpcSerUriVtbl *entry, SyncPeer *peer) {
  SyncPeerAsks(entry->sync->peers, peer);
  RunLeases(entry);
}

void SyncObserverHas(CoapRpcSerUriVtbl *entry, SyncPeer *peer, uint64_t version) {
  SyncPeerConfirms(entry->sync->peers, peer, version);
  TellConfirmed(entry);
}

CoapRpcSerSyncState SyncStateOf(CoapRpcSerUriVtbl *entry) {
  CoapRpcSerSync &sync = *entry->sync;
  CoapRpcSerSyncState state = {};
  state.replid = sync.set.replid;
  state.head = sync.set.head;
  state.floor = sync.set.floor;
  state.digest = sync.set.digest;
  state.confirmed = sync.peers.least;
  state.unconfirmedMs = UnconfirmedMs(sync);
  state.bytes = BytesOf(sync);
  state.numLive = sync.set.numLive;
  state.numTombstones = sync.set.numTombs;
  state.numObservers = sync.peers.num;
  state.numBehind = NumBehind(sync.peers, sync.set.head);
  return state;
}

CoapRpcSyncPeer SyncPeerState(const CoapRpcSerSync &sync, const SyncPeer &peer) {
  CoapRpcSyncPeer state = {};
  state.addr = peer.addr.listenAddr;
  state.port = peer.addr.port;
  state.confirmed = peer.confirmed;
  state.silentMs = uint64_t{sync.param.leaseMs} * peer.idleTicks / kSyncLeaseTicks;
  return state;
}

void SyncRoundBegins(CoapRpcSerSync &sync) {
  sync.pageHead = sync.set.head;
  BeginQuiet(sync);
}

}  // namespace coap_rpc
