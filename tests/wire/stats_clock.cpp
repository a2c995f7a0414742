#include "stats_clock.h"

#include <ctime>

#include "test_process.h"

namespace {

constexpr uint64_t kNsPerSecond = 1000000000;
uint64_t g_passedNs = kNsPerSecond;

}  // namespace

extern "C" {
int __real_clock_gettime(clockid_t clock, timespec *out);

int __wrap_clock_gettime(clockid_t clock, timespec *out) {
  if (clock != CLOCK_MONOTONIC && clock != CLOCK_MONOTONIC_COARSE)
    return __real_clock_gettime(clock, out);
  const uint64_t ns = g_passedNs + coap_rpc_test::TestProcess::Get().ElapsedMs() * 1000000;
  out->tv_sec = static_cast<time_t>(ns / kNsPerSecond);
  out->tv_nsec = static_cast<long>(ns % kNsPerSecond);
  return 0;
}
}

void coap_rpc_test::PassNs(uint64_t ns) { g_passedNs += ns; }
