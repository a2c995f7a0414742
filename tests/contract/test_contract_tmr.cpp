/* test_contract_tmr.cpp: repeating timers.
 *
 * Hosts with real time are held to bounds that a busy machine cannot break: no tick is early, none
 * is made up for, and each comes in the end.  Hosts with exact time are held to every tick. */
#include <algorithm>
#include <set>

#include "contract_test.h"
#include "kst_tmr.h"
#include "osal.h"

namespace coap_rpc_test {
namespace {

constexpr uint32_t kPatienceMs = 300'000;  // every wait ends when its tick comes

uint64_t NowMs() {
  uint32_t high = 0;
  uint32_t low = 0;
  EXPECT_EQ(OSAL_MillSecNow(&high, &low), 0u);
  return uint64_t{high} << 32 | low;
}

// SpinMs keeps the thread busy.
void SpinMs(uint64_t ms) {
  const uint64_t untilMs = NowMs() + ms;
  while (NowMs() < untilMs) {
  }
}

// Ticker is the record of one timer: it remembers when it ticked and what it is to do then.
struct Ticker {
  std::vector<uint64_t> ticksMs;
  std::function<void()> onTick = [] {};

  size_t NumTicks() const { return ticksMs.size(); }
};

uint32_t Tick(void *param) {
  auto *ticker = static_cast<Ticker *>(param);
  ticker->ticksMs.push_back(NowMs());
  ticker->onTick();
  return 4711;  // must not matter
}

class ContractTmr : public ContractTest {
 protected:
  uint64_t Start(Ticker *ticker, uint32_t periodMs) {
    return KST_TmrStartLoop(Tmr(), Tick, periodMs, ticker);
  }
  void Stop(uint64_t id) { KST_TmrStop(Tmr(), id); }

  bool RunUntilTicks(const Ticker &ticker, size_t numTicks) {
    return RunUntil([&] { return ticker.NumTicks() >= numTicks; }, kPatienceMs);
  }

