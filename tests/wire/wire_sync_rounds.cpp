/* wire_sync_rounds.cpp: a round that is told to many observers, in portions. */
#include <memory>
#include <vector>

#include "fd_host.h"
#include "sync_server.h"

namespace coap_rpc_test {
namespace {

constexpr size_t kPortion = 64;
constexpr uint32_t kAtHead = 1, kNotification = 4;

class SyncRounds : public SyncServer {
 protected:
  RawPeer &NewPeer() {
    peers_.push_back(std::make_unique<RawPeer>());
    peers_.back()->SetRemote(Address());
    return *peers_.back();
  }
  void AddReaders(size_t num) {
    for (size_t i = 0; i < num; ++i) Ask(NewPeer(), Registering());
  }
  void Turn() { COAP_RpcProcIo(Ctx()); }

  // NumTold says how many of the readers have got something since it was called last.
  size_t NumTold() {
    size_t num = 0;
    for (const auto &peer : peers_) {
      if (peer->ReceiveNow()) ++num;
    }
    return num;
  }

  std::vector<std::unique_ptr<RawPeer>> peers_;
};

TEST_F(SyncRounds, EachTurn_TellsAPortion) {
  ServeSynced();
  AddReaders(3 * kPortion + 8);
  Turn();
  Update("k001", "v001");
  for (const size_t num : {kPortion, kPortion, kPortion, size_t{8}, size_t{0}}) {
    Turn();
    EXPECT_EQ(NumTold(), num);
  }
}

// A turn that finds a datagram looks for more, and tells a portion each time.
TEST_F(SyncRounds, OthersAreServed_BetweenPortions) {
  ServeSynced();
  AddReaders(8 * kPortion);
  Turn();
  Update("k001", "v001");
  Turn();
  peer_.Send(Reading(CoapType::kNon, {"_sync=1", kIdArg, "since=1"}));
  Turn();
  EXPECT_TRUE(peer_.ReceiveNow());
  EXPECT_LT(NumTold(), 8 * kPortion);
}

// Those who registered later are as good as dead: they ask nothing.
TEST_F(SyncRounds, WhoAskedLast_IsToldFirst) {
  ServeSynced();
  Ask(peer_, Registering());
  AddReaders(3 * kPortion);
  PullSince(peer_, 0);
  Turn();
  for (int i = 0; i < 3; ++i) {  // the last two while others have not been told of the one before
    Update("k001", "v" + std::to_string(100 + i));
    Turn();
    EXPECT_TRUE(peer_.ReceiveNow()) << i;
  }
}

TEST_F(SyncRounds, ChangesInEachTurn_StillReachEverybody) {
  ServeSynced();
  AddReaders(4 * kPortion);
  Turn();
  std::vector<size_t> numTold(peers_.size());
  for (int turn = 0; turn < 8; ++turn) {  // half of each portion are those who asked last
    Update("k001", "v" + std::to_string(100 + turn));
    Turn();
    for (size_t i = 0; i < peers_.size(); ++i) numTold[i] += peers_[i]->ReceiveNow() ? 1 : 0;
  }
  for (size_t i = 0; i < numTold.size(); ++i) EXPECT_GE(numTold[i], 1u) << i;
}

TEST_F(SyncRounds, OfTwoUris_NoneWaitsForAllObserversOfTheOther) {
  ServeSynced();
  const CoapRpcUriKey first = key_;
  AddReaders(3 * kPortion);
  key_ = KeyOf("second", COAP_RPC_CON, 1);
  const CoapRpcSerObVtblReg ob = ObRegOf(true);
  Serve(key_, RegOf(&app_, 0, COAP_RPC_JSON), &ob);
  SetSync({});
  CoapMessage get = Request(CoapType::kCon, kCodeGet, ++mid_, {0x5E}).AddPath("second");
  Ask(peer_, get.AddUint(kOptObserve, 0).AddText(kOptUriQuery, "_sync=1"));
  Turn();
  for (const CoapRpcUriKey &key : {first, key_}) {
    COAP_RpcSerObserveDataUpdate(Ctx(), &key, "k001", "v001");
  }
  Turn();
  Turn();
  EXPECT_TRUE(peer_.ReceiveNow());
  EXPECT_LT(NumTold(), 3 * kPortion);
}

// All of them get the page of the latest change, whichever round's turn it was.
TEST_F(SyncRounds, ChangeWhileARoundIsTold_IsInTheRestOfIt) {
  ServeSynced();
  AddReaders(2 * kPortion);
  Turn();
  Update("k001", "v001");
  Turn();
  NumTold();
  Update("k002", "v001");
  const std::string both = UpdateHex(1, "k001", "v001") + " " + UpdateHex(1, "k002", "v001");
  size_t num = 0;
  for (int turn = 0; turn < 3; ++turn) {
    Turn();
    for (const auto &peer : peers_) {
      const auto notification = peer->ReceiveNow();
      if (!notification) continue;
      ++num;
      EXPECT_EQ(PayloadHex(*notification), Page(kAtHead | kNotification, 0, 2, both, 2));
    }
  }
  EXPECT_EQ(num, peers_.size());
}

TEST_F(SyncRounds, AHostThatPolls_TellsAllPortionsAtOnce) {
  ServeSynced();
  AddReaders(2 * kPortion + 8);
  Tick();
  Update("k001", "v001");
  host_.AdvanceMs(1);
  EXPECT_EQ(NumTold(), 2 * kPortion + 8);
}

TEST_F(SyncRounds, AHostThatServesTheDescriptor_IsWokenForEachPortion) {
  ServeSynced();
  FdHost fd(Ctx());
  for (size_t i = 0; i < 2 * kPortion + 8; ++i) {
    NewPeer().Send(Registering());
    fd.Serve();
  }
  EXPECT_EQ(NumTold(), 2 * kPortion + 8);
  Update("k001", "v001");
  fd.Serve();
  EXPECT_EQ(NumTold(), 2 * kPortion + 8);
}

TEST_F(SyncRounds, WhoLeavesWhileOthersAreTold_IsNotTold) {
  ServeSynced();
  AddReaders(2 * kPortion);
  Turn();
  Update("k001", "v001");
  Turn();
  const size_t numTold = NumTold();
  CoapMessage cancel = Request(CoapType::kNon, kCodeGet, ++mid_, {0x5D}).AddPath("obs");
  cancel.AddUint(kOptObserve, 1).AddText(kOptUriQuery, "_sync=1");
  for (const auto &peer : peers_) peer->Send(cancel);
  for (int turn = 0; turn < 10; ++turn) Turn();
  EXPECT_EQ(entry_->sync->peers.num, 0u);
  EXPECT_EQ(numTold, kPortion);
  Update("k002", "v001");
  Ask(peer_, Registering());
  Update("k003", "v001");
  Turn();
  EXPECT_TRUE(peer_.ReceiveNow());
}

TEST_F(SyncRounds, DetachWhileOthersAreTold) {
  ServeSynced();
  AddReaders(2 * kPortion);
  Turn();
  Update("k001", "v001");
  Turn();
  ASSERT_EQ(COAP_RpcSerUnsetUri(Ctx(), &key_), 0u);
  NumTold();
  Turn();
  Turn();
  EXPECT_EQ(entry_->sync->peers.num, 0u);
}

// libcoap frees the observers of an address whose URI has moved; the entry is not found then.
TEST_F(SyncRounds, MoveWhileOthersAreTold) {
  key_ = KeyOf("obs", COAP_RPC_CON, 1, COAP_RPC_UNICAST);
  const CoapRpcSerObVtblReg ob = ObRegOf(true);
  entry_ = Serve(key_, RegOf(&app_, 0, COAP_RPC_JSON), &ob);
  SetSync({});
  AddReaders(2 * kPortion);
  Turn();
  Update("k001", "v001");
  Turn();
  CoapRpcSerListenAddr elsewhere = {};
  elsewhere.listenAddr.family = COAP_RPC_IPV4;
  elsewhere.listenAddr.addr.ipv4 = kLoopback + 1;
  elsewhere.port = Address().port;
  ASSERT_EQ(entry_->sync->peers.num, 2 * kPortion);
  ASSERT_EQ(COAP_RpcSerSetUri(Ctx(), &key_, &elsewhere), 0u);
  for (int i = 0; i < 4; ++i) {
    Update("k002", "v" + std::to_string(100 + i));
    Turn();
    Tick();
  }
  host_.AdvanceMs(400'000);
  EXPECT_EQ(entry_->sync->peers.num, 0u);
}

TEST_F(SyncRounds, UninitWhileOthersAreTold) {
  ServeSynced();
  AddReaders(2 * kPortion);
  Turn();
  Update("k001", "v001");
  Turn();
  instance_->Stop();
}

}  // namespace
}  // namespace coap_rpc_test
