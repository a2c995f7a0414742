/* coap_rpc_ser.h: server: register handler tables, attach them to addresses, answer, publish.
 *
 * Order of calls: COAP_RpcInit, COAP_RpcSerRegVtbl for each key, COAP_RpcSerSetUri for each key and
 * address.  COAP_RpcSerObserveDataUpdate and COAP_RpcSerObserveDataDel feed observable URIs. */
#ifndef COAP_RPC_SER_H
#define COAP_RPC_SER_H

#include "coap_svc/rpc/coap_rpc_types.h"

COAP_RPC_C_BEGIN

enum { COAP_RPC_SER_REQ_BUF_SIZE = COAP_RPC_PAYLOAD_BUF_SIZE };

/* CoapRpcSerListenAddr is a local address and port that the server serves. */
typedef struct COAP_RPC_PACKED CoapRpcSerListenAddr {
  CoapRpcIpAddr listenAddr; /* family 1 or 2; 0.0.0.0 is refused */
  uint16_t port;            /* UDP port, host byte order */
  uint8_t rsv[2];           /* copied, not compared */
} CoapRpcSerListenAddr;
static_assert(sizeof(CoapRpcSerListenAddr) == 24, "listen address size");

/* CoapRpcSerReqInfo describes the request passed to onRequest. */
typedef struct CoapRpcSerReqInfo {
  uint32_t isObserve;    /* 2: the request carries an Observe option; else 0 */
  CoapRpcIpAddr srcAddr; /* peer address; no port */
  uint32_t hasETag;      /* POST only: 1 when an ETag option is present; else 0 */
} CoapRpcSerReqInfo;
static_assert(sizeof(CoapRpcSerReqInfo) == 28, "request information size");

/* CoapRpcSerOnRequest answers a request at once.  Called from the I/O task; may call any function
 * of the library except COAP_RpcUninit.
 *
 * The bytes of a synchronous answer are not sent.  Return data with an asynchronous answer, or from
 * a direct entry.  The peer gets as many zero bytes as the answer has, and the byte after them.
 *
 *   payload   NUL-terminated copy of payloadLen bytes, valid during the call
 *   out       outSize (65471) zeroed bytes for the answer
 *
 * Returns the length of the answer (1 to 65470 bytes); 0: no answer payload; -1: answer 2.04
 * without payload; any other value: failure. */
typedef int32_t (*CoapRpcSerOnRequest)(uint64_t userData, const CoapRpcSerReqInfo *info,
                                       uint8_t *payload, uint32_t payloadLen, uint8_t *out,
                                       uint32_t outSize);

/* CoapRpcSerOnAsyncRequest receives a request that is answered later, by
 * COAP_RpcSerSendAsyncResponse or COAP_RpcSerAbortAsyncResponse with `async`; both may be called
 * inside the callback.  Called from the I/O task.  Its result is not sent.
 *
 * Answer or abort every asynchronous request.  A request that is neither answered nor aborted stays
 * open until its URI is detached, and at 65,536 open requests of a peer the next one gets 5.03.
 * COAP_RpcGetOpenAsyncNum counts them. */
typedef uint32_t (*CoapRpcSerOnAsyncRequest)(uint64_t userData, uint8_t *payload,
                                             uint32_t payloadLen, void *async);

/* CoapRpcSerVtblReg is a handler table. */
typedef struct COAP_RPC_PACKED CoapRpcSerVtblReg {
  uint8_t payloadFormat; /* of observe payloads: 1 JSON, 2 IDL ("BYTE") */
  uint8_t mode;          /* low two bits: 0 synchronous, 1 asynchronous, 2 and 3 no callback */
  uint8_t rsv[2];
  uint64_t userData;                       /* first argument of every callback of the entry */
  CoapRpcSerOnRequest onRequest;           /* optional; mode 0 */
  CoapRpcSerOnAsyncRequest onAsyncRequest; /* optional; mode 1; without it requests get 5.03 */
} CoapRpcSerVtblReg;
static_assert(sizeof(CoapRpcSerVtblReg) == 28, "server registration size");

