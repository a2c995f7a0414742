/* coap_rpc_sync.h: exact copies of an observable URI's tuples at other hosts: the server's half
 * first, then the mirror, which is such a copy.
 *
 * Without it changes reach observers once, by notifications that may be lost.  With it each change
 * of the set has a number, its version, and a reader asks for what is newer than what it has: it
 * gets every state, though not every value that a key has had between two of its questions.  The
 * server keeps no queue for anyone.
 *
 * Opt-in for each URI.  Observers that do not ask for it are served as ever, by the change list;
 * COAP_RpcSerObserveDataUpdate and COAP_RpcSerObserveDataDel feed both.
 *
 * On the wire a tuple is its keyLen key bytes and its valLen value bytes as they are in memory.
 * For hosts of different kinds lay them out by hand: numbers of fixed width in network byte order,
 * no padding, texts padded with zeros.  tupleKeyCmp must find keys equal only when all their bytes
 * are. */
#ifndef COAP_RPC_SYNC_H
#define COAP_RPC_SYNC_H

#include "coap_svc/rpc/coap_rpc_call.h"
#include "coap_svc/rpc/coap_rpc_ser.h"

COAP_RPC_C_BEGIN

/* Limits and defaults of CoapRpcSerSyncParam. */
#define COAP_RPC_SYNC_MIN_PAGE 256u
#define COAP_RPC_SYNC_MAX_PAGE 1024u
#define COAP_RPC_SYNC_MIN_TOMBSTONES 1024u
#define COAP_RPC_SYNC_LEASE_MS 120000u
#define COAP_RPC_SYNC_MAX_TUPLE 65000u /* keyLen + valLen, bytes */

/* CoapRpcSyncOnConfirmed hears that every observer of the URI has the set as of `version`, or
 * newer.  Each call has a greater version than the one before.  Called by the I/O, and by a timer
 * when an observer is given up that had less; may call all functions but COAP_RpcUninit.
 *
 *   userData   as given to COAP_RpcSerSetUriSync */
typedef void (*CoapRpcSyncOnConfirmed)(uint64_t userData, uint64_t version);

/* CoapRpcSerSyncParam is how a URI is kept in step. */
typedef struct CoapRpcSerSyncParam {
  uint32_t windowMs;      /* changes are collected for so long before they are pushed; 0: the next
                             run of the I/O pushes them */
  uint32_t pageBytes;     /* longest payload of a message, 256 to 1024; 0: 1024 */
  uint32_t minTombstones; /* deletions remembered at least; a quarter of the tuples if that is
                             more.  A reader that has missed older ones reads everything again.
                             0: 1024 */
  uint32_t leaseMs;       /* an observer that asks nothing for so long is removed, up to a quarter
                             of it later; 0: 120,000 */
  uint64_t userData;      /* first argument of onConfirmed */
  CoapRpcSyncOnConfirmed onConfirmed; /* optional; set, it makes observers confirm what they have
                                         got soon after each notification */
} CoapRpcSerSyncParam;

/* COAP_RpcSerSetUriSync gives versions to the tuples of a registered URI, those that it has already
 * included, and serves them from now on.  Called again, it changes the parameters and nothing else.
 * It cannot be taken back.  From then on COAP_RpcSerObserveDataUpdate returns 1900000135 when there
 * is no memory for a new tuple: nothing has changed then.
 *
 * Readers may ask by messages of either type, whatever the key's.
 *
 * A tuple takes up to 48 bytes more than without.  Not for use inside a callback that walks tuples.
 *
 *   param   copied; null: all defaults
 *
 * Returns 0 or:  1900001511 null argument (asserted)     1900001512 no such observable URI
 *                1900001513 pageBytes out of range       1900001514 tuples longer than 65,000 bytes
 *                1900001515 no memory (nothing changed)  1900001516 no random number available */
COAP_RPC_API uint32_t COAP_RpcSerSetUriSync(CoapRpcCtx *ctx, const CoapRpcUriKey *key,
                                            const CoapRpcSerSyncParam *param);

/* CoapRpcSerSyncNext hands out the application's tuples one after the other, in any order.  Called
 * from COAP_RpcSerSyncReplace only; must not call the instance.
 *
 *   tupleKey, tupleVal   keyLen and valLen bytes to fill, with the former tuple in them; zero at
 *                        first
 *
 * Returns 0: a tuple was written; COAP_RPC_SYNC_END: there are no more; anything else: failure. */
enum { COAP_RPC_SYNC_END = 1 };
typedef uint32_t (*CoapRpcSerSyncNext)(uint64_t userData, void *tupleKey, void *tupleVal);

