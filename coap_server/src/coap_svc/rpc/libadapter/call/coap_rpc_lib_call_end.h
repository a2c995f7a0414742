/* coap_rpc_lib_call_end.h: which request a message from libcoap ends (coap_rpc_cli_end.h).
 */
#ifndef COAP_RPC_LIB_CALL_END_H
#define COAP_RPC_LIB_CALL_END_H

#include <coap3/coap.h>

#include "coap_svc/rpc/client/coap_rpc_cli_end.h"

namespace coap_rpc {

// TakeAnswered takes the open request that a response belongs to; null for one that nobody follows.
// `sent` is what the response acknowledges, null without.
PoolPtr<OpenReq> TakeAnswered(CoapRpcCtx *ctx, const coap_session_t *session,
                              const coap_pdu_t *sent, const coap_pdu_t *received);

// EndByNack tells the end of a request that libcoap has given up or the peer has refused.  After an
// ICMP error libcoap goes on; it is what a later end is put down to.
void EndByNack(CoapRpcCtx *ctx, const coap_session_t *session, const coap_pdu_t *sent,
               coap_nack_reason_t reason, coap_mid_t mid);

// IsUnderWay says whether libcoap still has a request, or a body that may belong to it.
uint32_t IsUnderWay(const coap_session_t *session, int32_t mid);

}  // namespace coap_rpc

#endif /* COAP_RPC_LIB_CALL_END_H */
