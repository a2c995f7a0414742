/* fd_host.h: a host that serves an instance's descriptor and does nothing else, on the clock of the
 * tests.
 *
 * No timer of the host runs, the I/O task's neither.  libcoap's timer is not set: what it would be
 * set to is noted, and it is taken to expire when the test's clock has come that far.
 *
 * Programs that use it are linked with the target fd_host. */
#ifndef FD_HOST_H
#define FD_HOST_H

#include <gtest/gtest.h>
#include <poll.h>

#include <cstdint>

#include "coap_svc/rpc/coap_rpc_ext.h"
#include "own_sockets.h"
#include "test_process.h"

namespace coap_rpc_test {

// TimerSetting is what a timer was last set to.
struct TimerSetting {
  uint32_t num = 0;  // how often it was set
  uint64_t ns = 0;   // 0: disarmed
};

TimerSetting SettingOf(int timer);

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

  // NumTimerSets counts the settings of libcoap's timer.
  uint32_t NumTimerSets() const { return SettingOf(timer_).num; }

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

  bool IsDueBy(uint64_t ms) const { return isArmed_ && dueMs_ <= ms; }

  void Run() {
    if (IsDueBy(NowMs())) isArmed_ = false;
    ++numRuns_;
    COAP_RpcProcIo(ctx_);
    Look();
  }

  // Look notes when the timer is due, if it has been set since.
  void Look() {
    const TimerSetting setting = SettingOf(timer_);
    if (setting.num == numSet_) return;
    numSet_ = setting.num;
    isArmed_ = setting.ns != 0;
    dueMs_ = NowMs() + (setting.ns + kNsPerMs - 1) / kNsPerMs;
  }

  CoapRpcCtx *ctx_;
  int timer_;
  uint32_t numRuns_ = 0;
  uint32_t numSet_ = 0;
  bool isArmed_ = false;
  uint64_t dueMs_ = 0;
};

}  // namespace coap_rpc_test

#endif /* FD_HOST_H */
