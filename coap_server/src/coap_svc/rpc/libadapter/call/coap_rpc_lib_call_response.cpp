#include "coap_svc/rpc/libadapter/call/coap_rpc_lib_call_response.h"

#include <utility>

#include "coap_svc/rpc/client/coap_rpc_cli_data.h"
#include "coap_svc/rpc/client/coap_rpc_cli_uri.h"
#include "coap_svc/rpc/common/coap_rpc_log_site.h"
#include "coap_svc/rpc/common/coap_rpc_own.h"
#include "coap_svc/rpc/common/coap_rpc_stopwatch.h"
#include "coap_svc/rpc/libadapter/call/coap_rpc_lib_call_end.h"
#include "coap_svc/rpc/libadapter/call/coap_rpc_lib_relation.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_data.h"
#include "coap_svc/rpc/libadapter/message/coap_rpc_lib_check_code.h"
#include "coap_svc/rpc/libadapter/message/coap_rpc_lib_lookup.h"

namespace {

using namespace coap_rpc;

// Where pubFlag stands in the message information, and what sets it.
constexpr size_t kPubFlagAt = 12;
constexpr char kPubFlagSet = '2';

constexpr uint32_t kPerClass = 100;

// IsTokenless says whether libcoap has taken a message for the answer to whatever plain request of
// its session was waiting for an acknowledgement.  Asynchronous answers are
// requests, not responses, for libcoap.
bool IsTokenless(const coap_pdu_t *pdu) {
  return coap_pdu_get_token(pdu).length == 0 && coap_pdu_get_type(pdu) != COAP_MESSAGE_ACK &&
         COAP_RESPONSE_CLASS(coap_pdu_get_code(pdu)) != 0;
}

uint32_t CallOnResponse(CoapRpcCtx *ctx, const CoapRpcCliUriVtbl *uriVtbl, uint8_t *payload,
                        uint32_t len, const CoapRpcCliRspInfo *rspInfo) {
  CallbackTime time(ctx, uriVtbl->key.uri, nullptr);
  return uriVtbl->reg.onResponse(uriVtbl->reg.userData, 0, payload, len, rspInfo);
}

// Outcome is what became of a response: what libcoap is told, and why the application did not take
// it; 0 when it did.
struct Outcome {
  coap_response_t result;
  uint32_t end;
};

Outcome DeliverData(CoapRpcCtx *ctx, const CoapRpcCliUriVtbl *uriVtbl, const uint8_t *data,
                    size_t size, const CoapRpcCliRspInfo *rspInfo) {
  const auto copy = NewZeroed<uint8_t>(ctx->param.memHandle, size);
  if (!copy) {
    COAP_RPC_LOG(ctx->log, kLogCliResponseNoMemory, "[CoapRpc]payload malloc failed.\n");
    return {COAP_RESPONSE_OK, COAP_RPC_END_NO_MEMORY};
  }
  memcpy(copy.get(), data, size);
  const auto len = static_cast<uint32_t>(size);
  COAP_RPC_DEBUG(ctx, "[CoapRpc]cli get response payload success, uri:%s, len:%u, payload:%s.\n",
                 UriText(uriVtbl->key.uri).c_str(), len,
                 LineText(reinterpret_cast<const char *>(copy.get())).c_str());
  if (!uriVtbl->reg.onResponse) return {COAP_RESPONSE_OK, COAP_RPC_END_NO_ENTRY};
  if (CallOnResponse(ctx, uriVtbl, copy.get(), len, rspInfo) == 0) return {COAP_RESPONSE_OK, 0};
  COAP_RPC_LOG(ctx->log, kLogCliResponseRejected,
               "[CoapRpc]cli parse response data failed, uri:%s, msgType:%u, observe:%u, "
               "pktType:%u.\n",
               COAP_RPC_KEY_ARGS(uriVtbl->key));
  return {COAP_RESPONSE_FAIL, COAP_RPC_END_REFUSED};
}

// EndOfNothing is why nobody heard of an accepted response without payload.
uint32_t EndOfNothing(const CoapRpcCliUriVtbl &uriVtbl, const CoapRpcCliRspInfo &rspInfo) {
  if (!uriVtbl.reg.onResponse) return COAP_RPC_END_NO_ENTRY;
  return rspInfo.isChanged == 1 ? 0 : COAP_RPC_END_EMPTY;
}

Outcome DeliverNothing(CoapRpcCtx *ctx, CoapRpcCliUriVtbl *uriVtbl, size_t size,
                       const CoapRpcCliRspInfo *rspInfo) {
  COAP_RPC_DEBUG(ctx, "[CoapRpc]get client response data, respSize:%u.\n",
                 static_cast<uint32_t>(size));
  if (COAP_RpcCliResNoDataProc(ctx, uriVtbl, rspInfo) == 0) {
    return {COAP_RESPONSE_FAIL, COAP_RPC_END_REFUSED};
  }
  return {COAP_RESPONSE_OK, EndOfNothing(*uriVtbl, *rspInfo)};
}

Outcome Deliver(CoapRpcCtx *ctx, CoapRpcCliUriVtbl *uriVtbl, const coap_pdu_t *received,
                const CoapRpcCliRspInfo *rspInfo) {
  size_t size = 0;
  const uint8_t *data = nullptr;
  if (coap_get_data(received, &size, &data) == 0 || size == 0) {
    return DeliverNothing(ctx, uriVtbl, size, rspInfo);
  }
  return DeliverData(ctx, uriVtbl, data, size, rspInfo);
}

uint32_t EndWithoutEntry(const coap_pdu_t *received) {
  coap_opt_iterator_t it;
  return coap_check_option(received, COAP_OPTION_URI_PATH, &it) ? COAP_RPC_END_NO_ENTRY
                                                                : COAP_RPC_END_NO_PATH;
}

Outcome HandOver(CoapRpcCtx *ctx, const coap_session_t *session, const coap_pdu_t *received) {
  const CoapRpcMsgInfo info = COAP_RpcGetMsgInfo(received, session);
  CoapRpcCliRspInfo rspInfo = COAP_GetRpcCliPubData(&info);
  CoapRpcCliUriVtbl *uriVtbl = COAP_RpcCliGetVtbl(ctx, received);
  if (!uriVtbl) {
    COAP_RPC_LOG(ctx->log, kLogCliResponseNoEntry,
                 "[CoapRpc]cli parse response data get vtbl failed.\n");
    return {COAP_RESPONSE_OK, EndWithoutEntry(received)};
  }
  COAP_RpcCliResponseCheckCode(uriVtbl, &info, &rspInfo);
  return Deliver(ctx, uriVtbl, received, &rspInfo);
}

// IsRegistered says that a registration was accepted although there is nothing to hand over yet.
bool IsRegistered(const OpenReq &open, const Outcome &outcome, coap_pdu_code_t code) {
  return open.end.key.observe != 0 && outcome.end == COAP_RPC_END_EMPTY &&
         COAP_RESPONSE_CLASS(code) == 2;
}

// TellIgnored tells of a request whose response the application did not take.
void TellIgnored(CoapRpcCtx *ctx, PoolPtr<OpenReq> open, const Outcome &outcome,
                 coap_pdu_code_t code) {
  if (!open || outcome.end == 0 || IsRegistered(*open, outcome, code)) return;
  TellEnd(ctx, std::move(open), outcome.end, (code >> 5) * kPerClass + (code & 0x1f));
}

}  // namespace

