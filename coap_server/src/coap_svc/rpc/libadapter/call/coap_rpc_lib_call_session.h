/* coap_rpc_lib_call_session.h: client sessions made and given up. */
#ifndef COAP_RPC_LIB_CALL_SESSION_H
#define COAP_RPC_LIB_CALL_SESSION_H

#include <coap3/coap.h>

#include "coap_svc/rpc/common/coap_rpc_ctx.h"

COAP_RPC_C_BEGIN

typedef struct CoapRpcCliReqKey CoapRpcCliReqKey;
typedef struct CoapRpcCliSession CoapRpcCliSession;
typedef struct CoapRpcCliSessionKey CoapRpcCliSessionKey;

/* COAP_RpcCreateCliSession opens a libcoap session to the peer of `addr`, bound to the source
 * address when the request's packet type is BROADCAST.  Null on failure. */
COAP_RPC_API coap_session_t *COAP_RpcCreateCliSession(CoapRpcCtx *ctx, const CoapRpcCliReqKey *key,
                                                      const CoapRpcCliSessionKey *addr);

/* COAP_RpcDeleteCliSession releases a session's libcoap session, if there is one. */
COAP_RPC_API void COAP_RpcDeleteCliSession(CoapRpcCtx *ctx, CoapRpcCliSession *session);

COAP_RPC_C_END
#endif /* COAP_RPC_LIB_CALL_SESSION_H */
