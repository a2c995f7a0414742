#include "coap_svc/rpc/libadapter/call/coap_rpc_lib_call_send.h"

#include <cstring>

#include "coap_svc/rpc/client/coap_rpc_cli_req.h"
#include "coap_svc/rpc/client/coap_rpc_cli_session.h"
#include "coap_svc/rpc/client/coap_rpc_cli_uri.h"
#include "coap_svc/rpc/common/coap_rpc_limits.h"
#include "coap_svc/rpc/common/coap_rpc_log_site.h"
#include "coap_svc/rpc/common/coap_rpc_own.h"
#include "coap_svc/rpc/common/coap_rpc_text.h"
#include "coap_svc/rpc/libadapter/call/coap_rpc_lib_call_pdu.h"
#include "coap_svc/rpc/libadapter/call/coap_rpc_lib_relation.h"
#include "coap_svc/rpc/libadapter/message/coap_rpc_lib_msg.h"
#include "csvc_dbg.h"
#include "libcoap/ext/coap_rpc_lib_internals.h"

// A failure's text about a request; some sinks take it without the line feed.
#define REQ_TEXT(what) "[CoapRpc]" what ", uri:%s, observe:%u, msgType:%u, codeType:%u."
#define REQ_ARGS(req) \
  UriText((req).key.uri.uri).c_str(), (req).key.uri.observe, (req).key.uri.msgType, (req).codeType

