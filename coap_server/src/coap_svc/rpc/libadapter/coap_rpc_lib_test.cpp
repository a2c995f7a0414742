/* coap_rpc_lib_test.cpp: what test programs set. */
#include "coap_svc/rpc/coap_rpc_test.h"
#include "libcoap/ext/coap_rpc_lib_ticks.h"

void COAP_RpcTestSetClock(CoapRpcTestClock nowMs) { CoapRpcLibSetClock(nowMs); }
