// Registration, notification and cancellation, message by message.
#include "coap_svc/rpc/libadapter/publish/coap_rpc_lib_observe.h"
#include "observe_server.h"

namespace coap_rpc_test {
namespace {

class ObserveWire : public ObserveServer {};

constexpr char kOneTuple[] = R"({"data":[{"op":"u","key":"k001","val":"v001"}]})";

TEST_F(ObserveWire, ConRegistration_Gets201WithPathAndTheDataFromTheTimer) {
  ServeObs(COAP_RPC_CON);
  Update("k001", "v001");
  EXPECT_TRUE(Pending().empty());  // nobody observes
  const CoapMessage request = Observe(CoapType::kCon, {1, 2});
  const CoapMessage answer = Ask(request);
  EXPECT_EQ(answer.type, CoapType::kAck);
  EXPECT_EQ(answer.messageId, request.messageId);
  EXPECT_EQ(answer.token, (Bytes{1, 2}));
  EXPECT_EQ(answer.code, Code(2, 1));
  EXPECT_TRUE(answer.Has(kOptObserve));
  EXPECT_EQ(answer.Path(), "obs");
  EXPECT_EQ(answer.options.size(), 2u);
  EXPECT_TRUE(answer.payload.empty());
  EXPECT_EQ(app_.observerNums, (std::vector<uint32_t>{1}));

  const CoapMessage notification = NextNotification(peer_);
  EXPECT_EQ(notification.type, CoapType::kCon);
  EXPECT_EQ(notification.token, (Bytes{1, 2}));
  EXPECT_EQ(notification.code, Code(2, 5));
  EXPECT_EQ(notification.Values(kOptEtag), (std::vector<Bytes>{EtagBytes(entry_->etag)}));
  EXPECT_TRUE(notification.Has(kOptObserve));
  EXPECT_EQ(notification.Path(), "obs");
  EXPECT_EQ(notification.Uint(kOptContentFormat), 50u);
  EXPECT_EQ(notification.options.size(), 4u);
  EXPECT_EQ(notification.Text(), kOneTuple);
  EXPECT_TRUE(Pending().empty());
  EXPECT_EQ(entry_->isSendingLargeBlock, 0u);
  ExpectSilence(peer_);
}

// A notification that was under way when the relation was renewed is older than the answer.
TEST_F(ObserveWire, Renewal_HasANumberOfItsOwn) {
  ServeObs(COAP_RPC_CON);
  uint32_t last = Register(peer_, CoapType::kCon, {1}).Uint(kOptObserve).value_or(0);
  for (int i = 0; i < 3; ++i) {
    Update("k001", "v00" + std::to_string(i));
    const uint32_t notified = NextNotification(peer_).Uint(kOptObserve).value_or(0);
    EXPECT_GT(notified, last);
    last = Register(peer_, CoapType::kCon, {1}).Uint(kOptObserve).value_or(0);
    EXPECT_GT(last, notified);
  }
}

TEST_F(ObserveWire, NonRegistration_GetsTheWholeSetAtOnce) {
  ServeObs(COAP_RPC_NON);
  Update("k001", "v001");
  Update("k002", "v002");
  const CoapMessage answer = Register(peer_, CoapType::kNon, {1});
  EXPECT_EQ(answer.type, CoapType::kNon);
  EXPECT_EQ(answer.code, Code(2, 5));
  EXPECT_EQ(
      answer.Text(),
      R"({"data":[{"op":"u","key":"k001","val":"v001"},{"op":"u","key":"k002","val":"v002"}]})");
  ExpectSilence(peer_);
}

TEST_F(ObserveWire, NonRegistrationWithoutTuples_Gets201) {
  ServeObs(COAP_RPC_NON);
  const CoapMessage answer = Register(peer_, CoapType::kNon, {1});
  EXPECT_EQ(answer.code, Code(2, 1));
  EXPECT_EQ(answer.Path(), "obs");
  EXPECT_TRUE(answer.payload.empty());
  EXPECT_EQ(app_.numBuilt, 0u);
}

TEST_F(ObserveWire, SeveralChanges_OneDocumentInTheOrderOfTheFirstChange) {
  ServeObs(COAP_RPC_CON);
  Register(peer_, CoapType::kCon, {1});
  Update("k002", "v002");
  Update("k001", "v001");
  Update("k002", "new2");
  Delete("k003");
  EXPECT_EQ(NextNotification(peer_).Text(),
            R"({"data":[{"op":"u","key":"k002","val":"new2"},)"
            R"({"op":"u","key":"k001","val":"v001"},{"op":"d","key":"k003"}]})");
  EXPECT_TRUE(host_.HasDebug("[CoapRpc]app build observe response handle one data.\n"));
  EXPECT_TRUE(host_.HasDebug("[CoapRpc]app build observe response update.\n"));
  ExpectSilence(peer_);
}

TEST_F(ObserveWire, PayloadIsLogged) {
  ServeObs(COAP_RPC_CON);
  Register(peer_, CoapType::kCon, {1});
  Update("k001", "v001");
  NextNotification(peer_);
  EXPECT_TRUE(host_.HasDebug(std::string("[CoapRpc]app build observe response success, uri:obs, "
                                         "len:47, payload:") +
                             kOneTuple + ".\n"));
}

TEST_F(ObserveWire, FailedBuilder_ItsChangeStaysForTheNextNotification) {
  ServeObs(COAP_RPC_CON);
  Register(peer_, CoapType::kCon, {1});
  app_.failing = {"k001"};
  Update("k001", "v001");
  Update("k002", "v002");
  EXPECT_EQ(NextNotification(peer_).Text(), R"({"data":[{"op":"u","key":"k002","val":"v002"}]})");
  EXPECT_EQ(Pending(), (std::vector<std::string>{"1k001"}));
  app_.failing.clear();
  EXPECT_EQ(NextNotification(peer_).Text(), kOneTuple);
}

TEST_F(ObserveWire, AllBuildersFail_EmptyArrayWith205AndAllChangesKept) {
  ServeObs(COAP_RPC_CON);
  Register(peer_, CoapType::kCon, {1});
  app_.failing = {"k001", "k002"};
  Update("k001", "v001");
  Delete("k002");
  const CoapMessage notification = NextNotification(peer_);
  EXPECT_EQ(notification.code, Code(2, 5));
  EXPECT_EQ(notification.Text(), R"({"data":[]})");
  EXPECT_EQ(Pending(), (std::vector<std::string>{"1k001", "2k002"}));
}

TEST_F(ObserveWire, NonResource_NotifiesNonConfirmably) {
  ServeObs(COAP_RPC_NON);
  Register(peer_, CoapType::kNon, {1});
  Update("k001", "v001");
  const CoapMessage notification = NextNotification(peer_);
  EXPECT_EQ(notification.type, CoapType::kNon);
  EXPECT_EQ(notification.Text(), kOneTuple);
}

TEST_F(ObserveWire, TwoObservers_TheNewestGetsTheChangesAndTheOlderOne201WithoutPayload) {
  ServeObs(COAP_RPC_CON);
  RawPeer older;
  older.SetRemote(Address());
  Register(older, CoapType::kCon, {1});
  Register(peer_, CoapType::kCon, {2});
  EXPECT_EQ(app_.observerNums, (std::vector<uint32_t>{1, 2}));
  Update("k001", "v001");
  EXPECT_EQ(NextNotification(peer_).Text(), kOneTuple);
  const CoapMessage other = NextNotification(older);
  EXPECT_EQ(other.code, Code(2, 1));
  EXPECT_EQ(other.Path(), "obs");
  EXPECT_TRUE(other.Has(kOptObserve));
  EXPECT_FALSE(other.Has(kOptEtag));
  EXPECT_TRUE(other.payload.empty());
  const std::vector<std::string> uris = host_.RunCommand("disp server uriVtbl");
  EXPECT_NE(uris[0].find("observerNum(2)"), std::string::npos) << uris[0];
}

TEST_F(ObserveWire, NewObserver_GetsTheWholeSetAgain) {
  ServeObs(COAP_RPC_CON);
  Register(peer_, CoapType::kCon, {1});
  Update("k001", "v001");
  NextNotification(peer_);
  RawPeer newer;
  newer.SetRemote(Address());
  Register(newer, CoapType::kCon, {2});
  EXPECT_EQ(NextNotification(newer).Text(), kOneTuple);
}

TEST_F(ObserveWire, Etag_IsTheClockAtBuilding) {
  ServeObs(COAP_RPC_CON);
  Register(peer_, CoapType::kCon, {1});
  Update("k001", "v001");
  const CoapMessage notification = NextNotification(peer_);
  EXPECT_EQ(notification.Values(kOptEtag), (std::vector<Bytes>{EtagBytes(entry_->etag)}));
  EXPECT_GT(entry_->etag, kDefaultNowMs);
  EXPECT_LE(entry_->etag, TestHost::Process().NowMs());
}

TEST_F(ObserveWire, EtagWithoutClock_CountsOn) {
  ServeObs(COAP_RPC_CON);
  Register(peer_, CoapType::kCon, {1});
  entry_->etag = 41;
  TestHost::Process().FailMillSecNow(7);
  Update("k001", "v001");
  EXPECT_EQ(NextNotification(peer_).Values(kOptEtag), (std::vector<Bytes>{{42}}));
}

TEST_F(ObserveWire, FirstObserverOfThreeTuples_QueuesThreeUpdatesAndIsCounted) {
  ServeObs(COAP_RPC_CON);
  Update("k003", "v003");
  Update("k001", "v001");
  Update("k002", "v002");
  EXPECT_TRUE(Pending().empty());
  Register(peer_, CoapType::kCon, {1});
  EXPECT_EQ(Pending(), (std::vector<std::string>{"1k001", "1k002", "1k003"}));
  EXPECT_EQ(entry_->observerNum, 1u);
  EXPECT_EQ(app_.observerNums, (std::vector<uint32_t>{1}));
}

TEST_F(ObserveWire, ObserverDeletedAtCount0_Keeps0AndTellsIt) {
  ServeObs(COAP_RPC_CON);
  Register(peer_, CoapType::kCon, {1});
  entry_->observerNum = 0;
  entry_->isSendingLargeBlock = 1;
  Ask(Observe(CoapType::kCon, {1}, "", 1));
  EXPECT_EQ(entry_->observerNum, 0u);
  EXPECT_EQ(entry_->isSendingLargeBlock, 0u);
  EXPECT_EQ(app_.observerNums, (std::vector<uint32_t>{1, 0}));
}

TEST_F(ObserveWire, LastObserverLeaves_PendingChangesAndTimerStay) {
  ServeObs(COAP_RPC_CON);
  Register(peer_, CoapType::kCon, {1});
  Update("k001", "v001");
  const uint64_t timer = entry_->updateTimer;
  EXPECT_NE(timer, 0u);
  Ask(Observe(CoapType::kCon, {1}, "", 1));
  EXPECT_EQ(app_.observerNums, (std::vector<uint32_t>{1, 0}));
  EXPECT_EQ(Pending(), (std::vector<std::string>{"1k001"}));
  EXPECT_EQ(entry_->updateTimer, timer);
}

TEST_F(ObserveWire, UnacknowledgedNotification_IsRepeatedFourTimesAndEndsTheObservation) {
  ServeObs(COAP_RPC_CON);
  Register(peer_, CoapType::kCon, {1});
  Update("k001", "v001");
  int numSent = 0;
  while (peer_.Receive([this] { host_.AdvanceMs(1000); }, 60)) ++numSent;
  EXPECT_EQ(numSent, 5);
  EXPECT_EQ(entry_->observerNum, 0u);
  EXPECT_EQ(app_.observerNums, (std::vector<uint32_t>{1, 0}));
}

TEST_F(ObserveWire, CancelCon_Gets201AndEndsTheNotifications) {
  ServeObs(COAP_RPC_CON);
  Register(peer_, CoapType::kCon, {1});
  const CoapMessage answer = Ask(Observe(CoapType::kCon, {1}, "", 1));
  EXPECT_EQ(answer.code, Code(2, 1));
  EXPECT_FALSE(answer.Has(kOptObserve));
  EXPECT_EQ(answer.Path(), "obs");
  EXPECT_TRUE(answer.payload.empty());
  EXPECT_EQ(app_.observerNums, (std::vector<uint32_t>{1, 0}));
  Update("k001", "v001");
  host_.AdvanceMs(3000);
  ExpectSilence(peer_);
}

// The network repeats the first cancel after the client has registered again (RFC 7641 4.1).
TEST_F(ObserveWire, LateCancelOfAnotherToken_EndsNothing) {
  ServeObs(COAP_RPC_CON);
  Register(peer_, CoapType::kCon, {1});
  const CoapMessage cancel = Observe(CoapType::kCon, {1}, "", 1);
  Ask(cancel);
  Register(peer_, CoapType::kCon, {2});
  EXPECT_EQ(Ask(cancel).code, Code(2, 1));
  EXPECT_EQ(entry_->observerNum, 1u);
  Update("k001", "v001");
  EXPECT_EQ(NextNotification(peer_).token, Bytes{2});
}

TEST_F(ObserveWire, CancelNon_LeavesPendingChangesToTheOthers) {
  ServeObs(COAP_RPC_NON);
  RawPeer stays;
  stays.SetRemote(Address());
  Register(stays, CoapType::kNon, {1});
  Register(peer_, CoapType::kNon, {2});
  Update("k001", "v001");
  const CoapMessage answer = Ask(Observe(CoapType::kNon, {2}, "", 1));
  EXPECT_EQ(answer.code, Code(2, 1));
  EXPECT_TRUE(answer.payload.empty());
  EXPECT_EQ(NextNotification(stays).Text(), kOneTuple);
}

TEST_F(ObserveWire, CancelWithAnOldCheckCode_WalksNothing) {
  ServeObs(COAP_RPC_CON);
  app_.data = {{"k001", "v001"}};
  Register(peer_, CoapType::kCon, {1});
  const CoapMessage answer = Ask(Observe(CoapType::kCon, {1}, "_ual-checkcode=5", 1));
  EXPECT_EQ(answer.code, Code(2, 1));
  EXPECT_FALSE(answer.Has(kOptUriQuery));
  EXPECT_EQ(app_.numWalks, 0u);
}

TEST_F(ObserveWire, RstToANotification_EndsTheObservation) {
  ServeObs(COAP_RPC_CON);
  Register(peer_, CoapType::kCon, {1});
  Update("k001", "v001");
  const std::optional<CoapMessage> notification = Next(peer_);
  ASSERT_TRUE(notification);
  peer_.Send(RstOf(*notification));
  Tick();
  EXPECT_EQ(app_.observerNums, (std::vector<uint32_t>{1, 0}));
}

TEST_F(ObserveWire, OutdatedCheckCode_WalksTheApplicationAndIsEchoed) {
  ServeObs(COAP_RPC_CON);
  app_.data = {{"k001", "v001"}};
  const CoapMessage answer = Register(peer_, CoapType::kCon, {1}, "_ual-checkcode=5");
  EXPECT_EQ(answer.code, Code(2, 1));
  EXPECT_EQ(answer.Values(kOptUriQuery), (std::vector<Bytes>{BytesOf("_ual-checkcode=5")}));
  EXPECT_EQ(answer.Path(), "obs");
  EXPECT_EQ(app_.numWalks, 1u);
  const CoapMessage notification = NextNotification(peer_);
  EXPECT_EQ(notification.Text(), kOneTuple);
  EXPECT_FALSE(notification.Has(kOptUriQuery));
  EXPECT_EQ(app_.numWalks, 1u);  // not again for the notification
}

TEST_F(ObserveWire, CurrentCheckCode_WalksNothingAndEchoesNothing) {
  ServeObs(COAP_RPC_CON);
  app_.data = {{"k001", "v001"}};
  const CoapMessage answer =
      Register(peer_, CoapType::kCon, {1}, kCheckCode + std::to_string(entry_->etag));
  EXPECT_EQ(answer.code, Code(2, 1));
  EXPECT_FALSE(answer.Has(kOptUriQuery));
  EXPECT_EQ(app_.numWalks, 0u);
  host_.AdvanceMs(2000);
  ExpectSilence(peer_);
}

TEST_F(ObserveWire, CheckCodes_WhichOnesWalk) {
  ServeObs(COAP_RPC_CON);
  const std::pair<std::string, uint32_t> cases[] = {
      {"_ual-checkcode=", 0},  {"_ual-checkcode=abc", 1},
      {"_ual-checkcode=0", 1}, {"_ual-checkcode", 0},
      {"other=5", 0},          {"x_ual-checkcode=5", 0},
      {"_UAL-CHECKCODE=5", 0}, {"_ual-checkcode=99999999999999999999999999", 1}};
  uint8_t token = 0;
  for (const auto &[query, numWalks] : cases) {
    SCOPED_TRACE(query);
    app_.numWalks = 0;
    const CoapMessage answer = Register(peer_, CoapType::kCon, {++token}, query);
    EXPECT_EQ(app_.numWalks, numWalks);
    EXPECT_EQ(answer.Has(kOptUriQuery), numWalks == 1);
  }
}

TEST_F(ObserveWire, EtagZero_AlwaysWalks) {
  ServeObs(COAP_RPC_CON);
  uint8_t token = 0;
  for (const char *query : {"_ual-checkcode=", "_ual-checkcode=0", "_ual-checkcode=7"}) {
    SCOPED_TRACE(query);
    entry_->etag = 0;
    app_.numWalks = 0;
    Register(peer_, CoapType::kCon, {++token}, query);
    EXPECT_EQ(app_.numWalks, 1u);
  }
}

TEST_F(ObserveWire, WalkEndsAreLoggedAtLevel3) {
  ServeObs(COAP_RPC_CON);
  Register(peer_, CoapType::kCon, {1}, "_ual-checkcode=5");
  const std::vector<LogRecord> records = host_.LogsOf("COAP_RpcIterateTupleFromApp");
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0].level, 3u);
  EXPECT_EQ(records[0].text, "[CoapRpcIterator]iterate tuple from app failed, ret=9.\n");
}

