/* coap_rpc_ser_uri_tuple.h: the tuples of an observable URI.  The entry owns them. */
#ifndef COAP_RPC_SER_URI_TUPLE_H
#define COAP_RPC_SER_URI_TUPLE_H

#include "coap_svc/rpc/server/coap_rpc_ser_entry.h"

COAP_RPC_C_BEGIN

/* ProcUpdateTuple adds or overwrites (0 or 1900000113), ProcDelTuple removes if present;
 * both ignore their key argument. */
COAP_RPC_API uint32_t COAP_RpcSerProcUpdateTuple(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry,
                                                 const CoapRpcUriKey *notRead, const void *tupleKey,
                                                 const void *tupleVal);
COAP_RPC_API void COAP_RpcSerProcDelTuple(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry,
                                          const CoapRpcUriKey *notRead, const void *tupleKey);
COAP_RPC_API CoapRpcUriTuple *COAP_RpcSerFindUriTuple(CoapRpcSerUriVtbl *entry,
                                                      const void *tupleKey);
COAP_RPC_API CoapRpcUriTuple *COAP_RpcSerGetFirstUriTuple(CoapRpcSerUriVtbl *entry);
COAP_RPC_API CoapRpcUriTuple *COAP_RpcSerGetNextUriTuple(CoapRpcSerUriVtbl *entry,
                                                         const CoapRpcUriTuple *tuple);
COAP_RPC_API CoapRpcUriTuple *COAP_RpcSerAddUriTuple(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry,
                                                     const void *tupleKey, const void *tupleVal);
COAP_RPC_API uint32_t COAP_RpcSerUpdateUriTuple(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry,
                                                CoapRpcUriTuple *tuple, const void *tupleKey,
                                                const void *tupleVal);
COAP_RPC_API void COAP_RpcSerDelUriTuple(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry,
                                         CoapRpcUriTuple *tuple);
COAP_RPC_API void COAP_RpcSerDelAllUriTuple(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry);

/* COAP_RpcGetTupleSetCnt counts the tuples by walking them. */
COAP_RPC_API uint32_t COAP_RpcGetTupleSetCnt(CoapRpcSerUriVtbl *entry);

COAP_RPC_C_END
#endif /* COAP_RPC_SER_URI_TUPLE_H */
