/* stats_clock.h: the system's monotonic clock on the time of the hosts, so that a test says how
 * long a callback takes. */
#ifndef STATS_CLOCK_H
#define STATS_CLOCK_H

#include <cstdint>

namespace coap_rpc_test {

// PassNs lets time go by for the monotonic clock alone.
void PassNs(uint64_t ns);

}  // namespace coap_rpc_test

#endif /* STATS_CLOCK_H */