/* CoapRpcSerIdlMsgBuf is what an IDL builder fills: one message. */
typedef struct CoapRpcSerIdlMsgBuf {
  uint8_t *buf;  /* size bytes, the same uncleared buffer for all changes of a payload */
  uint32_t len;  /* set by the builder: bytes written, at most 65465.  A longer message fits into no
                    payload: the URI publishes nothing until its tuple is built shorter */
  uint32_t size; /* 65471 */
} CoapRpcSerIdlMsgBuf;

/* Callbacks of an observe record, all called from the host thread:
 *
 *  - tupleKeyCmp: by any call that uses tuples; must not call the instance
 *  - keyToStr, valToStr: by display commands; must not call the instance
 *  - onObserverNum: by the I/O, by COAP_RpcSerUnsetUri, and by COAP_RpcSerSetUri when it fails;
 *    may call all functions except COAP_RpcUninit
 *  - buildUpdate, buildDelete, getFirstTuple, getNextTuple: by the I/O; may call all functions
 *    except COAP_RpcUninit
 *
 * A tuple that a builder changes is published with the next payload, not with the one being built.
 * COAP_RpcUninit calls only tupleKeyCmp.
 * COAP_RpcIterateTupleFromApp also calls getFirstTuple and getNextTuple.
 * `out` is a json_t object to fill (JSON entries; the application links Jansson itself) or a
 * CoapRpcSerIdlMsgBuf (IDL entries). */
typedef int32_t (*CoapRpcTupleKeyCmp)(const void *keyA, const void *keyB);
typedef const char *(*CoapRpcTupleToStr)(const void *bytes, char *buf, uint32_t size);
typedef void (*CoapRpcOnObserverNum)(uint64_t userData, uint32_t observerNum);
typedef uint32_t (*CoapRpcBuildUpdate)(uint64_t userData, uint8_t *tuple, uint8_t *val, void *out);
typedef uint32_t (*CoapRpcBuildDelete)(uint64_t userData, uint8_t *tuple, void *out);
typedef uint32_t (*CoapRpcGetFirstTuple)(uint64_t userData, void *appCursor, void *key, void *val);
typedef uint32_t (*CoapRpcGetNextTuple)(uint64_t userData, void *appCursor, const void *lastKey,
                                        void *key, void *val);

/* CoapRpcSerObVtblReg describes the tuples of an observable URI. */
typedef struct CoapRpcSerObVtblReg {
  uint8_t rsv[4];
  uint16_t keyLen;                    /* bytes of every tuple key */
  uint16_t valLen;                    /* bytes of every tuple value; 0: tuples have no value */
  CoapRpcTupleKeyCmp tupleKeyCmp;     /* required: total order of keys, <0, 0, >0 */
  CoapRpcTupleToStr keyToStr;         /* optional: key text for the display */
  CoapRpcTupleToStr valToStr;         /* optional: value text for the display */
  CoapRpcOnObserverNum onObserverNum; /* optional: called with each new observer count */
  CoapRpcBuildUpdate buildUpdate;     /* required to publish: 0 = element built; val is null
                                         when valLen is 0 */
  CoapRpcBuildDelete buildDelete;     /* required to publish: 0 = element built */
  CoapRpcGetFirstTuple getFirstTuple; /* optional, for resynchronisation: 0 = tuple written */
  CoapRpcGetNextTuple getNextTuple;   /* optional, with getFirstTuple: 0 = tuple written */
} CoapRpcSerObVtblReg;
static_assert(sizeof(CoapRpcSerObVtblReg) == 72, "observe record size");
static_assert(offsetof(CoapRpcSerObVtblReg, tupleKeyCmp) == 8, "observe record layout");
static_assert(offsetof(CoapRpcSerObVtblReg, buildUpdate) == 40, "observe record layout");
static_assert(offsetof(CoapRpcSerObVtblReg, buildDelete) == 48, "observe record layout");

