#include "coap3/coap_internal.h"

#include "libcoap/ext/coap_rpc_lib_traffic.h"

void CoapRpcLibSetTraffic(coap_context_t *coapCtx, CoapRpcLibTraffic traffic) {
  coapCtx->traffic_handler = traffic;
}

/* Pauses double: what has passed of them when the next one is over, without what is left of it. */
static coap_tick_t AgeOf(const coap_queue_t *message, coap_tick_t due, coap_tick_t now) {
  const coap_tick_t pauses = (coap_tick_t)message->timeout * ((2u << message->retransmit_cnt) - 1);
  const coap_tick_t left = due > now ? due - now : 0;
  return pauses > left ? pauses - left : 0;
}

static void Describe(const coap_queue_t *message, coap_tick_t due, CoapRpcLibSending *out) {
  coap_tick_t now;
  coap_ticks(&now);
  out->session = message->session;
  out->pdu = message->pdu;
  out->mid = message->id;
  out->attempts = message->retransmit_cnt + 1u;
  out->age = AgeOf(message, due, now);
}

static int IsAfter(const coap_session_t *session, coap_mid_t mid, const coap_session_t *other,
                   coap_mid_t otherMid) {
  if (session != other) return (uintptr_t)session > (uintptr_t)other;
  return mid > otherMid;
}

int CoapRpcLibNextSending(const coap_context_t *coapCtx, const coap_session_t *session,
                          coap_mid_t mid, CoapRpcLibIsLeftOut isLeftOut, void *arg,
                          CoapRpcLibSending *out) {
  const coap_queue_t *message;
  coap_tick_t due = coapCtx->sendqueue_basetime;
  int isFound = 0;
  LL_FOREACH(coapCtx->sendqueue, message) {
    due += message->t;
    if (!COAP_PDU_IS_REQUEST(message->pdu)) continue;
    if (!IsAfter(message->session, message->id, session, mid)) continue;
    if (isFound && !IsAfter(out->session, out->mid, message->session, message->id)) continue;
    if (isLeftOut(arg, message->session, message->pdu)) continue;
    Describe(message, due, out);
    isFound = 1;
  }
  return isFound;
}

int CoapRpcLibFindSending(const coap_session_t *session, coap_mid_t mid, CoapRpcLibSending *out) {
  const coap_queue_t *message;
  coap_tick_t due = session->context->sendqueue_basetime;
  LL_FOREACH(session->context->sendqueue, message) {
    due += message->t;
    if (message->session != session || message->id != mid) continue;
    Describe(message, due, out);
    return 1;
  }
  return 0;
}

CoapRpcLibLimitHits CoapRpcLibGetLimitHits(const coap_context_t *coapCtx) {
  return (CoapRpcLibLimitHits){coapCtx->num_observer_limit, coapCtx->num_idle_limit,
                               coapCtx->num_upload_limit};
}
