/* coap_rpc_lib_rpc_call_timer.h: the host timer that all calls share. */
#ifndef COAP_RPC_LIB_RPC_CALL_TIMER_H
#define COAP_RPC_LIB_RPC_CALL_TIMER_H

#include "coap_svc/rpc/libadapter/rpc_call/coap_rpc_lib_rpc_call_record.h"

namespace coap_rpc {

// SetCallTimer lets the timer fire no later than the first call is due.  False: it cannot be
// started.
bool SetCallTimer(CoapRpcCtx *ctx);
// WaitFor lets a call be due after a time.
void WaitFor(CoapRpcCtx *ctx, RpcCall *call, uint64_t ms);
void StopCallTimer(CoapRpcCtx *ctx);

}  // namespace coap_rpc

#endif /* COAP_RPC_LIB_RPC_CALL_TIMER_H */