TEST_F(ObserveWire, CheckCodeWithoutObserveRecord_WalksNothing) {
  key_ = KeyOf("obs", COAP_RPC_CON, 1);
  entry_ = Serve(key_, RegOf(&app_, 0));
  const CoapMessage answer = Register(peer_, CoapType::kCon, {1}, "_ual-checkcode=5");
  EXPECT_EQ(answer.code, Code(2, 1));
  EXPECT_EQ(answer.Values(kOptUriQuery), (std::vector<Bytes>{BytesOf("_ual-checkcode=5")}));
  EXPECT_EQ(app_.numWalks, 0u);
}

TEST_F(ObserveWire, RegistrationWithPayload_SynchronousAnswerStandsAndChangesStay) {
  ServeObs(COAP_RPC_NON);
  Update("k001", "v001");
  app_.out = "abc";
  app_.result = 3;
  const CoapMessage answer = Ask(Observe(CoapType::kNon, {1}).PayloadText("q"));
  EXPECT_EQ(answer.code, Code(2, 1));
  EXPECT_EQ(answer.Uint(kOptContentFormat), 0u);
  EXPECT_EQ(answer.payload, (Bytes{0, 0, 0, 0}));
  EXPECT_EQ(app_.requests.at(0).info.isObserve, 2u);
  EXPECT_EQ(Pending(), (std::vector<std::string>{"1k001"}));
}

