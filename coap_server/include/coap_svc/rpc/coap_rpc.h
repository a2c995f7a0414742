/* coap_rpc.h: start and stop of an instance, meaning of result codes, diagnostics per URI.
 *
 * Every u32 result of the library is 0 for success or a code of docs/error_codes.md, one for each
 * place that can fail. */
#ifndef COAP_RPC_H
#define COAP_RPC_H

#include "coap_svc/rpc/coap_rpc_types.h"

COAP_RPC_C_BEGIN

/* COAP_RpcInit creates an instance: tables, CoAP context, I/O timer, display commands.
 *
 *   param   copied, its name included
 *
 * After a fork, the child must not use the instance: it calls exec or _exit.  It shares the
 * sockets, timer and event set of the parent; its COAP_RpcUninit would remove the parent's sockets
 * from the set.  All descriptors are closed on exec.
 *
 * Returns the new instance, or null: null parameter or name (asserted), no memory, or a component
 * that did not start (logged as "[CoapRpc]ret(%u), ng"; everything is released again). */
COAP_RPC_API CoapRpcCtx *COAP_RpcInit(const CoapRpcInitParam *param);

/* COAP_RpcUninit stops an instance and frees everything it owns.  Null is ignored.
 * Must not be called from a callback of the library. */
COAP_RPC_API void COAP_RpcUninit(CoapRpcCtx *ctx);

/* COAP_RpcErrStr returns the English meaning of a result code, "success" for 0 and "unknown code"
 * for any other number, such as the result that COAP_RpcCliObserveUnReq passes on from the host's
 * TARN_Assert.  The text is constant. */
COAP_RPC_API const char *COAP_RpcErrStr(uint32_t code);

/* CoapRpcLogData is a URI under diagnosis; opaque. */
typedef struct CoapRpcLogData CoapRpcLogData;

/* COAP_RpcLogRegUri enables detailed payload logging for a URI (both sides of the instance).
 *
 *   uri   at most 63 characters
 *
 * Returns the entry, the existing one when the URI was registered before; null for a null
 * instance, a uri that is too long, or no memory. */
COAP_RPC_API CoapRpcLogData *COAP_RpcLogRegUri(CoapRpcCtx *ctx, const char *uri);

/* COAP_RpcNeedRecordDiag tells whether the payloads of a URI are logged in detail: 1 or 0 (0 also
 * for null arguments and unregistered URIs). */
COAP_RPC_API uint32_t COAP_RpcNeedRecordDiag(CoapRpcCtx *ctx, const char *uri);

/* COAP_RpcLogMemDump writes bytes in hexadecimal to a log, 16 per line, at level 1.
 *
 *   data, len   nothing is written when data is null or len is below 1
 *   title       first line, centred in 64 dashes; null for none
 *   log         effective log handle; 0 for nothing
 *
 * A line printed inside the dump shows the offset just past its last byte; the last line repeats
 * the offset of the previous line (0000 when it is the only one). */
COAP_RPC_API void COAP_RpcLogMemDump(const void *data, int32_t len, const char *title,
                                     uint64_t log);

COAP_RPC_C_END
#endif /* COAP_RPC_H */
