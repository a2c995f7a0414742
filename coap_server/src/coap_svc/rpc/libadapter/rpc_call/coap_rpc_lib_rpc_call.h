/* coap_rpc_lib_rpc_call.h: the life of a call.
 *
 * The story is told at the head of the source file. */
#ifndef COAP_RPC_LIB_RPC_CALL_H
#define COAP_RPC_LIB_RPC_CALL_H

#include "coap_svc/rpc/libadapter/rpc_call/coap_rpc_lib_rpc_call_record.h"

namespace coap_rpc {

// StartCall makes a call and sends or queues it.  Returns 0 or a code.
uint32_t StartCall(CoapRpcCtx *ctx, const CoapRpcCallAddr &addr, const CoapRpcCall &call,
                   bool isObserve, uint64_t *id);

// SendAgain sends a message with a call's token.
bool SendAgain(RpcCall *call, coap_pdu_t *pdu);

// EndCall ends a call with a status other than answered, AnswerCall with an answer; onRsp is called
// unless the application has been told before.
void EndCall(CoapRpcCtx *ctx, RpcCall *call, uint32_t status);
void AnswerCall(CoapRpcCtx *ctx, RpcCall *call, const coap_pdu_t *answer);

// FailCall answers a call with 4.08 in the server's stead.
void FailCall(CoapRpcCtx *ctx, RpcCall *call);

// CancelCall tells the application that a call is cancelled, and the server when it is an
// observation.
void CancelCall(CoapRpcCtx *ctx, RpcCall *call);

// TellCall calls a call's onRsp.
void TellCall(CoapRpcCtx *ctx, const RpcCall &call, const coap_pdu_t *answer, uint32_t isLast);

// RpcCallsServe sends what has its turn, RpcCallsSettle ends in libcoap what has ended: steps of a
// turn of the I/O (coap_rpc_lib_parts.h).
void RpcCallsServe(CoapRpcCtx *ctx);
void RpcCallsSettle(CoapRpcCtx *ctx);

// StopRpcCalls ends every call; none can be started after.  FreeRpcCalls frees what they shared.
void StopRpcCalls(CoapRpcCtx *ctx);
void FreeRpcCalls(CoapRpcCtx *ctx);

}  // namespace coap_rpc

#endif /* COAP_RPC_LIB_RPC_CALL_H */
