/* coap_rpc_lib_ticks.h: where libcoap's time comes from.
 *
 * The coap_ticks() of libcoap's own file is compiled under another name, and this part has the
 * coap_ticks() that libcoap calls. */
#ifndef COAP_RPC_LIB_TICKS_H
#define COAP_RPC_LIB_TICKS_H

#include "coap_svc/rpc/coap_rpc_types.h"

COAP_RPC_C_BEGIN

/* CoapRpcLibSetClock takes libcoap's time from milliseconds that `nowMs` gives; null: the system.
 */
void CoapRpcLibSetClock(uint64_t (*nowMs)(void));

COAP_RPC_C_END
#endif /* COAP_RPC_LIB_TICKS_H */
