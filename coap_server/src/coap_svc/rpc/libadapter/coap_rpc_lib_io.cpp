/* coap_rpc_lib_io.cpp: turns of libcoap's I/O.
 *
 * A turn is one run of libcoap's I/O with what has to follow it:
 *
 *   run      libcoap reads datagrams, calls handlers, sends and repeats; ctx->ioDepth is above 0,
 *            which tells callbacks that libcoap still knows the sessions and observers that it
 *            collected before: nothing is freed, and libcoap is not run inside itself
 *   serve    the parts hand libcoap what callbacks have left for it, still inside the turn
 *   end      outside libcoap: uploads are limited, what was given up is freed, the parts settle
 *
 * A tick, of the I/O timer or of the descriptor's timer, ends with the work that time demands of
 * the parts.  With the descriptor the tick's time is libcoap's timer, which is set only while a
 * part has something to look at. */
#include "coap_svc/rpc/libadapter/coap_rpc_lib_io.h"

#include "coap_svc/rpc/coap_rpc_ext.h"
#include "coap_svc/rpc/common/coap_rpc_limits.h"
#include "coap_svc/rpc/common/coap_rpc_sites.h"
#include "coap_svc/rpc/common/coap_rpc_stopwatch.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_parts.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_rounds.h"
#include "coap_svc/rpc/libadapter/message/coap_rpc_lib_clock.h"
#include "kst_tmr.h"
#include "libcoap/ext/coap_rpc_lib_internals.h"

namespace {

using namespace coap_rpc;

constexpr uint32_t kSoonMs = 1;

// Libcoap returns the instance's libcoap context; null while it is not started.
coap_context_t *Libcoap(const CoapRpcCtx *ctx) { return ctx->lib ? ctx->lib->coapCtx : nullptr; }

// FreeRetired frees what was given up.  Observers are told that they are gone: what their callbacks
// give up meanwhile is freed in the same run, and what they take back stays.
void FreeRetired(CoapRpcCtx *ctx) {
  if (ctx->lib->hasRetired == 0) return;
  ++ctx->ioDepth;
  CoapRpcLibFreeRetired(ctx->lib->coapCtx);
  --ctx->ioDepth;
  CoapRpcLibWakeIn(ctx->lib->coapCtx, 0);  // for what callbacks have answered
  ctx->lib->hasRetired = 0;
}

// EndTurn limits what the datagrams of a turn made libcoap set aside: the next turn may come at
// once.
void EndTurn(CoapRpcCtx *ctx) {
  if (!Libcoap(ctx)) return;
  CoapRpcLibLimitUploads(Libcoap(ctx), kMaxUploads, kMaxUploadBytes);
  FreeRetired(ctx);
  CoapRpcPartsSettle(ctx);
}

// RunLibcoap runs `work` on the libcoap context.  False: there is none, or it is running already; a
// callback may have taken it down.
template <typename Work>
bool RunLibcoap(CoapRpcCtx *ctx, Work work) {
  coap_context_t *coapCtx = Libcoap(ctx);
  if (!coapCtx || ctx->ioDepth != 0) return false;
  const uint64_t sinceNs = CoarseNs();
  ++ctx->ioDepth;
  work(coapCtx);
  if (Libcoap(ctx)) CoapRpcPartsServe(ctx);
  if (--ctx->ioDepth == 0) EndTurn(ctx);
  ++ctx->counts.ioRuns;
  AddTime(CoarseNs() - sinceNs, ctx->counts.ioNs, ctx->counts.ioMaxNs);
  return true;
}

// ProcessOnce lets libcoap do what is due, without waiting.
bool ProcessOnce(CoapRpcCtx *ctx) {
  return RunLibcoap(ctx,
                    [](coap_context_t *coapCtx) { coap_io_process(coapCtx, COAP_IO_NO_WAIT); });
}

// ServeRound is ProcessOnce for many datagrams at once.  True: there may be more.
bool ServeRound(CoapRpcCtx *ctx, ReadRounds &rounds) {
  bool isMore = false;
  RunLibcoap(ctx, [&](coap_context_t *coapCtx) { isMore = rounds.Serve(coapCtx); });
  return isMore;
}

uint64_t MonotonicMs() { return MonotonicNs() / 1000000; }

bool IsServicePending(const CoapRpcCtx *ctx) { return ctx->lib && ctx->lib->svcFlag != 0; }

// Tick does what is due.  Not inside libcoap's I/O: a callback that waits may run the host's
// timers.
void Tick(CoapRpcCtx *ctx) {
  if (Libcoap(ctx) && ctx->ioDepth == 0) CoapRpcPartsTick(ctx);
}

// WakeForTick does a tick's work when it is time, and says when the next is, for a host that serves
// the descriptor and runs no I/O timer.
void WakeForTick(CoapRpcCtx *ctx) {
  CoapRpcLibCtx *lib = ctx->lib;
  const coap_tick_t now = NowTicks();
  if (lib->nextTick <= now) {
    Tick(ctx);
    lib->nextTick = now + TicksOfMs(kQuickPeriodMs);
  }
  CoapRpcLibWakeIn(lib->coapCtx, lib->nextTick - now);
}

void NoteRun(CoapRpcLibCtx *lib, const ReadRounds &rounds) {
  lib->numReads = static_cast<uint16_t>(rounds.First());
  lib->isFdServed = 1;
}

void TickWithIo(CoapRpcCtx *ctx) {
  if (Libcoap(ctx) && ctx->ioDepth == 0 && CoapRpcPartsNeedTick(ctx)) WakeForTick(ctx);
}

void StopTimer(const CoapRpcCtx *ctx, uint64_t &timer) {
  if (timer == 0) return;
  KST_TmrStop(ctx->param.tmrHandle, timer);
  timer = 0;
}

// IsAskedAgain says whether a run has left work for the next one.
bool IsAskedAgain(const CoapRpcCtx *ctx) { return Libcoap(ctx) && ctx->lib->soonTmr != 0; }

// RunNow waits for its next tick inside libcoap's I/O, whose callbacks may run timers.
uint32_t RunNow(void *root) {
  auto *ctx = static_cast<CoapRpcCtx *>(root);
  if (ctx->ioDepth != 0) return 0;
  uint32_t numCalls = 0;
  do {
    StopTimer(ctx, ctx->lib->soonTmr);
  } while (ProcessOnce(ctx) && IsAskedAgain(ctx) && ++numCalls < kCallsWhenAsked);
  return 0;
}

}  // namespace

