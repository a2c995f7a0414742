/* coap_rpc_times.h: durations counted by their size (CoapRpcTimes), for medians and the like. */
#ifndef COAP_RPC_TIMES_H
#define COAP_RPC_TIMES_H

#include <algorithm>
#include <bit>
#include <cstdint>

#include "coap_svc/rpc/coap_rpc_stats.h"

namespace coap_rpc {

inline constexpr uint32_t kFirstTimeBits = 10;  // 1024 ns
inline constexpr uint32_t kLastTime = COAP_RPC_NUM_TIMES - 1;

inline uint32_t TimeIndexOf(uint64_t ns) {
  return std::min(static_cast<uint32_t>(std::bit_width(ns >> kFirstTimeBits)), kLastTime);
}

inline void CountTime(CoapRpcTimes &times, uint64_t ns) { ++times.num[TimeIndexOf(ns)]; }

// TimeBelow is what the durations of an element are below; 0 for the last one: anything.
inline uint64_t TimeBelow(uint32_t index) {
  return index < kLastTime ? uint64_t{1} << (kFirstTimeBits + index) : 0;
}

}  // namespace coap_rpc

#endif /* COAP_RPC_TIMES_H */
