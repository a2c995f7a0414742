/* coap_rpc_lib_internals.h: the few things that only libcoap's internal headers offer.
 *
 * They are compiled into libcoap, with those of coap_rpc_lib_last_block.h; in C, as the internal
 * headers are not made for C++. */
#ifndef COAP_RPC_LIB_INTERNALS_H
#define COAP_RPC_LIB_INTERNALS_H

#include <coap3/coap.h>

#include "coap_svc/rpc/coap_rpc_types.h"

COAP_RPC_C_BEGIN

/* CoapRpcLibSubscriptionPdu returns the request stored in a subscription. */
const coap_pdu_t *CoapRpcLibSubscriptionPdu(const coap_subscription_t *subscription);

/* CoapRpcLibStripQuery removes every Uri-Query option from the stored request. */
void CoapRpcLibStripQuery(coap_subscription_t *subscription);

/* CoapRpcLibNewEndPoint opens an endpoint on a socket that shares its address and port with no
 * other one; libcoap's own socket would, with any that asks for it.  Returns null on failure. */
coap_endpoint_t *CoapRpcLibNewEndPoint(coap_context_t *coapCtx, const coap_address_t *addr,
                                       coap_proto_t protocol);

/* CoapRpcLibAskForRoom gives the socket of a client session the receive buffer of an endpoint's, for
 * bursts of datagrams. */
void CoapRpcLibAskForRoom(coap_session_t *session);

/* CoapRpcLibRetire ends reading from an endpoint that libcoap may be using.
 * CoapRpcLibReclaim resumes it and returns the retired endpoint of an address, or null.
 * CoapRpcLibFreeRetired frees all retired endpoints, and the resources without user data; those too
 * that become so meanwhile.  An endpoint that a callback reclaims meanwhile stays. */
void CoapRpcLibRetire(coap_endpoint_t *endPoint);
coap_endpoint_t *CoapRpcLibReclaim(coap_context_t *coapCtx, const coap_address_t *addr);
void CoapRpcLibFreeRetired(coap_context_t *coapCtx);

/* CoapRpcLibDisconnectAll disconnects every session of an endpoint, and with them their observers,
 * queued messages and block transfers; libcoap cannot free the endpoint safely before. */
void CoapRpcLibDisconnectAll(coap_endpoint_t *endPoint);

/* CoapRpcLibFits returns 1 when a message has room for a payload of `len` bytes, else 0. */
int CoapRpcLibFits(const coap_pdu_t *pdu, size_t len);

/* CoapRpcLibAddToken gives a message that has its options already a token.  Returns 0 when the
 * message has no room for it. */
int CoapRpcLibAddToken(coap_pdu_t *pdu, const uint8_t *token, size_t len);

/* CoapRpcLibStoredRequest returns the request that is stored for the observer with the session and
 * the token of `request`; null when there is none. */
const coap_pdu_t *CoapRpcLibStoredRequest(coap_resource_t *resource, coap_session_t *session,
                                          const coap_pdu_t *request);

/* CoapRpcLibFindBlocks returns the block transfer of the session that carries `appPtr`, or null. */
coap_lg_xmit_t *CoapRpcLibFindBlocks(coap_session_t *session, const void *appPtr);

/* CoapRpcLibBlocksSentAt says when the last block of the session's transfer that carries `appPtr`
 * was sent; 0 while it has not been, or when a block was asked for again since. */
coap_tick_t CoapRpcLibBlocksSentAt(coap_session_t *session, const void *appPtr);

/* CoapRpcLibIsIdleFor says whether for idleMs, which begin at `notBefore` at the earliest, nobody
 * has asked for a block of the unfinished transfer of the session that carries `appPtr`.  libcoap's
 * own time for the transfer begins again. */
int CoapRpcLibIsIdleFor(coap_session_t *session, const void *appPtr, coap_tick_t notBefore,
                        uint32_t idleMs);

