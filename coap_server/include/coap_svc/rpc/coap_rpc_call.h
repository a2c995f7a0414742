/* coap_rpc_call.h: calls: ordinary CoAP requests to any server, and observations of its resources.
 *
 * A call needs no registration.  It has a token of its own, so its answer needs no path and is
 * taken for no other request's; and it ends exactly once, whatever happens, with a status.  Calls
 * and the requests of coap_rpc_cli.h share the sessions of the same addresses and know nothing of
 * each other.  docs/calls.md has an example. */
#ifndef COAP_RPC_CALL_H
#define COAP_RPC_CALL_H

#include "coap_svc/rpc/coap_rpc_types.h"

COAP_RPC_C_BEGIN

/* Most calls and observations that can be under way in an instance; longest payload of a call and
 * of its answer, in bytes; deadline of a call that names none. */
#define COAP_RPC_MAX_CALLS 65536u
#define COAP_RPC_MAX_CALL_PAYLOAD 16777216u
#define COAP_RPC_CALL_DEADLINE_MS 93000u

/* CoapRpcCallAddr says from where to where. */
typedef struct CoapRpcCallAddr {
  CoapRpcIpAddr srcIp; /* local address to send from; family 0 or address 0: any.  The port is free,
                          so several processes of a machine can use the same address */
  CoapRpcIpAddr dstIp; /* the server: a unicast address, of the same family */
  uint32_t dstPort;    /* its UDP port, host byte order, 1 to 65535 */
} CoapRpcCallAddr;

/* CoapRpcCallEtag is an ETag. */
typedef struct CoapRpcCallEtag {
  uint32_t len; /* 1 to 8 bytes; 0 in an If-Match: whatever exists */
  uint8_t bytes[8];
} CoapRpcCallEtag;

/* Bits of CoapRpcCall.has and CoapRpcCallRsp.has. */
enum {
  COAP_RPC_CALL_HAS_FORMAT = 0x01,       /* contentFormat */
  COAP_RPC_CALL_HAS_ACCEPT = 0x02,       /* accept; calls only */
  COAP_RPC_CALL_HAS_IF_NONE_MATCH = 0x04 /* the If-None-Match option; calls only */
};

typedef struct CoapRpcCallRsp CoapRpcCallRsp;

/* CoapRpcOnCallRsp hears of a call's end, or of an observation's news.  Called from the I/O task or
 * a timer, from COAP_RpcCallCancel and from COAP_RpcUninit; never inside COAP_RpcCall or
 * COAP_RpcCallObserve of the same call.  May call any function of the library but COAP_RpcUninit:
 * start calls, cancel them, send base requests, take entries down.
 *
 *   rsp   valid during the call, with all that it points at */
typedef void (*CoapRpcOnCallRsp)(uint64_t userData, const CoapRpcCallRsp *rsp);

/* CoapRpcCall is a request.  Everything is copied; a zeroed record has none of what is optional. */
typedef struct CoapRpcCall {
  uint32_t method;        /* COAP_RPC_GET to COAP_RPC_IPATCH */
  uint32_t isNon;         /* 0: confirmable; else NON, which is sent once */
  const char *path;       /* segments of up to 255 bytes between slashes, as they are: no
                             %-encoding.  One leading slash is not counted.  Empty segments are
                             sent; null, "" and "/": no path */
  const char *query;      /* arguments of up to 255 bytes between "&"; null and "": none */
  const uint8_t *payload; /* null for none */
  uint32_t payloadLen;    /* up to COAP_RPC_MAX_CALL_PAYLOAD; block-wise when over about 1 kB */
  uint32_t has;           /* COAP_RPC_CALL_HAS_* */
  uint32_t contentFormat; /* of the payload, 0 to 65535; not sent without one */
  uint32_t accept;        /* wanted format of the answer, 0 to 65535 */
  uint32_t numEtags;      /* how many at `etags`: answers that the caller has */
  const CoapRpcCallEtag *etags;
  uint32_t numIfMatch; /* how many at `ifMatch` */
  const CoapRpcCallEtag *ifMatch;
  uint32_t deadlineMs;    /* from the call to its end, its turn included; 0: 93,000 */
  uint64_t userData;      /* first argument of onRsp */
  CoapRpcOnCallRsp onRsp; /* required */
} CoapRpcCall;

/* How a call has ended. */
enum {
  COAP_RPC_CALL_ANSWERED = 1, /* by the server; the code may be an error, such as 4.04 */
  COAP_RPC_CALL_TIMEOUT,     /* no answer by the deadline, or no acknowledgement of any transmission
                                (after 62 to 93 s) */
  COAP_RPC_CALL_CANCELLED,   /* by COAP_RpcCallCancel */
  COAP_RPC_CALL_RESET,       /* the peer refused the message */
  COAP_RPC_CALL_UNREACHABLE, /* the network says so (ICMP), the message could not be sent when its
                                turn came, or the local address that it named is gone */
  COAP_RPC_CALL_STOPPED      /* by COAP_RpcUninit */
};

