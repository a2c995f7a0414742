#include "coap_svc/rpc/server/sync/coap_rpc_ser_sync_peers.h"

#include <algorithm>

#include "coap_svc/rpc/common/coap_rpc_limits.h"
#include "coap_svc/rpc/common/coap_rpc_own.h"
#include "coap_svc/rpc/common/coap_rpc_table.h"

namespace coap_rpc {
namespace {

int32_t CompareSessions(const void *a, const void *b) {
  const auto sessionA = reinterpret_cast<uintptr_t>(*static_cast<const void *const *>(a));
  const auto sessionB = reinterpret_cast<uintptr_t>(*static_cast<const void *const *>(b));
  return (sessionA > sessionB) - (sessionA < sessionB);
}

using PeerTable = COAP_RPC_TABLE(SyncPeer, session, const void *, CompareSessions);

template <typename Do>
void ForEach(SyncPeers &peers, Do work) {
  for (SyncPeer *peer = SyncPeerFirst(peers); peer; peer = SyncPeerNext(peers, peer)) work(*peer);
}

// FindLeast looks at all peers; only needed when the last of those at the least has moved on.
void FindLeast(SyncPeers &peers) {
  peers.least = peers.num != 0 ? UINT64_MAX : 0;
  ForEach(peers,
          [&](const SyncPeer &peer) { peers.least = std::min(peers.least, peer.confirmed); });
  peers.numAtLeast = 0;
  ForEach(peers, [&](const SyncPeer &peer) { peers.numAtLeast += peer.confirmed == peers.least; });
}

void LeaveLeast(SyncPeers &peers, uint64_t confirmed) {
  if (confirmed == peers.least && --peers.numAtLeast == 0) FindLeast(peers);
}

SyncPeer *Add(uint64_t mem, SyncPeers &peers, const void *session) {
  auto made = NewZeroed<SyncPeer>(mem);
  if (!made) return nullptr;
  made->session = session;
  made->toldRound = peers.round;
  SyncPeer *peer = made.release();
  (void)PeerTable(peers.tree).Insert(peer);  // the caller has looked for it
  ++peers.num;
  FindLeast(peers);
  return peer;
}

// A registration may go before its peer (SyncRecordGoes), and a peer before its registration: each
// forgets the other.
void Link(SyncPeer *peer, void **record) {
  peer->record = record;
  *record = peer;
}

void Unlink(SyncPeer *peer) {
  if (peer->record) *peer->record = nullptr;
  peer->record = nullptr;
}

bool IsDue(const SyncPeers &peers, const SyncPeer &peer) { return peer.toldRound != peers.round; }

// ForgetLatest takes a peer out of those who asked last.
void ForgetLatest(SyncPeers &peers, const SyncPeer *peer) {
  SyncPeer **end = peers.latest + peers.numLatest;
  peers.numLatest = static_cast<uint32_t>(std::remove(peers.latest, end, peer) - peers.latest);
}

SyncPeer *DueOfLatest(const SyncPeers &peers) {
  SyncPeer *const *end = peers.latest + peers.numLatest;
  SyncPeer *const *found =
      std::find_if(peers.latest, end, [&](const SyncPeer *peer) { return IsDue(peers, *peer); });
  return found != end ? *found : nullptr;
}

// NextTurn goes on with the first peer after the last one.
SyncPeer *NextTurn(SyncPeers &peers) {
  SyncPeer *peer = peers.turn ? peers.turn : SyncPeerFirst(peers);
  peers.turn = SyncPeerNext(peers, peer);
  return peer;
}

// DueByTurn is called while somebody is due.
SyncPeer *DueByTurn(SyncPeers &peers) {
  SyncPeer *peer = NextTurn(peers);
  while (!IsDue(peers, *peer)) peer = NextTurn(peers);
  return peer;
}

}  // namespace

SyncPeer *SyncPeerComes(uint64_t mem, SyncPeers &peers, const void *session, void **record) {
  SyncPeer *peer = SyncPeerFind(peers, session);
  if (!peer) peer = Add(mem, peers, session);
  if (!peer) return nullptr;
  Unlink(peer);
  if (++peer->numRegistrations == 1) Link(peer, record);
  return peer;
}

void SyncRecordGoes(void **record) {
  if (auto *peer = static_cast<SyncPeer *>(*record)) Unlink(peer);
}

void SyncPeerLeaves(uint64_t mem, SyncPeers &peers, const void *session) {
  SyncPeer *peer = SyncPeerFind(peers, session);
  if (peer && --peer->numRegistrations == 0) SyncPeerRemove(mem, peers, peer);
}

void SyncPeerRemove(uint64_t mem, SyncPeers &peers, SyncPeer *peer) {
  const uint64_t confirmed = peer->confirmed;
  Unlink(peer);
  if (IsDue(peers, *peer)) --peers.numDue;
  ForgetLatest(peers, peer);
  if (peers.turn == peer) peers.turn = SyncPeerNext(peers, peer);
  PeerTable(peers.tree).Remove(peer);
  PoolFree(mem, peer);
  --peers.num;
  LeaveLeast(peers, confirmed);
}

SyncPeer *SyncPeerFind(SyncPeers &peers, const void *session) {
  return PeerTable(peers.tree).Find(&session);
}

SyncPeer *SyncPeerFirst(SyncPeers &peers) { return PeerTable(peers.tree).First(); }

SyncPeer *SyncPeerNext(SyncPeers &peers, const SyncPeer *peer) {
  return PeerTable(peers.tree).Next(peer);
}

void SyncPeerConfirms(SyncPeers &peers, SyncPeer *peer, uint64_t version) {
  if (version <= peer->confirmed) return;
  const uint64_t before = peer->confirmed;
  peer->confirmed = version;
  LeaveLeast(peers, before);
}

void SyncPeerAsks(SyncPeers &peers, SyncPeer *peer) {
  peer->idleTicks = 0;
  if (peers.numLatest != 0 && peers.latest[0] == peer) return;
  ForgetLatest(peers, peer);
  peers.numLatest = std::min(peers.numLatest + 1, kSyncLatestPeers);
  SyncPeer **end = peers.latest + peers.numLatest;
  std::copy_backward(peers.latest, end - 1, end);
  peers.latest[0] = peer;
}

void SyncPeersBeginRound(SyncPeers &peers) {
  ++peers.round;
  peers.numDue = peers.num;
}

SyncPeer *SyncPeerTakeTurn(SyncPeers &peers) {
  if (peers.numDue == 0) return nullptr;
  SyncPeer *peer = DueOfLatest(peers);
  if (!peer) peer = DueByTurn(peers);
  peer->toldRound = peers.round;
  --peers.numDue;
  return peer;
}

void SyncPeersTick(SyncPeers &peers) {
  ForEach(peers, [](SyncPeer &peer) { ++peer.idleTicks; });
}

SyncPeer *SyncPeerExpired(SyncPeers &peers) {
  SyncPeer *peer = SyncPeerFirst(peers);
  while (peer && peer->idleTicks <= kSyncLeaseTicks) peer = SyncPeerNext(peers, peer);
  return peer;
}

}  // namespace coap_rpc
