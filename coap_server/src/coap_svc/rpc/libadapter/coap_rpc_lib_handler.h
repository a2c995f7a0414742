/* coap_rpc_lib_handler.h: the front door, where libcoap hands the adapter requests and events.
 *
 * Behind it are five rooms.  A GET that asks for versions of tuples goes to sync, another request
 * whose URI has a direct entry to direct, any other to serve; of a GET with the Observe option
 * publish has a part as well: first the request is served, then the observer.  An event goes to the
 * room that the message or session belongs to: publish for notifications, direct and serve for
 * asynchronous answers, rpc_call for calls, call for all else.  A response goes to rpc_call if its
 * token is of a call's kind, else to call. */
#ifndef COAP_RPC_LIB_HANDLER_H
#define COAP_RPC_LIB_HANDLER_H

#include <coap3/coap.h>

#include "coap_svc/rpc/coap_rpc_ser.h"
#include "coap_svc/rpc/libadapter/message/coap_rpc_lib_msg.h"

COAP_RPC_C_BEGIN

/* COAP_RpcSerGetHandler, COAP_RpcSerPostHandler: method handlers of every resource. */
COAP_RPC_API void COAP_RpcSerGetHandler(coap_resource_t *resource, coap_session_t *session,
                                        const coap_pdu_t *request, const coap_string_t *query,
                                        coap_pdu_t *response);
COAP_RPC_API void COAP_RpcSerPostHandler(coap_resource_t *resource, coap_session_t *session,
                                         const coap_pdu_t *request, const coap_string_t *query,
                                         coap_pdu_t *response);

/* COAP_RpcCliResponseHandler is libcoap's callback for responses and notifications. */
COAP_RPC_API coap_response_t COAP_RpcCliResponseHandler(coap_session_t *session,
                                                        const coap_pdu_t *sent,
                                                        const coap_pdu_t *received,
                                                        const coap_mid_t mid);

/* COAP_RpcNackhandler, COAP_RpcEventHandler: what became of a message or a session, to the room
 * that it belongs to. */
COAP_RPC_API void COAP_RpcNackhandler(coap_session_t *session, const coap_pdu_t *sent,
                                      const coap_nack_reason_t reason, const coap_mid_t mid);
COAP_RPC_API int COAP_RpcEventHandler(coap_session_t *session, const coap_event_t event);

#ifdef __cplusplus
namespace coap_rpc {

// HandleOrder is what libcoap asks before it does anything because of a response
// (CoapRpcLibSetOrder).
int HandleOrder(coap_session_t *session, const coap_pdu_t *sent, const coap_pdu_t *received);

}  // namespace coap_rpc
#endif

/* COAP_RpcAddUriPath adds the path of a request's entry to the response. */
COAP_RPC_API void COAP_RpcAddUriPath(coap_resource_t *resource, const coap_pdu_t *request,
                                     coap_pdu_t *response, const coap_session_t *session);

/* The rooms' steps for a request, with libcoap's arguments in place of an Exchange. */

/* COAP_RpcSerHandleRequest hands a request with a payload to its entry's callback.
 *
 * Returns 0 or the mode's code or:  1900000369 no entry   1900000382 no memory */
COAP_RPC_API uint32_t COAP_RpcSerHandleRequest(coap_resource_t *resource, coap_session_t *session,
                                               const coap_pdu_t *request,
                                               const coap_string_t *query, coap_pdu_t *response);

/* COAP_RpcSvrHandleReqSync answers at once.
 *
 * Returns 0 or:  1900000244 answer too long   1900000250 failed   1900000254 answered 2.04 */
COAP_RPC_API uint32_t COAP_RpcSvrHandleReqSync(coap_resource_t *resource, coap_session_t *session,
                                               const coap_pdu_t *request,
                                               const coap_string_t *query, coap_pdu_t *response,
                                               CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry,
                                               uint8_t *payload, uint32_t payloadLen,
                                               const CoapRpcMsgInfo *info);

/* COAP_RpcSvrHandleReqAsync registers a request to be answered later, or sends the answer when
 * libcoap runs the handler again.
 *
 * Returns 0, onAsyncRequest's result, or a code with 5.03 set:
 *   1900000321 no support or no handler   1900000331 no session, or too many answers queued
 *   1900000337 not registered   1900001440 too many requests open   1900001441 of this peer */
COAP_RPC_API uint32_t COAP_RpcSvrHandleReqAsync(coap_resource_t *resource, coap_session_t *session,
                                                const coap_pdu_t *request,
                                                const coap_string_t *query, coap_pdu_t *response,
                                                CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry,
                                                uint8_t *payload, uint32_t payloadLen,
                                                const CoapRpcMsgInfo *info);

/* COAP_RpcSerHandleObserveUpdate answers an observe GET: registration, cancel and notification. */
COAP_RPC_API void COAP_RpcSerHandleObserveUpdate(coap_resource_t *resource, coap_session_t *session,
                                                 const coap_pdu_t *request,
                                                 const coap_string_t *query, coap_pdu_t *response);

/* COAP_RpcSerHandleJson, COAP_RpcSerHandleIdl build the payload and hand it to libcoap: code 69
 * with a payload, 65 without. */
COAP_RPC_API void COAP_RpcSerHandleJson(CoapRpcSerUriVtbl *entry, coap_resource_t *resource,
                                        coap_session_t *session, const coap_pdu_t *request,
                                        const coap_string_t *query, coap_pdu_t *response);
COAP_RPC_API void COAP_RpcSerHandleIdl(CoapRpcSerUriVtbl *entry, coap_resource_t *resource,
                                       coap_session_t *session, const coap_pdu_t *request,
                                       const coap_string_t *query, coap_pdu_t *response);

COAP_RPC_C_END
#endif /* COAP_RPC_LIB_HANDLER_H */