TEST_F(ObserveWire, FailedRequestOfAnObserver_GetsThePathAllTheSame) {
  ServeObs(COAP_RPC_CON);
  app_.result = -1;
  const CoapMessage answer = Ask(Observe(CoapType::kCon, {1}).PayloadText("q"));
  EXPECT_EQ(answer.code, Code(2, 4));
  EXPECT_EQ(answer.Path(), "obs");
  EXPECT_TRUE(answer.payload.empty());
}

TEST_F(ObserveWire, UnknownPayloadFormat_NotificationIs201AndTheObserverStays) {
  ServeObs(COAP_RPC_CON, 9);
  Register(peer_, CoapType::kCon, {1});
  Update("k001", "v001");
  for (int i = 0; i < 2; ++i) {
    const CoapMessage notification = NextNotification(peer_);
    EXPECT_EQ(notification.code, Code(2, 1));
    EXPECT_TRUE(notification.payload.empty());
  }
  EXPECT_EQ(entry_->observerNum, 1u);
  EXPECT_EQ(Pending(), (std::vector<std::string>{"1k001"}));
}

TEST_F(ObserveWire, EveryAllocationOfANotificationFails_201AndTheChangeComesLater) {
  for (const uint8_t format : {COAP_RPC_JSON, COAP_RPC_BYTE}) {
    key_ = {};
    ServeObs(COAP_RPC_CON, format);
    Register(peer_, CoapType::kCon, {format});
    const uint64_t numAllocations = format == COAP_RPC_JSON ? 2 : 4;
    for (uint64_t n = 1; n <= numAllocations; ++n) {
      Update("k001", "v001");
      host_.Pool().Failures().FailOnce(n);
      EXPECT_EQ(NextNotification(peer_).code, Code(2, 1)) << n;
      EXPECT_EQ(Pending(), (std::vector<std::string>{"1k001"}));
      EXPECT_EQ(NextNotification(peer_).code, Code(2, 5)) << n;
    }
    Ask(Observe(CoapType::kCon, {format}, "", 1));
    instance_ = std::make_unique<TestInstance>(host_);
    COAP_RpcRefreshTaskTimer(Ctx());
  }
}

