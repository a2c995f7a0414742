/* host_pool.cpp: memory pools of the reference host. */
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <random>
#include <set>

#include "host_support.h"
#include "kst_mem.h"
#include "mem/live_table.h"

using host_test::HostPtr;
using host_test::LogLines;
using kestrel::LiveAlloc;
using kestrel::LiveTable;

namespace {

class HostPool : public testing::Test {
 protected:
  HostPool() : host_(KestrelNew(&param_, nullptr, 0)), mem_(KestrelMem(host_.get())) {}

  KestrelMemStat Stat() const {
    KestrelMemStat stat{};
    EXPECT_EQ(KestrelMemStatGet(mem_, &stat), KESTREL_OK);
    return stat;
  }

  LogLines lines_;
  KestrelParam param_ = lines_.Param();
  HostPtr host_;
  uint64_t mem_;
};

}  // namespace

TEST_F(HostPool, Account_FollowsAllocationsAndFrees) {
  void *a = KST_Malloc_(mem_, 100, "tagA", 1);
  void *b = KST_Malloc_(mem_, 50, "tagA", 2);
  EXPECT_EQ(KST_Free_(mem_, a, "tagF", 1), 0u);
  void *c = KST_Malloc_(mem_, 0, "tagA", 1);

  const KestrelMemStat stat = Stat();
  EXPECT_EQ(stat.liveCount, 2u);
  EXPECT_EQ(stat.liveBytes, 50u);
  EXPECT_EQ(stat.peakCount, 2u);
  EXPECT_EQ(stat.peakBytes, 150u);
  EXPECT_EQ(stat.allocCount, 3u);
  EXPECT_EQ(stat.allocBytes, 150u);
  EXPECT_EQ(stat.freeCount, 1u);
  EXPECT_EQ(stat.refusedCount, 0u);
  EXPECT_EQ(stat.limitBytes, 0u);
  EXPECT_EQ(KST_Free_(mem_, b, "tagF", 1), 0u);
  EXPECT_EQ(KST_Free_(mem_, c, "tagF", 1), 0u);
}

TEST_F(HostPool, Tags_AreListedInOrderOfFirstUse) {
  static const char kTag[] = "tagA";
  void *a = KST_Malloc_(mem_, 10, kTag, 7);
  void *b = KST_Malloc_(mem_, 20, kTag, 8);
  void *c = KST_Malloc_(mem_, 30, kTag, 7);
  KST_Free_(mem_, a, "tagF", 1);

  KestrelMemTagStat tag{};
  ASSERT_EQ(KestrelMemTagGet(mem_, 0, &tag), KESTREL_OK);
  EXPECT_STREQ(tag.tag, "tagA");
  EXPECT_EQ(tag.num, 7u);
  EXPECT_EQ(tag.liveCount, 1u);
  EXPECT_EQ(tag.liveBytes, 30u);
  EXPECT_EQ(tag.allocCount, 2u);
  ASSERT_EQ(KestrelMemTagGet(mem_, 1, &tag), KESTREL_OK);
  EXPECT_EQ(tag.num, 8u);
  EXPECT_EQ(tag.liveBytes, 20u);
  EXPECT_EQ(KestrelMemTagGet(mem_, 2, &tag), KESTREL_NOT_FOUND);
  KST_Free_(mem_, b, "tagF", 1);
  KST_Free_(mem_, c, "tagF", 1);
}

TEST_F(HostPool, TagsBeyondTheLimit_ShareOne) {
  std::vector<void *> all;
  for (uint32_t num = 0; num < 65540; ++num) all.push_back(KST_Malloc_(mem_, 1, "tagA", num));
  KestrelMemTagStat tag{};
  ASSERT_EQ(KestrelMemTagGet(mem_, 65535, &tag), KESTREL_OK);
  EXPECT_STREQ(tag.tag, "other");
  EXPECT_EQ(tag.liveCount, 5u);
  EXPECT_EQ(KestrelMemTagGet(mem_, 65536, &tag), KESTREL_NOT_FOUND);
  for (void *p : all) EXPECT_EQ(KST_Free_(mem_, p, "tagF", 1), 0u);
  ASSERT_EQ(KestrelMemTagGet(mem_, 65535, &tag), KESTREL_OK);
  EXPECT_EQ(tag.liveCount, 0u);
}

