#include "libcoap/ext/coap_rpc_lib_answer.h"

#include "coap3/coap_internal.h"
#include "libcoap/ext/coap_rpc_lib_internals.h"

CoapRpcLibContent CoapRpcLibGetContent(const coap_pdu_t *pdu) {
  const uint8_t *bytes = pdu->token + pdu->e_token_length;
  const CoapRpcLibContent content = {bytes, (uint16_t)(pdu->used_size - pdu->e_token_length),
                                     (uint16_t)(pdu->data ? pdu->data - bytes : 0)};
  return content;
}

static uint16_t LastOption(const coap_pdu_t *pdu) {
  coap_opt_iterator_t it;
  uint16_t last = 0;
  coap_option_iterator_init(pdu, &it, COAP_OPT_ALL);
  while (coap_option_next(&it)) last = it.number;
  return last;
}

int CoapRpcLibSetContent(coap_pdu_t *pdu, const CoapRpcLibContent *content) {
  if (!coap_pdu_check_resize(pdu, pdu->used_size + content->len)) return 0;
  uint8_t *to = pdu->token + pdu->used_size;
  if (content->len != 0) memcpy(to, content->bytes, content->len);
  pdu->used_size += content->len;
  if (content->payloadAt != 0) pdu->data = to + content->payloadAt;
  pdu->max_opt = LastOption(pdu);
  return 1;
}

void CoapRpcLibRefuseObserver(coap_resource_t *resource, coap_session_t *session,
                              const coap_pdu_t *request, coap_pdu_t *response) {
  coap_remove_option(response, COAP_OPTION_OBSERVE);
  coap_delete_observer(resource, session, &request->actual_token);
}

int CoapRpcLibAwaitsMany(const coap_session_t *session, unsigned max) {
  unsigned num = 0;
  const coap_queue_t *message = session->context->sendqueue;
  for (; message && num < max; message = message->next) {
    if (message->session->type == COAP_SESSION_TYPE_CLIENT) continue;
    num += 1 + CoapRpcLibNumDelayed(message->session);
  }
  return num >= max;
}

int CoapRpcLibIsOfEndPoint(const coap_session_t *session, const coap_endpoint_t *endPoint) {
  return session->endpoint == endPoint;
}
