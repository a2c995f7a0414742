/* coap_rpc_lib_direct_once.h: requests of direct entries that are known again when they arrive
 * again.
 *
 * A record is
 *
 *   open       the application has been given the request and has not answered; it is part of the
 *              request's own record
 *   answered   it is in the cache's queue with the answer behind it, without what a repetition
 *              brings by itself: type, Message ID, token
 *
 * GET and FETCH have one while they are open.  An answered one is found until its age, and kept
 * until it is the oldest and too old or too much.
 *
 * The memory of all records is much larger than the processor's caches, and nearly every request is
 * new.  Such a one reads no record: peers count their Message IDs up, consecutive ones are
 * neighbours in the table of chains, so that what it has of a peer stays in the caches, and each
 * chain has a tag that says whether a request can be in it. */
#ifndef COAP_RPC_LIB_DIRECT_ONCE_H
#define COAP_RPC_LIB_DIRECT_ONCE_H

#include "coap_svc/rpc/libadapter/direct/coap_rpc_lib_byte_queue.h"
#include "coap_svc/rpc/libadapter/message/coap_rpc_lib_exchange.h"

namespace coap_rpc {

// OnceRecord is the head of a record.  Its key is behind it, and in the queue its answer behind
// that.
struct OnceRecord {
  OnceRecord *next;    // of its chain, the newest first
  OnceRecord **at;     // what points to it; null outside of chains
  uint32_t place;      // in the table: a hash of both ends, plus the Message ID
  uint32_t expiresMs;  // low bits of libcoap's clock
  uint16_t len;        // of the answer
  uint16_t payloadAt;
  uint8_t code;
  uint8_t method;  // of the request
  uint8_t numWords;
  bool isAnswered;
};

// OnceId is a record outside of the queue.  The key tells its request from others: both ends,
// Message ID, method and token.
struct OnceId {
  OnceRecord record;
  uint64_t key[6];
};

struct OnceTable;

struct OnceCache {
  OnceTable *table;  // null until first used
  uint64_t seed;     // of hashes: peers do not choose places
  uint32_t nowMs;    // of the latest request
  ByteQueue queue;   // OnceRecord, answered, each with its answer
  uint32_t num;      // in the queue
  size_t numBytes;
  uint64_t numForgotten;  // before their time
};

// IsOnce says whether a request of this method must not be executed twice.
bool IsOnce(uint8_t method);

// InitOnce makes a zeroed cache ready.
void InitOnce(OnceCache &cache);

// IdOf makes the id of a request that has just come.
OnceId IdOf(const Exchange &exchange);

// FindOnce returns the record of a request that is here again; null for a new one.
const OnceRecord *FindOnce(CoapRpcCtx *ctx, const OnceId &id);

// RepeatAnswer fills the response from a record; an open one leaves it empty.
void RepeatAnswer(const OnceRecord *record, coap_pdu_t *response);

// RememberAnswer notes the response to a request that has no record, or had an open one.
void RememberAnswer(CoapRpcCtx *ctx, const OnceId &id, const coap_pdu_t *response);

// RememberLost notes that the answer to a request is lost: the request gets 5.04 when it arrives
// again.
void RememberLost(CoapRpcCtx *ctx, const OnceId &id);

// RememberOpen makes the id of an open request a record, but not without memory; it stays where it
// is until ForgetOpen, which ignores one that is no record.
void RememberOpen(CoapRpcCtx *ctx, OnceId &id);
void ForgetOpen(CoapRpcCtx *ctx, OnceId &id);

// ForgetAllOnce forgets all, and frees the table.
void ForgetAllOnce(CoapRpcCtx *ctx);

// TrimOnce forgets what is too old.
void TrimOnce(CoapRpcCtx *ctx);

}  // namespace coap_rpc

#endif /* COAP_RPC_LIB_DIRECT_ONCE_H */