uint32_t CoapRpcLibStartTimer(CoapRpcCtx *ctx, CoapRpcLibCtx *lib) {
  if (lib->taskTmr != 0) return 0;
  lib->taskTmr = KST_TmrStartLoop(ctx->param.tmrHandle, COAP_RpcProcTask, kTaskPeriodMs, ctx);
  return lib->taskTmr != 0 ? 0 : Code(kSiteStartTaskTimerFailed);
}

void CoapRpcLibStopTimer(CoapRpcCtx *ctx, CoapRpcLibCtx *lib) {
  StopTimer(ctx, lib->taskTmr);
  StopTimer(ctx, lib->soonTmr);
}

void CoapRpcLibRunSoon(CoapRpcCtx *ctx) {
  CoapRpcLibCtx *lib = ctx->lib;
  if (!lib || lib->isFdServed != 0 || lib->soonTmr != 0) return;
  lib->soonTmr = KST_TmrStartLoop(ctx->param.tmrHandle, RunNow, kSoonMs, ctx);
}

void CoapRpcLibRetired(CoapRpcCtx *ctx) {
  ctx->lib->hasRetired = 1;
  if (ctx->ioDepth != 0) return;
  FreeRetired(ctx);
  CoapRpcPartsSettle(ctx);
}

uint32_t COAP_RpcStartTaskTimer(CoapRpcCtx *ctx) { return CoapRpcLibStartTimer(ctx, ctx->lib); }

void COAP_RpcStopTaskTimer(CoapRpcCtx *ctx) { CoapRpcLibStopTimer(ctx, ctx->lib); }

uint32_t COAP_RpcRefreshTaskTimer(CoapRpcCtx *ctx) {
  CoapRpcLibCtx *lib = ctx->lib;
  if (lib->quickMode != 0) return 0;
  CoapRpcLibStopTimer(ctx, lib);
  lib->taskTmr = KST_TmrStartLoop(ctx->param.tmrHandle, COAP_RpcProcQuickTask, kQuickPeriodMs, ctx);
  lib->quickMode = lib->taskTmr != 0;
  return lib->taskTmr != 0 ? 0 : Code(kSiteRefreshTaskTimerFailed);
}

void COAP_RpcSetSvcFlag(CoapRpcCtx *ctx) { ctx->lib->svcFlag = 1; }

uint32_t COAP_RpcProcTask(void *root) {
  auto *ctx = static_cast<CoapRpcCtx *>(root);
  uint32_t numCalls = 0;
  while (ProcessOnce(ctx) && ++numCalls < kCallsPerServiceTick && IsServicePending(ctx)) {
  }
  Tick(ctx);
  return 0;
}

uint32_t COAP_RpcProcQuickTask(void *root) {
  auto *ctx = static_cast<CoapRpcCtx *>(root);
  uint32_t numCalls = 0;
  while (ProcessOnce(ctx) && ++numCalls < kCallsPerQuickTick) {
  }
  Tick(ctx);
  return 0;
}

int COAP_RpcGetIoFd(CoapRpcCtx *ctx) {
  coap_context_t *coapCtx = ctx ? Libcoap(ctx) : nullptr;
  return coapCtx ? coap_context_get_coap_fd(coapCtx) : -1;
}

uint32_t COAP_RpcProcIo(CoapRpcCtx *ctx) {
  if (!ctx) return 0;
  const uint64_t endMs = MonotonicMs() + kIoBudgetMs;
  ReadRounds rounds(ctx->lib ? ctx->lib->numReads : 0);
  bool isTimeLeft = true;
  while (isTimeLeft && ServeRound(ctx, rounds)) isTimeLeft = MonotonicMs() < endMs;
  if (ctx->lib) NoteRun(ctx->lib, rounds);
  TickWithIo(ctx);
  return isTimeLeft ? 0 : 1;
}
