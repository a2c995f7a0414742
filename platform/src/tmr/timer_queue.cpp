/* timer_queue.cpp: repeating timers that keep the phase of their start. */
#include "tmr/timer_queue.h"

namespace kestrel {

uint64_t TimerQueue::Start(uint64_t nowMs, KST_TmrTick tick, uint32_t periodMs, void *param) {
  const uint64_t id = lastId_ + 1;
  const uint64_t dueMs = nowMs + periodMs;
  const auto ordered = order_.emplace(dueMs, id).first;
  try {
    timers_.emplace(id, Timer{tick, param, periodMs, dueMs});
  } catch (...) {
    order_.erase(ordered);
    throw;
  }
  return lastId_ = id;
}

void TimerQueue::Stop(uint64_t id) {
  const auto found = timers_.find(id);
  if (found == timers_.end()) return;
  order_.erase({found->second.dueMs, id});
  timers_.erase(found);
}

void TimerQueue::RunDue(uint64_t nowMs) {
  while (!order_.empty() && order_.begin()->first <= nowMs) {
    const uint64_t id = order_.begin()->second;
    Timer &timer = timers_.find(id)->second;
    MoveOn(id, timer, nowMs);
    timer.tick(timer.param);  // which may stop the timer
  }
}

// MoveOn sets the next tick to the first time after nowMs that has the timer's phase.
void TimerQueue::MoveOn(uint64_t id, Timer &timer, uint64_t nowMs) {
  auto entry = order_.extract({timer.dueMs, id});
  timer.dueMs += ((nowMs - timer.dueMs) / timer.periodMs + 1) * timer.periodMs;
  entry.value().first = timer.dueMs;
  order_.insert(std::move(entry));
}

std::optional<uint64_t> TimerQueue::NextDueMs() const {
  if (order_.empty()) return std::nullopt;
  return order_.begin()->first;
}

}  // namespace kestrel