TEST_F(ObserveWire, NotificationWhileAPayloadIsInFlight_Is201) {
  ServeObs(COAP_RPC_NON);
  Register(peer_, CoapType::kNon, {1});
  Update("k001", "v001");
  entry_->isSendingLargeBlock = 1;
  host_.AdvanceMs(2000);
  ExpectSilence(peer_);  // the timer asks for none
  COAP_RpcSerNotifyObservers(Ctx(), entry_);
  const CoapMessage notification = NextNotification(peer_);
  EXPECT_EQ(notification.code, Code(2, 1));
  EXPECT_EQ(Pending(), (std::vector<std::string>{"1k001"}));
}

// A builder may call the library: what it changes is neither lost nor built twice in one payload.
TEST_F(ObserveWire, BuilderThatChangesTuples_NewStatesComeWithTheNextNotification) {
  for (const uint8_t format : {COAP_RPC_JSON, COAP_RPC_BYTE}) {
    instance_ = std::make_unique<TestInstance>(host_);
    COAP_RpcRefreshTaskTimer(Ctx());
    ServeObs(COAP_RPC_CON, format);
    Register(peer_, CoapType::kCon, {1});
    Update("k001", "v001");
    Update("k002", "v002");
    Update("k003", "v003");
    app_.whileBuilding = [this](const std::string &key) {
      if (key == "k001") Update("k001", "new1");
      if (key == "k002") Delete("k002");
      Update("x" + std::to_string(100 + app_.numBuilt), "more");
    };
    app_.numBuilt = 0;
    EXPECT_EQ(NextNotification(peer_).code, Code(2, 5));
    app_.whileBuilding = nullptr;
    EXPECT_EQ(app_.numBuilt, 3u);
    EXPECT_EQ(Pending(), (std::vector<std::string>{"1k001", "2k002", "1x101", "1x102", "1x103"}));
  }
}

