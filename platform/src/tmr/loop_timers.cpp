/* loop_timers.cpp: keeps one timer of the loop set to the next tick. */
#include "tmr/loop_timers.h"

#include <utility>

namespace kestrel {

uint64_t MonotonicMs() { return uv_hrtime() / 1000000; }

LoopTimers::LoopTimers(UvPtr<uv_timer_t> handle) : handle_(std::move(handle)) {
  handle_->data = this;
}

uint64_t LoopTimers::Start(KST_TmrTick tick, uint32_t periodMs, void *param) {
  if (!tick || periodMs == 0) return 0;
  const uint64_t nowMs = (uv_hrtime() + 999999) / 1000000;  // rounded up: no tick comes early
  const uint64_t id = queue_.Start(nowMs, tick, periodMs, param);
  Rearm();
  return id;
}

void LoopTimers::Stop(uint64_t id) {
  queue_.Stop(id);
  Rearm();
}

void LoopTimers::OnDue() {
  queue_.RunDue(MonotonicMs());
  Rearm();
}

// The loop's own time may lag the clock, and libuv counts the delay from it: taking the
// difference to it makes the timer fire at the due time on the clock.
void LoopTimers::Rearm() {
  const auto dueMs = queue_.NextDueMs();
  if (!dueMs) {
    uv_timer_stop(handle_.get());
    return;
  }
  const uint64_t loopMs = uv_now(handle_->loop);
  uv_timer_start(
      handle_.get(), [](uv_timer_t *timer) { static_cast<LoopTimers *>(timer->data)->OnDue(); },
      *dueMs > loopMs ? *dueMs - loopMs : 0, 0);
}

}  // namespace kestrel
