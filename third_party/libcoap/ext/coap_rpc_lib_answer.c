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

unsigned CoapRpcLibNumUnacknowledged(const coap_context_t *coapCtx, unsigned max) {
  unsigned num = 0;
  const coap_queue_t *message = coapCtx->sendqueue;
  for (; message && num < max; message = message->next) {
    if (message->session->type == COAP_SESSION_TYPE_CLIENT) continue;
    num += 1 + CoapRpcLibNumDelayed(message->session);
  }
  return num;
}

void CoapRpcLibRemoveOptions(coap_pdu_t *pdu, coap_option_num_t number) {
  while (coap_remove_option(pdu, number)) {
  }
}

static void DeleteAttr(coap_resource_t *resource, coap_attr_t *attr) {
  LL_DELETE(resource->link_attr, attr);
  coap_delete_attr(attr);
}

/* AddAttr takes the value, also when it fails. */
static int AddAttr(coap_resource_t *resource, coap_str_const_t *name, coap_str_const_t *value) {
  coap_attr_t *attr = coap_add_attr(resource, name, value, COAP_ATTR_FLAGS_RELEASE_VALUE);
  if (attr && attr->name) return 1;
  if (attr) {
    DeleteAttr(resource, attr);
  } else {
    coap_delete_str_const(value);
  }
  return 0;
}

static void ReplaceValue(coap_attr_t *attr, coap_str_const_t *value) {
  coap_delete_str_const(attr->value);
  attr->value = value;
}

static int RemoveAttr(coap_resource_t *resource, coap_attr_t *attr) {
  if (attr) DeleteAttr(resource, attr);
  return 1;
}

int CoapRpcLibSetLinkAttribute(coap_resource_t *resource, const char *name, const char *value) {
  coap_str_const_t key = {strlen(name), (const uint8_t *)name};
  coap_attr_t *attr = coap_find_attr(resource, &key);
  if (!value) return RemoveAttr(resource, attr);
  coap_str_const_t *copy = coap_new_str_const((const uint8_t *)value, strlen(value));
  if (!copy) return 0;
  if (!attr) return AddAttr(resource, &key, copy);
  ReplaceValue(attr, copy);
  return 1;
}

void CoapRpcLibAcknowledgeBody(coap_pdu_t *response, const coap_pdu_t *request) {
  uint8_t bytes[4];
  if (request->body_block == 0) return;
  const unsigned len = coap_encode_var_safe(bytes, sizeof(bytes), request->body_block - 1);
  coap_insert_option(response, COAP_OPTION_BLOCK1, len, bytes);
}

int CoapRpcLibIsOfEndPoint(const coap_session_t *session, const coap_endpoint_t *endPoint) {
  return session->endpoint == endPoint;
}

coap_tick_t CoapRpcLibHeardAt(const coap_session_t *session) { return session->last_rx_tx; }
