#include "coap_svc/rpc/libadapter/call/coap_rpc_lib_call_pdu.h"

#include <cstring>

#include "coap_svc/rpc/client/coap_rpc_cli_req.h"
#include "coap_svc/rpc/client/coap_rpc_cli_session.h"
#include "coap_svc/rpc/client/coap_rpc_cli_uri.h"
#include "coap_svc/rpc/common/coap_rpc_limits.h"
#include "coap_svc/rpc/common/coap_rpc_list.h"
#include "coap_svc/rpc/common/coap_rpc_log_site.h"
#include "coap_svc/rpc/common/coap_rpc_safe.h"
#include "coap_svc/rpc/common/coap_rpc_text.h"
#include "coap_svc/rpc/libadapter/message/coap_rpc_lib_check_code.h"
#include "coap_svc/rpc/libadapter/message/coap_rpc_lib_lookup.h"
#include "coap_svc/rpc/libadapter/message/coap_rpc_lib_msg.h"
#include "libcoap/ext/coap_rpc_lib_internals.h"

namespace {

using namespace coap_rpc;

constexpr size_t kScratchSize = 4;

// AddUint adds an option whose value is a number.  Returns the option's size, 0 on failure.
size_t AddUint(coap_pdu_t *pdu, coap_option_num_t number, uint32_t value, uint8_t *scratch) {
  return coap_add_option(pdu, number, coap_encode_var_safe(scratch, kScratchSize, value), scratch);
}

// NoteAsking returns whether the relation lacks something, which a check code asks for.
bool NoteAsking(CoapRpcCliRelation *relation, bool asks) {
  if (relation->missing == COAP_RPC_MISSING_NOTHING) return false;
  relation->missing = asks ? COAP_RPC_MISSING_ASKED : COAP_RPC_MISSING_SOME;
  return true;
}

// DrawToken gives a relation its token, which is kept for resends and the cancel.
void DrawToken(coap_session_t *session, CoapRpcCliReqData *req) {
  size_t len = 0;
  coap_session_new_token(session, &len, req->token);
  req->tokenLen = len;
}

bool HasTokenOf(const CoapRpcCliReqData &other, const CoapRpcCliReqData &req) {
  return &other != &req && other.tokenLen == req.tokenLen &&
         memcmp(other.token, req.token, req.tokenLen) == 0;
}

// MayKeepToken says whether a token that another session has drawn means nothing else in this one.
bool MayKeepToken(CoapRpcCliSession *session, const CoapRpcCliReqData &req) {
  const COAP_RPC_LIST(CoapRpcCliReqData, sessionLink) reqs(session->uriDataList);
  const coap_bin_const_t token{static_cast<size_t>(req.tokenLen), req.token};
  return !reqs.FindIf([&](const CoapRpcCliReqData &other) { return HasTokenOf(other, req); }) &&
         CoapRpcLibClaimToken(session->coapSession, &token) != 0;
}

// AddObserve adds the relation's token and the Observe option.
void AddObserve(CoapRpcCtx *ctx, coap_pdu_t *pdu, uint8_t *scratch, CoapRpcCliSession *session,
                CoapRpcCliReqData *req) {
  COAP_RPC_DEBUG(ctx, "observer req set option.");
  if (req->isTokenForeign != 0 && !MayKeepToken(session, *req)) req->tokenLen = 0;
  req->isTokenForeign = 0;
  if (req->tokenLen == 0) {
    COAP_RPC_DEBUG(ctx, "observer req token init.");
    DrawToken(session->coapSession, req);
  }
  coap_add_token(pdu, req->tokenLen, req->token);
  AddUint(pdu, COAP_OPTION_OBSERVE, COAP_OBSERVE_ESTABLISH, scratch);
}

void AddFreshToken(coap_pdu_t *pdu, CoapRpcCliSession *session) {
  uint8_t token[COAP_RPC_TOKEN_SIZE];
  size_t len = 0;
  coap_session_new_token(session->coapSession, &len, token);
  coap_add_token(pdu, len, token);
}

// FormatHost writes the address text of Uri-Host.  Returns its length, negative on failure.
int FormatHost(const CoapRpcIpAddr &addr, char (&buf)[kIpTextSize]) {
  if (addr.family != COAP_RPC_IPV4) {
    const bool isText = COAP_RpcIpAddrGetStr(&addr, buf, sizeof buf) == buf;
    return isText ? static_cast<int>(strlen(buf)) : -1;
  }
  const uint32_t ipv4 = addr.addr.ipv4;
  return sprintf_s(buf, sizeof buf, "%d.%d.%d.%d", static_cast<int>(ipv4 >> 24),
                   static_cast<int>(ipv4 >> 16 & 0xFF), static_cast<int>(ipv4 >> 8 & 0xFF),
                   static_cast<int>(ipv4 & 0xFF));
}

void AddHost(CoapRpcCtx *ctx, coap_pdu_t *pdu, const CoapRpcCliSession *session) {
  char host[kIpTextSize] = "";
  if (FormatHost(session->key.dstIp, host) < 0) {
    COAP_RPC_LOG(ctx->log, kLogCliAddPduOptionHost, "[CoapRpc]Parse int to ipv4 failed.\n");
    host[0] = '\0';
  }
  coap_add_option(pdu, COAP_OPTION_URI_HOST, strlen(host), reinterpret_cast<uint8_t *>(host));
}

}  // namespace

uint32_t COAP_RpcCliAddPduOption(CoapRpcCtx *ctx, CoapRpcCliUriVtbl *uriVtbl, coap_pdu_t *pdu,
                                 uint8_t *scratch, CoapRpcCliSession *session,
                                 CoapRpcCliReqData *req) {
  const CoapRpcUriKey &key = req->key.uri;
  if (key.observe != 0) {
    AddObserve(ctx, pdu, scratch, session, req);
    COAP_RpcCliAddCheckCode(pdu, uriVtbl, req);
  } else if (CoapRpcLibIsDynamicMac(&key) != 0) {
    AddFreshToken(pdu, session);
  }
  AddHost(ctx, pdu, session);
  COAP_RpcSetUriPath(ctx, pdu, UriText(key.uri).c_str());
  uint32_t mediaType = 0;
  COAP_RpcSetMediaType(&mediaType, uriVtbl->reg.payloadFormat);
  return static_cast<uint32_t>(AddUint(pdu, COAP_OPTION_CONTENT_FORMAT, mediaType, scratch));
}

void COAP_RpcCliAddCheckCode(coap_pdu_t *pdu, const CoapRpcCliUriVtbl *uriVtbl,
                             CoapRpcCliReqData *req) {
  const uint32_t mode = req->mode;
  const bool asks = mode == COAP_RPC_MODE_VERIFY || mode == COAP_RPC_MODE_BATCH;
  const bool isMissing = NoteAsking(&req->relation, asks);
  if (!asks) return;
  const bool isVerify = mode == COAP_RPC_MODE_VERIFY && !isMissing;
  req->mode = COAP_RPC_MODE_PLAIN;
  AddCheckCodeQuery(pdu, isVerify ? uriVtbl->checkCode : 0);
}
