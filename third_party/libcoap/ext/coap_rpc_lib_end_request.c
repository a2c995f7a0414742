#include "coap3/coap_internal.h"

#include "libcoap/ext/coap_rpc_lib_end_request.h"

static uint64_t NumberOf(const coap_bin_const_t *token) {
  return STATE_TOKEN_BASE(coap_decode_var_bytes8(token->s, token->length));
}

static int IsEqual(const coap_binary_t *kept, const coap_bin_const_t *token) {
  return kept && kept->length == token->length && memcmp(kept->s, token->s, token->length) == 0;
}

static const coap_binary_t *TokenOfBody(const coap_lg_xmit_t *body) {
  return COAP_PDU_IS_REQUEST(&body->pdu) ? body->b.b1.app_token : NULL;
}

static coap_bin_const_t View(const coap_binary_t *token) {
  return (coap_bin_const_t){token->length, token->s};
}

/* A request's own token wins over a transfer's number that happens to be in it. */
coap_bin_const_t CoapRpcLibTokenOwner(const coap_session_t *session, const coap_bin_const_t *own) {
  const uint64_t number = NumberOf(own);
  const coap_lg_crcv_t *answer;
  const coap_lg_xmit_t *body;
  LL_FOREACH(session->lg_crcv, answer) {
    if (IsEqual(answer->app_token, own)) return *own;
    if (STATE_TOKEN_BASE(answer->state_token) == number) return View(answer->app_token);
  }
  LL_FOREACH(session->lg_xmit, body) {
    const coap_binary_t *token = TokenOfBody(body);
    if (!token || IsEqual(token, own)) continue;
    if (STATE_TOKEN_BASE(body->b.b1.state_token) == number) return View(token);
  }
  return *own;
}

coap_bin_const_t CoapRpcLibRequestToken(const coap_session_t *session, const coap_pdu_t *pdu) {
  return CoapRpcLibTokenOwner(session, &pdu->actual_token);
}

static int IsOf(const coap_session_t *session, const coap_pdu_t *pdu,
                const coap_bin_const_t *token) {
  const coap_bin_const_t owner = CoapRpcLibRequestToken(session, pdu);
  return COAP_PDU_IS_REQUEST(pdu) && coap_binary_equal(&owner, token);
}

static coap_queue_t *FirstSent(const coap_session_t *session, const coap_bin_const_t *token) {
  coap_queue_t *message;
  LL_FOREACH(session->context->sendqueue, message) {
    if (message->session == session && IsOf(session, message->pdu, token)) return message;
  }
  return NULL;
}

static void DropDelayed(coap_session_t *session, const coap_bin_const_t *token) {
  coap_queue_t *message;
  coap_queue_t *next;
  LL_FOREACH_SAFE(session->delayqueue, message, next) {
    if (!IsOf(session, message->pdu, token)) continue;
    LL_DELETE(session->delayqueue, message);
    message->next = NULL;
    coap_delete_node(message);
  }
}

/* The token is copied: cancelling frees the message that it is in. */
static void CancelSent(coap_session_t *session, const coap_pdu_t *pdu) {
  uint8_t bytes[8];
  coap_bin_const_t token = {pdu->actual_token.length, bytes};
  if (token.length > sizeof(bytes)) return;
  memcpy(bytes, pdu->actual_token.s, token.length);
  coap_cancel_all_messages(session->context, session, &token);
}

void CoapRpcLibStopSending(coap_session_t *session, const coap_bin_const_t *token) {
  coap_queue_t *message;
  DropDelayed(session, token);
  while ((message = FirstSent(session, token)) != NULL) CancelSent(session, message->pdu);
}

static void DropAnswers(coap_session_t *session, const coap_bin_const_t *token) {
  coap_lg_crcv_t *answer;
  coap_lg_crcv_t *next;
  LL_FOREACH_SAFE(session->lg_crcv, answer, next) {
    if (!IsEqual(answer->app_token, token)) continue;
    LL_DELETE(session->lg_crcv, answer);
    coap_block_delete_lg_crcv(session, answer);
  }
}

static void DropBodies(coap_session_t *session, const coap_bin_const_t *token) {
  coap_lg_xmit_t *body;
  coap_lg_xmit_t *next;
  LL_FOREACH_SAFE(session->lg_xmit, body, next) {
    if (!IsEqual(TokenOfBody(body), token)) continue;
    LL_DELETE(session->lg_xmit, body);
    coap_block_delete_lg_xmit(session, body);
  }
}

void CoapRpcLibEndRequest(coap_session_t *session, const coap_bin_const_t *token) {
  CoapRpcLibStopSending(session, token);
  DropBodies(session, token);
  DropAnswers(session, token);
}

int CoapRpcLibExpectAnswer(coap_session_t *session, coap_pdu_t *pdu) {
  if (pdu->type != COAP_MESSAGE_NON || pdu->code != COAP_REQUEST_CODE_DELETE) return 1;
  coap_lg_crcv_t *answer = coap_block_new_lg_crcv(session, pdu, NULL);
  if (!answer) return 0;
  coap_expect_lg_crcv(session, answer);
  return 1;
}

void CoapRpcLibSetKeep(coap_context_t *coapCtx, CoapRpcLibKeep keep) {
  coapCtx->keep_handler = keep;
}

coap_bin_const_t CoapRpcLibTokenOf(const coap_lg_crcv_t *answer) { return View(answer->app_token); }

/* A payload in blocks refers to it. */
int CoapRpcLibCanBeKept(const coap_lg_crcv_t *answer) { return answer->o_block_option == 0; }

void CoapRpcLibGiveBack(coap_session_t *session, coap_lg_crcv_t *answer) {
  if (answer) LL_PREPEND(session->lg_crcv, answer);
}

void CoapRpcLibDropKept(coap_session_t *session, coap_lg_crcv_t *answer) {
  coap_block_delete_lg_crcv(session, answer);
}

void CoapRpcLibMakeCall(coap_pdu_t *pdu, uint8_t maxRetransmit) {
  pdu->max_retransmit = maxRetransmit;
  pdu->tries_twice = 1;
  pdu->keeps_token = 1;
}

int CoapRpcLibHasTurn(const coap_session_t *session) {
  return !session->delayqueue && session->con_active < COAP_NSTART(session);
}