/* COAP_RpcSerRegVtbl registers a handler table for a key.  The first registration of a key wins:
 * a further one changes nothing and succeeds.  A key cannot be unregistered.
 *
 * The key decides which requests reach the entry (docs/interface.md has the table):
 *
 *  - A GET reaches a DEFAULT entry of either message type.  Without one it reaches a UNICAST or
 *    BROADCAST entry of its own message type that is attached to the address it came in on.
 *  - A POST reaches only UNICAST and BROADCAST entries of its own message type.  A NON POST
 *    misses a CON entry.
 *  - A POST to an asynchronous entry is taken for an answer.  Ask asynchronous entries with GET.
 *  - PUT and DELETE, and requests without payload, reach no callback
 *
 *   reg     copied
 *   obReg   observe record, copied; null for a URI that publishes nothing
 *
 * Returns 0 or:  1900000169 null argument (asserted)
 *                1900000251 no memory, or the observe record has no tupleKeyCmp */
COAP_RPC_API uint32_t COAP_RpcSerRegVtbl(CoapRpcCtx *ctx, const CoapRpcUriKey *key,
                                         const CoapRpcSerVtblReg *reg,
                                         const CoapRpcSerObVtblReg *obReg);

/* COAP_RpcSerSetUri attaches a registered key to a local address and port.  It opens the listen on
 * first use, binds the entry and creates the URI's resource if necessary.  Attaching the key again
 * to another address moves it; the old listen stays until a later detach finds it empty.
 *
 * A port that is in use stays closed after a second attempt that returns 0.  After the error attach
 * the URI again, and call COAP_RpcSerReopen until it returns 0.  The first call takes 3 s, returns
 * 1900000157 and leaves a listen without endpoint; the key is not attached.  Attaching to it again
 * returns 0 but serves nothing, even if the port is free by then.  Instead of COAP_RpcSerReopen,
 * COAP_RpcSerUnsetUri deletes the listen if no other key is attached there; then attach once more.
 * libcoap's warning "cannot open endpoint" has address, port and errno of each attempt.
 *
 * Returns 0 or:  1900000077 null argument (asserted)     1900000082 family is neither 1 nor 2
 *                1900000087 IPv4 address 0               1900000152 no listen record
 *                1900000157 no endpoint (waits ~3 s; the listen stays without one)
 *                1900000163, 1900000177 key not registered
 * Source: RFC 7252 section 6 (port, path); wildcard IPv4 is refused by our own rule. */
COAP_RPC_API uint32_t COAP_RpcSerSetUri(CoapRpcCtx *ctx, const CoapRpcUriKey *key,
                                        const CoapRpcSerListenAddr *addr);

/* COAP_RpcSerUnsetUri detaches a key from its address; the registration stays.  The listen and the
 * resource are deleted with their last entry.
 *
 * Its observers are removed with listen or resource: onObserverNum is called before this function
 * returns or, when a callback detaches, at the end of the call or I/O run that called the callback.
 * If onObserverNum attaches the key again, it is attached when this function returns.
 *
 * Returns 0, also for an unknown key, or:
 *                1900001450 null argument (asserted)     1900001201 the key was not attached
 *                1900001221 the key was not bound to its resource */
COAP_RPC_API uint32_t COAP_RpcSerUnsetUri(CoapRpcCtx *ctx, const CoapRpcUriKey *key);

/* COAP_RpcSerSendAsyncResponse answers an asynchronous request.  The answer is sent by the next run
 * of the I/O; a second answer, or an abort, before that replaces it.
 *
 *   async       as passed to onAsyncRequest
 *   data, len   copied
 *
 * Returns 0 or:  1900000414 null argument                1900000418 no memory
 *                1900001302 the request is no longer pending */
