#include "coap_svc/rpc/libadapter/coap_rpc_lib_handler_target.h"

#include "coap_svc/rpc/common/coap_rpc_limits.h"
#include "coap_svc/rpc/common/coap_rpc_list.h"
#include "coap_svc/rpc/common/coap_rpc_own.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_ctx.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_internals.h"

namespace coap_rpc {
namespace {

// Target is one session; a closed one waits to be released.
struct Target {
  CoapRpcLink link;
  coap_session_t *session;
  bool isClosed;
};

using Targets = COAP_RPC_LIST(Target, link);

// libcoap finds the transfer that a response belongs to by the low 48 bits of its token, and counts
// the tokens of its transfers from 1: keep them away from those of requests and stand-ins.
constexpr uint8_t kFirstToken[] = {0x80, 0, 0, 0, 0, 1};

void Release(CoapRpcCtx *ctx, Target *target) {
  LinkRemove(target->link);
  coap_session_release(target->session);
  PoolFree(ctx->param.memHandle, target);
}

}  // namespace

coap_session_t *OpenTarget(CoapRpcCtx *ctx, const coap_address_t &peer, coap_proto_t proto) {
  // Targets that were given up count for as long as an answer needs them.
  ctx->lib->numTargets = CoapRpcLibNumAnonymous(ctx->lib->coapCtx);
  if (ctx->lib->numTargets >= kMaxTargets) return nullptr;
  auto target = NewZeroed<Target>(ctx->param.memHandle);
  if (!target) return nullptr;
  target->session = coap_new_client_session(ctx->lib->coapCtx, nullptr, &peer, proto);
  if (!target->session) return nullptr;
  coap_session_init_token(target->session, sizeof(kFirstToken), kFirstToken);
  ++ctx->lib->numTargets;
  Targets(ctx->lib->targetList).Append(target.get());
  return target.release()->session;
}

void CloseTarget(CoapRpcCtx *ctx, coap_session_t *session) {
  Target *target = Targets(ctx->lib->targetList).FindIf([&](const Target &candidate) {
    return candidate.session == session && !candidate.isClosed;
  });
  if (!target) return;
  if (ctx->ioDepth == 0) {
    Release(ctx, target);
  } else {
    target->isClosed = true;
  }
}

void SweepTargets(CoapRpcCtx *ctx) {
  Targets targets(ctx->lib->targetList);
  Target *next = nullptr;
  for (Target *target = targets.First(); target; target = next) {
    next = targets.After(target);
    if (target->isClosed) Release(ctx, target);
  }
}

void FreeTargets(CoapRpcCtx *ctx) {
  Targets(ctx->lib->targetList).Drain([&](Target *target) { Release(ctx, target); });
}

}  // namespace coap_rpc