namespace {

using namespace coap_rpc;

constexpr uint32_t kMaxCode = 255;
constexpr size_t kScratchSize = 4;

bool NeedsDiag(CoapRpcCtx *ctx, const CoapRpcCliReqData &req) {
  return COAP_RpcNeedRecordDiag(ctx, UriText(req.key.uri.uri).c_str()) != 0;
}

void LogOptionsFailed(CoapRpcCtx *ctx, const CoapRpcCliReqData &req) {
  COAP_RPC_LOG(ctx->log, kLogCliSendOptions, REQ_TEXT("request add option failed") "\n",
               REQ_ARGS(req));
  const uint64_t dbg = ctx->param.dbgHandle;
  CSVC_DBG_Debug(dbg, kDebugChannelLevel, REQ_TEXT("request add option failed") "\n",
                 REQ_ARGS(req));
  if (!NeedsDiag(ctx, req)) return;
  CSVC_DBG_SysLog(dbg, kDebugChannelLevel, REQ_TEXT("request add option failed"), REQ_ARGS(req));
}

void LogSendFailed(CoapRpcCtx *ctx, const CoapRpcCliReqData &req) {
  COAP_RPC_LOG(ctx->log, kLogCliSendFailed, REQ_TEXT("request pdu send failed") "\n",
               REQ_ARGS(req));
  if (!NeedsDiag(ctx, req)) return;
  CSVC_DBG_SysLog(ctx->param.dbgHandle, kDebugChannelLevel, REQ_TEXT("request pdu send failed"),
                  REQ_ARGS(req));
}

void LogPayloadFailed(CoapRpcCtx *ctx, const CoapRpcCliReqData &req) {
  COAP_RPC_LOG(ctx->log, kLogCliAddPayloadFailed, REQ_TEXT("req add payload fail") "\n",
               REQ_ARGS(req));
  if (!NeedsDiag(ctx, req)) return;
  CSVC_DBG_SysLog(ctx->param.dbgHandle, kDebugChannelLevel, REQ_TEXT("req add payload fail"),
                  REQ_ARGS(req));
}

// NewPdu makes a request's PDU; null if out of memory, or for an invalid type or code.
coap_pdu_t *NewPdu(coap_session_t *session, const CoapRpcCliReqData &req) {
  const uint32_t msgType = req.key.uri.msgType;
  const uint32_t code = req.codeType;
  if (msgType > COAP_MESSAGE_RST || code > kMaxCode) return nullptr;
  const coap_mid_t mid = coap_new_message_id(session) & 0xffff;
  return coap_pdu_init(static_cast<coap_pdu_type_t>(msgType), static_cast<coap_pdu_code_t>(code),
                       mid, coap_session_max_pdu_size(session));
}

// ReleaseBody is libcoap's call when a block-wise body is done with.
void ReleaseBody(coap_session_t *, void *body) {
  COAP_RpcFreePayload(static_cast<CoapRpcPayload *>(body));
}

// EnsureToken gives a block-wise request a token, since libcoap tells such bodies of one session
// apart by it.  The record keeps the token: sent again, it replaces what a failed attempt left.
bool EnsureToken(coap_pdu_t *pdu, coap_session_t *session, CoapRpcCliReqData *req) {
  if (coap_pdu_get_token(pdu).length != 0) return true;
  if (req->tokenLen == 0) {
    size_t len = 0;
    coap_session_new_token(session, &len, req->token);
    req->tokenLen = len;
  }
  return CoapRpcLibAddToken(pdu, req->token, req->tokenLen) != 0;
}

bool AddLargeBody(CoapRpcCtx *ctx, coap_pdu_t *pdu, coap_session_t *session, CoapRpcCliReqData *req,
                  uint32_t len) {
  if (!EnsureToken(pdu, session, req)) return false;
  CoapRpcPayload *body = COAP_RpcNewPayload(ctx, ctx->cli->reqBuf, len);
  if (!body) return false;
  return coap_add_data_large_request(session, pdu, len, body->data, ReleaseBody, body) != 0;
}

bool AddBody(CoapRpcCtx *ctx, coap_pdu_t *pdu, coap_session_t *session, CoapRpcCliReqData *req,
             uint32_t len) {
  if (len == 0) return true;
  if (CoapRpcLibFits(pdu, len)) return coap_add_data(pdu, len, ctx->cli->reqBuf) != 0;
  return AddLargeBody(ctx, pdu, session, req, len);
}

// BuildPayload lets the application fill the shared buffer.  Returns the length, or a number that
// is no length: negative or too large.
int32_t BuildPayload(CoapRpcCtx *ctx, const CoapRpcCliUriVtbl *uriVtbl,
                     const CoapRpcCliReqData *req) {
  CoapRpcCliData *cli = ctx->cli;
  if (!cli->reqBuf) {
    cli->reqBuf = static_cast<uint8_t *>(PoolAlloc(ctx->param.memHandle, kPayloadBufSize));
  }
  if (!cli->reqBuf) return -1;
  cli->reqBuf[0] = 0;
  const int32_t len = uriVtbl->reg.buildReq(uriVtbl->reg.userData, &req->key.param, cli->reqBuf,
                                            COAP_RPC_PAYLOAD_BUF_SIZE);
  COAP_RPC_DEBUG(ctx, "request payload len: %d.", len);
  return len;
}

bool AddPayload(CoapRpcCtx *ctx, const CoapRpcCliUriVtbl *uriVtbl, coap_pdu_t *pdu,
                CoapRpcCliSession *session, CoapRpcCliReqData *req) {
  const int32_t built = BuildPayload(ctx, uriVtbl, req);
  if (built < 0 || built > kMaxPayload) return false;
  const auto len = static_cast<uint32_t>(built);
  ctx->cli->reqBuf[len] = 0;
  if (!AddBody(ctx, pdu, session->coapSession, req, len)) return false;
  COAP_RpcLogPayloadDetail(ctx, req, session, len);
  return true;
}

}  // namespace

