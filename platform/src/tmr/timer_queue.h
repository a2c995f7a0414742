/* timer_queue.h: repeating timers in the order in which they are due.
 *
 * The queue has no clock: the time, in milliseconds of any clock that never goes back, comes with
 * every call. */
#ifndef KESTREL_SRC_TMR_TIMER_QUEUE_H
#define KESTREL_SRC_TMR_TIMER_QUEUE_H

#include <cstdint>
#include <optional>
#include <set>
#include <unordered_map>
#include <utility>

#include "kst_tmr.h"

namespace kestrel {

class TimerQueue {
 public:
  // Start makes a timer with its first tick at nowMs + periodMs.  Returns its id, never 0 and never
  // used again.  REQUIRES: periodMs is not 0.  Throws std::bad_alloc.
  uint64_t Start(uint64_t nowMs, KST_TmrTick tick, uint32_t periodMs, void *param);

  // Stop forgets a timer; unknown ids are ignored.
  void Stop(uint64_t id);

  // RunDue calls each tick that is due at nowMs once, earliest first, in order of their start when
  // due together.  Ticks may start and stop any timer.
  void RunDue(uint64_t nowMs);

  // NextDueMs is the time of the next tick; none without timers.
  std::optional<uint64_t> NextDueMs() const;

 private:
  struct Timer {
    KST_TmrTick tick;
    void *param;
    uint32_t periodMs;
    uint64_t dueMs;
  };

  void MoveOn(uint64_t id, Timer &timer, uint64_t nowMs);

  std::unordered_map<uint64_t, Timer> timers_;
  std::set<std::pair<uint64_t, uint64_t>> order_;  // due time and id
  uint64_t lastId_ = 0;
};

}  // namespace kestrel

#endif /* KESTREL_SRC_TMR_TIMER_QUEUE_H */
