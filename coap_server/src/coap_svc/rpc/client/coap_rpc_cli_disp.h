/* coap_rpc_cli_disp.h: display commands that print the client tables. */
#ifndef COAP_RPC_CLI_DISP_H
#define COAP_RPC_CLI_DISP_H

#include "coap_svc/rpc/client/coap_rpc_cli_data.h"

COAP_RPC_C_BEGIN

/* Module rows; the record is the CoapRpcCliData.  Uninit returns the low 32 bits of its argument.
 */
COAP_RPC_API uint32_t COAP_RpcCliDispInit(void *cli);
COAP_RPC_API uint32_t COAP_RpcCliDispUninit(void *cli);

/* Command handlers; `ctx` is the CoapRpcCtx, uniStartIndex (uint32_t) follows for requests and
 * sessions.  Each prints one record per invocation. */
COAP_RPC_API uint32_t COAP_RpcDispCliVtbl_(void *ctx, ...);
COAP_RPC_API uint32_t COAP_RpcDispCliRequest_(void *ctx, ...);
COAP_RPC_API uint32_t COAP_RpcDispCliSession_(void *ctx, ...);

/* Record texts.  All return buf. */
COAP_RPC_API char *COAP_RpcGetCliUriVtblStr_(const CoapRpcCliUriVtbl *uriVtbl, char *buf,
                                             uint32_t size);
COAP_RPC_API char *COAP_RpcGetCliReqDataStr_(const CoapRpcCliData *cli,
                                             const CoapRpcCliReqData *req, char *buf,
                                             uint32_t size);
COAP_RPC_API char *COAP_RpcGetCliSessionStr_(const CoapRpcCliData *cli,
                                             const CoapRpcCliSession *session, char *buf,
                                             uint32_t size);

COAP_RPC_C_END
#endif /* COAP_RPC_CLI_DISP_H */