CoapRpcCliRspInfo COAP_GetRpcCliPubData(const CoapRpcMsgInfo *info) {
  CoapRpcCliRspInfo rspInfo = {};
  rspInfo.isChanged = info->code == COAP_RESPONSE_CODE_CHANGED ? 1 : 0;
  rspInfo.rspCode = (info->code >> 5) * kPerClass + (info->code & 0x1f);
  rspInfo.pubFlag = info->rsv[kPubFlagAt] == kPubFlagSet ? 1 : 0;
  return rspInfo;
}

void COAP_RpcCliResponseCheckCode(CoapRpcCliUriVtbl *uriVtbl, const CoapRpcMsgInfo *info,
                                  CoapRpcCliRspInfo *rspInfo) {
  const uint32_t optMask = info->opt.optMask;
  if ((optMask & COAP_RPC_OPT_ETAG) != 0) uriVtbl->checkCode = info->opt.etag;
  if (!HasCheckCodeQuery(info->opt)) return;
  const bool isContent = info->code == COAP_RESPONSE_CODE_CONTENT;
  rspInfo->checkCodeOk = isContent && (optMask & COAP_RPC_OPT_OBSERVE) != 0 ? 1 : 0;
}

coap_response_t CoapRpcCallTakeResponse(coap_session_t *session, const coap_pdu_t *sent,
                                        const coap_pdu_t *received) {
  CoapRpcCtx *ctx = CoapRpcLibCallerOf(session);
  if (!ctx || !ctx->cli || !received) return COAP_RESPONSE_OK;
  if (IsTokenless(received)) ++ctx->cli->numTokenlessRsp;
  PoolPtr<OpenReq> open = TakeAnswered(ctx, session, sent, received);
  if (CoapRpcRelationIsOvertaken(session, received) != 0) return COAP_RESPONSE_OK;
  const Outcome outcome = HandOver(ctx, session, received);
  TellIgnored(ctx, std::move(open), outcome, coap_pdu_get_code(received));
  return outcome.result;
}

uint32_t COAP_RpcCliResNoDataProc(CoapRpcCtx *ctx, CoapRpcCliUriVtbl *uriVtbl,
                                  const CoapRpcCliRspInfo *rspInfo) {
  if (rspInfo->isChanged != 1 || !uriVtbl->reg.onResponse) return COAP_RESPONSE_OK;
  COAP_RPC_DEBUG(ctx, "[CoapRpc]cli parse response retcode, uri:%s.\n",
                 UriText(uriVtbl->key.uri).c_str());
  if (CallOnResponse(ctx, uriVtbl, nullptr, 0, rspInfo) == 0) return COAP_RESPONSE_OK;
  COAP_RPC_LOG(ctx->log, kLogCliResNoDataRejected,
               "[CoapRpc]parse rsp data failed, uri:%s, msgType:%u, observe:%u, pktType:%u.\n",
               COAP_RPC_KEY_ARGS(uriVtbl->key));
  return COAP_RESPONSE_FAIL;
}
