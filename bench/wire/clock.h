/* clock.h: wall time, and the processor time of this and of another process. */
#ifndef BENCH_WIRE_CLOCK_H
#define BENCH_WIRE_CLOCK_H

#include <sys/types.h>

#include <cstdint>
#include <ctime>

namespace coap_rpc_bench {

inline uint64_t ReadClock(clockid_t clock) {
  timespec now = {};
  clock_gettime(clock, &now);
  return static_cast<uint64_t>(now.tv_sec) * 1000000000 + static_cast<uint64_t>(now.tv_nsec);
}

inline uint64_t NowNs() { return ReadClock(CLOCK_MONOTONIC); }

// CpuNs is the processor time that a process has used; 0 for none or one that is gone.
inline uint64_t CpuNs(pid_t pid) {
  clockid_t clock;
  if (pid <= 0 || clock_getcpuclockid(pid, &clock) != 0) return 0;
  return ReadClock(clock);
}

}  // namespace coap_rpc_bench

#endif /* BENCH_WIRE_CLOCK_H */
