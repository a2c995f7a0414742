/* coap_rpc_lib_handler_target.h: client sessions through which asynchronous answers are sent. */
#ifndef COAP_RPC_LIB_HANDLER_TARGET_H
#define COAP_RPC_LIB_HANDLER_TARGET_H

#include <coap3/coap.h>

#include "coap_svc/rpc/common/coap_rpc_ctx.h"

namespace coap_rpc {

// OpenTarget opens a session to `peer`; null on failure, or when too many are open.
coap_session_t *OpenTarget(CoapRpcCtx *ctx, const coap_address_t &peer, coap_proto_t proto);

// CloseTarget gives a session up.  Inside libcoap's I/O, which has fetched the sockets that it will
// serve next, the session stays until the next sweep.
void CloseTarget(CoapRpcCtx *ctx, coap_session_t *session);

// SweepTargets releases the sessions that were given up inside libcoap's I/O.
void SweepTargets(CoapRpcCtx *ctx);

// FreeTargets releases all sessions; to be called before the libcoap context is freed.
void FreeTargets(CoapRpcCtx *ctx);

}  // namespace coap_rpc

#endif /* COAP_RPC_LIB_HANDLER_TARGET_H */
