/* coap_rpc_cli_resend.h: sending a request, and the timer that sends queued ones.
 *
 * A request record is
 *
 *   new       made, or found again, by a call
 *   queued    on the resend list, in order of queueing
 *   sent      libcoap has the message and retransmits it by itself: a plain record is freed, that
 *             of a relation stays for the next call
 *   dropped   ended while a function uses it; freed when the last one returns
 *
 * A call sends a plain request at once, and queues it when that fails and it is CON.  It queues the
 * registration of a CON relation, also each renewal, and never sends that of a NON one.
 *
 * Each tick of the timer sends queued records, the oldest first.  What is sent leaves the list;
 * what fails keeps its place until the next tick, as often as it fails.  A renewal that would end a
 * payload which is coming in is passed over.  When libcoap gives up retransmitting, the record only
 * counts it: the application decides whether to call again.
 *
 * Bounds: a tick holds kResendBatchSize records and sends one fewer.  A record is on the list once,
 * so the list is never longer than the table of requests, which only the application's calls fill.
 */
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
