/* coap_rpc_text.h: texts of enumerations, addresses and the clock, for logs and displays.
 *
 * These never fail outward: what cannot be converted shows as "__unknown__", "-v4i-" or "-v6i-". */
#ifndef COAP_RPC_TEXT_H
#define COAP_RPC_TEXT_H

#include "coap_svc/rpc/common/coap_rpc_ctx.h"

COAP_RPC_C_BEGIN

/* Constant texts of enumeration values; "__unknown__" outside the listed ones. */
COAP_RPC_API const char *COAP_RpcGetMsgTypeStr(uint32_t msgType);            /* CON NON */
COAP_RPC_API const char *COAP_RpcGetPktTypeStr(uint32_t pktType);            /* DEFAULT ... */
COAP_RPC_API const char *COAP_RpcGetPayloadFormatStr(uint8_t payloadFormat); /* JSON BYTE */
COAP_RPC_API const char *COAP_RpcGetCodeTypeStr(uint32_t codeType);          /* GET ... DELETE */

/* COAP_RpcIpAddrGetStr writes an address text.  Returns buf, or a constant marker when `len` bytes
 * do not hold it.  The buffer is not cleared first. */
COAP_RPC_API const char *COAP_RpcIpAddrGetStr(const CoapRpcIpAddr *addr, char *buf, uint32_t len);

/* COAP_RpcIp4GetStr clears the buffer and writes an IPv4 address (host byte order); results as
 * COAP_RpcIpAddrGetStr. */
COAP_RPC_API const char *COAP_RpcIp4GetStr(uint32_t ipv4, char *buf, uint32_t len);

/* COAP_PrintIpPort writes "address:port", cut at the buffer.  Returns buf. */
COAP_RPC_API char *COAP_PrintIpPort(uint32_t ipv4, uint32_t port, char *buf, uint32_t len);

/* COAP_RpcGetCurrTimeStr writes the local time as "MM-DD hh:mm:ss".
 *
 *   notRead   anything
 *
 * Returns 0 or more; the clock's own code, unchanged, when it cannot be read (buf untouched). */
COAP_RPC_API int32_t COAP_RpcGetCurrTimeStr(const void *notRead, char *buf, uint32_t len);

COAP_RPC_C_END
#endif /* COAP_RPC_TEXT_H */
