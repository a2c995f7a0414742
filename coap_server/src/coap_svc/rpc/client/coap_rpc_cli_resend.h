/* coap_rpc_cli_resend.h: sending a request, and the timer that sends queued ones again.
 *
 * Requests that are to be sent again are on the resend list, in order of appending. */
#ifndef COAP_RPC_CLI_RESEND_H
#define COAP_RPC_CLI_RESEND_H

#include "coap_svc/rpc/client/coap_rpc_cli_data.h"

COAP_RPC_C_BEGIN

/* COAP_RpcTrySendReq opens the libcoap session if need be and sends once.  A plain record that went
 * out is freed.  Returns 0 (also for a null session, doing nothing) or 1900001104. */
COAP_RPC_API uint32_t COAP_RpcTrySendReq(CoapRpcCtx *ctx, CoapRpcCliSession *session,
                                         CoapRpcCliReqData *req);

/* Resend timer, 1001 ms while the list is not empty; a tick logs up to 20 records and sends 19.
 * Start: 0 (also when it runs) or 1900001402.  What callbacks queue during a tick waits for the
 * next one. */
COAP_RPC_API uint32_t COAP_RpcStartReSendReqTimer(CoapRpcCtx *ctx);
COAP_RPC_API uint32_t COAP_RpcReSendReqTimeOut(void *root);
COAP_RPC_API void COAP_RpcTryStopReSendReqTimer(CoapRpcCtx *ctx);

/* COAP_RpcResendRequest counts a too-many-retransmissions report on the first record of that
 * message id. */
COAP_RPC_API void COAP_RpcResendRequest(CoapRpcCtx *ctx, int32_t mid);

COAP_RPC_C_END
#endif /* COAP_RPC_CLI_RESEND_H */