/* COAP_RpcSerSyncReplace makes the set equal to the application's own in one step: it adds and
 * changes what `next` hands out, and then deletes what that did not name.  What is equal already is
 * no change, so that an application that restarts its own table publishes the difference alone.
 *
 *   next       a key that it names twice gets the later value
 *   userData   first argument of next
 *
 * Returns 0 or:  1900001521 null argument (asserted)     1900001522 the URI has no versions
 *                1900001523 next has failed, or 1900001524 there was no memory: what was named
 *                until then is updated, and nothing is deleted */
COAP_RPC_API uint32_t COAP_RpcSerSyncReplace(CoapRpcCtx *ctx, const CoapRpcUriKey *key,
                                             CoapRpcSerSyncNext next, uint64_t userData);

/* CoapRpcSerSyncState is where a URI's set is, and its observers. */
typedef struct CoapRpcSerSyncState {
  uint64_t replid;        /* this life of the set: random, never 0 */
  uint64_t head;          /* version of the last change */
  uint64_t floor;         /* readers that have less read everything again */
  uint64_t digest;        /* sum of XXH64 (seed 0) of each tuple's bytes, key and value, mod 2^64 */
  uint64_t confirmed;     /* the version that every observer has, or more; 0 without observers */
  uint64_t unconfirmedMs; /* age of the oldest change that an observer has not confirmed, or up to a
                             round more; what is older than the first observer counts from its
                             registration.  0: there is none */
  uint64_t bytes;         /* memory of tuples, tombstones and observers */
  uint32_t numLive;
  uint32_t numTombstones;
  uint32_t numObservers;
  uint32_t numBehind; /* observers that have not confirmed the head */
} CoapRpcSerSyncState;

/* COAP_RpcSerGetSyncState fills a record.  It goes through the observers.
 *
 * Returns 0 or:  1900001531 null argument (asserted)     1900001532 the URI has no versions */
COAP_RPC_API uint32_t COAP_RpcSerGetSyncState(CoapRpcCtx *ctx, const CoapRpcUriKey *key,
                                              CoapRpcSerSyncState *state);

/* CoapRpcVisitTuple is shown one tuple, keyLen and valLen bytes that are valid during the call; must
 * not call the instance.  Returns 0 to be shown the next one. */
typedef uint32_t (*CoapRpcVisitTuple)(uint64_t userData, const void *tupleKey,
                                      const void *tupleVal);

/* COAP_RpcSerVisitTuples shows the tuples of a URI, in the order of their keys.
 *
 * Returns 0 or:  1900001721 null argument (asserted)     1900001722 the URI has no versions */
COAP_RPC_API uint32_t COAP_RpcSerVisitTuples(CoapRpcCtx *ctx, const CoapRpcUriKey *key,
                                             CoapRpcVisitTuple visit, uint64_t userData);

/* CoapRpcSyncPeer is an observer that keeps versions. */
typedef struct CoapRpcSyncPeer {
  CoapRpcIpAddr addr;
  uint32_t port;
  uint64_t confirmed; /* it has this version, or more */
  uint64_t silentMs;  /* since it was heard last, in quarters of leaseMs and rounded down */
} CoapRpcSyncPeer;

/* CoapRpcVisitSyncPeer is shown one observer, valid during the call; must not call the
 * instance. */
typedef void (*CoapRpcVisitSyncPeer)(uint64_t userData, const CoapRpcSyncPeer *peer);

/* COAP_RpcSerVisitSyncPeers shows the observers of a URI that keep versions, in no particular
 * order.
 *
 *   visit   called for each
 *
 * Returns 0 or:  1900001541 null argument (asserted)     1900001542 the URI has no versions */
COAP_RPC_API uint32_t COAP_RpcSerVisitSyncPeers(CoapRpcCtx *ctx, const CoapRpcUriKey *key,
                                                CoapRpcVisitSyncPeer visit, uint64_t userData);

/* A mirror is a copy of a URI's tuples, at a server where COAP_RpcSerSetUriSync was called for it.
 * The library keeps it: it registers, asks for what is missing, repairs what was lost, and finds
 * the server again after either side has restarted or moved.  Mirrors have a port each, so several
 * of one URI, and several processes on one address, work side by side. */
typedef struct CoapRpcMirror CoapRpcMirror;

