#include "libcoap_lists.h"

#include "coap3/coap_internal.h"

unsigned NumLibcoapAsync(const coap_context_t *context) {
  unsigned num = 0;
  const coap_async_t *async;
  LL_COUNT(context->async_state, async, num);
  return num;
}

unsigned NumLibcoapPrepared(const coap_context_t *context) {
  unsigned sum = 0;
  coap_session_t *session;
  coap_session_t *next;
  SESSIONS_ITER(context->sessions, session, next) {
    unsigned num = 0;
    const coap_lg_crcv_t *prepared;
    LL_COUNT(session->lg_crcv, prepared, num);
    sum += num;
  }
  return sum;
}

unsigned MostLibcoapDelayed(const coap_context_t *context) {
  unsigned most = 0;
  coap_session_t *session;
  coap_session_t *next;
  SESSIONS_ITER(context->sessions, session, next) {
    unsigned num = 0;
    const coap_queue_t *message;
    LL_COUNT(session->delayqueue, message, num);
    if (num > most) most = num;
  }
  return most;
}

size_t *LibcoapObserverBytes(coap_context_t *context) { return &context->num_observer_bytes; }
