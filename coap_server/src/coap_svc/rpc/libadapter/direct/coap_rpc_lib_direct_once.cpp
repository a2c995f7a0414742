#include "coap_svc/rpc/libadapter/direct/coap_rpc_lib_direct_once.h"

#include <netinet/in.h>

#include <algorithm>
#include <cstring>
#include <type_traits>

#include "coap_svc/rpc/common/coap_rpc_limits.h"
#include "coap_svc/rpc/common/coap_rpc_own.h"
#include "coap_svc/rpc/libadapter/direct/coap_rpc_lib_direct_async.h"
#include "coap_svc/rpc/libadapter/direct/coap_rpc_lib_direct_data.h"
#include "coap_svc/rpc/libadapter/message/coap_rpc_lib_clock.h"
#include "libcoap/ext/coap_rpc_lib_answer.h"

namespace coap_rpc {
namespace {

constexpr size_t kNumBuckets = 32768;

// Compared as bytes, and hashed as words.
static_assert(std::has_unique_object_representations_v<OnceKey>);
static_assert(sizeof(OnceKey) % sizeof(uint64_t) == 0);

}  // namespace

// What a search and an end read comes first.
struct OnceRecord {
  OnceRecord *chained;  // next of its bucket
  CoapRpcLink link;     // on the cache's list
  union {
    uint8_t *answer;     // behind the record, or owned by itself
    DirectAsync *async;  // while open
  };
  uint32_t hash;
  uint32_t expiresMs;  // low bits of libcoap's clock
  uint16_t len;        // of the answer
  uint16_t payloadAt;
  uint8_t code;
  bool isOpen;
  OnceKey key;
};
static_assert(sizeof(OnceRecord) <= 96);

namespace {

using Records = COAP_RPC_LIST(OnceRecord, link);

OnceCache &CacheOf(CoapRpcCtx *ctx) { return ctx->lib->direct->once; }

// ---- keys ----

void CopyAddress(const coap_address_t &from, uint8_t (&addr)[16], uint16_t &port) {
  port = coap_address_get_port(&from);
  if (from.addr.sa.sa_family == AF_INET) {
    memcpy(addr, &from.addr.sin.sin_addr, sizeof(from.addr.sin.sin_addr));
  } else {
    memcpy(addr, &from.addr.sin6.sin6_addr, sizeof(addr));
  }
}

OnceKey KeyOf(const coap_session_t *session, const coap_pdu_t *request) {
  OnceKey key = {};
  CopyAddress(*coap_session_get_addr_remote(session), key.remote, key.remotePort);
  CopyAddress(*coap_session_get_addr_local(session), key.local, key.localPort);
  const coap_bin_const_t token = coap_pdu_get_token(request);
  if (token.length != 0) memcpy(key.token, token.s, std::min(token.length, sizeof(key.token)));
  key.tokenLen = static_cast<uint8_t>(token.length);
  key.mid = static_cast<uint16_t>(coap_pdu_get_mid(request));
  key.method = static_cast<uint8_t>(coap_pdu_get_code(request));
  return key;
}

uint32_t HashOf(const OnceKey &key) {
  uint64_t words[sizeof(key) / sizeof(uint64_t)];
  memcpy(words, &key, sizeof(key));
  uint64_t hash = 0;
  for (const uint64_t word : words) {
    hash = (hash ^ word) * 0x9E3779B97F4A7C15u;
    hash ^= hash >> 32;
  }
  return static_cast<uint32_t>(hash);
}

bool IsOf(const OnceRecord *record, const OnceId &id) {
  return record->hash == id.hash && memcmp(&record->key, &id.key, sizeof(id.key)) == 0;
}

OnceRecord *&BucketOf(OnceCache &cache, uint32_t hash) { return cache.buckets[hash % kNumBuckets]; }

// ---- time ----

// NowMs wraps around every 49 days; records live for minutes.
uint32_t NowMs() { return static_cast<uint32_t>(NowTicks() * 1000 / COAP_TICKS_PER_SECOND); }

bool IsExpired(const OnceRecord *record, uint32_t nowMs) {
  return static_cast<int32_t>(nowMs - record->expiresMs) >= 0;
}

uint32_t LifetimeOf(const coap_pdu_t *request) {
  return coap_pdu_get_type(request) == COAP_MESSAGE_CON ? kExchangeLifetimeMs : kNonLifetimeMs;
}

// ---- records ----

bool HasTable(CoapRpcCtx *ctx) {
  OnceCache &cache = CacheOf(ctx);
  if (!cache.buckets) {
    cache.buckets = static_cast<OnceRecord **>(
        PoolAlloc(ctx->param.memHandle, kNumBuckets * sizeof(OnceRecord *)));
  }
  return cache.buckets != nullptr;
}

// Prefetch reads ahead what the end of the oldest record will need: the memory of all records is
// much larger than the processor's caches, and that end is the next request's.
void Prefetch(OnceCache &cache) {
  const OnceRecord *oldest = Records(cache.list).First();
  if (!oldest) return;
  __builtin_prefetch(&BucketOf(cache, oldest->hash));
  __builtin_prefetch(oldest->link.next);
}

// MakeRoom forgets what is too old, and the oldest until there is room for so much more.
void MakeRoom(CoapRpcCtx *ctx, uint32_t nowMs, uint32_t num, size_t numBytes) {
  OnceCache &cache = CacheOf(ctx);
  while (OnceRecord *oldest = Records(cache.list).First()) {
    const bool isExpired = IsExpired(oldest, nowMs);
    const bool hasRoom =
        cache.num + num <= kMaxRemembered && cache.numBytes + numBytes <= kMaxRememberedBytes;
    if (!isExpired && hasRoom) return;
    if (!isExpired) ++cache.numForgotten;
    ForgetOnce(ctx, oldest);
  }
}

// NewRecord makes a record with room for `len` bytes; null, counted as forgotten, without memory.
OnceRecord *NewRecord(const Exchange &exchange, const OnceId &id, size_t len) {
  CoapRpcCtx *ctx = exchange.ctx;
  const uint32_t nowMs = NowMs();
  MakeRoom(ctx, nowMs, 1, sizeof(OnceRecord) + len);
  OnceRecord *record =
      HasTable(ctx) ? NewZeroed<OnceRecord>(ctx->param.memHandle, len).release() : nullptr;
  if (!record) {
    ++CacheOf(ctx).numForgotten;
    return nullptr;
  }
  record->key = id.key;
  record->hash = id.hash;
  record->expiresMs = nowMs + LifetimeOf(exchange.request);
  record->len = static_cast<uint16_t>(len);
  return record;
}

void Enlist(OnceCache &cache, OnceRecord *record) {
  record->chained = BucketOf(cache, record->hash);
  BucketOf(cache, record->hash) = record;
  Records(cache.list).Append(record);
  ++cache.num;
  cache.numBytes += sizeof(*record) + record->len;
  Prefetch(cache);
}

void Unchain(OnceCache &cache, const OnceRecord *record) {
  OnceRecord **at = &BucketOf(cache, record->hash);
  while (*at != record) at = &(*at)->chained;
  *at = record->chained;
}

bool OwnsAnswer(const OnceRecord *record) {
  return !record->isOpen && record->answer != reinterpret_cast<const uint8_t *>(record + 1);
}

void SetAnswer(OnceRecord *record, uint8_t *answer, const coap_pdu_t *response) {
  const CoapRpcLibContent content = CoapRpcLibGetContent(response);
  if (content.len != 0) memcpy(answer, content.bytes, content.len);
  record->answer = answer;
  record->len = content.len;
  record->payloadAt = content.payloadAt;
  record->code = static_cast<uint8_t>(coap_pdu_get_code(response));
  record->isOpen = false;
}

}  // namespace

bool IsOnce(uint8_t method) {
  return method != COAP_REQUEST_CODE_GET && method != COAP_REQUEST_CODE_FETCH;
}

OnceId IdOf(const Exchange &exchange) {
  OnceId id = {KeyOf(exchange.session, exchange.request), 0};
  id.hash = HashOf(id.key);
  return id;
}

OnceRecord *FindOnce(const Exchange &exchange, const OnceId &id) {
  OnceCache &cache = CacheOf(exchange.ctx);
  if (cache.num == 0) return nullptr;
  OnceRecord *record = BucketOf(cache, id.hash);
  while (record && !IsOf(record, id)) record = record->chained;
  if (!record || !IsExpired(record, NowMs())) return record;
  ForgetOnce(exchange.ctx, record);
  return nullptr;
}

void RepeatAnswer(const OnceRecord *record, coap_pdu_t *response) {
  if (record->isOpen) return;
  const CoapRpcLibContent content = {record->answer, record->len, record->payloadAt};
  const bool isSet = CoapRpcLibSetContent(response, &content) != 0;
  coap_pdu_set_code(response, isSet ? static_cast<coap_pdu_code_t>(record->code)
                                    : COAP_RESPONSE_CODE_SERVICE_UNAVAILABLE);
}

void RememberAnswer(const Exchange &exchange, const OnceId &id) {
  OnceRecord *record = NewRecord(exchange, id, CoapRpcLibGetContent(exchange.response).len);
  if (!record) return;
  SetAnswer(record, reinterpret_cast<uint8_t *>(record + 1), exchange.response);
  Enlist(CacheOf(exchange.ctx), record);
}

OnceRecord *RememberOpen(const Exchange &exchange, const OnceId &id, DirectAsync *async) {
  OnceRecord *record = NewRecord(exchange, id, 0);
  if (!record) return nullptr;
  record->async = async;
  record->isOpen = true;
  Enlist(CacheOf(exchange.ctx), record);
  return record;
}

void RememberLate(CoapRpcCtx *ctx, OnceRecord *record, const coap_pdu_t *response) {
  if (!record) return;
  OnceCache &cache = CacheOf(ctx);
  auto *answer =
      static_cast<uint8_t *>(PoolAlloc(ctx->param.memHandle, CoapRpcLibGetContent(response).len));
  if (!answer) {
    ++cache.numForgotten;
    ForgetOnce(ctx, record);
    return;
  }
  SetAnswer(record, answer, response);
  cache.numBytes += record->len;
  TrimOnce(ctx);
}

void RememberLost(OnceRecord *record) {
  if (!record) return;
  record->answer = reinterpret_cast<uint8_t *>(record + 1);
  record->code = COAP_RESPONSE_CODE_GATEWAY_TIMEOUT;
  record->isOpen = false;
}

void ForgetOnce(CoapRpcCtx *ctx, OnceRecord *record) {
  if (!record) return;
  OnceCache &cache = CacheOf(ctx);
  Unchain(cache, record);
  LinkRemove(record->link);
  --cache.num;
  cache.numBytes -= sizeof(*record) + record->len;
  if (record->isOpen) record->async->once = nullptr;
  if (OwnsAnswer(record)) PoolFree(ctx->param.memHandle, record->answer);
  PoolFree(ctx->param.memHandle, record);
}

void ForgetAllOnce(CoapRpcCtx *ctx) {
  OnceCache &cache = CacheOf(ctx);
  Records(cache.list).Drain([=](OnceRecord *record) { ForgetOnce(ctx, record); });
  PoolFree(ctx->param.memHandle, cache.buckets);
  cache.buckets = nullptr;
}

void TrimOnce(CoapRpcCtx *ctx) { MakeRoom(ctx, NowMs(), 0, 0); }

}  // namespace coap_rpc

uint64_t COAP_RpcGetForgottenNum(const CoapRpcCtx *ctx) {
  const bool isDirect = ctx && ctx->lib && ctx->lib->direct;
  return isDirect ? ctx->lib->direct->once.numForgotten : 0;
}
