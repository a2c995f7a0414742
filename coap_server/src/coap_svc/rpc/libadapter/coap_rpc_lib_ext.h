/* coap_rpc_lib_ext.h: the adapter's operations beyond the slots of the two sides. */
#ifndef COAP_RPC_LIB_EXT_H
#define COAP_RPC_LIB_EXT_H

#include "coap_svc/rpc/common/coap_rpc_ctx.h"

COAP_RPC_C_BEGIN

extern const CoapRpcLibExtOps g_coapRpcLibExtOps;

COAP_RPC_C_END
#endif /* COAP_RPC_LIB_EXT_H */
