#include "coap_svc/rpc/client/coap_rpc_cli_req_data.h"

#include "coap_svc/rpc/client/coap_rpc_cli_session.h"
#include "coap_svc/rpc/common/coap_rpc_key.h"
#include "coap_svc/rpc/common/coap_rpc_list.h"
#include "coap_svc/rpc/common/coap_rpc_log_site.h"
#include "coap_svc/rpc/common/coap_rpc_own.h"
#include "coap_svc/rpc/common/coap_rpc_table.h"
#include "osal.h"

using namespace coap_rpc;

namespace {

using ReqTable = COAP_RPC_TABLE(CoapRpcCliReqData, key, CoapRpcCliReqKey, COAP_RpcCliReqCmp_);
using SessionReqs = COAP_RPC_LIST(CoapRpcCliReqData, sessionLink);

}  // namespace

int32_t COAP_RpcCliReqCmp_(const void *a, const void *b) {
  const auto *keyA = static_cast<const CoapRpcCliReqKey *>(a);
  const auto *keyB = static_cast<const CoapRpcCliReqKey *>(b);
  if (const int32_t order = COAP_RpcUriKeyCmp(&keyA->uri, &keyB->uri)) return order;
  const CoapRpcCliReqParam &paramA = keyA->param;
  const CoapRpcCliReqParam &paramB = keyB->param;
  if (paramA.userData != paramB.userData) return paramA.userData < paramB.userData ? -1 : 1;
  const auto payloadA = reinterpret_cast<uintptr_t>(paramA.payload);
  const auto payloadB = reinterpret_cast<uintptr_t>(paramB.payload);
  if (payloadA != payloadB) return payloadA < payloadB ? -1 : 1;
  return OSAL_MemCmp(paramA.reqKeyRsv, paramB.reqKeyRsv, sizeof paramA.reqKeyRsv);
}

CoapRpcCliReqData *COAP_RpcCliFindReqData(CoapRpcCliData *cli, const CoapRpcCliReqKey *key) {
  return ReqTable(cli->reqTree).Find(key);
}

CoapRpcCliReqData *COAP_RpcCliFindFirstReqData(CoapRpcCliData *cli) {
  return ReqTable(cli->reqTree).First();
}

CoapRpcCliReqData *COAP_RpcCliFindNextReqData(CoapRpcCliData *cli, const CoapRpcCliReqKey *key) {
  return ReqTable(cli->reqTree).After(key);
}

CoapRpcCliReqData *COAP_RpcCliAddReqData(CoapRpcCliData *cli, const CoapRpcCliReqKey *key,
                                         const CoapRpcCliAddr *addr) {
  auto req = NewZeroed<CoapRpcCliReqData>(cli->owner->param.memHandle);
  if (!req) return nullptr;
  LinkInit(req->sessionLink);
  LinkInit(req->resendLink);
  if (COAP_RpcCliReqPayload(cli, req.get(), key, addr) != 0) return nullptr;
  if (!ReqTable(cli->reqTree).Insert(req.get())) {
    COAP_RpcCliReqPayloadFree(cli, req.get());
    return nullptr;
  }
  COAP_RPC_DEBUG(cli->owner,
                 "[CoapRpc]cli create req success, uri:%s, msgType:%u, observe:%u, pktType:%u.\n",
                 COAP_RPC_KEY_ARGS(req->key.uri));
  return req.release();
}

void COAP_RpcCliDelReqData(CoapRpcCliData *cli, CoapRpcCliReqData *req) {
  if (!req || req->isDropped) return;
  const ReqHold hold(cli, req);
  // Before the payload goes: its address is part of the key.
  ReqTable(cli->reqTree).Remove(req);
  COAP_RpcCliReqUnbindSession(cli, req);
  req->isDropped = 1;
}

void COAP_RpcCliReqBindSession(CoapRpcCliData *cli, CoapRpcCliSession *session,
                               CoapRpcCliReqData *req) {
  if (req->session && req->session != session) {
    req->isTokenForeign = 1;
    req->relation = {};
  }
  COAP_RpcCliReqUnbindSession(cli, req);
  req->session = session;
  SessionReqs(session->uriDataList).Append(req);
  COAP_RpcCliRemoveAgingList(cli, session);
  COAP_RPC_DEBUG(cli->owner,
                 "[CoapRpc]req bind session success, uri:%s, msgType:%u, observe:%u, "
                 "pktType:%u.\n",
                 COAP_RPC_KEY_ARGS(req->key.uri));
}

void COAP_RpcCliReqUnbindSession(CoapRpcCliData *cli, CoapRpcCliReqData *req) {
  LinkRemove(req->sessionLink);
  LinkRemove(req->resendLink);
  COAP_RpcCliInsetAgingList(cli, req->session);
  req->session = nullptr;
}

uint32_t COAP_RpcCliReqIsBindSession(const CoapRpcCliSession *session,
                                     const CoapRpcCliReqData *req) {
  if (req->session == session && !LinkIsAlone(req->sessionLink)) return 1;
  // The list type is for reading and writing; nothing is written here.
  const SessionReqs list(const_cast<CoapRpcCliSession *>(session)->uriDataList);
  const auto isSame = [session, req](const CoapRpcCliReqData &bound) {
    return bound.session == session && memcmp(&bound.key, &req->key, sizeof req->key) == 0;
  };
  return list.FindIf(isSame) ? 1 : 0;
}

uint32_t COAP_RpcCliReqPayload(CoapRpcCliData *cli, CoapRpcCliReqData *req,
                               const CoapRpcCliReqKey *key, const CoapRpcCliAddr *addr) {
  const uint8_t *payload = key->param.payload;
  const uint32_t len = key->param.payloadLen;
  req->key = *key;
  req->key.param.payload = nullptr;
  req->key.param.payloadLen = 0;
  TakeCallFields(req, addr);
  if (!payload || len == 0) return 0;

  auto copy = NewZeroed<uint8_t>(cli->owner->param.memHandle, len);
  if (!copy || memcpy_s(copy.get(), len, payload, len) != 0) {
    return Code(kSiteCliReqPayloadNoMemory);
  }
  req->key.param.payload = copy.release();
  req->key.param.payloadLen = len;
  return 0;
}

void COAP_RpcCliReqPayloadFree(CoapRpcCliData *cli, CoapRpcCliReqData *req) {
  PoolFree(cli->owner->param.memHandle, req->key.param.payload);
  req->key.param.payload = nullptr;
  req->key.param.payloadLen = 0;
}

namespace coap_rpc {

void TakeCallFields(CoapRpcCliReqData *req, const CoapRpcCliAddr *addr) {
  req->codeType = addr->codeType;
  memcpy(req->reqRsv, addr->reqRsv, sizeof req->reqRsv);
}

void HoldReq(CoapRpcCliReqData *req) { ++req->holds; }

void ReleaseReq(CoapRpcCliData *cli, CoapRpcCliReqData *req) {
  if (--req->holds == 0 && req->isDropped) {
    COAP_RpcCliReqPayloadFree(cli, req);
    PoolFree(cli->owner->param.memHandle, req);
  }
}

}  // namespace coap_rpc
