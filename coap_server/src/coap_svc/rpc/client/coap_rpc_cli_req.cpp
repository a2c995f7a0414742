#include "coap_svc/rpc/client/coap_rpc_cli_req.h"

#include "coap_svc/rpc/client/coap_rpc_cli_end.h"
#include "coap_svc/rpc/client/coap_rpc_cli_resend.h"
#include "coap_svc/rpc/client/coap_rpc_cli_session.h"
#include "coap_svc/rpc/common/coap_rpc_list.h"
#include "coap_svc/rpc/common/coap_rpc_log_site.h"
#include "coap_svc/rpc/common/coap_rpc_table.h"

namespace {

using namespace coap_rpc;

using ReqTable = COAP_RPC_TABLE(CoapRpcCliReqData, key, CoapRpcCliReqKey, COAP_RpcCliReqCmp_);
using ResendList = COAP_RPC_LIST(CoapRpcCliReqData, resendLink);

CoapRpcCliReqKey KeyOf(const CoapRpcUriKey *key, const CoapRpcCliReqParam *param) {
  return {*key, *param};
}

CoapRpcCliSession *FindSession(CoapRpcCliData *cli, const CoapRpcCliAddr *addr) {
  const CoapRpcCliSessionKey key = {addr->srcIp, addr->dstIp, addr->dstPort};
  return COAP_RpcCliFindSession(cli, &key);
}

CoapRpcCliSession *FindOrAddSession(CoapRpcCliData *cli, const CoapRpcUriKey *key,
                                    const CoapRpcCliAddr *addr) {
  CoapRpcCliSession *session = FindSession(cli, addr);
  return session ? session : COAP_RpcCliAddSession(cli, key, addr);
}

CoapRpcCliReqData *FindOrAddReq(CoapRpcCliData *cli, const CoapRpcCliReqKey *key,
                                const CoapRpcCliAddr *addr) {
  CoapRpcCliReqData *req = COAP_RpcCliFindReqData(cli, key);
  if (!req) return COAP_RpcCliAddReqData(cli, key, addr);
  TakeCallFields(req, addr);
  return req;
}

void QueueForResend(CoapRpcCtx *ctx, CoapRpcCliReqData *req) {
  ResendList(ctx->cli->resendList).Append(req);
  COAP_RpcStartReSendReqTimer(ctx);
}

// StartObserve leaves the sending to the next resend tick; a NON relation is never sent.
uint32_t StartObserve(CoapRpcCtx *ctx, CoapRpcCliReqData *req) {
  if (ctx->cli->refreshTaskTimer) ctx->cli->refreshTaskTimer(ctx);
  if (req->key.uri.msgType == COAP_RPC_CON) QueueForResend(ctx, req);
  return 0;
}

uint32_t SendPlain(CoapRpcCtx *ctx, CoapRpcCliSession *session, CoapRpcCliReqData *req) {
  CoapRpcCliData *cli = ctx->cli;
  if (cli->setSvcFlag) cli->setSvcFlag(ctx);
  const ReqHold hold(cli, req);
  if (COAP_RpcTrySendReq(ctx, session, req) == 0) return 0;
  if (req->key.uri.msgType == COAP_RPC_CON && !req->isDropped) QueueForResend(ctx, req);
  return Code(kSiteCliReqNotSent);
}

}  // namespace

uint32_t COAP_RpcCliReqInit(void *record) {
  auto *cli = static_cast<CoapRpcCliData *>(record);
  ReqTable(cli->reqTree).Init();
  LinkInit(cli->resendList);
  cli->resendTimer = 0;
  return 0;
}

uint32_t COAP_RpcCliReqUninit(void *record) {
  auto *cli = static_cast<CoapRpcCliData *>(record);
  if (!cli) return 0;
  FreeEnds(cli);
  ReqTable(cli->reqTree).Drain([cli](CoapRpcCliReqData *req) { COAP_RpcCliDelReqData(cli, req); });
  if (cli->owner) COAP_RpcTryStopReSendReqTimer(cli->owner);
  return 0;
}

uint32_t COAP_RpcCliReq(CoapRpcCtx *ctx, const CoapRpcUriKey *key, const CoapRpcCliReqParam *param,
                        const CoapRpcCliAddr *addr) {
  CoapRpcCliData *cli = ctx->cli;
  CoapRpcCliSession *session = FindOrAddSession(cli, key, addr);
  if (!session) return Code(kSiteCliReqNoSession);
  const CoapRpcCliReqKey reqKey = KeyOf(key, param);
  CoapRpcCliReqData *req = FindOrAddReq(cli, &reqKey, addr);
  if (!req) {
    COAP_RpcCliTryDelSession(cli, session);
    return Code(kSiteCliReqNoRecord);
  }
  // A fresh record is bound to nothing: no need to search the session for it.
  if (!req->session || !COAP_RpcCliReqIsBindSession(session, req)) {
    COAP_RpcCliReqBindSession(cli, session, req);
  }
  return key->observe != 0 ? StartObserve(ctx, req) : SendPlain(ctx, session, req);
}

uint32_t COAP_RpcCliUnReq(CoapRpcCtx *ctx, const CoapRpcUriKey *key,
                          const CoapRpcCliReqParam *param, const CoapRpcCliAddr *addr) {
  CoapRpcCliData *cli = ctx->cli;
  CoapRpcCliSession *session = FindSession(cli, addr);
  if (!session) return 0;
  const CoapRpcCliReqKey reqKey = KeyOf(key, param);
  CoapRpcCliReqData *req = COAP_RpcCliFindReqData(cli, &reqKey);
  if (!req) return 0;
  // Through its own session: the token means another relation, or none, to any other peer.
  if (cli->cancelRequest) cli->cancelRequest(ctx, req->session, req);
  ForgetOpen(cli, *req);
  COAP_RpcCliDelReqData(cli, req);
  COAP_RpcCliTryDelSession(cli, session);
  return 0;
}

uint32_t COAP_RpcCliSetReqMode(CoapRpcCtx *ctx, const CoapRpcUriKey *key,
                               const CoapRpcCliReqParam *param, const CoapRpcCliAddr *,
                               uint32_t mode) {
  const CoapRpcCliReqKey reqKey = KeyOf(key, param);
  CoapRpcCliReqData *req = COAP_RpcCliFindReqData(ctx->cli, &reqKey);
  if (!req) return Code(kSiteCliSetReqModeNoRecord);
  req->mode = mode;
  return 0;
}
