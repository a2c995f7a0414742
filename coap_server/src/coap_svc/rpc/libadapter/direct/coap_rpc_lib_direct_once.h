/* coap_rpc_lib_direct_once.h: requests of direct entries that are known again when they arrive
 * again.
 *
 * A record is
 *
 *   open       the application has been given the request and has not answered
 *   answered   it has the answer, without what a repetition brings by itself: type, Message ID,
 * token
 *
 * GET and FETCH have one while they are open.  Records are forgotten at their age, the oldest
 * before when there are too many; an open one leaves its request without one. */
#ifndef COAP_RPC_LIB_DIRECT_ONCE_H
#define COAP_RPC_LIB_DIRECT_ONCE_H

#include "coap_svc/rpc/common/coap_rpc_link.h"
#include "coap_svc/rpc/libadapter/message/coap_rpc_lib_exchange.h"

namespace coap_rpc {

struct DirectAsync;
struct OnceRecord;

// OnceKey tells one request from another: both ends, Message ID and token.
struct OnceKey {
  uint8_t remote[16];
  uint8_t local[16];
  uint8_t token[8];
  uint16_t remotePort;
  uint16_t localPort;
  uint16_t mid;
  uint8_t tokenLen;
  uint8_t method;
};

struct OnceId {
  OnceKey key;
  uint32_t hash;
};

struct OnceCache {
  OnceRecord **buckets;  // null until first used
  CoapRpcLink list;      // the oldest first
  uint32_t num;
  size_t numBytes;
  uint64_t numForgotten;  // before their time
};

// IsOnce says whether a request of this method must not be executed twice.
bool IsOnce(uint8_t method);

OnceId IdOf(const Exchange &exchange);

// FindOnce returns the record of a request that is here again; null for a new one.
OnceRecord *FindOnce(const Exchange &exchange, const OnceId &id);

// RepeatAnswer fills the response from a record; an open one leaves it empty.
void RepeatAnswer(const OnceRecord *record, coap_pdu_t *response);

// RememberAnswer notes the response to a request that was answered at once.
void RememberAnswer(const Exchange &exchange, const OnceId &id);

// RememberOpen notes a request that is open.  Returns null without memory.
OnceRecord *RememberOpen(const Exchange &exchange, const OnceId &id, DirectAsync *async);

// RememberLate notes the response to an open request; null is ignored.
void RememberLate(CoapRpcCtx *ctx, OnceRecord *record, const coap_pdu_t *response);

// RememberLost notes that the answer to an open request is lost: the request gets 5.04 when it
// arrives again.  Null is ignored.
void RememberLost(OnceRecord *record);

// ForgetOnce frees a record; null is ignored.  ForgetAllOnce frees all, and the table.
void ForgetOnce(CoapRpcCtx *ctx, OnceRecord *record);
void ForgetAllOnce(CoapRpcCtx *ctx);

// TrimOnce forgets what is too old or too much.
void TrimOnce(CoapRpcCtx *ctx);

}  // namespace coap_rpc

#endif /* COAP_RPC_LIB_DIRECT_ONCE_H */
