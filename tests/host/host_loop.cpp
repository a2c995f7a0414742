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
  EXPECT_NE(0u, id);
  EXPECT_TRUE(TurnUntil(host.get(), [&] { return ticks >= 3; }));
  EXPECT_GE(uv_hrtime() - startNs, 15'000'000u);

  KST_TmrStop(KestrelTmr(host.get()), id);
  const uint32_t ticksAtStop = ticks;
  uint32_t others = 0;
  KST_TmrStartLoop(KestrelTmr(host.get()), CountTick, 5, &others);
  EXPECT_TRUE(TurnUntil(host.get(), [&] { return others >= 3; }));
  EXPECT_EQ(ticksAtStop, ticks);
}

TEST(HostLoop, Timer_WithoutTickPeriodOrServiceIsRefused) {
  const HostPtr host = QuietHost();
  uint32_t ticks = 0;
  EXPECT_EQ(0u, KST_TmrStartLoop(KestrelTmr(host.get()), nullptr, 5, &ticks));
  EXPECT_EQ(0u, KST_TmrStartLoop(KestrelTmr(host.get()), CountTick, 0, &ticks));
  EXPECT_EQ(0u, KST_TmrStartLoop(0, CountTick, 5, &ticks));
  KST_TmrStop(0, 1);
}

TEST(HostLoop, Turn_DoesNotWait) {
  const HostPtr host = QuietHost();
  uint32_t ticks = 0;
  KST_TmrStartLoop(KestrelTmr(host.get()), CountTick, 3600000, &ticks);
  EXPECT_EQ(KESTREL_OK, KestrelTurn(host.get()));
  EXPECT_EQ(0u, ticks);
  EXPECT_GT(KestrelPollTimeoutMs(host.get()), 3500000);
}

TEST(HostLoop, PollTimeout_WithoutTimersIsEndless) {
  const HostPtr host = QuietHost();
  KestrelTurn(host.get());
  EXPECT_EQ(-1, KestrelPollTimeoutMs(host.get()));
}

TEST(HostLoop, Run_EndsByStopInATick) {
  const HostPtr host = QuietHost();
  KST_TmrStartLoop(KestrelTmr(host.get()), StopHost, 1, host.get());
  EXPECT_EQ(KESTREL_OK, KestrelRun(host.get()));
  EXPECT_EQ(KESTREL_OK, KestrelRun(host.get()));
}

TEST(HostLoop, Run_EndsByStopBeforeIt) {
  const HostPtr host = QuietHost();
  EXPECT_EQ(KESTREL_OK, KestrelStop(host.get()));
  EXPECT_EQ(KESTREL_OK, KestrelRun(host.get()));
}

TEST(HostLoop, Run_EndsByStopFromAnotherThread) {
  const HostPtr host = QuietHost();
  std::thread stopper([&] { KestrelStop(host.get()); });
  EXPECT_EQ(KESTREL_OK, KestrelRun(host.get()));
  stopper.join();
}

TEST(HostLoop, Run_EndsByStopInASignalHandler) {
  const HostPtr host = QuietHost();
  g_hostOfSignal = host.get();
  const auto before = std::signal(SIGUSR1, [](int) { KestrelStop(g_hostOfSignal); });
  KST_TmrStartLoop(
      KestrelTmr(host.get()), [](void *) { return static_cast<uint32_t>(raise(SIGUSR1)); }, 1,
      nullptr);
  EXPECT_EQ(KESTREL_OK, KestrelRun(host.get()));
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
  EXPECT_EQ(KESTREL_OK, KestrelRun(host.get()));
  EXPECT_EQ(KESTREL_BUSY, static_cast<int>(inner.run));
  EXPECT_EQ(KESTREL_BUSY, static_cast<int>(inner.turn));
}

TEST(HostLoop, TwoHosts_HaveLoopsOfTheirOwn) {
  const HostPtr a = QuietHost();
  const HostPtr b = QuietHost();
  uint32_t ticksA = 0, ticksB = 0;
  KST_TmrStartLoop(KestrelTmr(a.get()), CountTick, 1, &ticksA);
  KST_TmrStartLoop(KestrelTmr(b.get()), CountTick, 1, &ticksB);
  EXPECT_TRUE(TurnUntil(a.get(), [&] { return ticksA >= 2; }));
  EXPECT_EQ(0u, ticksB);
}

class HostForeignLoop : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(0, uv_loop_init(&m_loop));
    m_host = QuietHost(&m_loop);
    ASSERT_NE(nullptr, m_host);
  }
  void TearDown() override {
    m_host.reset();
    uv_run(&m_loop, UV_RUN_DEFAULT);
    EXPECT_EQ(0, uv_loop_close(&m_loop));
  }

  uv_loop_t m_loop;
  HostPtr m_host;
};

TEST_F(HostForeignLoop, IsNeverRunByTheHost) {
  EXPECT_EQ(KESTREL_FOREIGN_LOOP, static_cast<int>(KestrelRun(m_host.get())));
  EXPECT_EQ(KESTREL_FOREIGN_LOOP, static_cast<int>(KestrelTurn(m_host.get())));
  EXPECT_EQ(KESTREL_FOREIGN_LOOP, static_cast<int>(KestrelStop(m_host.get())));
}

TEST_F(HostForeignLoop, IsNotKeptAliveByAnIdleHost) {
  EXPECT_EQ(0, uv_run(&m_loop, UV_RUN_DEFAULT));
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
  Self self{KestrelTmr(m_host.get())};
  self.id = KST_TmrStartLoop(self.tmr, Self::OnTick, 2, &self);
  uv_run(&m_loop, UV_RUN_DEFAULT);
  EXPECT_EQ(3u, self.ticks);
}

TEST_F(HostForeignLoop, StaysUsableAfterTheHostIsDeleted) {
  uint32_t ticks = 0;
  KST_TmrStartLoop(KestrelTmr(m_host.get()), CountTick, 1, &ticks);
  m_host.reset();

  bool fired = false;
  uv_timer_t timer;
  uv_timer_init(&m_loop, &timer);
  timer.data = &fired;
  uv_timer_start(
      &timer, [](uv_timer_t *self) { *static_cast<bool *>(self->data) = true; }, 5, 0);
  uv_run(&m_loop, UV_RUN_DEFAULT);
  EXPECT_TRUE(fired);
  EXPECT_EQ(0u, ticks);
  uv_close(reinterpret_cast<uv_handle_t *>(&timer), nullptr);
  uv_run(&m_loop, UV_RUN_DEFAULT);
}

TEST_F(HostForeignLoop, HostDeletedInACallbackOfTheApplication) {
  uv_timer_t timer;
  uv_timer_init(&m_loop, &timer);
  timer.data = &m_host;
  uint32_t ticks = 0;
  KST_TmrStartLoop(KestrelTmr(m_host.get()), CountTick, 1000, &ticks);
  uv_timer_start(
      &timer,
      [](uv_timer_t *self) {
        static_cast<HostPtr *>(self->data)->reset();
        uv_close(reinterpret_cast<uv_handle_t *>(self), nullptr);
      },
      1, 0);
  EXPECT_EQ(0, uv_run(&m_loop, UV_RUN_DEFAULT));
  EXPECT_EQ(0u, ticks);
}
