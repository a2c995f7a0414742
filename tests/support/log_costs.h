/* log_costs.h: what log lines cost, counted, and a host that can be asked whether it takes a line.
 *
 * Link log_costs: it takes the place of the functions that format and look up. */
#ifndef LOG_COSTS_H
#define LOG_COSTS_H

#include <cstdint>
#include <utility>
#include <vector>

namespace coap_rpc_test {

struct LogCosts {
  int numFormatted = 0;                                  // texts
  int numSessionTexts = 0;                               // libcoap's, for a session
  int numLookups = 0;                                    // of function names
  std::vector<std::pair<uint64_t, uint32_t>> questions;  // handle and level of each

  int NumTexts() const { return numFormatted + numSessionTexts + numLookups; }
};

inline LogCosts g_logCosts;
inline bool g_isLogTaken = false;  // what the host answers

}  // namespace coap_rpc_test

#endif /* LOG_COSTS_H */
