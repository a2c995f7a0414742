/* test_coap_rpc_lib_sync_page.cpp: pages by their bytes, what fits into one, and what a round
 * tells.
 */
#include "coap_svc/rpc/libadapter/sync/coap_rpc_lib_sync_page.h"

#include <gtest/gtest.h>

#include <random>

#include "coap_message.h"
#include "synced_entry.h"

namespace coap_rpc_test {
namespace {

using coap_rpc::SyncPage;

constexpr uint64_t kReplid = 0x0102030405060708;
constexpr uint64_t kDigest = 0x1112131415161718;

class SyncPages : public testing::Test {
 protected:
  SyncPages() {
    t_.ctx.log = 0;
    EXPECT_EQ(t_.SetSync(), 0u);
    t_.Set().replid = kReplid;
  }

  const SyncPage &Collect(uint64_t since, uint64_t until = UINT64_MAX, size_t pageBytes = 1024,
                          uint32_t flags = 0) {
    coap_rpc::CollectSyncPage(t_.Set(), {since, until, flags}, pageBytes, page_);
    return page_;
  }

  const SyncPage &Round(uint64_t notified, size_t pageBytes = 1024) {
    coap_rpc::CollectSyncRound(t_.Set(), notified, coap_rpc::kSyncNotification, pageBytes, page_);
    return page_;
  }

  std::string Hex() {
    Bytes bytes(coap_rpc::SyncPageBound(page_));
    bytes.resize(coap_rpc::WriteSyncPage(page_, bytes.data()));
    EXPECT_LE(bytes.size(), coap_rpc::SyncPageBound(page_));
    return HexText(bytes);
  }

  std::string Json() {
    size_t len = 0;
    const auto text = coap_rpc::WriteSyncJson(page_, &len);
    return text ? std::string(text.get(), len) : "";
  }

  void PutMany(int num, int from = 0) {
    for (int i = from; i < from + num; ++i) t_.Put(std::to_string(1000 + i), "vvvv");
  }

