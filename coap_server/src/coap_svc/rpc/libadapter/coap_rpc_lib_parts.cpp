#include "coap_svc/rpc/libadapter/coap_rpc_lib_parts.h"

#include "coap_svc/rpc/common/coap_rpc_list.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_data.h"
#include "coap_svc/rpc/libadapter/direct/coap_rpc_lib_direct.h"
#include "coap_svc/rpc/libadapter/direct/coap_rpc_lib_direct_async.h"
#include "coap_svc/rpc/libadapter/mirror/coap_rpc_lib_mirror.h"
#include "coap_svc/rpc/libadapter/publish/coap_rpc_lib_block.h"
#include "coap_svc/rpc/libadapter/publish/coap_rpc_lib_flight.h"
#include "coap_svc/rpc/libadapter/publish/coap_rpc_lib_observe.h"
#include "coap_svc/rpc/libadapter/rpc_call/coap_rpc_lib_rpc_call.h"
#include "coap_svc/rpc/libadapter/serve/coap_rpc_lib_answer_session.h"
#include "coap_svc/rpc/libadapter/serve/coap_rpc_lib_async.h"
#include "coap_svc/rpc/libadapter/serve/coap_rpc_lib_async_queue.h"
#include "coap_svc/rpc/libadapter/sync/coap_rpc_lib_sync.h"

namespace {

using namespace coap_rpc;

// Part is what one part does; null for nothing.
struct Part {
  void (*serve)(CoapRpcCtx *ctx) = nullptr;
  void (*settle)(CoapRpcCtx *ctx) = nullptr;
  void (*tick)(CoapRpcCtx *ctx) = nullptr;
  bool (*needsTick)(const CoapRpcCtx *ctx) = nullptr;
  void (*leave)(CoapRpcCtx *ctx) = nullptr;
  void (*stop)(CoapRpcCtx *ctx) = nullptr;
  void (*free)(CoapRpcCtx *ctx) = nullptr;
  void (*forgetEntry)(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry) = nullptr;
  void (*forgetEndPoint)(CoapRpcCtx *ctx, const coap_endpoint_t *endPoint) = nullptr;
};

bool HasBlocks(const CoapRpcCtx *ctx) {
  return !LinkIsAlone(ctx->lib->blockList) || !LinkIsAlone(ctx->lib->lastBlockList);
}

bool HasFlights(const CoapRpcCtx *ctx) { return !LinkIsAlone(ctx->lib->flightList); }

// In the order in which they are stopped: requests leave before the sessions that answer them.
constexpr Part kParts[] = {
    {.serve = ServeAnswers,
     .needsTick = HasQueuedAnswers,
     .stop = CoapRpcAsyncStop,
     .forgetEntry = CoapRpcAsyncForgetEntry},
    {.serve = ServeDirectAnswers,
     .tick = TickDirect,
     .needsTick = HasDirectRequests,
     .stop = StopDirect,
     .free = FreeDirect,
     .forgetEntry = ForgetDirectEntry,
     .forgetEndPoint = DropEndPointRequests},
    {.settle = SettleAnswerSessions, .stop = FreeAnswerSessions},
    {.tick = ExpireBlocks,
     .needsTick = HasBlocks,
     .stop = ForgetLastBlocks,
     .forgetEntry = [](CoapRpcCtx *, CoapRpcSerUriVtbl *entry) { ForgetEntryBlocks(entry); }},
    {.tick = SettleFlights, .needsTick = HasFlights, .free = ForgetFlights},
    {.free = CoapRpcObserveForgetQueries},
    {.serve = TellSyncRounds},
    {.serve = ServeMirrors, .settle = SettleMirrors, .leave = StopMirrors, .free = FreeMirrors},
    {.serve = RpcCallsServe, .settle = RpcCallsSettle, .leave = StopRpcCalls, .free = FreeRpcCalls},
};

template <typename... Params, typename... Args>
void CallAll(void (*Part::*step)(Params...), Args... args) {
  for (const Part &part : kParts) {
    if (part.*step) (part.*step)(args...);
  }
}

}  // namespace

void CoapRpcPartsServe(CoapRpcCtx *ctx) { CallAll(&Part::serve, ctx); }

void CoapRpcPartsSettle(CoapRpcCtx *ctx) { CallAll(&Part::settle, ctx); }

void CoapRpcPartsTick(CoapRpcCtx *ctx) { CallAll(&Part::tick, ctx); }

int CoapRpcPartsNeedTick(const CoapRpcCtx *ctx) {
  for (const Part &part : kParts) {
    if (part.needsTick && part.needsTick(ctx)) return 1;
  }
  return 0;
}

void CoapRpcPartsLeave(CoapRpcCtx *ctx) { CallAll(&Part::leave, ctx); }

void CoapRpcPartsStop(CoapRpcCtx *ctx) { CallAll(&Part::stop, ctx); }

void CoapRpcPartsFree(CoapRpcCtx *ctx) { CallAll(&Part::free, ctx); }

void CoapRpcPartsForgetEntry(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry) {
  CallAll(&Part::forgetEntry, ctx, entry);
}

void CoapRpcPartsForgetEndPoint(CoapRpcCtx *ctx, const coap_endpoint_t *endPoint) {
  CallAll(&Part::forgetEndPoint, ctx, endPoint);
}
