/* coap_rpc_cli_uri.h: registered client URIs. */
#ifndef COAP_RPC_CLI_URI_H
#define COAP_RPC_CLI_URI_H

#include "coap_svc/rpc/client/coap_rpc_cli_data.h"

COAP_RPC_C_BEGIN

/* CoapRpcCliUriVtbl is one registered client URI. */
struct CoapRpcCliUriVtbl {
  OSAL_AVL3_NODE node;
  CoapRpcUriKey key;
  CoapRpcCliVtblReg reg;
  uint64_t checkCode; /* ETag of the last response that carried one; 0 at registration */
};

/* Module rows; the record is the CoapRpcCliData. */
COAP_RPC_API uint32_t COAP_RpcCliVtblInit(void *cli);
COAP_RPC_API uint32_t COAP_RpcCliVtblUninit(void *cli);
COAP_RPC_API uint32_t COAP_RpcCliUriInit(void *cli);
COAP_RPC_API uint32_t COAP_RpcCliUriUninit(void *cli);

/* COAP_RpcUriRegCliVtbl registers; an existing entry stays as it is.
 * Returns 0 or 1900001051 when the entry cannot be made. */
COAP_RPC_API uint32_t COAP_RpcUriRegCliVtbl(CoapRpcCliData *cli, const CoapRpcUriKey *key,
                                            const CoapRpcCliVtblReg *reg);

/* COAP_RpcCliAddUriVtbl makes an entry; null without memory or for a key that is there already. */
COAP_RPC_API CoapRpcCliUriVtbl *COAP_RpcCliAddUriVtbl(CoapRpcCliData *cli, const CoapRpcUriKey *key,
                                                      const CoapRpcCliVtblReg *reg);
COAP_RPC_API void COAP_RpcCliDelUriVtbl(CoapRpcCliData *cli, CoapRpcCliUriVtbl *uriVtbl);

/* Find by key; first in key order; first with a key greater than `key`. */
COAP_RPC_API CoapRpcCliUriVtbl *COAP_RpcCliFindUriVtbl(CoapRpcCliData *cli,
                                                       const CoapRpcUriKey *key);
COAP_RPC_API CoapRpcCliUriVtbl *COAP_RpcCliFindFirstUriVtbl(CoapRpcCliData *cli);
COAP_RPC_API CoapRpcCliUriVtbl *COAP_RpcCliFindNextUriVtbl(CoapRpcCliData *cli,
                                                           const CoapRpcUriKey *key);

COAP_RPC_C_END
#endif /* COAP_RPC_CLI_URI_H */
