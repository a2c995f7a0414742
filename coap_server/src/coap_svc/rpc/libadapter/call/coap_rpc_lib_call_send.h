/* coap_rpc_lib_call_send.h: requests from their records to libcoap. */
#ifndef COAP_RPC_LIB_CALL_SEND_H
#define COAP_RPC_LIB_CALL_SEND_H

#include <coap3/coap.h>

#include "coap_svc/rpc/common/coap_rpc_ctx.h"

COAP_RPC_C_BEGIN

typedef struct CoapRpcCliReqData CoapRpcCliReqData;
typedef struct CoapRpcCliSession CoapRpcCliSession;

/* COAP_RpcCliSendRequest builds and sends a request.
 *
 * Returns 0 or:  1900001351 no session   1900001352 no PDU   1900001353 options or payload
 *                1900001354 not sent */
COAP_RPC_API uint32_t COAP_RpcCliSendRequest(CoapRpcCtx *ctx, CoapRpcCliSession *session,
                                             CoapRpcCliReqData *req);

/* COAP_RpcCliAddOptionsAndData fills a request PDU.  Returns 0 or 1900001355 when the payload
 * cannot be built or added; 0 with nothing added when the URI is not registered. */
COAP_RPC_API uint32_t COAP_RpcCliAddOptionsAndData(CoapRpcCtx *ctx, coap_pdu_t *pdu,
                                                   CoapRpcCliSession *session,
                                                   CoapRpcCliReqData *req);

/* COAP_RpcLogPayloadDetail logs a request's payload, in detail when its URI is under diagnosis. */
COAP_RPC_API void COAP_RpcLogPayloadDetail(CoapRpcCtx *ctx, const CoapRpcCliReqData *req,
                                           const CoapRpcCliSession *session, uint32_t len);

/* COAP_RpcCliCancelRequest cancels an observe relation at the peer. */
COAP_RPC_API void COAP_RpcCliCancelRequest(CoapRpcCtx *ctx, CoapRpcCliSession *session,
                                           CoapRpcCliReqData *req);

COAP_RPC_C_END
#endif /* COAP_RPC_LIB_CALL_SEND_H */
