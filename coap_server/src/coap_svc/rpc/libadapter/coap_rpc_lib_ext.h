/* coap_rpc_lib_ext.h: what server and client ask of the adapter beyond their slots.
 *
 * They know only the type (common/coap_rpc_ctx.h).  Each operation is a function of the part that
 * does it. */
#ifndef COAP_RPC_LIB_EXT_H
#define COAP_RPC_LIB_EXT_H

#include "coap_svc/rpc/common/coap_rpc_ctx.h"

COAP_RPC_C_BEGIN

extern const CoapRpcLibExtOps g_coapRpcLibExtOps;

COAP_RPC_C_END
#endif /* COAP_RPC_LIB_EXT_H */
