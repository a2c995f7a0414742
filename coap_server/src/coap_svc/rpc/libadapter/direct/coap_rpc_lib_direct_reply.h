/* coap_rpc_lib_direct_reply.h: answers of direct entries as messages.
 *
 * A payload that fits into its message is copied there.  A larger one is a body: a copy that
 * libcoap owns until the peer has fetched it or is silent for too long.  All bodies together are
 * bounded: the oldest ends when there are too many, and its peer gets 4.08 or a new answer for the
 * next block. */
#ifndef COAP_RPC_LIB_DIRECT_REPLY_H
#define COAP_RPC_LIB_DIRECT_REPLY_H

#include "coap_svc/rpc/libadapter/direct/coap_rpc_lib_direct_data.h"

namespace coap_rpc {

// CodeOf is class x 100 + detail as on the wire.
constexpr uint8_t CodeOf(uint32_t code) {
  return static_cast<uint8_t>(code / 100 << 5 | code % 100);
}

// DefaultHead is the head of an answer to a request that nobody has said more of.
ReplyHead DefaultHead(const coap_pdu_t *request);

// Reply fills an exchange's response; `options` may be null.
void Reply(const Exchange &exchange, const ReplyHead &head, const ReplyOptions *options,
           const uint8_t *data, size_t len);

// ReplyCode fills it with a code alone.
void ReplyCode(const Exchange &exchange, coap_pdu_code_t code);

}  // namespace coap_rpc

#endif /* COAP_RPC_LIB_DIRECT_REPLY_H */
