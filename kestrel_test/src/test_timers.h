/* test_timers.h: the timer service of a host under test control, on a clock that only the test moves. */
#ifndef TEST_TIMERS_H
#define TEST_TIMERS_H

#include <cstdint>
#include <ostream>
#include <vector>

#include "fail_plan.h"
#include "kst_tmr.h"

namespace coap_rpc_test {

// RunningTimer is one timer that has been started and not stopped.
struct RunningTimer {
  uint64_t id = 0;
  KST_TmrTick tick = nullptr;
  uint32_t periodMs = 0;
  void *param = nullptr;
  uint64_t dueMs = 0;     // next tick, in the host's time
  uint64_t numTicks = 0;  // so far
};

std::ostream &operator<<(std::ostream &out, const RunningTimer &timer);

class TestTimers {
 public:
  TestTimers();
  ~TestTimers();
  TestTimers(const TestTimers &) = delete;
  TestTimers &operator=(const TestTimers &) = delete;

  uint64_t Handle() const { return handle_; }

  // Failures decides which starts are refused.
  FailPlan &Failures() { return failures_; }

  // AdvanceMs moves the host's time by `ms`.  Timers that fall due tick at their due time, those
  // due at the same time in the order of their start.  Not to be called inside a tick.
  void AdvanceMs(uint64_t ms);

  // NowMs is the host's time.  It starts where the process's hosts have come to.
  uint64_t NowMs() const { return nowMs_; }

  // NextDueMs is when the next timer ticks, but no later than `untilMs`.
  uint64_t NextDueMs(uint64_t untilMs);

  // Running lists the running timers in the order of their start.
  const std::vector<RunningTimer> &Running() const { return running_; }

  // StopAll stops every timer.
  void StopAll() { running_.clear(); }

  // The operations of KST_TmrStartLoop and KST_TmrStop.
  uint64_t Start(KST_TmrTick tick, uint32_t periodMs, void *param);
  void Stop(uint64_t id);

 private:
  RunningTimer *NextDue(uint64_t untilMs);
  void MoveTo(uint64_t nowMs);

  std::vector<RunningTimer> running_;
  FailPlan failures_;
  uint64_t nowMs_;
  uint64_t handle_;
  bool isAdvancing_ = false;
};

}  // namespace coap_rpc_test

#endif /* TEST_TIMERS_H */
