/* Place holders until the change list is built; weak, so that the real functions take over. */
#include "coap_svc/rpc/server/coap_rpc_ser_observe.h"

extern "C" {
__attribute__((weak)) void CoapRpcSerOrphanChgs(CoapRpcSerUriVtbl *) {}
__attribute__((weak)) void CoapRpcSerFreeOrphanChgs(CoapRpcCtx *) {}
}
