/* coap_rpc_lib_rpc_call_watch.h: observations: registered, renewed, left.
 *
 * The story is told at the head of the source file. */
#ifndef COAP_RPC_LIB_RPC_CALL_WATCH_H
#define COAP_RPC_LIB_RPC_CALL_WATCH_H

#include "coap_svc/rpc/libadapter/rpc_call/coap_rpc_lib_rpc_call_record.h"

namespace coap_rpc {

// BeginWatch makes a call, whose message is built, an observation.  False without memory.
bool BeginWatch(CoapRpcCtx *ctx, RpcCall *call);

// TakeNotification hands an answer or a notification to the application.
void TakeNotification(CoapRpcCtx *ctx, RpcCall *call, const coap_pdu_t *message);

// RenewWatch registers again.
void RenewWatch(CoapRpcCtx *ctx, RpcCall *call);

// LeaveWatch tells the server of a cancelled observation.  False: libcoap has nothing to cancel.
bool LeaveWatch(RpcCall *call);

}  // namespace coap_rpc

#endif /* COAP_RPC_LIB_RPC_CALL_WATCH_H */
