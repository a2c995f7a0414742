/* latency.h: times of single exchanges, and how they are printed. */
#ifndef BENCH_WIRE_LATENCY_H
#define BENCH_WIRE_LATENCY_H

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

}  // namespace coap_rpc_bench

#endif /* BENCH_WIRE_LATENCY_H */
