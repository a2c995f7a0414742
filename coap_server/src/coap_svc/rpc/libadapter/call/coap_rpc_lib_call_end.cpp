#include "coap_svc/rpc/libadapter/call/coap_rpc_lib_call_end.h"

#include <utility>

#include "coap_svc/rpc/client/coap_rpc_cli_data.h"
#include "coap_svc/rpc/libadapter/message/coap_rpc_lib_lookup.h"
#include "libcoap/ext/coap_rpc_lib_internals.h"

namespace coap_rpc {
namespace {

Sign SignOf(const coap_session_t *session, const coap_pdu_t *pdu, coap_mid_t mid) {
  const coap_bin_const_t token = pdu ? coap_pdu_get_token(pdu) : coap_bin_const_t{0, nullptr};
  return {session, mid, token.s, token.length, nullptr};
}

// NamesNoRequest is for responses that do not acknowledge the request itself: separate ones, and
// those that were fetched in blocks, which acknowledge what the last block was asked for with.
bool NamesNoRequest(const coap_pdu_t *received) {
  return coap_pdu_get_type(received) != COAP_MESSAGE_ACK || CoapRpcLibIsBody(received) != 0;
}

coap_mid_t AnsweredMid(const coap_pdu_t *sent, const coap_pdu_t *received) {
  if (sent) return coap_pdu_get_mid(sent);
  return coap_pdu_get_type(received) == COAP_MESSAGE_ACK ? coap_pdu_get_mid(received)
                                                         : COAP_INVALID_MID;
}

// DropCancelled forgets further sendings of a token: a separate response ends them all in libcoap.
void DropCancelled(CoapRpcCtx *ctx, const Sign &answered) {
  if (answered.tokenLen == 0) return;
  const Sign sign = {answered.session, COAP_INVALID_MID, answered.token, answered.tokenLen,
                     nullptr};
  for (OpenReq *open = FindOpen(ctx->cli, sign); open; open = FindOpen(ctx->cli, sign)) {
    if (CoapRpcLibIsQueued(sign.session, open->mid) != 0) return;
    TakeOpen(ctx->cli, sign);
  }
}

// AnswersQueued says whether a response would only answer, by its token, a sending that libcoap has
// not heard of: a notification of the relation that comes while its renewal may still be lost.
bool AnswersQueued(const CoapRpcCtx *ctx, const Sign &sign) {
  const OpenReq *open = FindOpen(ctx->cli, sign);
  return open && open->mid != sign.mid && CoapRpcLibIsQueued(sign.session, open->mid) != 0;
}

uint32_t EndOf(coap_nack_reason_t reason, const OpenReq &open) {
  switch (reason) {
    case COAP_NACK_TOO_MANY_RETRIES:
      return open.isRefused != 0 ? COAP_RPC_END_UNREACHABLE : COAP_RPC_END_TIMEOUT;
    case COAP_NACK_RST:
      return COAP_RPC_END_RESET;
    case COAP_NACK_BAD_RESPONSE:
      return COAP_RPC_END_BAD_RESPONSE;
    default:
      return COAP_RPC_END_UNREACHABLE;
  }
}

}  // namespace

PoolPtr<OpenReq> TakeAnswered(CoapRpcCtx *ctx, const coap_session_t *session,
                              const coap_pdu_t *sent, const coap_pdu_t *received) {
  if (!ctx->cli->ends) return TakeOpen(ctx->cli, {});
  char path[COAP_RPC_URI_SIZE];
  Sign sign = SignOf(session, received, AnsweredMid(sent, received));
  if (NamesNoRequest(received)) sign.path = CoapRpcLibPathOf(received, path);
  if (AnswersQueued(ctx, sign)) return PoolPtr<OpenReq>(nullptr, PoolDeleter{});
  PoolPtr<OpenReq> open = TakeOpen(ctx->cli, sign);
  if (open && coap_pdu_get_type(received) != COAP_MESSAGE_ACK) DropCancelled(ctx, sign);
  return open;
}

void EndByNack(CoapRpcCtx *ctx, const coap_session_t *session, const coap_pdu_t *sent,
               coap_nack_reason_t reason, coap_mid_t mid) {
  const bool isIcmp = reason == COAP_NACK_ICMP_ISSUE;
  if (!ctx->cli || (!sent && isIcmp)) return;  // libcoap knows not which message it was
  const Sign sign = SignOf(session, sent, mid);
  OpenReq *open = FindOpen(ctx->cli, sign);
  if (!open) return;
  if (isIcmp) {
    open->isRefused = 1;
  } else {
    const uint32_t end = EndOf(reason, *open);
    TellEnd(ctx, TakeOpen(ctx->cli, sign), end);
  }
}

uint32_t IsUnderWay(const coap_session_t *session, int32_t mid) {
  return CoapRpcLibIsQueued(session, mid) != 0 || CoapRpcLibHasBody(session) != 0 ? 1 : 0;
}

}  // namespace coap_rpc
