/* coap_rpc_lib_mirror.cpp: the life of a mirror in its instance.
 *
 * What a mirror does is told in coap_rpc_cli_mirror.cpp.  Here it has a session of its own, with a
 * port of its own, which no request shares: what comes through it is the mirror's or nobody's.
 *
 *   open     in the tables, and due at once: the timer opens its session
 *   dirty    a message has come; the end of the turn sends what the mirror asks then
 *   closed   it is in no table and calls back no more.  Its session and its tuples are freed after
 *            the turn, and after its callback has returned
 *
 * Who moves it: messages (coap_rpc_lib_mirror_io.cpp), and one timer of the host for all, set to
 * the first that is due.  Sessions are opened by the timer alone, and freed outside libcoap's I/O.
 *
 * Bounds: kMaxMirrors, each with a socket. */
#include "coap_svc/rpc/libadapter/mirror/coap_rpc_lib_mirror.h"

#include <cstring>
#include <utility>

#include "coap_svc/rpc/client/coap_rpc_cli_data.h"
#include "coap_svc/rpc/common/coap_rpc_limits.h"
#include "coap_svc/rpc/common/coap_rpc_own.h"
#include "coap_svc/rpc/common/coap_rpc_sites.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_data.h"
#include "coap_svc/rpc/libadapter/mirror/coap_rpc_lib_mirror_callback.h"
#include "coap_svc/rpc/libadapter/mirror/coap_rpc_lib_mirror_disp.h"
#include "coap_svc/rpc/libadapter/mirror/coap_rpc_lib_mirror_io.h"
#include "coap_svc/rpc/libadapter/mirror/coap_rpc_lib_mirror_timer.h"
#include "coap_svc/rpc/libadapter/rpc_call/coap_rpc_lib_rpc_call_peer.h"

namespace coap_rpc {
namespace {

uint64_t DrawRandom(void *) {
  uint64_t random = 0;
  coap_prng(&random, sizeof(random));
  return random;
}

// ReadyMirrors makes the record of all mirrors with the first one.
CoapRpcMirrors *ReadyMirrors(CoapRpcCtx *ctx) {
  CoapRpcLibCtx *lib = ctx->lib;
  if (lib->mirrors) return lib->mirrors;
  lib->mirrors = NewZeroed<CoapRpcMirrors>(ctx->param.memHandle).release();
  if (!lib->mirrors) return nullptr;
  LinkInit(lib->mirrors->list);
  LinkInit(lib->mirrors->dirtyList);
  LinkInit(lib->mirrors->closedList);
  RegisterMirrorCommand(ctx);
  return lib->mirrors;
}

uint32_t Or(uint32_t value, uint32_t ifZero) { return value != 0 ? value : ifZero; }

CoapRpcMirrorParam WithDefaults(CoapRpcMirrorParam param) {
  param.numInFlight = Or(param.numInFlight, COAP_RPC_MIRROR_IN_FLIGHT);
  param.heartbeatMs = Or(param.heartbeatMs, COAP_RPC_MIRROR_HEARTBEAT_MS);
  return param;
}

bool HasLengths(const CoapRpcMirrorParam &param) {
  return param.keyLen != 0 && param.keyLen <= COAP_RPC_SYNC_MAX_TUPLE &&
         param.valLen <= COAP_RPC_SYNC_MAX_TUPLE - param.keyLen;
}

bool IsInRange(const CoapRpcMirrorParam &param) {
  return param.numInFlight <= COAP_RPC_MIRROR_MAX_IN_FLIGHT &&
         param.heartbeatMs >= COAP_RPC_MIRROR_MIN_HEARTBEAT_MS &&
         param.heartbeatMs <= COAP_RPC_MIRROR_MAX_HEARTBEAT_MS;
}

bool HasUri(const CoapRpcUriKey &key) {
  return key.uri[0] != '\0' && memchr(key.uri, '\0', sizeof(key.uri));
}

uint32_t CheckAddr(const CoapRpcCallAddr &addr) {
  const uint32_t ret = CheckCallAddr(addr);
  if (ret == 0) return 0;
  return Code(ret == Code(kSiteCallBadPort) ? kSiteMirrorBadPort : kSiteMirrorBadAddr);
}

uint32_t Check(const CoapRpcUriKey &key, const CoapRpcCallAddr &addr,
               const CoapRpcMirrorParam &param) {
  const uint32_t ret = CheckAddr(addr);
  if (ret != 0) return ret;
  if (!HasUri(key)) return Code(kSiteMirrorBadUri);
  if (!HasLengths(param)) return Code(kSiteMirrorBadLength);
  return IsInRange(param) ? 0 : Code(kSiteMirrorBadParam);
}

// NewMirror makes a mirror that is in no table; empty without memory.
PoolPtr<CoapRpcMirror> NewMirror(CoapRpcCtx *ctx, const CoapRpcMirrorParam &param) {
  const uint64_t mem = ctx->param.memHandle;
  auto mirror = NewZeroed<CoapRpcMirror>(mem);
  if (!mirror) return mirror;
  mirror->ctx = ctx;
  const CoapRpcMirrorParam timed = TimedParam(mirror.get(), param);
  if (!MirrorInit(mirror->core, mem, timed, DrawRandom, nullptr, MirrorNowMs())) mirror.reset();
  return mirror;
}

void FreeMirror(CoapRpcMirror *mirror) {
  LinkRemove(mirror->link);
  ReleaseMirrorSession(mirror->session);
  MirrorFree(mirror->core);
  PoolFree(mirror->ctx->param.memHandle, mirror);
}

void Close(CoapRpcMirrors *mirrors, CoapRpcMirror *mirror) {
  mirror->core.isClosed = true;
  TakeOffMirror(mirrors, mirror);
  AllMirrors(mirrors->closedList).Append(mirror);
}

uint32_t Open(CoapRpcCtx *ctx, CoapRpcMirrors *mirrors, const CoapRpcUriKey &key,
              const CoapRpcCallAddr &addr, const CoapRpcMirrorParam &param, CoapRpcMirror **out) {
  CoapRpcMirror *mirror = NewMirror(ctx, param).release();
  if (!mirror) return Code(kSiteMirrorNoMemory);
  mirror->key = key;
  mirror->addr = addr;
  AddMirror(mirrors, mirror, MirrorNowMs());
  if (!SetMirrorTimer(ctx)) {
    Close(mirrors, mirror);
    FreeMirror(mirror);
    return Code(kSiteMirrorNoTimer);
  }
  ctx->cli->refreshTaskTimer(ctx);  // answers are read at least ten times a second from now on
  *out = mirror;
  return 0;
}

}  // namespace

void ServeMirrors(CoapRpcCtx *ctx) {
  CoapRpcMirrors *mirrors = ctx->lib->mirrors;
  if (!mirrors) return;
  DirtyMirrors(mirrors->dirtyList).Drain([](CoapRpcMirror *mirror) {
    LinkRemove(mirror->dirtyLink);
    PumpMirror(mirror, MirrorNowMs());
  });
}

void SettleMirrors(CoapRpcCtx *ctx) {
  CoapRpcMirrors *mirrors = ctx->lib->mirrors;
  if (!mirrors || ctx->ioDepth != 0) return;
  AllMirrors(mirrors->closedList).ForEach([](CoapRpcMirror *mirror) {
    if (mirror->depth == 0) FreeMirror(mirror);
  });
}

void StopMirrors(CoapRpcCtx *ctx) {
  CoapRpcMirrors *mirrors = ctx->lib ? ctx->lib->mirrors : nullptr;
  if (!mirrors) return;
  mirrors->isStopping = true;
  AllMirrors(mirrors->list).Drain([&](CoapRpcMirror *mirror) { Close(mirrors, mirror); });
  SettleMirrors(ctx);
  StopMirrorTimer(ctx);
}

void FreeMirrors(CoapRpcCtx *ctx) {
  PoolFree(ctx->param.memHandle, std::exchange(ctx->lib->mirrors, nullptr));
}

}  // namespace coap_rpc