/* Limits and defaults of mirrors. */
#define COAP_RPC_MAX_MIRRORS 4096u /* of an instance */
#define COAP_RPC_MIRROR_MAX_IN_FLIGHT 128u
#define COAP_RPC_MIRROR_IN_FLIGHT 16u
#define COAP_RPC_MIRROR_MIN_HEARTBEAT_MS 100u
#define COAP_RPC_MIRROR_MAX_HEARTBEAT_MS 3600000u
#define COAP_RPC_MIRROR_HEARTBEAT_MS 30000u

/* Where a mirror is. */
enum {
  COAP_RPC_MIRROR_CONNECTING = 1, /* it has heard nothing from the server so far */
  COAP_RPC_MIRROR_FULL_SYNC,      /* it reads everything; tuples come and change meanwhile */
  COAP_RPC_MIRROR_SYNCED,         /* it equals the server's set, as far as the server has told */
  COAP_RPC_MIRROR_BEHIND,         /* it lacks changes, and is asking for them */
  COAP_RPC_MIRROR_STALE,          /* the server does not answer; the tuples stay as they are */
  COAP_RPC_MIRROR_REFUSED         /* the server, or at least its host, answers, but not as one that
                                     keeps versions of such tuples; the tuples stay */
};

/* The callbacks of a mirror.  Called from the I/O task and from timers, never inside
 * COAP_RpcMirrorOpen, COAP_RpcMirrorClose or COAP_RpcUninit.  They may call all functions but
 * COAP_RpcUninit: read this mirror and others, open them, and close them; a mirror that was closed
 * calls nothing any more.  Keys and values are valid during the call.
 *
 * The first three follow the tuples.  The table has the change when they are called, and other
 * changes of the same message may still be to come: the copy is whole when onSynced is called.
 * Who applies them one after the other to a table of his own has an equal one.  A full sync tells
 * only of what differs.
 *
 *   onAdded     a tuple has come
 *   onChanged   it has another value
 *   onRemoved   it is gone; tupleVal is the last value
 *   onSynced    the mirror equals the server's set as of `version`, byte for byte, and as of no
 *               version was it said before; after a full sync, always.  Versions grow until the
 *               server's set begins a new life, as by a restart
 *   onState     the state, or the code of the same state, is another one
 *
 * Values of tuples without value (valLen 0) are not null, and not to be read.
 *
 * Codes of onState: 0: nothing is wrong.  Otherwise why it is as it is; tried again by itself, with
 * pauses that grow to 60 s, or to a heartbeat of 8 s or more for 1900001616, 1617 and 1624:
 *
 *   STALE      1900001616 the server does not answer   1900001617 no socket, or srcIp is gone
 *   REFUSED    1900001618 an error code, as 4.04       1900001619 no page, or from the first no
 *                                                      answer to anything but a ping: the server,
 *                                                      or the URI, has no versions
 *              1900001620 a page with errors           1900001621 keys or values of other lengths
 *   BEHIND     1900001622 the digest differs, and      1900001623 versions that contradict those
 *              a full sync follows                     before; a full sync follows
 *              1900001624 the server has no memory,    1900001625 maxBytes are in use
 *              or says so often to begin again         1900001626 no memory here
 *              that it has to wait
 *
 * The code of REFUSED and BEHIND stays until the mirror is SYNCED again. */
typedef void (*CoapRpcMirrorOnAdded)(uint64_t userData, const void *tupleKey, const void *tupleVal);
typedef void (*CoapRpcMirrorOnChanged)(uint64_t userData, const void *tupleKey, const void *oldVal,
                                       const void *newVal);
typedef void (*CoapRpcMirrorOnRemoved)(uint64_t userData, const void *tupleKey,
                                       const void *tupleVal);
typedef void (*CoapRpcMirrorOnSynced)(uint64_t userData, uint64_t version);
typedef void (*CoapRpcMirrorOnState)(uint64_t userData, uint32_t state, uint32_t code);

/* CoapRpcMirrorParam is how a mirror is kept.  Zeroed but for keyLen it has all defaults. */
typedef struct CoapRpcMirrorParam {
  uint32_t keyLen; /* bytes of every key, as at the server; at least 1 */
  uint32_t valLen; /* bytes of every value; keyLen + valLen up to COAP_RPC_SYNC_MAX_TUPLE */
  CoapRpcTupleKeyCmp keyCmp; /* total order of keys, the one of COAP_RpcMirrorNext; null: by bytes,
                                as memcmp.  Equal only when all bytes are; must not call the
                                instance */
  uint32_t numInFlight;      /* pages asked for at a time at most, 1 to 128; 0: 16 */
  uint32_t heartbeatMs;      /* the server is asked so often although all is well, +-10 %; 100 to
                                3,600,000, below a third of the server's leaseMs, and longer than a
                                round trip; 0: 30,000 */
  uint64_t maxBytes; /* of memory for tuples; 0: no limit.  Deletions of a message come first, but
                        what a full sync removes goes last: allow for the set before and after */
  uint64_t userData; /* first argument of the callbacks */
  CoapRpcMirrorOnAdded onAdded; /* these are optional */
  CoapRpcMirrorOnChanged onChanged;
  CoapRpcMirrorOnRemoved onRemoved;
  CoapRpcMirrorOnSynced onSynced;
  CoapRpcMirrorOnState onState;
} CoapRpcMirrorParam;

