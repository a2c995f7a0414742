#include "coap_svc/rpc/server/sync/coap_rpc_ser_sync_order.h"

#include <algorithm>

#include "coap_svc/rpc/common/coap_rpc_list.h"
#include "coap_svc/rpc/common/coap_rpc_own.h"
#include "coap_svc/rpc/common/coap_rpc_table.h"

namespace coap_rpc {
namespace {

// Neighbours are looked at with every fourth tuple that leaves: a look costs as much as the rest of
// a change.  Each may have lost three since.
constexpr uint32_t kTidyEvery = 4;
constexpr uint32_t kTuplesPerSegment = kSyncSlots / 2 - (kTidyEvery - 1);

// Two orders have an open and a closed segment each that count for no tuple, and one is taken
// before two become one.
constexpr uint32_t kFewSegments = 5;

// A walk reads the tuples of a large set from memory: it asks for them so far ahead.
constexpr uint32_t kPrefetchSlots = 4;

int32_t CompareVersions(const void *a, const void *b) {
  const uint64_t versionA = *static_cast<const uint64_t *>(a);
  const uint64_t versionB = *static_cast<const uint64_t *>(b);
  return (versionA > versionB) - (versionA < versionB);
}

using Segments = COAP_RPC_LIST(SyncSegment, link);
using SegmentTable = COAP_RPC_TABLE(SyncSegment, last, uint64_t, CompareVersions);

uint64_t NumNeeded(uint64_t numTuples) { return numTuples / kTuplesPerSegment + kFewSegments; }

void Spare(SyncSpace &space, SyncSegment *segment) { Segments(space.spareList).Append(segment); }

void FreeSpare(SyncSpace &space, uint64_t mem) {
  SyncSegment *segment = Segments(space.spareList).First();
  LinkRemove(segment->link);
  PoolFree(mem, segment);
  --space.num;
}

void Release(SyncOrder &order, SyncSpace &space, SyncSegment *segment) {
  SegmentTable(order.tree).Remove(segment);
  Spare(space, segment);
}

// Gather lists the tuples of a segment and returns how many they are.
uint32_t Gather(const SyncSegment &segment, SyncTuple **tuples) {
  SyncTuple *const *end = segment.slots + segment.numUsed;
  return static_cast<uint32_t>(
      std::copy_if(segment.slots, end, tuples, [](const SyncTuple *tuple) { return tuple; }) -
      tuples);
}

// Fill gives a segment these tuples and no others.
void Fill(SyncSegment &segment, SyncTuple *const *tuples, uint32_t num) {
  segment.numUsed = segment.numLive = num;
  for (uint32_t i = 0; i < num; ++i) {
    segment.slots[i] = tuples[i];
    tuples[i]->segment = &segment;
    tuples[i]->slot = i;
  }
}

void Squeeze(SyncSegment &segment) {
  SyncTuple *tuples[kSyncSlots];
  const uint32_t num = Gather(segment, tuples);
  Fill(segment, tuples, num);
}

// Join moves the tuples of a segment into the one after it, in front of that one's.
void Join(SyncOrder &order, SyncSpace &space, SyncSegment *first, SyncSegment *second) {
  SyncTuple *tuples[kSyncSlots];
  const uint32_t numFirst = Gather(*first, tuples);
  const uint32_t num = numFirst + Gather(*second, tuples + numFirst);
  Fill(*second, tuples, num);
  Release(order, space, first);
}

SyncSegment *Open(const SyncOrder &order) {
  return Segments(const_cast<CoapRpcLink &>(order.list)).Last();
}

bool AreOne(const SyncOrder &order, const SyncSegment *first, const SyncSegment *second) {
  return first && second && second != Open(order) && first->numLive + second->numLive <= kSyncSlots;
}

// Tidy joins a closed segment, which has lost a tuple or was open, and its neighbours.
void Tidy(SyncOrder &order, SyncSpace &space, SyncSegment *segment) {
  const Segments segments(order.list);
  SyncSegment *before = segments.Before(segment);
  if (AreOne(order, before, segment)) Join(order, space, before, segment);
  SyncSegment *after = segments.After(segment);
  if (AreOne(order, segment, after)) Join(order, space, segment, after);
}

// OpenAnother opens a reserved segment.
void OpenAnother(SyncOrder &order, SyncSpace &space) {
  SyncSegment *segment = Segments(space.spareList).First();
  segment->last = UINT64_MAX;
  segment->numUsed = segment->numLive = 0;
  Segments(order.list).Append(segment);
  (void)SegmentTable(order.tree).Insert(segment);  // the only open one
}

void Close(SyncOrder &order, SyncSpace &space, uint64_t last) {
  SyncSegment *closed = Open(order);
  closed->last = last;
  OpenAnother(order, space);
  Tidy(order, space, closed);
}

// MakeRoom sees to an open segment with a free slot, for a tuple of this version.
void MakeRoom(SyncOrder &order, SyncSpace &space, uint64_t version) {
  SyncSegment *open = Open(order);
  if (!open) {
    OpenAnother(order, space);
  } else if (open->numUsed == kSyncSlots && open->numLive <= kSyncSlots / 2) {
    Squeeze(*open);
  } else if (open->numUsed == kSyncSlots) {
    Close(order, space, version - 1);
  }
}

// SlotAfter returns the first slot from which on all versions are greater than `since`.
uint32_t SlotAfter(const SyncSegment &segment, uint64_t since) {
  uint32_t low = 0;
  uint32_t high = segment.numUsed;
  while (low < high) {
    const uint32_t middle = (low + high) / 2;
    uint32_t probe = middle;
    while (probe < high && !segment.slots[probe]) ++probe;
    if (probe == high || segment.slots[probe]->version > since) {
      high = middle;
    } else {
      low = probe + 1;
    }
  }
  return low;
}

}  // namespace

bool SyncSpaceReserve(SyncSpace &space, uint64_t mem, uint64_t numTuples) {
  while (space.num < NumNeeded(numTuples)) {
    auto segment = NewZeroed<SyncSegment>(mem);
    if (!segment) return false;
    LinkInit(segment->link);
    Spare(space, segment.release());
    ++space.num;
  }
  return true;
}

void SyncSpaceTrim(SyncSpace &space, uint64_t mem, uint64_t numTuples) {
  while (space.num > NumNeeded(numTuples)) FreeSpare(space, mem);
}

void SyncSpaceClear(SyncSpace &space, uint64_t mem) {
  while (space.num != 0) FreeSpare(space, mem);
}

void SyncOrderPrefetch(const SyncTuple *tuple) {
  __builtin_prefetch(&tuple->segment->numLive, 1);
  __builtin_prefetch(&tuple->segment->slots[tuple->slot], 1);
}

void SyncOrderAppend(SyncOrder &order, SyncSpace &space, SyncTuple *tuple) {
  MakeRoom(order, space, tuple->version);
  SyncSegment *open = Open(order);
  tuple->segment = open;
  tuple->slot = open->numUsed;
  open->slots[open->numUsed++] = tuple;
  ++open->numLive;
}

void SyncOrderRemove(SyncOrder &order, SyncSpace &space, SyncTuple *tuple) {
  SyncSegment *segment = tuple->segment;
  segment->slots[tuple->slot] = nullptr;
  --segment->numLive;
  const bool isTime = segment->numLive % kTidyEvery == 0;
  if (isTime && segment != Open(order)) Tidy(order, space, segment);
}

void SyncOrderClear(SyncOrder &order, SyncSpace &space) {
  Segments(order.list).Drain([&](SyncSegment *segment) { Spare(space, segment); });
  SegmentTable(order.tree).Init();
}

SyncCursor::SyncCursor(SyncOrder &order, uint64_t since)
    : list_(order.list), segment_(SegmentTable(order.tree).After(&since)) {
  if (segment_) slot_ = SlotAfter(*segment_, since);
  SkipEmpty();
}

void SyncCursor::Advance() {
  ++slot_;
  SkipEmpty();
}

void SyncCursor::SkipEmpty() {
  while (segment_) {
    while (slot_ < segment_->numUsed && !segment_->slots[slot_]) ++slot_;
    if (slot_ < segment_->numUsed) break;
    segment_ = Segments(list_).After(segment_);
    slot_ = 0;
  }
  if (segment_ && slot_ + kPrefetchSlots < segment_->numUsed) {
    __builtin_prefetch(segment_->slots[slot_ + kPrefetchSlots]);
  }
}

}  // namespace coap_rpc
