/* coap_rpc_clock.h: the host's millisecond clock in one word. */
#ifndef COAP_RPC_CLOCK_H
#define COAP_RPC_CLOCK_H

#include <optional>

#include "osal.h"

namespace coap_rpc {

// NowMs returns the host's clock, empty when it cannot be read.  It may be set at any time.
inline std::optional<uint64_t> NowMs() {
  uint32_t high = 0;
  uint32_t low = 0;
  if (OSAL_MillSecNow(&high, &low) != 0) return std::nullopt;
  return uint64_t{high} << 32 | low;
}

}  // namespace coap_rpc

#endif /* COAP_RPC_CLOCK_H */
