/* coap_rpc_lib_direct.h: requests of direct entries, from libcoap to the application and back.
 *
 * A request comes in by the front door (GET, POST) or by the handler of the other methods, which
 * its resource has while a direct entry is attached.  It is
 *
 *   refused      its method is not allowed, or its entry has no callback
 *   known        at-most-once has seen it: the answer is given again, no callback.  Of a transfer
 *                in blocks it knows the first block of the body, without which there is no other
 *                body, the one that completed it, and the request for the answer's last block
 *   answered     the callback has run; its reply is the response, which at-most-once remembers
 *   open         the callback has a handle and has not answered: the response is empty
 *
 * An open request becomes answered by the application or by its deadline and is sent by the turn
 * that follows (coap_rpc_lib_direct_async.h).  A reply is a code, a format, options and a payload,
 * whoever made it (coap_rpc_lib_direct_reply.h, coap_rpc_lib_direct_options.h).  What bounds it all
 * is in coap_rpc_limits.h: open requests, queued answers, sessions of peers, payloads that travel
 * in blocks, requests remembered, options.
 *
 * The room has one record in the adapter's, made for the first direct entry, and one for each
 * direct entry.  Instances without any pay one comparison for a request. */
#ifndef COAP_RPC_LIB_DIRECT_H
#define COAP_RPC_LIB_DIRECT_H

#include "coap_svc/rpc/libadapter/message/coap_rpc_lib_exchange.h"

namespace coap_rpc {

// ServeDirect serves a request whose URI has a direct entry.  False: it is for the other rooms.
bool ServeDirect(Exchange &exchange);

// ServeDirectBlock answers a request with or for a block that at-most-once knows, of a direct
// entry; 0 for any other.  With `isAnswered` it remembers the answer.
int ServeDirectBlock(coap_session_t *session, coap_resource_t *resource, const coap_pdu_t *request,
                     coap_pdu_t *response, int isAnswered);

// AcceptObserver turns the answer to a registration with a direct entry into 2.05.
void AcceptObserver(const Exchange &exchange);

// OfferDirect gives a resource the handlers and link attributes of its direct entries.
void OfferDirect(CoapRpcCtx *ctx, coap_resource_t *resource);

// Steps of the part.
void FreeDirect(CoapRpcCtx *ctx);
void ForgetDirectEntry(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry);

}  // namespace coap_rpc

#endif /* COAP_RPC_LIB_DIRECT_H */