TEST_F(HostPool, ForeignFree_IsRefusedAndLogged) {
  int onStack = 0;
  EXPECT_NE(KST_Free_(mem_, &onStack, "tagF", 5), 0u);
  void *ofMalloc = std::malloc(8);
  EXPECT_NE(KST_Free_(mem_, ofMalloc, "tagF", 6), 0u);
  std::free(ofMalloc);

  EXPECT_EQ(Stat().badFreeCount, 2u);
  ASSERT_EQ(lines_.All().size(), 2u);
  EXPECT_EQ(lines_.All()[0].text, "pool kestrel: free of what is not live in it, tag tagF(5)");
  EXPECT_EQ(static_cast<int>(lines_.All()[0].level), KST_LOG_ERROR);
  EXPECT_EQ(static_cast<int>(lines_.All()[0].channel), KESTREL_CHANNEL_HOST);
}

TEST_F(HostPool, DoubleFreeAndInnerPointer_AreRefused) {
  auto *p = static_cast<char *>(KST_Malloc_(mem_, 64, "tagA", 1));
  EXPECT_NE(KST_Free_(mem_, p + 16, "tagF", 1), 0u);
  EXPECT_EQ(KST_Free_(mem_, p, "tagF", 1), 0u);
  EXPECT_NE(KST_Free_(mem_, p, "tagF", 1), 0u);
  EXPECT_EQ(Stat().freeCount, 1u);
  EXPECT_EQ(Stat().badFreeCount, 2u);
}

TEST_F(HostPool, PoolOfAnotherService_DoesNotTakeOurs) {
  uint64_t other = 0;
  ASSERT_EQ(KestrelPoolNew(host_.get(), "other", 0, &other), KESTREL_OK);
  void *p = KST_Malloc_(mem_, 1, "tagA", 1);
  EXPECT_NE(KST_Free_(other, p, "tagF", 1), 0u);
  EXPECT_EQ(KST_Free_(mem_, p, "tagF", 1), 0u);
  EXPECT_EQ(KestrelPoolDelete(host_.get(), mem_, nullptr), KESTREL_NOT_FOUND);
  EXPECT_EQ(KestrelPoolDelete(host_.get(), other, nullptr), KESTREL_OK);
  EXPECT_EQ(KestrelPoolDelete(host_.get(), other, nullptr), KESTREL_NOT_FOUND);
}

TEST_F(HostPool, Limit_RefusesWhatExceedsIt) {
  uint64_t pool = 0;
  ASSERT_EQ(KestrelPoolNew(host_.get(), "small", 100, &pool), KESTREL_OK);
  void *a = KST_Malloc_(pool, 60, "tagA", 1);
  EXPECT_NE(a, nullptr);
  EXPECT_EQ(KST_Malloc_(pool, 41, "tagA", 1), nullptr);
  EXPECT_EQ(KST_Malloc_(pool, SIZE_MAX, "tagA", 1), nullptr);
  EXPECT_EQ(KST_StrNew(pool, "%50s", "x"), nullptr);
  void *b = KST_Malloc_(pool, 40, "tagA", 1);
  EXPECT_NE(b, nullptr);
  EXPECT_EQ(KST_Free_(pool, a, "tagF", 1), 0u);
  char *text = KST_StrNew(pool, "%50s", "x");
  EXPECT_NE(text, nullptr);

  KestrelMemStat stat{};
  KestrelMemStatGet(pool, &stat);
  EXPECT_EQ(stat.refusedCount, 3u);
  EXPECT_EQ(stat.limitBytes, 100u);
  EXPECT_EQ(stat.liveBytes, 91u);
  KST_StrDel(pool, text);
  KST_Free_(pool, b, "tagF", 1);
  uint64_t leaked = 99;
  EXPECT_EQ(KestrelPoolDelete(host_.get(), pool, &leaked), KESTREL_OK);
  EXPECT_EQ(leaked, 0u);
}

