#include "coap_svc/rpc/libadapter/rpc_call/coap_rpc_lib_rpc_call_timer.h"

#include <algorithm>
#include <utility>

#include "coap_svc/rpc/libadapter/coap_rpc_lib_data.h"
#include "coap_svc/rpc/libadapter/message/coap_rpc_lib_clock.h"
#include "coap_svc/rpc/libadapter/rpc_call/coap_rpc_lib_rpc_call.h"
#include "coap_svc/rpc/libadapter/rpc_call/coap_rpc_lib_rpc_call_watch.h"
#include "kst_tmr.h"

namespace coap_rpc {
namespace {

uint32_t OnTick(void *root);

// PeriodTo returns the milliseconds to a time, as many as a timer can take.
uint32_t PeriodTo(coap_tick_t at, coap_tick_t now) {
  const coap_tick_t ticks = at > now ? at - now : 0;
  const uint64_t ms = (ticks * 1000 + COAP_TICKS_PER_SECOND - 1) / COAP_TICKS_PER_SECOND;
  return static_cast<uint32_t>(std::clamp<uint64_t>(ms, 1, UINT32_MAX));
}

// StartTimer sets the timer to a time.  When it cannot be started, what was there goes on.
bool StartTimer(CoapRpcCtx *ctx, CoapRpcCalls *calls, coap_tick_t at) {
  const uint64_t service = ctx->param.tmrHandle;
  const coap_tick_t now = NowTicks();
  const uint32_t periodMs = PeriodTo(at, now);
  const uint64_t timer = KST_TmrStartLoop(service, OnTick, periodMs, ctx);
  if (timer == 0) return false;
  if (calls->timer != 0) KST_TmrStop(service, calls->timer);
  calls->timer = timer;
  calls->timerAt = now + TicksOfMs(periodMs);
  return true;
}

void OnDue(CoapRpcCtx *ctx, RpcCall *call) {
  if (call->state == CallState::kWatched) {
    RenewWatch(ctx, call);
  } else {
    EndCall(ctx, call, COAP_RPC_CALL_TIMEOUT);
  }
}

// What a callback starts meanwhile is due later.
uint32_t OnTick(void *root) {
  auto *ctx = static_cast<CoapRpcCtx *>(root);
  CoapRpcCalls *calls = ctx->lib->calls;
  const coap_tick_t now = NowTicks();
  RpcCall *call = FirstDue(calls);
  for (; call && call->due.at <= now; call = FirstDue(calls)) OnDue(ctx, call);
  if (call) {
    StartTimer(ctx, calls, call->due.at);
  } else {
    StopCallTimer(ctx);
  }
  return 0;
}

}  // namespace

bool SetCallTimer(CoapRpcCtx *ctx) {
  CoapRpcCalls *calls = ctx->lib->calls;
  const RpcCall *call = FirstDue(calls);
  if (!call || (calls->timer != 0 && calls->timerAt <= call->due.at)) return true;
  return StartTimer(ctx, calls, call->due.at);
}

void WaitFor(CoapRpcCtx *ctx, RpcCall *call, uint64_t ms) {
  SetDue(ctx->lib->calls, call, NowTicks() + TicksOfMs(ms));
  SetCallTimer(ctx);
}

void StopCallTimer(CoapRpcCtx *ctx) {
  CoapRpcCalls *calls = ctx->lib->calls;
  const uint64_t timer = std::exchange(calls->timer, 0);
  if (timer != 0) KST_TmrStop(ctx->param.tmrHandle, timer);
}

}  // namespace coap_rpc
