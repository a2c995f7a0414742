/* coap_rpc_lib_traffic.h: counts what libcoap tells of messages. */
#ifndef COAP_RPC_LIB_TRAFFIC_OF_STATS_H
#define COAP_RPC_LIB_TRAFFIC_OF_STATS_H

#include <coap3/coap.h>

namespace coap_rpc {

// CountMessage is told of each message that came or was sent.
void CountMessage(coap_context_t *coapCtx, const coap_pdu_t *pdu, size_t len, int isOut);

// CountNack is told what libcoap tells of messages of ours that failed.
void CountNack(const coap_session_t *session, coap_nack_reason_t reason, coap_mid_t mid);

// CountEvent is told of whatever else happens to a session.
void CountEvent(const coap_session_t *session, coap_event_t event);

}  // namespace coap_rpc

#endif /* COAP_RPC_LIB_TRAFFIC_OF_STATS_H */
