/* coap_rpc_test.h: for test programs only, and for hosts that are made for them. */
#ifndef COAP_RPC_TEST_H
#define COAP_RPC_TEST_H

#include "coap_svc/rpc/coap_rpc_types.h"

COAP_RPC_C_BEGIN

/* CoapRpcTestClock tells milliseconds, of any beginning.  They must not decrease. */
typedef uint64_t (*CoapRpcTestClock)(void);

/* COAP_RpcTestSetClock makes CoAP's own time that of a test: retransmissions, lifetimes, idle
 * sessions and keep-alive of all instances of the process.  The host's timers are its own business.
 * Initially the system's monotonic clock.
 *
 * Call it while no instance exists: for one that does, time would jump.
 *
 *   nowMs   null: the system's clock again */
COAP_RPC_API void COAP_RpcTestSetClock(CoapRpcTestClock nowMs);

COAP_RPC_C_END
#endif /* COAP_RPC_TEST_H */
