/* coap_rpc_lib_request.h: a server request from libcoap to the application and back.
 *
 * A request with a payload goes to the entry that its path, message type, Observe option and local
 * address lead to.  The entry's mode decides:
 *
 *   synchronous    onRequest is called with the shared answer buffer, and the response is made of
 *                  what it returns: nothing, 2.04, or 2.01 with cleared bytes
 *   asynchronous   onAsyncRequest is given a handle; the response is empty.  The answer is a POST
 *                  to port 5683 of the asker (coap_rpc_lib_async.h), and such a POST that comes in
 *                  is an answer to a call of ours
 *
 * For the second, libcoap runs the handler once more when the answer leaves: such a run is told by
 * its token before anything is looked up.  Codes that these functions return end in the handler:
 * libcoap does not look at them. */
#ifndef COAP_RPC_LIB_REQUEST_H
#define COAP_RPC_LIB_REQUEST_H

#include <coap3/coap.h>

#include "coap_svc/rpc/coap_rpc_ser.h"
#include "coap_svc/rpc/libadapter/message/coap_rpc_lib_exchange.h"
#include "coap_svc/rpc/libadapter/message/coap_rpc_lib_msg.h"

COAP_RPC_C_BEGIN

/* COAP_GetRpcData calls onRequest with the shared answer buffer.  Returns its result, or -2 when
 * the buffer cannot be allocated. */
COAP_RPC_API int32_t COAP_GetRpcData(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry, uint8_t *payload,
                                     uint32_t payloadLen, const CoapRpcMsgInfo *info);

/* COAP_RpcSvrGetTargetSession returns the client session to port 5683 of a request's peer, cached
 * in the entry for as long as the peer address stays the same, and kept for that peer for a while
 * after; null on failure. */
COAP_RPC_API coap_session_t *COAP_RpcSvrGetTargetSession(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry,
                                                         const coap_session_t *session);

COAP_RPC_C_END

namespace coap_rpc {

// HandleRequest is COAP_RpcSerHandleRequest (coap_rpc_lib_handler.h); it looks the exchange's entry
// up.  AnswerSync and AnswerAsync are its two modes.
uint32_t HandleRequest(Exchange &exchange);
uint32_t AnswerSync(const Exchange &exchange, uint8_t *payload, uint32_t len,
                    const CoapRpcMsgInfo &info);
uint32_t AnswerAsync(const Exchange &exchange, uint8_t *payload, uint32_t len);

// IsNotification says whether libcoap is running the handler for an observer and not for a message.
bool IsNotification(const Exchange &exchange);

}  // namespace coap_rpc

#endif /* COAP_RPC_LIB_REQUEST_H */