COAP_RPC_API uint32_t COAP_RpcSerSendAsyncResponse(CoapRpcCtx *ctx, void *async,
                                                   const uint8_t *data, uint32_t len);

/* COAP_RpcSerAbortAsyncResponse ends an asynchronous request without an answer: a confirmable one
 * gets 2.05 without payload, a non-confirmable one nothing.
 *
 * Returns 0 or:  1900001301 null argument                1900001302 no longer pending */
COAP_RPC_API uint32_t COAP_RpcSerAbortAsyncResponse(CoapRpcCtx *ctx, void *async);

/* COAP_RpcSerObserveDataUpdate adds or changes one tuple and queues the change for the observers.
 *
 * One observer of a round gets the changes.  Use one URI for each mirror, or exact copies, which
 * any number of readers can keep (coap_rpc_sync.h).  The other observers get 2.01 without payload.
 *
 *   tupleKey   keyLen bytes
 *   tupleVal   valLen bytes; null keeps the old value
 *
 * Returns 0 or:  1900000125 null argument (asserted)     1900000130 no such observable URI
 *                1900000135 tuple not stored */
COAP_RPC_API uint32_t COAP_RpcSerObserveDataUpdate(CoapRpcCtx *ctx, const CoapRpcUriKey *key,
                                                   const void *tupleKey, const void *tupleVal);

/* COAP_RpcSerObserveDataDel removes one tuple and queues the deletion for the observers, also if
 * the tuple does not exist.  A null argument is asserted. */
COAP_RPC_API void COAP_RpcSerObserveDataDel(CoapRpcCtx *ctx, const CoapRpcUriKey *key,
                                            const void *tupleKey);

/* CoapRpcIteratorParam describes a walk over an application's tuples. */
typedef struct CoapRpcIteratorParam {
  uint64_t userData;           /* first argument of both callbacks */
  const CoapRpcUriKey *uriKey; /* not read by the iterator */
  uint16_t keyLen;
  uint16_t valLen; /* 0: no value */
  CoapRpcGetFirstTuple getFirstTuple;
  CoapRpcGetNextTuple getNextTuple;
} CoapRpcIteratorParam;

enum { COAP_RPC_APP_CURSOR_SIZE = 64 };

/* CoapRpcIterator is one walk; the current tuple is in keyBuf and valBuf. */
typedef struct CoapRpcIterator {
  uint8_t flags; /* bit 0: isFirst, before the first step */
  uint64_t userData;
  uint8_t appCursor[COAP_RPC_APP_CURSOR_SIZE]; /* the application's, zeroed at the start */
  uint16_t keyLen;
  uint16_t valLen;
  CoapRpcGetFirstTuple getFirstTuple;
  CoapRpcGetNextTuple getNextTuple;
  uint8_t *keyBuf;  /* keyLen bytes */
  uint8_t *valBuf;  /* valLen bytes; null when valLen is 0 */
  uint8_t *lastKey; /* keyLen bytes after this record: the key delivered last */
} CoapRpcIterator;

/* COAP_RpcNewIterator starts a walk.  Returns null for a null parameter or if out of memory. */
COAP_RPC_API CoapRpcIterator *COAP_RpcNewIterator(const CoapRpcIteratorParam *param,
                                                  CoapRpcCtx *ctx);

/* COAP_RpcIterateTupleFromApp makes one step.  Returns 1: a tuple is in keyBuf and valBuf; 0: end
 * of the walk or failure (both are logged), null iterator, or missing callback. */
COAP_RPC_API uint32_t COAP_RpcIterateTupleFromApp(CoapRpcIterator *it, CoapRpcCtx *ctx);

/* COAP_RpcFreeIterator ends a walk.  Null is accepted. */
COAP_RPC_API void COAP_RpcFreeIterator(CoapRpcIterator *it, CoapRpcCtx *ctx);

COAP_RPC_C_END
#endif /* COAP_RPC_SER_H */
