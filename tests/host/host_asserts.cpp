/* host_asserts.cpp: the record of broken contracts. */
#include <gtest/gtest.h>

#include "host_support.h"
#include "tarn.h"

using host_test::HostPtr;
using host_test::LogLines;

namespace {

class HostAsserts : public testing::Test {
 protected:
  HostAsserts() { KestrelAssertClear(); }
};

}  // namespace

TEST_F(HostAsserts, ResultIsFixed) {
  EXPECT_EQ(TARN_Assert("src/a", 1, 0), 1900000999u);
  EXPECT_EQ(TARN_Assert(nullptr, 2, 0), 1900000999u);
}

TEST_F(HostAsserts, LastOnesCanBeRead) {
  KestrelAssert assertion{};
  EXPECT_EQ(static_cast<int>(KestrelAssertGet(0, &assertion)), KESTREL_NOT_FOUND);
  TARN_Assert("src/a", 1, 0);
  TARN_Assert("src/b", 2, 0);
  EXPECT_EQ(KestrelAssertCount(), 2u);
  ASSERT_EQ(static_cast<int>(KestrelAssertGet(0, &assertion)), KESTREL_OK);
  EXPECT_STREQ(assertion.path, "src/b");
  EXPECT_EQ(assertion.line, 2u);
  ASSERT_EQ(static_cast<int>(KestrelAssertGet(1, &assertion)), KESTREL_OK);
  EXPECT_STREQ(assertion.path, "src/a");
  EXPECT_EQ(static_cast<int>(KestrelAssertGet(2, &assertion)), KESTREL_NOT_FOUND);
}

TEST_F(HostAsserts, OnlyTheLast32AreKept) {
  for (uint32_t line = 1; line <= 100; ++line) TARN_Assert("src/a", line, 0);
  KestrelAssert assertion{};
  EXPECT_EQ(KestrelAssertCount(), 100u);
  ASSERT_EQ(static_cast<int>(KestrelAssertGet(31, &assertion)), KESTREL_OK);
  EXPECT_EQ(assertion.line, 69u);
  EXPECT_EQ(static_cast<int>(KestrelAssertGet(32, &assertion)), KESTREL_NOT_FOUND);
}

TEST_F(HostAsserts, AreLoggedByTheOldestHost) {
  LogLines oldLines, newLines;
  const KestrelParam oldParam = oldLines.Param(), newParam = newLines.Param();
  HostPtr oldHost(KestrelNew(&oldParam, nullptr, 0));
  const HostPtr newHost(KestrelNew(&newParam, nullptr, 0));
  TARN_Assert("src/a", 7, 0);
  ASSERT_EQ(oldLines.All().size(), 1u);
  EXPECT_EQ(newLines.All().size(), 0u);
  EXPECT_EQ(oldLines.All()[0].module, "src/a");
  EXPECT_EQ(oldLines.All()[0].line, 7u);
  EXPECT_EQ(oldLines.All()[0].level, 3u);
  EXPECT_EQ(oldLines.All()[0].text, "assertion failed");

  oldHost.reset();
  TARN_Assert("src/a", 7, 0);
  EXPECT_EQ(newLines.All().size(), 1u);
}

TEST_F(HostAsserts, AreRateLimited) {
  LogLines lines;
  KestrelParam param = lines.Param();
  param.logBurst = 2;
  param.logWindowMs = 3600000;
  const HostPtr host(KestrelNew(&param, nullptr, 0));
  for (int i = 0; i < 10; ++i) TARN_Assert("src/a", 7, 0);
  EXPECT_EQ(lines.All().size(), 2u);
  EXPECT_EQ(KestrelAssertCount(), 10u);
}
