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
  SyncPeer *peer = made.release();
  (void)PeerTable(peers.tree).Insert(peer);  // the caller has looked for it
  ++peers.num;
  FindLeast(peers);
  return peer;
}

}  // namespace

SyncPeer *SyncPeerComes(uint64_t mem, SyncPeers &peers, const void *session) {
  SyncPeer *peer = SyncPeerFind(peers, session);
  if (!peer) peer = Add(mem, peers, session);
  if (peer) ++peer->numRegistrations;
  return peer;
}

void SyncPeerLeaves(uint64_t mem, SyncPeers &peers, const void *session) {
  SyncPeer *peer = SyncPeerFind(peers, session);
  if (peer && --peer->numRegistrations == 0) SyncPeerRemove(mem, peers, peer);
}

void SyncPeerRemove(uint64_t mem, SyncPeers &peers, SyncPeer *peer) {
  const uint64_t confirmed = peer->confirmed;
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

void SyncPeersTick(SyncPeers &peers) {
  ForEach(peers, [](SyncPeer &peer) { ++peer.idleTicks; });
}

SyncPeer *SyncPeerExpired(SyncPeers &peers) {
  SyncPeer *peer = SyncPeerFirst(peers);
  while (peer && peer->idleTicks <= kSyncLeaseTicks) peer = SyncPeerNext(peers, peer);
  return peer;
}

}  // namespace coap_rpc
