/* test_support_pool.cpp: the pool of the host under test control. */
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include "kst_mem.h"
#include "test_host.h"

namespace coap_rpc_test {
namespace {

void *New(const TestHost &host, size_t size) {
  return KST_Malloc_(host.Mem(), size, "mallocRsv", 123);
}

uint32_t Free(const TestHost &host, void *p) { return KST_Free_(host.Mem(), p, "freeRsv", 123); }

TEST(SupportPool, Leak_IsAFailureOfTheDestructor) {
  EXPECT_NONFATAL_FAILURE(
      {
        TestHost host;
        New(host, 44);
      },
      "allocation 1: 44 bytes, mallocRsv");
}

TEST(SupportPool, LeakedString_IsAFailureOfTheDestructor) {
  EXPECT_NONFATAL_FAILURE(
      {
        TestHost host;
        KST_StrNew(host.Mem(), "name %d", 7);
      },
      "allocation 1: 7 bytes, string \"name 7\"");
}

TEST(SupportPool, NothingLeaked_NoFailure) {
  TestHost host;
  EXPECT_EQ(Free(host, New(host, 44)), 0u);
  KST_StrDel(host.Mem(), KST_StrNew(host.Mem(), "name"));
  host.ExpectNoLeaks();
}

TEST(SupportPool, DiscardAll_SilencesTheDestructor) {
  TestHost host;
  New(host, 44);
  EXPECT_EQ(host.Pool().LiveCount(), 1u);
  host.DiscardAll();
  EXPECT_EQ(host.Pool().LiveCount(), 0u);
  EXPECT_EQ(host.Pool().LiveBytes(), 0u);
}

TEST(SupportPool, FailOnce_HitsExactlyTheNthAllocation) {
  for (uint64_t n = 1; n <= 5; ++n) {
    TestHost host;
    host.Pool().Failures().FailOnce(n);
    for (uint64_t i = 1; i <= 5; ++i) {
      void *p = New(host, 8);
      EXPECT_EQ(p == nullptr, i == n) << i << " of " << n;
      Free(host, p);
    }
    EXPECT_EQ(host.Pool().Failures().NumCalls(), 5u);
    EXPECT_EQ(host.Pool().Failures().NumFailed(), 1u);
  }
}

TEST(SupportPool, FailFrom_HitsTheNthAndAllLater) {
  TestHost host;
  New(host, 8);
  host.Pool().Failures().FailFrom(3);
  EXPECT_NE(New(host, 8), nullptr);
  EXPECT_NE(New(host, 8), nullptr);
  EXPECT_EQ(New(host, 8), nullptr);
  EXPECT_EQ(New(host, 8), nullptr);
  host.Pool().Failures().Clear();
  EXPECT_NE(New(host, 8), nullptr);
  host.DiscardAll();
}

TEST(SupportPool, Failures_CountStringsToo) {
  TestHost host;
  host.Pool().Failures().FailOnce(2);
  char *first = KST_StrNew(host.Mem(), "first");
  EXPECT_NE(first, nullptr);
  EXPECT_EQ(KST_StrNew(host.Mem(), "second"), nullptr);
  KST_StrDel(host.Mem(), first);
}

TEST(SupportPool, FreshMemory_IsNotZero) {
  TestHost host;
  auto *p = static_cast<uint8_t *>(New(host, 3));
  EXPECT_EQ(p[0], 0xA5);
  EXPECT_EQ(p[2], 0xA5);
  Free(host, p);
}

TEST(SupportPool, OtherTags_AreViolations) {
  TestHost host;
  EXPECT_EQ(KST_Free_(host.Mem(), KST_Malloc_(host.Mem(), 8, "mallocRsv", 123), "freeRsv", 123),
            0u);
  EXPECT_EQ(host.Pool().Violations(), std::vector<std::string>());
  void *p = KST_Malloc_(host.Mem(), 8, "other", 123);
  void *q = KST_Malloc_(host.Mem(), 8, "mallocRsv", 124);
  KST_Free_(host.Mem(), p, "mallocRsv", 123);
  KST_Free_(host.Mem(), q, "freeRsv", 1);
  EXPECT_EQ(
      host.Pool().Violations(),
      std::vector<std::string>({"KST_Malloc_: tag other 123", "KST_Malloc_: tag mallocRsv 124",
                                "KST_Free_: tag mallocRsv 123", "KST_Free_: tag freeRsv 1"}));
}

TEST(SupportPool, AnyTag_IsAllowedOnDemand) {
  TestHost host;
  host.Pool().AllowAnyTag();
  EXPECT_EQ(KST_Free_(host.Mem(), KST_Malloc_(host.Mem(), 8, "app", 1), "app", 1), 0u);
  EXPECT_EQ(host.Pool().Violations(), std::vector<std::string>());
}

TEST(SupportPool, BadFrees_AreRefusedViolations) {
  TestHost host;
  TestHost other;
  void *p = New(host, 8);
  char *s = KST_StrNew(host.Mem(), "text");
  EXPECT_NE(Free(other, p), 0u);
  EXPECT_NE(Free(host, s), 0u);
  KST_StrDel(host.Mem(), static_cast<char *>(p));
  EXPECT_EQ(host.Pool().LiveCount(), 2u);
  EXPECT_EQ(Free(host, p), 0u);
  EXPECT_NE(Free(host, p), 0u);
  KST_StrDel(host.Mem(), s);
  EXPECT_EQ(host.Pool().Violations().size(), 3u);
  EXPECT_EQ(other.Pool().Violations(),
            std::vector<std::string>({"KST_Free_: not a live allocation of this pool"}));
}

TEST(SupportPool, Counts_FollowTheAllocations) {
  TestHost host;
  void *p = New(host, 100);
  void *q = New(host, 50);
  EXPECT_EQ(host.Pool().LiveCount(), 2u);
  EXPECT_EQ(host.Pool().LiveBytes(), 150u);
  Free(host, p);
  EXPECT_EQ(host.Pool().LiveBytes(), 50u);
  EXPECT_EQ(host.Pool().PeakBytes(), 150u);
  EXPECT_EQ(host.Pool().NumAllocations(), 2u);
  Free(host, q);
}

TEST(SupportPool, UnknownHandle_FailsTheTest) {
  TestHost host;
  EXPECT_NONFATAL_FAILURE(KST_Malloc_(host.Tmr(), 8, "mallocRsv", 123), "no such handle");
}

}  // namespace
}  // namespace coap_rpc_test
