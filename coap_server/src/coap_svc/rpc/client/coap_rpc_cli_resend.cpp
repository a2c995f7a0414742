#include "coap_svc/rpc/client/coap_rpc_cli_resend.h"

#include "coap_svc/rpc/client/coap_rpc_cli_end.h"
#include "coap_svc/rpc/client/coap_rpc_cli_req_data.h"
#include "coap_svc/rpc/client/coap_rpc_cli_session.h"
#include "coap_svc/rpc/common/coap_rpc_limits.h"
#include "coap_svc/rpc/common/coap_rpc_list.h"
#include "coap_svc/rpc/common/coap_rpc_log_site.h"
#include "kst_tmr.h"

namespace {

using namespace coap_rpc;

using ResendList = COAP_RPC_LIST(CoapRpcCliReqData, resendLink);

// OpenSession makes the session's libcoap session; it stays null when that fails, and the send
// then reports it.
void OpenSession(CoapRpcCtx *ctx, CoapRpcCliSession *session, const CoapRpcCliReqData *req) {
  if (session->coapSession || !ctx->cli->createCliSession) return;
  session->coapSession = ctx->cli->createCliSession(ctx, &req->key, &session->key);
}

uint32_t CallSend(CoapRpcCtx *ctx, CoapRpcCliSession *session, CoapRpcCliReqData *req) {
  const uint32_t ret = ctx->cli->sendRequest ? ctx->cli->sendRequest(ctx, session, req)
                                             : Code(kSiteTrySendReqNotSent);
  ++req->reSnd;
  return ret;
}

// EndSent does what follows on a successful send: a relation stays, a plain request is done with.
void EndSent(CoapRpcCtx *ctx, CoapRpcCliSession *session, CoapRpcCliReqData *req) {
  const uint32_t msgType = req->key.uri.msgType;
  if (msgType < COAP_RPC_NUM_MSG_TYPES) ++session->msgStatistic[msgType];
  FollowRequest(ctx, session, req);
  if (req->key.uri.observe == 0) {
    COAP_RpcCliDelReqData(ctx->cli, req);
    return;
  }
  LinkRemove(req->resendLink);
  // Ended by the application while it went out: the peer must not keep it.
  if (req->isDropped && ctx->cli->cancelRequest) ctx->cli->cancelRequest(ctx, session, req);
}

// MustWait says whether sending a renewal now would end a payload of its relation.
bool MustWait(const CoapRpcCtx *ctx, CoapRpcCliReqData *req) {
  return ctx->libExt && ctx->libExt->mustWait(req) != 0;
}

// ResendBatch is the records of one tick, all of them held.
class ResendBatch {
 public:
  explicit ResendBatch(CoapRpcCliData *cli) : cli_(cli) {
    ResendList list(cli->resendList);
    for (auto *req = list.First(); req && num_ < kResendBatchSize; req = list.After(req)) {
      if (MustWait(cli->owner, req)) continue;
      HoldReq(req);
      reqs_[num_++] = req;
    }
  }
  ~ResendBatch() {
    for (uint32_t i = 0; i < num_; ++i) ReleaseReq(cli_, reqs_[i]);
  }
  ResendBatch(const ResendBatch &) = delete;
  ResendBatch &operator=(const ResendBatch &) = delete;

  uint32_t Num() const { return num_; }
  CoapRpcCliReqData *At(uint32_t i) const { return reqs_[i]; }

 private:
  CoapRpcCliData *cli_;
  CoapRpcCliReqData *reqs_[kResendBatchSize];
  uint32_t num_ = 0;
};

// Resend logs a record and sends it; the last one of a full tick is only logged.
void Resend(CoapRpcCtx *ctx, CoapRpcCliReqData *req, bool isLast) {
  // A callback of an earlier one may have taken it off the list.
  if (LinkIsAlone(req->resendLink)) return;
  COAP_RPC_DEBUG(ctx, "[CoapRpc]req resend, uri:%s, msgType:%u, observe:%u, pktType:%u.\n",
                 COAP_RPC_KEY_ARGS(req->key.uri));
  if (!isLast) COAP_RpcTrySendReq(ctx, req->session, req);
}

}  // namespace

uint32_t COAP_RpcTrySendReq(CoapRpcCtx *ctx, CoapRpcCliSession *session, CoapRpcCliReqData *req) {
  if (!session) return 0;
  CoapRpcCliData *cli = ctx->cli;
  const ReqHold holdReq(cli, req);
  const SessionHold holdSession(session);
  OpenSession(ctx, session, req);
  if (CallSend(ctx, session, req) != 0) {
    COAP_RPC_LOG(ctx->log, kLogTrySendReqFailed,
                 "[CoapRpc]req sendFail, uri:%s, msgType:%u, observe:%u, pktType:%u.\n",
                 COAP_RPC_KEY_ARGS(req->key.uri));
    return Code(kSiteTrySendReqNotSent);
  }
  EndSent(ctx, session, req);
  return 0;
}

uint32_t COAP_RpcStartReSendReqTimer(CoapRpcCtx *ctx) {
  CoapRpcCliData *cli = ctx->cli;
  if (cli->resendTimer != 0) return 0;
  cli->resendTimer =
      KST_TmrStartLoop(ctx->param.tmrHandle, COAP_RpcReSendReqTimeOut, kResendPeriodMs, ctx);
  return cli->resendTimer != 0 ? 0 : Code(kSiteStartResendTimerFailed);
}

uint32_t COAP_RpcReSendReqTimeOut(void *root) {
  auto *ctx = static_cast<CoapRpcCtx *>(root);
  if (!ctx->cli) return 0;
  {
    const ResendBatch batch(ctx->cli);
    for (uint32_t i = 0; i < batch.Num(); ++i) {
      Resend(ctx, batch.At(i), i + 1 == kResendBatchSize);
    }
  }
  COAP_RpcTryStopReSendReqTimer(ctx);
  return 0;
}

void COAP_RpcTryStopReSendReqTimer(CoapRpcCtx *ctx) {
  CoapRpcCliData *cli = ctx->cli;
  if (!cli || cli->resendTimer == 0 || !ResendList(cli->resendList).IsEmpty()) return;
  KST_TmrStop(ctx->param.tmrHandle, cli->resendTimer);
  cli->resendTimer = 0;
}

void COAP_RpcResendRequest(CoapRpcCtx *ctx, int32_t mid) {
  CoapRpcCliData *cli = ctx->cli;
  CoapRpcCliReqData *req = cli ? COAP_RpcCliFindFirstReqData(cli) : nullptr;
  while (req && req->mid != mid) req = COAP_RpcCliFindNextReqData(cli, &req->key);
  if (!req) return;
  ++req->Tout;
  req->relation.isAwaited = 0;
}
