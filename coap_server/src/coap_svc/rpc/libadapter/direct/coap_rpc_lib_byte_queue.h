/* coap_rpc_lib_byte_queue.h: records of any size one behind the other, the oldest first.
 *
 * They are in segments, which come and go with what is in them.  A record does not move, and only
 * the oldest can be taken off. */
#ifndef COAP_RPC_LIB_BYTE_QUEUE_H
#define COAP_RPC_LIB_BYTE_QUEUE_H

#include "coap_svc/rpc/coap_rpc_types.h"

namespace coap_rpc {

struct ByteSegment;

// ByteQueue is empty when it is zeroed.
struct ByteQueue {
  ByteSegment *oldest;
  ByteSegment *newest;
};

// Records are aligned to as many bytes.
inline constexpr size_t kRecordAlign = 8;

// PushBytes appends a record, whose bytes are not set.  Null without memory, or when it is larger
// than a segment.
void *PushBytes(uint64_t mem, ByteQueue &queue, size_t size);

// FirstBytes returns the oldest record; null when there is none.
void *FirstBytes(const ByteQueue &queue);

// PopBytes takes off the oldest record, which was appended with this size.
void PopBytes(uint64_t mem, ByteQueue &queue, size_t size);

}  // namespace coap_rpc

#endif /* COAP_RPC_LIB_BYTE_QUEUE_H */
