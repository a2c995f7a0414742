/* coap_rpc_cli_req.h: making and ending client requests.
 *
 * A plain request lives until it was handed to libcoap; an observe relation until it is ended. */
#ifndef COAP_RPC_CLI_REQ_H
#define COAP_RPC_CLI_REQ_H

#include "coap_svc/rpc/client/coap_rpc_cli_req_data.h"

COAP_RPC_C_BEGIN

/* Module rows; the record is the CoapRpcCliData. */
COAP_RPC_API uint32_t COAP_RpcCliReqInit(void *cli);
COAP_RPC_API uint32_t COAP_RpcCliReqUninit(void *cli);

/* COAP_RpcCliReq finds or makes session and record, binds them, and sends or queues.
 * Returns 0, 1900001101 no session, 1900001102 no record, 1900001103 not sent. */
COAP_RPC_API uint32_t COAP_RpcCliReq(CoapRpcCtx *ctx, const CoapRpcUriKey *key,
                                     const CoapRpcCliReqParam *param, const CoapRpcCliAddr *addr);

/* COAP_RpcCliUnReq cancels and forgets a request and its session when nothing else is bound to it.
 * Always 0. */
COAP_RPC_API uint32_t COAP_RpcCliUnReq(CoapRpcCtx *ctx, const CoapRpcUriKey *key,
                                       const CoapRpcCliReqParam *param, const CoapRpcCliAddr *addr);

/* COAP_RpcCliSetReqMode sets the check-code mode of an existing record; 0 or 1900001105. */
COAP_RPC_API uint32_t COAP_RpcCliSetReqMode(CoapRpcCtx *ctx, const CoapRpcUriKey *key,
                                            const CoapRpcCliReqParam *param,
                                            const CoapRpcCliAddr *addr, uint32_t mode);

COAP_RPC_C_END
#endif /* COAP_RPC_CLI_REQ_H */