// Many changes may be added while a payload is built: no walk goes over them.
TEST_F(ObserveWire, ChangesAddedWhileBuilding_AreNotWalkedOver) {
  for (const uint8_t format : {COAP_RPC_JSON, COAP_RPC_BYTE}) {
    instance_ = std::make_unique<TestInstance>(host_);
    COAP_RpcRefreshTaskTimer(Ctx());
    ServeObs(COAP_RPC_CON, format);
    Register(peer_, CoapType::kCon, {1});
    Update("k001", "v001");
    CoapRpcLink *added = nullptr;
    CoapRpcLink *next = nullptr;
    app_.whileBuilding = [&](const std::string &) {
      Update("x001", "more");
      Update("x002", "more");
      added = entry_->tupleChgList.prev->prev;
      next = added->next;
      added->next = reinterpret_cast<CoapRpcLink *>(uintptr_t{8});  // whoever follows it crashes
    };
    EXPECT_EQ(NextNotification(peer_).code, Code(2, 5));
    app_.whileBuilding = nullptr;
    ASSERT_NE(added, nullptr);
    added->next = next;
    EXPECT_EQ(Pending(), (std::vector<std::string>{"1x001", "1x002"}));
  }
}

TEST_F(ObserveWire, BuildersMissing_ChangesStay) {
  key_ = KeyOf("obs", COAP_RPC_CON, 1);
  CoapRpcSerObVtblReg ob = ObRegOf(true);
  ob.buildDelete = nullptr;
  entry_ = Serve(key_, RegOf(&app_, 0), &ob);
  Register(peer_, CoapType::kCon, {1});
  Update("k001", "v001");
  EXPECT_EQ(NextNotification(peer_).Text(), R"({"data":[]})");
  EXPECT_EQ(Pending(), (std::vector<std::string>{"1k001"}));
}

