/* coap_rpc_lib_rpc_call_pdu.h: calls to messages, and messages to what a call has come to. */
#ifndef COAP_RPC_LIB_RPC_CALL_PDU_H
#define COAP_RPC_LIB_RPC_CALL_PDU_H

#include "coap_svc/rpc/libadapter/rpc_call/coap_rpc_lib_rpc_call_record.h"

namespace coap_rpc {

// CheckCall returns 0 or the code of what is wrong with a call, whomever it is for.
uint32_t CheckCall(const CoapRpcCall &call);

// BuildCall makes the message of a call with its token and options, without payload and Message ID.
// Returns 0 or a code.
uint32_t BuildCall(coap_session_t *session, const CoapRpcCall &call, const coap_bin_const_t &token,
                   bool isObserve, coap_pdu_t **out);

// AddCallBlocks gives a message the payload that it cannot hold, null for none, and takes it over.
bool AddCallBlocks(coap_session_t *session, coap_pdu_t *pdu, CoapRpcPayload *payload);

// ReadAnswer fills what a message says; the payload is borrowed.
void ReadAnswer(const coap_pdu_t *pdu, CoapRpcCallRsp *rsp);

// LocationOf returns the Location-Path as a text, for its taker to free to the pool; null without
// one or without memory.
char *LocationOf(CoapRpcCtx *ctx, const coap_pdu_t *pdu);

}  // namespace coap_rpc

#endif /* COAP_RPC_LIB_RPC_CALL_PDU_H */
