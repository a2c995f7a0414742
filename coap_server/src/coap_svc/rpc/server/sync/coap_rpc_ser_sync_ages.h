/* coap_rpc_ser_sync_ages.h: how old a version is, without a time for each.
 *
 * A mark says when a version was made; a change without one of its own counts as old as the mark
 * before it.  With all marks in use every second one goes, the oldest never: ages get less exact,
 * and never too low. */
#ifndef COAP_RPC_SER_SYNC_AGES_H
#define COAP_RPC_SER_SYNC_AGES_H

#include <cstdint>

namespace coap_rpc {

struct SyncMark {
  uint64_t version;
  uint64_t ms;
};

struct SyncAges {
  uint32_t num;
  SyncMark marks[32];  // by version
};

// SyncAgesMark marks a version, greater than all before, as made at a time.
void SyncAgesMark(SyncAges &ages, uint64_t version, uint64_t nowMs);

// SyncAgesForget drops what is only needed for versions below this one.
void SyncAgesForget(SyncAges &ages, uint64_t version);

// SyncAgeOf says how long ago a version was made; since the oldest mark for those before it.  The
// clock may have been set back: then 0.
uint64_t SyncAgeOf(const SyncAges &ages, uint64_t version, uint64_t nowMs);

}  // namespace coap_rpc

#endif /* COAP_RPC_SER_SYNC_AGES_H */
