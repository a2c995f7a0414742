/* test_coap_rpc_ser_chg_index.cpp: many pending changes, found through the index of the list.
 */
#include <ctime>

#include <gtest/gtest.h>

#include "observed_entry.h"

namespace coap_rpc_test {
namespace {

constexpr uint32_t kNumMany = 1000;

TEST(SerChgIndex, ManyKeys_KeepOrderAndMerge) {
  ObservedEntry t(8);
  t.QueueMany(kNumMany);
  for (uint32_t i = 0; i < kNumMany; i += 3) t.Chg(ManyKey(i).c_str(), nullptr, 2);
  const std::vector<CoapRpcTupleChg *> changes = t.Changes();
  ASSERT_EQ(changes.size(), kNumMany);
  for (uint32_t i = 0; i < kNumMany; ++i) {
    EXPECT_EQ(memcmp(changes[i]->key, ManyKey(i).c_str(), 8), 0);
    EXPECT_EQ(memcmp(changes[i]->key + 8, "val1", 4), 0);
    EXPECT_EQ(changes[i]->chgType, i % 3 == 0 ? 2 : 1);
  }
}

TEST(SerChgIndex, DeletedChange_IsNoLongerFound) {
  ObservedEntry t(8);
  t.QueueMany(kNumMany);
  for (CoapRpcTupleChg *chg : t.Changes()) {
    if (chg->key[7] == '5') COAP_RpcSerDelTupleChgData(&t.ctx, chg);
  }
  EXPECT_EQ(COAP_RpcSerMergeTupleData(&t.entry, ManyKey(15).c_str(), "val2", 1), 0u);
  EXPECT_EQ(COAP_RpcSerMergeTupleData(&t.entry, ManyKey(16).c_str(), "val2", 1), 1u);
  EXPECT_EQ(t.Changes().size(), kNumMany - kNumMany / 10);
}

TEST(SerChgIndex, NoMemoryForIt_ChangesAreQueuedAllTheSame) {
  ObservedEntry t(8);
  constexpr uint64_t kChgBytes = sizeof(CoapRpcTupleChg) + 12;
  for (uint32_t i = 0; i < 200; ++i) {
    t.host.Pool().SetByteLimit((i + 1) * kChgBytes);
    ASSERT_EQ(t.Chg(ManyKey(i).c_str(), "val1", 1), 0u);
  }
  EXPECT_EQ(t.entry.chgIndex, nullptr);
  t.Chg(ManyKey(150).c_str(), "val2", 1);
  EXPECT_EQ(t.Changes().size(), 200u);
  EXPECT_EQ(t.ChangeTexts()[150], "1k0000150=val2");

  t.host.Pool().SetByteLimit(0);
  t.Chg(ManyKey(200).c_str(), "val1", 1);
  EXPECT_NE(t.entry.chgIndex, nullptr) << "made as soon as there is memory";
  t.Chg(ManyKey(150).c_str(), "val3", 1);
  EXPECT_EQ(t.Changes().size(), 201u);
  EXPECT_EQ(t.ChangeTexts()[150], "1k0000150=val3");
}

TEST(SerChgIndex, NoMemoryToGrow_TheSmallOneFindsEverything) {
  ObservedEntry t(8);
  t.QueueMany(40);
  ASSERT_NE(t.entry.chgIndex, nullptr);
  const uint64_t bytes = t.host.Pool().LiveBytes();
  constexpr uint64_t kChgBytes = sizeof(CoapRpcTupleChg) + 12;
  for (uint32_t i = 40; i < 400; ++i) {
    t.host.Pool().SetByteLimit(bytes + (i - 39) * kChgBytes);
    ASSERT_EQ(t.Chg(ManyKey(i).c_str(), "val1", 1), 0u);
  }
  for (uint32_t i = 0; i < 400; ++i) {
    EXPECT_EQ(COAP_RpcSerMergeTupleData(&t.entry, ManyKey(i).c_str(), "val2", 1), 1u);
  }
  EXPECT_EQ(t.Changes().size(), 400u);

  t.host.Pool().SetByteLimit(0);
  t.QueueMany(600, 400);
  EXPECT_GE(t.host.Pool().LiveBytes(), 1000 * (kChgBytes + sizeof(CoapRpcLink)))
      << "grown as soon as there is memory";
}

TEST(SerChgIndex, EveryAllocationFails_LosesThatOneAtMost) {
  for (uint64_t n = 1; n <= 110; ++n) {
    ObservedEntry t(8);
    t.host.Pool().Failures().FailOnce(n);
    uint32_t numFailed = 0;
    for (uint32_t i = 0; i < 100; ++i) {
      const uint32_t ret = t.Chg(ManyKey(i).c_str(), "val1", 1);
      EXPECT_TRUE(ret == 0 || ret == 1900000129u);
      numFailed += ret != 0;
    }
    EXPECT_LE(numFailed, 1u);
    EXPECT_EQ(t.Changes().size(), 100u - numFailed);
  }
}

TEST(SerChgIndex, EveryAllocationOfUpdatesFails_LosesATupleOrAChangeAtMost) {
  const auto byKey = [](const void *a, const void *b) { return memcmp(a, b, 8); };
  for (uint64_t n = 1; n <= 210; ++n) {
    ObservedEntry t(8, 4, byKey);
    t.host.Pool().Failures().FailOnce(n);
    uint32_t numFailed = 0;
    for (uint32_t i = 0; i < 100; ++i) numFailed += t.Update(ManyKey(i).c_str(), "val1") != 0;
    const uint32_t numLost = 100 - COAP_RpcGetTupleSetCnt(&t.entry);
    EXPECT_EQ(t.Changes().size(), 100u - numFailed);
    EXPECT_LE(numFailed + numLost, 1u);
  }
}

TEST(SerChgIndex, DrainedList_GivesTheMemoryBackWithTheNextChange) {
  ObservedEntry t(8);
  t.QueueMany(kNumMany);
  for (CoapRpcTupleChg *chg : t.Changes()) COAP_RpcSerDelTupleChgData(&t.ctx, chg);
  t.Chg("neweight", "val1", 1);
  EXPECT_EQ(t.entry.chgIndex, nullptr);
  EXPECT_EQ(t.host.Pool().LiveCount(), 1u);
}

TEST(SerChgIndex, LongUse_KeepsItSmall) {
  ObservedEntry t(8);
  t.QueueMany(40);
  const uint64_t bytes = t.host.Pool().LiveBytes();
  for (uint32_t i = 40; i < 5000; ++i) {
    COAP_RpcSerDelTupleChgData(&t.ctx, t.Changes()[0]);
    ASSERT_EQ(t.Chg(ManyKey(i).c_str(), "val1", 1), 0u);
  }
  EXPECT_LE(t.host.Pool().LiveBytes(), 2 * bytes);
}

// CpuOfQueuing is the processor time of queuing `num` distinct changes, and then all again.
clock_t CpuOfQueuing(uint32_t num) {
  ObservedEntry t(8);
  t.ctx.log = 0;
  const clock_t start = clock();
  t.QueueMany(num);
  t.QueueMany(num);
  const clock_t cpu = clock() - start;
  EXPECT_EQ(t.Changes().size(), num);
  return cpu;
}

// A walk for each change would make it a hundred times as long.
TEST(SerChgIndex, TenTimesTheKeys_TakeAboutTenTimesAsLong) {
  EXPECT_LT(CpuOfQueuing(50'000), 40 * CpuOfQueuing(5'000));
}

}  // namespace
}  // namespace coap_rpc_test
