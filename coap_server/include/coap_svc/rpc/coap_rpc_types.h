/* coap_rpc_types.h: the records and macros that every interface of the library shares.
 *
 * Records marked COAP_RPC_PACKED have no padding and may be unaligned; the others have natural
 * layout.  A record must be zeroed before it is filled: keys compare all their bytes, including
 * those after a text's terminator.  docs/conventions.md states the rules for all functions. */
#ifndef COAP_RPC_TYPES_H
#define COAP_RPC_TYPES_H

#include <assert.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
#define COAP_RPC_C_BEGIN extern "C" {
#define COAP_RPC_C_END }
#else
#define COAP_RPC_C_BEGIN
#define COAP_RPC_C_END
#endif

#define COAP_RPC_API __attribute__((visibility("default")))
#define COAP_RPC_PACKED __attribute__((packed))
#define COAP_RPC_PRINTF(fmtAt, argsAt) __attribute__((format(printf, fmtAt, argsAt)))

COAP_RPC_C_BEGIN

/* CoapRpcCtx is one instance of the library, created by COAP_RpcInit; its only handle. */
typedef struct CoapRpcCtx CoapRpcCtx;

enum {
  COAP_RPC_URI_SIZE = 64,            /* bytes of a uri field, terminator included */
  COAP_RPC_RSV_SIZE = 16,            /* bytes of the application's discriminators */
  COAP_RPC_PAYLOAD_BUF_SIZE = 65471, /* bytes of every buffer that an application fills */
  COAP_RPC_MAX_PAYLOAD = 65470 /* longest payload of a request or a synchronous answer, bytes */
};

enum { COAP_RPC_CON = 0, COAP_RPC_NON = 1 };                                 /* msgType */
enum { COAP_RPC_DEFAULT = 0, COAP_RPC_BROADCAST = 1, COAP_RPC_UNICAST = 2 }; /* pktType */
enum { COAP_RPC_JSON = 1, COAP_RPC_BYTE = 2 };                               /* payloadFormat */
enum { COAP_RPC_GET = 1, COAP_RPC_POST = 2, COAP_RPC_PUT = 3, COAP_RPC_DELETE = 4 }; /* codeType */
enum { COAP_RPC_FETCH = 5, COAP_RPC_PATCH = 6, COAP_RPC_IPATCH = 7 };                /* RFC 8132 */
enum { COAP_RPC_IPV4 = 1, COAP_RPC_IPV6 = 2 }; /* CoapRpcIpAddr.family */

/* The sizes of records that the interface fixes have pointers of 64 bits. */
static_assert(sizeof(void *) == 8, "32-bit systems are not supported: sizes of records are fixed");

/* CoapRpcUriKey names a registered handler table on either side.
 *
 * The path is stored without a leading slash.  Paths of incoming messages are looked up through a
 * buffer that must hold them twice: 32 characters is the practical limit. */
typedef struct COAP_RPC_PACKED CoapRpcUriKey {
  char uri[COAP_RPC_URI_SIZE]; /* path, NUL-padded to 64 bytes */
  uint32_t msgType;            /* 0 CON, 1 NON */
  uint32_t observe;            /* 0 plain; else observable */
  uint32_t pktType;            /* 0 DEFAULT, 1 BROADCAST, 2 UNICAST */
} CoapRpcUriKey;
static_assert(sizeof(CoapRpcUriKey) == 76, "key size");
static_assert(offsetof(CoapRpcUriKey, msgType) == 64, "key layout");
static_assert(offsetof(CoapRpcUriKey, observe) == 68, "key layout");
static_assert(offsetof(CoapRpcUriKey, pktType) == 72, "key layout");

/* CoapRpcIpAddr is an IP address. */
typedef struct COAP_RPC_PACKED CoapRpcIpAddr {
  uint8_t family; /* 1 IPv4; any other value (2 in practice) IPv6 */
  uint8_t rsv[3]; /* zero */
  union {
    uint32_t ipv4;    /* host byte order; the 12 bytes after it are zero */
    uint8_t ipv6[16]; /* network byte order */
  } addr;
} CoapRpcIpAddr;
static_assert(sizeof(CoapRpcIpAddr) == 20, "address size");
static_assert(offsetof(CoapRpcIpAddr, addr) == 4, "address layout");

/* CoapRpcInitParam is the argument of COAP_RpcInit; read once, never kept.
 * Handles are the host's (platform headers); the unnamed ones are stored, not read. */
typedef struct COAP_RPC_PACKED CoapRpcInitParam {
  const char *name;   /* instance name: log module and display object; copied */
  uint32_t logEnable; /* 0: no framework log records */
  uint64_t memHandle; /* memory pool; every allocation comes from it */
  uint64_t hostHandle1;
  uint64_t dispHandle; /* display-command service */
  uint64_t hostHandle2;
  uint64_t logHandle; /* log object; its fourth 64-bit word is the counter handle */
  uint64_t hostHandle3[2];
  uint64_t tmrHandle; /* timer service */
  uint64_t dbgHandle; /* debug channel; 0: no debug lines from this library */
  uint8_t rsv1[12];
  uint32_t rsv2;
} CoapRpcInitParam;
static_assert(sizeof(CoapRpcInitParam) == 100, "init parameter size");
static_assert(offsetof(CoapRpcInitParam, memHandle) == 12, "init parameter layout");
static_assert(offsetof(CoapRpcInitParam, logHandle) == 44, "init parameter layout");
static_assert(offsetof(CoapRpcInitParam, dbgHandle) == 76, "init parameter layout");

COAP_RPC_C_END
#endif /* COAP_RPC_TYPES_H */
