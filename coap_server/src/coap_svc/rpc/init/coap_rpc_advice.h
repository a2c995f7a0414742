/* coap_rpc_advice.h: warnings about input that is accepted and can never work.
 *
 * Off until COAP_RpcSetAdvice turns it on.  An entry point hands in what the application gave it,
 * after its own checks and before it acts.  Each rule that the input breaks is one warning and one
 * count; nothing else changes, and no result depends on it.  A warning is logged once for each key,
 * and kMaxAdviceLines of them in all, so that a request in a loop does not fill the log. */
#ifndef COAP_RPC_INIT_ADVICE_H
#define COAP_RPC_INIT_ADVICE_H

#include "coap_svc/rpc/coap_rpc_cli.h"
#include "coap_svc/rpc/coap_rpc_ser.h"

namespace coap_rpc {

// AdviseOnServed: a key is registered by the server.
void AdviseOnServed(CoapRpcCtx *ctx, const CoapRpcUriKey &key, const CoapRpcSerVtblReg &reg,
                    const CoapRpcSerObVtblReg *obReg);

// AdviseOnAttached: a key is attached to an address.
void AdviseOnAttached(CoapRpcCtx *ctx, const CoapRpcUriKey &key, const CoapRpcSerListenAddr &addr);

// AdviseOnCallable: a key is registered by the client.
void AdviseOnCallable(CoapRpcCtx *ctx, const CoapRpcUriKey &key);

// AdviseOnRequest: a request is made; AdviseOnRelation: one that is to observe.
void AdviseOnRequest(CoapRpcCtx *ctx, const CoapRpcUriKey &key, const CoapRpcCliAddr &addr);
void AdviseOnRelation(CoapRpcCtx *ctx, const CoapRpcUriKey &key, const CoapRpcCliAddr &addr);

}  // namespace coap_rpc

#endif /* COAP_RPC_INIT_ADVICE_H */
