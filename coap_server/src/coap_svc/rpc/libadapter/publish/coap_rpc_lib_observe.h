/* coap_rpc_lib_observe.h: observers and their notifications.
 *
 * libcoap keeps an observer as a subscription: the request of its registration, without query.
 *
 *   registered   a GET with Observe 0: COAP_RpcSerAddObserve counts the observer and queues the
 *                whole set as changes
 *   renewed      the same GET again: its query replaces the one that is remembered, and a payload
 *                that is partly fetched ends (NoteObserverQuery)
 *   gone         it cancels, refuses a notification or does not acknowledge it, or its session or
 *                resource ends: COAP_RpcSerDelObserve counts, and puts back what it has not got
 *
 * A registration with a check code that is out of date also queues the application's whole data.
 *
 * Changes become a notification in these steps:
 *
 *   pending      the entry's update timer finds changes once in 1000 ms and calls
 *                COAP_RpcSerNotifyObservers
 *   due          libcoap runs the GET handler for each observer, with the stored request
 *   published    UpdateObserver builds all pending changes into the response of the first observer
 *                (coap_rpc_lib_payload.h) and hands it to libcoap; the others get 2.01 without
 *                payload, as does every answer that travels in an acknowledgement
 *   in flight    until it is known whether it was delivered (coap_rpc_lib_flight.h)
 *
 * Bounds: libcoap refuses more than 1000 observers of a URI; each has one remembered query at most,
 * which is freed when it leaves. */
#ifndef COAP_RPC_LIB_OBSERVE_H
#define COAP_RPC_LIB_OBSERVE_H

#include <coap3/coap.h>

#include "coap_svc/rpc/libadapter/message/coap_rpc_lib_exchange.h"
#include "coap_svc/rpc/libadapter/message/coap_rpc_lib_msg.h"

COAP_RPC_C_BEGIN

/* COAP_RpcSerAddObserve, COAP_RpcSerDelObserve: libcoap's observe tracking functions; `root` is the
 * CoapRpcCtx.  Add returns 1 when the subscription belongs to an observable entry, Del when it
 * belongs to any; else 0. */
COAP_RPC_API int COAP_RpcSerAddObserve(coap_session_t *session, coap_subscription_t *subscription,
                                       coap_proto_t protocol, coap_address_t *listenAddr,
                                       coap_addr_tuple_t *addrInfo, coap_bin_const_t *rawPacket,
                                       coap_bin_const_t *oscoreInfo, void *root);
COAP_RPC_API int COAP_RpcSerDelObserve(coap_session_t *session, coap_subscription_t *subscription,
                                       void *root);

/* COAP_RpcSerOnObserveReq_ tells the application the observer count.  Returns `word`. */
COAP_RPC_API uintptr_t COAP_RpcSerOnObserveReq_(uintptr_t word, CoapRpcSerUriVtbl *entry);

/* COAP_RpcSerProcTupleForNewObserve_ queues every tuple of the set as a change.  Returns the last
 * queuing result, 0 for an empty set. */
COAP_RPC_API uint32_t COAP_RpcSerProcTupleForNewObserve_(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry);

/* COAP_RpcSerNotifyObservers asks libcoap to notify the observers of an entry's resource.
 * Always 0. */
COAP_RPC_API uint32_t COAP_RpcSerNotifyObservers(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry);

/* COAP_RpcSerHandleObserveBatchUpdate queues the application's whole data for an observer whose
 * check code is out of date.
 *
 * Returns 0 or:  1900000707 no check-code query or no GET   1900000714 up to date */
COAP_RPC_API uint32_t COAP_RpcSerHandleObserveBatchUpdate(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry,
                                                          coap_pdu_t *response,
                                                          const CoapRpcMsgInfo *info,
                                                          const coap_string_t *query);

/* CoapRpcObserveForgetQueries frees all remembered queries. */
void CoapRpcObserveForgetQueries(CoapRpcCtx *ctx);

COAP_RPC_C_END

namespace coap_rpc {

// UpdateObserver answers an observe GET: registration, cancel and notification.  It looks the
// exchange's entry up.
void UpdateObserver(Exchange &exchange);

// NoteObserverQuery remembers the query of an observer's latest registration: the peer asks for the
// blocks of later notifications with it.  Ignores requests that register nobody.
void NoteObserverQuery(const Exchange &exchange);

}  // namespace coap_rpc

#endif /* COAP_RPC_LIB_OBSERVE_H */
