/* coap_rpc_lib_direct_async.h: requests of direct entries between their arrival and their answer.
 *
 * A request is
 *
 *   open       the application has its handle; on its entry's list, the oldest first
 *   answered   it has a reply, which another one may replace
 *
 * Answered inside the callback, the reply is the response to the request.  Otherwise the turn's end
 * sends it as a message of its own, on the session and with the token that asked, and the handle
 * ends. libcoap gets kMaxAnswersInLibcoap of a session at a time; the others stay answered.
 *
 * libcoap keeps a CON message until it is acknowledged, for up to 93 s, and whoever forges
 * addresses could make it keep any number.  While it has kMaxUnacknowledged, answers are NON
 * messages.
 *
 * A peer is a session with requests: it is kept as long as it has any and until the next tick,
 * since most peers ask again soon, and dropped with them when its listen is closed.  A peer that
 * acknowledges nothing loses its queued answers.  Handles are numbers, counted together with those
 * of base entries. */
#ifndef COAP_RPC_LIB_DIRECT_ASYNC_H
#define COAP_RPC_LIB_DIRECT_ASYNC_H

#include "coap_svc/rpc/libadapter/direct/coap_rpc_lib_direct_data.h"
#include "coap_svc/rpc/libadapter/message/coap_rpc_lib_msg.h"

namespace coap_rpc {

// DirectPeer is a session with requests.
struct DirectPeer {
  OSAL_AVL3_NODE node;
  coap_session_t *session;  // referenced
  CoapRpcLink requestList;  // all of them
  CoapRpcLink answeredList;
  CoapRpcLink queuedLink;  // on Direct's queuedPeerList while some are answered
  CoapRpcLink idleLink;    // on Direct's idlePeerList while it has no requests
  uint32_t numQueued;
};

// DirectAnswer is the payload of an answer.
struct DirectAnswer {
  uint32_t len;
  CoapRpcPayload *large;  // owned; null for one that fits `small`
  uint8_t small[64];
};

struct DirectAsync {
  OSAL_AVL3_NODE node;
  CoapRpcLink openLink;   // on its entry's list while open
  CoapRpcLink peerLink;   // on its peer's requestList
  CoapRpcLink queueLink;  // on its peer's answeredList while answered
  uintptr_t id;           // the application's handle
  coap_tick_t arrived;
  CoapRpcCtx *ctx;
  DirectEntry *entry;
  DirectPeer *peer;
  coap_pdu_t *request;  // owned, without payload
  OnceId once;          // open
  DirectAnswer answer;
  ReplyHead head;         // of the answer that the application will give
  ReplyHead answerHead;   // of the one that it has given
  ReplyOptions *options;  // owned; of either, null for none
  uint8_t unwanted;       // classes of answers that the peer does not want to hear (RFC 7967)
  bool isAnswered;
};

// OpenAsync keeps a request.  Null when it cannot be kept: no memory, or too many.
DirectAsync *OpenAsync(const DirectRequest &request);

DirectAsync *FindDirectAsync(CoapRpcCtx *ctx, uintptr_t id);

// ReplyNow ends an answered request, whose own response is the answer.
void ReplyNow(DirectAsync *async, const Exchange &exchange);

// AnswerDirect and AbortDirect are COAP_RpcSerSendAsyncResponse and COAP_RpcSerAbortAsyncResponse
// for the handle of a direct entry.
uint32_t AnswerDirect(CoapRpcCtx *ctx, const void *handle, const uint8_t *data, uint32_t len);
uint32_t AbortDirect(CoapRpcCtx *ctx, const void *handle);

// FailDirect is COAP_RpcSerFailAsync for a request and a code of class 4 or 5.
uint32_t FailDirect(DirectAsync *async, uint32_t code, const char *text);

// NoteDirectNack says whether a message that was given up or refused was an answer of this room.
bool NoteDirectNack(coap_session_t *session, const coap_pdu_t *sent, coap_nack_reason_t reason);

// DropDirectRequests frees all requests of an entry.
void DropDirectRequests(CoapRpcCtx *ctx, const DirectEntry *entry);

// Steps of the part.
void ServeDirectAnswers(CoapRpcCtx *ctx);
void TickDirect(CoapRpcCtx *ctx);
bool HasDirectRequests(const CoapRpcCtx *ctx);
void StopDirect(CoapRpcCtx *ctx);
void DropEndPointRequests(CoapRpcCtx *ctx, const coap_endpoint_t *endPoint);

}  // namespace coap_rpc

#endif /* COAP_RPC_LIB_DIRECT_ASYNC_H */
