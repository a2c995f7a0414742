/* coap_rpc_lib_call_event.h: lost peers, and requests that were not delivered. */
#ifndef COAP_RPC_LIB_CALL_EVENT_H
#define COAP_RPC_LIB_CALL_EVENT_H

#include <coap3/coap.h>

#include "coap_svc/rpc/common/coap_rpc_ctx.h"

COAP_RPC_C_BEGIN

/* CoapRpcCallGiveUp handles a message of a client session that libcoap has given up or that was
 * refused; `sent` may be null. */
void CoapRpcCallGiveUp(coap_session_t *session, const coap_pdu_t *sent, coap_nack_reason_t reason,
                       coap_mid_t mid);

/* CoapRpcCallLeaveStale lets a session that has given a message up send from the address that the
 * machine has now, and tells of the disconnection when it has to. */
void CoapRpcCallLeaveStale(coap_session_t *session);

/* CoapRpcCallRetransmitted handles a message of a client session that was sent again. */
void CoapRpcCallRetransmitted(coap_session_t *session);

/* COAP_RpcLogNackInfo logs a NACK; `sent` may be null. */
COAP_RPC_API void COAP_RpcLogNackInfo(CoapRpcCtx *ctx, const coap_pdu_t *sent, uint32_t reason,
                                      int32_t mid);

/* COAP_RpcDisConnectedEventHandler tells every registered URI that a session's peer is gone. */
COAP_RPC_API void COAP_RpcDisConnectedEventHandler(coap_session_t *session);

COAP_RPC_C_END
#endif /* COAP_RPC_LIB_CALL_EVENT_H */
