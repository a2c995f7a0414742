/* coap_rpc_lib_traffic.h: what goes through libcoap, for those who only watch. */
#ifndef COAP_RPC_LIB_TRAFFIC_H
#define COAP_RPC_LIB_TRAFFIC_H

#include <coap3/coap.h>

#include "coap_svc/rpc/coap_rpc_types.h"

COAP_RPC_C_BEGIN

/* CoapRpcLibSetTraffic sets who is told of each message that came or was sent, with its length on
 * the wire. */
typedef void (*CoapRpcLibTraffic)(coap_context_t *coapCtx, const coap_pdu_t *pdu, size_t len,
                                  int isOut);
void CoapRpcLibSetTraffic(coap_context_t *coapCtx, CoapRpcLibTraffic traffic);

/* CoapRpcLibSending is a CON message that is not acknowledged. */
typedef struct CoapRpcLibSending {
  const coap_session_t *session;
  const coap_pdu_t *pdu;
  coap_mid_t mid;
  unsigned attempts; /* transmissions so far */
  coap_tick_t age;   /* since the first of them */
} CoapRpcLibSending;

/* CoapRpcLibNextSending finds the request that comes next after a session and a Message ID, by
 * their numbers; a null session is before all others.  Returns 0 when there is none.
 *
 *   isLeftOut   returns 1 for a request that does not count; `arg` is its own */
typedef int (*CoapRpcLibIsLeftOut)(void *arg, const coap_session_t *session, const coap_pdu_t *pdu);
int CoapRpcLibNextSending(const coap_context_t *coapCtx, const coap_session_t *session,
                          coap_mid_t mid, CoapRpcLibIsLeftOut isLeftOut, void *arg,
                          CoapRpcLibSending *out);

/* CoapRpcLibFindSending finds a message of a session.  Returns 0 when it is not being sent. */
int CoapRpcLibFindSending(const coap_session_t *session, coap_mid_t mid, CoapRpcLibSending *out);

/* CoapRpcLibLimitHits is how often a limit of libcoap's took effect so far. */
typedef struct CoapRpcLibLimitHits {
  uint64_t observers; /* registrations beyond the observers of a resource */
  uint64_t idlePeers; /* unused sessions that ended for a new one */
  uint64_t uploads;   /* bodies dropped by CoapRpcLibLimitUploads */
} CoapRpcLibLimitHits;
CoapRpcLibLimitHits CoapRpcLibGetLimitHits(const coap_context_t *coapCtx);

COAP_RPC_C_END
#endif /* COAP_RPC_LIB_TRAFFIC_H */
