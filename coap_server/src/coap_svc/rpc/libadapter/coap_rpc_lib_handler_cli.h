/* coap_rpc_lib_handler_cli.h: the client side's libcoap sessions, request PDUs and callbacks. */
#ifndef COAP_RPC_LIB_HANDLER_CLI_H
#define COAP_RPC_LIB_HANDLER_CLI_H

#include <coap3/coap.h>

#include "coap_svc/rpc/coap_rpc_cli.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_msg.h"

COAP_RPC_C_BEGIN

typedef struct CoapRpcCliReqData CoapRpcCliReqData;
typedef struct CoapRpcCliReqKey CoapRpcCliReqKey;
typedef struct CoapRpcCliSession CoapRpcCliSession;
typedef struct CoapRpcCliSessionKey CoapRpcCliSessionKey;
typedef struct CoapRpcCliUriVtbl CoapRpcCliUriVtbl;

/* COAP_RpcCreateCliSession opens a libcoap session to the peer of `addr`, bound to the source
 * address when the request's packet type is BROADCAST.  Null on failure. */
COAP_RPC_API coap_session_t *COAP_RpcCreateCliSession(CoapRpcCtx *ctx, const CoapRpcCliReqKey *key,
                                                      const CoapRpcCliSessionKey *addr);

/* COAP_RpcDeleteCliSession releases a session's libcoap session, if there is one. */
COAP_RPC_API void COAP_RpcDeleteCliSession(CoapRpcCtx *ctx, CoapRpcCliSession *session);

/* COAP_RpcCliSendRequest builds and sends a request.
 *
 * Returns 0 or:  1900001351 no session   1900001352 no PDU   1900001353 options or payload
 *                1900001354 not sent */
COAP_RPC_API uint32_t COAP_RpcCliSendRequest(CoapRpcCtx *ctx, CoapRpcCliSession *session,
                                             CoapRpcCliReqData *req);

/* COAP_RpcCliAddOptionsAndData fills a request PDU.  Returns 0 or 1900001355 when the payload
 * cannot be built or added; 0 with nothing added when the URI is not registered. */
COAP_RPC_API uint32_t COAP_RpcCliAddOptionsAndData(CoapRpcCtx *ctx, coap_pdu_t *pdu,
                                                   CoapRpcCliSession *session,
                                                   CoapRpcCliReqData *req);

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

/* COAP_RpcLogPayloadDetail logs a request's payload, in detail when its URI is under diagnosis. */
COAP_RPC_API void COAP_RpcLogPayloadDetail(CoapRpcCtx *ctx, const CoapRpcCliReqData *req,
                                           const CoapRpcCliSession *session, uint32_t len);

/* COAP_RpcCliCancelRequest cancels an observe relation at the peer. */
COAP_RPC_API void COAP_RpcCliCancelRequest(CoapRpcCtx *ctx, CoapRpcCliSession *session,
                                           CoapRpcCliReqData *req);

/* COAP_GetRpcCliPubData describes a response, the check code aside. */
COAP_RPC_API CoapRpcCliRspInfo COAP_GetRpcCliPubData(const CoapRpcMsgInfo *info);

/* COAP_RpcCliResponseCheckCode remembers an ETag as the entry's check code and recognises the
 * echoed check-code query. */
COAP_RPC_API void COAP_RpcCliResponseCheckCode(CoapRpcCliUriVtbl *uriVtbl,
                                               const CoapRpcMsgInfo *info,
                                               CoapRpcCliRspInfo *rspInfo);

/* COAP_RpcCliResponseHandler, COAP_RpcNackhandler, COAP_RpcEventHandler: libcoap's callbacks. */
COAP_RPC_API coap_response_t COAP_RpcCliResponseHandler(coap_session_t *session,
                                                        const coap_pdu_t *sent,
                                                        const coap_pdu_t *received,
                                                        const coap_mid_t mid);
COAP_RPC_API void COAP_RpcNackhandler(coap_session_t *session, const coap_pdu_t *sent,
                                      const coap_nack_reason_t reason, const coap_mid_t mid);
COAP_RPC_API int COAP_RpcEventHandler(coap_session_t *session, const coap_event_t event);

/* COAP_RpcCliResNoDataProc delivers a response without payload.  Returns 1 accepted, 0 rejected. */
COAP_RPC_API uint32_t COAP_RpcCliResNoDataProc(CoapRpcCtx *ctx, CoapRpcCliUriVtbl *uriVtbl,
                                               const CoapRpcCliRspInfo *rspInfo);

/* COAP_RpcLogNackInfo logs a NACK; `sent` may be null. */
COAP_RPC_API void COAP_RpcLogNackInfo(CoapRpcCtx *ctx, const coap_pdu_t *sent, uint32_t reason,
                                      int32_t mid);

/* COAP_RpcDisConnectedEventHandler tells every registered URI that a session's peer is gone. */
COAP_RPC_API void COAP_RpcDisConnectedEventHandler(coap_session_t *session);

COAP_RPC_C_END
#endif /* COAP_RPC_LIB_HANDLER_CLI_H */
