/* coap_rpc_ser_uri.h: the table of registered server URIs.  Their tuples: coap_rpc_ser_uri_tuple.h.
 *
 * An entry is made by its registration and lives until the server side stops.  It owns its tuples,
 * its copy of the observe record and its update timer. */
#ifndef COAP_RPC_SER_URI_H
#define COAP_RPC_SER_URI_H

#include "coap_svc/rpc/server/coap_rpc_ser_entry.h"
#include "coap_svc/rpc/server/coap_rpc_ser_uri_tuple.h"

COAP_RPC_C_BEGIN

/* Module rows; the record is the CoapRpcSerData. */
COAP_RPC_API uint32_t COAP_RpcSerVtblInit(void *ser);
COAP_RPC_API uint32_t COAP_RpcSerVtblUninit(void *ser);
COAP_RPC_API uint32_t COAP_RpcSerUriInit(void *ser);
COAP_RPC_API uint32_t COAP_RpcSerUriUninit(void *ser);

/* COAP_RpcUriRegSerVtbl registers; an existing entry stays as it is.
 * Returns 0 or 1900000251 when the entry cannot be made. */
COAP_RPC_API uint32_t COAP_RpcUriRegSerVtbl(CoapRpcSerData *ser, const CoapRpcUriKey *key,
                                            const CoapRpcSerVtblReg *reg,
                                            const CoapRpcSerObVtblReg *obReg);

/* Find by key; first in key order; first with a key greater than `key`. */
COAP_RPC_API CoapRpcSerUriVtbl *COAP_RpcSerFindUriVtbl(CoapRpcSerData *ser,
                                                       const CoapRpcUriKey *key);
COAP_RPC_API CoapRpcSerUriVtbl *COAP_RpcSerFindFirstUriVtbl(CoapRpcSerData *ser);
COAP_RPC_API CoapRpcSerUriVtbl *COAP_RpcSerFindNextUriVtbl(CoapRpcSerData *ser,
                                                           const CoapRpcUriKey *key);

/* COAP_RpcSerAddUriVtbl makes an entry; null without memory, for a key that is there already, or
 * for an observe record without comparator. */
COAP_RPC_API CoapRpcSerUriVtbl *COAP_RpcSerAddUriVtbl(CoapRpcSerData *ser, const CoapRpcUriKey *key,
                                                      const CoapRpcSerVtblReg *reg,
                                                      const CoapRpcSerObVtblReg *obReg);

/* COAP_RpcSerAddUriObVtbl gives an entry its observe record and empties its sets; nothing for a
 * null record.  A former record goes with its tuples and changes; the update timer stays.
 *
 * Returns 0 or:  1900000167 no memory   1900001431 no comparator (the entry is left as it was) */
COAP_RPC_API uint32_t COAP_RpcSerAddUriObVtbl(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry,
                                              const CoapRpcSerObVtblReg *obReg);

/* COAP_RpcSerDelUriVtbl frees an entry and everything it owns; listen and resource stay. */
COAP_RPC_API void COAP_RpcSerDelUriVtbl(CoapRpcSerData *ser, CoapRpcSerUriVtbl *entry);

COAP_RPC_C_END
#endif /* COAP_RPC_SER_URI_H */
