/* coap_rpc_lib_relation.cpp: relations of base requests: whose order a message is in, and deferred
 * renewals.
 *
 * A relation is known by its token on the session of its request.  Its order is that of
 * message/coap_rpc_lib_order.h.
 *
 * Renewals.  libcoap drops what it has of a payload when its request is sent again, and the server
 * ends the transfer.  A renewal that is due meanwhile stays on the resend list until that payload
 * is in or no block has come for kIncomingIdleMs, and then leaves with the next tick, with the
 * check code of that moment.  It does not wait for the payload after it.
 *
 * Everything is in the request record: it ends with it, and begins again when the record moves to
 * another peer. */
#include "coap_svc/rpc/libadapter/call/coap_rpc_lib_relation.h"

#include <cstring>

#include "coap_svc/rpc/client/coap_rpc_cli_req.h"
#include "coap_svc/rpc/client/coap_rpc_cli_session.h"
#include "coap_svc/rpc/common/coap_rpc_limits.h"
#include "coap_svc/rpc/common/coap_rpc_list.h"
#include "coap_svc/rpc/libadapter/call/coap_rpc_lib_call_end.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_data.h"
#include "coap_svc/rpc/libadapter/message/coap_rpc_lib_msg.h"
#include "coap_svc/rpc/libadapter/message/coap_rpc_lib_order.h"
#include "libcoap/ext/coap_rpc_lib_internals.h"

namespace {

using namespace coap_rpc;

using Relation = CoapRpcCliRelation;

// AfterSource returns the first session after all those with the source address of `session`.
CoapRpcCliSession *AfterSource(CoapRpcCliData *cli, const CoapRpcCliSession &session) {
  CoapRpcCliSessionKey last = session.key;
  memset(&last.dstIp, 0xFF, sizeof last.dstIp);
  last.dstPort = UINT32_MAX;
  return COAP_RpcCliFindNextSession(cli, &last);
}

// OwnerOf finds the session that has opened a libcoap session: one look for each source address, of
// which there are few.
CoapRpcCliSession *OwnerOf(CoapRpcCliData *cli, const coap_session_t *session) {
  CoapRpcCliSessionKey key = {};
  const coap_address_t *peer = COAP_RpcGetRemoteAddr(session, &key.dstIp);
  if (!peer) return nullptr;
  key.dstPort = coap_address_get_port(peer);
  CoapRpcCliSession *any = COAP_RpcCliFindFirstSession(cli);
  for (; any; any = AfterSource(cli, *any)) {
    key.srcIp = any->key.srcIp;
    CoapRpcCliSession *owner = COAP_RpcCliFindSession(cli, &key);
    if (owner && owner->coapSession == session) return owner;
  }
  return nullptr;
}

// IsAtItsPeer says whether a request is a relation that its present peer has been told of.
bool IsAtItsPeer(const CoapRpcCliReqData &req) {
  return req.key.uri.observe != 0 && req.tokenLen != 0 && req.isTokenForeign == 0;
}

bool HasToken(const CoapRpcCliReqData &req, const coap_bin_const_t &token) {
  return IsAtItsPeer(req) && req.tokenLen == token.length &&
         memcmp(req.token, token.s, token.length) == 0;
}

// RelationOf finds the relation that a message belongs to; null for any other message.
Relation *RelationOf(CoapRpcCliData *cli, const coap_session_t *session, const coap_pdu_t *pdu) {
  const coap_bin_const_t token = coap_pdu_get_token(pdu);
  CoapRpcCliSession *owner = token.length != 0 ? OwnerOf(cli, session) : nullptr;
  if (!owner) return nullptr;
  const COAP_RPC_LIST(CoapRpcCliReqData, sessionLink) reqs(owner->uriDataList);
  CoapRpcCliReqData *req =
      reqs.FindIf([&](const CoapRpcCliReqData &bound) { return HasToken(bound, token); });
  return req ? &req->relation : nullptr;
}

CoapRpcCliData *ClientOf(const coap_session_t *session) {
  const CoapRpcCtx *ctx = CoapRpcLibCallerOf(session);
  return ctx ? ctx->cli : nullptr;
}

}  // namespace

int CoapRpcRelationOrder(coap_session_t *session, const coap_pdu_t *sent,
                         const coap_pdu_t *received) {
  CoapRpcCliData *cli = ClientOf(session);
  Relation *rel = cli ? RelationOf(cli, session, received) : nullptr;
  if (!rel) return kCoapRpcLibFresh;
  const bool wasAwaited = rel->isAwaited != 0;
  const int order = OrderResponse(cli, rel, session, sent, received);
  // The response handler does not hear of it, but the registration has its answer.
  const bool isDroppedAnswer = wasAwaited && rel->isAwaited == 0 && order == kCoapRpcLibOld;
  if (isDroppedAnswer) TakeAnswered(cli->owner, session, sent, received);
  return order;
}

uint32_t CoapRpcRelationIsOvertaken(coap_session_t *session, const coap_pdu_t *received) {
  CoapRpcCliData *cli = ClientOf(session);
  Relation *rel = cli ? RelationOf(cli, session, received) : nullptr;
  return rel && IsOvertaken(cli, rel, received) ? 1 : 0;
}

void CoapRpcRelationSent(CoapRpcCliReqData *req) {
  if (req->key.uri.observe != 0) AwaitAnswer(&req->relation);
}

uint32_t CoapRpcRelationMustWait(CoapRpcCliReqData *req) {
  Relation &rel = req->relation;
  if (!IsAtItsPeer(*req) || !req->session) return 0;
  const coap_bin_const_t token{static_cast<size_t>(req->tokenLen), req->token};
  if (!CoapRpcLibIsReceiving(req->session->coapSession, &token, kIncomingIdleMs)) return 0;
  if (rel.heldFor == 0) rel.heldFor = rel.numBodies;
  return rel.heldFor == rel.numBodies ? 1 : 0;
}
