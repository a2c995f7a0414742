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
  HostPool() : m_host(KestrelNew(&m_param, nullptr, 0)), m_mem(KestrelMem(m_host.get())) {}

  KestrelMemStat Stat() const {
    KestrelMemStat stat{};
    EXPECT_EQ(KESTREL_OK, KestrelMemStatGet(m_mem, &stat));
    return stat;
  }

  LogLines m_lines;
  KestrelParam m_param = m_lines.Param();
  HostPtr m_host;
  uint64_t m_mem;
};

}  // namespace

TEST_F(HostPool, Account_FollowsAllocationsAndFrees) {
  void *a = KST_Malloc_(m_mem, 100, "tagA", 1);
  void *b = KST_Malloc_(m_mem, 50, "tagA", 2);
  EXPECT_EQ(0u, KST_Free_(m_mem, a, "tagF", 1));
  void *c = KST_Malloc_(m_mem, 0, "tagA", 1);

  const KestrelMemStat stat = Stat();
  EXPECT_EQ(2u, stat.liveCount);
  EXPECT_EQ(50u, stat.liveBytes);
  EXPECT_EQ(2u, stat.peakCount);
  EXPECT_EQ(150u, stat.peakBytes);
  EXPECT_EQ(3u, stat.allocCount);
  EXPECT_EQ(150u, stat.allocBytes);
  EXPECT_EQ(1u, stat.freeCount);
  EXPECT_EQ(0u, stat.refusedCount);
  EXPECT_EQ(0u, stat.limitBytes);
  EXPECT_EQ(0u, KST_Free_(m_mem, b, "tagF", 1));
  EXPECT_EQ(0u, KST_Free_(m_mem, c, "tagF", 1));
}

TEST_F(HostPool, Tags_AreListedInOrderOfFirstUse) {
  static const char kTag[] = "tagA";
  void *a = KST_Malloc_(m_mem, 10, kTag, 7);
  void *b = KST_Malloc_(m_mem, 20, kTag, 8);
  void *c = KST_Malloc_(m_mem, 30, kTag, 7);
  KST_Free_(m_mem, a, "tagF", 1);

  KestrelMemTagStat tag{};
  ASSERT_EQ(KESTREL_OK, KestrelMemTagGet(m_mem, 0, &tag));
  EXPECT_STREQ("tagA", tag.tag);
  EXPECT_EQ(7u, tag.num);
  EXPECT_EQ(1u, tag.liveCount);
  EXPECT_EQ(30u, tag.liveBytes);
  EXPECT_EQ(2u, tag.allocCount);
  ASSERT_EQ(KESTREL_OK, KestrelMemTagGet(m_mem, 1, &tag));
  EXPECT_EQ(8u, tag.num);
  EXPECT_EQ(20u, tag.liveBytes);
  EXPECT_EQ(KESTREL_NOT_FOUND, KestrelMemTagGet(m_mem, 2, &tag));
  KST_Free_(m_mem, b, "tagF", 1);
  KST_Free_(m_mem, c, "tagF", 1);
}

TEST_F(HostPool, TagsBeyondTheLimit_ShareOne) {
  std::vector<void *> all;
  for (uint32_t num = 0; num < 65540; ++num) all.push_back(KST_Malloc_(m_mem, 1, "tagA", num));
  KestrelMemTagStat tag{};
  ASSERT_EQ(KESTREL_OK, KestrelMemTagGet(m_mem, 65535, &tag));
  EXPECT_STREQ("other", tag.tag);
  EXPECT_EQ(5u, tag.liveCount);
  EXPECT_EQ(KESTREL_NOT_FOUND, KestrelMemTagGet(m_mem, 65536, &tag));
  for (void *p : all) EXPECT_EQ(0u, KST_Free_(m_mem, p, "tagF", 1));
  ASSERT_EQ(KESTREL_OK, KestrelMemTagGet(m_mem, 65535, &tag));
  EXPECT_EQ(0u, tag.liveCount);
}

TEST_F(HostPool, ForeignFree_IsRefusedAndLogged) {
  int onStack = 0;
  EXPECT_NE(0u, KST_Free_(m_mem, &onStack, "tagF", 5));
  void *ofMalloc = std::malloc(8);
  EXPECT_NE(0u, KST_Free_(m_mem, ofMalloc, "tagF", 6));
  std::free(ofMalloc);

  EXPECT_EQ(2u, Stat().badFreeCount);
  ASSERT_EQ(2u, m_lines.All().size());
  EXPECT_EQ("pool kestrel: free of what is not live in it, tag tagF(5)", m_lines.All()[0].text);
  EXPECT_EQ(KST_LOG_ERROR, static_cast<int>(m_lines.All()[0].level));
  EXPECT_EQ(KESTREL_CHANNEL_HOST, static_cast<int>(m_lines.All()[0].channel));
}

TEST_F(HostPool, DoubleFreeAndInnerPointer_AreRefused) {
  auto *p = static_cast<char *>(KST_Malloc_(m_mem, 64, "tagA", 1));
  EXPECT_NE(0u, KST_Free_(m_mem, p + 16, "tagF", 1));
  EXPECT_EQ(0u, KST_Free_(m_mem, p, "tagF", 1));
  EXPECT_NE(0u, KST_Free_(m_mem, p, "tagF", 1));
  EXPECT_EQ(1u, Stat().freeCount);
  EXPECT_EQ(2u, Stat().badFreeCount);
}

