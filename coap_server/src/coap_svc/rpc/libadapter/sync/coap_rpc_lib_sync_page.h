/* coap_rpc_lib_sync_page.h: pages, the pieces in which changes of a set travel.
 *
 * A page is the array
 *
 *   [1, flags, replid, from, to, head, floor, digest, (delta, key, value or null)*]
 *
 * It has all changes with versions greater than `from`, up to `to`: whoever has the set as of
 * `from` has it as of `to` then.  A change's version is `delta` more than that of the change before
 * it, the first one's more than `from`; null stands for a deletion.  head, floor and digest are
 * those of the whole set when the page was made.  Its length is bounded, but a change that is too
 * long has a page of its own. */
#ifndef COAP_RPC_LIB_SYNC_PAGE_H
#define COAP_RPC_LIB_SYNC_PAGE_H

#include "coap_svc/rpc/common/coap_rpc_own.h"
#include "coap_svc/rpc/common/coap_rpc_sync_format.h"
#include "coap_svc/rpc/server/sync/coap_rpc_ser_sync_set.h"

namespace coap_rpc {

// SyncAsk is what a page is to be about: versions greater than since, up to until.
struct SyncAsk {
  uint64_t since;
  uint64_t until;
  uint32_t flags;  // beside kSyncAtHead
};

// SyncPage is a page before it is written.  It borrows from the set, which must not change.
struct SyncPage {
  const SyncSet *set;
  uint32_t flags;
  uint64_t from;
  uint64_t to;
  size_t num;        // of changes
  size_t bodyBytes;  // the changes as CBOR
  SyncChange changes[kSyncMaxChanges];
};

// CollectSyncPage takes as many changes as fit into pageBytes.  EmptySyncPage takes none: the head
// alone, with from and to at `at`.
void CollectSyncPage(SyncSet &set, const SyncAsk &ask, size_t pageBytes, SyncPage &page);
void EmptySyncPage(SyncSet &set, uint64_t at, uint32_t flags, SyncPage &page);

// CollectSyncRound makes the page for all observers, who have got notifications up to `notified`:
// the latest changes as far back as they fit.  When not even those after `notified` do, it is
// empty, from head to head, and tells of them.
void CollectSyncRound(SyncSet &set, uint64_t notified, uint32_t flags, size_t pageBytes,
                      SyncPage &page);

// SyncPageBound says how long a page is at most, WriteSyncPage writes it as CBOR into as many bytes
// and returns its length.
inline size_t SyncPageBound(const SyncPage &page) { return kSyncHeadBytes + page.bodyBytes; }
size_t WriteSyncPage(const SyncPage &page, uint8_t *buf);

// WriteSyncJson writes the page as JSON, numbers above 2^53 included: replid and digest as texts of
// hexadecimal digits; keys and values as keyToStr and valToStr give them, else in hexadecimal.
// Returns a text of `len` bytes in the pool, or empty without memory.
PoolPtr<char> WriteSyncJson(const SyncPage &page, size_t *len);

}  // namespace coap_rpc

#endif /* COAP_RPC_LIB_SYNC_PAGE_H */
