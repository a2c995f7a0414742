/* wire_sync_state.cpp: what the application hears of its observers: confirmations, state, peers. */
#include "confirming_server.h"
#include "fd_host.h"

namespace coap_rpc_test {
namespace {

class SyncStateWire : public ConfirmingServer {
 protected:
  CoapRpcSerSyncState State() {
    CoapRpcSerSyncState state = {};
    EXPECT_EQ(COAP_RpcSerGetSyncState(Ctx(), &key_, &state), 0u);
    return state;
  }

  using Peers = std::vector<CoapRpcSyncPeer>;
  Peers VisitPeers() {
    Peers peers;
    const auto visit = [](uint64_t userData, const CoapRpcSyncPeer *peer) {
      reinterpret_cast<Peers *>(userData)->push_back(*peer);
    };
    EXPECT_EQ(COAP_RpcSerVisitSyncPeers(Ctx(), &key_, visit, reinterpret_cast<uint64_t>(&peers)),
              0u);
    return peers;
  }
};

TEST_F(SyncStateWire, BadArguments_GiveCodes) {
  ServeObs(COAP_RPC_CON);
  CoapRpcSerSyncState state;
  EXPECT_EQ(COAP_RpcSerGetSyncState(nullptr, &key_, &state), 1900001531u);
  EXPECT_EQ(COAP_RpcSerGetSyncState(Ctx(), nullptr, &state), 1900001531u);
  EXPECT_EQ(COAP_RpcSerGetSyncState(Ctx(), &key_, nullptr), 1900001531u);
  EXPECT_EQ(COAP_RpcSerGetSyncState(Ctx(), &key_, &state), 1900001532u);
  const auto visit = [](uint64_t, const CoapRpcSyncPeer *) {};
  EXPECT_EQ(COAP_RpcSerVisitSyncPeers(nullptr, &key_, visit, 0), 1900001541u);
  EXPECT_EQ(COAP_RpcSerVisitSyncPeers(Ctx(), nullptr, visit, 0), 1900001541u);
  EXPECT_EQ(COAP_RpcSerVisitSyncPeers(Ctx(), &key_, nullptr, 0), 1900001541u);
  EXPECT_EQ(COAP_RpcSerVisitSyncPeers(Ctx(), &key_, visit, 0), 1900001542u);
  const auto visitTuple = [](uint64_t, const void *, const void *) { return 0u; };
  EXPECT_EQ(COAP_RpcSerVisitTuples(nullptr, &key_, visitTuple, 0), 1900001721u);
  EXPECT_EQ(COAP_RpcSerVisitTuples(Ctx(), nullptr, visitTuple, 0), 1900001721u);
  EXPECT_EQ(COAP_RpcSerVisitTuples(Ctx(), &key_, nullptr, 0), 1900001721u);
  EXPECT_EQ(COAP_RpcSerVisitTuples(Ctx(), &key_, visitTuple, 0), 1900001722u);
}

TEST_F(SyncStateWire, Tuples_AreShownInOrder_UntilOneIsEnough) {
  ServeSynced();
  for (const char *key : {"k3", "k1", "k2"})
    Update(std::string(key) + "..", "v0" + std::string(key));
  struct Seen {
    size_t numEnough;
    std::vector<std::string> tuples = {};
  };
  const auto visit = [](uint64_t userData, const void *key, const void *val) -> uint32_t {
    auto &seen = *reinterpret_cast<Seen *>(userData);
    seen.tuples.push_back(std::string(static_cast<const char *>(key), 4) +
                          std::string(static_cast<const char *>(val), 4));
    return seen.tuples.size() == seen.numEnough;
  };
  const std::vector<std::string> all = {"k1..v0k1", "k2..v0k2", "k3..v0k3"};
  Seen two{2}, more{4};
  EXPECT_EQ(COAP_RpcSerVisitTuples(Ctx(), &key_, visit, reinterpret_cast<uint64_t>(&two)), 0u);
  EXPECT_EQ(two.tuples, std::vector(all.begin(), all.begin() + 2));
  EXPECT_EQ(COAP_RpcSerVisitTuples(Ctx(), &key_, visit, reinterpret_cast<uint64_t>(&more)), 0u);
  EXPECT_EQ(more.tuples, all);
}

TEST_F(SyncStateWire, Confirmed_IsWhatTheSlowestHas) {
  ServeSynced(Confirming());
  Ask(peer_, Registering());
  Ask(other_, Registering());
  for (const char *key : {"k001", "k002", "k003"}) Update(key, "v001");
  PullSince(peer_, 3);
  EXPECT_EQ(confirmed_, std::vector<uint64_t>());
  PullSince(other_, 2);
  EXPECT_EQ(confirmed_, (std::vector<uint64_t>{2}));
  PullSince(other_, 1);  // late
  PullSince(other_, 3);
  EXPECT_EQ(confirmed_, (std::vector<uint64_t>{2, 3}));
}

TEST_F(SyncStateWire, WhatConfirmsNothing) {
  ServeSynced(Confirming());
  Ask(peer_, Registering());
  Update("k001", "v001");
  Pull(peer_, {kIdArg, "since=1", "full=1"});
  Pull(peer_, {"id=77", "since=1"});
  PullSince(peer_, 2);
  PullSince(other_, 1);  // observes nothing
  EXPECT_EQ(State().confirmed, 0u);
  EXPECT_EQ(confirmed_, std::vector<uint64_t>());
}

TEST_F(SyncStateWire, SlowestThatExpires_HoldsNobodyBack) {
  ServeSynced(Confirming());
  Ask(peer_, Registering());
  Ask(other_, Registering());
  Update("k001", "v001");
  PullSince(other_, 1);
  host_.AdvanceMs(900);
  PullSince(other_, 1);
  EXPECT_EQ(confirmed_, std::vector<uint64_t>());
  host_.AdvanceMs(500);
  EXPECT_EQ(confirmed_, (std::vector<uint64_t>{1}));
}

// The slowest expires outside the I/O, where what is given up is freed at once.
TEST_F(SyncStateWire, SlowestThatExpires_AndTheUriIsDetached) {
  ServeSynced(Confirming());
  onConfirmed_ = [this] { COAP_RpcSerUnsetUri(Ctx(), &key_); };
  Ask(peer_, Registering({0x01}));
  Ask(peer_, Registering({0x02}).AddText(kOptUriHost, "other"));
  Ask(other_, Registering());
  Update("k001", "v001");
  host_.AdvanceMs(900);
  PullSince(other_, 1);
  host_.AdvanceMs(500);
  EXPECT_EQ(confirmed_, (std::vector<uint64_t>{1}));
  EXPECT_EQ(entry_->sync->peers.num, 0u);
}

// Others may be set as often as the application likes.
TEST_F(SyncStateWire, ParametersSetAgain_LetLeasesEnd) {
  CoapRpcSerSyncParam param = {};
  param.leaseMs = 1'000'000;
  ServeSynced(param);
  Ask(peer_, Registering());
  param.leaseMs = 1000;
  for (int i = 0; i < 14; ++i) {
    EXPECT_EQ(entry_->sync->peers.num, i < 12 ? 1u : 0u) << i;
    SetSync(param);
    host_.AdvanceMs(100);
    if (i == 11) host_.AdvanceMs(100);
  }
}

TEST_F(SyncStateWire, LeasesWithoutATimer_BeginWithTheNextQuestion) {
  ServeSynced(Confirming());
  host_.Timers().Failures().FailFrom(1);
  Ask(peer_, Registering());
  host_.Timers().Failures().Clear();
  EXPECT_EQ(entry_->sync->leaseTimer, 0u);
  PullSince(peer_, 0);
  host_.AdvanceMs(1400);
  EXPECT_EQ(entry_->sync->peers.num, 0u);
}

// A handler may run the host's timers; leases do not end while a request is being served.
TEST_F(SyncStateWire, LeasesThatEndInsideTheIo_EndAfterIt) {
  ServeSynced(Confirming());
  onConfirmed_ = [this] {
    host_.AdvanceMs(2000);
    EXPECT_EQ(entry_->sync->peers.num, 1u);
  };
  Ask(peer_, Registering());
  Update("k001", "v001");
  peer_.Send(Reading(CoapType::kCon, {"_sync=1", kIdArg, "since=1"}));
  COAP_RpcProcIo(Ctx());  // by the descriptor: a timer would not run others
  EXPECT_EQ(confirmed_, (std::vector<uint64_t>{1}));
  host_.AdvanceMs(2000);
  EXPECT_EQ(entry_->sync->peers.num, 0u);
}

TEST_F(SyncStateWire, SlowestThatLeaves_HoldsNobodyBack) {
  CoapRpcSerSyncParam param = Confirming();
  param.leaseMs = 0;
  ServeSynced(param);
  Ask(peer_, Registering());
  Ask(other_, Registering());
  Update("k001", "v001");
  PullSince(other_, 1);
  EXPECT_EQ(confirmed_, std::vector<uint64_t>());
  CoapMessage cancel = Request(CoapType::kCon, kCodeGet, ++mid_, {0x5D}).AddPath("obs");
  Ask(peer_, cancel.AddUint(kOptObserve, 1).AddText(kOptUriQuery, "_sync=1"));
  EXPECT_EQ(confirmed_, (std::vector<uint64_t>{1}));
}

// Its session ends outside the I/O, when the other URI leaves the address.
TEST_F(SyncStateWire, SlowestAtAnAddressThatIsClosed_HoldsNobodyBack) {
  ServeSynced(Confirming());
  const CoapRpcUriKey beside = KeyOf("beside", COAP_RPC_CON, 0);
  const CoapRpcSerVtblReg reg = RegOf(&app_, 0);
  CoapRpcSerListenAddr addr = {};
  addr.listenAddr.family = COAP_RPC_IPV4;
  addr.listenAddr.addr.ipv4 = OwnIpv4(Role::kServer);
  addr.port = kCoapPort + 1;
  ASSERT_EQ(COAP_RpcSerRegVtbl(Ctx(), &beside, &reg, nullptr), 0u);
  ASSERT_EQ(COAP_RpcSerSetUri(Ctx(), &beside, &addr), 0u);
  other_.SetRemote({Address().host, kCoapPort + 1});
  Ask(other_, Registering());
  Ask(peer_, Registering());
  Update("k001", "v001");
  PullSince(peer_, 1);
  EXPECT_EQ(confirmed_, std::vector<uint64_t>());
  EXPECT_EQ(COAP_RpcSerUnsetUri(Ctx(), &beside), 0u);
  host_.AdvanceMs(1);
  EXPECT_EQ(confirmed_, (std::vector<uint64_t>{1}));
}

// The first registration ends when the other one takes its place.
TEST_F(SyncStateWire, SlowestThatRegistersAgain_HoldsTheOthersBack) {
  ServeSynced(Confirming());
  Ask(peer_, Registering({1}));
  Ask(other_, Registering());
  for (const char *key : {"k001", "k002", "k003"}) Update(key, "v001");
  PullSince(peer_, 1);
  PullSince(other_, 3);
  Ask(peer_, Registering({2}));
  EXPECT_EQ(confirmed_, (std::vector<uint64_t>{1}));
  PullSince(peer_, 2);
  EXPECT_EQ(confirmed_, (std::vector<uint64_t>{1, 2}));
}

// libcoap removes the observers one by one, the slowest first.
TEST_F(SyncStateWire, UriThatIsDetached_ConfirmsNothing) {
  Serve(KeyOf("beside", COAP_RPC_CON, 0), RegOf(&app_, 0));  // keeps the sessions
  ServeSynced(Confirming());
  Ask(other_, Registering());
  Ask(peer_, Registering());
  Update("k001", "v001");
  PullSince(other_, 1);
  EXPECT_EQ(COAP_RpcSerUnsetUri(Ctx(), &key_), 0u);
  host_.AdvanceMs(100);
  EXPECT_EQ(confirmed_, std::vector<uint64_t>());
}

TEST_F(SyncStateWire, State_TellsWhereTheSetIs) {
  ServeSynced();
  for (const char *key : {"k001", "k002", "k003"}) Update(key, "v001");
  Delete("k001");
  CoapRpcSerSyncState state = State();
  EXPECT_EQ(state.replid, kReplid);
  EXPECT_EQ(state.head, 4u);
  EXPECT_EQ(state.floor, 0u);
  EXPECT_EQ(state.digest, Set().digest);
  EXPECT_EQ(state.numLive, 2u);
  EXPECT_EQ(state.numTombstones, 1u);
  EXPECT_EQ(state.numObservers, 0u);
  EXPECT_EQ(state.unconfirmedMs, 0u);
  const uint64_t bytes = state.bytes;
  Update("k004", "v001");
  EXPECT_EQ(State().bytes - bytes, 24u + 32 + 8);
}

TEST_F(SyncStateWire, State_TellsWhatIsUnconfirmedForHowLong) {
  ServeSynced();
  Update("k001", "v001");
  Ask(peer_, Registering());
  host_.AdvanceMs(1000);
  EXPECT_GE(State().unconfirmedMs, 1000u);  // since it registered
  EXPECT_LE(State().unconfirmedMs, 1500u);
  PullSince(peer_, 1);
  EXPECT_EQ(State().unconfirmedMs, 0u);
  EXPECT_EQ(State().numBehind, 0u);
  Update("k002", "v001");
  host_.AdvanceMs(2000);
  Update("k003", "v001");
  EXPECT_EQ(State().unconfirmedMs, 2000u);
  EXPECT_EQ(State().numBehind, 1u);
  PullSince(peer_, 2);
  EXPECT_LE(State().unconfirmedMs, 500u);
  EXPECT_EQ(State().confirmed, 2u);
}

// What those before have not confirmed is not held against who comes later; another registration
// of one who is there forgets nothing.
TEST_F(SyncStateWire, UnconfirmedFor_CountsFromTheFirstWhoIsThere) {
  ServeSynced(Confirming());
  Ask(peer_, Registering());
  for (const char *key : {"k001", "k002"}) {
    Update(key, "v001");
    host_.AdvanceMs(200);
  }
  host_.AdvanceMs(5000);
  ASSERT_EQ(State().numObservers, 0u);
  Ask(other_, Registering());
  EXPECT_LE(State().unconfirmedMs, 500u);
  host_.AdvanceMs(1000);
  Ask(other_, Registering({0x5E}).AddText(kOptUriHost, "other"));
  EXPECT_EQ(State().numObservers, 1u);
  EXPECT_GE(State().unconfirmedMs, 1000u);
}

TEST_F(SyncStateWire, Peers_AreShown) {
  ServeSynced(Confirming());
  EXPECT_TRUE(VisitPeers().empty());
  Ask(peer_, Registering());
  Update("k001", "v001");
  PullSince(peer_, 1);
  host_.AdvanceMs(600);
  const Peers peers = VisitPeers();
  ASSERT_EQ(peers.size(), 1u);
  EXPECT_EQ(peers[0].addr.family, COAP_RPC_IPV4);
  EXPECT_EQ(peers[0].addr.addr.ipv4, kLoopback);
  EXPECT_EQ(peers[0].port, peer_.Local().port);
  EXPECT_EQ(peers[0].confirmed, 1u);
  EXPECT_EQ(peers[0].silentMs, 500u);
}

TEST_F(SyncStateWire, DisplayCommand_ShowsEachSet) {
  ServeSynced();
  Update("k001", "v001");
  Set().digest = 0xABC;
  Ask(peer_, Registering());
  const std::vector<std::string> lines = host_.RunCommand("disp server sync");
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0],
            "server sync[  0]: uri(obs)/replid(0102030405060708)/head(1)/floor(0)/"
            "digest(0000000000000abc)/confirmed(0)/unconfirmedMs(" +
                std::to_string(State().unconfirmedMs) +
                ")/live(1)/tombstones(0)/observers(1)/behind(1)/bytes(" +
                std::to_string(State().bytes) + ")\n");
  EXPECT_EQ(lines[1], " ***total 1 server sync(s) ***\n");
}

// A host that serves the descriptor and nothing else.
TEST_F(SyncStateWire, Descriptor_WakesForARound) {
  ServeSynced({}, COAP_RPC_NON);
  FdHost fd(Ctx());
  peer_.Send(Registering());
  fd.Serve();
  ASSERT_TRUE(peer_.ReceiveNow());
  for (int i = 0; i < 3; ++i) {
    const uint64_t before = FdHost::NowMs();
    Update("k001", "v" + std::to_string(100 + i));
    fd.Serve();
    EXPECT_EQ(FdHost::NowMs(), before);
    EXPECT_TRUE(peer_.ReceiveNow()) << i;
  }
  EXPECT_FALSE(peer_.ReceiveNow());
  EXPECT_FALSE(fd.IsReadable());
}

}  // namespace
}  // namespace coap_rpc_test
