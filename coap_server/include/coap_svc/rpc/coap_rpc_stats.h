/* coap_rpc_stats.h: what an instance has done so far, and what it holds now.
 *
 * Counters begin at 0 with COAP_RpcInit and only grow; a rate is the difference of two readings.
 * Gauges are what is there at the time of the call.  All are plain 64-bit numbers of one thread,
 * counted whether anybody reads them or not.
 *
 * Both records grow at their ends.  The first field says how many bytes are meant, so an
 * application and a library of different versions agree on what both know. */
#ifndef COAP_RPC_STATS_H
#define COAP_RPC_STATS_H

#include "coap_svc/rpc/coap_rpc_types.h"

COAP_RPC_C_BEGIN

#define COAP_RPC_STATS_VERSION 1u

/* CoapRpcTraffic is messages of one direction, those that are sent again included. */
typedef struct CoapRpcTraffic {
  uint64_t messages;
  uint64_t bytes;        /* of CoAP, without headers of UDP and IP */
  uint64_t requests[8];  /* by COAP_RPC_GET to COAP_RPC_IPATCH; [0] other methods.  Answers to
                            asynchronous base requests are POST requests */
  uint64_t responses[8]; /* by class 2, 4 and 5, notifications included; [0] other codes */
  uint64_t emptyAcks;    /* acknowledgements without a response */
  uint64_t resets;
  uint64_t pings; /* empty CON and NON messages */
} CoapRpcTraffic;

/* Why a message of ours has failed: indexes of CoapRpcStats.nacks.  A message that the network
 * reports may be reported for each time that it is sent; a reset of a message that is not known any
 * more counts too. */
enum {
  COAP_RPC_NACK_TIMEOUT = 0,       /* no acknowledgement of any transmission */
  COAP_RPC_NACK_UNDELIVERABLE = 1, /* its session was closed, or it could not be sent */
  COAP_RPC_NACK_RESET = 2,         /* the peer refused it */
  COAP_RPC_NACK_UNREACHABLE = 4,   /* the network reported it (ICMP) */
  COAP_RPC_NACK_BAD_RESPONSE = 5,  /* its response has an unknown critical option */
  COAP_RPC_NACK_OTHER = 7
};

/* What was refused or dropped because of a limit (docs/limits.md): indexes of
 * CoapRpcStats.refused. */
enum {
  COAP_RPC_LIMIT_OPEN_OF_PEER = 0, /* open asynchronous requests of one address: 5.03 */
  COAP_RPC_LIMIT_OPEN = 1,         /* open asynchronous requests in all: 5.03 */
  COAP_RPC_LIMIT_ASKERS = 2,       /* pairs of a URI and an asking peer, or no socket: 5.03 */
  COAP_RPC_LIMIT_ANSWERS = 3,      /* queued asynchronous answers to one peer: 5.03 */
  COAP_RPC_LIMIT_DIRECT_PEERS = 4, /* peers of direct entries: 5.03 */
  COAP_RPC_LIMIT_DIRECT = 5,       /* requests or queued answers of direct entries: 5.03 */
  COAP_RPC_LIMIT_CALLS = 6,        /* calls under way: a code */
  COAP_RPC_LIMIT_MIRRORS = 7,      /* mirrors: a code */
  COAP_RPC_LIMIT_PUT_BACK = 8,     /* pending changes of a URI: the oldest of a payload dropped */
  COAP_RPC_LIMIT_GIVEN_UP = 9,     /* payloads that one peer stopped fetching: changes dropped */
  COAP_RPC_LIMIT_REMEMBERED = 10,  /* requests to direct entries that are known again: forgotten */
  COAP_RPC_LIMIT_SYNC_BODIES = 11, /* pages in blocks: the oldest dropped */
  COAP_RPC_LIMIT_DIRECT_BODIES = 12, /* answers of direct entries in blocks: the oldest dropped */
  COAP_RPC_LIMIT_OBSERVERS = 13,     /* observers of a URI: answered without Observe option */
  COAP_RPC_LIMIT_IDLE_PEERS = 14,    /* idle peers: the one silent for longest forgotten */
  COAP_RPC_LIMIT_UPLOADS = 15,       /* requests that arrive in blocks: dropped */
  COAP_RPC_LIMIT_PAYLOADS = 16,      /* unacknowledged payloads: the changes of the oldest pending
                                        again */
  COAP_RPC_LIMIT_LAST_BLOCKS = 17,   /* last blocks that can be repeated: the oldest forgotten */
  COAP_RPC_LIMIT_FOLLOWED = 18,      /* CON requests with a reported end: not reported */
  COAP_RPC_LIMIT_SYNC_REGISTRATIONS = 19 /* registrations with versions of one session for a URI,
                                            or no memory for one: 5.03 */
};

