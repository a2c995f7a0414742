/* coap_rpc_lib_data.h: the adapter's record. */
#ifndef COAP_RPC_LIB_DATA_H
#define COAP_RPC_LIB_DATA_H

#include <coap3/coap.h>

#include "coap_svc/rpc/common/coap_rpc_ctx.h"
#include "coap_svc/rpc/common/coap_rpc_limits.h"
#include "osal_avl3.h"

COAP_RPC_C_BEGIN

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
  uint64_t soonTmr;            /* runs the I/O once, at once; 0 none */
  uint32_t isFdServed;         /* non-zero: the host has served the descriptor */
  uint32_t quickMode;          /* non-zero: on the 100 ms period for good */
  uint32_t svcFlag;            /* non-zero: each 1000 ms tick drains libcoap harder */
  CoapRpcLink blockList;       /* observe payloads owned by libcoap, of all entries */
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
  OSAL_AVL3_TREE answerSessionTree; /* sessions of asynchronous answers, by entry and peer, owned */
  OSAL_AVL3_TREE peerTree;          /* their peers, owned */
  CoapRpcLink answerSessionList;    /* all of them, with those that their table has lost */
  CoapRpcLink leavingSessionList;   /* those without requests that the turn's end decides on */
  CoapRpcLink spareSessionList;     /* those kept for their peers' next requests, oldest first */
  CoapRpcLink queuedSessionList;    /* those for which answers are queued */
  uint32_t numAnswerSessions;
  uint32_t numSpareSessions;
  CoapRpcLink syncBodyList; /* pages owned by libcoap that travel in blocks, oldest first */
  uint32_t numSyncBodies;
  uint32_t numSyncObservers; /* registrations of all entries that keep versions */
  CoapRpcLink syncTellList;  /* CoapRpcSerSync with readers that are to be notified */
  uint16_t nstart;   /* CON requests under way per new client session; 0: libcoap's 1 */
  uint16_t numReads; /* datagrams to read first of each endpoint; 0 as 1 */
  struct CoapRpcDirect *direct; /* direct entries, owned; null until there is one */
  coap_tick_t nextTick; /* when I/O driven by the descriptor does a tick's work next */
  struct CoapRpcCalls *calls; /* owned; null until the first call */
  struct CoapRpcMirrors *mirrors; /* owned; null until the first mirror */
};

/* CoapRpcLibRootOf returns the instance that a session belongs to; null for a null session. */
static inline CoapRpcCtx *CoapRpcLibRootOf(const coap_session_t *session) {
  const coap_context_t *coapCtx = session ? coap_session_get_context(session) : NULL;
  return coapCtx ? (CoapRpcCtx *)coap_context_get_app_data(coapCtx) : NULL;
}

/* CoapRpcLibCallerOf returns the instance that sends requests through a session; null for a null
 * session, one that it does not, and one that is closed. */
static inline CoapRpcCtx *CoapRpcLibCallerOf(const coap_session_t *session) {
  return session ? (CoapRpcCtx *)coap_session_get_app_data(session) : NULL;
}

COAP_RPC_C_END

namespace coap_rpc {

// MayOpen says whether a peer with this number of open requests may have one more.  It may have as
// many as are free, so that a few peers cannot take all places.
inline bool MayOpen(const CoapRpcLibCtx *lib, uint32_t num) {
  if (lib->numOpenAsync >= kMaxOpenAsync) return false;
  return num < kMaxOpenAsyncOfPeer && num < kMaxOpenAsync - lib->numOpenAsync;
}

}  // namespace coap_rpc

#endif /* COAP_RPC_LIB_DATA_H */
