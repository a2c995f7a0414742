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
  EXPECT_EQ(1900000999u, TARN_Assert("src/a", 1, 0));
  EXPECT_EQ(1900000999u, TARN_Assert(nullptr, 2, 0));
}

TEST_F(HostAsserts, LastOnesCanBeRead) {
  KestrelAssert assertion{};
  EXPECT_EQ(KESTREL_NOT_FOUND, static_cast<int>(KestrelAssertGet(0, &assertion)));
  TARN_Assert("src/a", 1, 0);
  TARN_Assert("src/b", 2, 0);
  EXPECT_EQ(2u, KestrelAssertCount());
  ASSERT_EQ(KESTREL_OK, static_cast<int>(KestrelAssertGet(0, &assertion)));
  EXPECT_STREQ("src/b", assertion.path);
  EXPECT_EQ(2u, assertion.line);
  ASSERT_EQ(KESTREL_OK, static_cast<int>(KestrelAssertGet(1, &assertion)));
  EXPECT_STREQ("src/a", assertion.path);
  EXPECT_EQ(KESTREL_NOT_FOUND, static_cast<int>(KestrelAssertGet(2, &assertion)));
}

TEST_F(HostAsserts, OnlyTheLast32AreKept) {
  for (uint32_t line = 1; line <= 100; ++line) TARN_Assert("src/a", line, 0);
  KestrelAssert assertion{};
  EXPECT_EQ(100u, KestrelAssertCount());
  ASSERT_EQ(KESTREL_OK, static_cast<int>(KestrelAssertGet(31, &assertion)));
  EXPECT_EQ(69u, assertion.line);
  EXPECT_EQ(KESTREL_NOT_FOUND, static_cast<int>(KestrelAssertGet(32, &assertion)));
}

TEST_F(HostAsserts, AreLoggedByTheOldestHost) {
  LogLines oldLines, newLines;
  const KestrelParam oldParam = oldLines.Param(), newParam = newLines.Param();
  HostPtr oldHost(KestrelNew(&oldParam, nullptr, 0));
  const HostPtr newHost(KestrelNew(&newParam, nullptr, 0));
  TARN_Assert("src/a", 7, 0);
  ASSERT_EQ(1u, oldLines.All().size());
  EXPECT_EQ(0u, newLines.All().size());
  EXPECT_EQ("src/a", oldLines.All()[0].module);
  EXPECT_EQ(7u, oldLines.All()[0].line);
  EXPECT_EQ(3u, oldLines.All()[0].level);
  EXPECT_EQ("assertion failed", oldLines.All()[0].text);

  oldHost.reset();
  TARN_Assert("src/a", 7, 0);
  EXPECT_EQ(1u, newLines.All().size());
}

TEST_F(HostAsserts, AreRateLimited) {
  LogLines lines;
  KestrelParam param = lines.Param();
  param.logBurst = 2;
  param.logWindowMs = 3600000;
  const HostPtr host(KestrelNew(&param, nullptr, 0));
  for (int i = 0; i < 10; ++i) TARN_Assert("src/a", 7, 0);
  EXPECT_EQ(2u, lines.All().size());
  EXPECT_EQ(10u, KestrelAssertCount());
}
