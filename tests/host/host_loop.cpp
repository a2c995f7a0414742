/* host_loop.cpp: the loop of a host, its timers on the real clock, and a loop of the application.
 */
#include <gtest/gtest.h>

#include <uv.h>

#include <csignal>
#include <thread>

#include "host_support.h"
#include "kst_tmr.h"

using host_test::HostPtr;
using host_test::TurnUntil;

namespace {

HostPtr QuietHost(uv_loop_t *loop = nullptr) {
  KestrelParam param{};
  param.logSinks = KESTREL_SINK_NONE;
  param.loop = loop;
  return HostPtr(KestrelNew(&param, nullptr, 0));
}

uint32_t CountTick(void *param) {
  ++*static_cast<uint32_t *>(param);
  return 0;
}

uint32_t StopHost(void *param) {
  KestrelStop(static_cast<Kestrel *>(param));
  return 0;
}

Kestrel *g_hostOfSignal = nullptr;

}  // namespace

TEST(HostLoop, Timer_TicksAgainAndAgainNeverEarly) {
  const HostPtr host = QuietHost();
  uint32_t ticks = 0;
  const uint64_t startNs = uv_hrtime();
  const uint64_t id = KST_TmrStartLoop(KestrelTmr(host.get()), CountTick, 5, &ticks);
  EXPECT_NE(id, 0u);
  EXPECT_TRUE(TurnUntil(host.get(), [&] { return ticks >= 3; }));
  EXPECT_GE(uv_hrtime() - startNs, 15'000'000u);

  KST_TmrStop(KestrelTmr(host.get()), id);
  const uint32_t ticksAtStop = ticks;
  uint32_t others = 0;
  KST_TmrStartLoop(KestrelTmr(host.get()), CountTick, 5, &others);
  EXPECT_TRUE(TurnUntil(host.get(), [&] { return others >= 3; }));
  EXPECT_EQ(ticks, ticksAtStop);
}

TEST(HostLoop, Timer_WithoutTickPeriodOrServiceIsRefused) {
  const HostPtr host = QuietHost();
  uint32_t ticks = 0;
  EXPECT_EQ(KST_TmrStartLoop(KestrelTmr(host.get()), nullptr, 5, &ticks), 0u);
  EXPECT_EQ(KST_TmrStartLoop(KestrelTmr(host.get()), CountTick, 0, &ticks), 0u);
  EXPECT_EQ(KST_TmrStartLoop(0, CountTick, 5, &ticks), 0u);
  KST_TmrStop(0, 1);
}

TEST(HostLoop, Turn_DoesNotWait) {
  const HostPtr host = QuietHost();
  uint32_t ticks = 0;
  KST_TmrStartLoop(KestrelTmr(host.get()), CountTick, 3600000, &ticks);
  EXPECT_EQ(KestrelTurn(host.get()), KESTREL_OK);
  EXPECT_EQ(ticks, 0u);
  EXPECT_GT(KestrelPollTimeoutMs(host.get()), 3500000);
}

TEST(HostLoop, PollTimeout_WithoutTimersIsEndless) {
  const HostPtr host = QuietHost();
  KestrelTurn(host.get());
  EXPECT_EQ(KestrelPollTimeoutMs(host.get()), -1);
}

TEST(HostLoop, Run_EndsByStopInATick) {
  const HostPtr host = QuietHost();
  KST_TmrStartLoop(KestrelTmr(host.get()), StopHost, 1, host.get());
  EXPECT_EQ(KestrelRun(host.get()), KESTREL_OK);
  EXPECT_EQ(KestrelRun(host.get()), KESTREL_OK);
}

TEST(HostLoop, Run_EndsByStopBeforeIt) {
  const HostPtr host = QuietHost();
  EXPECT_EQ(KestrelStop(host.get()), KESTREL_OK);
  EXPECT_EQ(KestrelRun(host.get()), KESTREL_OK);
}

TEST(HostLoop, Run_EndsByStopFromAnotherThread) {
  const HostPtr host = QuietHost();
  std::thread stopper([&] { KestrelStop(host.get()); });
  EXPECT_EQ(KestrelRun(host.get()), KESTREL_OK);
  stopper.join();
}

TEST(HostLoop, Run_EndsByStopInASignalHandler) {
  const HostPtr host = QuietHost();
  g_hostOfSignal = host.get();
  const auto before = std::signal(SIGUSR1, [](int) { KestrelStop(g_hostOfSignal); });
  KST_TmrStartLoop(
      KestrelTmr(host.get()), [](void *) { return static_cast<uint32_t>(raise(SIGUSR1)); }, 1,
      nullptr);
  EXPECT_EQ(KestrelRun(host.get()), KESTREL_OK);
  std::signal(SIGUSR1, before);
  g_hostOfSignal = nullptr;
}