  // BlocksAndKeepsPhase lets a timer block in its first tick.  Returns whether a later one of
  // twenty came in its phase.
  bool BlocksAndKeepsPhase() {
    constexpr uint64_t kPeriodMs = 40;
    const bool canBlock = !Host().HasExactTime();
    Ticker ticker;
    ticker.onTick = [&ticker, canBlock] {
      if (canBlock && ticker.NumTicks() == 1) SpinMs(100);
    };
    const uint64_t startMs = NowMs();
    const uint64_t id = Start(&ticker, uint32_t{kPeriodMs});
    EXPECT_TRUE(RunUntilTicks(ticker, 20));
    Stop(id);
    // At least one of the periods is lost for good; one more tick may be late instead of missed.
    EXPECT_GE(ticker.ticksMs[19] + 1, startMs + (canBlock ? 21 : 20) * kPeriodMs);
    return std::any_of(ticker.ticksMs.begin() + 2, ticker.ticksMs.end(),
                       [&](uint64_t tickMs) { return (tickMs + 2 - startMs) % kPeriodMs < 15; });
  }
};

TEST_F(ContractTmr, Start_Service0_Gives0) {
  Ticker ticker;
  EXPECT_EQ(KST_TmrStartLoop(0, Tick, 10, &ticker), 0u);
}

TEST_F(ContractTmr, Start_Several_IdsDifferAndAreNot0) {
  Ticker ticker;
  std::set<uint64_t> ids;
  for (int i = 0; i < 100; ++i) ids.insert(Start(&ticker, 1'000'000));
  EXPECT_EQ(ids.size(), 100u);
  EXPECT_EQ(ids.count(0), 0u);
  for (const uint64_t id : ids) Stop(id);
}

TEST_F(ContractTmr, Start_WhileOthersRun_ReusesNoId) {
  Ticker ticker;
  const uint64_t kept = Start(&ticker, 1'000'000);
  for (int i = 0; i < 1'000; ++i) {
    const uint64_t id = Start(&ticker, 1'000'000);
    ASSERT_NE(id, kept);
    Stop(id);
  }
  Stop(kept);
}

TEST_F(ContractTmr, Tick_BeforeOnePeriod_DoesNotCome) {
  Ticker ticker;
  const uint64_t startMs = NowMs();
  const uint64_t id = Start(&ticker, 50);
  Host().AdvanceMs(20);
  if (Host().HasExactTime()) {
    EXPECT_EQ(ticker.NumTicks(), 0u);
  }
  ASSERT_TRUE(RunUntilTicks(ticker, 1));
  EXPECT_GE(ticker.ticksMs[0] + 1, startMs + 50);
  Stop(id);
}

TEST_F(ContractTmr, Tick_Repeats_InItsPhase) {
  Ticker ticker;
  const uint64_t startMs = NowMs();
  const uint64_t id = Start(&ticker, 10);
  ASSERT_TRUE(RunUntilTicks(ticker, 5));
  Stop(id);
  for (size_t i = 0; i < 5; ++i) {
    EXPECT_GE(ticker.ticksMs[i] + 1, startMs + 10 * (i + 1));
    if (Host().HasExactTime()) {
      EXPECT_EQ(ticker.ticksMs[i], startMs + 10 * (i + 1));
    }
  }
}

TEST_F(ContractTmr, Tick_OverALongTime_ComesOncePerPeriod) {
  Ticker ticker;
  const uint64_t startMs = NowMs();
  const uint64_t id = Start(&ticker, 10);
  Host().AdvanceMs(305);
  Stop(id);
  EXPECT_GE(ticker.NumTicks(), 1u);
  EXPECT_LE(ticker.NumTicks(), (NowMs() + 1 - startMs) / 10);
  if (Host().HasExactTime()) {
    EXPECT_EQ(ticker.NumTicks(), 30u);
  }
}

// Where ticks can be late, the first one blocks for two and a half periods.  Those after it are
// not repeated, and the later ones are where they would have been without it.  A machine that is
// busy makes ticks late, so the timer may try again; one that lost its phase is half a period off
// each time.
TEST_F(ContractTmr, Tick_BlocksForLong_KeepsPhaseAndMakesUpForNothing) {
  bool hasTickInPhase = false;
  for (int i = 0; i < 25 && !hasTickInPhase; ++i) hasTickInPhase = BlocksAndKeepsPhase();
  EXPECT_TRUE(hasTickInPhase);
}

TEST_F(ContractTmr, Tick_TwoTimers_EachGetsItsParam) {
  Ticker quick;
  Ticker slow;
  const uint64_t quickId = Start(&quick, 5);
  const uint64_t slowId = Start(&slow, 20);
  ASSERT_TRUE(RunUntilTicks(slow, 2));
  EXPECT_GE(quick.NumTicks(), 2u);
  if (Host().HasExactTime()) {
    EXPECT_GE(quick.NumTicks(), 7u);
    EXPECT_LE(quick.NumTicks(), 8u);
  }
  Stop(quickId);
  Stop(slowId);
}

TEST_F(ContractTmr, Stop_Running_TicksNoMore) {
  Ticker ticker;
  const uint64_t id = Start(&ticker, 5);
  ASSERT_TRUE(RunUntilTicks(ticker, 1));
  Stop(id);
  const size_t numTicks = ticker.NumTicks();
  Host().AdvanceMs(50);
  EXPECT_EQ(ticker.NumTicks(), numTicks);
}

TEST_F(ContractTmr, Stop_InsideItsOwnTick_IsTheLastTick) {
  Ticker ticker;
  uint64_t id = 0;
  ticker.onTick = [&] { Stop(id); };
  id = Start(&ticker, 5);
  ASSERT_TRUE(RunUntilTicks(ticker, 1));
  Host().AdvanceMs(50);
  EXPECT_EQ(ticker.NumTicks(), 1u);
}

// Both timers are due in the same turn; whichever comes first stops the other.
TEST_F(ContractTmr, Stop_OfATimerThatIsDueAlready_PreventsItsTick) {
  Ticker tickers[2];
  uint64_t ids[2] = {0, 0};
  tickers[0].onTick = [&] { Stop(ids[1]); };
  tickers[1].onTick = [&] { Stop(ids[0]); };
  ids[0] = Start(&tickers[0], 10);
  ids[1] = Start(&tickers[1], 10);
  ASSERT_TRUE(
      RunUntil([&] { return tickers[0].NumTicks() + tickers[1].NumTicks() >= 3; }, kPatienceMs));
  EXPECT_TRUE(tickers[0].NumTicks() == 0 || tickers[1].NumTicks() == 0);
  Stop(ids[0]);
  Stop(ids[1]);
}

TEST_F(ContractTmr, Stop_AllInsideATick_NoneTicksAgain) {
  constexpr size_t kNumTimers = 20;
  std::vector<Ticker> tickers(kNumTimers);
  std::vector<uint64_t> ids;
  for (Ticker &ticker : tickers) {
    ticker.onTick = [&] {
      for (const uint64_t id : ids) Stop(id);
    };
    ids.push_back(Start(&ticker, 10));
  }
  const auto count = [&] {
    size_t numTicks = 0;
    for (const Ticker &ticker : tickers) numTicks += ticker.NumTicks();
    return numTicks;
  };
  ASSERT_TRUE(RunUntil([&] { return count() > 0; }, kPatienceMs));
  Host().AdvanceMs(50);
  EXPECT_EQ(count(), 1u);
}

TEST_F(ContractTmr, Start_InsideATick_TicksOnePeriodLater) {
  Ticker outer;
  Ticker inner;
  uint64_t outerId = 0;
  uint64_t innerId = 0;
  outer.onTick = [&] {
    Stop(outerId);
    innerId = Start(&inner, 10);
  };
  outerId = Start(&outer, 10);
  ASSERT_TRUE(RunUntilTicks(inner, 1));
  EXPECT_NE(innerId, 0u);
  EXPECT_EQ(outer.NumTicks(), 1u);
  EXPECT_GE(inner.ticksMs[0] + 1, outer.ticksMs[0] + 10);
  if (Host().HasExactTime()) {
    EXPECT_EQ(inner.ticksMs[0], outer.ticksMs[0] + 10);
  }
  Stop(innerId);
}

TEST_F(ContractTmr, Start_ManyInsideATick_AllTick) {
  std::vector<Ticker> inner(100);
  std::vector<uint64_t> ids;
  Ticker outer;
  uint64_t outerId = 0;
  outer.onTick = [&] {
    Stop(outerId);
    for (Ticker &ticker : inner) ids.push_back(Start(&ticker, 5));
  };
  outerId = Start(&outer, 5);
  for (const Ticker &ticker : inner) EXPECT_TRUE(RunUntilTicks(ticker, 1));
  for (const uint64_t id : ids) Stop(id);
}

TEST_F(ContractTmr, Stop_UnknownIds_AreIgnored) {
  Ticker ticker;
  const uint64_t id = Start(&ticker, 5);
  const uint64_t stopped = Start(&ticker, 5);
  Stop(stopped);
  Stop(stopped);
  Stop(0);
  Stop(id + 1'000'000);
  EXPECT_TRUE(RunUntilTicks(ticker, 1));
  Stop(id);
}

}  // namespace
}  // namespace coap_rpc_test
