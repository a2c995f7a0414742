/* coap_rpc_key.h: comparators of the keys that the tables are ordered by.
 *
 * All have the shape of a tree comparator and return exactly -1, 0 or 1. */
#ifndef COAP_RPC_KEY_H
#define COAP_RPC_KEY_H

#include "coap_svc/rpc/coap_rpc_types.h"

COAP_RPC_C_BEGIN

/* COAP_RpcUriKeyCmp orders two CoapRpcUriKey by all 64 uri bytes, msgType, observe, pktType.  Keys
 * that differ only after the uri's terminator are different, deliberately. */
COAP_RPC_API int32_t COAP_RpcUriKeyCmp(const void *a, const void *b);

/* COAP_RpcUriCmp orders two 64-byte uri fields; the result is OSAL_MemCmp's, unchanged. */
COAP_RPC_API int32_t COAP_RpcUriCmp(const void *a, const void *b);

/* COAP_RpcAddrCmp orders two CoapRpcIpAddr: by family, then IPv4 numerically, others bytewise. */
COAP_RPC_API int32_t COAP_RpcAddrCmp(const void *a, const void *b);

/* COAP_RpcAddrV4Cmp orders two IPv4 addresses (host byte order) numerically. */
COAP_RPC_API int32_t COAP_RpcAddrV4Cmp(uint32_t a, uint32_t b);

/* COAP_RpcAddrV6Cmp orders two byte strings of `len` bytes. */
COAP_RPC_API int32_t COAP_RpcAddrV6Cmp(const void *a, const void *b, uint32_t len);

COAP_RPC_C_END
#endif /* COAP_RPC_KEY_H */