TEST_F(HostPool, PoolOfAnotherService_DoesNotTakeOurs) {
  uint64_t other = 0;
  ASSERT_EQ(KESTREL_OK, KestrelPoolNew(m_host.get(), "other", 0, &other));
  void *p = KST_Malloc_(m_mem, 1, "tagA", 1);
  EXPECT_NE(0u, KST_Free_(other, p, "tagF", 1));
  EXPECT_EQ(0u, KST_Free_(m_mem, p, "tagF", 1));
  EXPECT_EQ(KESTREL_NOT_FOUND, KestrelPoolDelete(m_host.get(), m_mem, nullptr));
  EXPECT_EQ(KESTREL_OK, KestrelPoolDelete(m_host.get(), other, nullptr));
  EXPECT_EQ(KESTREL_NOT_FOUND, KestrelPoolDelete(m_host.get(), other, nullptr));
}

TEST_F(HostPool, Limit_RefusesWhatExceedsIt) {
  uint64_t pool = 0;
  ASSERT_EQ(KESTREL_OK, KestrelPoolNew(m_host.get(), "small", 100, &pool));
  void *a = KST_Malloc_(pool, 60, "tagA", 1);
  EXPECT_NE(nullptr, a);
  EXPECT_EQ(nullptr, KST_Malloc_(pool, 41, "tagA", 1));
  EXPECT_EQ(nullptr, KST_Malloc_(pool, SIZE_MAX, "tagA", 1));
  EXPECT_EQ(nullptr, KST_StrNew(pool, "%50s", "x"));
  void *b = KST_Malloc_(pool, 40, "tagA", 1);
  EXPECT_NE(nullptr, b);
  EXPECT_EQ(0u, KST_Free_(pool, a, "tagF", 1));
  char *text = KST_StrNew(pool, "%50s", "x");
  EXPECT_NE(nullptr, text);

  KestrelMemStat stat{};
  KestrelMemStatGet(pool, &stat);
  EXPECT_EQ(3u, stat.refusedCount);
  EXPECT_EQ(100u, stat.limitBytes);
  EXPECT_EQ(91u, stat.liveBytes);
  KST_StrDel(pool, text);
  KST_Free_(pool, b, "tagF", 1);
  uint64_t leaked = 99;
  EXPECT_EQ(KESTREL_OK, KestrelPoolDelete(m_host.get(), pool, &leaked));
  EXPECT_EQ(0u, leaked);
}

TEST_F(HostPool, StrNew_RendersAnyLength) {
  const std::string longText(100000, 'x');
  char *text = KST_StrNew(m_mem, "%s/%d", longText.c_str(), 5);
  ASSERT_NE(nullptr, text);
  EXPECT_EQ(longText + "/5", text);
  KST_StrDel(m_mem, text);
  EXPECT_EQ(0u, Stat().liveCount);
}

TEST_F(HostPool, Delete_ReportsLeaksByTag) {
  static const char kTag[] = "tagA";
  KST_Malloc_(m_mem, 10, kTag, 7);
  KST_Malloc_(m_mem, 20, kTag, 7);
  KST_Malloc_(m_mem, 5, kTag, 8);
  EXPECT_EQ(3u, KestrelDelete(m_host.release()));
  EXPECT_EQ((std::vector<std::string>{
                "pool kestrel: 3 allocations, 35 bytes were never freed",
                "pool kestrel: leak: 2 allocations, 30 bytes, tag tagA(7)",
                "pool kestrel: leak: 1 allocations, 5 bytes, tag tagA(8)",
            }),
            m_lines.Texts());
}

TEST_F(HostPool, Delete_ShowsAtMost32Tags) {
  for (uint32_t num = 0; num < 40; ++num) KST_Malloc_(m_mem, 1, "tagA", num);
  EXPECT_EQ(40u, KestrelDelete(m_host.release()));
  ASSERT_EQ(34u, m_lines.All().size());
  EXPECT_EQ("pool kestrel: leak: 8 more tags", m_lines.All().back().text);
}

TEST_F(HostPool, Delete_WithoutLeaksIsSilent) {
  KST_Free_(m_mem, KST_Malloc_(m_mem, 10, "tagA", 7), "tagF", 1);
  EXPECT_EQ(0u, KestrelDelete(m_host.release()));
  EXPECT_EQ(0u, m_lines.All().size());
}

TEST_F(HostPool, HandleZero_IsNoPool) {
  KestrelMemStat stat{};
  KestrelMemTagStat tag{};
  EXPECT_EQ(nullptr, KST_Malloc_(0, 1, "tagA", 1));
  EXPECT_EQ(nullptr, KST_StrNew(0, "x"));
  int any = 0;
  EXPECT_NE(0u, KST_Free_(0, &any, "tagF", 1));
  EXPECT_EQ(0u, KST_Free_(0, nullptr, "tagF", 1));
  EXPECT_EQ(KESTREL_BAD_ARGUMENT, KestrelMemStatGet(0, &stat));
  EXPECT_EQ(KESTREL_BAD_ARGUMENT, KestrelMemTagGet(0, 0, &tag));
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
    ASSERT_EQ(expected.erase(p) == 1, table.Take(p, taken)) << step;
    if (random() % 2 != 0) {
      table.MakeRoom();
      table.Insert({p, static_cast<size_t>(p - bytes), 3});
      expected.insert(p);
    } else if (taken.address != nullptr) {
      ASSERT_EQ(static_cast<size_t>(p - bytes), taken.size);
    }
    ASSERT_EQ(expected.size(), table.Count());
  }
  std::set<void *> seen;
  table.ForEach([&](const LiveAlloc &alloc) { seen.insert(alloc.address); });
  EXPECT_EQ(expected, seen);
}
