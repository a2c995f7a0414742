/* coap_rpc_lib_handler_async.h: asynchronous requests between their arrival and their answer.
 *
 * libcoap keeps a stand-in of each request under a token of ours, so that requests never collide,
 * and runs the handler again with it once the request is answered.  The application holds a number,
 * not a pointer: a handle that is no longer pending is recognised.
 *
 * A request ends in one of three ways: its stand-in is run and answered, its entry goes, or its
 * stand-in is run while the resource is gone (libcoap answers then, and the sweep finds it). */
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

/* CoapRpcAsyncIsBehind says whether so many answers wait to be sent through an entry's target that
 * its peer gets no further ones. */
int CoapRpcAsyncIsBehind(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry);

/* CoapRpcAsyncRegister keeps a request, to be answered through `target`.
 * Returns the application's handle, or null without memory. */
void *CoapRpcAsyncRegister(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry, coap_session_t *target,
                           const coap_session_t *session, const coap_pdu_t *request);

/* CoapRpcAsyncFindRerun returns the record of a stand-in that libcoap is running; null for any
 * other request. */
CoapRpcAsync *CoapRpcAsyncFindRerun(CoapRpcCtx *ctx, const coap_session_t *session,
                                    const coap_pdu_t *request);

/* CoapRpcAsyncAnswer fills the answer of a record that libcoap runs, and frees the record. */
void CoapRpcAsyncAnswer(CoapRpcAsync *async, coap_resource_t *resource, coap_session_t *session,
                        const coap_pdu_t *request, const coap_string_t *query,
                        coap_pdu_t *response);

/* CoapRpcAsyncSweep frees records whose stand-in was run without reaching the handler; to be called
 * after each turn of libcoap. */
void CoapRpcAsyncSweep(CoapRpcCtx *ctx);

/* CoapRpcAsyncResume sends the answers that waited for others to the same peer, as far as those are
 * done; to be called after each turn of libcoap. */
void CoapRpcAsyncResume(CoapRpcCtx *ctx);

/* CoapRpcAsyncGiveUp drops the answers that wait to be sent to a target, whose peer has taken one
 * of them in none of its transmissions. */
void CoapRpcAsyncGiveUp(CoapRpcCtx *ctx, coap_session_t *target);

/* CoapRpcAsyncForgetEntry drops the records of an entry; null means all. */
void CoapRpcAsyncForgetEntry(CoapRpcCtx *ctx, const CoapRpcSerUriVtbl *entry);

COAP_RPC_C_END
#endif /* COAP_RPC_LIB_HANDLER_ASYNC_H */
