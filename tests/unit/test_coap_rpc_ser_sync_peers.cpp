/* test_coap_rpc_ser_sync_peers.cpp: who has what, and how old what somebody lacks is. */
#include "coap_svc/rpc/server/sync/coap_rpc_ser_sync_peers.h"

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <set>
#include <vector>

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
  SyncPeer *Comes(uintptr_t number) {
    return SyncPeerComes(host_.Mem(), peers_, Session(number), &records_[number]);
  }
  void Leaves(uintptr_t number) { SyncPeerLeaves(host_.Mem(), peers_, Session(number)); }
  void Confirms(uintptr_t number, uint64_t version) {
    SyncPeerConfirms(peers_, SyncPeerFind(peers_, Session(number)), version);
  }

  void Asks(uintptr_t number) { SyncPeerAsks(peers_, SyncPeerFind(peers_, Session(number))); }

  // TakeTurns lists up to `maxNum` sessions in the order of their turns.
  std::vector<uintptr_t> TakeTurns(size_t maxNum = SIZE_MAX) {
    std::vector<uintptr_t> sessions;
    while (sessions.size() < maxNum) {
      const SyncPeer *peer = SyncPeerTakeTurn(peers_);
      if (!peer) break;
      sessions.push_back(reinterpret_cast<uintptr_t>(peer->session));
    }
    return sessions;
  }

  TestHost host_;
  std::map<uintptr_t, void *> records_;
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

using Numbers = std::vector<uintptr_t>;

TEST_F(SyncPeersTest, Round_IsEverybodysTurnOnce) {
  for (const uintptr_t number : {3u, 1u, 2u}) Comes(number);
  EXPECT_EQ(TakeTurns(), Numbers());
  SyncPeersBeginRound(peers_);
  EXPECT_EQ(TakeTurns(), (Numbers{1, 2, 3}));
  EXPECT_EQ(TakeTurns(), Numbers());
}

TEST_F(SyncPeersTest, Round_BeginsWithThoseWhoAskedLast) {
  for (uintptr_t number = 1; number <= 5; ++number) Comes(number);
  for (const uintptr_t number : {2u, 5u, 4u, 5u}) Asks(number);
  SyncPeersBeginRound(peers_);
  EXPECT_EQ(TakeTurns(), (Numbers{5, 4, 2, 1, 3}));
}

TEST_F(SyncPeersTest, ThoseWhoAskedLast_AreAsManyAsThereIsRoomFor) {
  for (uintptr_t number = 1; number <= 40; ++number) {
    Comes(number);
    Asks(number);
  }
  SyncPeersBeginRound(peers_);
  const Numbers turns = TakeTurns();
  ASSERT_EQ(turns.size(), 40u);
  EXPECT_EQ(turns[0], 40u);
  EXPECT_EQ(turns[31], 9u);
  EXPECT_EQ(turns[32], 1u);
  EXPECT_EQ(turns[39], 8u);
}

TEST_F(SyncPeersTest, RoundsThatFollowFast_ReachEverybody) {
  for (uintptr_t number = 1; number <= 10; ++number) Comes(number);
  Asks(7);
  SyncPeersBeginRound(peers_);
  EXPECT_EQ(TakeTurns(4), (Numbers{7, 1, 2, 3}));
  SyncPeersBeginRound(peers_);
  EXPECT_EQ(TakeTurns(4), (Numbers{7, 4, 5, 6}));
  SyncPeersBeginRound(peers_);
  EXPECT_EQ(TakeTurns(4), (Numbers{7, 8, 9, 10}));
}

TEST_F(SyncPeersTest, Newcomer_IsNotDue) {
  Comes(1);
  SyncPeersBeginRound(peers_);
  Comes(2);
  EXPECT_EQ(TakeTurns(), (Numbers{1}));
}

TEST_F(SyncPeersTest, WhoLeaves_HasNoTurn) {
  for (uintptr_t number = 1; number <= 5; ++number) Comes(number);
  Asks(5);
  SyncPeersBeginRound(peers_);
  EXPECT_EQ(TakeTurns(2), (Numbers{5, 1}));
  for (const uintptr_t number : {5u, 2u, 4u}) Leaves(number);
  EXPECT_EQ(TakeTurns(), (Numbers{3}));
  SyncPeersBeginRound(peers_);
  EXPECT_EQ(TakeTurns().size(), 2u);
}

TEST_F(SyncPeersTest, Record_IsThatOfTheOnlyRegistration) {
  void *records[2] = {};
  const SyncPeer *peer = SyncPeerComes(host_.Mem(), peers_, Session(1), &records[0]);
  EXPECT_EQ(peer->record, &records[0]);
  EXPECT_EQ(records[0], peer);
  SyncPeerComes(host_.Mem(), peers_, Session(1), &records[1]);
  EXPECT_EQ(peer->record, nullptr);
  EXPECT_EQ(records[0], nullptr);
  EXPECT_EQ(records[1], nullptr);
}

TEST_F(SyncPeersTest, RecordAndPeer_ForgetEachOther) {
  void *records[2] = {};
  SyncPeer *peer = SyncPeerComes(host_.Mem(), peers_, Session(1), &records[0]);
  coap_rpc::SyncRecordGoes(&records[0]);
  EXPECT_EQ(peer->record, nullptr);
  SyncPeerComes(host_.Mem(), peers_, Session(2), &records[1]);
  Leaves(2);
  EXPECT_EQ(records[1], nullptr);
  coap_rpc::SyncRecordGoes(&records[1]);
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
  std::set<uintptr_t> due;
  uint64_t version = 0;
  for (int step = 0; step < 20'000; ++step) {
    const uintptr_t number = 1 + random() % 20;
    const auto dice = random() % 13;
    if (dice >= 12) {
      SyncPeersBeginRound(peers_);
      for (const auto &[session, confirmed] : model) due.insert(session);
    } else if (dice >= 10) {
      for (const uintptr_t session : TakeTurns(random() % 8)) {
        ASSERT_EQ(due.erase(session), 1u) << step;
      }
    } else if (dice < 2) {
      if (model.try_emplace(number, 0).second) Comes(number);
    } else if (dice < 3) {
      model.erase(number);
      due.erase(number);
      Leaves(number);
    } else if (model.count(number) != 0) {
      version += random() % 2;
      model[number] = version;
      Asks(number);
      Confirms(number, version);
    }
    ASSERT_EQ(peers_.numDue, due.size()) << step;
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
