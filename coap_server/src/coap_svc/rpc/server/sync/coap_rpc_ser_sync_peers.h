/* coap_rpc_ser_sync_peers.h: the observers of a URI with versions, and who has what.
 *
 * A peer is a session with at least one registration.  It confirms a version by asking for what is
 * newer.  `least` is the version that all of them have confirmed; it falls when one comes.  A peer
 * that asks nothing in kSyncLeaseTicks ticks has expired.
 *
 * The peers of a round are notified in portions, and datagrams are read between them
 * (coap_rpc_ser_sync.h).  Those who asked last are always the first: among a thousand who are dead,
 * one that lives does not wait for them.  The others take turns, in the order of the table, from
 * where the portion before ended.  So everybody's turn comes, even when rounds follow each other
 * faster than everybody can be told.
 *
 * Bounds: libcoap's limit on the observers of a URI. */
#ifndef COAP_RPC_SER_SYNC_PEERS_H
#define COAP_RPC_SER_SYNC_PEERS_H

#include "coap_svc/rpc/coap_rpc_ser.h"
#include "coap_svc/rpc/common/coap_rpc_limits.h"
#include "osal_avl3.h"

namespace coap_rpc {

struct SyncPeer {
  OSAL_AVL3_NODE node;
  const void *session;  // only compared; lives as long as the registrations
  void **record;        // in libcoap's record of its only registration, and points here; or null
  uint64_t confirmed;
  CoapRpcSerListenAddr addr;  // the peer's
  uint32_t numRegistrations;
  uint32_t idleTicks;  // since it was last heard
  uint32_t toldRound;  // the round that it was notified of, or that began before it came
};
static_assert(sizeof(SyncPeer) <= 96, "what an observer costs");

struct SyncPeers {
  OSAL_AVL3_TREE tree;  // SyncPeer by session, owned
  uint32_t num;
  uint32_t numAtLeast;  // of those that have confirmed no more than `least`
  uint64_t least;       // 0 without peers
  uint32_t round;       // the latest
  uint32_t numDue;      // of those whose toldRound is another one
  SyncPeer *turn;       // whose turn is next; null: the first's
  uint32_t numLatest;
  SyncPeer *latest[kSyncLatestPeers];  // those who asked last, the latest first
};

// SyncPeerComes counts a registration of a session, `record` in libcoap's record of it.  Null
// without memory: it is not counted.  SyncRecordGoes is for each registration that libcoap frees.
SyncPeer *SyncPeerComes(uint64_t mem, SyncPeers &peers, const void *session, void **record);
void SyncRecordGoes(void **record);

// SyncPeerLeaves ends one of a session, SyncPeerRemove all of them.
void SyncPeerLeaves(uint64_t mem, SyncPeers &peers, const void *session);
void SyncPeerRemove(uint64_t mem, SyncPeers &peers, SyncPeer *peer);

SyncPeer *SyncPeerFind(SyncPeers &peers, const void *session);
SyncPeer *SyncPeerFirst(SyncPeers &peers);
SyncPeer *SyncPeerNext(SyncPeers &peers, const SyncPeer *peer);

// SyncPeerConfirms notes that a peer has a version.  An older one comes from a message that was
// late, and is ignored.
void SyncPeerConfirms(SyncPeers &peers, SyncPeer *peer, uint64_t version);

// SyncPeerAsks notes that a peer was heard.
void SyncPeerAsks(SyncPeers &peers, SyncPeer *peer);

// SyncPeersBeginRound makes it everybody's turn.  SyncPeerTakeTurn returns who is to be notified
// next, null when nobody is left.
void SyncPeersBeginRound(SyncPeers &peers);
SyncPeer *SyncPeerTakeTurn(SyncPeers &peers);

// SyncPeersTick lets time pass, SyncPeerExpired returns one whose time is over, or null.
void SyncPeersTick(SyncPeers &peers);
SyncPeer *SyncPeerExpired(SyncPeers &peers);

}  // namespace coap_rpc

#endif /* COAP_RPC_SER_SYNC_PEERS_H */
