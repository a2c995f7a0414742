/* coap_rpc_ser_sync_set.h: the versions of one URI's tuples.
 *
 * Every change of the set has a number, its version; a tuple carries that of its last change.  What
 * a reader has is therefore one number, and what it lacks are the tuples with greater ones.  States
 * of a tuple:
 *
 *   live        in the entry's table of keys and in the order of versions; a change moves it to the
 *               end of that order
 *   tombstone   it was deleted: in a table of keys and an order of versions of their own.  Its key
 *               may come back, which makes the same record live again
 *   dropped     freed, and its version is the floor: who has less than the floor may have missed
 *               the deletion and has to begin again
 *
 * Bounds: there are at most as many tombstones as minTombs or a quarter of the live tuples,
 * whichever is more.  A tuple without memory is not stored and moves no version.
 *
 * The version stands in front of the tuple's record, whose own layout is that of every tuple. */
#ifndef COAP_RPC_SER_SYNC_SET_H
#define COAP_RPC_SER_SYNC_SET_H

#include "coap_svc/rpc/server/coap_rpc_ser_entry.h"
#include "coap_svc/rpc/server/sync/coap_rpc_ser_sync_order.h"

namespace coap_rpc {

struct SyncSet {
  CoapRpcSerUriVtbl *entry;  // whose tuples these are
  uint64_t replid;           // this life of the set; never 0
  uint64_t head;             // version of the last change; 0: there was none
  uint64_t floor;            // version of the last tombstone dropped; 0: none
  uint64_t digest;           // sum of XXH64 over the bytes of each live tuple, mod 2^64
  SyncOrder live;
  SyncOrder tombs;
  SyncSpace space;          // of both orders
  OSAL_AVL3_TREE tombKeys;  // CoapRpcUriTuple by key
  uint32_t numLive;
  uint32_t numTombs;
  uint32_t minTombs;
  uint32_t numReplacements;
  void (*onChange)(CoapRpcSerUriVtbl *entry);  // after each new version; null: nobody
};

// SyncChange is what a walk hands out.
struct SyncChange {
  uint64_t version;
  const uint8_t *key;
  const uint8_t *val;  // null: deleted.  Of tuples without value not null, and not to be read
};

// SyncWalk goes through the changes in order of versions.  The set must not change meanwhile.
class SyncWalk {
 public:
  // What has a version greater than `since`.
  SyncWalk(SyncSet &set, uint64_t since);

  // Next hands out the next change.  False: there is none.
  bool Next(SyncChange &change);

 private:
  const SyncSet &set_;
  SyncCursor live_;
  SyncCursor tomb_;
};

// SyncSetAdopt gives versions to the tuples that the set's entry has, in order of keys.  The set is
// zeroed but for entry and minTombs.  False: no memory, and the entry's tuples are as they were.
[[nodiscard]] bool SyncSetAdopt(SyncSet &set);

// SyncSetAdd, SyncSetUpdate and SyncSetDelete are COAP_RpcSerAddUriTuple, ...UpdateUriTuple and
// ...DelUriTuple for an entry with versions.  An update to an equal value changes nothing.
CoapRpcUriTuple *SyncSetAdd(SyncSet &set, const void *tupleKey, const void *tupleVal);
void SyncSetUpdate(SyncSet &set, CoapRpcUriTuple *tuple, const void *tupleVal);
void SyncSetDelete(SyncSet &set, CoapRpcUriTuple *tuple);

// A replacement meets the tuples that are to stay.  SyncSetUnmet returns the first tuple after
// `after` in order of keys (null: the first of all) that the one begun last has not met.
void SyncSetBeginReplacement(SyncSet &set);
void SyncSetMeet(SyncSet &set, CoapRpcUriTuple *tuple);
CoapRpcUriTuple *SyncSetUnmet(SyncSet &set, CoapRpcUriTuple *after);

// SyncSetLimit sets minTombs, and drops the tombstones that are too many.
void SyncSetLimit(SyncSet &set, uint32_t minTombs);

// SyncSetBytes is the memory of the set's tuples and tombstones.
uint64_t SyncSetBytes(const SyncSet &set);

// SyncSetClear frees all tuples, those of the entry as well.
void SyncSetClear(SyncSet &set);

}  // namespace coap_rpc

#endif /* COAP_RPC_SER_SYNC_SET_H */
