/* coap_rpc_lib_handler.h: a server request from libcoap to the application and back.
 *
 * The handlers have libcoap's own shape.  Codes that the internal functions return end here:
 * libcoap does not look at them. */
#ifndef COAP_RPC_LIB_HANDLER_H
#define COAP_RPC_LIB_HANDLER_H

#include <coap3/coap.h>

#include "coap_svc/rpc/coap_rpc_ser.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_msg.h"

COAP_RPC_C_BEGIN

/* COAP_RpcSerGetHandler, COAP_RpcSerPostHandler: method handlers of every resource. */
COAP_RPC_API void COAP_RpcSerGetHandler(coap_resource_t *resource, coap_session_t *session,
                                        const coap_pdu_t *request, const coap_string_t *query,
                                        coap_pdu_t *response);
COAP_RPC_API void COAP_RpcSerPostHandler(coap_resource_t *resource, coap_session_t *session,
                                         const coap_pdu_t *request, const coap_string_t *query,
                                         coap_pdu_t *response);

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

/* COAP_GetRpcData calls onRequest with the shared answer buffer.  Returns its result, or -2 when
 * the buffer cannot be allocated. */
COAP_RPC_API int32_t COAP_GetRpcData(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry, uint8_t *payload,
                                     uint32_t payloadLen, const CoapRpcMsgInfo *info);

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

/* COAP_RpcSvrGetTargetSession returns the client session to port 5683 of a request's peer, cached
 * in the entry for as long as the peer address stays the same, and kept for that peer for a while
 * after; null on failure. */
COAP_RPC_API coap_session_t *COAP_RpcSvrGetTargetSession(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry,
                                                         const coap_session_t *session);

/* COAP_RpcReleaseAsyncRequest is the release function of asynchronous answers. */
COAP_RPC_API void COAP_RpcReleaseAsyncRequest(coap_session_t *session, void *payload);

/* COAP_RpcAddUriPath adds the path of a request's entry to the response. */
COAP_RPC_API void COAP_RpcAddUriPath(coap_resource_t *resource, const coap_pdu_t *request,
                                     coap_pdu_t *response, const coap_session_t *session);

/* COAP_RpcSvrHandleSetResponseHeader sets code 0.02, the entry's message type and its path. */
COAP_RPC_API void COAP_RpcSvrHandleSetResponseHeader(coap_pdu_t *response,
                                                     const CoapRpcSerUriVtbl *entry,
                                                     CoapRpcCtx *ctx);

/* CoapRpcHandlerTick releases what libcoap holds longer than needed; to be called after each turn
 * of the I/O task.  CoapRpcHandlerIsRetaining says whether there is anything to release, or an
 * answer is queued whose turn may have come. */
void CoapRpcHandlerTick(CoapRpcCtx *ctx);
int CoapRpcHandlerIsRetaining(const CoapRpcCtx *ctx);

/* CoapRpcHandlerStop drops pending asynchronous requests; to be called before the libcoap context
 * is freed.  CoapRpcHandlerFree frees the rest after that. */
void CoapRpcHandlerStop(CoapRpcCtx *ctx);
void CoapRpcHandlerFree(CoapRpcCtx *ctx);

COAP_RPC_C_END
#endif /* COAP_RPC_LIB_HANDLER_H */