TEST(HostLoop, RunAndTurn_InsideATickAreRefused) {
  struct Inner {
    Kestrel *host;
    uint32_t run = 0;
    uint32_t turn = 0;
    static uint32_t OnTick(void *param) {
      auto *self = static_cast<Inner *>(param);
      self->run = KestrelRun(self->host);
      self->turn = KestrelTurn(self->host);
      return KestrelStop(self->host);
    }
  };
  const HostPtr host = QuietHost();
  Inner inner{host.get()};
  KST_TmrStartLoop(KestrelTmr(host.get()), Inner::OnTick, 1, &inner);
  EXPECT_EQ(KestrelRun(host.get()), KESTREL_OK);
  EXPECT_EQ(static_cast<int>(inner.run), KESTREL_BUSY);
  EXPECT_EQ(static_cast<int>(inner.turn), KESTREL_BUSY);
}

TEST(HostLoop, TwoHosts_HaveLoopsOfTheirOwn) {
  const HostPtr a = QuietHost();
  const HostPtr b = QuietHost();
  uint32_t ticksA = 0, ticksB = 0;
  KST_TmrStartLoop(KestrelTmr(a.get()), CountTick, 1, &ticksA);
  KST_TmrStartLoop(KestrelTmr(b.get()), CountTick, 1, &ticksB);
  EXPECT_TRUE(TurnUntil(a.get(), [&] { return ticksA >= 2; }));
  EXPECT_EQ(ticksB, 0u);
}

class HostForeignLoop : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(uv_loop_init(&loop_), 0);
    host_ = QuietHost(&loop_);
    ASSERT_NE(host_, nullptr);
  }
  void TearDown() override {
    host_.reset();
    uv_run(&loop_, UV_RUN_DEFAULT);
    EXPECT_EQ(uv_loop_close(&loop_), 0);
  }

  uv_loop_t loop_;
  HostPtr host_;
};

TEST_F(HostForeignLoop, IsNeverRunByTheHost) {
  EXPECT_EQ(static_cast<int>(KestrelRun(host_.get())), KESTREL_FOREIGN_LOOP);
  EXPECT_EQ(static_cast<int>(KestrelTurn(host_.get())), KESTREL_FOREIGN_LOOP);
  EXPECT_EQ(static_cast<int>(KestrelStop(host_.get())), KESTREL_FOREIGN_LOOP);
}

TEST_F(HostForeignLoop, IsNotKeptAliveByAnIdleHost) {
  EXPECT_EQ(uv_run(&loop_, UV_RUN_DEFAULT), 0);
}

TEST_F(HostForeignLoop, RunsTheHostsTimers) {
  struct Self {
    uint64_t tmr;
    uint64_t id = 0;
    uint32_t ticks = 0;
    static uint32_t OnTick(void *param) {
      auto *self = static_cast<Self *>(param);
      if (++self->ticks == 3) KST_TmrStop(self->tmr, self->id);
      return 0;
    }
  };
  Self self{KestrelTmr(host_.get())};
  self.id = KST_TmrStartLoop(self.tmr, Self::OnTick, 2, &self);
  uv_run(&loop_, UV_RUN_DEFAULT);
  EXPECT_EQ(self.ticks, 3u);
}

TEST_F(HostForeignLoop, StaysUsableAfterTheHostIsDeleted) {
  uint32_t ticks = 0;
  KST_TmrStartLoop(KestrelTmr(host_.get()), CountTick, 1, &ticks);
  host_.reset();

  bool fired = false;
  uv_timer_t timer;
  uv_timer_init(&loop_, &timer);
  timer.data = &fired;
  uv_timer_start(
      &timer, [](uv_timer_t *self) { *static_cast<bool *>(self->data) = true; }, 5, 0);
  uv_run(&loop_, UV_RUN_DEFAULT);
  EXPECT_TRUE(fired);
  EXPECT_EQ(ticks, 0u);
  uv_close(reinterpret_cast<uv_handle_t *>(&timer), nullptr);
  uv_run(&loop_, UV_RUN_DEFAULT);
}

TEST_F(HostForeignLoop, HostDeletedInACallbackOfTheApplication) {
  uv_timer_t timer;
  uv_timer_init(&loop_, &timer);
  timer.data = &host_;
  uint32_t ticks = 0;
  KST_TmrStartLoop(KestrelTmr(host_.get()), CountTick, 1000, &ticks);
  uv_timer_start(
      &timer,
      [](uv_timer_t *self) {
        static_cast<HostPtr *>(self->data)->reset();
        uv_close(reinterpret_cast<uv_handle_t *>(self), nullptr);
      },
      1, 0);
  EXPECT_EQ(uv_run(&loop_, UV_RUN_DEFAULT), 0);
  EXPECT_EQ(ticks, 0u);
}
