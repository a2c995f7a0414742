/* coap_rpc_lib_order.h: the order of a relation's notifications, whoever keeps the relation.
 *
 * The story is told at the head of the source file. */
#ifndef COAP_RPC_LIB_ORDER_H
#define COAP_RPC_LIB_ORDER_H

#include <coap3/coap.h>

#include "coap_svc/rpc/client/coap_rpc_cli_relation.h"
#include "coap_svc/rpc/common/coap_rpc_ctx.h"

namespace coap_rpc {

// OrderResponse says what to do with a response of a relation, before libcoap does anything because
// of it: one of the values that CoapRpcLibSetOrder names (coap_rpc_lib_internals.h).
int OrderResponse(CoapRpcCliData *cli, CoapRpcCliRelation *rel, coap_session_t *session,
                  const coap_pdu_t *sent, const coap_pdu_t *received);

// IsOvertaken says whether a whole payload came in blocks while a newer one did in one message, and
// counts it.
bool IsOvertaken(CoapRpcCliData *cli, CoapRpcCliRelation *rel, const coap_pdu_t *received);

// AwaitAnswer notes that the relation's registration was sent.
void AwaitAnswer(CoapRpcCliRelation *rel);

}  // namespace coap_rpc

#endif /* COAP_RPC_LIB_ORDER_H */
