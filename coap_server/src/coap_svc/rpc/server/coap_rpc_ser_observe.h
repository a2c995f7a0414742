/* coap_rpc_ser_observe.h: pending changes of an observable URI and the timer that sends them.
 *
 * Repeated changes to one tuple merge into one pending change, which keeps its place.  While nobody
 * observes, nothing is queued: a newcomer gets the whole set. */
#ifndef COAP_RPC_SER_OBSERVE_H
#define COAP_RPC_SER_OBSERVE_H

#include "coap_svc/rpc/server/coap_rpc_ser_entry.h"

COAP_RPC_C_BEGIN

enum { COAP_RPC_CHG_UPDATE = 1, COAP_RPC_CHG_DELETE = 2 };

/* COAP_RpcSerUpdateTuple updates the set and queues the change for an entry in hand.
 *
 * Returns 0 or:  1900000139 null argument (asserted)   1900000144 set not updated
 *                or COAP_RpcSerProcTupleChg's code */
COAP_RPC_API uint32_t COAP_RpcSerUpdateTuple(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry,
                                             const void *tupleKey, const void *tupleVal);

/* COAP_RpcSerProcTupleChg merges or queues one change and starts the update timer.
 *
 * Returns 0 or:  1900000129 no memory   1900000041 no such entry   1900000050 no timer */
COAP_RPC_API uint32_t COAP_RpcSerProcTupleChg(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry,
                                              const CoapRpcUriKey *key, const void *tupleKey,
                                              const void *tupleVal, uint32_t chgType);

/* COAP_RpcSerAddTupleChgData appends a new change.  Returns 0 or 1900000098 without memory. */
COAP_RPC_API uint32_t COAP_RpcSerAddTupleChgData(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry,
                                                 const void *tupleKey, const void *tupleVal,
                                                 uint8_t chgType);

/* COAP_RpcSerMergeTupleData returns 1 when a pending change of the key was there and took this one
 * in, else 0. */
COAP_RPC_API uint32_t COAP_RpcSerMergeTupleData(CoapRpcSerUriVtbl *entry, const void *tupleKey,
                                                const void *tupleVal, uint8_t chgType);

COAP_RPC_API void COAP_RpcSerFillTupleData(CoapRpcSerUriVtbl *entry, CoapRpcTupleChg *chg,
                                           const void *tupleKey, const void *tupleVal,
                                           uint8_t chgType);

/* COAP_RpcSerDelTupleChgData unlinks and frees a change. */
COAP_RPC_API void COAP_RpcSerDelTupleChgData(CoapRpcCtx *ctx, CoapRpcTupleChg *chg);

/* Update timer.  Start: 0 (also when it runs), 1900000041 or 1900000050. */
COAP_RPC_API uint32_t COAP_RpcSerStartUriUpdateTimer(CoapRpcCtx *ctx, const CoapRpcUriKey *key);
COAP_RPC_API void COAP_RpcSerStopUriUpdateTimer(CoapRpcSerUriVtbl *entry);

/* COAP_RpcSerUriUpdateHandle is the timer's tick; `entry` is the CoapRpcSerUriVtbl.  Always 0. */
COAP_RPC_API uint32_t COAP_RpcSerUriUpdateHandle(void *entry);

/* CoapRpcSerOrphanChgs takes the pending changes of an entry that is about to be freed, and frees
 * those in flight and the index; CoapRpcSerFreeOrphanChgs frees all changes so taken. */
void CoapRpcSerOrphanChgs(CoapRpcSerUriVtbl *entry);
void CoapRpcSerFreeOrphanChgs(CoapRpcCtx *ctx);

COAP_RPC_C_END
#endif /* COAP_RPC_SER_OBSERVE_H */
