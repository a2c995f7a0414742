/* coap_rpc_ser_sync.h: what an entry whose tuples have versions has beyond others.
 *
 * It is made once, by COAP_RpcSerSetUriSync, and lives as long as the entry's observe record.
 *
 * Changes reach the observers in rounds:
 *
 *   quiet    all changes have been told
 *   window   the first change after it was made less than windowMs ago (not when that is 0)
 *   due      the I/O was asked to notify the observers
 *   quiet    again, when the page of the round is built for the first of them (SyncRoundBegins)
 *
 * Changes that come while a round is due are in it.  A page is built once, and serves all: the
 * notification of one who must wait has the same page, or that of a later round.  Without observers
 * it is always quiet.
 *
 * Each turn of the I/O notifies a portion of them (coap_rpc_ser_sync_peers.h).  A round that begins
 * while the one before is still being told takes its place: who was not told of that is told of
 * this one, and finds a gap if the page does not reach back so far. */
#ifndef COAP_RPC_SER_SYNC_H
#define COAP_RPC_SER_SYNC_H

#include "coap_svc/rpc/coap_rpc_sync.h"
#include "coap_svc/rpc/common/coap_rpc_link.h"
#include "coap_svc/rpc/server/sync/coap_rpc_ser_sync_ages.h"
#include "coap_svc/rpc/server/sync/coap_rpc_ser_sync_peers.h"
#include "coap_svc/rpc/server/sync/coap_rpc_ser_sync_set.h"

struct CoapRpcSerSync {
  coap_rpc::SyncSet set;
  CoapRpcSerSyncParam param;  // without zeros that stand for defaults
  coap_rpc::SyncPeers peers;
  coap_rpc::SyncAges ages;  // of what some peer has not confirmed, a mark for each round
  uint64_t told;            // greatest version that onConfirmed was called with
  uint64_t notified;        // the head when the latest round began
  uint64_t windowTimer;     // 0 none
  uint64_t leaseTimer;      // runs while there are peers; 0 none
  bool isRoundAhead;        // in the window, or due
  CoapRpcLink tellLink;     // on the adapter's list while observers are to be notified
  uint64_t pageHead;        // the head when the page was built
  size_t pageLen;           // 0: none was built
  uint8_t page[COAP_RPC_SYNC_MAX_PAGE];
};

namespace coap_rpc {

// SetSync gives an entry with an observe record its versions, or others parameters.  Returns 0 or
// the codes of COAP_RpcSerSetUriSync from 1900001513 on.
uint32_t SetSync(CoapRpcSerUriVtbl *entry, const CoapRpcSerSyncParam &param);

// SyncDrop frees the versions of an entry, if it has any, with its tuples.
void SyncDrop(CoapRpcSerUriVtbl *entry);

// SyncObserverComes counts a registration, `record` as for SyncPeerComes; null without memory.
// SyncObserverLeaves ends one.  SyncObserversHaveLeft follows when the turn ends: libcoap removes an
// observer that registers with another token before it adds it again.
SyncPeer *SyncObserverComes(CoapRpcSerUriVtbl *entry, const void *session, void **record);
void SyncObserverLeaves(CoapRpcSerUriVtbl *entry, const void *session);
void SyncObserversHaveLeft(CoapRpcSerUriVtbl *entry);

// SyncObserverAsks notes that a peer has asked, SyncObserverHas what it has.
void SyncObserverAsks(CoapRpcSerUriVtbl *entry, SyncPeer *peer);
void SyncObserverHas(CoapRpcSerUriVtbl *entry, SyncPeer *peer, uint64_t version);

// SyncStateOf and SyncPeerState are what an application is told.
CoapRpcSerSyncState SyncStateOf(CoapRpcSerUriVtbl *entry);
CoapRpcSyncPeer SyncPeerState(const CoapRpcSerSync &sync, const SyncPeer &peer);

// SyncRoundBegins is called when the page of a round has been built.
void SyncRoundBegins(CoapRpcSerSync &sync);

}  // namespace coap_rpc

#endif /* COAP_RPC_SER_SYNC_H */
