/* bench_pool.cpp: the pool of the reference host against malloc and free.
 *
 * Each step frees one of a number of live allocations and makes a new one in its place, with sizes
 * from 16 bytes to 64 KiB, small ones more often.  The last lines give the ratio of the two for
 * each number of live allocations; it is meant to stay below 1.5. */
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "kestrel.h"
#include "kst_mem.h"

namespace {

constexpr size_t kSteps = 1 << 14;

// Step frees what is in a slot and puts a new allocation there.
struct Step {
  uint32_t slot;
  uint32_t size;
};

// Steps are the same in each run: sizes are spread evenly over the powers of two.
std::vector<Step> MakeSteps(uint32_t slots) {
  std::mt19937 random(7);
  std::vector<Step> steps(kSteps);
  for (Step &step : steps) {
    const uint32_t base = 16u << random() % 12;
    step = {static_cast<uint32_t>(random() % slots), base + static_cast<uint32_t>(random() % base)};
  }
  return steps;
}

struct PlainMalloc {
  void *New(size_t size) { return std::malloc(size); }
  void Delete(void *p) { std::free(p); }
};

class PoolMalloc {
 public:
  PoolMalloc() {
    KestrelParam param{};
    param.logSinks = KESTREL_SINK_NONE;
    host_ = KestrelNew(&param, nullptr, 0);
    mem_ = KestrelMem(host_);
  }
  ~PoolMalloc() { KestrelDelete(host_); }
  PoolMalloc(const PoolMalloc &) = delete;
  PoolMalloc &operator=(const PoolMalloc &) = delete;

  void *New(size_t size) { return KST_Malloc_(mem_, size, "bench", 1); }
  void Delete(void *p) { KST_Free_(mem_, p, "bench", 1); }

 private:
  Kestrel *host_;
  uint64_t mem_;
};

template <typename Memory>
void ReplaceAllocations(benchmark::State &state) {
  Memory memory;
  const auto slots = static_cast<uint32_t>(state.range(0));
  const std::vector<Step> steps = MakeSteps(slots);
  std::vector<void *> live(slots, nullptr);
  size_t at = 0;
  for (auto unused : state) {
    (void)unused;
    const Step &step = steps[at++ % kSteps];
    memory.Delete(live[step.slot]);
    live[step.slot] = memory.New(step.size);
    benchmark::DoNotOptimize(live[step.slot]);
  }
  for (void *p : live) memory.Delete(p);
}

// RatioReporter prints the runs as usual and keeps their times for the ratio.
class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run> &runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run &run : runs) {
      if (run.aggregate_name == "median") {
        nanoseconds_[run.run_name.args][run.run_name.function_name] = run.GetAdjustedCPUTime();
      }
    }
  }

  void PrintRatios() const {
    for (const auto &[slots, times] : nanoseconds_) {
      if (times.count("pool") == 0 || times.count("malloc") == 0) continue;
      std::printf("live=%s pool/malloc=%.2f\n", slots.c_str(),
                  times.at("pool") / times.at("malloc"));
    }
  }

 private:
  std::map<std::string, std::map<std::string, double>> nanoseconds_;
};

void Register(const char *name, void (*run)(benchmark::State &)) {
  benchmark::RegisterBenchmark(name, run)
      ->Arg(16)
      ->Arg(256)
      ->Arg(4096)
      ->Repetitions(5)
      ->ReportAggregatesOnly();
}

}  // namespace

int main(int argc, char **argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  Register("malloc", ReplaceAllocations<PlainMalloc>);
  Register("pool", ReplaceAllocations<PoolMalloc>);
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  reporter.PrintRatios();
  return 0;
}