enum {
  COAP_RPC_NUM_LIMITS = 32,          /* elements of CoapRpcStats.refused; the rest are 0 */
  COAP_RPC_NUM_TIMES = 32,           /* elements of a CoapRpcTimes */
  COAP_RPC_STATS_MAX_COUNTED = 65536 /* changes that one reading counts at most */
};

/* CoapRpcTimes counts durations by their size: [0] those below 1024 ns, each next one those below
 * twice as much, the last one all others. */
typedef struct CoapRpcTimes {
  uint64_t num[COAP_RPC_NUM_TIMES];
} CoapRpcTimes;

/* CoapRpcStats is an instance in numbers. */
typedef struct CoapRpcStats {
  uint32_t size;    /* bytes of this record that are meant */
  uint32_t version; /* COAP_RPC_STATS_VERSION of the library */

  /* Counters */
  CoapRpcTraffic in;
  CoapRpcTraffic out;
  uint64_t badMessages; /* malformed ones, or of unknown codes, that came; not what is no CoAP */
  uint64_t resends;     /* CON messages sent again for want of an acknowledgement */
  uint64_t repeats;     /* requests heard before, answered without a callback */
  uint64_t nacks[8];    /* by COAP_RPC_NACK_* */
  uint64_t calls;       /* of COAP_RpcCall and COAP_RpcCallObserve that returned 0 */
  uint64_t callEnds[8]; /* by COAP_RPC_CALL_* (coap_rpc_call.h); [0] is 0 */
  uint64_t callNotifications;      /* told to observations, the last ones excepted */
  uint64_t notifications;          /* payloads and pages handed to libcoap, one per observer */
  uint64_t notificationsDelivered; /* payloads acknowledged or, being NON, sent */
  uint64_t notificationsFailed;    /* payloads that did not arrive */
  uint64_t changesPutBack;         /* changes of failed payloads that are pending again */
  uint64_t notificationsOld;       /* heard and dropped: COAP_RpcGetOldNotificationNum */
  uint64_t syncPulls;              /* questions of readers with versions, registrations included */
  uint64_t syncPages;              /* pages in answers and notifications */
  uint64_t syncFull;               /* readers told, or asking, to read everything from 0 on */
  uint64_t refused[COAP_RPC_NUM_LIMITS]; /* by COAP_RPC_LIMIT_* */
  uint64_t callbacks;  /* runs of onRequest, onAsyncRequest, onResponse, onRsp, of those of mirrors,
                          and of the builders of one payload */
  uint64_t callbackNs; /* time in them, nanoseconds */
  uint64_t callbackMaxNs; /* longest of them */
  uint64_t ioRuns;        /* runs of libcoap's I/O, callbacks included */
  uint64_t ioNs;    /* time in them, nanoseconds, by a clock with steps of a few milliseconds: right
                       in the sum */
  uint64_t ioMaxNs; /* longest of them, in such steps */
  CoapRpcTimes callbackTimes; /* the callbacks of `callbacks` */
  uint64_t callNs;            /* time from the messages of calls to their answers, nanoseconds */
  CoapRpcTimes callTimes;     /* the same by size: CoapRpcCallRsp.rttUs, in microseconds there */

  /* Gauges */
  uint64_t uris;            /* registered server URIs */
  uint64_t tuples;          /* of all of them */
  uint64_t changesPending;  /* not in a payload yet; at most COAP_RPC_STATS_MAX_COUNTED */
  uint64_t changesInFlight; /* in payloads that are not known to have arrived; likewise */
  uint64_t oldestPendingMs; /* since when a URI has had changes pending without a break; 0 none */
  uint64_t observers;       /* registrations, those of readers with versions included */
  uint64_t peers;           /* sessions of peers that have asked us */
  uint64_t sessions;        /* client sessions: rows of "disp client session" */
  uint64_t answerSessions;  /* sessions of asynchronous answers */
  uint64_t openAsync;       /* open asynchronous requests: COAP_RpcGetOpenAsyncNum */
  uint64_t openCalls;       /* calls and observations under way: COAP_RpcGetCallNum */
  uint64_t mirrors[8];      /* by COAP_RPC_MIRROR_* (coap_rpc_sync.h); [0] is 0 */
  uint64_t poolBytes;       /* in use in the instance's pool, for whomever; 0 when unknown */
  uint64_t poolMaxBytes;    /* at most so far; 0 when unknown */
} CoapRpcStats;

