// What an application does in onConfirmed, and what peers ask for at the edges.
#include <climits>

#include "coap_svc/rpc/coap_rpc_ext.h"
#include "confirming_server.h"

namespace coap_rpc_test {
namespace {

class SyncAttack : public ConfirmingServer {
 protected:
  void Detach() { ASSERT_EQ(COAP_RpcSerUnsetUri(Ctx(), &key_), 0u); }

  // ServeUnicast makes the URI one that only requests to its own address reach.
  void ServeUnicast(uint32_t msgType) {
    key_ = KeyOf("obs", msgType, 1, COAP_RPC_UNICAST);
    const CoapRpcSerObVtblReg ob = ObRegOf(true);
    entry_ = Serve(key_, RegOf(&app_, 0, COAP_RPC_JSON), &ob);
    SetSync(Confirming());
    Set().replid = kReplid;
  }
};

TEST_F(SyncAttack, ConfirmedByALease_DetachesTheUri) {
  ServeSynced(Confirming());
  onConfirmed_ = [&] { Detach(); };
  Ask(peer_, Registering());
  Ask(other_, Registering());
  OutliveTheLeaseOfPeer();
  EXPECT_EQ(confirmed_.size(), 1u);
}

TEST_F(SyncAttack, ConfirmedByALease_TwoRegistrationsOfOne_DetachesTheUri) {
  ServeSynced(Confirming());
  onConfirmed_ = [&] { Detach(); };
  Ask(peer_, Registering({1}));
  Ask(peer_, Registering({2}).AddText(kOptUriHost, "x"));
  Ask(other_, Registering());
  OutliveTheLeaseOfPeer();
  EXPECT_EQ(confirmed_.size(), 1u);
}

TEST_F(SyncAttack, ConfirmedByALease_RunsTheIo) {
  ServeSynced(Confirming());
  onConfirmed_ = [&] {
    Update("k002", "v001");
    COAP_RpcProcIo(Ctx());
  };
  Ask(peer_, Registering());
  Ask(other_, Registering());
  OutliveTheLeaseOfPeer();
  EXPECT_EQ(confirmed_.size(), 1u);
}

TEST_F(SyncAttack, ConfirmedByACancel_DetachesTheUri) {
  ServeSynced(Confirming());
  onConfirmed_ = [&] { Detach(); };
  Ask(peer_, Registering());
  Ask(other_, Registering());
  Update("k001", "v001");
  PullSince(other_, 1);
  Ask(peer_, Request(CoapType::kCon, kCodeGet, ++mid_, {0x5D})
                 .AddPath("obs")
                 .AddUint(kOptObserve, 1)
                 .AddText(kOptUriQuery, "_sync=1")
                 .AddText(kOptUriQuery, kIdArg));
  EXPECT_EQ(confirmed_.size(), 1u);
}

// Its entry is not found by their requests any more when libcoap frees the observers.  Another URI
// keeps their sessions, so that who comes again is known from before.
TEST_F(SyncAttack, UnicastUriThatIsDetached_ForgetsItsObservers) {
  Serve(KeyOf("beside", COAP_RPC_CON, 0), RegOf(&app_, 0));
  ServeUnicast(COAP_RPC_CON);
  for (int i = 0; i < 6; ++i) {
    Ask(other_, Registering());
    EXPECT_TRUE(Ask(peer_, Registering()).Has(kOptObserve)) << i;
    Ask(peer_, Registering({0x5E}).AddText(kOptUriHost, "other"));
    ASSERT_EQ(entry_->sync->peers.num, 2u);
    Detach();
    EXPECT_EQ(entry_->sync->peers.num, 0u) << i;
    EXPECT_EQ(Ctx()->lib->numSyncObservers, 0u) << i;
    Serve(key_, RegOf(&app_, 0));
    while (peer_.ReceiveNow() || other_.ReceiveNow()) {
    }
  }
}

// Two entries of the path know the session; the one that has counted a registration forgets it.
TEST_F(SyncAttack, OfTwoEntriesOfAPath_EachForgetsItsOwn) {
  ServeUnicast(COAP_RPC_CON);
  CoapRpcSerUriVtbl *con = entry_;
  ServeUnicast(COAP_RPC_NON);
  Ask(peer_, Registering({0x01}));
  CoapMessage get = Request(CoapType::kNon, kCodeGet, ++mid_, {0x02}).AddPath("obs");
  get.AddText(kOptUriHost, "other");
  Ask(peer_, get.AddUint(kOptObserve, 0).AddText(kOptUriQuery, "_sync=1"));
  EXPECT_EQ(con->sync->peers.num, 1u);
  EXPECT_EQ(entry_->sync->peers.num, 1u);
  CoapMessage cancel = Request(CoapType::kNon, kCodeGet, ++mid_, {0x02}).AddPath("obs");
  Ask(peer_, cancel.AddUint(kOptObserve, 1).AddText(kOptUriQuery, "_sync=1"));
  EXPECT_EQ(con->sync->peers.num, 1u);
  EXPECT_EQ(entry_->sync->peers.num, 0u);
}

// Mirrors ask by NON messages.
TEST_F(SyncAttack, UnicastUri_IsReadByMessagesOfBothTypes) {
  for (const uint32_t msgType : {COAP_RPC_CON, COAP_RPC_NON}) {
    ServeUnicast(msgType);
    Update("k001", "v001");
    const std::string change = UpdateHex(1, "k001", "v001");
    for (const CoapType type : {CoapType::kCon, CoapType::kNon}) {
      const Bytes token = {0x70, static_cast<uint8_t>(type)};
      CoapMessage get = Request(type, kCodeGet, ++mid_, token).AddPath("obs");
      get.AddUint(kOptObserve, 0).AddText(kOptUriQuery, "_sync=1");
      EXPECT_TRUE(Ask(peer_, get).Has(kOptObserve));
      constexpr uint32_t kAtHead = 1;
      EXPECT_EQ(PayloadHex(Pull(peer_, {kIdArg}, type)), Page(kAtHead, 0, 1, change, 1));
    }
    EXPECT_EQ(entry_->sync->peers.num, 1u);
    Detach();
    EXPECT_EQ(entry_->sync->peers.num, 0u);
    while (peer_.ReceiveNow()) {
    }
  }
}

// An application may serve both types and give versions to one of them.
TEST_F(SyncAttack, OfTwoKeysOfAPath_TheOneWithVersionsIsRead) {
  ServeUnicast(COAP_RPC_CON);
  Update("k001", "v001");
  CoapRpcSerUriVtbl *con = entry_;
  const CoapRpcUriKey key = KeyOf("obs", COAP_RPC_NON, 1, COAP_RPC_UNICAST);
  const CoapRpcSerObVtblReg ob = ObRegOf(true);
  CoapRpcSerUriVtbl *non = Serve(key, RegOf(&app_, 0, COAP_RPC_JSON), &ob);
  CoapMessage get = Request(CoapType::kNon, kCodeGet, ++mid_, {0x31}).AddPath("obs");
  get.AddUint(kOptObserve, 0).AddText(kOptUriQuery, "_sync=1");
  EXPECT_TRUE(Ask(peer_, get).Has(kOptObserve));
  constexpr uint32_t kAtHead = 1;
  EXPECT_EQ(PayloadHex(Pull(peer_, {kIdArg}, CoapType::kNon)),
            Page(kAtHead, 0, 1, UpdateHex(1, "k001", "v001"), 1));
  EXPECT_EQ(con->sync->peers.num, 1u);
  EXPECT_EQ(non->observerNum, 0u);
  CoapMessage plain = Request(CoapType::kNon, kCodeGet, ++mid_, {0x32}).AddPath("obs");
  EXPECT_TRUE(Ask(other_, plain.AddUint(kOptObserve, 0)).Has(kOptObserve));
  EXPECT_EQ(non->observerNum, 1u);
}

TEST_F(SyncAttack, UninitWithBodiesUnderWay) {
  key_ = KeyOf("obs", COAP_RPC_CON, 1);
  CoapRpcSerObVtblReg ob = ObRegOf(true);
  ob.valLen = 60'000;
  entry_ = Serve(key_, RegOf(&app_, 0, COAP_RPC_JSON), &ob);
  SetSync({});
  Set().replid = kReplid;
  std::string val(60'000, 'v');
  COAP_RpcSerObserveDataUpdate(Ctx(), &key_, "k001", val.data());
  const CoapMessage answer = PullSince(peer_, 0);
  EXPECT_EQ(answer.code, Code(2, 5));
  Detach();
}

TEST_F(SyncAttack, OddQueries) {
  ServeSynced();
  for (int i = 0; i < 5; ++i) Update("k00" + std::to_string(i), "v001");
  for (const char *since : {"18446744073709551615", "18446744073709551614", "5", "4", "0", "6"}) {
    for (const char *until :
         {"18446744073709551615", "18446744073709551616", "5", "4", "0", "6", "007"}) {
      for (const char *full : {"full=1", "", "full=0", "full"}) {
        std::vector<std::string> args{kIdArg, std::string("since=") + since,
                                      std::string("until=") + until};
        if (*full) args.push_back(full);
        const CoapMessage answer = Pull(peer_, args);
        EXPECT_TRUE(answer.code == Code(2, 5) || answer.code == Code(4, 0));
      }
    }
  }
}

TEST_F(SyncAttack, ReplaceInConfirmed) {
  ServeSynced(Confirming());
  onConfirmed_ = [&] {
    COAP_RpcSerSyncReplace(
        Ctx(), &key_, [](uint64_t, void *, void *) -> uint32_t { return 1; }, 0);
  };
  Ask(peer_, Registering());
  Update("k001", "v001");
  Update("k002", "v001");
  PullSince(peer_, 2);
  EXPECT_EQ(entry_->sync->set.numLive, 0u);
}

// With the headers of IP and UDP, which a forged question pays as well.
size_t WireBytes(const CoapMessage &message) { return 28 + ToBytes(message).size(); }

// Whoever is asked for in another's name gets little: nobody but a reader knows the set's life.
TEST_F(SyncAttack, Stranger_DrawsNoMoreThanThreeTimesWhatItSends) {
  ServeSynced();
  for (int i = 0; i < 300; ++i) Update("k" + std::to_string(100 + i), "v001");
  const std::vector<std::vector<std::string>> queries = {
      {"_sync=1"}, {"_sync=1", "id=1"}, {"_sync=1", "full=1"}, {"_sync=1", "since=-1"}};
  for (const auto &args : queries) {
    for (const uint32_t accept : {kFormatCbor, kFormatJson, uint16_t{0}}) {
      CoapMessage get = Reading(CoapType::kNon, args);
      get.AddUint(kOptAccept, accept);
      EXPECT_LE(WireBytes(Ask(peer_, get)), 3 * WireBytes(get)) << args.back() << " " << accept;
    }
  }
  const CoapMessage get = Registering();
  EXPECT_LE(WireBytes(Ask(peer_, get)), 3 * WireBytes(get));
}

// The places are taken by a thousand who never ask again: the next one is told that it observes
// nothing, reads all the same, and has a place when their leases have ended.
TEST_F(SyncAttack, The1001stReader_ReadsByPulls) {
  CoapRpcSerSyncParam param = {};
  param.leaseMs = 1'000'000;
  ServeSynced(param);
  while (entry_->sync->peers.num < 1000) {
    RawPeer dead;
    dead.SetRemote(Address());
    ASSERT_TRUE(Ask(dead, Registering()).Has(kOptObserve));
  }
  const CoapMessage head = Ask(peer_, Registering());
  EXPECT_FALSE(head.Has(kOptObserve));
  constexpr uint32_t kAtHead = 1, kNotObserving = 16;
  EXPECT_EQ(PayloadHex(head), Page(kAtHead | kNotObserving, 0, 0));
  Update("k001", "v001");
  EXPECT_EQ(PayloadHex(PullSince(peer_, 0)),
            Page(kAtHead | kNotObserving, 0, 1, UpdateHex(1, "k001", "v001"), 1));
  COAP_RpcStopTaskTimer(Ctx());  // a thousand sessions make its ticks slow
  host_.AdvanceMs(1'250'000);
  COAP_RpcStartTaskTimer(Ctx());
  EXPECT_EQ(entry_->sync->peers.num, 0u);
  EXPECT_TRUE(Ask(peer_, Registering()).Has(kOptObserve));
}

TEST_F(SyncAttack, ClockThatJumps_EndsNoLease) {
  ServeSynced(Confirming());
  Ask(peer_, Registering());
  Update("k001", "v001");
  const uint64_t nowMs = host_.Process().NowMs();
  for (const uint64_t jumpMs : {nowMs + 864'000'000, uint64_t{0}, nowMs}) {
    host_.Process().SetNowMs(jumpMs);
    host_.AdvanceMs(500);
    PullSince(peer_, 0);
    EXPECT_EQ(entry_->sync->peers.num, 1u) << jumpMs;
    CoapRpcSerSyncState state = {};
    EXPECT_EQ(COAP_RpcSerGetSyncState(Ctx(), &key_, &state), 0u);
    EXPECT_LE(state.unconfirmedMs, 864'002'000u) << jumpMs;
  }
  host_.AdvanceMs(1300);
  EXPECT_EQ(entry_->sync->peers.num, 0u);
}

// Each has an observer, and all change: nobody is forgotten, and no turn is long.
TEST_F(SyncAttack, ManyUris_AreToldInTurns) {
  constexpr size_t kNumUris = 300, kPortion = 64;
  const CoapRpcSerObVtblReg ob = ObRegOf(true);
  std::vector<CoapRpcUriKey> keys;
  for (size_t i = 0; i < kNumUris; ++i) {
    const std::string uri = "u" + std::to_string(i);
    keys.push_back(KeyOf(uri.c_str(), COAP_RPC_CON, 1));
    Serve(keys.back(), RegOf(&app_, 0), &ob);
    ASSERT_EQ(COAP_RpcSerSetUriSync(Ctx(), &keys.back(), nullptr), 0u);
    const Bytes token = {0x30, static_cast<uint8_t>(i >> 8), static_cast<uint8_t>(i)};
    CoapMessage get = Request(CoapType::kCon, kCodeGet, ++mid_, token).AddPath(uri);
    Ask(peer_, get.AddUint(kOptObserve, 0).AddText(kOptUriQuery, "_sync=1"));
  }
  COAP_RpcProcIo(Ctx());
  for (const CoapRpcUriKey &key : keys) COAP_RpcSerObserveDataUpdate(Ctx(), &key, "k001", "v001");
  size_t num = 0;
  for (size_t turn = 0; turn < 2 * kNumUris && num < kNumUris; ++turn) {
    COAP_RpcProcIo(Ctx());
    size_t numOfTurn = 0;
    while (peer_.ReceiveNow()) ++numOfTurn;
    EXPECT_LE(numOfTurn, kPortion);
    num += numOfTurn;
  }
  EXPECT_EQ(num, kNumUris);
}

// The longest tuple: told without its bytes, and read in blocks.
TEST_F(SyncAttack, TupleOf65000Bytes_IsReadInBlocks) {
  key_ = KeyOf("obs", COAP_RPC_CON, 1);
  CoapRpcSerObVtblReg ob = ObRegOf(true);
  ob.valLen = COAP_RPC_SYNC_MAX_TUPLE - ob.keyLen;
  entry_ = Serve(key_, RegOf(&app_, 0), &ob);
  SetSync({});
  Set().replid = kReplid;
  Ask(peer_, Registering());
  const std::string val(ob.valLen, 'v');
  COAP_RpcSerObserveDataUpdate(Ctx(), &key_, "k001", val.data());
  constexpr uint32_t kAtHead = 1, kNotification = 4;
  EXPECT_EQ(PayloadHex(NextNotification(peer_)), Page(kAtHead | kNotification, 1, 1));
  Bytes body;
  for (bool isMore = true; isMore;) {
    CoapMessage get = Reading(CoapType::kCon, {"_sync=1", kIdArg, "since=0"});
    const auto num = static_cast<uint32_t>(body.size() / 1024);
    const CoapMessage block = Ask(peer_, get.AddBlock(kOptBlock2, {num, false, 6}));
    ASSERT_TRUE(block.Block(kOptBlock2));
    body.insert(body.end(), block.payload.begin(), block.payload.end());
    isMore = block.Block(kOptBlock2)->more;
  }
  const std::string change = "01 44 6b 30 30 31 59 fd e4 " + HexText(BytesOf(val));
  EXPECT_EQ(HexText(body), Page(kAtHead, 0, 1, change, 1));
}

}  // namespace
}  // namespace coap_rpc_test
