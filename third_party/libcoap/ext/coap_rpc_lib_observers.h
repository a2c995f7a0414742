/* coap_rpc_lib_observers.h: the observers of a resource by what they registered with.
 *
 * Observers of two kinds share a resource: those whose stored request has Uri-Query options, and
 * those whose has none.  They are notified apart: the latter by libcoap, all at once, the former
 * one by one, as the caller says. */
#ifndef COAP_RPC_LIB_OBSERVERS_H
#define COAP_RPC_LIB_OBSERVERS_H

#include <coap3/coap.h>

#include "coap_svc/rpc/coap_rpc_types.h"

COAP_RPC_C_BEGIN

/* CoapRpcLibNotifyUnqueried is coap_resource_notify_observers for those without a query. */
void CoapRpcLibNotifyUnqueried(coap_resource_t *resource);

/* CoapRpcLibBeginRound gives the next notifications of a resource a newer Observe value, and makes
 * the I/O due. */
void CoapRpcLibBeginRound(coap_resource_t *resource);

/* CoapRpcLibOwnerOf returns the place of a pointer that is the caller's, null at first, in
 * libcoap's record of an observer. */
void **CoapRpcLibOwnerOf(coap_subscription_t *observer);

/* CoapRpcLibNotifyOne notifies the observer of a resource with this place now, and
 * CoapRpcLibRequestOf returns its stored request, null for null.  CoapRpcLibNotifyQueried notifies
 * all those of a session that have a query.  Who has to wait is notified by libcoap, as soon as it
 * can be.  Only inside a run of libcoap's I/O, and not inside its callbacks. */
void CoapRpcLibNotifyOne(coap_resource_t *resource, void **owner);
const coap_pdu_t *CoapRpcLibRequestOf(void **owner);
void CoapRpcLibNotifyQueried(coap_resource_t *resource, const void *session);

/* CoapRpcLibDropQueried ends the registrations with a query that a session has.  The session is
 * only compared.  Not inside libcoap's I/O, which may be going through them. */
void CoapRpcLibDropQueried(coap_resource_t *resource, const void *session);

/* CoapRpcLibReplaceObserver registers a request in place of what its session observes under its
 * token: libcoap keeps the former registration.  Only inside the request's handler.  Returns the
 * stored request; null without memory, and nothing is observed then. */
const coap_pdu_t *CoapRpcLibReplaceObserver(coap_resource_t *resource, coap_session_t *session,
                                            const coap_pdu_t *request);

COAP_RPC_C_END
#endif /* COAP_RPC_LIB_OBSERVERS_H */
