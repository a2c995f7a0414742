/* coap_rpc_ext.h: settings and figures beyond the base interface. */
#ifndef COAP_RPC_EXT_H
#define COAP_RPC_EXT_H

#include "coap_svc/rpc/coap_rpc_ser.h"

COAP_RPC_C_BEGIN

/* COAP_RpcSetKeepAlive lets the instance ask silent peers of its client sessions for a sign of
 * life.  A peer that does not answer is reported to every onDisconnect, and again with every
 * further ping that stays unanswered.  Off at the start: without it onDisconnect is never called.
 * Peers of asynchronous answers are asked as well, as long as a session to them is open, but not
 * reported.
 *
 *   seconds   silence after which a session's peer is asked; 0 switches it off
 *
 * A vanished peer is noticed with the ping after the one that it missed, so after two to three
 * periods, or later while libcoap still retransmits the first one.  Datagrams of both directions
 * break the silence: with requests more often than `seconds` a peer is never asked.  One that is
 * back before it is asked is not reported, although it may have restarted and know nothing of our
 * observe relations any more: COAP_RpcCliObserveReqVerify now and then renews them.
 *
 * A ping that the system refuses to send counts as one without answer.  When our own address is
 * gone and a session goes on from another one, its peer is reported as well, once: it knows our
 * relations by the former address.
 *
 * Returns 0 or:  1900001404 null instance (asserted) */
COAP_RPC_API uint32_t COAP_RpcSetKeepAlive(CoapRpcCtx *ctx, uint32_t seconds);

/* COAP_RpcGetTokenlessRspNum counts the separate responses (CON or NON) without a token that peers
 * have sent to the instance's client sessions since it started; 0 for a null instance.
 *
 * Plain requests carry no token (the exceptions are block-wise ones, see coap_rpc_cli.h), so such
 * a response counts for CoAP as the answer to any plain CON request of its session: the one that
 * waits for its acknowledgement is not retransmitted any more.  When the response was late, sent
 * twice, or a stray one, and that request's datagram was lost as well, the request is lost without
 * a report: its call returned 0, no response comes, no retransmission, nothing in a log but this
 * number.  An application that cannot bear that repeats its call when no answer arrives in time. */
COAP_RPC_API uint32_t COAP_RpcGetTokenlessRspNum(const CoapRpcCtx *ctx);

/* COAP_RpcGetOldNotificationNum counts the notifications that the instance's relations have dropped
 * since it started, because newer ones had come before them: copies that the network delivers late
 * or twice, and those that were overtaken.  The order is that of RFC 7641 section 3.4.  A dropped
 * one is acknowledged and reaches neither onResponse nor the check code.  After one that is no copy
 * COAP_RpcCliObserveReqVerify asks for everything, like COAP_RpcCliObserveReqBatch, until a renewal
 * is answered that asked.  0 for a null instance. */
COAP_RPC_API uint64_t COAP_RpcGetOldNotificationNum(const CoapRpcCtx *ctx);

/* COAP_RPC_MAX_OPEN_ASYNC_OF_PEER, COAP_RPC_MAX_OPEN_ASYNC: how many asynchronous requests of one
 * peer, at whatever URIs, and of all peers may be open, that is given to onAsyncRequest and neither
 * answered nor aborted.  Further ones get 5.03.  An open request costs about 300 bytes. */
#define COAP_RPC_MAX_OPEN_ASYNC_OF_PEER 65536u
#define COAP_RPC_MAX_OPEN_ASYNC 131072u

/* COAP_RpcGetOpenAsyncNum counts the open asynchronous requests; 0 for a null instance.  A number
 * that only grows is that of a handler that forgets to answer. */
COAP_RPC_API uint32_t COAP_RpcGetOpenAsyncNum(const CoapRpcCtx *ctx);

/* COAP_RpcGetIoFd gives a descriptor that becomes readable when the instance has work: datagrams,
 * and whatever is due at a time, such as retransmissions, notifications that had to wait, answers
 * to asynchronous requests, signs of life to ask for, and payloads to release.
 *
 * An application with an event loop watches it (level-triggered) and calls COAP_RpcProcIo when it
 * is readable.  The periodic I/O task goes on beside it, and does nothing then that COAP_RpcProcIo
 * does not do in time.  The host's other timers are needed as before: notifications are asked for
 * by one of each observable URI, requests are repeated and sessions given up by others.  The
 * descriptor belongs to the instance: do not read or close it, and stop watching before
 * COAP_RpcUninit.
 *
 * Returns -1 for a null instance. */
COAP_RPC_API int COAP_RpcGetIoFd(CoapRpcCtx *ctx);

/* COAP_RpcProcIo serves what waits at the instance's sockets and timers and returns; it never waits
 * for anything.  A run takes up to 10 ms and the callbacks of what it has begun by then.  Called by
 * a callback of such a run, it does nothing.
 *
 * Returns 1 when its time was used up and more may be waiting (the descriptor is then still
 * readable), else 0; 0 for a null instance. */
COAP_RPC_API uint32_t COAP_RpcProcIo(CoapRpcCtx *ctx);

/* COAP_RpcSetLibLogLevel says which of libcoap's messages reach the log: 0 (emergency) to 8 (all,
 * the default; also for larger numbers).  libcoap has one level for the process.
 *
 * Messages that neither the log nor the debug channel takes are not formatted.  Lower the level when
 * they are taken but not wanted, or when the host cannot be asked (CSVC_DBG_Takes in csvc_dbg.h):
 * at 8 libcoap writes some ten lines for each request, with the messages themselves; 4 leaves the
 * warnings.
 *
 * Returns 0 or:  1900001406 null instance (asserted) */
