/* loop_timers.h: the timer service, a timer queue on one timer of the event loop. */
#ifndef KESTREL_SRC_TMR_LOOP_TIMERS_H
#define KESTREL_SRC_TMR_LOOP_TIMERS_H

#include "host/uv_handle.h"
#include "tmr/timer_queue.h"

namespace kestrel {

// MonotonicMs is the time of the timer service.
uint64_t MonotonicMs();

class LoopTimers {
 public:
  explicit LoopTimers(UvPtr<uv_timer_t> handle);

  // Start returns the timer's id, or 0 without a tick or a period.  Throws std::bad_alloc.
  uint64_t Start(KST_TmrTick tick, uint32_t periodMs, void *param);
  void Stop(uint64_t id);

 private:
  void OnDue();
  void Rearm();

  UvPtr<uv_timer_t> handle_;
  TimerQueue queue_;
};

}  // namespace kestrel

#endif /* KESTREL_SRC_TMR_LOOP_TIMERS_H */
