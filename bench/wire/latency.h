/* latency.h: times of single exchanges, and how they are printed. */
#ifndef BENCH_WIRE_LATENCY_H
#define BENCH_WIRE_LATENCY_H

#include <sys/types.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <vector>

namespace coap_rpc_bench {

class Latency {
 public:
  void Add(uint64_t ns) {
    times_.push_back(static_cast<uint32_t>(std::min<uint64_t>(ns, UINT32_MAX)));
  }
  size_t Num() const { return times_.size(); }

  // Print writes the three percentiles in microseconds, one "name value" per line; nothing when no
  // time was taken.
  void Print() {
    if (times_.empty()) return;
    std::sort(times_.begin(), times_.end());
    printf("p50_us %.1f\np99_us %.1f\np999_us %.1f\n", At(0.5), At(0.99), At(0.999));
  }

 private:
  double At(double share) const {
    const auto index = static_cast<size_t>(share * static_cast<double>(times_.size() - 1));
    return times_[index] / 1000.0;
  }

  std::vector<uint32_t> times_;
};

// PrintRepeating writes the figures of a peer that asks again for what is lost: answers a second,
// the server's processor time for each unless `server` is 0, and the times.
inline void PrintRepeating(Latency &latency, uint64_t wallNs, pid_t server, uint64_t serverCpuNs,
                           uint64_t numRepeated) {
  const auto num = static_cast<double>(latency.Num());
  printf("per_second %.0f\n", num * 1e9 / static_cast<double>(wallNs));
  if (server != 0 && num > 0) {
    printf("cpu_us %.3f\n", static_cast<double>(serverCpuNs) / 1000 / num);
  }
  printf("repeated %llu\n", static_cast<unsigned long long>(numRepeated));
  latency.Print();
}

}  // namespace coap_rpc_bench

#endif /* BENCH_WIRE_LATENCY_H */
