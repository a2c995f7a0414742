/* coap_rpc_lib_log.h: libcoap's own log messages on their way to both sinks. */
#ifndef COAP_RPC_LIB_LOG_H
#define COAP_RPC_LIB_LOG_H

#include <coap3/coap.h>

#include "coap_svc/rpc/common/coap_rpc_ctx.h"

COAP_RPC_C_BEGIN

/* CoapRpcLibSetLogRoot sets the instance whose sinks take libcoap's messages; null for none.
 * libcoap's handler carries no user data: one process serves one instance, the last started. */
void CoapRpcLibSetLogRoot(CoapRpcCtx *ctx);

/* CoapRpcLibAskLog lets libcoap ask both sinks before it formats a message, and tell it to those
 * that take it; what the handler does, without the work for nobody.  Call it after the handler is
 * set; coap_set_log_handler ends it.  No effect with a libcoap that cannot ask. */
void CoapRpcLibAskLog(void);

/* CORP_RpcLibCoapLog is libcoap's log handler; the spelling of its name is fixed. */
COAP_RPC_API void CORP_RpcLibCoapLog(coap_log_t level, const char *message);

/* COAP_RpcLibCoapGetLogCallFuncName_ names the libcoap function that logged, which must be three
 * calls up: its caller is the log handler, whose caller is libcoap's logger.
 *
 * Returns buf with the bare name, or a constant marker: "__get_ptr_ng__" (stack too short),
 * "__get_str_ng__" (no symbols), "__snprintf_str_ng__" (no text). */
COAP_RPC_API const char *COAP_RpcLibCoapGetLogCallFuncName_(char *buf, int32_t len);

COAP_RPC_C_END
#endif /* COAP_RPC_LIB_LOG_H */
