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

// With the two links of a record, no request pays for the length of a chain.
constexpr size_t kNumChains = 16384;

constexpr uint32_t kChainsAhead = 4;  // a line of the processor's caches

// A peer that puts more requests than these under one Message ID is not protected from itself.
constexpr uint32_t kMaxSteps = 64;

static_assert(alignof(OnceRecord) <= kRecordAlign);
static_assert(sizeof(OnceId) <= 96);
static_assert(offsetof(OnceId, key) == sizeof(OnceRecord));
static_assert(offsetof(sockaddr_in, sin_port) == offsetof(sockaddr_in6, sin6_port));

}  // namespace

struct OnceChain {
  OnceRecord *first;
  uint64_t tags;  // of all that it has had since it was last empty
};

struct OnceTable {
  OnceChain chains[kNumChains];
};

namespace {

OnceCache &CacheOf(CoapRpcCtx *ctx) { return ctx->lib->direct->once; }

// ---- keys ----

const uint64_t *KeyOf(const OnceRecord *record) {
  return reinterpret_cast<const uint64_t *>(record + 1);
}

size_t KeyBytes(const OnceRecord &record) { return record.numWords * sizeof(uint64_t); }

// MixIn adds a word to a hash.
uint64_t MixIn(uint64_t hash, uint64_t word) {
  hash = (hash ^ word) * 0x9E3779B97F4A7C15u;
  return hash ^ hash >> 32;
}

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

// PlaceOf: the upper half of the first word is the ports, the quarter below the Message ID.
uint32_t PlaceOf(const uint64_t *key, const uint64_t *end, uint64_t seed) {
  uint64_t hash = MixIn(seed, *key >> 32);
  for (const uint64_t *word = key + 1; word != end; ++word) hash = MixIn(hash, *word);
  return static_cast<uint32_t>(hash) + static_cast<uint16_t>(*key >> 16);
}

// FillKey: the first word has the token's length, at most 8 in what libcoap lets through, and the
// number of words says whether the addresses are IPv4, so that keys of two requests differ.
void FillKey(OnceId &id, const coap_session_t *session, const coap_pdu_t *request, uint64_t seed) {
  const coap_address_t &remote = *coap_session_get_addr_remote(session);
  const coap_address_t &local = *coap_session_get_addr_local(session);
  const coap_bin_const_t token = coap_pdu_get_token(request);
  const auto mid = static_cast<uint16_t>(coap_pdu_get_mid(request));
  id.key[0] = uint64_t{remote.addr.sin.sin_port} << 48 | uint64_t{local.addr.sin.sin_port} << 32 |
              uint32_t{mid} << 16 | token.length << 8 | id.record.method;
  uint64_t *next = id.key + 1;
  next += PutAddresses(next, remote, local);
  id.record.place = PlaceOf(id.key, next, seed);
  next += PutToken(next, token);
  id.record.numWords = static_cast<uint8_t>(next - id.key);
}

bool IsOf(const OnceRecord *record, const OnceId &id) {
  return record->place == id.record.place && record->numWords == id.record.numWords &&
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

// ---- chains ----

OnceChain &ChainOf(OnceTable *table, uint32_t place) { return table->chains[place % kNumChains]; }

// TagOf is made of bits that do not choose the chain.
uint64_t TagOf(uint32_t place) { return uint64_t{1} << (place >> 26); }

bool HasTable(CoapRpcCtx *ctx) {
  OnceCache &cache = CacheOf(ctx);
  if (!cache.table) cache.table = NewZeroed<OnceTable>(ctx->param.memHandle).release();
  return cache.table != nullptr;
}

void Chain(OnceTable *table, OnceRecord *record) {
  OnceChain &chain = ChainOf(table, record->place);
  chain.tags |= TagOf(record->place);
  record->next = chain.first;
  record->at = &chain.first;
  if (record->next) record->next->at = &record->next;
  chain.first = record;
}

void Unchain(OnceTable *table, OnceRecord *record) {
  *record->at = record->next;
  if (record->next) record->next->at = record->at;
  record->at = nullptr;
  OnceChain &chain = ChainOf(table, record->place);
  if (!chain.first) chain.tags = 0;
}

OnceRecord *Find(OnceTable *table, const OnceId &id) {
  const OnceChain &chain = ChainOf(table, id.record.place);
  if ((chain.tags & TagOf(id.record.place)) == 0) return nullptr;
  OnceRecord *record = chain.first;
  for (uint32_t steps = 1; record && !IsOf(record, id); ++steps) {
    record = steps < kMaxSteps ? record->next : nullptr;
  }
  return record;
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

// ReadAhead reads what the next requests will need: their peer's next chains, the chain of the
// record that goes for the next one, and the record after that.
void ReadAhead(const OnceCache &cache, const OnceRecord *newest) {
  const OnceRecord *oldest = OldestOf(cache);
  __builtin_prefetch(&ChainOf(cache.table, newest->place + kChainsAhead));
  __builtin_prefetch(&ChainOf(cache.table, oldest->place));
  __builtin_prefetch(reinterpret_cast<const uint8_t *>(oldest) + SizeOf(oldest));
}

void ForgetOldest(CoapRpcCtx *ctx) {
  OnceCache &cache = CacheOf(ctx);
  OnceRecord *oldest = OldestOf(cache);
  const size_t size = SizeOf(oldest);
  Unchain(cache.table, oldest);
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
  Chain(cache.table, record);
  ReadAhead(cache, record);
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
  FillKey(id, exchange.session, exchange.request, cache.seed);
  id.record.expiresMs = cache.nowMs + LifetimeOf(exchange.request);
  return id;
}

const OnceRecord *FindOnce(CoapRpcCtx *ctx, const OnceId &id) {
  OnceCache &cache = CacheOf(ctx);
  const OnceRecord *record = cache.table ? Find(cache.table, id) : nullptr;
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
    Chain(cache.table, &id.record);
  } else {
    ++cache.numForgotten;
  }
}

void ForgetOpen(CoapRpcCtx *ctx, OnceId &id) {
  if (id.record.at) Unchain(CacheOf(ctx).table, &id.record);
}

void ForgetAllOnce(CoapRpcCtx *ctx) {
  OnceCache &cache = CacheOf(ctx);
  while (cache.num != 0) ForgetOldest(ctx);
  PoolFree(ctx->param.memHandle, cache.table);
  cache.table = nullptr;
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
