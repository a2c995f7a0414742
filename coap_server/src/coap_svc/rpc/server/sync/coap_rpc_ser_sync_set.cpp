#include "coap_svc/rpc/server/sync/coap_rpc_ser_sync_set.h"

#include <xxhash.h>

#include <algorithm>
#include <cstring>

#include "coap_svc/rpc/common/coap_rpc_own.h"
#include "coap_svc/rpc/common/coap_rpc_table.h"
#include "coap_svc/rpc/server/coap_rpc_ser_tuple_bytes.h"

namespace coap_rpc {
namespace {

constexpr uint32_t kLivePerTombstone = 4;

using Keys = Table<CoapRpcUriTuple, void, offsetof(CoapRpcUriTuple, node)>;

const CoapRpcSerObVtblReg &ObOf(const SyncSet &set) { return *set.entry->obVtbl; }

uint64_t MemOf(const SyncSet &set) { return CoapRpcSerRootOf(set.entry)->param.memHandle; }

Keys LiveKeys(const SyncSet &set) { return Keys(set.entry->tupleSetTree, set.entry->tupleSetDesc); }

Keys TombKeys(SyncSet &set) { return Keys(set.tombKeys, set.entry->tupleSetDesc); }

SyncTuple *VersionOf(CoapRpcUriTuple *tuple) { return reinterpret_cast<SyncTuple *>(tuple) - 1; }

CoapRpcUriTuple *TupleOf(SyncTuple *version) {
  return reinterpret_cast<CoapRpcUriTuple *>(version + 1);
}

uint64_t HashOf(const SyncSet &set, const CoapRpcUriTuple *tuple) {
  return XXH64(tuple->key, TupleBytes(ObOf(set)), 0);
}

uint64_t NextVersion(SyncSet &set) {
  ++set.head;
  if (set.onChange) set.onChange(set.entry);
  return set.head;
}

// Append puts a tuple, which is in no order, at the end of one.
void Append(SyncSet &set, SyncOrder &order, CoapRpcUriTuple *tuple) {
  SyncTuple *rec = VersionOf(tuple);
  rec->version = NextVersion(set);
  SyncOrderAppend(order, set.space, rec);
}

void Remove(SyncSet &set, SyncOrder &order, CoapRpcUriTuple *tuple) {
  SyncOrderRemove(order, set.space, VersionOf(tuple));
}

uint64_t NumTuples(const SyncSet &set) { return uint64_t{set.numLive} + set.numTombs; }

size_t RecordBytes(const SyncSet &set) {
  return sizeof(SyncTuple) + sizeof(CoapRpcUriTuple) + TupleBytes(ObOf(set));
}

// NewTuple makes a record in no table, one more than `num`, and makes sure of its places in the
// orders.
PoolPtr<SyncTuple> NewTuple(SyncSet &set, uint64_t num) {
  const uint64_t mem = MemOf(set);
  if (!SyncSpaceReserve(set.space, mem, num + 1)) return {nullptr, {mem}};
  return NewZeroed<SyncTuple>(mem, RecordBytes(set) - sizeof(SyncTuple));
}

void Free(const SyncSet &set, CoapRpcUriTuple *tuple) { PoolFree(MemOf(set), VersionOf(tuple)); }

void Unbury(SyncSet &set, CoapRpcUriTuple *tomb) {
  TombKeys(set).Remove(tomb);
  Remove(set, set.tombs, tomb);
  --set.numTombs;
}

void DropOldestTomb(SyncSet &set) {
  CoapRpcUriTuple *tomb = TupleOf(SyncCursor(set.tombs, 0).Get());
  set.floor = VersionOf(tomb)->version;
  Unbury(set, tomb);
  Free(set, tomb);
  SyncSpaceTrim(set.space, MemOf(set), NumTuples(set));
}

uint32_t MaxTombs(const SyncSet &set) {
  return std::max(set.minTombs, set.numLive / kLivePerTombstone);
}

void DropSurplus(SyncSet &set) {
  while (set.numTombs > MaxTombs(set)) DropOldestTomb(set);
}

// Revive takes a tombstone as the record of its key, which has come back without a value so far.
CoapRpcUriTuple *Revive(SyncSet &set, CoapRpcUriTuple *tomb) {
  Unbury(set, tomb);
  const CoapRpcSerObVtblReg &ob = ObOf(set);
  std::fill_n(tomb->key + ob.keyLen, ob.valLen, uint8_t{0});
  return tomb;
}

// TakeRecord returns a record with the key, in no table; null without memory.
CoapRpcUriTuple *TakeRecord(SyncSet &set, const void *tupleKey) {
  if (CoapRpcUriTuple *tomb = TombKeys(set).Find(tupleKey)) return Revive(set, tomb);
  auto made = NewTuple(set, NumTuples(set));
  if (!made) return nullptr;
  CoapRpcUriTuple *tuple = TupleOf(made.release());
  CopyTupleKey(ObOf(set), tuple->key, tupleKey, kSiteAddUriTupleKeyCopy);
  return tuple;
}

// GoLive puts a record, which is in no table, into those of live tuples.
void GoLive(SyncSet &set, CoapRpcUriTuple *tuple) {
  (void)LiveKeys(set).Insert(tuple);  // the caller has looked for its key
  ++set.numLive;
  set.digest += HashOf(set, tuple);
  Append(set, set.live, tuple);
}

bool IsEqual(const SyncSet &set, const CoapRpcUriTuple *tuple, const void *tupleVal) {
  const CoapRpcSerObVtblReg &ob = ObOf(set);
  return !tupleVal || memcmp(tuple->key + ob.keyLen, tupleVal, ob.valLen) == 0;
}

// CopyAll makes a record with a version of each of the entry's tuples.  False: no memory.
bool CopyAll(SyncSet &set) {
  const Keys keys = LiveKeys(set);
  uint64_t num = 0;
  for (const CoapRpcUriTuple *tuple = keys.First(); tuple; tuple = keys.Next(tuple)) {
    auto made = NewTuple(set, num++);
    if (!made) return false;
    CoapRpcUriTuple *copy = TupleOf(made.release());
    std::copy_n(tuple->key, TupleBytes(ObOf(set)), copy->key);
    Append(set, set.live, copy);
  }
  return true;
}

// ReplaceAll puts the copies into the table of keys, in place of what they were made from.
void ReplaceAll(SyncSet &set) {
  Keys keys = LiveKeys(set);
  keys.Drain([&](CoapRpcUriTuple *tuple) {
    keys.Remove(tuple);
    PoolFree(MemOf(set), tuple);
  });
  for (SyncCursor at(set.live, 0); at.Get(); at.Advance()) {
    (void)keys.Insert(TupleOf(at.Get()));
    ++set.numLive;
    set.digest += HashOf(set, TupleOf(at.Get()));
  }
}

void FreeTuples(SyncSet &set, SyncOrder &order) {
  SyncCursor at(order, 0);
  while (SyncTuple *rec = at.Get()) {
    at.Advance();
    Free(set, TupleOf(rec));
  }
  SyncOrderClear(order, set.space);
}

void FreeAll(SyncSet &set) {
  FreeTuples(set, set.live);
  FreeTuples(set, set.tombs);
  SyncSpaceClear(set.space, MemOf(set));
}

}  // namespace

SyncWalk::SyncWalk(SyncSet &set, uint64_t since)
    : set_(set), live_(set.live, since), tomb_(set.tombs, since) {}

bool SyncWalk::Next(SyncChange &change) {
  SyncTuple *live = live_.Get();
  SyncTuple *tomb = tomb_.Get();
  if (!live && !tomb) return false;
  const bool isLive = !tomb || (live && live->version < tomb->version);
  SyncTuple *next = isLive ? live : tomb;
  const uint8_t *key = TupleOf(next)->key;
  change = {next->version, key, isLive ? key + ObOf(set_).keyLen : nullptr};
  (isLive ? live_ : tomb_).Advance();
  return true;
}

bool SyncSetAdopt(SyncSet &set) {
  const bool isCopied = CopyAll(set);
  if (isCopied) {
    ReplaceAll(set);
  } else {
    FreeAll(set);
  }
  return isCopied;
}

CoapRpcUriTuple *SyncSetAdd(SyncSet &set, const void *tupleKey, const void *tupleVal) {
  if (LiveKeys(set).Find(tupleKey)) return nullptr;
  CoapRpcUriTuple *tuple = TakeRecord(set, tupleKey);
  if (!tuple) return nullptr;
  CopyTupleVal(ObOf(set), tuple->key, tupleVal, kSiteAddUriTupleValCopy);
  GoLive(set, tuple);
  return tuple;
}

void SyncSetUpdate(SyncSet &set, CoapRpcUriTuple *tuple, const void *tupleVal) {
  if (IsEqual(set, tuple, tupleVal)) return;
  SyncOrderPrefetch(VersionOf(tuple));
  set.digest -= HashOf(set, tuple);
  CopyTupleVal(ObOf(set), tuple->key, tupleVal, kSiteUpdateUriTupleValCopy);
  set.digest += HashOf(set, tuple);
  Remove(set, set.live, tuple);
  Append(set, set.live, tuple);
}

void SyncSetDelete(SyncSet &set, CoapRpcUriTuple *tuple) {
  set.digest -= HashOf(set, tuple);
  LiveKeys(set).Remove(tuple);
  Remove(set, set.live, tuple);
  --set.numLive;
  (void)TombKeys(set).Insert(tuple);  // a key is live or has a tombstone
  Append(set, set.tombs, tuple);
  ++set.numTombs;
  DropSurplus(set);
}

void SyncSetBeginReplacement(SyncSet &set) { ++set.numReplacements; }

void SyncSetMeet(SyncSet &set, CoapRpcUriTuple *tuple) {
  VersionOf(tuple)->metBy = set.numReplacements;
}

CoapRpcUriTuple *SyncSetUnmet(SyncSet &set, CoapRpcUriTuple *after) {
  const Keys keys = LiveKeys(set);
  CoapRpcUriTuple *tuple = after ? keys.Next(after) : keys.First();
  while (tuple && VersionOf(tuple)->metBy == set.numReplacements) tuple = keys.Next(tuple);
  return tuple;
}

void SyncSetLimit(SyncSet &set, uint32_t minTombs) {
  set.minTombs = minTombs;
  DropSurplus(set);
}

uint64_t SyncSetBytes(const SyncSet &set) {
  return NumTuples(set) * RecordBytes(set) + uint64_t{set.space.num} * sizeof(SyncSegment);
}

void SyncSetClear(SyncSet &set) {
  Keys(set.entry->tupleSetTree, set.entry->tupleSetDesc).Init();
  FreeAll(set);
  set.tombKeys = {};
  set.numLive = set.numTombs = 0;
  set.digest = 0;
}

}  // namespace coap_rpc
