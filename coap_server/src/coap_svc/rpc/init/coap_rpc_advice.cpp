#include "coap_svc/rpc/init/coap_rpc_advice.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <iterator>

#include "coap_svc/rpc/client/coap_rpc_cli_uri.h"
#include "coap_svc/rpc/coap_rpc_ext.h"
#include "coap_svc/rpc/common/coap_rpc_limits.h"
#include "coap_svc/rpc/common/coap_rpc_log_site.h"
#include "coap_svc/rpc/server/coap_rpc_ser_entry.h"
#include "coap_svc/rpc/server/coap_rpc_ser_uri.h"

namespace {

using namespace coap_rpc;

constexpr size_t kMaxPath = kPathTextSize / 2;

// Rule is something that input must not be, and what to say if it is.
template <typename Input>
struct Rule {
  bool (*isBroken)(const Input &);
  const char *advice;
};

static_assert(sizeof(CoapRpcAdvice::lines) == kMaxAdviceLines * sizeof(uint64_t));

// Fnv1a adds bytes to a hash.
uint64_t Fnv1a(uint64_t hash, const void *bytes, size_t len) {
  const auto *at = static_cast<const uint8_t *>(bytes);
  for (size_t i = 0; i < len; ++i) hash = (hash ^ at[i]) * 0x100000001B3;
  return hash;
}

// IsNew notes a warning, if there is room.
bool IsNew(CoapRpcAdvice &state, const CoapRpcUriKey &key, const char *advice) {
  const uint64_t line = Fnv1a(Fnv1a(0xCBF29CE484222325, &key, sizeof(key)), advice, strlen(advice));
  uint64_t *const end = state.lines + state.numLines;
  if (state.numLines == kMaxAdviceLines || std::find(state.lines, end, line) != end) return false;
  state.lines[state.numLines++] = line;
  return true;
}

void Warn(CoapRpcCtx *ctx, const CoapRpcUriKey &key, const char *advice) {
  ++ctx->advice.num;
  if (!IsNew(ctx->advice, key, advice)) return;
  COAP_RPC_LOG(ctx->log, kLogAdvice,
               "[CoapRpc]advice: %s, uri:%s, msgType:%u, observe:%u, pktType:%u.\n", advice,
               COAP_RPC_KEY_ARGS(key));
}

template <typename Input, size_t kNum>
void Check(CoapRpcCtx *ctx, const CoapRpcUriKey &key, const Input &input,
           const Rule<Input> (&rules)[kNum]) {
  if (ctx->advice.isOn == 0) return;
  for (const Rule<Input> &rule : rules) {
    if (rule.isBroken(input)) Warn(ctx, key, rule.advice);
  }
}

// ---- keys ---------------------------------------------------------------------------------------

size_t PathLen(const CoapRpcUriKey &key) { return strnlen(key.uri, sizeof(key.uri)); }

// A percent sign begins a character that is encoded already, as messages have it.
bool IsSentAsItIs(char c) {
  return c > 0 && (std::isalnum(c) != 0 || strchr("-._~!$'()*+,;=:@&/%", c));
}

bool HasNoEnd(const CoapRpcUriKey &key) { return PathLen(key) == sizeof(key.uri); }
bool IsTooLong(const CoapRpcUriKey &key) { return PathLen(key) > kMaxPath && !HasNoEnd(key); }
bool IsEncoded(const CoapRpcUriKey &key) {
  return !std::all_of(key.uri, key.uri + PathLen(key), IsSentAsItIs);
}
bool IsDirty(const CoapRpcUriKey &key) {
  return std::any_of(key.uri + PathLen(key), std::end(key.uri), [](char c) { return c != '\0'; });
}

constexpr char kLongPath[] = "no message finds a path of more than 32 characters";

constexpr Rule<CoapRpcUriKey> kKeyRules[] = {
    {HasNoEnd, "no message finds a path without terminator"},
    {IsEncoded, "no message finds a path with characters that are percent-encoded"},
    {IsDirty, "no message finds a path with bytes after its terminator"},
    {[](const CoapRpcUriKey &key) { return key.msgType > COAP_RPC_NON; }, "unknown message type"},
    {[](const CoapRpcUriKey &key) { return key.pktType > COAP_RPC_UNICAST; },
     "unknown packet type"},
};

// ---- server -------------------------------------------------------------------------------------

struct Served {
  const CoapRpcSerVtblReg &reg;
  const CoapRpcSerObVtblReg *obReg;
};

bool HasNoFormat(const Served &served) {
  const uint8_t format = served.reg.payloadFormat;
  return served.obReg && format != COAP_RPC_JSON && format != COAP_RPC_BYTE;
}
bool HasNoBuilder(const Served &served) {
  return served.obReg && (!served.obReg->buildUpdate || !served.obReg->buildDelete);
}

constexpr Rule<Served> kServedRules[] = {
    {HasNoFormat, "tuples of an unknown payload format are not published"},
    {HasNoBuilder, "changes without buildUpdate or buildDelete are not published"},
};

// A path is longer than messages find, unless its entry is direct.
bool IsUnfindable(CoapRpcCtx *ctx, const CoapRpcUriKey &key) {
  const CoapRpcSerUriVtbl *entry = COAP_RpcSerFindUriVtbl(ctx->ser, &key);
  return IsTooLong(key) && (!entry || !entry->lib.direct);
}

struct Attached {
  CoapRpcCtx *ctx;
  const CoapRpcUriKey &key;
  const CoapRpcSerListenAddr &addr;
};

constexpr Rule<Attached> kAttachRules[] = {
    {[](const Attached &at) { return at.addr.port == 0; },
     "nobody knows the port that the system chooses for port 0"},
    {[](const Attached &at) { return IsUnfindable(at.ctx, at.key); }, kLongPath},
};

// ---- client -------------------------------------------------------------------------------------

struct Asked {
  CoapRpcCliData *cli;
  const CoapRpcUriKey &key;
  const CoapRpcCliAddr &addr;
};

bool IsUnregistered(const Asked &asked) { return !COAP_RpcCliFindUriVtbl(asked.cli, &asked.key); }
bool HasNoMethod(const Asked &asked) {
  return asked.addr.codeType < COAP_RPC_GET || asked.addr.codeType > COAP_RPC_IPATCH;
}

constexpr Rule<CoapRpcUriKey> kCallableRules[] = {{IsTooLong, kLongPath}};

constexpr Rule<Asked> kRequestRules[] = {
    {IsUnregistered, "a request of a key that is not registered has no payload"},
    {HasNoMethod, "unknown method"},
};

constexpr Rule<CoapRpcUriKey> kRelationRules[] = {
    {[](const CoapRpcUriKey &key) { return key.observe == 0; },
     "a key with observe 0 does not observe"},
    {[](const CoapRpcUriKey &key) { return key.observe != 0 && key.msgType == COAP_RPC_NON; },
     "a NON relation is never sent"},
};

}  // namespace

