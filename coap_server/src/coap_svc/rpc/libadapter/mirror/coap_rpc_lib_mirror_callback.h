/* coap_rpc_lib_mirror_callback.h: callbacks of mirrors, timed as all others are. */
#ifndef COAP_RPC_LIB_MIRROR_CALLBACK_H
#define COAP_RPC_LIB_MIRROR_CALLBACK_H

#include "coap_svc/rpc/libadapter/mirror/coap_rpc_lib_mirror_record.h"

namespace coap_rpc {

// TimedParam keeps an application's parameters in a mirror, and returns them with callbacks that
// count their time.  What is null stays so.
CoapRpcMirrorParam TimedParam(CoapRpcMirror *mirror, const CoapRpcMirrorParam &param);

}  // namespace coap_rpc

#endif /* COAP_RPC_LIB_MIRROR_CALLBACK_H */