/* CoapRpcUriStats is a server URI in numbers. */
typedef struct CoapRpcUriStats {
  uint32_t size;    /* bytes of this record that the library has filled */
  uint32_t version; /* COAP_RPC_STATS_VERSION of the library */

  /* Counters, from the registration of the URI on */
  uint64_t requests;      /* handed to onRequest or onAsyncRequest */
  uint64_t callbackNs;    /* time in these callbacks and in builders, nanoseconds */
  uint64_t callbackMaxNs; /* longest of them */
  uint64_t notifications; /* as in CoapRpcStats, and the next three */
  uint64_t notificationsDelivered;
  uint64_t notificationsFailed;
  uint64_t changesPutBack;

  /* Gauges, as in CoapRpcStats */
  uint64_t tuples;
  uint64_t changesPending;
  uint64_t changesInFlight;
  uint64_t oldestPendingMs;
  uint64_t observers;
} CoapRpcUriStats;

/* COAP_RpcGetStats reads the numbers of an instance.  May be called in any callback.
 *
 *   stats   size is set by the caller, to sizeof(CoapRpcStats); on return it is that or what the
 *           library knows, whichever is less, and bytes beyond are unchanged
 *
 * The call looks at each URI and each mirror: about 20 us for 1000 URIs, and up to 1 ms more with
 * COAP_RPC_STATS_MAX_COUNTED changes.
 *
 * Returns 0 or:  1900001661 null argument (asserted)     1900001662 size is less than 8 */
COAP_RPC_API uint32_t COAP_RpcGetStats(CoapRpcCtx *ctx, CoapRpcStats *stats);

/* CoapRpcOnUriStats is told of one URI.  It may call anything but COAP_RpcUninit; a URI that it
 * registers or removes is visited or not.
 *
 *   key, stats   valid during the call */
typedef void (*CoapRpcOnUriStats)(uint64_t userData, const CoapRpcUriKey *key,
                                  const CoapRpcUriStats *stats);

/* COAP_RpcVisitUriStats reads the numbers of up to `maxNum` server URIs, in the order of their
 * keys.  With many URIs ask for some at a time, and again from the last key on, so that the
 * instance's thread is not held up.
 *
 *   after    the first URI is the one after this key, which need not exist any more; null: from
 *            the first on
 *   maxNum   0: all
 *   num      how many there were; null: not wanted
 *
 * Returns 0 or:  1900001664 null instance or callback (asserted) */
COAP_RPC_API uint32_t COAP_RpcVisitUriStats(CoapRpcCtx *ctx, const CoapRpcUriKey *after,
                                            uint32_t maxNum, CoapRpcOnUriStats onUri,
                                            uint64_t userData, uint32_t *num);

/* COAP_RpcShowStats adds display commands for operators, beside the eight that are always there:
 *
 *   disp server stats      each number that concerns the server or both sides
 *   disp server perUri     the numbers of each URI
 *   disp server times      how many callbacks took how long
 *   disp client stats      each number that concerns the client
 *   disp client times      how many answers to calls took how long
 *   disp client call       calls, observations and unacknowledged base requests under way, with
 *                          age, attempts and local address
 *   disp server async      requests that were given to onAsyncRequest and are not answered
 *
 * Again for an instance that has them: nothing happens.
 *
 * Returns 0 or:  1900001666 null instance (asserted) */
COAP_RPC_API uint32_t COAP_RpcShowStats(CoapRpcCtx *ctx);

COAP_RPC_C_END
#endif /* COAP_RPC_STATS_H */
