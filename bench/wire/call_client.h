/* call_client.h: keeps N asynchronous calls under way and times them.
 *
 * How a call is sent is the caller's: Calls says which one, and is told of answers. */
#ifndef BENCH_WIRE_CALL_CLIENT_H
#define BENCH_WIRE_CALL_CLIENT_H

#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <functional>
#include <vector>

#include "clock.h"
#include "latency.h"
#include "options.h"
#include "wire_host.h"

namespace coap_rpc_bench {

inline constexpr size_t kCallLen = 32;  // bytes of a call's and of an answer's payload

// CallPayload is a call's number as text, padded.
struct CallPayload {
  char text[kCallLen];

  explicit CallPayload(uint32_t call) {
    memset(text, 'x', sizeof(text));
    text[snprintf(text, sizeof(text), "%08u", call)] = '-';
  }
  const uint8_t *Bytes() const { return reinterpret_cast<const uint8_t *>(text); }
};

// Calls is a closed loop of N calls, or an open one at a rate.
class Calls {
 public:
  using Send = std::function<void(const CallPayload &)>;

  // Options: --outstanding, --rate (0: closed loop), --seconds, --pid (the server's).
  Calls(WireHost &host, const Options &options, Send send)
      : host_(host),
        send_(std::move(send)),
        numSlots_(options.Number("--outstanding", 1)),
        rate_(options.Number("--rate", 0)),
        measuredNs_(static_cast<uint64_t>(atof(options.Text("--seconds", "2")) * 1e9)),
        pid_(static_cast<pid_t>(options.Number("--pid", 0))),
        dueNs_(numSlots_) {}

  // Run makes the calls and prints the figures.
  void Run() {
    startNs_ = fromNs_ = NowNs();
    const itimerspec period = {{0, 1000000}, {0, 1000000}};
    const int timer = timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK);
    timerfd_settime(timer, 0, &period, nullptr);
    KestrelWatch(host_.Get(), timer, OnTimer, this);
    for (uint32_t slot = 0; rate_ == 0 && slot < numSlots_; ++slot) Start(slot, NowNs());
    host_.Run();
    KestrelUnwatch(host_.Get(), timer);
    close(timer);
  }

  void OnAnswer(const uint8_t *payload, size_t len) {
    if (len < 8) return;
    const auto slot =
        static_cast<uint32_t>(strtoul(reinterpret_cast<const char *>(payload), nullptr, 10));
    if (slot >= numSlots_ || dueNs_[slot] == 0) return;
    latency_.Add(NowNs() - dueNs_[slot]);
    dueNs_[slot] = 0;
    if (rate_ == 0) Start(slot, NowNs());
  }

 private:
  static void OnTimer(void *calls, int fd) {
    uint64_t numTicks = 0;
    static_cast<void>(!read(fd, &numTicks, sizeof(numTicks)));
    static_cast<Calls *>(calls)->Tick(NowNs());
  }

  void Tick(uint64_t nowNs) {
    if (isOver_) return;
    if (rate_ != 0) StartDue(nowNs);
    if (!isMeasuring_) {
      if (nowNs - startNs_ >= measuredNs_ / 10) BeginMeasuring();
    } else if (nowNs - fromNs_ >= measuredNs_) {
      Report();
    }
  }

  // StartDue starts what is due by now; a call waits for a slot when all are taken.
  void StartDue(uint64_t nowNs) {
    for (;; ++numStarted_) {
      const uint64_t dueNs = startNs_ + numStarted_ * 1000000000 / rate_;
      const uint32_t slot = static_cast<uint32_t>(numStarted_ % numSlots_);
      if (dueNs > nowNs || dueNs_[slot] != 0) return;
      Start(slot, dueNs);
    }
  }

  void Start(uint32_t slot, uint64_t dueNs) {
    dueNs_[slot] = dueNs;
    send_(CallPayload(slot));
  }

  void BeginMeasuring() {
    isMeasuring_ = true;
    latency_ = {};
    fromNs_ = NowNs();
    fromOwnCpu_ = CpuNs(getpid());
    fromServerCpu_ = CpuNs(pid_);
  }

  void Report() {
    isOver_ = true;
    host_.Stop();
    WarnOfLost(NowNs());
    const auto num = static_cast<double>(latency_.Num());
    const auto ownCpu = static_cast<double>(CpuNs(getpid()) - fromOwnCpu_);
    const auto serverCpu = static_cast<double>(CpuNs(pid_) - fromServerCpu_);
    printf("per_second %.0f\n", num * 1e9 / static_cast<double>(NowNs() - fromNs_));
    if (num > 0) {
      printf("cpu_us %.3f\n", (ownCpu + serverCpu) / 1000 / num);
      printf("client_cpu_us %.3f\nserver_cpu_us %.3f\n", ownCpu / 1000 / num,
             serverCpu / 1000 / num);
    }
    latency_.Print();
  }

  // WarnOfLost prints calls that take far too long: refused, or lost.  They make the others faster.
  void WarnOfLost(uint64_t nowNs) const {
    const auto num = std::count_if(dueNs_.begin(), dueNs_.end(), [&](uint64_t dueNs) {
      return dueNs != 0 && nowNs - dueNs > measuredNs_ / 2;
    });
    if (num != 0) fprintf(stderr, "%td of %u calls are not answered\n", num, numSlots_);
  }

  WireHost &host_;
  Send send_;
  uint32_t numSlots_;
  uint64_t rate_;
  uint64_t measuredNs_;
  pid_t pid_;
  std::vector<uint64_t> dueNs_;  // by slot; 0: free
  uint64_t startNs_ = 0;
  uint64_t fromNs_ = 0;
  uint64_t fromOwnCpu_ = 0;
  uint64_t fromServerCpu_ = 0;
  uint64_t numStarted_ = 0;
  bool isMeasuring_ = false;
  bool isOver_ = false;
  Latency latency_;
};

}  // namespace coap_rpc_bench

#endif /* BENCH_WIRE_CALL_CLIENT_H */
