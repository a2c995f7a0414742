/* coap_rpc_lib_clock.h: libcoap's clock. */
#ifndef COAP_RPC_LIB_CLOCK_H
#define COAP_RPC_LIB_CLOCK_H

#include <coap3/coap.h>

namespace coap_rpc {

inline coap_tick_t NowTicks() {
  coap_tick_t now = 0;
  coap_ticks(&now);
  return now;
}

constexpr coap_tick_t TicksOfMs(uint64_t ms) { return ms * COAP_TICKS_PER_SECOND / 1000; }

// HasPassed says whether `ms` have gone by since a time.
inline bool HasPassed(coap_tick_t since, uint64_t ms) {
  return since + TicksOfMs(ms) <= NowTicks();
}

}  // namespace coap_rpc

#endif /* COAP_RPC_LIB_CLOCK_H */
