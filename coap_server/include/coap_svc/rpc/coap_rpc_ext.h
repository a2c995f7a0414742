/* coap_rpc_ext.h: settings and figures beyond the base interface. */
#ifndef COAP_RPC_EXT_H
#define COAP_RPC_EXT_H

#include "coap_svc/rpc/coap_rpc_ser.h"

COAP_RPC_C_BEGIN

/* COAP_RpcSetKeepAlive makes the instance ping silent peers of its client sessions.  A peer that
 * does not answer is reported to every onDisconnect, and again with every further unanswered ping.
 * Initially off: without it onDisconnect is never called.  Peers of asynchronous answers are pinged
 * too, while a session to them is open, but not reported.
 *
 *   seconds   silence after which a session's peer is pinged; 0 disables keep-alive
 *
 * A dead peer is detected with the ping after the one that it missed, so after two to three
 * periods, or later while libcoap still retransmits the first ping.  Datagrams of both directions
 * end the silence: with requests more often than `seconds` a peer is never pinged.  A peer that
 * returns before it is pinged is not reported, although it may have restarted and lost our observe
 * relations: renew them now and then with COAP_RpcCliObserveReqVerify.
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
 * Plain requests carry no token (except block-wise ones, see coap_rpc_cli.h), so for CoAP such a
 * response is the answer to any plain CON request of its session: the unacknowledged one is not
 * retransmitted any more.  If the response was late, duplicated or unrelated, and that request's
 * datagram was lost too, the request is lost without a report: its call returned 0, and there is no
 * response, no retransmission and no log line, only this number.  An application that cannot
 * tolerate that repeats its call when no answer arrives in time. */
COAP_RPC_API uint32_t COAP_RpcGetTokenlessRspNum(const CoapRpcCtx *ctx);

/* COAP_RpcGetOldNotificationNum counts the notifications that the instance's relations have dropped
 * since it started, because newer ones had come before them: copies that the network delivers late
 * or twice, and those that were overtaken.  The order is that of RFC 7641 section 3.4.  A dropped
 * one is acknowledged and reaches neither onResponse nor the check code.  After one that is no copy
 * COAP_RpcCliObserveReqVerify asks for everything, like COAP_RpcCliObserveReqBatch, until a renewal
 * is answered that asked.  0 for a null instance. */
COAP_RPC_API uint64_t COAP_RpcGetOldNotificationNum(const CoapRpcCtx *ctx);

/* COAP_RPC_MAX_OPEN_ASYNC_OF_PEER, COAP_RPC_MAX_OPEN_ASYNC: maximum number of open asynchronous
 * requests of one peer, at all URIs, and of all peers.  Open requests were passed to onAsyncRequest
 * and neither answered nor aborted.  Further ones get 5.03.  An open request takes about 300
 * bytes. */
#define COAP_RPC_MAX_OPEN_ASYNC_OF_PEER 65536u
#define COAP_RPC_MAX_OPEN_ASYNC 131072u

/* COAP_RpcGetOpenAsyncNum counts the open asynchronous requests; 0 for a null instance.  If the
 * number only grows, a handler fails to answer its requests. */
COAP_RPC_API uint32_t COAP_RpcGetOpenAsyncNum(const CoapRpcCtx *ctx);

/* COAP_RpcGetIoFd returns a descriptor that becomes readable when the instance has work: datagrams,
 * and whatever is due, such as retransmissions, delayed notifications, answers to asynchronous
 * requests, keep-alive pings, and payloads to release.
 *
 * An application with an event loop watches it (level-triggered) and calls COAP_RpcProcIo when it
 * is readable.  The periodic I/O task continues, but COAP_RpcProcIo then does all of its work in
 * time.  The host's other timers are still needed: each observable URI has one that triggers
 * notifications, others resend requests and close unused sessions.  The descriptor belongs to the
 * instance: do not read or close it, and stop watching before COAP_RpcUninit.
 *
 * Returns -1 for a null instance. */
COAP_RPC_API int COAP_RpcGetIoFd(CoapRpcCtx *ctx);

/* COAP_RpcProcIo handles pending datagrams and due timers of the instance; it never waits.  A run
 * takes up to 10 ms, plus the callbacks of the work it has started by then.  Called by a callback
 * of such a run, it does nothing.
 *
 * Returns 1 when its time was used up and more may be pending (the descriptor is then still
 * readable), else 0; 0 for a null instance. */
