/* wire_sync_pages.cpp: readers of versions, by bytes: registration, pulls, and every flag. */
#include <string>
#include <vector>

#include "coap_svc/rpc/coap_rpc_ext.h"
#include "sync_server.h"

namespace coap_rpc_test {
namespace {

constexpr uint32_t kAtHead = 1, kRestart = 2, kNotification = 4, kConfirm = 8, kNotObserving = 16;

class SyncPagesWire : public SyncServer {};

TEST_F(SyncPagesWire, Registration_GetsTheHeadAlone) {
  ServeSynced();
  Update("k001", "v001");
  const CoapMessage answer = Ask(peer_, Registering());
  EXPECT_EQ(answer.type, CoapType::kAck);
  EXPECT_EQ(CodeText(answer.code), "2.05");
  EXPECT_EQ(answer.token, (Bytes{0x5D}));
  EXPECT_TRUE(answer.Has(kOptObserve));
  EXPECT_EQ(answer.Uint(kOptContentFormat), kFormatCbor);
  EXPECT_EQ(answer.options.size(), 2u);
  EXPECT_EQ(PayloadHex(answer), Page(0, 0, 0));
}

TEST_F(SyncPagesWire, Pull_OfOneWhoDoesNotObserve_SaysSo) {
  ServeSynced();
  Update("k001", "v001");
  Update("k002", "v002");
  const CoapMessage answer = PullSince(peer_, 1);
  EXPECT_EQ(CodeText(answer.code), "2.05");
  EXPECT_EQ(answer.Uint(kOptContentFormat), kFormatCbor);
  EXPECT_EQ(answer.options.size(), 1u);
  EXPECT_EQ(PayloadHex(answer),
            Page(kAtHead | kNotObserving, 1, 2, UpdateHex(1, "k002", "v002"), 1));
}

TEST_F(SyncPagesWire, Pull_OfAnObserver_GetsUpdatesAndDeletions) {
  ServeSynced();
  Ask(peer_, Registering());
  Update("k001", "v001");
  Update("k002", "v002");
  Delete("k001");
  NextNotification(peer_);
  const CoapMessage answer = PullSince(peer_, 0);
  EXPECT_EQ(PayloadHex(answer),
            Page(kAtHead, 0, 3, UpdateHex(2, "k002", "v002") + " " + DeletionHex(1, "k001"), 2));
}

TEST_F(SyncPagesWire, Pull_NonConfirmable_IsAnsweredNonConfirmable) {
  ServeSynced();
  const CoapMessage answer = Pull(peer_, {kIdArg}, CoapType::kNon);
  EXPECT_EQ(answer.type, CoapType::kNon);
  EXPECT_EQ(PayloadHex(answer), Page(kAtHead | kNotObserving, 0, 0));
}

TEST_F(SyncPagesWire, Pull_WithoutTheLife_GetsTheHeadAlone) {
  ServeSynced();
  Update("k001", "v001");
  EXPECT_EQ(PayloadHex(Pull(peer_, {})), Page(kNotObserving, 0, 0));
  EXPECT_EQ(PayloadHex(Pull(peer_, {"full=1"})), Page(kNotObserving, 0, 0));
}

TEST_F(SyncPagesWire, Pull_OfAnotherLife_HasToRestart) {
  ServeSynced();
  Update("k001", "v001");
  EXPECT_EQ(PayloadHex(Pull(peer_, {"id=1", "since=1"})), Page(kRestart | kNotObserving, 0, 0));
  EXPECT_EQ(PayloadHex(Pull(peer_, {"id=1", "full=1"})), Page(kRestart | kNotObserving, 0, 0));
}

TEST_F(SyncPagesWire, Restart_IsNeverComplete) {
  ServeSynced();
  EXPECT_EQ(PayloadHex(Pull(peer_, {"id=1"})), Page(kRestart | kNotObserving, 0, 0));
}

TEST_F(SyncPagesWire, Pull_BeyondTheHead_HasToRestart) {
  ServeSynced();
  Update("k001", "v001");
  EXPECT_EQ(PayloadHex(PullSince(peer_, 2)), Page(kRestart | kNotObserving, 0, 0));
  EXPECT_EQ(PayloadHex(PullSince(peer_, UINT64_MAX)), Page(kRestart | kNotObserving, 0, 0));
}

TEST_F(SyncPagesWire, Pull_BelowTheFloor_HasToRestartOrReadEverything) {
  CoapRpcSerSyncParam param = {};
  param.minTombstones = 1;
  ServeSynced(param);
  for (const char *key : {"k001", "k002", "k003"}) Update(key, "v001");
  Delete("k001");
  Delete("k002");
  ASSERT_EQ(Set().floor, 4u);
  EXPECT_EQ(PayloadHex(PullSince(peer_, 3)), Page(kRestart | kNotObserving, 0, 0));
  EXPECT_EQ(PayloadHex(PullSince(peer_, 4)),
            Page(kAtHead | kNotObserving, 4, 5, DeletionHex(1, "k002"), 1));
  EXPECT_EQ(PayloadHex(Pull(peer_, {kIdArg, "since=2", "full=1"})),
            Page(kAtHead | kNotObserving, 2, 5,
                 UpdateHex(1, "k003", "v001") + " " + DeletionHex(2, "k002"), 2));
}

TEST_F(SyncPagesWire, Pull_OfARange_EndsThere) {
  ServeSynced();
  for (const char *key : {"k001", "k002", "k003"}) Update(key, "v001");
  EXPECT_EQ(PayloadHex(Pull(peer_, {kIdArg, "since=1", "until=2"})),
            Page(kNotObserving, 1, 2, UpdateHex(1, "k002", "v001"), 1));
  EXPECT_EQ(PayloadHex(Pull(peer_, {kIdArg, "since=2", "until=99"})),
            Page(kAtHead | kNotObserving, 2, 3, UpdateHex(1, "k003", "v001"), 1));
}

TEST_F(SyncPagesWire, Pulls_PageByPage_GetEverything) {
  CoapRpcSerSyncParam param = {};
  param.pageBytes = 256;
  ServeSynced(param);
  for (int i = 0; i < 50; ++i) Update("k" + std::to_string(100 + i), "v001");
  constexpr uint64_t kPerPage = (256 - 60) / 11;
  for (uint64_t since = 0; since < 50; since += kPerPage) {
    const uint64_t to = std::min<uint64_t>(since + kPerPage, 50);
    std::string changes;
    for (uint64_t i = since; i < to; ++i) {
      if (!changes.empty()) changes += " ";
      changes += UpdateHex(1, "k" + std::to_string(100 + i), "v001");
    }
    const uint32_t flags = to == 50 ? kAtHead | kNotObserving : kNotObserving;
    const CoapMessage answer = PullSince(peer_, since);
    EXPECT_EQ(PayloadHex(answer), Page(flags, since, to, changes, to - since));
    EXPECT_LE(answer.payload.size(), 256u);
    EXPECT_FALSE(answer.Has(kOptBlock2));
  }
}

TEST_F(SyncPagesWire, Json_IsReadable) {
  ServeSynced();
  Update("k001", "v001");
  Set().digest = 0xABC;
  CoapMessage get = Reading(CoapType::kCon, {"_sync=1", kIdArg}).AddUint(kOptAccept, kFormatJson);
  const CoapMessage answer = Ask(peer_, get);
  EXPECT_EQ(CodeText(answer.code), "2.05");
  EXPECT_EQ(answer.Uint(kOptContentFormat), kFormatJson);
  EXPECT_EQ(answer.Text(),
            R"([1,17,"0102030405060708",0,1,1,0,"0000000000000abc",1,"6b303031","76303031"])");
}

TEST_F(SyncPagesWire, OtherFormats_AreNotAcceptable) {
  ServeSynced();
  CoapMessage get = Reading(CoapType::kCon, {"_sync=1"}).AddUint(kOptAccept, 40);
  EXPECT_EQ(CodeText(Ask(peer_, get).code), "4.06");
  const CoapMessage answer = Ask(peer_, Registering().AddUint(kOptAccept, kFormatJson));
  EXPECT_EQ(CodeText(answer.code), "4.06");
  EXPECT_FALSE(answer.Has(kOptObserve));
  EXPECT_EQ(entry_->sync->peers.num, 0u);
}

TEST_F(SyncPagesWire, BadQueries_AreBadRequests) {
  ServeSynced();
  std::vector<std::string> many(300);
  many[0] = "_sync=1";
  const std::vector<std::string> bad[] = {
      {"_sync=2"},
      {"_sync=1", "since=-1"},
      {"_sync=1", "since=18446744073709551616"},
      {"_sync=1", "since=2", "until=1"},
      {"_sync=1", "what=1"},
      many,
  };
  for (const std::vector<std::string> &args : bad) {
    const CoapMessage answer = Ask(peer_, Reading(CoapType::kCon, args));
    EXPECT_EQ(CodeText(answer.code), "4.00") << args.back();
    EXPECT_TRUE(answer.payload.empty());
  }
  const CoapMessage answer = Ask(peer_, Registering().AddText(kOptUriQuery, kIdArg));
  EXPECT_EQ(CodeText(answer.code), "4.00");
  EXPECT_EQ(entry_->sync->peers.num, 0u);
}

TEST_F(SyncPagesWire, UriWithoutVersions_IgnoresTheQuery) {
  ServeObs(COAP_RPC_CON);
  Update("k001", "v001");
  const CoapMessage answer = Ask(peer_, Registering());
  EXPECT_TRUE(answer.Has(kOptObserve));
  EXPECT_FALSE(answer.Has(kOptContentFormat));
  EXPECT_EQ(entry_->observerNum, 1u);
}

TEST_F(SyncPagesWire, LongTuple_HasAPageInBlocks) {
  key_ = KeyOf("obs", COAP_RPC_CON, 1);
  CoapRpcSerObVtblReg ob = ObRegOf(true);
  ob.valLen = 3000;
  entry_ = Serve(key_, RegOf(&app_, 0), &ob);
  SetSync({});
  Set().replid = kReplid;
  Update("k001", std::string(3000, 'v'));
  Update("k002", std::string(3000, 'w'));
  const CoapMessage first = PullSince(peer_, 0);
  EXPECT_EQ(first.Uint(kOptContentFormat), kFormatCbor);
  ASSERT_TRUE(first.Block(kOptBlock2));
  Bytes body = first.payload;
  for (uint32_t num = 1; num < 3; ++num) {
    CoapMessage next = Reading(CoapType::kCon, {"_sync=1", kIdArg, "since=0"});
    const CoapMessage block = Ask(peer_, next.AddBlock(kOptBlock2, {num, false, 6}));
    body.insert(body.end(), block.payload.begin(), block.payload.end());
  }
  const std::string change =
      "01 44 6b 30 30 31 59 0b b8 " + HexText(Bytes(3000, static_cast<uint8_t>('v')));
  EXPECT_EQ(HexText(body), Page(kNotObserving, 0, 1, change, 1));
}

TEST_F(SyncPagesWire, SmallBlocksAskedFor_AreGiven) {
  ServeSynced();
  Update("k001", "v001");
  CoapMessage get =
      Reading(CoapType::kCon, {"_sync=1", kIdArg}).AddBlock(kOptBlock2, {0, false, 0});
  const CoapMessage answer = Ask(peer_, get);
  EXPECT_EQ(answer.payload.size(), 16u);
  EXPECT_EQ(answer.Block(kOptBlock2), (CoapBlock{0, true, 0}));
}

// A page in blocks is held for each query; the number of them is bounded.
TEST_F(SyncPagesWire, PagesInBlocks_AreBounded) {
  ServeSynced();
  for (int i = 0; i < 200; ++i) Update("k" + std::to_string(100 + i), "v001");
  std::vector<uint64_t> bytes;
  for (int i = 0; i < 150; ++i) {
    CoapMessage get = Reading(CoapType::kCon, {"_sync=1", kIdArg, "since=" + std::to_string(i)});
    get.token = {0x20, static_cast<uint8_t>(i)};
    EXPECT_EQ(Ask(peer_, get.AddBlock(kOptBlock2, {0, false, 0})).payload.size(), 16u);
    bytes.push_back(host_.Pool().LiveBytes());
  }
  EXPECT_EQ(Ctx()->lib->numSyncBodies, 64u);
  EXPECT_GT(bytes[63], bytes[0]);
  EXPECT_LE(bytes[149], bytes[63] + 1000);
}

TEST_F(SyncPagesWire, NoMemoryForAPage_IsAskedForAgain) {
  ServeSynced();
  Update("k001", "v001");
  CoapMessage get =
      Reading(CoapType::kCon, {"_sync=1", kIdArg}).AddBlock(kOptBlock2, {0, false, 6});
  host_.Pool().Failures().FailOnce(1);
  EXPECT_EQ(CodeText(Ask(peer_, get).code), "5.03");
  EXPECT_EQ(PayloadHex(PullSince(peer_, 0)),
            Page(kAtHead | kNotObserving, 0, 1, UpdateHex(1, "k001", "v001"), 1));
}

TEST_F(SyncPagesWire, NoMemoryForAnObserver_IsUnavailable) {
  ServeSynced();
  RawPeer plain;
  plain.SetRemote(Address());
  Register(plain, CoapType::kCon, {0x11});
  host_.Pool().Failures().FailOnce(1);
  const CoapMessage answer = Ask(peer_, Registering());
  EXPECT_EQ(CodeText(answer.code), "5.03");
  EXPECT_FALSE(answer.Has(kOptObserve));
  EXPECT_EQ(PayloadHex(Ask(peer_, Registering())), Page(kAtHead, 0, 0));
  EXPECT_EQ(entry_->observerNum, 1u);
}

TEST_F(SyncPagesWire, Notification_IsNonWithTheLatestChanges) {
  ServeSynced();
  Ask(peer_, Registering());
  Update("k001", "v001");
  Update("k002", "v002");
  const CoapMessage first = NextNotification(peer_);
  EXPECT_EQ(first.type, CoapType::kNon);
  EXPECT_EQ(CodeText(first.code), "2.05");
  EXPECT_EQ(first.token, (Bytes{0x5D}));
  EXPECT_EQ(first.Uint(kOptContentFormat), kFormatCbor);
  EXPECT_TRUE(first.Has(kOptObserve));
  EXPECT_EQ(first.options.size(), 2u);
  EXPECT_EQ(PayloadHex(first),
            Page(kAtHead | kNotification, 0, 2,
                 UpdateHex(1, "k001", "v001") + " " + UpdateHex(1, "k002", "v002"), 2));
  Delete("k001");
  EXPECT_EQ(PayloadHex(NextNotification(peer_)),
            Page(kAtHead | kNotification, 0, 3,
                 UpdateHex(2, "k002", "v002") + " " + DeletionHex(1, "k001"), 2));
  ExpectSilence(peer_);
}

TEST_F(SyncPagesWire, Notification_OfMoreThanFits_TellsAlone) {
  ServeSynced();
  Ask(peer_, Registering());
  for (int i = 0; i < 100; ++i) Update("k" + std::to_string(100 + i), "v001");
  EXPECT_EQ(PayloadHex(NextNotification(peer_)), Page(kAtHead | kNotification, 100, 100));
  ExpectSilence(peer_);
}

// What says that it is a block is not longer than one.
TEST_F(SyncPagesWire, Notification_LongerThanTheBlocksAskedFor_HasNoPayload) {
  ServeSynced();
  constexpr uint32_t kSzxOf64 = 2;
  Ask(peer_, Registering().AddBlock(kOptBlock2, {0, false, kSzxOf64}));
  Update("k001", "v001");
  EXPECT_EQ(PayloadHex(NextNotification(peer_)),
            Page(kAtHead | kNotification, 0, 1, UpdateHex(1, "k001", "v001"), 1));
  for (const char *key : {"k002", "k003", "k004"}) Update(key, "v001");
  const CoapMessage notification = NextNotification(peer_);
  EXPECT_EQ(CodeText(notification.code), "2.05");
  EXPECT_EQ(PayloadHex(notification), "");
}

TEST_F(SyncPagesWire, Notification_AsksToConfirm_WhenSomebodyWantsToKnow) {
  CoapRpcSerSyncParam param = {};
  static std::vector<uint64_t> confirmed;
  confirmed.clear();
  param.userData = 7;
  param.onConfirmed = [](uint64_t userData, uint64_t version) {
    EXPECT_EQ(userData, 7u);
    confirmed.push_back(version);
  };
  ServeSynced(param);
  Ask(peer_, Registering());
  Update("k001", "v001");
  EXPECT_EQ(PayloadHex(NextNotification(peer_)),
            Page(kAtHead | kNotification | kConfirm, 0, 1, UpdateHex(1, "k001", "v001"), 1));
  EXPECT_EQ(PayloadHex(PullSince(peer_, 1)), Page(kAtHead, 1, 1));
  EXPECT_EQ(confirmed, (std::vector<uint64_t>{1}));
}

// libcoap would make each sixth notification confirmable, and all of them for such a key.
TEST_F(SyncPagesWire, Notifications_AreNeverConfirmable) {
  for (const uint32_t msgType : {COAP_RPC_CON, COAP_RPC_NON}) {
    if (msgType == COAP_RPC_NON) instance_ = std::make_unique<TestInstance>(host_);
    ServeSynced({}, msgType);
    COAP_RpcRefreshTaskTimer(Ctx());
    RawPeer peer;
    peer.SetRemote(Address());
    Ask(peer, Registering());
    for (int i = 0; i < 12; ++i) {
      Update("k001", "v" + std::to_string(100 + i));
      EXPECT_EQ(NextNotification(peer).type, CoapType::kNon) << i;
    }
    if (msgType == COAP_RPC_CON) instance_.reset();
  }
}

TEST_F(SyncPagesWire, Notifications_AreTheSameBytesForAll) {
  ServeSynced();
  RawPeer other;
  other.SetRemote(Address());
  Ask(peer_, Registering({0x01}));
  Ask(other, Registering({0x02}));
  Update("k001", "v001");
  const CoapMessage first = NextNotification(peer_);
  EXPECT_EQ(NextNotification(other).payload, first.payload);
  EXPECT_EQ(PayloadHex(first),
            Page(kAtHead | kNotification, 0, 1, UpdateHex(1, "k001", "v001"), 1));
}

// Nobody serves the descriptor here: the I/O task alone would take up to a second.
TEST_F(SyncPagesWire, NoWindow_IsPushedAtOnceOnAHostThatPolls) {
  ServeSynced();
  Ask(peer_, Registering());
  Tick();
  const size_t numTimers = host_.Timers().Running().size();
  Update("k001", "v001");
  Update("k002", "v001");
  EXPECT_EQ(host_.Timers().Running().size(), numTimers + 1);
  host_.AdvanceMs(1);
  const auto notification = peer_.ReceiveNow();
  ASSERT_TRUE(notification);
  EXPECT_EQ(PayloadHex(*notification),
            Page(kAtHead | kNotification, 0, 2,
                 UpdateHex(1, "k001", "v001") + " " + UpdateHex(1, "k002", "v001"), 2));
  EXPECT_EQ(host_.Timers().Running().size(), numTimers);
}

TEST_F(SyncPagesWire, NoTimer_IsNeededWhereTheDescriptorIsServed) {
  ServeSynced();
  Ask(peer_, Registering());
  COAP_RpcProcIo(Ctx());
  const size_t numTimers = host_.Timers().Running().size();
  Update("k001", "v001");
  EXPECT_EQ(host_.Timers().Running().size(), numTimers);
  COAP_RpcProcIo(Ctx());
  EXPECT_TRUE(peer_.ReceiveNow());
}

TEST_F(SyncPagesWire, NoTimerToBeHad_IsPushedByTheTask) {
  ServeSynced();
  Ask(peer_, Registering());
  host_.Timers().Failures().FailFrom(1);
  Update("k001", "v001");
  EXPECT_TRUE(Next(peer_));
}

TEST_F(SyncPagesWire, Window_CollectsChanges) {
  CoapRpcSerSyncParam param = {};
  param.windowMs = 500;
  ServeSynced(param);
  Ask(peer_, Registering());
  Update("k001", "v001");
  host_.AdvanceMs(400);
  EXPECT_FALSE(peer_.ReceiveNow());
  Update("k002", "v001");
  const CoapMessage both = NextNotification(peer_);
  EXPECT_EQ(PayloadHex(both),
            Page(kAtHead | kNotification, 0, 2,
                 UpdateHex(1, "k001", "v001") + " " + UpdateHex(1, "k002", "v001"), 2));
  ExpectSilence(peer_);
  Update("k003", "v001");
  EXPECT_TRUE(Next(peer_));
}

// The window of those who have left is not begun again for those who come.
TEST_F(SyncPagesWire, Window_IsOneWhoeverComesAndGoes) {
  CoapRpcSerSyncParam param = {};
  param.windowMs = 5000;
  ServeSynced(param);
  const size_t numTimers = host_.Timers().Running().size();
  Update("k001", "v001");
  EXPECT_EQ(host_.Timers().Running().size(), numTimers);  // nobody is there
  Ask(peer_, Registering());
  Update("k001", "v002");
  EXPECT_EQ(host_.Timers().Running().size(), numTimers + 2);  // with the lease's
  CoapMessage cancel = Request(CoapType::kCon, kCodeGet, ++mid_, {0x5D}).AddPath("obs");
  Ask(peer_, cancel.AddUint(kOptObserve, 1).AddText(kOptUriQuery, "_sync=1"));
  Ask(peer_, Registering());
  Update("k001", "v003");
  EXPECT_EQ(host_.Timers().Running().size(), numTimers + 2);
  host_.AdvanceMs(5000);
  EXPECT_EQ(host_.Timers().Running().size(), numTimers + 1);
}

TEST_F(SyncPagesWire, Cancel_EndsTheRegistration) {
  ServeSynced();
  Ask(peer_, Registering());
  EXPECT_EQ(entry_->sync->peers.num, 1u);
  CoapMessage cancel = Registering();
  cancel.options.clear();
  cancel.AddPath("obs").AddUint(kOptObserve, 1).AddText(kOptUriQuery, "_sync=1");
  const CoapMessage answer = Ask(peer_, cancel);
  EXPECT_FALSE(answer.Has(kOptObserve));
  EXPECT_EQ(PayloadHex(answer), Page(kAtHead | kNotObserving, 0, 0));
  EXPECT_EQ(entry_->sync->peers.num, 0u);
  Update("k001", "v001");
  ExpectSilence(peer_);
}

TEST_F(SyncPagesWire, Reset_EndsTheRegistration) {
  ServeSynced();
  Ask(peer_, Registering());
  Update("k001", "v001");
  peer_.Send(RstOf(NextNotification(peer_)));
  Tick();
  EXPECT_EQ(entry_->sync->peers.num, 0u);
}

// The one for whom a round was due has to wait, as a notification of the change list has not been
// acknowledged, and leaves: the round is for who came meanwhile.
TEST_F(SyncPagesWire, RoundWhoseObserverLeaves_IsForTheNewcomer) {
  ServeSynced();
  RawPeer other;
  other.SetRemote(Address());
  Register(peer_, CoapType::kCon, {0x11});
  Ask(peer_, Registering({0x22}));
  Update("k001", "v001");
  EXPECT_EQ(NextNotification(peer_).token, (Bytes{0x22}));
  ASSERT_EQ(Next(peer_)->token, (Bytes{0x11}));  // is not acknowledged
  Update("k002", "v001");
  Tick();
  EXPECT_FALSE(peer_.ReceiveNow());
  Ask(other, Registering({0x33}));
  CoapMessage cancel = Request(CoapType::kNon, kCodeGet, ++mid_, {0x22}).AddPath("obs");
  Ask(peer_, cancel.AddUint(kOptObserve, 1).AddText(kOptUriQuery, "_sync=1"));
  while (other.Receive(Pump(), kNothingComes)) {
  }
  Update("k003", "v001");
  EXPECT_TRUE(Next(other));
}

TEST_F(SyncPagesWire, FirstObserver_IsNotRemindedOfWhatWasBefore) {
  ServeSynced();
  for (int i = 0; i < 200; ++i) Update("k" + std::to_string(100 + i), "v001");
  Ask(peer_, Registering());
  Update("k100", "v002");
  const std::string page = PayloadHex(NextNotification(peer_));
  EXPECT_TRUE(page.ends_with(UpdateHex(1, "k100", "v002"))) << page;
}

TEST_F(SyncPagesWire, SilentObserver_IsRemoved) {
  CoapRpcSerSyncParam param = {};
  param.leaseMs = 1000;
  ServeSynced(param);
  RawPeer other;
  other.SetRemote(Address());
  Ask(peer_, Registering());
  Ask(other, Registering());
  host_.AdvanceMs(900);
  PullSince(other, 0);
  host_.AdvanceMs(500);
  EXPECT_EQ(entry_->sync->peers.num, 1u);
  Update("k001", "v001");
  EXPECT_TRUE(Next(other));
  EXPECT_FALSE(peer_.ReceiveNow());
  host_.AdvanceMs(2000);
  EXPECT_EQ(entry_->sync->peers.num, 0u);
  Update("k002", "v001");
  ExpectSilence(other);
}

TEST_F(SyncPagesWire, TwoRegistrationsOfOneSession_AreBothNotified) {
  ServeSynced();
  Ask(peer_, Registering({0x01}));
  Ask(peer_, Registering({0x02}).AddText(kOptUriHost, "other"));
  Update("k001", "v001");
  const CoapMessage first = NextNotification(peer_);
  const CoapMessage second = NextNotification(peer_);
  EXPECT_NE(first.token, second.token);
  EXPECT_EQ(first.type, CoapType::kNon);
  EXPECT_EQ(second.type, CoapType::kNon);
  EXPECT_EQ(second.payload, first.payload);
}

// One session that registers with ever other options takes a few places only.
TEST_F(SyncPagesWire, ManyRegistrationsOfOneSession_AreBoundedAndExpire) {
  CoapRpcSerSyncParam param = {};
  param.leaseMs = 1'000'000;
  ServeSynced(param);
  uint32_t numTaken = 0;
  for (uint32_t i = 0; i < 100; ++i) {
    const Bytes number = {0x70, static_cast<uint8_t>(i)};
    const CoapMessage get = Registering(number).AddText(kOptUriHost, std::to_string(i));
    const CoapMessage answer = Ask(peer_, get);
    numTaken += answer.Has(kOptObserve) ? 1 : 0;
    EXPECT_EQ(CodeText(answer.code), answer.Has(kOptObserve) ? "2.05" : "5.03");
  }
  EXPECT_EQ(numTaken, 4u);
  ASSERT_EQ(entry_->sync->peers.num, 1u);
  EXPECT_EQ(SyncPeerFirst(entry_->sync->peers)->numRegistrations, 4u);
  Update("k001", "v001");
  for (uint8_t i = 0; i < 4; ++i) EXPECT_EQ(NextNotification(peer_).token[0], 0x70);
  EXPECT_FALSE(peer_.ReceiveNow());
  host_.AdvanceMs(1'250'000);
  EXPECT_EQ(entry_->sync->peers.num, 0u);
  EXPECT_TRUE(Ask(peer_, Registering()).Has(kOptObserve));
}

}  // namespace
}  // namespace coap_rpc_test
