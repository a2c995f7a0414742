/* coap_rpc_lib_rpc_call_answer.h: what libcoap tells of calls.
 *
 * The front door asks here first; what is not for calls is for base requests. */
#ifndef COAP_RPC_LIB_RPC_CALL_ANSWER_H
#define COAP_RPC_LIB_RPC_CALL_ANSWER_H

#include "coap_svc/rpc/libadapter/rpc_call/coap_rpc_lib_rpc_call_record.h"

namespace coap_rpc {

// TakeCallAnswer takes a response that is for calls; nothing for any other.  Returns whether it
// was.
bool TakeCallAnswer(CoapRpcCtx *ctx, coap_session_t *session, const coap_pdu_t *received,
                    coap_response_t *result);

// OrderCallResponse says what to do with a response that is for calls (coap_rpc_lib_order.h).
// Returns whether it was.
bool OrderCallResponse(CoapRpcCtx *ctx, coap_session_t *session, const coap_pdu_t *sent,
                       const coap_pdu_t *received, int *order);

// TakeCallNack ends the call whose message was refused or given up; false for any other message.
bool TakeCallNack(CoapRpcCtx *ctx, coap_session_t *session, const coap_pdu_t *sent,
                  coap_nack_reason_t reason, coap_mid_t mid);

// TakeCallErrors takes the errors that a session's socket quotes (coap_rpc_lib_quoted.h) and ends
// the calls that they are about.
int TakeCallErrors(coap_session_t *session);

// KeepCallAnswer keeps what libcoap has made for the answer to a call (coap_rpc_lib_end_request.h).
int KeepCallAnswer(coap_session_t *session, coap_lg_crcv_t *answer);

// CheckCallSource ends the calls of a session that sends from an address that is gone.
void CheckCallSource(CoapRpcCtx *ctx, coap_session_t *session);

// CountBadPacket counts a malformed message that came while calls were under way on its session.
void CountBadPacket(coap_session_t *session);

}  // namespace coap_rpc

#endif /* COAP_RPC_LIB_RPC_CALL_ANSWER_H */
