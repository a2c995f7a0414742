/* coap_rpc_lib_msg.h: reading and writing CoAP messages.
 *
 * Small functions between libcoap's PDUs, sessions and addresses and the library's records. */
#ifndef COAP_RPC_LIB_MSG_H
#define COAP_RPC_LIB_MSG_H

#include <coap3/coap.h>

#include "coap_svc/rpc/common/coap_rpc_ctx.h"

COAP_RPC_C_BEGIN

enum {
  COAP_RPC_OPT_ETAG = 0x01, /* bits of CoapRpcMsgOptions.optMask */
  COAP_RPC_OPT_OBSERVE = 0x02,
  COAP_RPC_OPT_QUERY = 0x04, /* a Uri-Query; Uri-Path has this row but never sets the bit */
  COAP_RPC_OPT_FORMAT = 0x08,
  COAP_RPC_QUERY_SIZE = 255
};

/* CoapRpcMsgOptions is the part of a message description that its options fill. */
typedef struct COAP_RPC_PACKED CoapRpcMsgOptions {
  uint32_t optMask;                /* COAP_RPC_OPT_* bits of what was found */
  uint64_t etag;                   /* first ETag as a big-endian number */
  char query[COAP_RPC_QUERY_SIZE]; /* Uri-Query text of up to 254 characters; empty for longer */
  uint8_t format;                  /* low 8 bits of Content-Format */
} CoapRpcMsgOptions;

/* CoapRpcMsgInfo describes an incoming message. */
typedef struct COAP_RPC_PACKED CoapRpcMsgInfo {
  CoapRpcIpAddr peer; /* remote address of the session */
  uint32_t msgType;   /* 0 CON, 1 NON, 2 ACK, 3 RST */
  uint32_t code;      /* method or response code as on the wire */
  CoapRpcMsgOptions opt;
  uint8_t rsv[COAP_RPC_RSV_SIZE]; /* zero in a parsed message */
} CoapRpcMsgInfo;
static_assert(sizeof(CoapRpcMsgInfo) == 312, "message information size");
static_assert(offsetof(CoapRpcMsgInfo, opt) == 28, "message information layout");
static_assert(offsetof(CoapRpcMsgInfo, rsv) == 296, "message information layout");

/* CoapRpcPayload is a copy of payload bytes that knows its pool; 16 zero bytes follow the data. */
typedef struct COAP_RPC_PACKED CoapRpcPayload {
  uint64_t memHandle;
  uint32_t len;
  __extension__ uint8_t data[];
} CoapRpcPayload;
static_assert(offsetof(CoapRpcPayload, data) == 12, "payload layout");

/* COAP_RpcSetAddress fills a libcoap address; families other than 1 and 2 leave it as
 * coap_address_init made it.  Always 0. */
COAP_RPC_API uint32_t COAP_RpcSetAddress(coap_address_t *out, const CoapRpcIpAddr *addr,
                                         uint16_t port);

/* COAP_RpcSetPort sets the protocol to 1 (UDP) and ignores the port, deliberately; the spelling is
 * fixed.  The port goes into the address. */
COAP_RPC_API void COAP_RpcSetPort(uint32_t *protocol, uint16_t port);

/* COAP_RpcSetMediaType sets 50 (application/json), whatever the second argument. */
COAP_RPC_API void COAP_RpcSetMediaType(uint32_t *mediaType, uint32_t notRead);

/* COAP_RpcSetUriPath adds one Uri-Path option for each segment between slashes, empty ones
 * included; nothing for an empty path. */
COAP_RPC_API void COAP_RpcSetUriPath(CoapRpcCtx *notRead, coap_pdu_t *pdu, const char *path);

/* COAP_RpcGetUriStr writes a message's path.
 *
 *   len   bytes of buf; at least twice the path's length, a deliberate margin
 *
 * Returns 0 or:  1900000093 path unavailable     1900000097 buffer too small
 *                1900000103 formatting failed */
COAP_RPC_API uint32_t COAP_RpcGetUriStr(const coap_pdu_t *pdu, char *buf, uint32_t len);

