/* coap_rpc_lib_answer.h: what an answer needs of libcoap's internal headers. */
#ifndef COAP_RPC_LIB_ANSWER_H
#define COAP_RPC_LIB_ANSWER_H

#include <coap3/coap.h>

#include "coap_svc/rpc/coap_rpc_types.h"

COAP_RPC_C_BEGIN

/* CoapRpcLibContent is what a message has after its token: options, and payload with its marker. */
typedef struct CoapRpcLibContent {
  const uint8_t *bytes;
  uint16_t len;
  uint16_t payloadAt; /* 0: no payload */
} CoapRpcLibContent;

/* CoapRpcLibGetContent borrows a message's content.  CoapRpcLibSetContent gives it to a message
 * that has a token and no more.  Returns 0 without memory or room. */
CoapRpcLibContent CoapRpcLibGetContent(const coap_pdu_t *pdu);
int CoapRpcLibSetContent(coap_pdu_t *pdu, const CoapRpcLibContent *content);

/* CoapRpcLibRefuseObserver makes a registration an ordinary GET: the response has no Observe option
 * and the session does not observe. */
void CoapRpcLibRefuseObserver(coap_resource_t *resource, coap_session_t *session,
                              const coap_pdu_t *request, coap_pdu_t *response);

/* CoapRpcLibNumUnacknowledged counts the answers and notifications, to whatever peers, that are
 * unacknowledged or queued behind such, until it has counted `max`. */
unsigned CoapRpcLibNumUnacknowledged(const coap_context_t *coapCtx, unsigned max);

/* CoapRpcLibRemoveOptions removes all options of a number. */
void CoapRpcLibRemoveOptions(coap_pdu_t *pdu, coap_option_num_t number);

/* CoapRpcLibSetLinkAttribute gives a resource's link an attribute, in place of one of that name.
 * The value is a copy, as it will be printed; null for none.  Returns 0, changing nothing, without
 * memory. */
int CoapRpcLibSetLinkAttribute(coap_resource_t *resource, const char *name, const char *value);

/* CoapRpcLibAcknowledgeBody gives the answer to a request that came in blocks the Block1 option of
 * the last one (RFC 7959 section 2.3). */
void CoapRpcLibAcknowledgeBody(coap_pdu_t *response, const coap_pdu_t *request);

/* CoapRpcLibIsOfEndPoint says whether a session is a peer of an endpoint. */
int CoapRpcLibIsOfEndPoint(const coap_session_t *session, const coap_endpoint_t *endPoint);

/* CoapRpcLibHeardAt says when a session last received or sent something; in a handler, that is when
 * the request came, by libcoap's clock and without a look at it. */
coap_tick_t CoapRpcLibHeardAt(const coap_session_t *session);

COAP_RPC_C_END
#endif /* COAP_RPC_LIB_ANSWER_H */
