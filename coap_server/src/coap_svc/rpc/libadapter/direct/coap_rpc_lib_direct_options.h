/* coap_rpc_lib_direct_options.h: options that the application adds to answers of direct entries.
 *
 * A list belongs to a request: it is made for the first option and goes with the request.  Once
 * written, the options are part of the message, from which libcoap takes them for the blocks after
 * the first, and at-most-once for repetitions. */
#ifndef COAP_RPC_LIB_DIRECT_OPTIONS_H
#define COAP_RPC_LIB_DIRECT_OPTIONS_H

#include <coap3/coap.h>

#include "coap_svc/rpc/common/coap_rpc_ctx.h"
#include "coap_svc/rpc/common/coap_rpc_limits.h"

namespace coap_rpc {

struct ReplyOptions {
  uint32_t num;
  uint32_t numBytes;
  uint16_t numbers[kMaxAnswerOptions];
  uint8_t lens[kMaxAnswerOptions];
  uint8_t bytes[kMaxAnswerOptionBytes];  // the values, one after the other
};

struct ReplyOption {
  uint32_t number;
  const uint8_t *value;
  uint32_t len;
};

// AddReplyOption checks and copies an option; `options` may be null.  Returns 0 or a site's code.
uint32_t AddReplyOption(CoapRpcCtx *ctx, ReplyOptions *&options, const ReplyOption &option);

// WriteReplyOptions adds the options to a response.  False: no memory or room, some may be there.
bool WriteReplyOptions(const ReplyOptions *options, coap_pdu_t *response);

// EraseReplyOptions takes them out of a response that has become an error.
void EraseReplyOptions(const ReplyOptions *options, coap_pdu_t *response);

// FreeReplyOptions leaves null.
void FreeReplyOptions(CoapRpcCtx *ctx, ReplyOptions *&options);

}  // namespace coap_rpc

#endif /* COAP_RPC_LIB_DIRECT_OPTIONS_H */
