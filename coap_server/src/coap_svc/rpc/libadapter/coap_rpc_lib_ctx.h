/* coap_rpc_lib_ctx.h: the adapter's context: libcoap's life, endpoints, resources, the I/O task.
 *
 * The server and client sides reach these operations only through their slots.  libcoap is entered
 * from the host thread only and is never given a thread of its own. */
#ifndef COAP_RPC_LIB_CTX_H
#define COAP_RPC_LIB_CTX_H

#include <coap3/coap.h>

#include "coap_svc/rpc/coap_rpc_ser.h"
#include "coap_svc/rpc/common/coap_rpc_ctx.h"
#include "osal_avl3.h"

COAP_RPC_C_BEGIN

typedef struct CoapRpcSerListen CoapRpcSerListen;

/* CoapRpcLibCtx is the adapter context of an instance.  Rows 1 to 14 are constant while it lives.
 */
struct CoapRpcLibCtx {
  uint32_t logLevel;  /* libcoap log level: 8, everything reaches the handler */
  uint32_t blockMode; /* libcoap block mode: 19 */
  coap_log_handler_t logHandler;
  coap_event_handler_t eventHandler;
  coap_nack_handler_t nackHandler;
  void *resUserData; /* the root context */
  coap_method_handler_t getHandler;
  coap_method_handler_t postHandler;
  coap_method_handler_t putHandler;    /* null */
  coap_method_handler_t deleteHandler; /* null */
  coap_observe_added_t observeAdded;
  coap_observe_deleted_t observeDeleted;
  void *cbUserData; /* the root context */
  coap_response_handler_t responseHandler;
  coap_context_t *coapCtx;     /* null while not started */
  uint64_t taskTmr;            /* running I/O timer; 0 none */
  uint32_t quickMode;          /* non-zero: on the 100 ms period for good */
  uint32_t svcFlag;            /* non-zero: each 1000 ms tick drains libcoap harder */
  CoapRpcLink blockList;       /* observe payloads in libcoap's hands, of all entries */
  CoapRpcLink flightList;      /* payloads whose delivery is not known yet, of all entries, owned */
  CoapRpcLink lastBlockList;   /* last blocks of payloads that were released, owned */
  OSAL_AVL3_TREE obsQueryTree; /* queries of observers' registrations, by stored request */
  OSAL_AVL3_TREE asyncTree;    /* unanswered asynchronous requests by handle, owned */
  OSAL_AVL3_TREE asyncReqTree; /* the same by what identifies the request, for retransmissions */
  OSAL_AVL3_TREE asyncAnsweredTree;  /* those of asyncTree to serve when the turn ends */
  struct CoapRpcAsync *asyncRunning; /* the one whose stand-in libcoap is running; null for none */
  uint32_t numOpenAsync;             /* those that the application has not answered */
  uintptr_t lastAsyncId;             /* handles count from 1 and are never used again */
  uint32_t hasRetired;               /* non-zero: libcoap still holds what a callback has deleted */
  OSAL_AVL3_TREE targetTree;     /* sessions of asynchronous answers, by entry and peer, owned */
  OSAL_AVL3_TREE peerTree;       /* their peers, owned */
  CoapRpcLink targetList;        /* all of them, with those that their table has lost */
  CoapRpcLink leavingTargetList; /* those without requests that the turn's end decides on */
  CoapRpcLink spareTargetList;   /* those kept for their peers' next requests, oldest first */
  CoapRpcLink queuedTargetList;  /* those for which answers are queued */
  uint32_t numTargets;
  uint32_t numSpareTargets;
  uint16_t nstart;   /* CON requests under way per new client session; 0: libcoap's 1 */
  uint16_t numReads; /* datagrams to read first of each endpoint; 0 as 1 */
  coap_tick_t nextTick; /* when I/O driven by the descriptor does a tick's work next */
};

/* Module rows of the adapter; the record is the root context.  libcoap's log goes to the instance
 * that started last, until any instance of the process stops: VtblUninit ignores its argument. */
COAP_RPC_API uint32_t COAP_RpcLibVtblInit(void *root);
COAP_RPC_API uint32_t COAP_RpcLibVtblUninit(void *notRead);
COAP_RPC_API uint32_t COAP_RpcCtxInit(void *root);
COAP_RPC_API uint32_t COAP_RpcCtxUninit(void *root);

