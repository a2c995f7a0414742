#include "coap_svc/rpc/libadapter/mirror/coap_rpc_lib_mirror_timer.h"

#include <algorithm>
#include <utility>

#include "coap_svc/rpc/libadapter/coap_rpc_lib_data.h"
#include "coap_svc/rpc/libadapter/mirror/coap_rpc_lib_mirror.h"
#include "coap_svc/rpc/libadapter/mirror/coap_rpc_lib_mirror_io.h"
#include "kst_tmr.h"

namespace coap_rpc {
namespace {

// Inside libcoap's I/O, or a mirror's callback, time goes by until that is over.
constexpr uint64_t kBusyMs = 10;

uint32_t OnTick(void *root);

bool StartTimer(CoapRpcCtx *ctx, CoapRpcMirrors *mirrors, uint64_t atMs) {
  const uint64_t service = ctx->param.tmrHandle;
  const uint64_t nowMs = MirrorNowMs();
  const uint64_t periodMs = std::clamp<uint64_t>(atMs > nowMs ? atMs - nowMs : 0, 1, UINT32_MAX);
  const uint64_t timer = KST_TmrStartLoop(service, OnTick, static_cast<uint32_t>(periodMs), ctx);
  if (timer == 0) return false;
  if (mirrors->timer != 0) KST_TmrStop(service, mirrors->timer);
  mirrors->timer = timer;
  mirrors->timerMs = nowMs + periodMs;
  return true;
}

void RunMirror(CoapRpcMirrors *mirrors, CoapRpcMirror *mirror, uint64_t nowMs) {
  if (mirror->depth != 0) {
    SetMirrorDue(mirrors, mirror, nowMs + kBusyMs);
    return;
  }
  ++mirror->depth;
  MirrorTick(mirror->core, nowMs);
  --mirror->depth;
  if (!mirror->core.isClosed) PumpMirror(mirror, nowMs);
}

bool IsDue(const CoapRpcMirror &mirror, const MirrorDue &last) {
  return mirror.due.ms <= last.ms && mirror.due.id <= last.id;
}

// Mirrors that callbacks open meanwhile, each perhaps in place of another one that failed, are for
// the next tick.
void RunDue(CoapRpcCtx *ctx, CoapRpcMirrors *mirrors) {
  const MirrorDue last = {MirrorNowMs(), mirrors->lastId};
  const uint64_t nowMs = last.ms;
  CoapRpcMirror *mirror = FirstDueMirror(mirrors);
  for (; mirror && IsDue(*mirror, last); mirror = FirstDueMirror(mirrors)) {
    RunMirror(mirrors, mirror, nowMs);
  }
  SettleMirrors(ctx);
}

uint32_t OnTick(void *root) {
  auto *ctx = static_cast<CoapRpcCtx *>(root);
  CoapRpcMirrors *mirrors = ctx->lib->mirrors;
  if (ctx->ioDepth != 0) {
    StartTimer(ctx, mirrors, MirrorNowMs() + kBusyMs);
    return 0;
  }
  RunDue(ctx, mirrors);
  const CoapRpcMirror *next = FirstDueMirror(mirrors);
  if (next) {
    StartTimer(ctx, mirrors, next->due.ms);
  } else {
    StopMirrorTimer(ctx);
  }
  return 0;
}

}  // namespace

bool SetMirrorTimer(CoapRpcCtx *ctx) {
  CoapRpcMirrors *mirrors = ctx->lib->mirrors;
  const CoapRpcMirror *mirror = FirstDueMirror(mirrors);
  if (!mirror || (mirrors->timer != 0 && mirrors->timerMs <= mirror->due.ms)) return true;
  return StartTimer(ctx, mirrors, mirror->due.ms);
}

void StopMirrorTimer(CoapRpcCtx *ctx) {
  const uint64_t timer = std::exchange(ctx->lib->mirrors->timer, 0);
  if (timer != 0) KST_TmrStop(ctx->param.tmrHandle, timer);
}

}  // namespace coap_rpc
