/* fd_host.h: a host that serves an instance's descriptor and does nothing else, on the clock of the
 * tests.
 *
 * No timer of the host runs, the I/O task's neither.  libcoap's timer counts in real time: it is
 * read instead, and taken to expire when the test's clock has come that far. */
#ifndef FD_HOST_H
#define FD_HOST_H

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/timerfd.h>
#include <time.h>

#include <cstdint>

#include "coap_svc/rpc/coap_rpc_ext.h"
#include "own_sockets.h"
#include "test_process.h"

namespace coap_rpc_test {

class FdHost {
 public:
  static constexpr uint32_t kMaxRuns = 1000;  // more of them without a pause count as a busy loop

  explicit FdHost(CoapRpcCtx *ctx)
      : ctx_(ctx),
        timer_(FindDescriptor([](int fd) { return KindOf(fd) == "anon_inode:[timerfd]"; })) {
    EXPECT_GE(timer_, 0);
  }

  static uint64_t NowMs() { return TestProcess::Get().ElapsedMs(); }
  static void MoveClock(uint64_t ms) { TestProcess::Get().FollowTo(NowMs() + ms); }

  // NumRuns counts the calls of COAP_RpcProcIo.
  uint32_t NumRuns() const { return numRuns_; }

  bool IsReadable() const {
    pollfd poll = {COAP_RpcGetIoFd(ctx_), POLLIN, 0};
    return ::poll(&poll, 1, 0) == 1;
  }

  // Serve runs the instance until nothing is ready or due.
  void Serve() {
    uint32_t numRuns = 0;
    Look();
    while (IsReadable() || IsDueBy(NowMs())) {
      Run();
      ASSERT_LT(++numRuns, kMaxRuns) << "never quiet";
    }
  }

  // Advance lets time pass, and serves what becomes due meanwhile.
  void Advance(uint64_t ms) {
    const uint64_t endMs = NowMs() + ms;
    Serve();
    while (IsDueBy(endMs) && !testing::Test::HasFatalFailure()) {
      TestProcess::Get().FollowTo(dueMs_);
      Serve();
    }
    TestProcess::Get().FollowTo(endMs);
  }

 private:
  static constexpr uint64_t kNsPerMs = 1'000'000;
  static constexpr uint64_t kAtOnceNs = 100'000;  // what is left of a timer that expires at once

  static uint64_t NsOf(const timespec &time) {
    return static_cast<uint64_t>(time.tv_sec) * 1'000'000'000 + static_cast<uint64_t>(time.tv_nsec);
  }

  static uint64_t RealNs() {
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return NsOf(now);
  }

  bool IsDueBy(uint64_t ms) const { return isArmed_ && dueMs_ <= ms; }

  // Each run sets the timer.
  void Run() {
    ++numRuns_;
    COAP_RpcProcIo(ctx_);
    isArmed_ = false;
    Look();
  }

  // Look notes when the timer is due on the test's clock.  Between runs it is only ever set to
  // expire earlier.
  void Look() {
    itimerspec timer = {};
    timerfd_gettime(timer_, &timer);
    const uint64_t leftNs = NsOf(timer.it_value);
    const uint64_t expiryNs = RealNs() + leftNs;
    if (leftNs == 0 || (isArmed_ && expiryNs + kAtOnceNs >= expiryNs_)) return;
    isArmed_ = true;
    expiryNs_ = expiryNs;
    dueMs_ = NowMs() + (leftNs < kAtOnceNs ? 0 : (leftNs + kNsPerMs - 1) / kNsPerMs);
  }

  CoapRpcCtx *ctx_;
  int timer_;
  uint32_t numRuns_ = 0;
  bool isArmed_ = false;
  uint64_t expiryNs_ = 0;  // in real time
  uint64_t dueMs_ = 0;     // on the test's clock
};

}  // namespace coap_rpc_test

#endif /* FD_HOST_H */
