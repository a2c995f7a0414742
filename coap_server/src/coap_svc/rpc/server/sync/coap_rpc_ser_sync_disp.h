/* coap_rpc_ser_sync_disp.h: the display command "disp server sync", a record for each URI whose
 * tuples have versions.  It is there from the first of them on. */
#ifndef COAP_RPC_SER_SYNC_DISP_H
#define COAP_RPC_SER_SYNC_DISP_H

#include "coap_svc/rpc/common/coap_rpc_ctx.h"

namespace coap_rpc {

// RegisterSyncCommand adds the command to the instance's; again, it does nothing.
void RegisterSyncCommand(const CoapRpcCtx *ctx);

}  // namespace coap_rpc

#endif /* COAP_RPC_SER_SYNC_DISP_H */
