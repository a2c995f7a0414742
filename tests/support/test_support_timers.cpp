/* test_support_timers.cpp: the timers and the manual clock of the host under test control. */
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include "kst_tmr.h"
#include "osal.h"
#include "test_host.h"

namespace coap_rpc_test {
namespace {

// Book is what the timers of one test write to.
struct Book {
  TestHost *host = nullptr;
  std::string text;  // one letter for each tick
  uint64_t toStop = 0;
};

template <char kLetter>
uint32_t Write(void *param) {
  static_cast<Book *>(param)->text += kLetter;
  return 0;
}

uint32_t StopOther(void *param) {
  auto *book = static_cast<Book *>(param);
  book->text += 'S';
  KST_TmrStop(book->host->Tmr(), book->toStop);
  return 0;
}

uint32_t StartMany(void *param) {
  auto *book = static_cast<Book *>(param);
  book->text += 'M';
  for (int i = 0; i < 100; ++i) KST_TmrStartLoop(book->host->Tmr(), Write<'x'>, 1'000'000, book);
  return 0;
}

uint32_t AdvanceInside(void *param) {
  static_cast<Book *>(param)->host->AdvanceMs(1);
  return 0;
}

uint64_t OsalNowMs() {
  uint32_t high = 0;
  uint32_t low = 0;
  EXPECT_EQ(OSAL_MillSecNow(&high, &low), 0u);
  return uint64_t{high} << 32 | low;
}

uint32_t WriteTime(void *param) {
  static_cast<Book *>(param)->text += std::to_string(OsalNowMs() % 1'000) + " ";
  return 0;
}

class SupportTimers : public testing::Test {
 protected:
  ~SupportTimers() override { host_.DiscardAll(); }

  uint64_t Start(KST_TmrTick tick, uint32_t periodMs) {
    return KST_TmrStartLoop(host_.Tmr(), tick, periodMs, &book_);
  }

  TestHost host_;
  Book book_ = {&host_, "", 0};
};

TEST_F(SupportTimers, DueOrder_IsByTimeNotByStart) {
  Start(Write<'c'>, 30);
  Start(Write<'a'>, 10);
  Start(Write<'b'>, 20);
  host_.AdvanceMs(30);
  EXPECT_EQ(book_.text, "aabca");  // 10: a; 20: a b; 30: c a
}

TEST_F(SupportTimers, DueTogether_OrderIsByStart) {
  Start(Write<'a'>, 10);
  Start(Write<'b'>, 10);
  Start(Write<'c'>, 5);
  host_.AdvanceMs(10);
  EXPECT_EQ(book_.text, "cabc");
}

TEST_F(SupportTimers, Ticks_SeeTheirDueTime) {
  Start(WriteTime, 100);
  host_.AdvanceMs(350);
  EXPECT_EQ(book_.text, "100 200 300 ");
  EXPECT_EQ(OsalNowMs(), 1'700'000'000'350u);
}

TEST_F(SupportTimers, StopInATick_PreventsOneThatIsDue) {
  Start(StopOther, 10);
  book_.toStop = Start(Write<'b'>, 10);
  host_.AdvanceMs(20);
  EXPECT_EQ(book_.text, "SS");
}

TEST_F(SupportTimers, StartInATick_KeepsTheOthersGoing) {
  Start(StartMany, 10);
  Start(Write<'b'>, 10);
  host_.AdvanceMs(20);
  EXPECT_EQ(book_.text, "MbMb");
  EXPECT_EQ(host_.Timers().Running().size(), 202u);
}

TEST_F(SupportTimers, Running_ListsWhatRuns) {
  const uint64_t id = Start(Write<'a'>, 10);
  host_.AdvanceMs(25);
  ASSERT_EQ(host_.Timers().Running().size(), 1u);
  const RunningTimer &timer = host_.Timers().Running()[0];
  EXPECT_EQ(timer.id, id);
  EXPECT_EQ(timer.periodMs, 10u);
  EXPECT_EQ(timer.param, &book_);
  EXPECT_EQ(timer.numTicks, 2u);
  EXPECT_EQ(timer.dueMs, host_.Timers().NowMs() + 5);
}

TEST_F(SupportTimers, Failures_RefuseStarts) {
  host_.Timers().Failures().FailOnce(2);
  EXPECT_NE(Start(Write<'a'>, 10), 0u);
  EXPECT_EQ(Start(Write<'b'>, 10), 0u);
  EXPECT_NE(Start(Write<'c'>, 10), 0u);
  host_.Timers().Failures().FailFrom(1);
  EXPECT_EQ(Start(Write<'d'>, 10), 0u);
  EXPECT_EQ(Start(Write<'e'>, 10), 0u);
  host_.AdvanceMs(10);
  EXPECT_EQ(book_.text, "ac");
}

TEST_F(SupportTimers, WrongUse_FailsTheTest) {
  EXPECT_NONFATAL_FAILURE(Start(Write<'a'>, 0), "period 0");
  Start(AdvanceInside, 10);
  EXPECT_NONFATAL_FAILURE(host_.AdvanceMs(10), "AdvanceMs inside a tick");
}

TEST(SupportTimersLeak, RunningTimer_IsAFailureOfTheDestructor) {
  EXPECT_NONFATAL_FAILURE(
      {
        TestHost host;
        KST_TmrStartLoop(host.Tmr(), Write<'a'>, 1'000, nullptr);
      },
      "every 1000 ms");
}

TEST(SupportTimersTwo, TwoHosts_ShareOneClock) {
  TestHost first;
  first.AdvanceMs(10);
  TestHost second;
  const uint64_t startMs = OsalNowMs();
  first.AdvanceMs(100);
  EXPECT_EQ(OsalNowMs(), startMs + 100);
  second.AdvanceMs(100);
  EXPECT_EQ(OsalNowMs(), startMs + 100);
  second.AdvanceMs(1);
  EXPECT_EQ(OsalNowMs(), startMs + 101);
}

TEST(SupportTimersTwo, TwoHosts_KeepTheirTimersApart) {
  TestHost first;
  TestHost second;
  Book book = {&first, "", 0};
  const uint64_t id = KST_TmrStartLoop(first.Tmr(), Write<'a'>, 10, &book);
  second.AdvanceMs(50);
  KST_TmrStop(second.Tmr(), id);
  EXPECT_EQ(book.text, "");
  first.AdvanceMs(10);
  EXPECT_EQ(book.text, "a");
  KST_TmrStop(first.Tmr(), id);
}

}  // namespace
}  // namespace coap_rpc_test
