#include "coap_svc/rpc/libadapter/rpc_call/coap_rpc_lib_rpc_call_record.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "coap_svc/rpc/common/coap_rpc_own.h"
#include "coap_svc/rpc/common/coap_rpc_table.h"
#include "coap_svc/rpc/libadapter/message/coap_rpc_lib_clock.h"

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

struct Option {
  coap_option_num_t number = 0;  // 0: the end
  size_t len = 0;
  const uint8_t *bytes = nullptr;
};

Option NextOption(coap_opt_iterator_t *it) {
  const coap_opt_t *opt = coap_option_next(it);
  return opt ? Option{it->number, coap_opt_length(opt), coap_opt_value(opt)} : Option{};
}

int32_t CompareOption(const Option &a, const Option &b) {
  if (a.number != b.number) return a.number < b.number ? -1 : 1;
  if (a.len != b.len) return a.len < b.len ? -1 : 1;
  return a.len != 0 ? memcmp(a.bytes, b.bytes, a.len) : 0;
}

int32_t CompareOptions(const coap_pdu_t *a, const coap_pdu_t *b) {
  coap_opt_iterator_t itA, itB;
  coap_option_iterator_init(a, &itA, COAP_OPT_ALL);
  coap_option_iterator_init(b, &itB, COAP_OPT_ALL);
  for (;;) {
    const Option optionA = NextOption(&itA);
    const int32_t order = CompareOption(optionA, NextOption(&itB));
    if (order != 0 || optionA.number == 0) return order;
  }
}

// A registration is a GET without payload: its options say all.
int32_t CompareWatch(const void *a, const void *b) {
  const auto *keyA = static_cast<const WatchKey *>(a);
  const auto *keyB = static_cast<const WatchKey *>(b);
  const auto sessionA = reinterpret_cast<uintptr_t>(keyA->session);
  const auto sessionB = reinterpret_cast<uintptr_t>(keyB->session);
  if (sessionA != sessionB) return sessionA < sessionB ? -1 : 1;
  return CompareOptions(keyA->request, keyB->request);
}

using WatchTable = COAP_RPC_TABLE(CallWatch, key, WatchKey, CompareWatch);

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
  StopLeading(calls, call);
}

void SetDue(CoapRpcCalls *calls, RpcCall *call, coap_tick_t dueAt) {
  DueTable table(calls->dueTree);
  table.Remove(call);
  call->due.at = dueAt;
  (void)table.Insert(call);  // the id makes it unique
}

RpcCall *FirstDue(CoapRpcCalls *calls) { return DueTable(calls->dueTree).First(); }

RpcCall *NextDue(CoapRpcCalls *calls, const CallDue &after) {
  return DueTable(calls->dueTree).After(&after);
}

RpcCall *LeadWatch(CoapRpcCalls *calls, RpcCall *call) {
  const WatchKey key = {call->peer->coapSession, call->watch->request};
  WatchTable table(calls->watchTree);
  const CallWatch *leader = table.Find(&key);
  if (leader) return leader->call;
  call->watch->key = key;
  (void)table.Insert(call->watch);  // no other has its key
  return call;
}

void StopLeading(CoapRpcCalls *calls, RpcCall *call) {
  if (!call->watch || !call->watch->key.session) return;
  WatchTable(calls->watchTree).Remove(call->watch);
  call->watch->key = {};
}

void NoteAnswer(CoapRpcCalls *calls, const RpcCall &call, const coap_pdu_t *answer) {
  if (coap_pdu_get_type(answer) != COAP_MESSAGE_CON) return;
  calls->answers[calls->nextAnswer] = {call.id, coap_pdu_get_mid(answer), NowTicks()};
  calls->nextAnswer = (calls->nextAnswer + 1) % kNumKnownCallAnswers;
}

bool IsAnswerAgain(const CoapRpcCalls *calls, const coap_pdu_t *received) {
  if (coap_pdu_get_type(received) != COAP_MESSAGE_CON) return false;
  const uint64_t id = IdOf(coap_pdu_get_token(received));
  const coap_mid_t mid = coap_pdu_get_mid(received);
  return std::any_of(std::begin(calls->answers), std::end(calls->answers),
                     [&](const CallAnswer &each) {
                       return each.id == id && each.mid == mid && id != 0 &&
                              !HasPassed(each.at, kExchangeLifetimeMs);
                     });
}

void FreeRpcCall(CoapRpcCtx *ctx, RpcCall *call) {
  const uint64_t mem = ctx->param.memHandle;
  coap_delete_pdu(call->pdu);
  COAP_RpcFreePayload(call->payload);
  if (call->watch) coap_delete_pdu(call->watch->request);
  PoolFree(mem, call->watch);
  PoolFree(mem, call);
}

}  // namespace coap_rpc
