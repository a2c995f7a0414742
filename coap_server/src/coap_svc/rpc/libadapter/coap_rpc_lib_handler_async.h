/* coap_rpc_lib_handler_async.h: asynchronous requests between their arrival and their answer.
 *
 * The application holds a number, not a pointer: a handle that is no longer pending is recognised.
 * A request is
 *
 *   open       the application has been given it; libcoap knows nothing of it
 *   answered   the application has answered or aborted it, and may do so again
 *   held       the same, while kMaxAnswersInBlocks others to its peer travel in blocks
 *   ready      its handle has ended; libcoap gets it when it has sent most of what it has got
 *
 * Answered requests become ready when a turn of libcoap's I/O ends, the newest request first.  A
 * ready one is made a message of ours with the request's type, method and path, the stand-in, for
 * which libcoap runs the handler once more; the response goes out through the target's session.
 * One after the other, so that libcoap's list of asynchronous requests, which it walks for each
 * datagram, holds one at most.  The record ends there, whether the handler was reached or libcoap
 * answered by itself because the resource is gone.  Without memory for the stand-in the record
 * stays ready, and the next turn tries again. */
#ifndef COAP_RPC_LIB_HANDLER_ASYNC_H
#define COAP_RPC_LIB_HANDLER_ASYNC_H

#include <coap3/coap.h>

#include "coap_svc/rpc/common/coap_rpc_ctx.h"

COAP_RPC_C_BEGIN

typedef struct CoapRpcAsync CoapRpcAsync;

/* CoapRpcAsyncIsKnown says whether a request of an entry is waiting for its answer already, that is
 * whether the message is a retransmission. */
int CoapRpcAsyncIsKnown(CoapRpcCtx *ctx, const CoapRpcSerUriVtbl *entry,
                        const coap_session_t *session, const coap_pdu_t *request);

/* CoapRpcAsyncHasBacklog says whether too many answers are queued for the peer of an entry's target
 * to take another request.  CoapRpcAsyncIsPeerFull says the same of its open requests, of all
 * entries; CoapRpcAsyncIsFull of the open requests of all peers. */
int CoapRpcAsyncHasBacklog(const CoapRpcCtx *ctx, const CoapRpcSerUriVtbl *entry);
int CoapRpcAsyncIsPeerFull(const CoapRpcSerUriVtbl *entry);
int CoapRpcAsyncIsFull(const CoapRpcCtx *ctx);

/* CoapRpcAsyncRegister keeps a request, to be answered through the entry's target.
 * Returns the application's handle, or null without memory. */
void *CoapRpcAsyncRegister(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry, const coap_session_t *session,
                           const coap_pdu_t *request);

/* CoapRpcAsyncFindRerun returns the record of a stand-in that libcoap is running; null for any
 * other request. */
CoapRpcAsync *CoapRpcAsyncFindRerun(CoapRpcCtx *ctx, const coap_session_t *session,
                                    const coap_pdu_t *request);

/* CoapRpcAsyncAnswer fills the answer of a record that libcoap runs, and frees the record. */
void CoapRpcAsyncAnswer(CoapRpcAsync *async, coap_resource_t *resource, coap_session_t *session,
                        const coap_pdu_t *request, const coap_string_t *query,
                        coap_pdu_t *response);

/* CoapRpcAsyncServe hands answered requests to libcoap, as far as it can send their answers; to be
 * called when a turn of libcoap's I/O ends, still as a part of it. */
void CoapRpcAsyncServe(CoapRpcCtx *ctx);

/* CoapRpcAsyncFail notes that the peer of a target is gone.  CoapRpcAsyncGiveUp also drops the
 * answers that are queued for it: it never acknowledged one of them.
 * Return whether the session is a target's. */
int CoapRpcAsyncFail(CoapRpcCtx *ctx, coap_session_t *session);
int CoapRpcAsyncGiveUp(CoapRpcCtx *ctx, coap_session_t *session);

/* CoapRpcAsyncForgetEntry drops the records of an entry and closes its targets; null means all. */
void CoapRpcAsyncForgetEntry(CoapRpcCtx *ctx, const CoapRpcSerUriVtbl *entry);

COAP_RPC_C_END
#endif /* COAP_RPC_LIB_HANDLER_ASYNC_H */
