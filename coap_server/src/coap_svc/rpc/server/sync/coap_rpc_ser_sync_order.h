/* coap_rpc_ser_sync_order.h: tuples in order of their versions.
 *
 * A change moves its tuple to the end, and a reader starts anywhere, so an order is a row of
 * segments, each with places for kSyncSlots tuples:
 *
 *   open     the last one; tuples are appended to it.  When it is full it is squeezed, if at least
 *            half of its tuples have left, or else closed
 *   closed   tuples only leave.  Two neighbours whose tuples fit into one segment become one, soon
 *   spare    in no order
 *
 * Neighbours that are closed have about as many tuples as one segment has places, so that N tuples
 * need no more than N / 29 segments and a few.  These are reserved before a tuple is made: moving
 * it never needs memory.
 *
 * A tuple knows its place: it leaves without a search.  Places are found by version in a tree of
 * the segments. */
#ifndef COAP_RPC_SER_SYNC_ORDER_H
#define COAP_RPC_SER_SYNC_ORDER_H

#include "coap_svc/rpc/common/coap_rpc_link.h"
#include "osal_avl3.h"

namespace coap_rpc {

inline constexpr uint32_t kSyncSlots = 64;

struct SyncSegment;

// SyncTuple stands in front of a CoapRpcUriTuple.
struct SyncTuple {
  uint64_t version;      // of its last change
  SyncSegment *segment;  // where it is
  uint32_t slot;
  uint32_t metBy;  // number of the replacement that met it last
};
static_assert(sizeof(SyncTuple) == 24, "with its share of segments 48 bytes at most");

struct SyncSegment {
  OSAL_AVL3_NODE node;
  CoapRpcLink link;  // in its order, or the spare ones
  uint64_t last;     // no version in it is greater, and those in later ones are; open: 2^64-1
  uint32_t numUsed;  // slots that have had a tuple
  uint32_t numLive;  // slots that have one
  SyncTuple *slots[kSyncSlots];
};

struct SyncOrder {
  OSAL_AVL3_TREE tree;  // SyncSegment by last
  CoapRpcLink list;     // the same in the same order; the open one is the last
};

// SyncSpace is what the orders of a set are made of.
struct SyncSpace {
  CoapRpcLink spareList;  // SyncSegment, owned
  uint32_t num;           // in use and spare
};

// SyncSpaceReserve allocates the segments that this number of tuples needs.  False: no memory.
[[nodiscard]] bool SyncSpaceReserve(SyncSpace &space, uint64_t mem, uint64_t numTuples);

// SyncSpaceTrim frees those that this number of tuples does not need.
void SyncSpaceTrim(SyncSpace &space, uint64_t mem, uint64_t numTuples);

// SyncSpaceClear frees all.
// REQUIRES: none is in use.
void SyncSpaceClear(SyncSpace &space, uint64_t mem);

// SyncOrderAppend puts a tuple, whose version is the greatest, at the end.
// REQUIRES: space is reserved for all tuples of the orders that share it.
void SyncOrderAppend(SyncOrder &order, SyncSpace &space, SyncTuple *tuple);

// SyncOrderPrefetch reads ahead what SyncOrderRemove will change.
void SyncOrderPrefetch(const SyncTuple *tuple);

// SyncOrderRemove takes a tuple out.
void SyncOrderRemove(SyncOrder &order, SyncSpace &space, SyncTuple *tuple);

// SyncOrderClear makes an order empty.  Its tuples are the caller's.
void SyncOrderClear(SyncOrder &order, SyncSpace &space);

// SyncCursor goes through an order, which must not change meanwhile.
class SyncCursor {
 public:
  // From the first tuple with a version greater than `since`.
  SyncCursor(SyncOrder &order, uint64_t since);

  // Get returns the tuple that it is at; null at the end.
  SyncTuple *Get() const { return segment_ ? segment_->slots[slot_] : nullptr; }
  void Advance();

 private:
  void SkipEmpty();

  CoapRpcLink &list_;
  SyncSegment *segment_;
  uint32_t slot_ = 0;
};

}  // namespace coap_rpc

#endif /* COAP_RPC_SER_SYNC_ORDER_H */