uint32_t COAP_RpcCliSendRequest(CoapRpcCtx *ctx, CoapRpcCliSession *session,
                                CoapRpcCliReqData *req) {
  if (!session || !session->coapSession) {
    COAP_RPC_LOG(ctx->log, kLogCliSendNoSession, REQ_TEXT("session not exist") "\n",
                 REQ_ARGS(*req));
    return Code(kSiteCliSendNoSession);
  }
  coap_pdu_t *pdu = NewPdu(session->coapSession, *req);
  if (!pdu) return Code(kSiteCliSendNoPdu);
  if (COAP_RpcCliAddOptionsAndData(ctx, pdu, session, req) != 0) {
    LogOptionsFailed(ctx, *req);
    coap_delete_pdu(pdu);
    return Code(kSiteCliSendOptions);
  }
  const coap_mid_t mid = coap_send(session->coapSession, pdu);
  if (mid == COAP_INVALID_MID) {
    LogSendFailed(ctx, *req);
    return Code(kSiteCliSendFailed);
  }
  req->mid = mid;
  CoapRpcRelationSent(req);
  COAP_RPC_DEBUG(ctx,
                 "[CoapRpc]req snd success, uri:%s, observe:%u, msgType:%u, codeType:%u, "
                 "mid:%u.\n",
                 REQ_ARGS(*req), static_cast<uint32_t>(mid));
  return 0;
}

uint32_t COAP_RpcCliAddOptionsAndData(CoapRpcCtx *ctx, coap_pdu_t *pdu, CoapRpcCliSession *session,
                                      CoapRpcCliReqData *req) {
  CoapRpcCliUriVtbl *uriVtbl = ctx->cli->findUriVtbl(ctx->cli, &req->key.uri);
  if (!uriVtbl) return 0;
  uint8_t scratch[kScratchSize];
  COAP_RpcCliAddPduOption(ctx, uriVtbl, pdu, scratch, session, req);
  if (!uriVtbl->reg.buildReq) return 0;
  if (AddPayload(ctx, uriVtbl, pdu, session, req)) return 0;
  LogPayloadFailed(ctx, *req);
  return Code(kSiteCliAddPayloadFailed);
}

void COAP_RpcLogPayloadDetail(CoapRpcCtx *ctx, const CoapRpcCliReqData *req,
                              const CoapRpcCliSession *session, uint32_t len) {
  const auto *payload = reinterpret_cast<const char *>(ctx->cli->reqBuf);
  COAP_RPC_DEBUG(ctx,
                 "[CoapRpc]cli reqPdu add payload success, uri:%s, observe:%u, msgType:%u, "
                 "codeType:%u, len:%u, payload:%s.\n",
                 REQ_ARGS(*req), len, LineText(payload).c_str());
  if (!NeedsDiag(ctx, *req)) return;
  char time[kTimeTextSize] = "";
  char src[kIpTextSize] = "";
  char dst[kIpTextSize] = "";
  COAP_RpcGetCurrTimeStr(ctx, time, sizeof time);
  CSVC_DBG_SysLog(ctx->param.dbgHandle, kDebugChannelLevel,
                  "[CoapRpc]send request success, time=%s, srcip--destip:%s-%s uri:%s, len:%u, "
                  "payload:%s.",
                  time, COAP_RpcIpAddrGetStr(&session->key.srcIp, src, sizeof src),
                  COAP_RpcIpAddrGetStr(&session->key.dstIp, dst, sizeof dst),
                  UriText(req->key.uri.uri).c_str(), len, payload);
}

void COAP_RpcCliCancelRequest(CoapRpcCtx *ctx, CoapRpcCliSession *session, CoapRpcCliReqData *req) {
  if (!session || !session->coapSession || !req || req->key.uri.observe == 0) return;
  if (req->key.uri.msgType > COAP_MESSAGE_RST) return;
  // Never sent to this peer: what has the token here is another relation.
  const size_t tokenLen = req->isTokenForeign != 0 ? 0 : req->tokenLen;
  coap_binary_t *token = coap_new_binary(tokenLen);
  if (!token) return;
  if (tokenLen != 0) memcpy(token->s, req->token, tokenLen);
  CoapRpcLibAllowCancel(session->coapSession, token);
  coap_cancel_observe(session->coapSession, token,
                      static_cast<coap_pdu_type_t>(req->key.uri.msgType));
  COAP_RPC_DEBUG(ctx, REQ_TEXT("cancel observe request") "\n", REQ_ARGS(*req));
  coap_delete_binary(token);
}
