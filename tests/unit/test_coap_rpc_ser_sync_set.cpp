/* test_coap_rpc_ser_sync_set.cpp: versions of tuples: alone, against a plain model, and what a
 * version costs. */
#include <gtest/gtest.h>
#include <xxhash.h>

#include <map>
#include <random>

#include "synced_entry.h"

namespace coap_rpc_test {
namespace {

using Tuples = std::vector<SyncedTuple>;

uint64_t DigestOf(const std::string &keyAndVal) {
  return XXH64(keyAndVal.data(), keyAndVal.size(), 0);
}

TEST(SerSyncSet, EmptySet_IsAtVersionZero) {
  SyncedEntry t;
  ASSERT_EQ(t.SetSync(), 0u);
  EXPECT_NE(t.Set().replid, 0u);
  EXPECT_EQ(t.Set().head, 0u);
  EXPECT_EQ(t.Set().digest, 0u);
  EXPECT_EQ(t.Walk(), Tuples());
}

TEST(SerSyncSet, EachSetHasALifeOfItsOwn) {
  SyncedEntry a;
  SyncedEntry b;
  ASSERT_EQ(a.SetSync() + b.SetSync(), 0u);
  EXPECT_NE(a.Set().replid, b.Set().replid);
}

TEST(SerSyncSet, TuplesThatWereThere_GetVersionsInOrderOfKeys) {
  SyncedEntry t;
  t.Put("bbbb", "0002");
  t.Put("aaaa", "0001");
  ASSERT_EQ(t.SetSync(), 0u);
  EXPECT_EQ(t.Walk(), (Tuples{{1, "aaaa", "0001"}, {2, "bbbb", "0002"}}));
  EXPECT_EQ(t.TupleTexts(), (std::vector<std::string>{"aaaa=0001", "bbbb=0002"}));
  EXPECT_EQ(t.Set().digest, DigestOf("aaaa0001") + DigestOf("bbbb0002"));
  EXPECT_EQ(t.Set().numLive, 2u);
}

TEST(SerSyncSet, NoMemoryForVersions_LeavesTheTuplesAsTheyWere) {
  SyncedEntry t;
  t.Put("aaaa", "0001");
  t.Put("bbbb", "0002");
  const size_t numBefore = t.host.Pool().LiveCount();
  for (int n = 1; n <= 8; ++n) {  // the record, five segments, and one for each tuple
    t.host.Pool().Failures().FailOnce(static_cast<uint64_t>(n));
    EXPECT_EQ(t.SetSync(), 1900001515u);
    EXPECT_EQ(t.entry.sync, nullptr);
    EXPECT_EQ(t.host.Pool().LiveCount(), numBefore);
    EXPECT_EQ(t.TupleTexts(), (std::vector<std::string>{"aaaa=0001", "bbbb=0002"}));
  }
  EXPECT_EQ(t.SetSync(), 0u);
}

TEST(SerSyncSet, AChange_MovesItsTupleToTheEnd) {
  SyncedEntry t;
  ASSERT_EQ(t.SetSync(), 0u);
  t.Put("aaaa", "0001");
  t.Put("bbbb", "0002");
  t.Put("aaaa", "0003");
  EXPECT_EQ(t.Walk(), (Tuples{{2, "bbbb", "0002"}, {3, "aaaa", "0003"}}));
  EXPECT_EQ(t.Set().digest, DigestOf("aaaa0003") + DigestOf("bbbb0002"));
}

TEST(SerSyncSet, AnEqualValue_IsNoChange) {
  SyncedEntry t;
  ASSERT_EQ(t.SetSync(), 0u);
  t.Put("aaaa", "0001");
  t.Put("aaaa", "0001");
  EXPECT_EQ(COAP_RpcSerProcUpdateTuple(&t.ctx, &t.entry, nullptr, "aaaa", nullptr), 0u);
  EXPECT_EQ(t.Set().head, 1u);
}

TEST(SerSyncSet, ADeletion_IsAVersion) {
  SyncedEntry t;
  ASSERT_EQ(t.SetSync(), 0u);
  t.Put("aaaa", "0001");
  t.Put("bbbb", "0002");
  t.Delete("aaaa");
  t.Delete("aaaa");
  t.Delete("cccc");
  EXPECT_EQ(t.Walk(), (Tuples{{2, "bbbb", "0002"}, {3, "aaaa", "-"}}));
  EXPECT_EQ(t.TupleTexts(), (std::vector<std::string>{"bbbb=0002"}));
  EXPECT_EQ(t.Set().digest, DigestOf("bbbb0002"));
}

TEST(SerSyncSet, AKeyThatComesBack_TakesTheRecordOfItsTombstone) {
  SyncedEntry t;
  ASSERT_EQ(t.SetSync(), 0u);
  t.Put("aaaa", "0001");
  t.Delete("aaaa");
  const size_t numBefore = t.host.Pool().LiveCount();
  EXPECT_EQ(COAP_RpcSerProcUpdateTuple(&t.ctx, &t.entry, nullptr, "aaaa", nullptr), 0u);
  EXPECT_EQ(t.host.Pool().LiveCount(), numBefore);
  EXPECT_EQ(t.Walk(), (Tuples{{3, "aaaa", std::string(4, '\0')}}));  // no value: zeros, as ever
  EXPECT_EQ(t.Set().numTombs, 0u);
}

TEST(SerSyncSet, OldestTombstone_IsDroppedAndBecomesTheFloor) {
  SyncedEntry t(1);
  ASSERT_EQ(t.SetSync(), 0u);
  t.Put("aaaa", "0001");
  t.Put("bbbb", "0002");
  t.Delete("aaaa");
  EXPECT_EQ(t.Set().floor, 0u);
  t.Delete("bbbb");
  EXPECT_EQ(t.Set().floor, 3u);
  EXPECT_EQ(t.Walk(), (Tuples{{4, "bbbb", "-"}}));
}

TEST(SerSyncSet, ManyTuples_KeepAQuarterAsTombstones) {
  SyncedEntry t(1);
  ASSERT_EQ(t.SetSync(), 0u);
  for (int i = 0; i < 50; ++i) t.Put(std::to_string(1000 + i), "0001");
  for (int i = 0; i < 10; ++i) t.Delete(std::to_string(1000 + i));
  EXPECT_EQ(t.Set().numTombs, 10u);  // 40 live
  t.Delete("1010");
  EXPECT_EQ(t.Set().numTombs, 9u);  // 39 live
  EXPECT_EQ(t.Set().floor, 52u);
}

TEST(SerSyncSet, FewerTuples_TakeLessMemory) {
  SyncedEntry t(1);
  ASSERT_EQ(t.SetSync(), 0u);
  const auto key = [](int i) { return std::to_string(1000 + i); };
  t.Put("aaaa", "0001");
  const uint64_t bytesOfOne = coap_rpc::SyncSetBytes(t.Set());
  for (int i = 0; i < 1000; ++i) t.Put(key(i), "0001");
  for (int i = 0; i < 1000; ++i) t.Delete(key(i));
  EXPECT_EQ(t.Set().numTombs, 1u);
  EXPECT_LE(coap_rpc::SyncSetBytes(t.Set()), bytesOfOne + 100);  // with the tombstone
}

TEST(SerSyncSet, FewerTombstonesWanted_DropsThoseTooMany) {
  SyncedEntry t;
  ASSERT_EQ(t.SetSync(), 0u);
  for (const char *key : {"aaaa", "bbbb", "cccc"}) t.Put(key, "0001");
  for (const char *key : {"aaaa", "bbbb", "cccc"}) t.Delete(key);
  t.param.minTombstones = 1;
  ASSERT_EQ(t.SetSync(), 0u);
  EXPECT_EQ(t.Walk(), (Tuples{{6, "cccc", "-"}}));
  EXPECT_EQ(t.Set().floor, 5u);
}

TEST(SerSyncSet, NoMemoryForATuple_MovesNoVersionAndIsReported) {
  SyncedEntry t;
  ASSERT_EQ(t.SetSync(), 0u);
  t.Put("aaaa", "0001");
  t.host.Pool().Failures().FailOnce(1);
  EXPECT_EQ(t.Put("bbbb", "0002"), 1900000113u);
  EXPECT_EQ(t.Set().head, 1u);
  EXPECT_EQ(t.Walk(), (Tuples{{1, "aaaa", "0001"}}));
}

TEST(SerSyncSet, Dropped_FreesEverything) {
  SyncedEntry t;
  ASSERT_EQ(t.SetSync(), 0u);
  t.Put("aaaa", "0001");
  t.Put("bbbb", "0001");
  t.Delete("bbbb");
  coap_rpc::SyncDrop(&t.entry);
  EXPECT_EQ(t.entry.sync, nullptr);
  EXPECT_EQ(t.host.Pool().LiveCount(), 0u);
  EXPECT_EQ(t.TupleTexts(), std::vector<std::string>());
}

// What is changed in whatever order, versions take no more, and changes of what there is take none.
TEST(SerSyncSet, AVersion_Costs48BytesAtMost) {
  constexpr uint32_t kNum = 2000;
  SyncedEntry plain;
  SyncedEntry synced;
  plain.ctx.log = synced.ctx.log = 0;
  ASSERT_EQ(synced.SetSync(), 0u);
  const size_t before = synced.host.Pool().LiveBytes();
  for (uint32_t i = 0; i < kNum; ++i) {
    plain.Put(std::to_string(1000 + i), "0001");
    synced.Put(std::to_string(1000 + i), "0001");
  }
  const size_t bytes = synced.host.Pool().LiveBytes();
  EXPECT_LE(bytes - before, plain.host.Pool().LiveBytes() + kNum * 48);
  std::mt19937 random(1);
  synced.host.Pool().Failures().FailFrom(1);
  for (uint32_t i = 0; i < 50 * kNum; ++i) {
    const uint32_t key = 1000 + static_cast<uint32_t>(random() % (i % 3 == 0 ? kNum : 20));
    ASSERT_EQ(synced.Put(std::to_string(key), std::to_string(1000 + i % 9000)), 0u);
  }
  EXPECT_EQ(synced.host.Pool().LiveBytes(), bytes);
}

TEST(SerSyncSet, Parameters_AreChecked) {
  SyncedEntry t;
  t.param.pageBytes = 255;
  EXPECT_EQ(t.SetSync(), 1900001513u);
  t.param.pageBytes = 1025;
  EXPECT_EQ(t.SetSync(), 1900001513u);
  t.param.pageBytes = 256;
  t.ob.keyLen = 65'000;
  t.ob.valLen = 1;
  EXPECT_EQ(t.SetSync(), 1900001514u);
  t.ob.valLen = 0;
  EXPECT_EQ(t.SetSync(), 0u);
}

TEST(SerSyncSet, SetAgain_ChangesParametersAlone) {
  SyncedEntry t;
  ASSERT_EQ(t.SetSync(), 0u);
  t.Put("aaaa", "0001");
  const uint64_t replid = t.Set().replid;
  EXPECT_EQ(t.Set().minTombs, 1024u);
  t.param.minTombstones = 7;
  t.param.pageBytes = 300;
  ASSERT_EQ(t.SetSync(), 0u);
  EXPECT_EQ(t.Set().replid, replid);
  EXPECT_EQ(t.Set().minTombs, 7u);
  EXPECT_EQ(t.entry.sync->param.pageBytes, 300u);
  EXPECT_EQ(t.entry.sync->param.leaseMs, 120'000u);
  EXPECT_EQ(t.Walk(), (Tuples{{1, "aaaa", "0001"}}));
}

// Model is the set as a list of what happened last to each key.
struct Model {
  struct Last {
    std::string key;
    std::string val;
  };
  std::map<uint64_t, Last> byVersion;
  std::map<std::string, uint64_t> versions;
  uint64_t head = 0;
  uint64_t floor = 0;

  static constexpr char kDeleted[] = "-";

  bool IsLive(const std::string &key) const {
    const auto found = versions.find(key);
    return found != versions.end() && byVersion.at(found->second).val != kDeleted;
  }
  void Note(const std::string &key, const std::string &val) {
    if (const auto found = versions.find(key); found != versions.end()) {
      byVersion.erase(found->second);
    }
    byVersion[++head] = {key, val};
    versions[key] = head;
  }
  void Update(const std::string &key, const std::string &val) {
    if (!IsLive(key) || byVersion[versions[key]].val != val) Note(key, val);
  }
  void Delete(const std::string &key, size_t minTombs) {
    if (!IsLive(key)) return;
    Note(key, kDeleted);
    while (NumTombs() > std::max(minTombs, (byVersion.size() - NumTombs()) / 4)) DropOldest();
  }
  void DropOldest() {
    const auto oldest = std::find_if(byVersion.begin(), byVersion.end(),
                                     [](const auto &last) { return last.second.val == kDeleted; });
    floor = oldest->first;
    versions.erase(oldest->second.key);
    byVersion.erase(oldest);
  }
  size_t NumTombs() const {
    return static_cast<size_t>(
        std::count_if(byVersion.begin(), byVersion.end(),
                      [](const auto &last) { return last.second.val == kDeleted; }));
  }
  uint64_t Digest() const {
    uint64_t sum = 0;
    for (const auto &[version, last] : byVersion) {
      if (last.val != kDeleted) sum += DigestOf(last.key + last.val);
    }
    return sum;
  }
  Tuples Page(uint64_t since, size_t maxNum) const {
    Tuples page;
    for (auto at = byVersion.upper_bound(since); at != byVersion.end() && page.size() < maxNum;
         ++at) {
      page.push_back({at->first, at->second.key, at->second.val});
    }
    return page;
  }
};

class SerSyncModel : public testing::TestWithParam<uint32_t> {};

TEST_P(SerSyncModel, RandomChanges_AgreeWithTheModel) {
  const uint32_t minTombs = GetParam();
  SyncedEntry t(minTombs);
  t.ctx.log = 0;
  ASSERT_EQ(t.SetSync(), 0u);
  Model model;
  std::mt19937 random(minTombs);
  const auto below = [&](uint64_t end) { return static_cast<uint32_t>(random() % end); };
  for (uint32_t step = 0; step < 100'000 && !testing::Test::HasFailure(); ++step) {
    const std::string key = std::to_string(1000 + below(60));
    if (below(100) < 60) {
      const std::string val = std::to_string(1000 + below(3));
      t.Put(key, val);
      model.Update(key, val);
    } else {
      t.Delete(key);
      model.Delete(key, minTombs);
    }
    const uint64_t since = model.head - std::min<uint64_t>(model.head, below(200));
    ASSERT_EQ(t.Walk(since, 10), model.Page(since, 10)) << "step " << step;
    ASSERT_EQ(t.Set().head, model.head);
    ASSERT_EQ(t.Set().floor, model.floor);
    if (step % 100 != 0) continue;
    ASSERT_EQ(t.Walk(), model.Page(0, SIZE_MAX));
    ASSERT_EQ(t.Set().digest, model.Digest());
    ASSERT_EQ(t.Set().numTombs, model.NumTombs());
    ASSERT_EQ(t.Set().numLive, COAP_RpcGetTupleSetCnt(&t.entry));
  }
  EXPECT_GT(model.floor, 0u);
}

INSTANTIATE_TEST_SUITE_P(MinTombstones, SerSyncModel, testing::Values(1, 2, 10));

}  // namespace
}  // namespace coap_rpc_test
