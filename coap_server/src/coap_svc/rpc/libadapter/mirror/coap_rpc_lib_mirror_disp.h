/* coap_rpc_lib_mirror_disp.h: the display command "disp client mirror", a record for each mirror.
 * It is there from the first of them on. */
#ifndef COAP_RPC_LIB_MIRROR_DISP_H
#define COAP_RPC_LIB_MIRROR_DISP_H

#include "coap_svc/rpc/common/coap_rpc_ctx.h"

namespace coap_rpc {

// RegisterMirrorCommand adds the command to the instance's.
void RegisterMirrorCommand(const CoapRpcCtx *ctx);

}  // namespace coap_rpc

#endif /* COAP_RPC_LIB_MIRROR_DISP_H */
