/* coap_rpc_lib_call_pdu.h: options and token of a request. */
#ifndef COAP_RPC_LIB_CALL_PDU_H
#define COAP_RPC_LIB_CALL_PDU_H

#include <coap3/coap.h>

#include "coap_svc/rpc/common/coap_rpc_ctx.h"

COAP_RPC_C_BEGIN

typedef struct CoapRpcCliReqData CoapRpcCliReqData;
typedef struct CoapRpcCliSession CoapRpcCliSession;
typedef struct CoapRpcCliUriVtbl CoapRpcCliUriVtbl;

/* COAP_RpcCliAddPduOption adds token and options.
 *
 *   scratch   bytes for encoding option values, at least 4
 *
 * Returns the size of the last option added, 0 when it could not be. */
COAP_RPC_API uint32_t COAP_RpcCliAddPduOption(CoapRpcCtx *ctx, CoapRpcCliUriVtbl *uriVtbl,
                                              coap_pdu_t *pdu, uint8_t *scratch,
                                              CoapRpcCliSession *session, CoapRpcCliReqData *req);

/* COAP_RpcCliAddCheckCode adds the check-code query that the request's mode asks for and sets the
 * mode back to plain. */
COAP_RPC_API void COAP_RpcCliAddCheckCode(coap_pdu_t *pdu, const CoapRpcCliUriVtbl *uriVtbl,
                                          CoapRpcCliReqData *req);

COAP_RPC_C_END
#endif /* COAP_RPC_LIB_CALL_PDU_H */
