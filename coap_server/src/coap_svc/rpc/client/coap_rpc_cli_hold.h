/* coap_rpc_cli_hold.h: keeps a request record or a session in memory while functions work on it.
 *
 * Sending calls the application's buildReq, which may cancel the very request that is being sent.
 * What is deleted while held leaves its table at once and is freed when the last hold ends. */
#ifndef COAP_RPC_CLI_HOLD_H
#define COAP_RPC_CLI_HOLD_H

#include "coap_svc/rpc/client/coap_rpc_cli_req.h"
#include "coap_svc/rpc/client/coap_rpc_cli_session.h"
#include "coap_svc/rpc/common/coap_rpc_own.h"

namespace coap_rpc {

inline void HoldReq(CoapRpcCliReqData *req) { ++req->holds; }

inline void ReleaseReq(CoapRpcCliData *cli, CoapRpcCliReqData *req) {
  if (--req->holds == 0 && req->isDropped) {
    COAP_RpcCliReqPayloadFree(cli, req);
    PoolFree(cli->owner->param.memHandle, req);
  }
}

// ReqHold holds a record for as long as it lives.
class ReqHold {
 public:
  ReqHold(CoapRpcCliData *cli, CoapRpcCliReqData *req) : cli_(cli), req_(req) { HoldReq(req); }
  ~ReqHold() { ReleaseReq(cli_, req_); }
  ReqHold(const ReqHold &) = delete;
  ReqHold &operator=(const ReqHold &) = delete;

 private:
  CoapRpcCliData *cli_;
  CoapRpcCliReqData *req_;
};

// SessionHold holds a session for as long as it lives.
class SessionHold {
 public:
  explicit SessionHold(CoapRpcCliSession *session) : session_(session) { ++session->holds; }
  ~SessionHold() { --session_->holds; }
  SessionHold(const SessionHold &) = delete;
  SessionHold &operator=(const SessionHold &) = delete;

 private:
  CoapRpcCliSession *session_;
};

}  // namespace coap_rpc

#endif /* COAP_RPC_CLI_HOLD_H */
