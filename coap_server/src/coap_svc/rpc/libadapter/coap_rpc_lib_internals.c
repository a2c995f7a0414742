#include "coap3/coap_internal.h"

#include "coap_svc/rpc/libadapter/coap_rpc_lib_internals.h"

const coap_pdu_t *CoapRpcLibSubscriptionPdu(const coap_subscription_t *subscription) {
  return subscription ? subscription->pdu : NULL;
}

void CoapRpcLibStripQuery(coap_subscription_t *subscription) {
  while (coap_remove_option(subscription->pdu, COAP_OPTION_URI_QUERY)) {
  }
}

void CoapRpcLibDisconnectAll(coap_endpoint_t *endPoint) {
  coap_session_t *session;
  coap_session_t *next;
  SESSIONS_ITER_SAFE(endPoint->sessions, session, next) {
    coap_session_reference(session);
    coap_session_disconnected(session, COAP_NACK_NOT_DELIVERABLE);
    coap_session_release(session);
  }
}
