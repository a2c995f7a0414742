/* coap_rpc_lib_rounds.h: how many datagrams to read at a time. */
#ifndef COAP_RPC_LIB_ROUNDS_H
#define COAP_RPC_LIB_ROUNDS_H

#include <algorithm>

#include "coap_svc/rpc/common/coap_rpc_limits.h"
#include "libcoap/ext/coap_rpc_lib_internals.h"

namespace coap_rpc {

// ReadRounds are the rounds in which what is ready is served.  An empty read costs as much as a
// full one: the number of reads doubles after a full round and is halved after one that ran dry,
// even while more keeps coming in.
class ReadRounds {
 public:
  // `first` is the First of an earlier run; 0 for none.
  explicit ReadRounds(uint32_t first) : numReads_(std::max(first, 1u)), first_(numReads_) {}

  // Serve runs one round.  False: nothing was ready.
  bool Serve(coap_context_t *coapCtx) {
    const int served = CoapRpcLibServeReady(coapCtx, numReads_, isAgain_);
    isAgain_ = true;
    if (served == kCoapRpcLibMore) {
      first_ = numReads_;
      numReads_ = std::min(2 * numReads_, kDatagramsPerRead);
    } else if (served == kCoapRpcLibDry) {
      first_ = numReads_ = std::max(numReads_ / 2, 1u);
    }
    return served != kCoapRpcLibIdle;
  }

  // First returns how many reads each endpoint gets first in the next run.
  uint32_t First() const { return first_; }

 private:
  uint32_t numReads_;
  uint32_t first_;
  bool isAgain_ = false;
};

}  // namespace coap_rpc

#endif /* COAP_RPC_LIB_ROUNDS_H */