TEST_F(HostPool, StrNew_RendersAnyLength) {
  const std::string longText(100000, 'x');
  char *text = KST_StrNew(mem_, "%s/%d", longText.c_str(), 5);
  ASSERT_NE(text, nullptr);
  EXPECT_EQ(text, longText + "/5");
  KST_StrDel(mem_, text);
  EXPECT_EQ(Stat().liveCount, 0u);
}

TEST_F(HostPool, Delete_ReportsLeaksByTag) {
  static const char kTag[] = "tagA";
  KST_Malloc_(mem_, 10, kTag, 7);
  KST_Malloc_(mem_, 20, kTag, 7);
  KST_Malloc_(mem_, 5, kTag, 8);
  EXPECT_EQ(KestrelDelete(host_.release()), 3u);
  EXPECT_EQ(lines_.Texts(), (std::vector<std::string>{
                                "pool kestrel: 3 allocations, 35 bytes were never freed",
                                "pool kestrel: leak: 2 allocations, 30 bytes, tag tagA(7)",
                                "pool kestrel: leak: 1 allocations, 5 bytes, tag tagA(8)",
                            }));
}

TEST_F(HostPool, Delete_ShowsAtMost32Tags) {
  for (uint32_t num = 0; num < 40; ++num) KST_Malloc_(mem_, 1, "tagA", num);
  EXPECT_EQ(KestrelDelete(host_.release()), 40u);
  ASSERT_EQ(lines_.All().size(), 34u);
  EXPECT_EQ(lines_.All().back().text, "pool kestrel: leak: 8 more tags");
}

TEST_F(HostPool, Delete_WithoutLeaksIsSilent) {
  KST_Free_(mem_, KST_Malloc_(mem_, 10, "tagA", 7), "tagF", 1);
  EXPECT_EQ(KestrelDelete(host_.release()), 0u);
  EXPECT_EQ(lines_.All().size(), 0u);
}

TEST_F(HostPool, HandleZero_IsNoPool) {
  KestrelMemStat stat{};
  KestrelMemTagStat tag{};
  EXPECT_EQ(KST_Malloc_(0, 1, "tagA", 1), nullptr);
  EXPECT_EQ(KST_StrNew(0, "x"), nullptr);
  int any = 0;
  EXPECT_NE(KST_Free_(0, &any, "tagF", 1), 0u);
  EXPECT_EQ(KST_Free_(0, nullptr, "tagF", 1), 0u);
  EXPECT_EQ(KestrelMemStatGet(0, &stat), KESTREL_BAD_ARGUMENT);
  EXPECT_EQ(KestrelMemTagGet(0, 0, &tag), KESTREL_BAD_ARGUMENT);
}

// Random insertions and removals against std::set, with neighbouring addresses so that runs form.
TEST(HostLiveTable, AgreesWithASet) {
  static char bytes[4096];
  std::mt19937 random(1);
  std::set<void *> expected;
  LiveTable table;
  for (int step = 0; step < 200000; ++step) {
    char *p = bytes + random() % sizeof bytes;
    LiveAlloc taken;
    ASSERT_EQ(table.Take(p, taken), expected.erase(p) == 1) << step;
    if (random() % 2 != 0) {
      table.MakeRoom();
      table.Insert({p, static_cast<size_t>(p - bytes), 3});
      expected.insert(p);
    } else if (taken.address) {
      ASSERT_EQ(taken.size, static_cast<size_t>(p - bytes));
    }
    ASSERT_EQ(table.Count(), expected.size());
  }
  std::set<void *> seen;
  table.ForEach([&](const LiveAlloc &alloc) { seen.insert(alloc.address); });
  EXPECT_EQ(seen, expected);
}
