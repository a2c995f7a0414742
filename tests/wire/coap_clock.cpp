// coap_clock.cpp: libcoap's clock on the time of the hosts, in place of libcoap's own file. Nothing
// retransmits, expires or runs dry unless a test moves the time.
#include <coap3/coap.h>

#include "test_process.h"

namespace {

constexpr coap_tick_t kStartTicks = 1000 * COAP_TICKS_PER_SECOND;  // 0 means "never" to libcoap

}  // namespace

void coap_clock_init() {}

void coap_ticks(coap_tick_t *ticks) {
  *ticks =
      kStartTicks + coap_rpc_test::TestProcess::Get().ElapsedMs() * COAP_TICKS_PER_SECOND / 1000;
}

coap_time_t coap_ticks_to_rt(coap_tick_t ticks) {
  return static_cast<coap_time_t>(ticks / COAP_TICKS_PER_SECOND);
}

uint64_t coap_ticks_to_rt_us(coap_tick_t ticks) { return ticks * 1000000 / COAP_TICKS_PER_SECOND; }

coap_tick_t coap_ticks_from_rt_us(uint64_t us) { return us * COAP_TICKS_PER_SECOND / 1000000; }
