// Mirrors against a server under control: what they send, by bytes, and what they make of what
// comes.
#include <set>

#include "mirror_client.h"

namespace coap_rpc_test {
namespace {

using coap_rpc::kSyncAtHead;
using coap_rpc::kSyncConfirm;
using coap_rpc::kSyncNotification;
using coap_rpc::kSyncNotObserving;
using coap_rpc::kSyncRestart;

class MirrorWire : public MirrorClient {
 protected:
  static std::string Tuple(const uint8_t *tuple) {
    return tuple ? std::string(tuple, tuple + 8) : "none";
  }
};

TEST_F(MirrorWire, BadArguments_GiveCodes) {
  CoapRpcUriKey key = KeyOf("obs", 0, 0);
  CoapRpcCallAddr addr = To(peer_);
  CoapRpcMirrorParam param = Param();
  const auto open = [&] { return COAP_RpcMirrorOpen(Ctx(), &key, &addr, &param, &mirror_); };
  EXPECT_EQ(COAP_RpcMirrorOpen(nullptr, &key, &addr, &param, &mirror_), 1900001601u);
  EXPECT_EQ(COAP_RpcMirrorOpen(Ctx(), nullptr, &addr, &param, &mirror_), 1900001601u);
  EXPECT_EQ(COAP_RpcMirrorOpen(Ctx(), &key, nullptr, &param, &mirror_), 1900001601u);
  EXPECT_EQ(COAP_RpcMirrorOpen(Ctx(), &key, &addr, nullptr, &mirror_), 1900001601u);
  EXPECT_EQ(COAP_RpcMirrorOpen(Ctx(), &key, &addr, &param, nullptr), 1900001601u);
  addr.dstIp.family = 7;
  EXPECT_EQ(open(), 1900001602u);
  addr = To(peer_);
  addr.dstPort = 0;
  EXPECT_EQ(open(), 1900001603u);
  addr = To(peer_);
  key.uri[0] = '\0';
  EXPECT_EQ(open(), 1900001604u);
  memset(key.uri, 'u', sizeof(key.uri));
  EXPECT_EQ(open(), 1900001604u);
  key = KeyOf("obs", 0, 0);
  for (const auto &[keyLen, valLen] : {std::pair(0u, 4u), {1u, 65000u}, {65001u, 0u}}) {
    param.keyLen = keyLen;
    param.valLen = valLen;
    EXPECT_EQ(open(), 1900001605u);
  }
  param = Param();
  param.numInFlight = 129;
  EXPECT_EQ(open(), 1900001606u);
  param = Param();
  for (const uint32_t ms : {99u, 3'600'001u}) {
    param.heartbeatMs = ms;
    EXPECT_EQ(open(), 1900001606u);
  }
  EXPECT_EQ(mirror_, nullptr);
  CoapRpcMirrorState state;
  EXPECT_EQ(COAP_RpcMirrorGetState(nullptr, &state), 1900001611u);
  COAP_RpcMirrorClose(nullptr);
  EXPECT_EQ(COAP_RpcMirrorFind(nullptr, "k001"), nullptr);
  EXPECT_EQ(COAP_RpcMirrorNext(nullptr, nullptr), nullptr);
}

TEST_F(MirrorWire, TooMany_AreRefused) {
  const CoapRpcUriKey key = KeyOf("obs", 0, 0);
  const CoapRpcCallAddr addr = To(peer_);
  const CoapRpcMirrorParam param = Param();
  for (uint32_t i = 0; i < COAP_RPC_MAX_MIRRORS; ++i) {
    ASSERT_EQ(COAP_RpcMirrorOpen(Ctx(), &key, &addr, &param, &mirror_), 0u);
  }
  CoapRpcMirror *other = nullptr;
  EXPECT_EQ(COAP_RpcMirrorOpen(Ctx(), &key, &addr, &param, &other), 1900001607u);
  COAP_RpcMirrorClose(mirror_);
  EXPECT_EQ(COAP_RpcMirrorOpen(Ctx(), &key, &addr, &param, &other), 0u);
}

TEST_F(MirrorWire, Opened_ReadsEverything_AndIsSynced) {
  mirror_ = Open(Param());
  EXPECT_EQ(State().state, uint32_t{COAP_RPC_MIRROR_CONNECTING});
  const CoapMessage hello = Next();
  EXPECT_EQ(hello, Pull(hello, {}));
  EXPECT_EQ(hello.token.size(), 8u);
  EXPECT_EQ(app_.Take(), "");

  Say(hello, {.flags = kSyncNotObserving, .head = 2, .digest = One()});
  EXPECT_EQ(app_.Take(), "FULL_SYNC");
  const CoapMessage registration = Next();
  EXPECT_EQ(registration, Registration(registration));
  const CoapMessage first = Next();
  EXPECT_EQ(first, Pull(first, {kLifeArg, "since=0", "until=1", "full=1"}));
  const CoapMessage second = Next();
  EXPECT_EQ(second, Pull(second, {kLifeArg, "since=1", "until=2", "full=1"}));
  const std::set<Bytes> tokens{hello.token, registration.token, first.token, second.token};
  EXPECT_EQ(tokens.size(), 4u);

  CoapMessage answer = AnswerWith(registration, {.head = 2, .digest = One()});
  Say(answer.AddUint(kOptObserve, 1));
  SayRange(second);
  EXPECT_EQ(app_.Take(), "+k001=v001");
  SayRange(first);
  const CoapMessage tail = Next();
  EXPECT_EQ(tail, Pull(tail, {kLifeArg, "since=2", "full=1"}));
  EXPECT_EQ(app_.Take(), "");
  Say(tail, {.flags = kSyncAtHead, .from = 2, .to = 2, .head = 2, .digest = One()});
  EXPECT_EQ(app_.Take(), "SYNCED, synced 2");
  const CoapRpcMirrorState state = State();
  EXPECT_EQ(state.replid, kLife);
  EXPECT_EQ(state.version, 2u);
  EXPECT_EQ(state.syncedVersion, 2u);
  EXPECT_EQ(state.numTuples, 1u);
  EXPECT_EQ(state.numPulls, 4u);
  EXPECT_EQ(state.numFullSyncs, 1u);
  EXPECT_EQ(state.numInFlight, 0u);
  TakeConfirmation();
  EXPECT_EQ(app_.Take(), "");
  EXPECT_TRUE(IsSilent());
}

TEST_F(MirrorWire, FindAndNext_AreInTheOrderOfKeys) {
  Sync(Param());
  Say(Notification({.flags = kSyncAtHead | kSyncNotification,
                    .from = 2,
                    .to = 4,
                    .head = 4,
                    .digest = DigestOf({"k001v001", "k000v000", "k002v002"}),
                    .changes = {{3, "k002", "v002"}, {4, "k000", "v000"}}}));
  EXPECT_EQ(app_.Take(), "+k002=v002, +k000=v000, synced 4");
  EXPECT_EQ(Tuple(COAP_RpcMirrorFind(mirror_, "k002")), "k002v002");
  EXPECT_EQ(Tuple(COAP_RpcMirrorFind(mirror_, "k003")), "none");
  EXPECT_EQ(Tuple(COAP_RpcMirrorFind(mirror_, nullptr)), "none");
  EXPECT_EQ(Tuple(COAP_RpcMirrorNext(mirror_, nullptr)), "k000v000");
  EXPECT_EQ(Tuple(COAP_RpcMirrorNext(mirror_, "k000")), "k001v001");
  EXPECT_EQ(Tuple(COAP_RpcMirrorNext(mirror_, "k0015")), "k002v002");
  EXPECT_EQ(Tuple(COAP_RpcMirrorNext(mirror_, "k002")), "none");
}

TEST_F(MirrorWire, Notifications_ChangeAndDelete_AndAreNotAnswered) {
  Sync(Param());
  Say(Notification({.flags = kSyncAtHead | kSyncNotification,
                    .from = 1,
                    .to = 3,
                    .head = 3,
                    .digest = DigestOf({"k001v002"}),
                    .changes = {{3, "k001", "v002"}}}));
  EXPECT_EQ(app_.Take(), "k001:v001>v002, synced 3");
  Say(Notification({.flags = kSyncAtHead | kSyncNotification,
                    .from = 3,
                    .to = 4,
                    .head = 4,
                    .changes = {{4, "k001", std::nullopt}}}));
  EXPECT_EQ(app_.Take(), "-k001=v002, synced 4");
  EXPECT_EQ(State().numNotifications, 2u);
  EXPECT_TRUE(IsSilent());
}

TEST_F(MirrorWire, NotificationThatDoesNotFollow_IsPulledFor) {
  Sync(Param());
  Say(Notification({.flags = kSyncAtHead | kSyncNotification,
                    .from = 4,
                    .to = 5,
                    .head = 5,
                    .changes = {{5, "k009", "v009"}}}));
  EXPECT_EQ(app_.Take(), "BEHIND");
  const CoapMessage pull = Next();
  EXPECT_EQ(pull, Pull(pull, {kLifeArg, "since=2"}));
  Say(pull, {.flags = kSyncAtHead,
             .from = 2,
             .to = 5,
             .head = 5,
             .digest = DigestOf({"k001v001", "k009v009"}),
             .changes = {{5, "k009", "v009"}}});
  EXPECT_EQ(app_.Take(), "+k009=v009, SYNCED, synced 5");
}

TEST_F(MirrorWire, AnnouncementAndEmptyNotification_ArePulledFor) {
  Sync(Param());
  Say(Notification({.flags = kSyncAtHead | kSyncNotification, .from = 3, .to = 3, .head = 3}));
  EXPECT_EQ(app_.Take(), "BEHIND");
  Say(Next(), {.flags = kSyncAtHead,
               .from = 2,
               .to = 3,
               .head = 3,
               .digest = DigestOf({"k001v003"}),
               .changes = {{3, "k001", "v003"}}});
  EXPECT_EQ(app_.Take(), "k001:v001>v003, SYNCED, synced 3");
  CoapMessage empty = Request(CoapType::kNon, Code(2, 5), ++mid_, registration_.token);
  Say(empty.AddUint(kOptObserve, ++number_));
  EXPECT_EQ(app_.Take(), "BEHIND");
  const CoapMessage pull = Next();
  EXPECT_EQ(pull, Pull(pull, {kLifeArg, "since=3"}));
}

TEST_F(MirrorWire, Confirm_IsPulledForSoon) {
  Sync(Param());
  Say(Notification({.flags = kSyncAtHead | kSyncNotification | kSyncConfirm,
                    .from = 2,
                    .to = 3,
                    .head = 3,
                    .changes = {{3, "k001", std::nullopt}}}));
  EXPECT_EQ(app_.Take(), "-k001=v001, synced 3");
  const CoapMessage pull = Next();
  EXPECT_EQ(pull, Pull(pull, {kLifeArg, "since=3"}));
  Say(pull, {.flags = kSyncAtHead, .from = 3, .to = 3, .head = 3});
  EXPECT_EQ(app_.Take(), "");
  EXPECT_TRUE(IsSilent());
}

TEST_F(MirrorWire, Heartbeat_IsAllThatIsSentWhenNothingHappens) {
  Sync(Param());
  uint64_t ms = 0;
  std::optional<CoapMessage> beat;
  for (; !beat && ms < 60'000; ms += kTickMs) {
    Tick();
    beat = peer_.ReceiveNow();
  }
  ASSERT_TRUE(beat);
  EXPECT_EQ(*beat, Pull(*beat, {kLifeArg, "since=2"}));
  EXPECT_GE(ms, 20'000u);
  EXPECT_LE(ms, 33'100u);
  Say(*beat, {.flags = kSyncAtHead, .from = 2, .to = 2, .head = 2, .digest = One()});
  EXPECT_EQ(app_.Take(), "");
}

TEST_F(MirrorWire, QuestionWithoutAnswer_IsRepeatedWithItsToken) {
  mirror_ = Open(Param());
  const CoapMessage hello = Next();
  const CoapMessage again = Next();
  EXPECT_NE(again.messageId, hello.messageId);
  EXPECT_EQ(again, Pull(again, {}));
  EXPECT_EQ(again.token, hello.token);
  EXPECT_EQ(State().numRepeats, 1u);
  Say(hello, {.head = 0});  // to the first one
  EXPECT_EQ(app_.Take(), "FULL_SYNC");
}

TEST_F(MirrorWire, ForeignAndLateAnswers_AreNobodys) {
  Sync(Param());
  CoapMessage foreign = Request(CoapType::kNon, kCodeGet, 1, {1, 2, 3, 4, 5, 6, 7, 8});
  Say(foreign, {.flags = kSyncRestart, .head = 9, .replid = 77});
  foreign.token = {1};
  Say(foreign, {.flags = kSyncRestart, .head = 9, .replid = 77});
  Say(Error(foreign, Code(4, 4)));
  EXPECT_EQ(app_.Take(), "");
  EXPECT_TRUE(IsSilent());
}

// Such a server answers nothing of the URI, but its host is there.
TEST_F(MirrorWire, SilentServer_IsPinged_AndRefusesWhenItIsThere) {
  CoapRpcMirrorParam param = Param();
  param.heartbeatMs = 10'000;
  mirror_ = Open(param);
  for (int i = 0; i < 400 && app_.told.empty(); ++i) {
    Tick();
    while (const auto message = peer_.ReceiveNow()) {
      const bool isPing = message->type == CoapType::kCon && message->code == 0;
      if (isPing) Reply(Request(CoapType::kRst, 0, message->messageId));
    }
  }
  EXPECT_EQ(app_.Take(), "REFUSED 1619");
  for (int i = 0; i < 400 && app_.told.empty(); ++i) Tick();
  EXPECT_EQ(app_.Take(), "STALE 1616");
}

TEST_F(MirrorWire, PingThatIsGivenUp_IsNobodysElse) {
  CoapRpcMirrorParam param = Param();
  param.heartbeatMs = 200'000;
  mirror_ = Open(param);
  uint32_t numPings = 0;
  for (int i = 0; i < 7000 && app_.told.empty(); ++i) {
    Tick();
    while (const auto message = peer_.ReceiveNow()) {
      const bool isPing = message->type == CoapType::kCon && message->code == 0;
      numPings += isPing;
      if (!isPing) continue;
      Reply(Request(CoapType::kRst, 0, static_cast<uint16_t>(message->messageId + 1)));
    }
  }
  EXPECT_EQ(numPings, 4u);  // one, and three repetitions
  EXPECT_EQ(app_.Take(), "STALE 1616");
}

TEST_F(MirrorWire, SilentServer_IsStale_AndIsTriedFromOtherPorts) {
  CoapRpcMirrorParam param = Param();
  param.heartbeatMs = 1000;
  Sync(param);
  const UdpAddress port = peer_.Datagrams().back().other;
  for (int i = 0; i < 100 && app_.told.empty(); ++i) Tick();
  EXPECT_EQ(app_.Take(), "STALE 1616");
  EXPECT_EQ(State().numTuples, 1u);
  std::optional<CoapMessage> pull = peer_.ReceiveNow();
  while (pull && peer_.Datagrams().back().other == port) pull = peer_.ReceiveNow();
  if (!pull) pull = Next();
  EXPECT_NE(peer_.Datagrams().back().other, port);
  EXPECT_EQ(*pull, Pull(*pull, {kLifeArg, "since=2"}));
  Say(*pull,
      {.flags = kSyncAtHead | kSyncNotObserving, .from = 2, .to = 2, .head = 2, .digest = One()});
  EXPECT_EQ(app_.Take(), "SYNCED");
  const CoapMessage registration = Next();
  EXPECT_EQ(registration, Registration(registration));
}

TEST_F(MirrorWire, ServerThatForgets_IsRegisteredWithAgain) {
  CoapRpcMirrorParam param = Param();
  param.heartbeatMs = 2000;
  Sync(param);
  Say(Next(),
      {.flags = kSyncAtHead | kSyncNotObserving, .from = 2, .to = 2, .head = 2, .digest = One()});
  const CoapMessage again = Next();
  EXPECT_EQ(again, Registration(again));
  EXPECT_EQ(again.token, registration_.token);
  EXPECT_EQ(app_.Take(), "");
}

TEST_F(MirrorWire, NewLife_IsReadWhole_AndEqualValuesAreNotTold) {
  Sync(Param());
  Say(Notification({.flags = kSyncAtHead | kSyncNotification,
                    .from = 0,
                    .to = 2,
                    .head = 2,
                    .digest = One(),
                    .replid = 9,
                    .changes = {{1, "k005", "v005"}, {2, "k001", "v001"}}}));
  EXPECT_EQ(app_.Take(), "BEHIND");
  Say(Next(), {.flags = kSyncRestart, .head = 2, .digest = One(), .replid = 9});
  EXPECT_EQ(app_.Take(), "FULL_SYNC");
  const CoapMessage first = Next();
  const CoapMessage second = Next();
  EXPECT_EQ(first, Pull(first, {"id=0000000000000009", "since=0", "until=1", "full=1"}));
  Say(first, {.from = 0, .to = 1, .head = 2, .digest = One(), .replid = 9});
  Say(second, {.from = 1,
               .to = 2,
               .head = 2,
               .digest = One(),
               .replid = 9,
               .changes = {{2, "k001", "v001"}}});
  Say(Next(), {.flags = kSyncAtHead, .from = 2, .to = 2, .head = 2, .digest = One(), .replid = 9});
  EXPECT_EQ(app_.Take(), "SYNCED, synced 2");
}

TEST_F(MirrorWire, Close_TellsTheServer_AndCallsNothing) {
  Sync(Param());
  COAP_RpcMirrorClose(mirror_);
  const CoapMessage farewell = Next();
  EXPECT_EQ(farewell.code, kCodeGet);
  EXPECT_EQ(farewell.Uint(kOptObserve), 1u);
  EXPECT_EQ(farewell.token, registration_.token);
  EXPECT_EQ(app_.Take(), "");
  Say(Notification({.flags = kSyncAtHead | kSyncNotification, .from = 2, .to = 3, .head = 3}));
  EXPECT_EQ(app_.Take(), "");
}

// Every callback, in the order in which they come for a mirror that reads a table of one tuple and
// hears of a change and of a deletion.
TEST_F(MirrorWire, ClosedInAnyCallback_CallsNothingMore) {
  const std::vector<std::string> calls = {"FULL_SYNC", "+k001=v001",     "SYNCED",
                                          "synced 2",  "k001:v001>v002", "-k001=v002"};
  for (const std::string &last : calls) {
    SCOPED_TRACE(last);
    std::vector<std::string> told;
    bool isClosed = false;
    app_.onTold = [&](const std::string &text) {
      EXPECT_FALSE(isClosed) << text;
      if (text != last) return;
      isClosed = true;
      COAP_RpcMirrorClose(mirror_);
    };
    mirror_ = Open(Param());
    registration_ = {};
    for (int i = 0; i < 20 && !isClosed; ++i) {
      const CoapMessage message = Next();
      const std::string query = QueryOf(message);
      if (message.Has(kOptObserve)) {
        registration_ = message;
      } else if (query == "_sync=1") {
        Say(message, {.flags = kSyncNotObserving, .head = 2, .digest = One()});
      } else if (query.find("until=") != std::string::npos) {
        SayRange(message);
      } else {
        Say(message, {.flags = kSyncAtHead, .from = 2, .to = 2, .head = 2, .digest = One()});
        if (isClosed) break;
        Say(Notification({.flags = kSyncNotification,
                          .from = 2,
                          .to = 3,
                          .head = 4,
                          .changes = {{3, "k001", "v002"}}}));
        if (isClosed) break;
        Say(Notification({.flags = kSyncAtHead | kSyncNotification,
                          .from = 3,
                          .to = 4,
                          .head = 4,
                          .changes = {{4, "k001", std::nullopt}}}));
      }
    }
    EXPECT_TRUE(isClosed);
    app_.Take();
    while (peer_.ReceiveMessage(Pump(), 5)) {
    }
  }
}

TEST_F(MirrorWire, ClosedByItsTimer_CallsNothingMore) {
  CoapRpcMirrorParam param = Param();
  param.heartbeatMs = 500;
  Sync(param);
  app_.onTold = [&](const std::string &text) {
    EXPECT_EQ(text, "STALE 1616");
    COAP_RpcMirrorClose(mirror_);
  };
  Ticks(100);
  EXPECT_EQ(app_.told.size(), 1u);
}

TEST_F(MirrorWire, ManyMirrors_HaveAPortEach) {
  MirrorApp other;
  mirror_ = Open(Param());
  const CoapMessage hello = Next();
  const UdpAddress port = peer_.Datagrams().back().other;
  Open(MirrorParamOf(&other));
  const CoapMessage otherHello = Next();
  EXPECT_NE(peer_.Datagrams().back().other, port);
  Say(otherHello, {.head = 0});
  EXPECT_EQ(app_.Take(), "");
  EXPECT_EQ(other.Take(), "FULL_SYNC");
}

TEST_F(MirrorWire, BaseRequests_ShareNothingWithIt) {
  App app;
  const CoapRpcUriKey key = KeyOf("obs", COAP_RPC_CON, 0);
  Register(key, &app);
  Sync(Param());
  EXPECT_EQ(Call(key), 0u);
  const CoapMessage request = Next();
  EXPECT_EQ(request.token.size(), 0u);
  Reply(AnswerOf(request).PayloadText("base"));
  Ticks(2);
  ASSERT_EQ(app.responses.size(), 1u);
  EXPECT_EQ(app.responses[0].payload, "base");
  EXPECT_EQ(app_.Take(), "");
}

TEST_F(MirrorWire, Uninit_ClosesThem) {
  Sync(Param());
  instance_.reset();
  EXPECT_EQ(app_.Take(), "");
}

// No memory, no socket.

TEST_F(MirrorWire, MaxBytes_StopsIt_AndWhatIsThereStays) {
  CoapRpcMirrorParam param = Param();
  param.maxBytes = 40 + 8 + 10;
  Sync(param);
  const CoapMessage news = Notification(
      {.flags = kSyncAtHead | kSyncNotification,
       .from = 2,
       .to = 5,
       .head = 5,
       .digest = DigestOf({"k001v002"}),
       .changes = {{3, "k001", "v002"}, {4, "k002", "v002"}, {5, "k002", std::nullopt}}});
  Say(news);
  EXPECT_EQ(app_.Take(), "k001:v001>v002, BEHIND 1625");
  EXPECT_EQ(State().version, 3u);
  const CoapMessage pull = Next();
  EXPECT_EQ(pull, Pull(pull, {kLifeArg, "since=3", "full=1"}));
  Say(pull, {.flags = kSyncAtHead,
             .from = 3,
             .to = 5,
             .head = 5,
             .digest = DigestOf({"k001v002"}),
             .changes = {{5, "k002", std::nullopt}}});
  EXPECT_EQ(app_.Take(), "SYNCED, synced 5");
}

TEST_F(MirrorWire, NoMemoryForATuple_IsTriedAgain) {
  Sync(Param());
  const SyncPageText page = {.flags = kSyncAtHead,
                             .from = 2,
                             .to = 3,
                             .head = 3,
                             .digest = DigestOf({"k001v001", "k002v002"}),
                             .changes = {{3, "k002", "v002"}}};
  host_.Pool().Failures().FailFrom(1);
  SyncPageText news = page;
  news.flags |= kSyncNotification;
  Say(Notification(news));
  EXPECT_EQ(app_.Take(), "BEHIND 1626");
  host_.Pool().Failures().Clear();
  Say(Next(), page);
  EXPECT_EQ(app_.Take(), "+k002=v002, SYNCED, synced 3");
}

TEST_F(MirrorWire, SourceThatIsGone_IsStale_AndTriedAgain) {
  const CoapRpcUriKey key = KeyOf("obs", 0, 0);
  CoapRpcCallAddr addr = To(peer_);
  addr.srcIp.family = COAP_RPC_IPV4;
  addr.srcIp.addr.ipv4 = 0xC0000201;  // 192.0.2.1
  const CoapRpcMirrorParam param = Param();
  ASSERT_EQ(COAP_RpcMirrorOpen(Ctx(), &key, &addr, &param, &mirror_), 0u);
  Ticks(5);
  EXPECT_EQ(app_.Take(), "STALE 1617");
  const uint64_t num = State().numRegistrations;
  Ticks(300);
  EXPECT_GT(State().numRegistrations, num);
  EXPECT_LE(State().numRegistrations, num + 8);
}

// An application that begins again at once is called once in a tick, not for ever in one.
TEST_F(MirrorWire, MirrorInPlaceOfOneThatFailed_IsForTheNextTick) {
  const CoapRpcUriKey key = KeyOf("obs", 0, 0);
  CoapRpcCallAddr addr = To(peer_);
  addr.srcIp.family = COAP_RPC_IPV4;
  addr.srcIp.addr.ipv4 = 0xC0000201;  // 192.0.2.1
  const CoapRpcMirrorParam param = Param();
  const auto open = [&] {
    ASSERT_EQ(COAP_RpcMirrorOpen(Ctx(), &key, &addr, &param, &mirror_), 0u);
  };
  open();
  app_.onTold = [&](const std::string &text) {
    EXPECT_EQ(text, "STALE 1617");
    ASSERT_LT(app_.told.size(), 1000u);
    COAP_RpcMirrorClose(mirror_);
    open();
  };
  Ticks(3);
  EXPECT_GE(app_.told.size(), 2u);
  EXPECT_LE(app_.told.size(), 400u);
  app_.onTold = nullptr;
}

TEST_F(MirrorWire, BoundSource_IsUsed) {
  const CoapRpcUriKey key = KeyOf("obs", 0, 0);
  CoapRpcCallAddr addr = To(peer_);
  addr.srcIp.family = COAP_RPC_IPV4;
  addr.srcIp.addr.ipv4 = 0x7F000005;
  const CoapRpcMirrorParam param = Param();
  ASSERT_EQ(COAP_RpcMirrorOpen(Ctx(), &key, &addr, &param, &mirror_), 0u);
  Next();
  EXPECT_EQ(peer_.Datagrams().back().other.host, "127.0.0.5");
}

}  // namespace
}  // namespace coap_rpc_test
