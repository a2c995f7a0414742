/* coap_rpc_lib_relation.h: relations of base requests: order of their notifications, and deferred
 * renewals.
 *
 * The story is told at the head of the source file. */
#ifndef COAP_RPC_LIB_RELATION_H
#define COAP_RPC_LIB_RELATION_H

#include <coap3/coap.h>

#include "coap_svc/rpc/common/coap_rpc_ctx.h"

COAP_RPC_C_BEGIN

typedef struct CoapRpcCliReqData CoapRpcCliReqData;

/* CoapRpcRelationOrder says what to do with a response, before libcoap does anything because of it:
 * kCoapRpcLibOld, kCoapRpcLibFresh or kCoapRpcLibBeside (coap_rpc_lib_internals.h). */
int CoapRpcRelationOrder(coap_session_t *session, const coap_pdu_t *sent,
                         const coap_pdu_t *received);

/* CoapRpcRelationIsOvertaken returns 1, and counts it, for a whole payload that came in blocks
 * while a newer one did in one message; else 0. */
uint32_t CoapRpcRelationIsOvertaken(coap_session_t *session, const coap_pdu_t *received);

/* CoapRpcRelationSent notes that the relation's registration was sent; nothing for a plain request.
 */
void CoapRpcRelationSent(CoapRpcCliReqData *req);

/* CoapRpcRelationMustWait returns 1 while sending the relation's registration again would end a
 * payload that is coming in, and the payload is the one that it began to wait for; else 0. */
uint32_t CoapRpcRelationMustWait(CoapRpcCliReqData *req);

COAP_RPC_C_END
#endif /* COAP_RPC_LIB_RELATION_H */