using namespace coap_rpc;

uint32_t COAP_RpcMirrorOpen(CoapRpcCtx *ctx, const CoapRpcUriKey *key, const CoapRpcCallAddr *addr,
                            const CoapRpcMirrorParam *param, CoapRpcMirror **mirror) {
  const bool isStarted = ctx && ctx->lib && ctx->lib->coapCtx && ctx->cli;
  if (!isStarted || !key || !addr || !param || !mirror) return Violated(kSiteMirrorNullArg);
  const CoapRpcMirrorParam whole = WithDefaults(*param);
  const uint32_t ret = Check(*key, *addr, whole);
  if (ret != 0) return ret;
  CoapRpcMirrors *mirrors = ReadyMirrors(ctx);
  if (!mirrors) return Code(kSiteMirrorNoMemory);
  if (mirrors->isStopping) return Code(kSiteMirrorNoTimer);
  if (mirrors->num >= kMaxMirrors) {
    ++ctx->counts.refused[COAP_RPC_LIMIT_MIRRORS];
    return Code(kSiteMirrorTooMany);
  }
  return Open(ctx, mirrors, *key, *addr, whole, mirror);
}

void COAP_RpcMirrorClose(CoapRpcMirror *mirror) {
  if (!mirror || mirror->core.isClosed) return;
  Close(mirror->ctx->lib->mirrors, mirror);
  SettleMirrors(mirror->ctx);
}

const uint8_t *COAP_RpcMirrorFind(const CoapRpcMirror *mirror, const void *tupleKey) {
  if (!mirror || !tupleKey) return nullptr;
  const MirrorTuple *tuple = MirrorTableFind(mirror->core.table, tupleKey);
  return tuple ? BytesOf(&tuple->key) : nullptr;
}

const uint8_t *COAP_RpcMirrorNext(const CoapRpcMirror *mirror, const void *tupleKey) {
  if (!mirror) return nullptr;
  const MirrorTuple *tuple = MirrorTableAfter(mirror->core.table, tupleKey);
  return tuple ? BytesOf(&tuple->key) : nullptr;
}

uint32_t COAP_RpcMirrorGetState(const CoapRpcMirror *mirror, CoapRpcMirrorState *state) {
  if (!mirror || !state) return Violated(kSiteMirrorStateNullArg);
  *state = MirrorStateOf(mirror->core, MirrorNowMs());
  return 0;
}