/* COAP_RpcMirrorOpen makes a mirror, empty and CONNECTING; it calls back later.  It exists until
 * COAP_RpcMirrorClose or COAP_RpcUninit, whether or not there is a server.
 *
 *   key      only its uri counts
 *   addr     srcIp may be any; the port is free
 *   param    copied
 *   mirror   for the other functions
 *
 * Returns 0 or:  1900001601 null argument (asserted)     1900001602 addresses: families differ or
 *                                                        are unknown, or the server's is not
 *                                                        unicast
 *                1900001603 dstPort is not a port        1900001604 uri empty or without end
 *                1900001605 keyLen, or keyLen + valLen   1900001606 numInFlight or heartbeatMs
 *                1900001607 COAP_RPC_MAX_MIRRORS exist   1900001608 no memory
 *                1900001609 no timer, or the instance is stopping */
COAP_RPC_API uint32_t COAP_RpcMirrorOpen(CoapRpcCtx *ctx, const CoapRpcUriKey *key,
                                         const CoapRpcCallAddr *addr,
                                         const CoapRpcMirrorParam *param, CoapRpcMirror **mirror);

/* COAP_RpcMirrorClose ends a mirror and frees its tuples.  The server is told that nobody observes
 * any more.  No callback is called for it, not even onRemoved.  Null does nothing. */
COAP_RPC_API void COAP_RpcMirrorClose(CoapRpcMirror *mirror);

/* COAP_RpcMirrorFind returns the tuple of a key, its keyLen bytes of key followed by valLen bytes
 * of value; null when there is none, and for null.  COAP_RpcMirrorNext returns the tuple after a
 * key, which need not exist, in the order of keys; the first one for a null key.
 *
 * A tuple stays valid until the I/O or a timer runs, or the mirror is closed; inside a callback,
 * during the callback. */
COAP_RPC_API const uint8_t *COAP_RpcMirrorFind(const CoapRpcMirror *mirror, const void *tupleKey);
COAP_RPC_API const uint8_t *COAP_RpcMirrorNext(const CoapRpcMirror *mirror, const void *tupleKey);

/* CoapRpcMirrorState is where a mirror is, and what it has seen since it was opened. */
typedef struct CoapRpcMirrorState {
  uint32_t state;         /* COAP_RPC_MIRROR_* */
  uint32_t code;          /* as onState */
  uint64_t replid;        /* the life of the server's set; 0 before its first answer */
  uint64_t version;       /* the mirror has all changes up to this one; 0 in a full sync */
  uint64_t head;          /* the latest version of this life heard of */
  uint64_t syncedVersion; /* of the latest onSynced */
  uint64_t digest;        /* of the tuples, as CoapRpcSerSyncState.digest */
  uint64_t numTuples;
  uint64_t bytes;            /* memory of the tuples */
  uint64_t silentMs;         /* since the server was heard last, or the mirror was opened */
  uint64_t numPulls;         /* questions sent, repetitions included */
  uint64_t numRepeats;       /* that were not answered in time, and sent again */
  uint64_t numNotifications; /* got */
  uint64_t numFullSyncs;     /* begun, the first one included */
  uint64_t numRegistrations; /* sockets that the mirror has had */
  uint64_t numDigestErrors;  /* 1900001622 */
  uint64_t numBadMessages;   /* malformed, contradictory, or of no page */
  uint32_t numInFlight;      /* questions unanswered */
  uint32_t window;           /* how many may be, at the moment */
} CoapRpcMirrorState;

/* COAP_RpcMirrorGetState fills a record.
 *
 * Returns 0 or:  1900001611 null argument (asserted) */
COAP_RPC_API uint32_t COAP_RpcMirrorGetState(const CoapRpcMirror *mirror,
                                             CoapRpcMirrorState *state);

COAP_RPC_C_END
#endif /* COAP_RPC_SYNC_H */