/* COAP_RpcGetMsgType gives the message type, ACK as 0 (CON).  Returns 0. */
COAP_RPC_API uint32_t COAP_RpcGetMsgType(const coap_pdu_t *pdu, uint32_t *msgType);

/* COAP_RpcGetCodeType gives the code as on the wire.  Returns 0. */
COAP_RPC_API uint32_t COAP_RpcGetCodeType(const coap_pdu_t *pdu, uint32_t *codeType);

/* COAP_RpcGetObserveOption gives 1 for an Observe option of value 0 (register), else 0.
 * Returns 1 when the option is present, else 0. */
COAP_RPC_API uint32_t COAP_RpcGetObserveOption(const coap_pdu_t *pdu, uint32_t *isRegister);

/* COAP_RpcCheckObserveOption returns 1 when an Observe option is present, else 0. */
COAP_RPC_API uint32_t COAP_RpcCheckObserveOption(const coap_pdu_t *pdu);

/* COAP_RpcGetRemoteAddr, COAP_RpcGetLocalAddr fill a zeroed record with a session's address (an
 * IPv4-mapped IPv6 address counts as IPv4) and return libcoap's address. */
COAP_RPC_API const coap_address_t *COAP_RpcGetRemoteAddr(const coap_session_t *session,
                                                         CoapRpcIpAddr *addr);
COAP_RPC_API const coap_address_t *COAP_RpcGetLocalAddr(const coap_session_t *session,
                                                        CoapRpcIpAddr *addr);

/* Coap_RpcGetUriHostIp parses a dotted IPv4 text; the parts are not range-checked.
 * Returns the address in host byte order; 0 when there are not four numbers (logged). */
COAP_RPC_API uint32_t Coap_RpcGetUriHostIp(CoapRpcCtx *ctx, const char *text);

/* Coap_RpcGetListenIp returns the local IPv4 address a message came in on, in host byte order: the
 * session's, or without a session the one named by Uri-Host; 0 when unknown. */
COAP_RPC_API uint32_t Coap_RpcGetListenIp(CoapRpcCtx *ctx, const coap_pdu_t *pdu,
                                          const coap_session_t *session);

/* CoapRpcOptionNum2Type gives the row of an option number: 4 -> 0, 6 -> 1, 12 -> 3, else 4. */
COAP_RPC_API uint32_t CoapRpcOptionNum2Type(uint32_t number);

/* COAP_RpcParseOptions fills a zeroed record from a message's options.  Null is ignored. */
COAP_RPC_API void COAP_RpcParseOptions(const coap_pdu_t *pdu, CoapRpcMsgOptions *opt);

/* Parsers of one option; `index` counts the occurrences from 0.  Only the first ETag counts. */
COAP_RPC_API void COAP_RpcParseETag(uint32_t index, const coap_opt_t *option,
                                    CoapRpcMsgOptions *opt);
COAP_RPC_API void COAP_RpcParseFormat(uint32_t index, const coap_opt_t *option,
                                      CoapRpcMsgOptions *opt);

/* COAP_RpcGetMsgInfo describes a message. */
COAP_RPC_API CoapRpcMsgInfo COAP_RpcGetMsgInfo(const coap_pdu_t *pdu,
                                               const coap_session_t *session);

/* Coap_RpcPrecentEncode writes the first character of `in`, percent-encoded unless unreserved,
 * again and again until `out` is full: the input never advances, deliberately; the spelling is
 * fixed.  Returns the bytes written (not terminated), 0 for empty input or outLen 0, -1 when a
 * triple no longer fits. */
COAP_RPC_API int32_t Coap_RpcPrecentEncode(char *out, uint32_t outLen, const char *in);

/* COAP_RpcNewPayload copies bytes into a new record; null without memory. */
COAP_RPC_API CoapRpcPayload *COAP_RpcNewPayload(CoapRpcCtx *ctx, const void *data, uint32_t len);

/* COAP_RpcFreePayload frees a record to its own pool.  Null is accepted. */
COAP_RPC_API void COAP_RpcFreePayload(CoapRpcPayload *payload);

COAP_RPC_C_END
#endif /* COAP_RPC_LIB_MSG_H */
