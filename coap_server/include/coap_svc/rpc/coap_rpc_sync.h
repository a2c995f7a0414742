/* coap_rpc_sync.h: exact copies of an observable URI's tuples at other hosts.
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

/* CoapRpcSyncPeer is an observer that keeps versions. */
typedef struct CoapRpcSyncPeer {
  CoapRpcIpAddr addr;
  uint32_t port;
  uint64_t confirmed; /* it has this version, or more */
  uint64_t silentMs;  /* since it was heard last, in quarters of leaseMs and rounded down */
} CoapRpcSyncPeer;

/* COAP_RpcSerVisitSyncPeers shows the observers of a URI that keep versions, in no particular
 * order.
 *
 *   visit   called for each; must not call the instance
 *
 * Returns 0 or:  1900001541 null argument (asserted)     1900001542 the URI has no versions */
typedef void (*CoapRpcVisitSyncPeer)(uint64_t userData, const CoapRpcSyncPeer *peer);
COAP_RPC_API uint32_t COAP_RpcSerVisitSyncPeers(CoapRpcCtx *ctx, const CoapRpcUriKey *key,
                                                CoapRpcVisitSyncPeer visit, uint64_t userData);

COAP_RPC_C_END
#endif /* COAP_RPC_SYNC_H */
