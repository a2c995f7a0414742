#include "figures.h"

namespace bench_report {
namespace {

const Column kPerSecond{"per_second", "per second"};
const Column kPerCpuSecond{"per_cpu_second", "per CPU second"};
const Column kCpu{"cpu_us", "CPU us each"};
const Column kP50{"p50_us", "p50 us"};
const Column kP99{"p99_us", "p99 us"};
const Column kP999{"p999_us", "p99.9 us"};

// SyncBar compares the library with another variant of the server: POSTs in a second of the
// server's processor time, which is what a core can take at most, whoever else is using the
// machine.
Bar SyncBar(const std::string &ports, const std::string &suffix, const std::string &other,
            double limit) {
  return {"synchronous POSTs, " + ports + " ports: library" + suffix + " / " + other,
          {"sync", ports, "library" + suffix, kPerCpuSecond.metric},
          {"sync", ports, other, kPerCpuSecond.metric},
          true,
          limit};
}

Bar CallBar(const std::string &label, const std::string &metric, const std::string &text,
            double limit) {
  return {text + ": library / libcoap",
          {"calls", label, "library", metric},
          {"calls", label, "libcoap", metric},
          false,
          limit};
}

// LoggingBar compares the processor time of a POST with what it is when libcoap's level is lowered.
Bar LoggingBar(const std::string &answer, const std::string &variant, const std::string &metric,
               bool isLeast, double limit) {
  return {"synchronous POSTs, answers of " + answer + ": " + variant + " / level lowered",
          {"logging", answer, variant, metric},
          {"logging", answer, "level lowered", metric},
          isLeast,
          limit};
}

}  // namespace

const std::vector<Figure> &Figures() {
  static const std::vector<Figure> kFigures = {
      {"sync",
       "Synchronous POSTs",
       "Client ports",
       {kPerCpuSecond, kCpu, kPerSecond, kP50, kP99, kP999}},
      {"logging",
       "Synchronous POSTs, by what is logged",
       "Answer",
       {kPerCpuSecond, kCpu, kPerSecond}},
      {"calls", "Asynchronous calls", "Under way", {kCpu, kPerSecond, kP50, kP99, kP999}},
      {"observe",
       "From update to delivery",
       "Tuples",
       {{"delivered_ms", "delivered ms"}, {"queue_us", "update calls us"}}},
      {"resync",
       "Answer to a check code",
       "Tuples",
       {{"stale_us", "stale us"},
        {"stale_cpu_us", "stale CPU us"},
        {"match_us", "match us"},
        {"match_cpu_us", "match CPU us"}}},
      {"observers",
       "A change for many observers",
       "Observers",
       {{"notify_cpu_us", "CPU us a notification"},
        {"register_cpu_us", "CPU us a registration"},
        {"round_us", "first to last us"}}},
      {"uris", "POSTs, by registered URIs", "URIs", {kCpu, kPerSecond}},
      {"queue", "Queue and build, beside Jansson", "Tuples", {{"cpu_us", "CPU us"}}},
      {"memory",
       "Memory, bytes of one",
       "One of so many",
       {{"heap_bytes", "heap, libcoap included"}, {"pool_bytes", "the instance's pool"}}},
  };
  return kFigures;
}

const std::vector<Bar> &Bars() {
  static const std::vector<Bar> kBars = {
      SyncBar("16", "", "libcoap", 0.90),
      SyncBar("200", "", "libcoap", 0.90),
      SyncBar("16", "", "libcoap, clearing", 0.90),
      SyncBar("200", "", "libcoap, clearing", 0.90),
      SyncBar("16", ", logging", "libcoap, logging", 0.80),
      SyncBar("200", ", logging", "libcoap, logging", 0.80),
      LoggingBar("32 bytes", "as it starts", kPerCpuSecond.metric, true, 0.90),
      LoggingBar("32 bytes", "debug channel", kPerCpuSecond.metric, true, 0.60),
      LoggingBar("65,400 bytes", "as it starts", kCpu.metric, false, 1.50),
      LoggingBar("65,400 bytes", "debug channel", kCpu.metric, false, 1.50),
      CallBar("64", "cpu_us", "CPU of an asynchronous call, 64 under way", 1.25),
      CallBar("1", "cpu_us", "CPU of an asynchronous call, 1 under way", 1.25),
      CallBar("1", "p50_us", "p50 of an asynchronous call, 1 under way", 1.30),
      {"p50 of a synchronous POST, 1 under way: library / libcoap",
       {"sync", "1", "library", "p50_us"},
       {"sync", "1", "libcoap", "p50_us"},
       false,
       1.30},
      {"CPU of queuing 50,000 changes / Jansson making the document",
       {"queue", "50000", "queue", "cpu_us"},
       {"queue", "50000", "Jansson", "cpu_us"},
       false,
       3},
      {"CPU of building their payload / Jansson making the document",
       {"queue", "50000", "build", "cpu_us"},
       {"queue", "50000", "Jansson", "cpu_us"},
       false,
       3},
      {"CPU of a POST, 100,000 URIs / 10",
       {"uris", "100000", "library", "cpu_us"},
       {"uris", "10", "library", "cpu_us"},
       false,
       2},
  };
  return kBars;
}

Verdict Judge(const Samples &samples, const Bar &bar) {
  const Stat ratio = samples.Ratio(bar.over, bar.under);
  return {ratio, bar.isLeast ? ratio.median >= bar.limit : ratio.median <= bar.limit};
}

}  // namespace bench_report