/* CoapRpcLibRootOf returns the instance that a session belongs to; null for a null session. */
CoapRpcCtx *CoapRpcLibRootOf(const coap_session_t *session);

/* COAP_RpcLibStartup_ starts libcoap for the instance and the 1000 ms I/O timer (whose failure is
 * not reported).  Returns 0 or 1900000434 when libcoap makes no context. */
COAP_RPC_API uint32_t COAP_RpcLibStartup_(CoapRpcCtx *ctx, CoapRpcLibCtx *lib);

/* COAP_RpcLibCleanup_ frees the libcoap context and stops the I/O timer; does nothing when none is
 * started.  libcoap's process-wide state is cleaned up with the last instance. */
COAP_RPC_API void COAP_RpcLibCleanup_(CoapRpcCtx *ctx, CoapRpcLibCtx *lib);

/* COAP_RpcCreateEndPoint opens a UDP endpoint.  Up to three attempts, each failed one followed by
 * a second of sleep.  Returns the endpoint or null.
 *
 * The endpoint has its address and port for itself: it cannot be opened while any socket of the
 * machine holds them, and no other socket can be bound to them afterwards, be it with SO_REUSEADDR
 * or SO_REUSEPORT, in this process or another, to the same address or to the wildcard address of
 * its family.  An IPv6 endpoint takes IPv6 only and leaves the port to an IPv4 one. */
COAP_RPC_API coap_endpoint_t *COAP_RpcCreateEndPoint(CoapRpcCtx *ctx,
                                                     const CoapRpcSerListenAddr *addr);

/* CoapRpcLibOpenEndPoint is one attempt of it, without sleep. */
coap_endpoint_t *CoapRpcLibOpenEndPoint(CoapRpcCtx *ctx, const CoapRpcSerListenAddr *addr);

/* CoapRpcLibSetSleep replaces what sleeps between the attempts, for the whole process, and returns
 * what was there: for tests. */
typedef unsigned int (*CoapRpcLibSleep)(unsigned int seconds);
CoapRpcLibSleep CoapRpcLibSetSleep(CoapRpcLibSleep sleepFunc);

/* COAP_RpcDeleteEndPoint disconnects the sessions of a listen's endpoint, frees it and clears the
 * listen's field.  Null listens and endpoints are ignored.
 *
 * Called by a callback inside libcoap's I/O, the endpoint takes no further datagram but keeps
 * its address until libcoap is done with the run, so that the answer under way still leaves.  Such
 * an address can be opened again at once; a resource deleted there can be made again too.
 *
 * Calls onObserverNum for each observer that leaves.  What such a callback gives up or takes back
 * is treated in the same way, this endpoint included. */
COAP_RPC_API void COAP_RpcDeleteEndPoint(CoapRpcCtx *ctx, CoapRpcSerListen *listen);

/* COAP_RpcCreateOrUpdateResource makes the resource of a key's uri, or makes an existing one
 * observable when the key is.  Returns 0 or 1900000071 when libcoap makes no resource. */
COAP_RPC_API uint32_t COAP_RpcCreateOrUpdateResource(CoapRpcCtx *ctx, const CoapRpcUriKey *key);

/* COAP_RpcDeleteResource deletes the resource of a uri, if there is one, as endpoints are deleted.
 */
COAP_RPC_API void COAP_RpcDeleteResource(CoapRpcCtx *ctx, const char *uri);

/* I/O timers.  Start: 0 or 1900000156.  Refresh switches to the 100 ms task, once and for good:
 * 0 or 1900000171 (the 1000 ms timer is gone then; the next refresh tries again). */
COAP_RPC_API uint32_t COAP_RpcStartTaskTimer(CoapRpcCtx *ctx);
COAP_RPC_API void COAP_RpcStopTaskTimer(CoapRpcCtx *ctx);
COAP_RPC_API uint32_t COAP_RpcRefreshTaskTimer(CoapRpcCtx *ctx);
COAP_RPC_API void COAP_RpcSetSvcFlag(CoapRpcCtx *ctx);

/* Timer ticks; `root` is the root context.  ProcTask makes 1 call of coap_io_process, up to 256
 * while the service flag is set; ProcQuickTask makes 25.  None of them waits. */
COAP_RPC_API uint32_t COAP_RpcProcTask(void *root);
COAP_RPC_API uint32_t COAP_RpcProcQuickTask(void *root);

COAP_RPC_C_END
#endif /* COAP_RPC_LIB_CTX_H */
