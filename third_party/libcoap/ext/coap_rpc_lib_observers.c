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

static unsigned MarkKind(coap_resource_t *resource, int hasQuery) {
  unsigned num = 0;
  coap_subscription_t *observer;
  LL_FOREACH(resource->subscribers, observer) {
    if (HasQuery(observer) != hasQuery) continue;
    observer->dirty = 1;
    ++num;
  }
  return num;
}

/* libcoap looks at each observer of a resource that is partially dirty. */
unsigned CoapRpcLibNotifyKind(coap_resource_t *resource, int hasQuery) {
  const unsigned num = resource->observable ? MarkKind(resource, hasQuery) : 0;
  if (num == 0) return 0;
  resource->partiallydirty = 1;
  resource->observe = (resource->observe + 1) & 0xFFFFFF;
  resource->context->observe_pending = 1;
  coap_update_io_timer(resource->context, 0);
  return num;
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