COAP_RPC_API uint32_t COAP_RpcSetLibLogLevel(CoapRpcCtx *ctx, uint32_t level);

/* COAP_RpcSetNstart says how many CON requests a client session may have under way at once; further
 * ones wait in libcoap.  It holds for sessions opened from then on; answers to asynchronous
 * requests go out one at a time all the same.
 *
 *   nstart   0: the default of RFC 7252 section 4.8, which is 1.  A larger one asks more of the
 *            network than CoAP's congestion control allows: for networks of one's own
 *
 * Returns 0 or:  1900001408 null instance (asserted) */
COAP_RPC_API uint32_t COAP_RpcSetNstart(CoapRpcCtx *ctx, uint16_t nstart);

/* COAP_RpcSerReopen opens the endpoint of a listen that has none, because its port was held when
 * COAP_RpcSerSetUri made it: one attempt, without sleep.  What is attached there is served from
 * then on.  The key of a call that gave 1900000157 is not: attach it again, before or after.  Any
 * callback may call it that may call COAP_RpcSerSetUri.
 *
 *   addr   as given to COAP_RpcSerSetUri
 *
 * Returns 0, also when the listen has its endpoint already, or:
 *                1900001452 null argument (asserted)     1900001453 no listen with this address
 *                1900001454 still unavailable: libcoap's warning "cannot open endpoint" tells why
 */
COAP_RPC_API uint32_t COAP_RpcSerReopen(CoapRpcCtx *ctx, const CoapRpcSerListenAddr *addr);

/* COAP_RPC_MAX_FOLLOWED_REQUESTS: how many sendings of CON requests may be under way, and still be
 * told of one by one, while a CoapRpcOnRequestEnd is set.  Each costs about 250 bytes. */
#define COAP_RPC_MAX_FOLLOWED_REQUESTS 1024u

/* Why a request has ended without a response that onResponse took. */
enum {
  COAP_RPC_END_TIMEOUT = 1,  /* no acknowledgement of any transmission, or one without a response
                                within 247 to 248 s after it; or a response in blocks that did not
                                all come */
  COAP_RPC_END_RESET,        /* the peer refused the message with a reset */
  COAP_RPC_END_UNREACHABLE,  /* as the first, and the network reported it (ICMP) */
  COAP_RPC_END_BAD_RESPONSE, /* the response has a critical option that is unknown here */
  COAP_RPC_END_NO_PATH,      /* the response has no Uri-Path, so nobody can be found to take it */
  COAP_RPC_END_NO_ENTRY,     /* nothing is registered for the response's path, or no onResponse */
  COAP_RPC_END_EMPTY,        /* the response has no payload, and is not 2.04 */
  COAP_RPC_END_REFUSED,      /* onResponse did not accept the response */
  COAP_RPC_END_NO_MEMORY,    /* the response could not be copied for onResponse */
  COAP_RPC_END_CLOSED,       /* its session was closed, 90 s after the last request, or by
                                COAP_RpcCliObserveUnReq: a response would not be heard */
  COAP_RPC_END_UNKNOWN       /* not followed: too many under way, or no memory */
};

/* CoapRpcRequestEnd is a request that has ended.  For COAP_RPC_END_UNKNOWN it stands for `num`
 * requests and names none of them: the fields before `reason` are zero. */
typedef struct CoapRpcRequestEnd {
  CoapRpcUriKey key;
  uint64_t userData;                    /* of the request's CoapRpcCliReqParam */
  uint8_t reqKeyRsv[COAP_RPC_RSV_SIZE]; /* likewise */
  CoapRpcIpAddr peer;
  uint32_t peerPort;
  uint32_t reason;  /* COAP_RPC_END_... */
  uint32_t rspCode; /* class x 100 + detail when a response came, else 0 */
  uint32_t num;     /* 1, but for COAP_RPC_END_UNKNOWN */
} CoapRpcRequestEnd;

/* CoapRpcOnRequestEnd hears of a request that has ended.  Called from the I/O task, the resend timer
 * or a timer of 1000 ms.  May call any function of the library but COAP_RpcUninit.
 *
 *   userData   as given to COAP_RpcSetOnRequestEnd
 *   end        valid during the call */
typedef void (*CoapRpcOnRequestEnd)(uint64_t userData, const CoapRpcRequestEnd *end);

/* COAP_RpcSetOnRequestEnd says whom to tell of CON requests and registrations that end without a
 * response that onResponse has taken.  Each is told once; never one whose response it took.
 *
 * A registration is told for each time that it was sent, since each may be lost alone: its record
 * stays, and COAP_RpcCliObserveReq sends it again.  A registration that was accepted (class 2, and
 * a path) is not told, with or without payload.  Notifications are no requests, and a relation that
 * the server forgets later is not told of: COAP_RpcCliObserveReqVerify now and then finds out.
 *
 * Not told: NON requests, whose end cannot be known; requests whose sending failed, which the call
 * has said, and which a CON request repeats by itself; those sent before the callback was set; those
 * of a relation that COAP_RpcCliObserveUnReq ends; anything once COAP_RpcUninit has begun.
 *
 * Plain requests carry no token, so a separate response, which acknowledges none of them, counts
 * for the oldest open request of its path: with two of the same path under way at one peer, a
 * response that comes twice may hide that the second request got none.
 *
 *   onEnd   null: nobody; what is under way is forgotten.  Another one takes over what is under way
 *
 * Returns 0 or:  1900001461 null instance (asserted)     1900001462 no memory */
COAP_RPC_API uint32_t COAP_RpcSetOnRequestEnd(CoapRpcCtx *ctx, CoapRpcOnRequestEnd onEnd,
                                              uint64_t userData);

COAP_RPC_C_END
#endif /* COAP_RPC_EXT_H */
