#include "coap_svc/rpc/libadapter/rpc_call/coap_rpc_lib_rpc_call_record.h"

#include <cstring>

#include "coap_svc/rpc/common/coap_rpc_own.h"
#include "coap_svc/rpc/common/coap_rpc_table.h"

namespace coap_rpc {
namespace {

constexpr uint32_t kFirstBuckets = 16;

int32_t CompareDue(const void *a, const void *b) {
  const auto *dueA = static_cast<const CallDue *>(a);
  const auto *dueB = static_cast<const CallDue *>(b);
  if (dueA->at != dueB->at) return dueA->at < dueB->at ? -1 : 1;
  return (dueA->id > dueB->id) - (dueA->id < dueB->id);
}

using DueTable = COAP_RPC_TABLE(RpcCall, due, CallDue, CompareDue);

// Ids are random, so their low bits spread them well.
RpcCall **BucketOf(const CoapRpcCalls &calls, uint64_t id) {
  return &calls.buckets[id & (calls.numBuckets - 1)];
}

void Chain(const CoapRpcCalls &calls, RpcCall *call) {
  RpcCall **bucket = BucketOf(calls, call->id);
  call->nextInBucket = *bucket;
  *bucket = call;
}

void MoveAll(const CoapRpcCalls &from, const CoapRpcCalls &to) {
  for (uint32_t i = 0; i < from.numBuckets; ++i) {
    for (RpcCall *call = from.buckets[i], *next; call; call = next) {
      next = call->nextInBucket;
      Chain(to, call);
    }
  }
}

// Grow keeps about one call to a bucket.  Without memory the chains grow longer.
bool Grow(CoapRpcCtx *ctx, CoapRpcCalls *calls) {
  if (calls->num < calls->numBuckets) return true;
  const uint64_t mem = ctx->param.memHandle;
  const CoapRpcCalls old = *calls;
  const uint32_t num = old.numBuckets != 0 ? 2 * old.numBuckets : kFirstBuckets;
  auto *buckets = static_cast<RpcCall **>(PoolAlloc(mem, num * sizeof(RpcCall *)));
  if (!buckets) return old.numBuckets != 0;
  calls->buckets = buckets;
  calls->numBuckets = num;
  MoveAll(old, *calls);
  PoolFree(mem, old.buckets);
  return true;
}

uint64_t Random(CoapRpcCalls *calls) {
  if (calls->numSpareIds == 0) {
    coap_prng(calls->spareIds, sizeof(calls->spareIds));
    calls->numSpareIds = kNumSpareIds;
  }
  return calls->spareIds[--calls->numSpareIds];
}

// A source of random numbers that repeats itself must not hold us up.
uint64_t DrawId(CoapRpcCalls *calls) {
  uint64_t id = Random(calls);
  while (id == 0 || FindRpcCall(calls, id)) ++id;
  return id;
}

}  // namespace

uint64_t IdOf(const coap_bin_const_t &token) {
  uint64_t id = 0;
  if (token.length == sizeof(id)) memcpy(&id, token.s, sizeof(id));
  return id;
}

RpcCall *FindRpcCall(const CoapRpcCalls *calls, uint64_t id) {
  if (!calls || calls->numBuckets == 0) return nullptr;
  RpcCall *call = *BucketOf(*calls, id);
  while (call && call->id != id) call = call->nextInBucket;
  return call;
}

bool AddRpcCall(CoapRpcCtx *ctx, CoapRpcCalls *calls, RpcCall *call, coap_tick_t dueAt) {
  if (!Grow(ctx, calls)) return false;
  call->id = DrawId(calls);
  Chain(*calls, call);
  ++calls->num;
  call->due = {dueAt, call->id};
  return DueTable(calls->dueTree).Insert(call);
}

void RemoveRpcCall(CoapRpcCalls *calls, RpcCall *call) {
  RpcCall **place = BucketOf(*calls, call->id);
  while (*place != call) place = &(*place)->nextInBucket;
  *place = call->nextInBucket;
  --calls->num;
  DueTable(calls->dueTree).Remove(call);
}

void SetDue(CoapRpcCalls *calls, RpcCall *call, coap_tick_t dueAt) {
  DueTable table(calls->dueTree);
  table.Remove(call);
  call->due.at = dueAt;
  (void)table.Insert(call);  // the id makes it unique
}

RpcCall *FirstDue(CoapRpcCalls *calls) { return DueTable(calls->dueTree).First(); }

void FreeRpcCall(CoapRpcCtx *ctx, RpcCall *call) {
  const uint64_t mem = ctx->param.memHandle;
  coap_delete_pdu(call->pdu);
  COAP_RpcFreePayload(call->payload);
  if (call->watch) coap_delete_pdu(call->watch->request);
  PoolFree(mem, call->watch);
  PoolFree(mem, call);
}

}  // namespace coap_rpc
