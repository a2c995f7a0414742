/* coap_rpc_ctx.h: the root record of an instance. */
#ifndef COAP_RPC_CTX_H
#define COAP_RPC_CTX_H

#include "coap_svc/rpc/coap_rpc_types.h"
#include "coap_svc/rpc/common/coap_rpc_coap_fwd.h"
#include "coap_svc/rpc/common/coap_rpc_count.h"
#include "coap_svc/rpc/common/coap_rpc_link.h"

COAP_RPC_C_BEGIN

typedef struct CoapRpcLibCtx CoapRpcLibCtx;
typedef struct CoapRpcSerData CoapRpcSerData;
typedef struct CoapRpcCliData CoapRpcCliData;
typedef struct CoapRpcCliReqData CoapRpcCliReqData;
typedef struct CoapRpcLogDiag CoapRpcLogDiag;
typedef struct CoapRpcSerUriVtbl CoapRpcSerUriVtbl;
typedef struct CoapRpcSerListenAddr CoapRpcSerListenAddr;

/* CoapRpcLibExtOps are adapter operations beyond the six slots that each side has; constant. */
typedef struct CoapRpcLibExtOps {
  /* forgetEntry cuts every transfer, observer, pending answer and answer session loose from an
   * entry that is about to be freed. */
  void (*forgetEntry)(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry);
  /* renewSource lets a session that a server entry holds, and those kept for its other peers, send
   * from an address that this machine has now. */
  void (*renewSource)(coap_session_t *session);
  /* openEndPoint is one attempt of createEndPoint, without sleep. */
  coap_endpoint_t *(*openEndPoint)(CoapRpcCtx *ctx, const CoapRpcSerListenAddr *addr);
  /* mustWait says whether a queued request would end a payload that is coming in for it. */
  uint32_t (*mustWait)(CoapRpcCliReqData *req);
  /* isUnderWay says whether libcoap still has a request of a client session, or a body that may
   * belong to it. */
  uint32_t (*isUnderWay)(const coap_session_t *session, int32_t mid);
  /* pushSync makes libcoap notify those observers of an entry that keep its tuples' versions;
   * returns how many.  dropSyncObserver ends their registrations through a session. */
  uint32_t (*pushSync)(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry);
  void (*dropSyncObserver)(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry, const void *session);
  /* runSoon makes the I/O run within a millisecond, whether the host serves the descriptor or not.
   */
  void (*runSoon)(CoapRpcCtx *ctx);
} CoapRpcLibExtOps;

/* CoapRpcAdvice is the state of init/coap_rpc_advice.h. */
typedef struct CoapRpcAdvice {
  uint32_t isOn;
  uint32_t num;      /* warnings so far */
  uint32_t numLines; /* of these, how many were logged since it was turned on, and what they said */
  uint64_t lines[64];
} CoapRpcAdvice;

struct CoapRpcCtx {
  CoapRpcInitParam param;         /* verbatim copy, but param.name is nameStr */
  uint64_t log;                   /* effective log handle; 0 when logging is off */
  char *nameStr;                  /* owned framework string */
  CoapRpcLibCtx *lib;             /* owned; null until started */
  CoapRpcSerData *ser;            /* owned; null until started */
  CoapRpcCliData *cli;            /* owned; null until started */
  CoapRpcLogDiag *logDiag;        /* owned; null until started */
  const CoapRpcLibExtOps *libExt; /* null until the adapter's operations are installed */
  CoapRpcLink orphanChgList;      /* pending changes of removed server entries, owned */
  CoapRpcAdvice advice;           /* the warnings of init/coap_rpc_advice.h */
  uint32_t ioDepth;               /* runs of libcoap's I/O under way: it may be inside callbacks */
  CoapRpcStats counts;            /* counters only; its gauges stay 0 */
  void *callback;                 /* CallbackTime of the innermost callback under way, or null */
};

COAP_RPC_C_END
#endif /* COAP_RPC_CTX_H */
