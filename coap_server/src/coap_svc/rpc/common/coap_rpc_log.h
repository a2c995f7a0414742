/* coap_rpc_log.h: how every log line is produced, and the table of URIs under diagnosis.
 *
 * A framework record goes through up to three steps (platform/include/kst_log.h): counted when it
 * is a warning or an error, then offered, then printed.  Debug and success lines go through
 * COAP_RPC_LOG_MOD_DO and carry their "[CoapRpc]" prefix in their own text.  The debug channel is
 * asked as well if the host lets it be asked (CSVC_DBG_Takes).  What nobody takes is not formatted,
 * and its arguments are not evaluated. */
#ifndef COAP_RPC_LOG_H
#define COAP_RPC_LOG_H

#include "coap_svc/rpc/coap_rpc.h"
#include "coap_svc/rpc/common/coap_rpc_ctx.h"
#include "osal.h"

COAP_RPC_C_BEGIN

/* CoapRpcLogDiag is the table of URIs under diagnosis. */
struct CoapRpcLogDiag {
  OSAL_AVL3_TREE tree;
  OSAL_AVL3_DESC desc;
  CoapRpcCtx *owner;
};

struct CoapRpcLogData {
  OSAL_AVL3_NODE node;
  int32_t diagId; /* -1 */
  char uri[COAP_RPC_URI_SIZE];
  uint8_t needRecord; /* 1 at creation; no call of the library clears it */
};

/* COAP_RPC_LOG_MOD_DO writes one debug line to the framework log (level 0) and to the debug
 * channel (level 1), whichever handle is set.  Texts are cut at 1023 bytes. */
COAP_RPC_API void COAP_RPC_LOG_MOD_DO(uint64_t log, uint64_t dbg, const char *fmt, ...)
    COAP_RPC_PRINTF(3, 4);

/* COAP_RpcLogInit, COAP_RpcLogUninit: module rows of the diagnostics table; `root` is the
 * CoapRpcCtx.  Init returns 0 or 1900000085 without memory; Uninit the result of the last free. */
COAP_RPC_API uint32_t COAP_RpcLogInit(void *root);
COAP_RPC_API uint32_t COAP_RpcLogUninit(void *root);

/* COAP_RpcLogDataCreate_ allocates an empty table without storing it; null without memory. */
COAP_RPC_API CoapRpcLogDiag *COAP_RpcLogDataCreate_(CoapRpcCtx *ctx);

/* COAP_RpcLogDataDelete_ frees every entry and the table and clears ctx->logDiag. */
COAP_RPC_API uint32_t COAP_RpcLogDataDelete_(CoapRpcCtx *ctx);

/* COAP_RpcLogAddData adds an entry; null when the uri has 64 characters or more, is registered
 * already, or memory is short. */
COAP_RPC_API CoapRpcLogData *COAP_RpcLogAddData(CoapRpcLogDiag *diag, const char *uri);

/* COAP_RpcLogFindData returns the entry of a uri, or null. */
COAP_RPC_API CoapRpcLogData *COAP_RpcLogFindData(CoapRpcLogDiag *diag, const char *uri);

/* COAP_RpcLogUriKeyCmp orders two 64-byte uri fields: -1, 0 or 1. */
COAP_RPC_API int32_t COAP_RpcLogUriKeyCmp(const void *uriA, const void *uriB);

COAP_RPC_C_END
#endif /* COAP_RPC_LOG_H */
