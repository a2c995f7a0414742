/* coap_rpc_lib_quoted.h: ICMP errors, with the datagrams that they are about.
 *
 * A socket tells of an error with the next thing that is done with it, whatever the error is about.
 * One that quotes them has a queue of errors as well, each with the beginning of its datagram. */
#ifndef COAP_RPC_LIB_QUOTED_H
#define COAP_RPC_LIB_QUOTED_H

#include <coap3/coap.h>

#include "coap_svc/rpc/coap_rpc_types.h"

COAP_RPC_C_BEGIN

/* CoapRpcLibQuoted is what a session has sent and the network has not delivered. */
typedef struct CoapRpcLibQuoted {
  uint32_t isFinal;   /* nobody is there; else it may pass, and other sockets are not told of it */
  uint32_t isRequest; /* the datagram began a request or one of its blocks */
  size_t tokenLen;    /* of the request that it belongs to */
  uint8_t token[8];
} CoapRpcLibQuoted;

/* CoapRpcLibQuoteErrors lets a client session's socket quote errors; one that cannot stays as it
 * is.  CoapRpcLibQuotesErrors says whether it does. */
void CoapRpcLibQuoteErrors(coap_session_t *session);
int CoapRpcLibQuotesErrors(const coap_session_t *session);

/* CoapRpcLibNextQuoted takes the next error from the queue; 0 when it is empty. */
int CoapRpcLibNextQuoted(const coap_session_t *session, CoapRpcLibQuoted *out);

/* CoapRpcLibSetErrors sets who takes the errors of sessions that quote them, when one has nothing
 * to read.  Returns 1 when nobody else has to know of an error. */
typedef int (*CoapRpcLibErrors)(coap_session_t *session);
void CoapRpcLibSetErrors(coap_context_t *coapCtx, CoapRpcLibErrors errors);

COAP_RPC_C_END
#endif /* COAP_RPC_LIB_QUOTED_H */
