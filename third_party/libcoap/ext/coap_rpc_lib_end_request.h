/* coap_rpc_lib_end_request.h: requests that are known by their tokens, in a client session.
 *
 * libcoap gives the messages of a transfer in blocks tokens of its own, and keeps the request's in
 * the transfer's record: whoever looks for the messages of a request has to know both. */
#ifndef COAP_RPC_LIB_END_REQUEST_H
#define COAP_RPC_LIB_END_REQUEST_H

#include <coap3/coap.h>

#include "coap_svc/rpc/coap_rpc_types.h"

COAP_RPC_C_BEGIN

/* CoapRpcLibEndRequest ends what libcoap does for a request: its messages are not sent any more,
 * those of its blocks included, and its transfers are dropped.  What the session keeps back may go
 * out then.  Not for callbacks of libcoap's, which may be using the transfers. */
void CoapRpcLibEndRequest(coap_session_t *session, const coap_bin_const_t *token);

/* CoapRpcLibStopSending is the part of it that concerns messages: the transfers stay. */
void CoapRpcLibStopSending(coap_session_t *session, const coap_bin_const_t *token);

/* CoapRpcLibRequestToken returns the token of the request that a message belongs to: its own,
 * unless it is part of a transfer in blocks.  CoapRpcLibTokenOwner says so of a message's token. */
coap_bin_const_t CoapRpcLibRequestToken(const coap_session_t *session, const coap_pdu_t *pdu);
coap_bin_const_t CoapRpcLibTokenOwner(const coap_session_t *session, const coap_bin_const_t *own);

/* CoapRpcLibExpectAnswer lets libcoap know a request that is about to be sent when blocks of its
 * answer come.  libcoap does so itself, except for a NON DELETE.  Returns 0 without memory. */
int CoapRpcLibExpectAnswer(coap_session_t *session, coap_pdu_t *pdu);

/* CoapRpcLibSetKeep sets who is offered what libcoap makes for the answer to a request, and looks
 * through with each message of the session.  1: the taker keeps it, while libcoap does nothing with
 * it, and gives it back when the answer is there, or drops it. */
typedef int (*CoapRpcLibKeep)(coap_session_t *session, coap_lg_crcv_t *answer);
void CoapRpcLibSetKeep(coap_context_t *coapCtx, CoapRpcLibKeep keep);
coap_bin_const_t CoapRpcLibTokenOf(const coap_lg_crcv_t *answer); /* of its request */
int CoapRpcLibCanBeKept(const coap_lg_crcv_t *answer);
void CoapRpcLibGiveBack(coap_session_t *session, coap_lg_crcv_t *answer); /* null: nothing */
void CoapRpcLibDropKept(coap_session_t *session, coap_lg_crcv_t *answer); /* null: nothing */

/* CoapRpcLibMakeCall makes a message a call's, and those that libcoap makes from it.  It is sent
 * again `maxRetransmit` times, whatever its session says, and so for how long transfers that belong
 * to it are kept without news; at once when the socket refuses it, which may tell of an earlier
 * datagram; and the blocks of its payload have its token. */
void CoapRpcLibMakeCall(coap_pdu_t *pdu, uint8_t maxRetransmit);

/* CoapRpcLibHasTurn says whether a CON message of the session would go out at once. */
int CoapRpcLibHasTurn(const coap_session_t *session);

COAP_RPC_C_END
#endif /* COAP_RPC_LIB_END_REQUEST_H */
