/* coap_rpc_cli.h (init): checks shared by the client's entry points. */
#ifndef COAP_RPC_INIT_CLI_H
#define COAP_RPC_INIT_CLI_H

#include "coap_svc/rpc/coap_rpc_cli.h"

COAP_RPC_C_BEGIN

/* COAP_RpcCliCheckAddrValid returns 1 when source and destination are of one known family and
 * differ, else 0. */
COAP_RPC_API uint32_t COAP_RpcCliCheckAddrValid(const CoapRpcCliAddr *addr);

COAP_RPC_C_END
#endif /* COAP_RPC_INIT_CLI_H */
