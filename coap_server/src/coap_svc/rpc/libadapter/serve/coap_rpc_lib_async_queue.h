/* coap_rpc_lib_async_queue.h: answers to asynchronous requests, queued until libcoap takes them.
 *
 * A request is
 *
 *   open       the application has been given it; libcoap knows nothing of it
 *   answered   the application has answered or aborted it, and may do so again
 *   held       the same, while kMaxAnswersInBlocks others to its peer travel in blocks
 *   ready      its handle has ended; libcoap gets it when it has sent most of what it has got
 *
 * Answered requests become ready when a turn of libcoap's I/O ends, the newest request first.  A
 * ready one is made a message of ours with the request's type, method and path, the stand-in, for
 * which libcoap runs the handler once more; the response goes out through the answer session.
 * One after the other, so that libcoap's list of asynchronous requests, which it walks for each
 * datagram, holds one at most.  The record ends there, whether the handler was reached or libcoap
 * answered by itself because the resource is gone.  Without memory for the stand-in the record
 * stays ready, and the next turn tries again. */
#ifndef COAP_RPC_LIB_ASYNC_QUEUE_H
#define COAP_RPC_LIB_ASYNC_QUEUE_H

#include <type_traits>

#include "coap_svc/rpc/libadapter/message/coap_rpc_lib_msg.h"
#include "coap_svc/rpc/libadapter/serve/coap_rpc_lib_answer_session.h"

namespace coap_rpc {

inline constexpr size_t kMaxTokenLen = 8;

// RequestId tells one request of an entry from another.
struct RequestId {
  const CoapRpcSerUriVtbl *entry;
  PeerKey peer;
  uint8_t token[kMaxTokenLen];
  uint64_t tokenLen;
  int64_t mid;
};

// Compared as bytes.
static_assert(std::has_unique_object_representations_v<RequestId>);

enum class AsyncState : uint8_t { kOpen, kAnswered, kHeld, kReady, kRunning };

}  // namespace coap_rpc

// CoapRpcAsync is one asynchronous request, followed by the segments of its path, each after a byte
// with its length.
struct CoapRpcAsync {
  OSAL_AVL3_NODE node;          // in asyncTree while its handle is valid
  OSAL_AVL3_NODE reqNode;       // in asyncReqTree, until the request is too old to be repeated
  OSAL_AVL3_NODE answeredNode;  // in asyncAnsweredTree while answered
  CoapRpcLink requestLink;      // on its answer session's requestList
  CoapRpcLink queueLink;        // on its answer session's heldList or readyList
  uintptr_t id;                 // the application's handle
  coap_rpc::RequestId request;
  coap_tick_t arrived;
  CoapRpcCtx *ctx;
  CoapRpcSerUriVtbl *entry;
  coap_rpc::AnswerSession *sender;
  CoapRpcPayload *answer;  // owned; null for none
  uint32_t pathLen;
  uint8_t type;
  uint8_t code;
  coap_rpc::AsyncState state;
};

namespace coap_rpc {

// EnlistAsync takes over a new record, which is open.  An older one of the same identity is too old
// to be repeated and is no longer found by it.
void EnlistAsync(CoapRpcAsync *async);

// FindAsync returns the record of a handle that is valid; null for any other.  FindAsyncRequest
// returns that of a request.
CoapRpcAsync *FindAsync(CoapRpcCtx *ctx, uintptr_t id);
CoapRpcAsync *FindAsyncRequest(CoapRpcCtx *ctx, const RequestId &request);

// FindRunningAsync returns the record of a stand-in that libcoap is running; null for any other
// request.
CoapRpcAsync *FindRunningAsync(CoapRpcCtx *ctx, const coap_session_t *session,
                               const coap_pdu_t *request);

// SetAsyncAnswer takes the payload; null aborts.  The last call before the answer is sent counts.
void SetAsyncAnswer(CoapRpcAsync *async, CoapRpcPayload *answer);

// DropAsync frees a record in any state, DropQueuedAsync those whose answers are queued for a peer,
// DropAllAsync all of an answer session.
void DropAsync(CoapRpcAsync *async);
void DropQueuedAsync(AnswerSession *sender);
void DropAllAsync(AnswerSession *sender);

// MaxQueuedAnswers returns each answer session's share of what may be queued in all.
uint32_t MaxQueuedAnswers(const CoapRpcCtx *ctx);

// ServeAnswers hands libcoap what it can send; the last step of a turn of libcoap's I/O, inside it.
// HasQueuedAnswers says whether any is left.
void ServeAnswers(CoapRpcCtx *ctx);
bool HasQueuedAnswers(const CoapRpcCtx *ctx);

}  // namespace coap_rpc

#endif /* COAP_RPC_LIB_ASYNC_QUEUE_H */
