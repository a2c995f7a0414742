#include "coap_svc/rpc/libadapter/call/coap_rpc_lib_call_event.h"

#include "coap_svc/rpc/client/coap_rpc_cli_data.h"
#include "coap_svc/rpc/client/coap_rpc_cli_uri.h"
#include "coap_svc/rpc/common/coap_rpc_log_site.h"
#include "coap_svc/rpc/libadapter/call/coap_rpc_lib_call_end.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_data.h"
#include "coap_svc/rpc/libadapter/message/coap_rpc_lib_msg.h"
#include "csvc_dbg.h"
#include "libcoap/ext/coap_rpc_lib_source.h"

namespace {

using namespace coap_rpc;

void CallOnDisconnect(CoapRpcCtx *ctx, const CoapRpcCliUriVtbl *uriVtbl,
                      const CoapRpcIpAddr *peer) {
  if (!uriVtbl->reg.onDisconnect) return;
  uriVtbl->reg.onDisconnect(uriVtbl->reg.userData, peer);
  const uint32_t ipv4 = peer->family == COAP_RPC_IPV4 ? peer->addr.ipv4 : 0;
  COAP_RPC_DEBUG(ctx, "[CoapRpc]session disconnected, ipAddr:0x%x.\n", ipv4);
}

void LogNackOfSent(CoapRpcCtx *ctx, const coap_pdu_t *sent, uint32_t reason, int32_t mid) {
  const auto msgType = static_cast<uint32_t>(coap_pdu_get_type(sent));
  const auto codeType = static_cast<uint32_t>(coap_pdu_get_code(sent));
  COAP_RPC_DEBUG(ctx, "[CoapRpc]handle nack, mid=%d, reason=%u, msgType=%u, codeType=%u\n", mid,
                 reason, msgType, codeType);
  CSVC_DBG_SysLog(ctx->param.dbgHandle, kDebugChannelLevel,
                  "[CoapRpc]handle nack, mid=%d, reason=%u, msgType=%u, codeType=%u", mid, reason,
                  msgType, codeType);
}

void GiveUp(CoapRpcCtx *ctx, coap_session_t *session, const coap_pdu_t *sent, int32_t mid) {
  COAP_RpcLogNackInfo(ctx, sent, COAP_NACK_TOO_MANY_RETRIES, mid);
  if (ctx->cli && ctx->cli->resendRequest) ctx->cli->resendRequest(ctx, mid);
  CoapRpcCallLeaveStale(session);
}

}  // namespace

void CoapRpcCallLeaveStale(coap_session_t *session) {
  if (CoapRpcLibLeaveStale(session) != 0) COAP_RpcDisConnectedEventHandler(session);
}

void CoapRpcCallGiveUp(coap_session_t *session, const coap_pdu_t *sent, coap_nack_reason_t reason,
                       coap_mid_t mid) {
  CoapRpcCtx *ctx = CoapRpcLibCallerOf(session);
  if (!ctx) return;
  if (reason == COAP_NACK_TOO_MANY_RETRIES) GiveUp(ctx, session, sent, mid);
  EndByNack(ctx, session, sent, reason, mid);
}

void CoapRpcCallRetransmitted(coap_session_t *session) {
  if (CoapRpcLibLeaveLost(session) != 0) COAP_RpcDisConnectedEventHandler(session);
}

void COAP_RpcLogNackInfo(CoapRpcCtx *ctx, const coap_pdu_t *sent, uint32_t reason, int32_t mid) {
  if (sent) {
    LogNackOfSent(ctx, sent, reason, mid);
    return;
  }
  COAP_RPC_DEBUG(ctx, "[CoapRpc]handle nack, mid=%d, reason=%u.\n", mid, reason);
  CSVC_DBG_SysLog(ctx->param.dbgHandle, kDebugChannelLevel,
                  "[CoapRpc]handle nack, mid=%d, reason=%u", mid, reason);
}

void COAP_RpcDisConnectedEventHandler(coap_session_t *session) {
  CoapRpcCtx *ctx = CoapRpcLibCallerOf(session);
  CoapRpcCliData *cli = ctx ? ctx->cli : nullptr;
  if (!cli || !cli->findFirstUriVtbl) return;
  CoapRpcIpAddr peer = {};
  COAP_RpcGetRemoteAddr(session, &peer);
  for (CoapRpcCliUriVtbl *uriVtbl = cli->findFirstUriVtbl(cli); uriVtbl;
       uriVtbl = cli->findNextUriVtbl(cli, &uriVtbl->key)) {
    CallOnDisconnect(ctx, uriVtbl, &peer);
  }
}