COAP_RPC_API uint32_t COAP_RpcProcIo(CoapRpcCtx *ctx);

/* COAP_RpcSetLibLogLevel sets which of libcoap's messages are logged: 0 (emergency) to 8 (all, the
 * default; also for larger numbers).  libcoap has one level for the process.
 *
 * Messages that neither the log nor the debug channel takes are not formatted.  Lower the level if
 * they are taken but not wanted, or if the host has no CSVC_DBG_Takes (csvc_dbg.h): at 8 libcoap
 * writes about ten lines for each request, with the messages themselves; at 4 only warnings and
 * errors.
 *
 * Returns 0 or:  1900001406 null instance (asserted) */
COAP_RPC_API uint32_t COAP_RpcSetLibLogLevel(CoapRpcCtx *ctx, uint32_t level);

/* COAP_RpcSetAdvice says whether the instance warns of input that the base interface accepts
 * although it can never work.  Initially off.  Turn it on first, while you develop: each call is
 * checked when it is made.  Results, messages and other log lines are the same with and without.
 *
 * A warning is one log line at level 2, "[CoapRpc]advice: ...", with the key.  The same one is
 * logged once, and 64 different ones in all, until this function is called again.  It is given for:
 *
 *  - a registered path without terminator, with characters that messages percent-encode, such as a
 *    blank, or with bytes after its terminator
 *  - a path of more than 32 characters, when the client registers it, or COAP_RpcSerSetUri attaches
 *    it and it is not a direct entry's
 *  - a registered key with an unknown message type or packet type
 *  - an observe record with an unknown payload format, or without buildUpdate or buildDelete
 *  - COAP_RpcSerSetUri with port 0
 *  - a request of a key that is not registered, or with an unknown method
 *  - an observing call of a key with observe 0, or of a NON key
 *
 *   isOn   0: no warnings; else warnings
 *
 * Returns 0 or:  1900001641 null instance (asserted) */
COAP_RPC_API uint32_t COAP_RpcSetAdvice(CoapRpcCtx *ctx, uint32_t isOn);

/* COAP_RpcGetAdviceNum counts the warnings, also those that are not logged again; 0 for a null
 * instance. */
COAP_RPC_API uint32_t COAP_RpcGetAdviceNum(const CoapRpcCtx *ctx);

/* COAP_RpcSetNstart sets how many CON requests of a client session may be unacknowledged at once;
 * libcoap queues further ones.  It applies to sessions opened later; answers to asynchronous
 * requests are always sent one at a time.
 *
 *   nstart   0: the default of RFC 7252 section 4.8, which is 1.  A larger number exceeds CoAP's
 *            congestion control: use it only in your own network
 *
 * Returns 0 or:  1900001408 null instance (asserted) */
COAP_RPC_API uint32_t COAP_RpcSetNstart(CoapRpcCtx *ctx, uint16_t nstart);

/* COAP_RpcSerReopen opens the endpoint of a listen that has none, because its port was in use when
 * COAP_RpcSerSetUri created it: one attempt, without sleep.  The keys attached there are then
 * served.  The key of a call that returned 1900000157 is not attached: attach it again, before or
 * after.  Any callback that may call COAP_RpcSerSetUri may call this function.
 *
 *   addr   as given to COAP_RpcSerSetUri
 *
 * Returns 0, also when the listen has its endpoint already, or:
 *                1900001452 null argument (asserted)     1900001453 no listen with this address
 *                1900001454 still unavailable: see libcoap's warning "cannot open endpoint"
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

/* COAP_RpcSerSetMember sets a member of the object that buildUpdate or buildDelete of a JSON entry
 * fills, for an application that does not link Jansson.  Only inside such a builder.
 *
 *   out     the builder's own argument
 *   name    UTF-8; a member of this name is replaced
 *   value   a JSON text of `len` bytes: any value, and nothing after it
 *
 * Returns 0 or:  1900001724 null argument (asserted)     1900001725 the value is no JSON
 *                1900001726 no memory, or the name is no UTF-8 */
COAP_RPC_API uint32_t COAP_RpcSerSetMember(void *out, const char *name, const char *value,
                                           uint32_t len);

COAP_RPC_C_END
#endif /* COAP_RPC_EXT_H */