/* CoapRpcCallRsp is what a call has come to.  All after `isLast` is zero unless it was answered. */
struct CoapRpcCallRsp {
  uint64_t id;     /* as COAP_RpcCall gave it */
  uint32_t status; /* COAP_RPC_CALL_* */
  uint32_t isLast; /* 1: the id is not used any more; 0: an observation goes on */
  uint32_t code;   /* class x 100 + detail: 205 is 2.05.  Also 408 for an answer in blocks that
                      do not fit together or are longer than COAP_RPC_MAX_CALL_PAYLOAD */
  uint32_t has;    /* COAP_RPC_CALL_HAS_FORMAT */
  uint32_t contentFormat;
  uint32_t maxAge;      /* seconds for which the answer is fresh: 60 when it does not say */
  CoapRpcCallEtag etag; /* len 0: none */
  uint32_t payloadLen;
  const uint8_t *payload;   /* whole; null for none; not terminated */
  const char *locationPath; /* segments between slashes; null for none */
  uint64_t rttUs; /* microseconds from sending the request to this; 0 for a notification */
};

/* COAP_RpcCall sends a request, or queues it until the session has its turn (COAP_RpcSetNstart),
 * and returns.  Its onRsp is called exactly once later, if and only if the result is 0.
 *
 * The options have to fit a message: all but the payload may take about 1,100 bytes.  Nothing else
 * is added to them: neither Uri-Host nor Uri-Port.
 *
 * An answer is known by its token, of 8 random bytes, and its session.  Late, foreign and malformed
 * ones are dropped and counted.
 *
 *   id   for COAP_RpcCallCancel; not 0, and not used again
 *
 * Returns 0, or a code, and then nothing was sent:
 *   1900001484 null argument, or no onRsp (asserted)   1900001485 addresses: families differ or are
 *                                                      unknown, or the server's is not unicast
 *   1900001486 dstPort is not a port                   1900001487 unknown method
 *   1900001488 a path segment over 255 bytes           1900001489 a query argument over 255 bytes
 *   1900001490 an ETag or format out of range          1900001491 payload null, or too long
 *   1900001492 the options do not fit a message        1900001493 COAP_RPC_MAX_CALLS are under way
 *   1900001494 no memory                               1900001495 srcIp is not this machine's
 *   1900001496 base requests of these addresses send from another one
 *   1900001497 no session, or the instance is stopping 1900001498 no timer
 *   1900001499 not sent */
COAP_RPC_API uint32_t COAP_RpcCall(CoapRpcCtx *ctx, const CoapRpcCallAddr *addr,
                                   const CoapRpcCall *call, uint64_t *id);

/* COAP_RpcCallObserve observes a resource (RFC 7641): onRsp hears of the first answer and of each
 * notification that is not older than one before it, with payloads in blocks put together.
 *
 * The library registers again when the latest one is no longer fresh, 5 to 15 s after its Max-Age.
 * The observation ends, told with isLast 1, with an answer without Observe or an error code, and
 * with any status but answered.  It can be started again then.
 *
 * Several observations of one instance that ask one server for the same share a registration, since
 * a server may keep one observer of a client for each request.  One that joins lets the library
 * register again, so all are told the state of now.
 *
 *   call   a GET without payload; deadlineMs is for the answer to each registration
 *
 * Returns as COAP_RpcCall; 1900001487 also for another method, 1900001491 for any payload. */
COAP_RPC_API uint32_t COAP_RpcCallObserve(CoapRpcCtx *ctx, const CoapRpcCallAddr *addr,
                                          const CoapRpcCall *call, uint64_t *id);

/* COAP_RpcCallCancel ends a call or an observation: its onRsp hears that it is cancelled before
 * this returns.  No message of it is sent any more; the server of an observation is told with a GET
 * of Observe 1.
 *
 * Returns 0 or:  1900001501 null instance (asserted)   1900001502 no such call is under way */
COAP_RPC_API uint32_t COAP_RpcCallCancel(CoapRpcCtx *ctx, uint64_t id);

/* COAP_RpcGetCallNum counts the calls and observations under way, those included whose cancel the
 * server has not answered; COAP_RpcGetDroppedAnswerNum what came for calls and was dropped since
 * the instance's start: answers to calls that have ended or never were, and messages that are
 * malformed, have an unknown critical option or acknowledge a call with another's token.  0 for
 * null. */
COAP_RPC_API uint32_t COAP_RpcGetCallNum(const CoapRpcCtx *ctx);
COAP_RPC_API uint64_t COAP_RpcGetDroppedAnswerNum(const CoapRpcCtx *ctx);

COAP_RPC_C_END
#endif /* COAP_RPC_CALL_H */
