/* host_timer_queue.cpp: order and phase of repeating timers, on a clock that the test moves. */
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "tmr/timer_queue.h"

using kestrel::TimerQueue;

namespace {

// Ticks counts the ticks of one timer and may act in them.
struct Ticks {
  uint32_t count = 0;
  std::function<void()> act;

  static uint32_t OnTick(void *param) {
    auto *ticks = static_cast<Ticks *>(param);
    ++ticks->count;
    if (ticks->act) ticks->act();
    return 1;
  }
};

}  // namespace

TEST(HostTimerQueue, FirstTickComesOnePeriodAfterStart) {
  TimerQueue queue;
  Ticks ticks;
  queue.Start(1000, Ticks::OnTick, 100, &ticks);
  queue.RunDue(1099);
  EXPECT_EQ(ticks.count, 0u);
  EXPECT_EQ(queue.NextDueMs(), 1100u);
  queue.RunDue(1100);
  EXPECT_EQ(ticks.count, 1u);
  EXPECT_EQ(queue.NextDueMs(), 1200u);
}

TEST(HostTimerQueue, LateTick_DoesNotShiftTheNext) {
  TimerQueue queue;
  Ticks ticks;
  queue.Start(1000, Ticks::OnTick, 100, &ticks);
  queue.RunDue(1130);
  EXPECT_EQ(queue.NextDueMs(), 1200u);
  queue.RunDue(1299);
  EXPECT_EQ(queue.NextDueMs(), 1300u);
  EXPECT_EQ(ticks.count, 2u);
}

TEST(HostTimerQueue, MissedTicks_AreNotMadeUpFor) {
  TimerQueue queue;
  Ticks ticks;
  queue.Start(1000, Ticks::OnTick, 100, &ticks);
  queue.RunDue(1750);
  queue.RunDue(1750);
  EXPECT_EQ(ticks.count, 1u);
  EXPECT_EQ(queue.NextDueMs(), 1800u);
}

TEST(HostTimerQueue, LongestPeriod_DoesNotOverflow) {
  TimerQueue queue;
  Ticks ticks;
  queue.Start(1000, Ticks::OnTick, 4294967295u, &ticks);
  EXPECT_EQ(queue.NextDueMs(), 4294968295u);
  queue.RunDue(4294968295u);
  EXPECT_EQ(queue.NextDueMs(), 8589935590u);
}

TEST(HostTimerQueue, Ticks_RunInDueOrderThenStartOrder) {
  TimerQueue queue;
  std::string order;
  Ticks a{0, [&] { order += 'a'; }}, b{0, [&] { order += 'b'; }}, c{0, [&] { order += 'c'; }};
  queue.Start(0, Ticks::OnTick, 20, &a);
  queue.Start(0, Ticks::OnTick, 20, &b);
  queue.Start(0, Ticks::OnTick, 10, &c);
  queue.RunDue(10);
  queue.RunDue(20);
  EXPECT_EQ(order, "cabc");
}

TEST(HostTimerQueue, TickStopsItself) {
  TimerQueue queue;
  Ticks ticks;
  const uint64_t id = queue.Start(0, Ticks::OnTick, 10, &ticks);
  ticks.act = [&] { queue.Stop(id); };
  queue.RunDue(10);
  queue.RunDue(20);
  EXPECT_EQ(ticks.count, 1u);
  EXPECT_FALSE(queue.NextDueMs().has_value());
}

TEST(HostTimerQueue, TickStopsAnotherThatIsDueToo) {
  TimerQueue queue;
  Ticks first, second;
  queue.Start(0, Ticks::OnTick, 10, &first);
  const uint64_t id = queue.Start(0, Ticks::OnTick, 10, &second);
  first.act = [&] { queue.Stop(id); };
  queue.RunDue(10);
  EXPECT_EQ(first.count, 1u);
  EXPECT_EQ(second.count, 0u);
}

TEST(HostTimerQueue, TickStartsAnother_WhichWaitsItsPeriod) {
  TimerQueue queue;
  Ticks first, second;
  first.act = [&] { queue.Start(10, Ticks::OnTick, 1, &second); };
  const uint64_t id = queue.Start(0, Ticks::OnTick, 10, &first);
  queue.RunDue(10);
  EXPECT_EQ(second.count, 0u);
  queue.Stop(id);
  queue.RunDue(11);
  EXPECT_EQ(second.count, 1u);
}

TEST(HostTimerQueue, TickRestartsItself_UnderANewId) {
  TimerQueue queue;
  Ticks ticks;
  uint64_t id = queue.Start(0, Ticks::OnTick, 10, &ticks);
  const uint64_t firstId = id;
  ticks.act = [&] {
    queue.Stop(id);
    id = queue.Start(10, Ticks::OnTick, 10, &ticks);
  };
  queue.RunDue(10);
  EXPECT_NE(id, firstId);
  EXPECT_EQ(queue.NextDueMs(), 20u);
}

TEST(HostTimerQueue, IdsAreNeverZeroNorUsedAgain) {
  TimerQueue queue;
  Ticks ticks;
  std::set<uint64_t> ids;
  for (int i = 0; i < 1000; ++i) {
    const uint64_t id = queue.Start(0, Ticks::OnTick, 10, &ticks);
    EXPECT_NE(id, 0u);
    EXPECT_TRUE(ids.insert(id).second);
    queue.Stop(id);
    queue.Stop(id);
  }
  queue.Stop(0);
  EXPECT_FALSE(queue.NextDueMs().has_value());
}

// A thousand timers stop and start one another at random; each tick must be one that still runs.
TEST(HostTimerQueue, ManyTimersInEachOthersTicks) {
  struct Slot {
    TimerQueue *queue;
    std::vector<Slot> *all;
    uint64_t id = 0;
    uint64_t *nowMs = nullptr;
    bool runs = false;
    uint32_t seed = 0;
    static uint32_t OnTick(void *param) {
      auto *self = static_cast<Slot *>(param);
      EXPECT_TRUE(self->runs);
      self->seed = self->seed * 1664525u + 1013904223u;
      Slot &other = (*self->all)[self->seed % self->all->size()];
      if (other.runs) {
        self->queue->Stop(other.id);
      } else {
        other.id = self->queue->Start(*self->nowMs, OnTick, 1 + self->seed / 7 % 20, &other);
      }
      other.runs = !other.runs;
      return 0;
    }
  };
  TimerQueue queue;
  uint64_t nowMs = 0;
  std::vector<Slot> slots(1000);
  for (size_t i = 0; i < slots.size(); ++i) {
    slots[i] = {&queue, &slots, 0, &nowMs, true, static_cast<uint32_t>(i)};
    slots[i].id = queue.Start(0, Slot::OnTick, static_cast<uint32_t>(1 + i % 20), &slots[i]);
  }
  for (nowMs = 1; nowMs < 500; nowMs += 3) queue.RunDue(nowMs);
  for (Slot &slot : slots) queue.Stop(slot.id);
  EXPECT_FALSE(queue.NextDueMs().has_value());
}