/* CoapRpcLibSetRepeat sets what is asked first about a CON request for a block but the first: it
 * answers one that it has answered before, and returns 0 for any other. */
typedef int (*CoapRpcLibRepeat)(coap_session_t *session, const coap_pdu_t *request,
                                coap_pdu_t *response);
void CoapRpcLibSetRepeat(coap_context_t *coapCtx, CoapRpcLibRepeat repeat);

/* CoapRpcLibSetBlock sets what is asked first about a block of an upload in several blocks, and
 * about a request for a block but the first: it answers one that it knows, and returns 0 for any
 * other.  With `isAnswered` 1 it is told what the first block of an upload has got, and the request
 * for the last block of an answer. */
typedef int (*CoapRpcLibBlock)(coap_session_t *session, coap_resource_t *resource,
                               const coap_pdu_t *request, coap_pdu_t *response, int isAnswered);
void CoapRpcLibSetBlock(coap_context_t *coapCtx, CoapRpcLibBlock block);

/* CoapRpcLibIsBegun says whether the peer has begun to fetch a transfer, CoapRpcLibIsAllSent
 * whether the last block was sent and none was asked for again since.  Neither for null. */
int CoapRpcLibIsBegun(const coap_lg_xmit_t *blocks);
int CoapRpcLibIsAllSent(const coap_lg_xmit_t *blocks);

/* CoapRpcLibIsQueued says whether a message of a session waits to be sent or acknowledged.
 * CoapRpcLibIsStillQueued does so for a session that may be gone; then it does not. */
int CoapRpcLibIsQueued(const coap_session_t *session, coap_mid_t mid);
int CoapRpcLibIsStillQueued(const coap_context_t *coapCtx, const coap_session_t *session,
                            coap_mid_t mid);

/* CoapRpcLibClaimToken lets a client session use a token that it did not draw: those that it draws
 * come after it.  Returns 0, changing nothing, when a block transfer without Observe has it. */
int CoapRpcLibClaimToken(coap_session_t *session, const coap_bin_const_t *token);

/* CoapRpcLibAllowCancel lets coap_cancel_observe cancel a relation whose answer is still to come:
 * the server may have it all the same. */
void CoapRpcLibAllowCancel(const coap_session_t *session, const coap_binary_t *token);

/* CoapRpcLibEndPartlyFetched ends what is being sent to a request's token when the peer has begun
 * to fetch it and not come to its end.  Release functions run then. */
void CoapRpcLibEndPartlyFetched(coap_session_t *session, const coap_resource_t *resource,
                                const coap_pdu_t *request);

/* CoapRpcLibRenameBlocks lets a peer ask with another query from now on for the blocks of what is
 * being sent to its request's token.  `query` may be null. */
void CoapRpcLibRenameBlocks(coap_session_t *session, const coap_resource_t *resource,
                            const coap_pdu_t *request, const coap_string_t *query);

/* CoapRpcLibEndBlocks ends the transfer of the session that carries `appPtr`, finished or not, if
 * there is one.  Its release function runs then. */
void CoapRpcLibEndBlocks(coap_session_t *session, const void *appPtr);

/* CoapRpcLibLimitUploads drops request bodies that are still coming in blocks: those for which more
 * than maxLen bytes are set aside, and beyond maxNum those that have been silent longest, that is,
 * whose latest new block came first; a repeated block does not count.  Returns how many are left.
 */
unsigned CoapRpcLibLimitUploads(coap_context_t *coapCtx, unsigned maxNum, size_t maxLen);

/* CoapRpcLibNumDelayed counts the messages that the session keeps back until those under way have
 * been acknowledged, CoapRpcLibNumBlocks its block transfers. */
unsigned CoapRpcLibNumDelayed(const coap_session_t *session);
unsigned CoapRpcLibNumBlocks(const coap_session_t *session);

/* CoapRpcLibHasBody says whether the session sends a request body or fetches a response body. */
int CoapRpcLibHasBody(const coap_session_t *session);