void coap_rpc::AdviseOnServed(CoapRpcCtx *ctx, const CoapRpcUriKey &key,
                              const CoapRpcSerVtblReg &reg, const CoapRpcSerObVtblReg *obReg) {
  Check(ctx, key, key, kKeyRules);
  Check(ctx, key, Served{reg, obReg}, kServedRules);
}

void coap_rpc::AdviseOnAttached(CoapRpcCtx *ctx, const CoapRpcUriKey &key,
                                const CoapRpcSerListenAddr &addr) {
  Check(ctx, key, Attached{ctx, key, addr}, kAttachRules);
}

void coap_rpc::AdviseOnCallable(CoapRpcCtx *ctx, const CoapRpcUriKey &key) {
  Check(ctx, key, key, kKeyRules);
  Check(ctx, key, key, kCallableRules);
}

void coap_rpc::AdviseOnRequest(CoapRpcCtx *ctx, const CoapRpcUriKey &key,
                               const CoapRpcCliAddr &addr) {
  Check(ctx, key, Asked{ctx->cli, key, addr}, kRequestRules);
}

void coap_rpc::AdviseOnRelation(CoapRpcCtx *ctx, const CoapRpcUriKey &key,
                                const CoapRpcCliAddr &addr) {
  AdviseOnRequest(ctx, key, addr);
  Check(ctx, key, key, kRelationRules);
}

uint32_t COAP_RpcSetAdvice(CoapRpcCtx *ctx, uint32_t isOn) {
  if (!ctx) return Violated(kSiteSetAdviceNullArg);
  ctx->advice.isOn = isOn != 0 ? 1 : 0;
  ctx->advice.numLines = 0;
  return 0;
}

uint32_t COAP_RpcGetAdviceNum(const CoapRpcCtx *ctx) { return ctx ? ctx->advice.num : 0; }
