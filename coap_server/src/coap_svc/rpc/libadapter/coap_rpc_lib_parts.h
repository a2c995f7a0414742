/* coap_rpc_lib_parts.h: what happens to the parts of the adapter in an instance's life.
 *
 * The rooms serve, direct, publish, mirror and rpc_call hold records of their own in the adapter's record.
 * Each kind has a row in the table of coap_rpc_lib_parts.cpp, which says what its part does at each
 * of these moments; I/O knows nothing else of them.  What call holds is the client's, and has no
 * row. */
#ifndef COAP_RPC_LIB_PARTS_H
#define COAP_RPC_LIB_PARTS_H

#include "coap_svc/rpc/common/coap_rpc_ctx.h"

COAP_RPC_C_BEGIN

/* CoapRpcPartsServe lets them hand libcoap what callbacks have left for it; the last step of a turn
 * of libcoap's I/O, inside it. */
void CoapRpcPartsServe(CoapRpcCtx *ctx);

/* CoapRpcPartsSettle lets them release what the turn left unused; after it, outside libcoap. */
void CoapRpcPartsSettle(CoapRpcCtx *ctx);

/* CoapRpcPartsTick lets them do what is due, outside libcoap; at least ten times a second while
 * CoapRpcPartsNeedTick returns 1. */
void CoapRpcPartsTick(CoapRpcCtx *ctx);
int CoapRpcPartsNeedTick(const CoapRpcCtx *ctx);

/* CoapRpcPartsLeave lets them tell the application what the instance's end means, while everything
 * is there. */
void CoapRpcPartsLeave(CoapRpcCtx *ctx);

/* CoapRpcPartsStop lets them release what refers to libcoap, before libcoap's context is freed, and
 * CoapRpcPartsFree what freeing it still needed, after. */
void CoapRpcPartsStop(CoapRpcCtx *ctx);
void CoapRpcPartsFree(CoapRpcCtx *ctx);

/* CoapRpcPartsForgetEntry lets them drop what refers to an entry that is about to be freed. */
void CoapRpcPartsForgetEntry(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry);

/* CoapRpcPartsForgetEndPoint lets them release the sessions of an endpoint that is given up. */
void CoapRpcPartsForgetEndPoint(CoapRpcCtx *ctx, const coap_endpoint_t *endPoint);

COAP_RPC_C_END
#endif /* COAP_RPC_LIB_PARTS_H */