// Idl is a payload: number of messages, then each one after its length, all little-endian.
Bytes Idl(const std::vector<std::string> &messages) {
  Bytes bytes = {static_cast<uint8_t>(messages.size()), 0, 0, 0};
  for (const std::string &message : messages) {
    bytes.push_back(static_cast<uint8_t>(message.size()));
    bytes.push_back(static_cast<uint8_t>(message.size() >> 8));
    bytes.insert(bytes.end(), message.begin(), message.end());
  }
  return bytes;
}

TEST_F(ObserveWire, Idl_MessagesAfterTheirLengths) {
  ServeObs(COAP_RPC_CON, COAP_RPC_BYTE);
  Register(peer_, CoapType::kCon, {1});
  Update("k001", "v001");
  Delete("k002");
  const CoapMessage notification = NextNotification(peer_);
  EXPECT_EQ(notification.code, Code(2, 5));
  EXPECT_EQ(notification.Uint(kOptContentFormat), 0u);
  EXPECT_EQ(notification.Values(kOptEtag), (std::vector<Bytes>{EtagBytes(entry_->etag)}));
  EXPECT_EQ(notification.payload, Idl({"u:k001=v001", "d:k002"}));
  EXPECT_TRUE(Pending().empty());
  EXPECT_TRUE(host_.HasDebug("[CoapRpc]hdl one idl msg, msgNum: 0, offset: 4.\n"));
  EXPECT_TRUE(host_.HasDebug("[CoapRpc]hdl one idl msg build update.\n"));
  EXPECT_TRUE(host_.HasDebug("[CoapRpc]hdl one idl msg, msgNum: 1, offset: 17.\n"));
  EXPECT_TRUE(host_.HasDebug("[CoapRpc]hdl one idl msg build delete.\n"));
  EXPECT_TRUE(host_.HasDebug("[CoapRpc]app build observe response success, uri:obs, len:25.\n"));
  EXPECT_TRUE(host_.HasDebug("[CoapRpc]large block sent success.\n"));
}

