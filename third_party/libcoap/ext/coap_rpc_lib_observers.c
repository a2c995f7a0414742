#include "coap3/coap_internal.h"

#include "libcoap/ext/coap_rpc_lib_observers.h"

/* The greatest option of most registrations is their path or their query, so that the options of
 * a thousand observers need not be read for each round. */
static int HasQuery(const coap_subscription_t *observer) {
  coap_opt_iterator_t it;
  if (observer->pdu->max_opt <= COAP_OPTION_URI_QUERY) {
    return observer->pdu->max_opt == COAP_OPTION_URI_QUERY;
  }
  return coap_check_option(observer->pdu, COAP_OPTION_URI_QUERY, &it) != NULL;
}

static unsigned MarkUnqueried(coap_resource_t *resource) {
  unsigned num = 0;
  coap_subscription_t *observer;
  LL_FOREACH(resource->subscribers, observer) {
    if (HasQuery(observer)) continue;
    observer->dirty = 1;
    ++num;
  }
  return num;
}

/* libcoap looks at each observer of a resource that is partially dirty. */
void CoapRpcLibNotifyUnqueried(coap_resource_t *resource) {
  if (!resource->observable || MarkUnqueried(resource) == 0) return;
  resource->partiallydirty = 1;
  resource->context->observe_pending = 1;
  CoapRpcLibBeginRound(resource);
}

/* The I/O is woken, because who begins a round wants it to be sent. */
void CoapRpcLibBeginRound(coap_resource_t *resource) {
  resource->observe = (resource->observe + 1) & 0xFFFFFF;
  coap_update_io_timer(resource->context, 0);
}

void **CoapRpcLibOwnerOf(coap_subscription_t *observer) { return &observer->owner; }

static coap_subscription_t *ObserverOf(void **owner) {
  return (coap_subscription_t *)(void *)((char *)owner - offsetof(coap_subscription_t, owner));
}

void CoapRpcLibNotifyOne(coap_resource_t *resource, void **owner) {
  coap_notify_observer(resource, ObserverOf(owner));
}

const coap_pdu_t *CoapRpcLibRequestOf(void **owner) {
  return owner ? ObserverOf(owner)->pdu : NULL;
}

/* An observer that cannot be notified may go meanwhile, and only that one. */
void CoapRpcLibNotifyQueried(coap_resource_t *resource, const void *session) {
  coap_subscription_t *observer;
  coap_subscription_t *next;
  LL_FOREACH_SAFE(resource->subscribers, observer, next) {
    if (observer->session == session && HasQuery(observer))
      coap_notify_observer(resource, observer);
  }
}

static coap_subscription_t *FirstQueriedOf(const coap_resource_t *resource, const void *session) {
  coap_subscription_t *observer;
  LL_FOREACH(resource->subscribers, observer) {
    if (observer->session == session && HasQuery(observer)) return observer;
  }
  return NULL;
}

/* Callbacks run meanwhile, so each search starts from the beginning. */
void CoapRpcLibDropQueried(coap_resource_t *resource, const void *session) {
  coap_subscription_t *observer;
  while ((observer = FirstQueriedOf(resource, session)) != NULL) {
    coap_delete_observer(resource, observer->session, &observer->pdu->actual_token);
  }
}

const coap_pdu_t *CoapRpcLibReplaceObserver(coap_resource_t *resource, coap_session_t *session,
                                            const coap_pdu_t *request) {
  const coap_bin_const_t *token = &request->actual_token;
  coap_delete_observer(resource, session, token);
  const coap_subscription_t *observer = coap_add_observer(resource, session, token, request);
  return observer ? observer->pdu : NULL;
}
