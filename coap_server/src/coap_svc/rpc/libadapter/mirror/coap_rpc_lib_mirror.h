/* coap_rpc_lib_mirror.h: the life of a mirror in its instance.
 *
 * The story is told at the head of the source file. */
#ifndef COAP_RPC_LIB_MIRROR_H
#define COAP_RPC_LIB_MIRROR_H

#include "coap_svc/rpc/common/coap_rpc_ctx.h"

namespace coap_rpc {

// ServeMirrors sends what the messages of a turn have given mirrors to ask, SettleMirrors frees
// those that were closed: steps of a turn of the I/O (coap_rpc_lib_parts.h).
void ServeMirrors(CoapRpcCtx *ctx);
void SettleMirrors(CoapRpcCtx *ctx);

// StopMirrors closes all mirrors; none can be opened after.  FreeMirrors frees what they shared.
void StopMirrors(CoapRpcCtx *ctx);
void FreeMirrors(CoapRpcCtx *ctx);

}  // namespace coap_rpc

#endif /* COAP_RPC_LIB_MIRROR_H */
