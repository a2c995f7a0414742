/* test_timers.cpp: the timer service of a host under test control, on a clock that only the test moves. */
#include "test_timers.h"

#include "complaint.h"
#include "handle_table.h"
#include "test_process.h"

namespace coap_rpc_test {
namespace {

// Ids differ across all hosts, so that a timer cannot be stopped through the wrong service.
uint64_t NewTimerId() {
  static uint64_t lastId = 0;
  return ++lastId;
}

}  // namespace

std::ostream &operator<<(std::ostream &out, const RunningTimer &timer) {
  return out << "timer " << timer.id << ": every " << timer.periodMs << " ms, due at "
             << timer.dueMs << ", " << timer.numTicks << " ticks so far";
}

TestTimers::TestTimers()
    : nowMs_(TestProcess::Get().ElapsedMs()), handle_(HandleTable<TestTimers>::Add(this, this)) {}

TestTimers::~TestTimers() { HandleTable<TestTimers>::Remove(handle_); }

void TestTimers::AdvanceMs(uint64_t ms) {
  if (isAdvancing_) {
    Complain("AdvanceMs inside a tick");
    return;
  }
  isAdvancing_ = true;
  const uint64_t untilMs = nowMs_ + ms;
  while (RunningTimer *due = NextDue(untilMs)) {
    MoveTo(due->dueMs);
    due->dueMs += due->periodMs;
    ++due->numTicks;
    const RunningTimer called = *due;  // the tick may stop it
    called.tick(called.param);
  }
  MoveTo(untilMs);
  isAdvancing_ = false;
}

uint64_t TestTimers::Start(KST_TmrTick tick, uint32_t periodMs, void *param) {
  if (!tick || periodMs == 0) {
    Complain("KST_TmrStartLoop: no tick or period 0");
    return 0;
  }
  if (failures_.Count()) return 0;
  const uint64_t id = NewTimerId();
  running_.push_back({id, tick, periodMs, param, nowMs_ + periodMs, 0});
  return id;
}

void TestTimers::Stop(uint64_t id) {
  std::erase_if(running_, [id](const RunningTimer &timer) { return timer.id == id; });
}

uint64_t TestTimers::NextDueMs(uint64_t untilMs) {
  const RunningTimer *due = NextDue(untilMs);
  return due ? due->dueMs : untilMs;
}

// Timers are kept in the order of their start, so the first of equals is the one to tick.
RunningTimer *TestTimers::NextDue(uint64_t untilMs) {
  RunningTimer *next = nullptr;
  for (RunningTimer &timer : running_) {
    if (timer.dueMs <= untilMs && (!next || timer.dueMs < next->dueMs)) next = &timer;
  }
  return next;
}

void TestTimers::MoveTo(uint64_t nowMs) {
  nowMs_ = nowMs;
  TestProcess::Get().FollowTo(nowMs);
}

}  // namespace coap_rpc_test
