/* coap_rpc_lib_handler.h: the front door, where libcoap hands the adapter requests and events.
 *
 * Behind it are three rooms.  A request goes to serve; of a GET with the Observe option publish has
 * a part as well: first the request is served, then the observer.  An event goes to the room that
 * the message or session belongs to: publish for notifications, serve for asynchronous answers, call
 * for all else.  Responses go to call directly. */
#ifndef COAP_RPC_LIB_HANDLER_H
#define COAP_RPC_LIB_HANDLER_H

#include <coap3/coap.h>

#include "coap_svc/rpc/libadapter/message/coap_rpc_lib_msg.h"

COAP_RPC_C_BEGIN

/* COAP_RpcSerGetHandler, COAP_RpcSerPostHandler: method handlers of every resource. */
COAP_RPC_API void COAP_RpcSerGetHandler(coap_resource_t *resource, coap_session_t *session,
                                        const coap_pdu_t *request, const coap_string_t *query,
                                        coap_pdu_t *response);
COAP_RPC_API void COAP_RpcSerPostHandler(coap_resource_t *resource, coap_session_t *session,
                                         const coap_pdu_t *request, const coap_string_t *query,
                                         coap_pdu_t *response);

/* COAP_RpcNackhandler, COAP_RpcEventHandler: what became of a message or a session, to the room that
 * it belongs to. */
COAP_RPC_API void COAP_RpcNackhandler(coap_session_t *session, const coap_pdu_t *sent,
                                      const coap_nack_reason_t reason, const coap_mid_t mid);
COAP_RPC_API int COAP_RpcEventHandler(coap_session_t *session, const coap_event_t event);

/* COAP_RpcAddUriPath adds the path of a request's entry to the response. */
COAP_RPC_API void COAP_RpcAddUriPath(coap_resource_t *resource, const coap_pdu_t *request,
                                     coap_pdu_t *response, const coap_session_t *session);

COAP_RPC_C_END
#endif /* COAP_RPC_LIB_HANDLER_H */
