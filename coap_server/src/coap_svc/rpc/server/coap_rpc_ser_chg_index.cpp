#include "coap_svc/rpc/server/coap_rpc_ser_chg_index.h"

#include "coap_svc/rpc/common/coap_rpc_own.h"
#include "coap_svc/rpc/common/coap_rpc_stopwatch.h"
#include "osal.h"

namespace coap_rpc {
namespace {

// Shorter lists are walked: that is as fast and costs no memory.
constexpr uint32_t kIndexFromChgs = 32;

using Bucket = COAP_RPC_LIST(CoapRpcTupleChg, idxLink);

// ChgIndex is a hash table of every change on the list.  Removals do not reach it, so it counts the
// additions that it still takes before its size is looked at again.
struct ChgIndex {
  uint32_t numBuckets;  // a power of two
  uint32_t appendsLeft;
  __extension__ CoapRpcLink buckets[];
};

ChgIndex *IndexOf(const CoapRpcSerUriVtbl *entry) {
  return static_cast<ChgIndex *>(entry->chgIndex);
}

// HashOf is FNV-1a with its high bits folded down, since the low ones choose the bucket.
uint64_t HashOf(const uint8_t *key, uint32_t keyLen) {
  uint64_t hash = 0xcbf29ce484222325;
  for (uint32_t i = 0; i < keyLen; ++i) hash = (hash ^ key[i]) * 0x100000001b3;
  hash = (hash ^ (hash >> 32)) * 0x9e3779b97f4a7c15;
  return hash ^ (hash >> 32);
}

Bucket BucketOf(ChgIndex *index, const void *key, uint32_t keyLen) {
  const uint64_t hash = HashOf(static_cast<const uint8_t *>(key), keyLen);
  return Bucket(index->buckets[hash & (index->numBuckets - 1)]);
}

void Insert(ChgIndex *index, const CoapRpcSerUriVtbl *entry, CoapRpcTupleChg *chg) {
  BucketOf(index, chg->key, entry->obVtbl->keyLen).Append(chg);
}

uint32_t NumPending(CoapRpcSerUriVtbl *entry) {
  const PendingChgs chgs(entry->tupleChgList);
  uint32_t numChgs = 0;
  chgs.ForEach([&](const CoapRpcTupleChg *) { ++numChgs; });
  return numChgs;
}

uint32_t BucketsFor(uint32_t numChgs) {
  uint32_t numBuckets = 2 * kIndexFromChgs;
  while (numBuckets < 2 * uint64_t{numChgs}) numBuckets *= 2;
  return numBuckets;
}

// Rebuild puts an index of the right size in place of the entry's; without memory the old one
// stays, which still finds everything.
void Rebuild(uint64_t mem, CoapRpcSerUriVtbl *entry) {
  const uint32_t numChgs = NumPending(entry);
  if (numChgs < kIndexFromChgs && !entry->chgIndex) return;
  const uint32_t numBuckets = BucketsFor(numChgs);
  auto index = NewZeroed<ChgIndex>(mem, numBuckets * sizeof(CoapRpcLink));
  if (!index) {
    if (entry->chgIndex) IndexOf(entry)->appendsLeft = IndexOf(entry)->numBuckets;
    return;
  }
  index->numBuckets = numBuckets;
  index->appendsLeft = numBuckets - numChgs;
  const PendingChgs chgs(entry->tupleChgList);
  chgs.ForEach([&](CoapRpcTupleChg *chg) { Insert(index.get(), entry, chg); });
  PoolFree(mem, entry->chgIndex);
  entry->chgIndex = index.release();
}

// NoteAdded makes a change that has just come onto the list findable.
void NoteAdded(uint64_t mem, CoapRpcSerUriVtbl *entry, CoapRpcTupleChg *chg) {
  if (ChgIndex *index = IndexOf(entry)) {
    Insert(index, entry, chg);
    if (--index->appendsLeft != 0) return;
  }
  Rebuild(mem, entry);
}

// BeginPending is for the first change of an empty list.
void BeginPending(uint64_t mem, CoapRpcSerUriVtbl *entry) {
  DropChgIndex(mem, entry);
  entry->counts.pendingSinceNs = MonotonicNs();
}

}  // namespace

CoapRpcTupleChg *FindPendingChg(CoapRpcSerUriVtbl *entry, const void *tupleKey) {
  const uint32_t keyLen = entry->obVtbl->keyLen;
  const auto hasKey = [&](const CoapRpcTupleChg &chg) {
    return OSAL_MemCmp(chg.key, tupleKey, keyLen) == 0;
  };
  if (ChgIndex *index = IndexOf(entry)) return BucketOf(index, tupleKey, keyLen).FindIf(hasKey);
  return PendingChgs(entry->tupleChgList).FindIf(hasKey);
}

void AppendPendingChg(uint64_t mem, CoapRpcSerUriVtbl *entry, CoapRpcTupleChg *chg) {
  PendingChgs chgs(entry->tupleChgList);
  if (chgs.IsEmpty()) BeginPending(mem, entry);
  chgs.Append(chg);
  NoteAdded(mem, entry, chg);
}

void PrependPendingChg(uint64_t mem, CoapRpcSerUriVtbl *entry, CoapRpcTupleChg *chg) {
  PendingChgs chgs(entry->tupleChgList);
  if (chgs.IsEmpty()) BeginPending(mem, entry);
  chgs.Prepend(chg);
  NoteAdded(mem, entry, chg);
}

void RemovePendingChg(CoapRpcTupleChg *chg) {
  LinkRemove(chg->chgLink);
  LinkRemove(chg->idxLink);
}

void DropChgIndex(uint64_t mem, CoapRpcSerUriVtbl *entry) {
  const PendingChgs chgs(entry->tupleChgList);
  chgs.ForEach([](CoapRpcTupleChg *chg) { LinkInit(chg->idxLink); });
  PoolFree(mem, entry->chgIndex);
  entry->chgIndex = nullptr;
}

}  // namespace coap_rpc