TEST_F(ObserveWire, Idl_NoBuilderSucceeds_FourZeroBytesAndAllChangesKept) {
  ServeObs(COAP_RPC_CON, COAP_RPC_BYTE);
  Register(peer_, CoapType::kCon, {1});
  app_.failing = {"k001"};
  Update("k001", "v001");
  const CoapMessage notification = NextNotification(peer_);
  EXPECT_EQ(notification.code, Code(2, 5));
  EXPECT_EQ(notification.payload, (Bytes{0, 0, 0, 0}));
  EXPECT_EQ(Pending(), (std::vector<std::string>{"1k001"}));
  EXPECT_TRUE(host_.HasDebug("[CoapRpc]hdl one idl msg fail, msgNum: 0, offset: 4.\n"));
}

TEST_F(ObserveWire, Idl_NoMemoryForTheMessageBuffer_IsLogged) {
  ServeObs(COAP_RPC_CON, COAP_RPC_BYTE);
  Register(peer_, CoapType::kCon, {1});
  Update("k001", "v001");
  host_.Pool().Failures().FailOnce(4);
  EXPECT_EQ(NextNotification(peer_).code, Code(2, 1));
  const std::vector<LogRecord> records = host_.LogsOf("COAP_RpcSerHandleIdlGetPayload");
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0].line, 607u);
  EXPECT_EQ(records[0].text, "[CoapRpc] malloc fail.\n");
}

}  // namespace
}  // namespace coap_rpc_test