/* CoapRpcLibIsBody says whether a response was put together from blocks. */
int CoapRpcLibIsBody(const coap_pdu_t *pdu);

/* CoapRpcLibFirstDelayed returns the Message ID of the message kept back that goes out next;
 * COAP_INVALID_MID for none. */
coap_mid_t CoapRpcLibFirstDelayed(const coap_session_t *session);

/* CoapRpcLibDropDelayed drops the messages that the session keeps back, but not those of block
 * transfers, which would never go on. */
void CoapRpcLibDropDelayed(coap_session_t *session);

/* CoapRpcLibIsIdle says whether a client session has nothing under way and nobody but its owner. */
int CoapRpcLibIsIdle(const coap_session_t *session);

/* What libcoap does with a response: acknowledge it and no more; what it always does; that, but a
 * request with its token that has no acknowledgement yet goes on being sent; or nothing, so that it
 * comes again. */
enum { kCoapRpcLibOld, kCoapRpcLibFresh, kCoapRpcLibBeside, kCoapRpcLibEarly };
typedef int (*CoapRpcLibOrder)(coap_session_t *session, const coap_pdu_t *sent,
                               const coap_pdu_t *received);

/* CoapRpcLibSetOrder sets what is asked before anything is done because of a response. */
void CoapRpcLibSetOrder(coap_context_t *coapCtx, CoapRpcLibOrder order);

/* CoapRpcLibIsUnacknowledged says whether a request with the token of `pdu` is being sent, or waits
 * for others of its session. */
int CoapRpcLibIsUnacknowledged(const coap_session_t *session, const coap_pdu_t *pdu);

/* CoapRpcLibIsReceiving says whether a body is coming in for a request of the session, and its
 * latest block came less than idleMs ago.  A null session has none. */
int CoapRpcLibIsReceiving(const coap_session_t *session, const coap_bin_const_t *token,
                          uint32_t idleMs);

/* CoapRpcLibSetOneWay says that nobody waits for responses to what the session sends. */
void CoapRpcLibSetOneWay(coap_session_t *session);

/* CoapRpcLibSetToken exchanges a message's token, unless the message is part of a block transfer,
 * whose tokens are libcoap's own. */
void CoapRpcLibSetToken(coap_pdu_t *pdu, const coap_bin_const_t *token);

/* CoapRpcLibRunAsync runs the handler for a message of ours as if it were an asynchronous request
 * of the session's that is due.  Returns 0 without memory to begin with it. */
int CoapRpcLibRunAsync(coap_session_t *session, const coap_pdu_t *standIn);

/* CoapRpcLibWakeIn makes the descriptor readable after a time, unless it will be earlier.  Inside a
 * turn of libcoap's I/O it may do nothing: the turn ends with a look at what is due.  A null
 * context is ignored. */
void CoapRpcLibWakeIn(coap_context_t *coapCtx, coap_tick_t ticks);

/* CoapRpcLibClearBody removes the payload and the options that describe it. */
void CoapRpcLibClearBody(coap_pdu_t *pdu);

/* What CoapRpcLibServeReady found. */
enum {
  kCoapRpcLibIdle, /* no socket had a datagram, though maybe an error */
  kCoapRpcLibDry,  /* the last read of an endpoint found nothing more */
  kCoapRpcLibMore  /* each found something, as far as one can tell */
};

/* CoapRpcLibServeReady serves the sockets that have something to read, without waiting: up to
 * `perEndPoint` datagrams of each endpoint and one of each client session, and libcoap's timers.
 * With isAgain, right after another call, it does nothing when no socket and no timer is ready.
 * Returns what it found. */
int CoapRpcLibServeReady(coap_context_t *coapCtx, unsigned perEndPoint, int isAgain);

COAP_RPC_C_END
#endif /* COAP_RPC_LIB_INTERNALS_H */
