/* coap_rpc_lib_call_response.h: responses and notifications to the application. */
#ifndef COAP_RPC_LIB_CALL_RESPONSE_H
#define COAP_RPC_LIB_CALL_RESPONSE_H

#include <coap3/coap.h>

#include "coap_svc/rpc/coap_rpc_cli.h"
#include "coap_svc/rpc/libadapter/message/coap_rpc_lib_msg.h"

COAP_RPC_C_BEGIN

typedef struct CoapRpcCliUriVtbl CoapRpcCliUriVtbl;

/* COAP_GetRpcCliPubData describes a response, the check code aside. */
COAP_RPC_API CoapRpcCliRspInfo COAP_GetRpcCliPubData(const CoapRpcMsgInfo *info);

/* COAP_RpcCliResponseCheckCode remembers an ETag as the entry's check code and recognises the
 * echoed check-code query. */
COAP_RPC_API void COAP_RpcCliResponseCheckCode(CoapRpcCliUriVtbl *uriVtbl,
                                               const CoapRpcMsgInfo *info,
                                               CoapRpcCliRspInfo *rspInfo);

/* CoapRpcCallTakeResponse takes a response or notification, or the POST request that answers an
 * asynchronous request. */
coap_response_t CoapRpcCallTakeResponse(coap_session_t *session, const coap_pdu_t *sent,
                                        const coap_pdu_t *received);

/* COAP_RpcCliResNoDataProc delivers a response without payload.  Returns 1 accepted, 0 rejected. */
COAP_RPC_API uint32_t COAP_RpcCliResNoDataProc(CoapRpcCtx *ctx, CoapRpcCliUriVtbl *uriVtbl,
                                               const CoapRpcCliRspInfo *rspInfo);

COAP_RPC_C_END
#endif /* COAP_RPC_LIB_CALL_RESPONSE_H */