  SyncedEntry t_{1};
  SyncPage page_;
};

TEST_F(SyncPages, EmptySet) {
  Collect(0);
  EXPECT_EQ(Hex(), "88 01 01 1b 01 02 03 04 05 06 07 08 00 00 00 00 00");
  EXPECT_EQ(Json(), R"([1,1,"0102030405060708",0,0,0,0,"0000000000000000"])");
}

TEST_F(SyncPages, UpdateAndDeletion) {
  t_.Put("aaaa", "0001");
  t_.Put("bbbb", "0002");
  t_.Delete("aaaa");
  t_.Set().digest = kDigest;
  Collect(0);
  EXPECT_EQ(Hex(),
            "8e 01 01 1b 01 02 03 04 05 06 07 08 00 03 03 00 1b 11 12 13 14 15 16 17 18 "
            "02 44 62 62 62 62 44 30 30 30 32 01 44 61 61 61 61 f6");
  EXPECT_EQ(Json(), R"([1,1,"0102030405060708",0,3,3,0,"1112131415161718",2,"62626262","30303032",)"
                    R"(1,"61616161",null])");
}

TEST_F(SyncPages, LargeNumbers) {
  t_.Set().head = 1'000'000;
  t_.Put("aaaa", "0001");
  t_.Set().floor = 70'000;
  t_.Set().digest = 0;
  Collect(65'535, UINT64_MAX, 1024, coap_rpc::kSyncConfirm | coap_rpc::kSyncNotObserving);
  EXPECT_EQ(Hex(),
            "8b 01 18 19 1b 01 02 03 04 05 06 07 08 19 ff ff 1a 00 0f 42 41 1a 00 0f 42 41 "
            "1a 00 01 11 70 00 1a 00 0e 42 42 44 61 61 61 61 44 30 30 30 31");
}

TEST_F(SyncPages, JsonOfTexts_IsAsTheApplicationShowsThem) {
  t_.ob.keyToStr = [](const void *, char *buf, uint32_t) -> const char * {
    return strcpy(buf, "port 1");
  };
  t_.ob.valToStr = [](const void *, char *, uint32_t) -> const char * { return "\xff"; };
  t_.Put("aaaa", "0001");
  Collect(0);
  EXPECT_TRUE(Json().ends_with(R"(,1,"port 1","30303031"])")) << Json();  // no UTF-8: digits
}

TEST_F(SyncPages, JsonWithoutMemory_IsEmpty) {
  t_.ob.valLen = 65;  // the longest that needs no memory of its own has 64 bytes
  t_.Put("aaaa", std::string(65, 'v'));
  Collect(0);
  t_.host.Pool().Failures().FailOnce(2);  // the text; the value comes before
  EXPECT_EQ(Json(), "");
  t_.host.Pool().Failures().FailOnce(1);
  EXPECT_EQ(Json(), "");
  const std::string json = Json();
  std::string digits;
  for (int i = 0; i < 65; ++i) digits += "76";
  EXPECT_NE(json.find(",1,\"61616161\",\"" + digits + "\"]"), std::string::npos) << json;
}

TEST_F(SyncPages, Until_EndsThePage) {
  PutMany(10);
  Collect(2, 5);
  EXPECT_EQ(page_.num, 3u);
  EXPECT_EQ(page_.to, 5u);
  EXPECT_EQ(page_.flags, 0u);
  t_.Put("1003", "wwww");  // version 4 is no more
  EXPECT_EQ(Collect(3, 4).to, 4u);
  EXPECT_EQ(page_.num, 0u);
}

// A change of 11 bytes each: 1 of delta, 5 of key and 5 of value.
TEST_F(SyncPages, WhatFits_IsNeverLongerThanThePage) {
  PutMany(200);
  for (const size_t pageBytes : {256u, 512u, 1024u}) {
    Collect(0, UINT64_MAX, pageBytes);
    EXPECT_EQ(page_.num, (pageBytes - 60) / 11);
    EXPECT_EQ(page_.to, page_.num);
    EXPECT_EQ(page_.flags, 0u);
    EXPECT_LE(coap_rpc::SyncPageBound(page_), pageBytes);
  }
}

TEST_F(SyncPages, ShortestChanges_FillAPage) {
  SyncedEntry t(400);
  t.ctx.log = 0;
  t.ob.keyLen = 1;
  t.ob.valLen = 0;
  t.ob.tupleKeyCmp = [](const void *a, const void *b) { return memcmp(a, b, 1); };
  t.entry.tupleSetDesc.cmp = t.ob.tupleKeyCmp;
  ASSERT_EQ(t.SetSync(), 0u);
  for (int i = 1; i < 256; ++i) t.Put(std::string(1, static_cast<char>(i)), "");
  coap_rpc::CollectSyncPage(t.Set(), {0, UINT64_MAX, 0}, 1024, page_);
  EXPECT_EQ(page_.num, 241u);  // 4 bytes each
}

TEST_F(SyncPages, TooLongATuple_HasAPageOfItsOwn) {
  SyncedEntry t;
  t.ctx.log = 0;
  t.ob.valLen = 2000;
  ASSERT_EQ(t.SetSync(), 0u);
  const std::string val(2000, 'v');
  t.Put("aaaa", val);
  t.Put("bbbb", val);
  coap_rpc::CollectSyncPage(t.Set(), {0, UINT64_MAX, 0}, 1024, page_);
  EXPECT_EQ(page_.num, 1u);
  EXPECT_EQ(page_.to, 1u);
  EXPECT_EQ(page_.bodyBytes, 1u + 5 + 3 + 2000);
  coap_rpc::CollectSyncRound(t.Set(), 1, 0, 1024, page_);  // is never pushed
  EXPECT_EQ(page_.num, 0u);
  EXPECT_EQ(page_.from, 2u);
}

TEST_F(SyncPages, Round_GoesBackAsFarAsItFits) {
  PutMany(200);
  Round(190);
  EXPECT_EQ(page_.num, 87u);  // (1024 - 60) / 11
  EXPECT_EQ(page_.from, 113u);
  EXPECT_EQ(page_.to, 200u);
  EXPECT_EQ(page_.flags, coap_rpc::kSyncAtHead | coap_rpc::kSyncNotification);
}

TEST_F(SyncPages, Round_ThatDoesNotReachBack_TellsAlone) {
  PutMany(200);
  Round(112);
  EXPECT_EQ(page_.num, 0u);
  EXPECT_EQ(page_.from, 200u);
  EXPECT_EQ(page_.to, 200u);
  EXPECT_EQ(Round(113).num, 87u);
}

TEST_F(SyncPages, Round_NeverReachesBelowTheFloor) {
  PutMany(5);
  t_.Delete("1000");
  t_.Delete("1001");  // drops the tombstone of version 6
  EXPECT_EQ(Round(6).from, 6u);
  EXPECT_EQ(Round(5).from, 7u);
}

// From far back, over versions that are no more.
TEST_F(SyncPages, Round_IsTheLongestThatFits) {
  std::mt19937 random(1);
  for (int i = 0; i < 20'000; ++i) {
    t_.Put(std::to_string(1000 + (random() % 100 < 50 ? 0 : random() % 1000)),
           std::to_string(1000 + i % 7));
    if (i % 97 != 0) continue;
    const uint64_t from = Round(t_.Set().head - 1, 512).from;
    EXPECT_EQ(Collect(from, UINT64_MAX, 512).to, t_.Set().head);
    if (from > t_.Set().floor) {
      EXPECT_LT(Collect(from - 1, UINT64_MAX, 512).to, t_.Set().head);
    }
  }
}

}  // namespace
}  // namespace coap_rpc_test
