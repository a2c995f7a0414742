/* test_coap_rpc_ser_sync_peers.cpp: who has what, and how old what somebody lacks is. */
#include "coap_svc/rpc/server/sync/coap_rpc_ser_sync_peers.h"

#include <gtest/gtest.h>

#include <map>
#include <random>

#include "coap_svc/rpc/server/sync/coap_rpc_ser_sync_ages.h"
#include "test_host.h"

namespace coap_rpc_test {
namespace {

using coap_rpc::SyncPeer;

class SyncPeersTest : public testing::Test {
 protected:
  ~SyncPeersTest() override {
    while (SyncPeer *peer = SyncPeerFirst(peers_)) SyncPeerRemove(host_.Mem(), peers_, peer);
  }
  static const void *Session(uintptr_t number) { return reinterpret_cast<const void *>(number); }
  SyncPeer *Comes(uintptr_t number) { return SyncPeerComes(host_.Mem(), peers_, Session(number)); }
  void Leaves(uintptr_t number) { SyncPeerLeaves(host_.Mem(), peers_, Session(number)); }
  void Confirms(uintptr_t number, uint64_t version) {
    SyncPeerConfirms(peers_, SyncPeerFind(peers_, Session(number)), version);
  }

  TestHost host_;
  coap_rpc::SyncPeers peers_ = {};
};

TEST_F(SyncPeersTest, Least_IsThatOfTheSlowest) {
  Comes(1);
  Comes(2);
  Confirms(1, 7);
  EXPECT_EQ(peers_.least, 0u);
  Confirms(2, 5);
  EXPECT_EQ(peers_.least, 5u);
  Confirms(2, 9);
  EXPECT_EQ(peers_.least, 7u);
  Confirms(2, 3);  // late
  EXPECT_EQ(peers_.least, 7u);
  Comes(3);
  EXPECT_EQ(peers_.least, 0u);
  Leaves(3);
  EXPECT_EQ(peers_.least, 7u);
  Leaves(1);
  EXPECT_EQ(peers_.least, 9u);
  Leaves(2);
  EXPECT_EQ(peers_.least, 0u);
}

TEST_F(SyncPeersTest, Session_StaysUntilItsLastRegistrationEnds) {
  Comes(1);
  Comes(1);
  EXPECT_EQ(peers_.num, 1u);
  Leaves(1);
  EXPECT_EQ(peers_.num, 1u);
  Leaves(1);
  Leaves(1);
  EXPECT_EQ(peers_.num, 0u);
}

TEST_F(SyncPeersTest, NoMemory_CountsNobody) {
  host_.Pool().Failures().FailOnce(1);
  EXPECT_EQ(Comes(1), nullptr);
  EXPECT_EQ(peers_.num, 0u);
}

TEST_F(SyncPeersTest, APeer_ExpiresAfterItsTicks) {
  Comes(1);
  SyncPeer *heard = Comes(2);
  for (int i = 0; i < 4; ++i) SyncPeersTick(peers_);
  EXPECT_EQ(SyncPeerExpired(peers_), nullptr);
  heard->idleTicks = 0;
  SyncPeersTick(peers_);
  ASSERT_NE(SyncPeerExpired(peers_), nullptr);
  EXPECT_EQ(SyncPeerExpired(peers_)->session, Session(1));
}

TEST_F(SyncPeersTest, RandomLife_AgreesWithTheModel) {
  std::mt19937 random(1);
  std::map<uintptr_t, uint64_t> model;
  uint64_t version = 0;
  for (int step = 0; step < 20'000; ++step) {
    const uintptr_t number = 1 + random() % 20;
    const auto dice = random() % 10;
    if (dice < 2) {
      if (model.try_emplace(number, 0).second) Comes(number);
    } else if (dice < 3) {
      model.erase(number);
      Leaves(number);
    } else if (model.count(number) != 0) {
      version += random() % 2;
      model[number] = version;
      Confirms(number, version);
    }
    uint64_t least = model.empty() ? 0 : UINT64_MAX;
    for (const auto &[session, confirmed] : model) least = std::min(least, confirmed);
    ASSERT_EQ(peers_.least, least) << step;
    ASSERT_EQ(peers_.num, model.size());
  }
}

TEST(SyncAgesTest, Age_IsThatOfTheMarkBefore) {
  coap_rpc::SyncAges ages = {};
  EXPECT_EQ(SyncAgeOf(ages, 1, 1000), 0u);
  SyncAgesMark(ages, 10, 1000);
  SyncAgesMark(ages, 20, 2000);
  EXPECT_EQ(SyncAgeOf(ages, 5, 3000), 2000u);
  EXPECT_EQ(SyncAgeOf(ages, 10, 3000), 2000u);
  EXPECT_EQ(SyncAgeOf(ages, 19, 3000), 2000u);
  EXPECT_EQ(SyncAgeOf(ages, 20, 3000), 1000u);
  EXPECT_EQ(SyncAgeOf(ages, 20, 500), 0u);
  SyncAgesForget(ages, 25);
  EXPECT_EQ(SyncAgeOf(ages, 10, 3000), 1000u);
}

TEST(SyncAgesTest, ManyMarks_AreNeverTooYoung) {
  coap_rpc::SyncAges ages = {};
  for (uint64_t i = 1; i <= 1000; ++i) SyncAgesMark(ages, i, 10 * i);
  for (uint64_t i = 1; i <= 1000; ++i) {
    EXPECT_GE(SyncAgeOf(ages, i, 10'000), 10'000 - 10 * i);
    EXPECT_LE(SyncAgeOf(ages, i, 10'000), 10'000u);
  }
  EXPECT_EQ(SyncAgeOf(ages, 1, 10'000), 9990u);
  EXPECT_LE(SyncAgeOf(ages, 1000, 10'000), 640u);
}

}  // namespace
}  // namespace coap_rpc_test
