/* timer_queue.cpp: repeating timers that keep the phase of their start. */
#include "tmr/timer_queue.h"

namespace kestrel {

uint64_t TimerQueue::Start(uint64_t nowMs, KST_TmrTick tick, uint32_t periodMs, void *param) {
  const uint64_t id = m_lastId + 1;
  const uint64_t dueMs = nowMs + periodMs;
  const auto ordered = m_order.emplace(dueMs, id).first;
  try {
    m_timers.emplace(id, Timer{tick, param, periodMs, dueMs});
  } catch (...) {
    m_order.erase(ordered);
    throw;
  }
  return m_lastId = id;
}

void TimerQueue::Stop(uint64_t id) {
  const auto found = m_timers.find(id);
  if (found == m_timers.end()) return;
  m_order.erase({found->second.dueMs, id});
  m_timers.erase(found);
}

void TimerQueue::RunDue(uint64_t nowMs) {
  while (!m_order.empty() && m_order.begin()->first <= nowMs) {
    const uint64_t id = m_order.begin()->second;
    Timer &timer = m_timers.find(id)->second;
    MoveOn(id, timer, nowMs);
    timer.tick(timer.param);  // which may stop the timer
  }
}

// MoveOn sets the next tick to the first time after nowMs that has the timer's phase.
void TimerQueue::MoveOn(uint64_t id, Timer &timer, uint64_t nowMs) {
  auto entry = m_order.extract({timer.dueMs, id});
  timer.dueMs += ((nowMs - timer.dueMs) / timer.periodMs + 1) * timer.periodMs;
  entry.value().first = timer.dueMs;
  m_order.insert(std::move(entry));
}

std::optional<uint64_t> TimerQueue::NextDueMs() const {
  if (m_order.empty()) return std::nullopt;
  return m_order.begin()->first;
}

}  // namespace kestrel
