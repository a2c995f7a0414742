/* coap_rpc_cli.h: client: register handler tables, send requests, observe.
 *
 * A call has a registered key, a parameter record that identifies the call, and a peer.  A response
 * is delivered to the onResponse of the table whose path it carries: notifications and asynchronous
 * answers carry a path, synchronous answers of this library's server do not.
 *
 * An asynchronous answer is a POST to port 5683 of the address that asked.  The asker has to serve
 * the path there with an asynchronous UNICAST entry, and register onResponse for it with packet
 * type DEFAULT.  Only one process per address gets asynchronous answers.  Give each process an
 * address of its own and use packet type BROADCAST, or use calls (coap_rpc_call.h). */
#ifndef COAP_RPC_CLI_H
#define COAP_RPC_CLI_H

#include "coap_svc/rpc/coap_rpc_types.h"

COAP_RPC_C_BEGIN

/* CoapRpcCliReqParam distinguishes the calls of a key and carries the payload. */
typedef struct COAP_RPC_PACKED CoapRpcCliReqParam {
  uint64_t userData;                    /* part of the request's identity; passed to buildReq */
  uint8_t *payload;                     /* application bytes, copied; null for none */
  uint32_t payloadLen;                  /* bytes */
  uint8_t reqKeyRsv[COAP_RPC_RSV_SIZE]; /* discriminator, part of the request's identity */
} CoapRpcCliReqParam;
static_assert(sizeof(CoapRpcCliReqParam) == 36, "request parameter size");

/* CoapRpcCliAddr names the peer of a call.  The first three fields identify the session. */
typedef struct COAP_RPC_PACKED CoapRpcCliAddr {
  CoapRpcIpAddr srcIp;               /* local address; bound only for packet type BROADCAST */
  CoapRpcIpAddr dstIp;               /* peer; same family as srcIp and not equal to it */
  uint32_t dstPort;                  /* peer UDP port, host byte order, 1 to 65535 */
  uint32_t codeType;                 /* 1 GET, 2 POST, 3 PUT, 4 DELETE */
  uint8_t reqRsv[COAP_RPC_RSV_SIZE]; /* opaque, kept with the request */
} CoapRpcCliAddr;
static_assert(sizeof(CoapRpcCliAddr) == 64, "peer size");
static_assert(offsetof(CoapRpcCliAddr, codeType) == 44, "session key size");

/* CoapRpcCliRspInfo describes a response.
 *
 * rspCode of an asynchronous answer is 2.  It is the code of the POST that carries the answer, not
 * 2.05 (205): test the payload, not the code. */
typedef struct CoapRpcCliRspInfo {
  uint32_t isChanged;   /* 1: code 2.04 */
  uint32_t rspCode;     /* class x 100 + detail: 205 is 2.05; 2 is a POST */
  uint32_t checkCodeOk; /* 1: a 2.05 with Observe that echoes the check-code query */
  uint32_t pubFlag;
} CoapRpcCliRspInfo;
static_assert(sizeof(CoapRpcCliRspInfo) == 16, "response information size");

/* CoapRpcCliBuildReq writes the payload of a request.  Called from the sending call or from the
 * resend timer, once per attempt.
 *
 * The payload of a request is what buildReq writes.  Register each key that you ask with, and let
 * its buildReq copy req->payload.  A request without payload reaches no callback of this library's
 * servers.
 *
 *   req   the request's userData, payload (the library's copy) and payloadLen
 *   out   outSize (65471) bytes, the first one zero; one buffer for all requests of the instance
 *
 * May start and cancel requests, including the one being built, but only before it writes: a
 * request built meanwhile uses the same buffer.
 *
 * Returns the length written, 0 to 65470 bytes; any other value fails the attempt. */
typedef int32_t (*CoapRpcCliBuildReq)(uint64_t userData, const CoapRpcCliReqParam *req,
                                      uint8_t *out, uint32_t outSize);

/* CoapRpcCliOnResponse receives a response.  Called from the I/O task; may send new requests.
 *
 *   zero      always 0
 *   payload   NUL-terminated copy of len bytes valid during the call; null for a 2.04 without one
 *
 * Returns 0: accepted; else the response is rejected (the peer of a CON or NON gets a reset). */
typedef uint32_t (*CoapRpcCliOnResponse)(uint64_t userData, uint64_t zero, uint8_t *payload,
                                         uint32_t len, const CoapRpcCliRspInfo *info);

typedef void (*CoapRpcCliReserved)(void);

/* CoapRpcCliOnDisconnect reports that a peer no longer answers; called for every registered table,
 * whichever peer it talks to.  Sessions and requests are not changed. */
typedef void (*CoapRpcCliOnDisconnect)(uint64_t userData, const CoapRpcIpAddr *peer);

/* CoapRpcCliVtblReg is a handler table. */
typedef struct COAP_RPC_PACKED CoapRpcCliVtblReg {
  uint32_t payloadFormat;      /* 1 JSON, 2 IDL; shown by the display, requests always say JSON */
  uint64_t userData;           /* first argument of every callback of the table */
  CoapRpcCliBuildReq buildReq; /* optional: without it requests have no payload */
  CoapRpcCliOnResponse onResponse;     /* optional: without it responses are accepted unread */
  CoapRpcCliReserved reserved;         /* not called */
  CoapRpcCliOnDisconnect onDisconnect; /* optional */
} CoapRpcCliVtblReg;
static_assert(sizeof(CoapRpcCliVtblReg) == 44, "client registration size");

