#include "coap_svc/rpc/libadapter/coap_rpc_lib_ext.h"

#include "coap_svc/rpc/client/coap_rpc_cli_data.h"
#include "coap_svc/rpc/coap_rpc_ext.h"
#include "coap_svc/rpc/common/coap_rpc_sites.h"
#include "coap_svc/rpc/libadapter/call/coap_rpc_lib_call_end.h"
#include "coap_svc/rpc/libadapter/call/coap_rpc_lib_relation.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_ctx.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_parts.h"
#include "coap_svc/rpc/libadapter/serve/coap_rpc_lib_answer_session.h"
#include "libcoap/ext/coap_rpc_lib_internals.h"

using namespace coap_rpc;

namespace {

void ReleaseSession(CoapRpcCtx *ctx, coap_session_t *session) {
  AnswerSession *sender = FindAnswerSession(ctx, session);
  if (sender) CloseAnswerSession(ctx, sender);
}

}  // namespace

const CoapRpcLibExtOps g_coapRpcLibExtOps = {ReleaseSession, CoapRpcPartsForgetEntry,
                                             RenewAnswerSessions, CoapRpcLibOpenEndPoint,
                                             CoapRpcRelationMustWait, IsUnderWay};

uint32_t COAP_RpcSetKeepAlive(CoapRpcCtx *ctx, uint32_t seconds) {
  if (!ctx || !ctx->lib || !ctx->lib->coapCtx) return Violated(kSiteSetKeepAliveNullArg);
  coap_context_set_keepalive(ctx->lib->coapCtx, seconds);
  CoapRpcLibWakeIn(ctx->lib->coapCtx, 0);  // the next turn sets the timer for the pings
  return 0;
}

uint32_t COAP_RpcGetTokenlessRspNum(const CoapRpcCtx *ctx) {
  return ctx && ctx->cli ? ctx->cli->numTokenlessRsp : 0;
}

uint64_t COAP_RpcGetOldNotificationNum(const CoapRpcCtx *ctx) {
  return ctx && ctx->cli ? ctx->cli->numOldNotified : 0;
}

uint32_t COAP_RpcSetNstart(CoapRpcCtx *ctx, uint16_t nstart) {
  if (!ctx || !ctx->lib) return Violated(kSiteSetNstartNullArg);
  ctx->lib->nstart = nstart;
  return 0;
}
