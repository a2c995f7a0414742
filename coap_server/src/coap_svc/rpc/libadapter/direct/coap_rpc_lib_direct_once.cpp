#include "coap_svc/rpc/libadapter/direct/coap_rpc_lib_direct_once.h"

#include <netinet/in.h>

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "coap_svc/rpc/common/coap_rpc_limits.h"
#include "coap_svc/rpc/common/coap_rpc_own.h"
#include "coap_svc/rpc/libadapter/direct/coap_rpc_lib_direct_data.h"
#include "coap_svc/rpc/libadapter/message/coap_rpc_lib_clock.h"
#include "libcoap/ext/coap_rpc_lib_answer.h"

namespace coap_rpc {
namespace {

constexpr size_t kNumBuckets = 32768;

static_assert(alignof(OnceRecord) <= kRecordAlign);
static_assert(sizeof(OnceId) <= 96);
static_assert(offsetof(OnceId, key) == sizeof(OnceRecord));
static_assert(offsetof(sockaddr_in, sin_port) == offsetof(sockaddr_in6, sin6_port));

OnceCache &CacheOf(CoapRpcCtx *ctx) { return ctx->lib->direct->once; }

// ---- keys ----

const uint64_t *KeyOf(const OnceRecord *record) {
  return reinterpret_cast<const uint64_t *>(record + 1);
}

size_t KeyBytes(const OnceRecord &record) { return record.numWords * sizeof(uint64_t); }

// PutAddresses writes both addresses of a session.  Returns the words that they take.
uint8_t PutAddresses(uint64_t *to, const coap_address_t &remote, const coap_address_t &local) {
  if (remote.addr.sa.sa_family == AF_INET) {
    *to = uint64_t{remote.addr.sin.sin_addr.s_addr} << 32 | local.addr.sin.sin_addr.s_addr;
    return 1;
  }
  memcpy(to, &remote.addr.sin6.sin6_addr, sizeof(in6_addr));
  memcpy(to + 2, &local.addr.sin6.sin6_addr, sizeof(in6_addr));
  return 4;
}

// PutToken writes a token, padded with zeros.  Returns the words that it takes.
uint8_t PutToken(uint64_t *to, const coap_bin_const_t &token) {
  if (token.length == 0) return 0;
  *to = 0;
  memcpy(to, token.s, std::min(token.length, sizeof(*to)));
  return 1;
}

// FillKey: the first word has the token's length, at most 8 in what libcoap lets through, and the
// number of words says whether the addresses are IPv4, so that keys of two requests differ.
void FillKey(OnceId &id, const coap_session_t *session, const coap_pdu_t *request) {
  const coap_address_t &remote = *coap_session_get_addr_remote(session);
  const coap_address_t &local = *coap_session_get_addr_local(session);
  const coap_bin_const_t token = coap_pdu_get_token(request);
  const auto mid = static_cast<uint16_t>(coap_pdu_get_mid(request));
  id.key[0] = uint64_t{remote.addr.sin.sin_port} << 48 | uint64_t{local.addr.sin.sin_port} << 32 |
              uint32_t{mid} << 16 | token.length << 8 | id.record.method;
  uint64_t *next = id.key + 1;
  next += PutAddresses(next, remote, local);
  next += PutToken(next, token);
  id.record.numWords = static_cast<uint8_t>(next - id.key);
}

uint32_t HashOf(const OnceId &id, uint64_t seed) {
  uint64_t hash = seed;
  for (uint8_t i = 0; i < id.record.numWords; ++i) {
    hash = (hash ^ id.key[i]) * 0x9E3779B97F4A7C15u;
    hash ^= hash >> 32;
  }
  return static_cast<uint32_t>(hash);
}

bool IsOf(const OnceRecord *record, const OnceId &id) {
  return record->hash == id.record.hash && record->numWords == id.record.numWords &&
         memcmp(KeyOf(record), id.key, KeyBytes(id.record)) == 0;
}

// ---- time ----

// MsOf wraps around every 49 days; records live for minutes.
uint32_t MsOf(coap_tick_t ticks) {
  return static_cast<uint32_t>(ticks * 1000 / COAP_TICKS_PER_SECOND);
}

bool IsExpired(const OnceRecord *record, uint32_t nowMs) {
  return static_cast<int32_t>(nowMs - record->expiresMs) >= 0;
}

uint32_t LifetimeOf(const coap_pdu_t *request) {
  return coap_pdu_get_type(request) == COAP_MESSAGE_CON ? kExchangeLifetimeMs : kNonLifetimeMs;
}

// ---- buckets ----

OnceRecord *&BucketOf(OnceCache &cache, uint32_t hash) { return cache.buckets[hash % kNumBuckets]; }

bool HasTable(CoapRpcCtx *ctx) {
  OnceCache &cache = CacheOf(ctx);
  if (cache.buckets) return true;
  cache.buckets = static_cast<OnceRecord **>(
      PoolAlloc(ctx->param.memHandle, kNumBuckets * sizeof(OnceRecord *)));
  return cache.buckets != nullptr;
}

void Chain(OnceCache &cache, OnceRecord *record) {
  OnceRecord *&bucket = BucketOf(cache, record->hash);
  record->chained = bucket;
  bucket = record;
}

// Unchain ignores a record that is not chained.
void Unchain(OnceCache &cache, const OnceRecord *record) {
  OnceRecord **at = &BucketOf(cache, record->hash);
  while (*at && *at != record) at = &(*at)->chained;
  if (*at) *at = record->chained;
}

// ---- the queue ----

// BeforeAnswer is the size of a record without its answer.
size_t BeforeAnswer(const OnceRecord &record) { return sizeof(record) + KeyBytes(record); }

const uint8_t *AnswerOf(const OnceRecord *record) {
  return reinterpret_cast<const uint8_t *>(record) + BeforeAnswer(*record);
}

size_t SizeOf(const OnceRecord *record) { return BeforeAnswer(*record) + record->len; }

OnceRecord *OldestOf(const OnceCache &cache) {
  return static_cast<OnceRecord *>(FirstBytes(cache.queue));
}

// Prefetch reads ahead what the end of the oldest record will need: the memory of all records is
// much larger than the processor's caches, and that end is the next request's.
void Prefetch(OnceCache &cache) {
  const OnceRecord *oldest = OldestOf(cache);
  if (!oldest) return;
  __builtin_prefetch(&BucketOf(cache, oldest->hash));
  __builtin_prefetch(reinterpret_cast<const uint8_t *>(oldest) + SizeOf(oldest));
}

void ForgetOldest(CoapRpcCtx *ctx) {
  OnceCache &cache = CacheOf(ctx);
  OnceRecord *oldest = OldestOf(cache);
  const size_t size = SizeOf(oldest);
  Unchain(cache, oldest);
  --cache.num;
  cache.numBytes -= size;
  PopBytes(ctx->param.memHandle, cache.queue, size);
}

bool HasRoom(const OnceCache &cache, size_t size) {
  return cache.num < kMaxRemembered && cache.numBytes + size <= kMaxRememberedBytes;
}

// MakeRoom forgets the oldest until there is room for one more of a size.
void MakeRoom(CoapRpcCtx *ctx, size_t size) {
  OnceCache &cache = CacheOf(ctx);
  while (!HasRoom(cache, size)) {
    if (!IsExpired(OldestOf(cache), cache.nowMs)) ++cache.numForgotten;
    ForgetOldest(ctx);
  }
}

OnceRecord *NewRecord(CoapRpcCtx *ctx, size_t size) {
  OnceCache &cache = CacheOf(ctx);
  if (!HasTable(ctx)) return nullptr;
  MakeRoom(ctx, size);
  auto *record = static_cast<OnceRecord *>(PushBytes(ctx->param.memHandle, cache.queue, size));
  if (!record) return nullptr;
  ++cache.num;
  cache.numBytes += size;
  return record;
}

// PutAnswer puts an answer behind a record's key.
void PutAnswer(OnceRecord *record, coap_pdu_code_t code, const CoapRpcLibContent &content) {
  auto *answer = const_cast<uint8_t *>(AnswerOf(record));
  if (content.len != 0) memcpy(answer, content.bytes, content.len);
  record->len = content.len;
  record->payloadAt = content.payloadAt;
  record->code = static_cast<uint8_t>(code);
  record->isAnswered = true;
}

void Remember(CoapRpcCtx *ctx, const OnceId &id, coap_pdu_code_t code,
              const CoapRpcLibContent &content) {
  OnceCache &cache = CacheOf(ctx);
  OnceRecord *record = NewRecord(ctx, BeforeAnswer(id.record) + content.len);
  if (!record) {
    ++cache.numForgotten;
    return;
  }
  memcpy(static_cast<void *>(record), &id, BeforeAnswer(id.record));
  PutAnswer(record, code, content);
  Chain(cache, record);
  Prefetch(cache);
}

}  // namespace

bool IsOnce(uint8_t method) {
  return method != COAP_REQUEST_CODE_GET && method != COAP_REQUEST_CODE_FETCH;
}

void InitOnce(OnceCache &cache) { coap_prng(&cache.seed, sizeof(cache.seed)); }

OnceId IdOf(const Exchange &exchange) {
  OnceCache &cache = CacheOf(exchange.ctx);
  cache.nowMs = MsOf(CoapRpcLibHeardAt(exchange.session));
  OnceId id;
  id.record = {};
  id.record.method = static_cast<uint8_t>(coap_pdu_get_code(exchange.request));
  FillKey(id, exchange.session, exchange.request);
  id.record.hash = HashOf(id, cache.seed);
  id.record.expiresMs = cache.nowMs + LifetimeOf(exchange.request);
  if (cache.buckets) __builtin_prefetch(&BucketOf(cache, id.record.hash));
  return id;
}

const OnceRecord *FindOnce(CoapRpcCtx *ctx, const OnceId &id) {
  OnceCache &cache = CacheOf(ctx);
  if (!cache.buckets) return nullptr;
  const OnceRecord *record = BucketOf(cache, id.record.hash);
  while (record && !IsOf(record, id)) record = record->chained;
  const bool isOver = record && record->isAnswered && IsExpired(record, cache.nowMs);
  if (!record || isOver) return nullptr;
  ++ctx->counts.repeats;
  return record;
}

void RepeatAnswer(const OnceRecord *record, coap_pdu_t *response) {
  if (!record->isAnswered) return;
  const CoapRpcLibContent content = {AnswerOf(record), record->len, record->payloadAt};
  const bool isSet = CoapRpcLibSetContent(response, &content) != 0;
  coap_pdu_set_code(response, isSet ? static_cast<coap_pdu_code_t>(record->code)
                                    : COAP_RESPONSE_CODE_SERVICE_UNAVAILABLE);
}

void RememberAnswer(CoapRpcCtx *ctx, const OnceId &id, const coap_pdu_t *response) {
  Remember(ctx, id, coap_pdu_get_code(response), CoapRpcLibGetContent(response));
}

void RememberLost(CoapRpcCtx *ctx, const OnceId &id) {
  Remember(ctx, id, COAP_RESPONSE_CODE_GATEWAY_TIMEOUT, {});
}

void RememberOpen(CoapRpcCtx *ctx, OnceId &id) {
  OnceCache &cache = CacheOf(ctx);
  if (HasTable(ctx)) {
    Chain(cache, &id.record);
  } else {
    ++cache.numForgotten;
  }
}

void ForgetOpen(CoapRpcCtx *ctx, const OnceId &id) {
  if (CacheOf(ctx).buckets) Unchain(CacheOf(ctx), &id.record);
}

void ForgetAllOnce(CoapRpcCtx *ctx) {
  OnceCache &cache = CacheOf(ctx);
  while (cache.num != 0) ForgetOldest(ctx);
  PoolFree(ctx->param.memHandle, cache.buckets);
  cache.buckets = nullptr;
}

void TrimOnce(CoapRpcCtx *ctx) {
  const OnceCache &cache = CacheOf(ctx);
  const uint32_t nowMs = MsOf(NowTicks());
  while (cache.num != 0 && IsExpired(OldestOf(cache), nowMs)) ForgetOldest(ctx);
}

}  // namespace coap_rpc

uint64_t COAP_RpcGetForgottenNum(const CoapRpcCtx *ctx) {
  const bool isDirect = ctx && ctx->lib && ctx->lib->direct;
  return isDirect ? ctx->lib->direct->once.numForgotten : 0;
}
