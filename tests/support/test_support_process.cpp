/* test_support_process.cpp: clocks, assertions and module tables under test control. */
#include <gtest/gtest.h>

#include "kst_mods.h"
#include "osal.h"
#include "tarn.h"
#include "test_host.h"

namespace coap_rpc_test {
namespace {

template <char kLetter>
uint32_t Step(void *record) {
  *static_cast<std::string *>(record) += kLetter;
  return 0;
}

template <char kLetter>
uint32_t FailStep(void *record) {
  *static_cast<std::string *>(record) += kLetter;
  return 77;
}

constexpr KST_ModEntry kRows[] = {
    {Step<'A'>, Step<'a'>},
    {Step<'B'>, Step<'b'>},
    {Step<'C'>, Step<'c'>},
};
constexpr KST_ModEntry kFailingRows[] = {
    {Step<'A'>, Step<'a'>},
    {Step<'B'>, Step<'b'>},
    {FailStep<'C'>, Step<'c'>},
};

TEST(SupportProcess, ModsInit_FailRow_IsNotCalled) {
  TestHost host;
  for (uint32_t row = 0; row < 3; ++row) {
    TestHost::Process().Mods() = {false, kRows, row, 1'000 + row};
    std::string steps;
    EXPECT_EQ(KST_ModsInit(kRows, &steps, 3), 1'000 + row);
    EXPECT_EQ(steps, std::string("ABC").substr(0, row));
  }
}

TEST(SupportProcess, ModsInit_FailRow_OfAnotherTable_DoesNotMatter) {
  TestHost host;
  TestHost::Process().Mods() = {false, kFailingRows, 0, 1'000};
  std::string steps;
  EXPECT_EQ(KST_ModsInit(kRows, &steps, 3), 0u);
  EXPECT_EQ(steps, "ABC");
}

TEST(SupportProcess, ModsInit_Unwinds_WhenToldTo) {
  TestHost host;
  std::string steps;
  EXPECT_EQ(KST_ModsInit(kFailingRows, &steps, 3), 77u);
  EXPECT_EQ(steps, "ABC");
  steps.clear();
  TestHost::Process().Mods().unwinds = true;
  EXPECT_EQ(KST_ModsInit(kFailingRows, &steps, 3), 77u);
  EXPECT_EQ(steps, "ABCba");
}

TEST(SupportProcess, Asserts_AreRecorded) {
  TestHost host;
  EXPECT_EQ(TARN_Assert("src/file", 76, 0), 1900000999u);
  EXPECT_EQ(TARN_Assert("src/file", 77, 0), kAssertResult);
  EXPECT_EQ(TestHost::Process().Asserts(),
            std::vector<AssertRecord>({{"src/file", 76}, {"src/file", 77}}));
  TestHost::Process().ClearAsserts();
  EXPECT_EQ(TestHost::Process().Asserts().size(), 0u);
}

TEST(SupportProcess, MillSecNow_MayBeSetAndFail) {
  TestHost host;
  uint32_t high = 5;
  uint32_t low = 6;
  TestHost::Process().SetNowMs(0x1'FFFF'FFFF);
  EXPECT_EQ(OSAL_MillSecNow(&high, &low), 0u);
  EXPECT_EQ(high, 1u);
  EXPECT_EQ(low, 0xFFFFFFFFu);
  host.AdvanceMs(1);
  EXPECT_EQ(OSAL_MillSecNow(&high, &low), 0u);
  EXPECT_EQ(high, 2u);
  EXPECT_EQ(low, 0u);
  TestHost::Process().FailMillSecNow(3);
  EXPECT_EQ(OSAL_MillSecNow(&high, &low), 3u);
  EXPECT_EQ(high, 2u);
}

TEST(SupportProcess, Systime_MayBeSetAndFail) {
  TestHost host;
  OSAL_Systime now = {};
  TestHost::Process().SetSystime({2031, 12, 31, 23, 59, 58, 999}, 4);
  EXPECT_EQ(OSAL_SystimeGet(&now), 4);
  EXPECT_EQ(now.year, 2031u);
  EXPECT_EQ(now.millis, 999u);
  now.year = 1;
  TestHost::Process().FailSystime(-9);
  EXPECT_EQ(OSAL_SystimeGet(&now), -9);
  EXPECT_EQ(now.year, 1u);
}

TEST(SupportProcess, FirstHost_ResetsEverything) {
  TestHost::Process().SetNowMs(5);
  TestHost::Process().FailMillSecNow(1);
  TestHost::Process().Mods().unwinds = true;
  TARN_Assert("src/file", 1, 0);
  TestHost first;
  EXPECT_EQ(TestHost::Process().NowMs(), 1'700'000'000'000u);
  EXPECT_EQ(TestHost::Process().MillSecResult(), 0u);
  EXPECT_FALSE(TestHost::Process().Mods().unwinds);
  EXPECT_EQ(TestHost::Process().Asserts().size(), 0u);
  TARN_Assert("src/file", 1, 0);
  TestHost second;
  EXPECT_EQ(TestHost::Process().Asserts().size(), 1u);
}

}  // namespace
}  // namespace coap_rpc_test
