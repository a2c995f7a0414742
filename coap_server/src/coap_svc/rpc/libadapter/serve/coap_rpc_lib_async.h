/* coap_rpc_lib_async.h: asynchronous requests between their arrival and their answer.
 *
 * The application holds a number, not a pointer: a handle that is no longer pending is recognised.
 * What becomes of an answer is said in coap_rpc_lib_async_queue.h. */
#ifndef COAP_RPC_LIB_ASYNC_H
#define COAP_RPC_LIB_ASYNC_H

#include <coap3/coap.h>

#include "coap_svc/rpc/common/coap_rpc_ctx.h"
#include "coap_svc/rpc/libadapter/message/coap_rpc_lib_exchange.h"

COAP_RPC_C_BEGIN

/* CoapRpcAsyncIsKnown says whether a request of an entry is waiting for its answer already, that is
 * whether the message is a retransmission. */
int CoapRpcAsyncIsKnown(CoapRpcCtx *ctx, const CoapRpcSerUriVtbl *entry,
                        const coap_session_t *session, const coap_pdu_t *request);

/* CoapRpcAsyncHasBacklog says whether too many answers are queued in an entry's answer session to
 * take another request.  CoapRpcAsyncIsPeerFull says the same of its open requests, of all entries;
 * CoapRpcAsyncIsFull of the open requests of all peers. */
int CoapRpcAsyncHasBacklog(const CoapRpcCtx *ctx, const CoapRpcSerUriVtbl *entry);
int CoapRpcAsyncIsPeerFull(const CoapRpcCtx *ctx, const CoapRpcSerUriVtbl *entry);
int CoapRpcAsyncIsFull(const CoapRpcCtx *ctx);

/* CoapRpcAsyncRegister keeps a request, to be answered through the entry's answer session.
 * Returns the application's handle, or null without memory. */
void *CoapRpcAsyncRegister(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry, const coap_session_t *session,
                           const coap_pdu_t *request);

/* COAP_RpcSvrHandleSetResponseHeader sets code 0.02, the entry's message type and its path. */
COAP_RPC_API void COAP_RpcSvrHandleSetResponseHeader(coap_pdu_t *response,
                                                     const CoapRpcSerUriVtbl *entry,
                                                     CoapRpcCtx *ctx);

/* COAP_RpcReleaseAsyncRequest is the release function of asynchronous answers. */
COAP_RPC_API void COAP_RpcReleaseAsyncRequest(coap_session_t *session, void *payload);

/* CoapRpcAsyncFail notes that the peer of an answer session is gone.  CoapRpcAsyncGiveUp also drops
 * the answers that are queued for it: it never acknowledged one of them.
 * Return whether the session is an answer session. */
int CoapRpcAsyncFail(CoapRpcCtx *ctx, coap_session_t *session);
int CoapRpcAsyncGiveUp(CoapRpcCtx *ctx, coap_session_t *session);

/* CoapRpcAsyncForgetEntry drops the records of an entry and closes its answer sessions;
 * CoapRpcAsyncStop those of all entries. */
void CoapRpcAsyncForgetEntry(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry);
void CoapRpcAsyncStop(CoapRpcCtx *ctx);

COAP_RPC_C_END

namespace coap_rpc {

// CoapRpcAsyncAnswerRerun fills the answer when libcoap runs the handler for a stand-in, whose
// record ends.  False: the request is a peer's.
bool CoapRpcAsyncAnswerRerun(const Exchange &exchange);

}  // namespace coap_rpc

#endif /* COAP_RPC_LIB_ASYNC_H */
