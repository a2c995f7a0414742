/* coap_rpc_lib_observers.h: the observers of a resource by what they registered with.
 *
 * Observers of two kinds share a resource: those whose stored request has Uri-Query options, and
 * those whose has none.  They are notified apart. */
#ifndef COAP_RPC_LIB_OBSERVERS_H
#define COAP_RPC_LIB_OBSERVERS_H

#include <coap3/coap.h>

#include "coap_svc/rpc/coap_rpc_types.h"

COAP_RPC_C_BEGIN

/* CoapRpcLibNotifyKind is coap_resource_notify_observers for those with a query, or for the others.
 * Returns how many there are. */
unsigned CoapRpcLibNotifyKind(coap_resource_t *resource, int hasQuery);

/* CoapRpcLibDropQueried ends the registrations with a query that a session has.  The session is
 * only compared.  Not inside libcoap's I/O, which may be going through them. */
void CoapRpcLibDropQueried(coap_resource_t *resource, const void *session);

COAP_RPC_C_END
#endif /* COAP_RPC_LIB_OBSERVERS_H */