/* COAP_RpcCliRegVtbl registers a handler table for a key.  The first registration of a key wins.
 *
 * Returns 0 or:  1900001011 null argument (asserted)     1900001051 entry cannot be created */
COAP_RPC_API uint32_t COAP_RpcCliRegVtbl(CoapRpcCtx *ctx, const CoapRpcUriKey *key,
                                         const CoapRpcCliVtblReg *reg);

/* COAP_RpcCliNonReq and COAP_RpcCliConReq send a request.  The message type comes from the key,
 * not from the function.  A CON request that cannot be sent is sent again every 1001 ms until that
 * succeeds, although the call returns an error.  A NON request that cannot be sent keeps its record
 * until it is called again without a payload, or the instance stops.
 *
 * The first call of a session decides its source address.  Use one packet type for each peer: later
 * calls use the session as it is.  A session is known by source, destination and port; with packet
 * type BROADCAST its first call binds it to srcIp.
 *
 * Answers are received for 90 seconds after the last request to the peer, or while a relation with
 * it exists.
 *
 * A payload of up to about 1.1 kB is sent in one message, a larger one block-wise, from a copy that
 * is kept until the peer has answered, or for 93 seconds.  A peer gets one unacknowledged CON
 * message at a time; further ones are queued.  Requests carry no token, except those of the uri
 * "terminals/dynamic-mac" and block-wise ones; COAP_RpcGetTokenlessRspNum in coap_rpc_ext.h
 * explains what that means for late answers.
 *
 * Returns 0 or:  1900000076, 1900001014 null argument (asserted)
 *                1900001012, 1900001015 families differ, are unknown, or peer equals source
 *                1900001026, 1900001027 dstPort is not a port
 *                1900001101 no session   1900001102 no request record   1900001103 not sent */
COAP_RPC_API uint32_t COAP_RpcCliNonReq(CoapRpcCtx *ctx, const CoapRpcUriKey *key,
                                        const CoapRpcCliReqParam *param,
                                        const CoapRpcCliAddr *addr);
COAP_RPC_API uint32_t COAP_RpcCliConReq(CoapRpcCtx *ctx, const CoapRpcUriKey *key,
                                        const CoapRpcCliReqParam *param,
                                        const CoapRpcCliAddr *addr);

/* COAP_RpcCliObserveReq starts or renews an observe relation; the next resend tick (1001 ms) sends
 * it.  Observe relations should be CON: a NON one is recorded, but never sent.
 * COAP_RpcCliObserveReqVerify echoes the URI's check code, so that an up-to-date client is sent
 * nothing; COAP_RpcCliObserveReqBatch requests all contents.  The first observing call for a key,
 * parameter and peer is always plain.  COAP_RpcCliObserveReqVerify and COAP_RpcCliObserveReqBatch
 * take effect from the second one.
 *
 * A renewal waits while a payload of the relation comes in in blocks, which it would end: until the
 * payload is in, or no block has come for 22 s (limits.md).  The latest call says what it asks for.
 *
 * A call with the same key and parameter and another peer moves the relation there.  It keeps its
 * token, unless a relation or transfer with that peer has the same.  The former peer is not told:
 * it sends notifications while other requests keep its session, and is told when that session is
 * closed, 90 seconds after its last request.
 *
 * Returns 0 or:  1900001017, 1900001020, 1900001023 null argument (asserted)
 *                1900001018, 1900001021, 1900001024 bad addresses
 *                1900001028, 1900001029, 1900001030 dstPort is not a port
 *                1900001101 no session   1900001102 no request record */
COAP_RPC_API uint32_t COAP_RpcCliObserveReq(CoapRpcCtx *ctx, const CoapRpcUriKey *key,
                                            const CoapRpcCliReqParam *param,
                                            const CoapRpcCliAddr *addr);
COAP_RPC_API uint32_t COAP_RpcCliObserveReqVerify(CoapRpcCtx *ctx, const CoapRpcUriKey *key,
                                                  const CoapRpcCliReqParam *param,
                                                  const CoapRpcCliAddr *addr);
COAP_RPC_API uint32_t COAP_RpcCliObserveReqBatch(CoapRpcCtx *ctx, const CoapRpcUriKey *key,
                                                 const CoapRpcCliReqParam *param,
                                                 const CoapRpcCliAddr *addr);

/* COAP_RpcCliObserveUnReq ends an observe relation and deletes its record, and its session if no
 * other request is bound to it.  A relation that has moved is ended at its current peer, whichever
 * of the two `addr` names, if there is a session with the one named.  The former peer is told when
 * its session is closed, which naming it here causes.
 *
 * Returns 0, also for an unknown relation; the assertion's value for a null argument. */
COAP_RPC_API uint32_t COAP_RpcCliObserveUnReq(CoapRpcCtx *ctx, const CoapRpcUriKey *key,
                                              const CoapRpcCliReqParam *param,
                                              const CoapRpcCliAddr *addr);

COAP_RPC_C_END
#endif /* COAP_RPC_CLI_H */
