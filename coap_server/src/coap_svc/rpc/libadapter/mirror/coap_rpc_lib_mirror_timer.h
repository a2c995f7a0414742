/* coap_rpc_lib_mirror_timer.h: the host timer that all mirrors share. */
#ifndef COAP_RPC_LIB_MIRROR_TIMER_H
#define COAP_RPC_LIB_MIRROR_TIMER_H

#include "coap_svc/rpc/common/coap_rpc_ctx.h"

namespace coap_rpc {

// SetMirrorTimer lets the timer fire no later than the first mirror is due.  False: it cannot be
// started, and goes on as it was.
bool SetMirrorTimer(CoapRpcCtx *ctx);
void StopMirrorTimer(CoapRpcCtx *ctx);

}  // namespace coap_rpc

#endif /* COAP_RPC_LIB_MIRROR_TIMER_H */
