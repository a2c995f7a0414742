// The order of a relation's notifications: late copies and overtaken ones are dropped, whole
// payloads in blocks included, and nothing makes a relation deaf.
#include "fixed_random.h"
#include "wire_client.h"

namespace coap_rpc_test {
namespace {

constexpr uint64_t kOrderMs = 128'000;

class ClientNotifications : public WireClient {
 protected:
  void SetUp() override {
    COAP_RpcRefreshTaskTimer(Ctx());
    Register(key_, &app_);
    EXPECT_EQ(Observe(key_), 0U);
    registration_ = Next();
  }

  // Answer acknowledges a registration with an answer.
  void Answer(const CoapMessage &registration, uint32_t number, std::string_view text = "") {
    CoapMessage answer = AnswerOf(registration, text.empty() ? Code(2, 1) : Code(2, 5));
    peer_.Send(answer.AddUint(kOptObserve, number).PayloadText(text));
    Ticks(2);
  }
  void Answer(uint32_t number, std::string_view text = "") { Answer(registration_, number, text); }

  CoapMessage Notification(uint32_t number, std::string_view text, CoapType type = CoapType::kCon) {
    return Separate(type, ++mid_, registration_.token, "a")
        .AddUint(kOptObserve, number)
        .PayloadText(text);
  }

  // Notify sends a notification.  A CON one has to be acknowledged, whatever becomes of it.
  void Notify(uint32_t number, std::string_view text, CoapType type = CoapType::kCon) {
    peer_.Send(Notification(number, text, type));
    if (type == CoapType::kCon) {
      EXPECT_EQ(ReplyTo(mid_).type, CoapType::kAck) << number;
    } else {
      Ticks(2);
    }
  }

  // ReplyTo passes over what does not acknowledge or reset a message.
  CoapMessage ReplyTo(uint16_t mid) {
    CoapMessage message = Next();
    while (message.messageId != mid && !HasFailure()) message = Next();
    return message;
  }

  CoapMessage Renew() {
    EXPECT_EQ(Observe(key_), 0U);
    return Next();
  }

  // Taken lists the payloads that onResponse was given, each followed by a blank.
  std::string Taken() const {
    std::string all;
    for (const App::Response &response : app_.responses) all += response.payload + ' ';
    return all;
  }
  uint64_t NumOld() const { return COAP_RpcGetOldNotificationNum(Ctx()); }

  App app_;
  const CoapRpcUriKey key_ = KeyOf("a", COAP_RPC_CON, 1);
  CoapMessage registration_;
  uint16_t mid_ = 700;
};

TEST_F(ClientNotifications, NullInstance_HasDroppedNone) {
  EXPECT_EQ(COAP_RpcGetOldNotificationNum(nullptr), 0U);
}

TEST_F(ClientNotifications, LateCopyWithAnotherMessageId_IsDropped) {
  Answer(1);
  Notify(2, "two");
  Notify(3, "three");
  EXPECT_EQ(NumOld(), 0U);
  Notify(2, "two");
  Notify(3, "three");
  EXPECT_EQ(Taken(), "two three ");
  EXPECT_EQ(NumOld(), 2U);
  Notify(4, "four");
  EXPECT_EQ(Taken(), "two three four ");
}

TEST_F(ClientNotifications, DroppedOne_LeavesTheCheckCodeAlone) {
  Answer(1);
  peer_.Send(Notification(3, "three").Add(kOptEtag, {7}));
  Next();
  peer_.Send(Notification(2, "two").Add(kOptEtag, {6}));
  EXPECT_EQ(Next().type, CoapType::kAck);
  EXPECT_EQ(CheckCodeOf(key_), 7U);
  peer_.Send(Notification(2, "").Add(kOptEtag, {5}));
  EXPECT_EQ(Next().type, CoapType::kAck);
  EXPECT_EQ(CheckCodeOf(key_), 7U);
}

TEST_F(ClientNotifications, NonOnes_AreOrderedToo) {
  Answer(1);
  Notify(3, "three", CoapType::kNon);
  Notify(2, "two", CoapType::kNon);
  Notify(3, "three", CoapType::kNon);
  Notify(4, "four", CoapType::kNon);
  EXPECT_EQ(Taken(), "three four ");
  EXPECT_EQ(NumOld(), 2U);
  EXPECT_TRUE(IsSilent()) << "no reset";
}

// The application refuses one: a reset.  Its copy is a copy all the same.
TEST_F(ClientNotifications, CopyOfARefusedOne_IsAcknowledged) {
  Answer(1);
  Notify(2, "two");
  app_.result = 1;
  peer_.Send(Notification(3, "three"));
  EXPECT_EQ(Next().type, CoapType::kRst);
  Notify(3, "three");
  EXPECT_EQ(Taken(), "two three ");
}

TEST_F(ClientNotifications, NumbersWrapAround) {
  Answer(0xFFFFFE);
  Notify(0xFFFFFF, "last");
  Notify(0, "zero");
  Notify(0xFFFFFF, "last");
  Notify(1, "one");
  EXPECT_EQ(Taken(), "last zero one ");
}

// Less than half of all numbers further is newer; half or more is older.
TEST_F(ClientNotifications, HalfOfTheNumbers_IsTheBorder) {
  Answer(5);
  Notify(10, "ten");
  Notify(10 + 0x800000, "half");
  EXPECT_EQ(Taken(), "ten ");
  Notify(10 + 0x7FFFFF, "less");
  EXPECT_EQ(Taken(), "ten less ");
}

TEST_F(ClientNotifications, After128Seconds_AnyNumberIsNews) {
  Answer(1);
  Notify(900, "high");
  host_.AdvanceMs(kOrderMs - 1'000);
  Notify(5, "five");
  EXPECT_EQ(Taken(), "high ");
  host_.AdvanceMs(2'000);
  Notify(5, "five");
  EXPECT_EQ(Taken(), "high five ");
  Notify(6, "six");
  EXPECT_EQ(Taken(), "high five six ");
}

// A server that has a change to tell and a registration to answer gives both one number.
TEST_F(ClientNotifications, NumberOfTheAnswer_PassesOnceMore) {
  Answer(4, "set");
  Notify(4, "change");
  Notify(4, "change");
  Notify(5, "five");
  EXPECT_EQ(Taken(), "set change five ");
  EXPECT_EQ(NumOld(), 1U);
}

TEST_F(ClientNotifications, CopyOfAnAnswer_IsDropped) {
  Answer(4, "set");
  Notify(5, "five");
  CoapMessage other = AnswerOf(registration_).AddUint(kOptObserve, 4).PayloadText("set");
  other.messageId ^= 0x100;
  peer_.Send(other);
  Ticks(2);
  EXPECT_EQ(Taken(), "set five ");
}

// A peer that counts from the beginning is heard once it has been asked, and does not fall silent
// when a copy from its former life comes.
TEST_F(ClientNotifications, RestartedPeer_IsHeardAfterTheRenewal) {
  Answer(1);
  Notify(5000, "old");
  Answer(Renew(), 2);
  Notify(3, "three");
  Notify(5000, "old");
  Notify(4999, "older");
  Notify(4, "four");
  EXPECT_EQ(Taken(), "old three four ");
  EXPECT_EQ(NumOld(), 2U);
}

TEST_F(ClientNotifications, RestartedPeerWithTheWholeSet_IsHeard) {
  Answer(1);
  Notify(5000, "old");
  Answer(Renew(), 2, "set");
  Notify(2, "two");
  Notify(3, "three");
  EXPECT_EQ(Taken(), "old set two three ");
}

// Not far from where it was when the peer restarted, its numbers are still those of news.
TEST_F(ClientNotifications, RestartedPeer_PassesItsFormerNumber) {
  Answer(1);
  Notify(20, "old");
  Answer(Renew(), 2);
  for (uint32_t number = 3; number <= 25; ++number) Notify(number, std::to_string(number));
  EXPECT_EQ(app_.responses.size(), 24U);
  EXPECT_EQ(NumOld(), 0U);
}

TEST_F(ClientNotifications, CopiesAfterARestart_ExpireAfter128Seconds) {
  Answer(1);
  Notify(5000, "old");
  Answer(Renew(), 2);
  Notify(3, "three");
  host_.AdvanceMs(kOrderMs + 1'000);
  Notify(4999, "news");
  EXPECT_EQ(Taken(), "old three news ");
}

// The response to a renewal that notifications have overtaken is older than what they have told.
TEST_F(ClientNotifications, OvertakenAnswer_IsDropped) {
  Answer(1);
  Notify(7, "seven");
  const CoapMessage renewal = Renew();
  Notify(8, "eight");
  Notify(9, "nine");
  Answer(renewal, 7, "set");
  EXPECT_EQ(Taken(), "seven eight nine ");
  EXPECT_EQ(NumOld(), 1U);
  Notify(8, "eight");
  Notify(10, "ten");
  EXPECT_EQ(Taken(), "seven eight nine ten ");
}

// What was on its way before an answer that tells nothing is still news.
TEST_F(ClientNotifications, NotificationBehindAnEmptyAnswer_Counts) {
  Answer(1);
  Notify(7, "seven");
  Answer(Renew(), 9);
  Notify(8, "eight");
  Notify(9, "nine");
  EXPECT_EQ(Taken(), "seven eight nine ");
}

TEST_F(ClientNotifications, NotificationBehindAWholeSet_IsOld) {
  Answer(1);
  Notify(7, "seven");
  Answer(Renew(), 9, "set");
  Notify(8, "eight");
  EXPECT_EQ(Taken(), "seven set ");
}

// Only once the renewal has been acknowledged can a message be the separate response to it.
TEST_F(ClientNotifications, SeparateAnswerOfARestartedPeer_IsHeard) {
  Answer(1);
  Notify(5000, "old");
  const CoapMessage renewal = Renew();
  Notify(5000, "copy");
  EXPECT_EQ(Taken(), "old ");
  peer_.Send(AckOf(renewal));
  Ticks(2);
  Notify(2, "two");
  Notify(2, "two");
  Notify(3, "three");
  EXPECT_EQ(Taken(), "old two three ");
}

// A separate response is numbered on, like any notification: nothing is waited for after it.
TEST_F(ClientNotifications, CopyAfterASeparateAnswer_IsDropped) {
  Answer(1);
  Notify(2, "two");
  Notify(3, "three");
  const CoapMessage renewal = Renew();
  peer_.Send(AckOf(renewal));
  Ticks(2);
  Notify(4, "set");
  Notify(2, "two");
  Notify(5, "five");
  EXPECT_EQ(Taken(), "two three set five ");
  EXPECT_EQ(NumOld(), 1U);
}

// The renewal's datagram is lost: a notification that comes meanwhile does not answer it.
TEST_F(ClientNotifications, NotificationInPlaceOfTheAnswer_RenewalIsRetransmitted) {
  Answer(1);
  Notify(2, "two");
  const CoapMessage renewal = Renew();
  Notify(3, "three");
  Notify(2, "two");
  host_.AdvanceMs(3'500);
  const CoapMessage again = Next();
  EXPECT_EQ(again.messageId, renewal.messageId);
  EXPECT_EQ(again.token, renewal.token);
  Answer(again, 3);
}

TEST_F(ClientNotifications, GivenUpRenewal_LetsNoOldOnePass) {
  Answer(1);
  Notify(7, "seven");
  Renew();
  for (int i = 0; i < 25; ++i) host_.AdvanceMs(1'000);
  EXPECT_EQ(ReqOf(key_)->Tout, 1U);
  while (peer_.ReceiveNow()) {
  }
  Notify(6, "six");
  EXPECT_EQ(Taken(), "seven ");
}

TEST_F(ClientNotifications, TwoRelationsToOnePeer_HaveOrdersOfTheirOwn) {
  Answer(1);
  Notify(100, "first");
  EXPECT_EQ(Observe(key_, 2), 0U);
  const CoapMessage other = Next();
  Answer(other, 1);
  peer_.Send(Separate(CoapType::kCon, 990, other.token, "a")
                 .AddUint(kOptObserve, 2)
                 .PayloadText("second"));
  EXPECT_EQ(Next().type, CoapType::kAck);
  Notify(99, "old");
  EXPECT_EQ(Taken(), "first second ");
}

TEST_F(ClientNotifications, RelationAtAnotherPeer_BeginsAgain) {
  Answer(1);
  Notify(100, "here");
  RawPeer other{UdpAddress{"127.0.0.2", 0}};
  const CoapRpcCliReqParam param = ParamOf(1);
  const CoapRpcCliAddr addr = AddrOf(other);
  EXPECT_EQ(COAP_RpcCliObserveReq(Ctx(), &key_, &param, &addr), 0U);
  const CoapMessage moved = Next(other);
  other.Send(
      Separate(CoapType::kCon, 800, moved.token, "a").AddUint(kOptObserve, 3).PayloadText("there"));
  EXPECT_EQ(Next(other).type, CoapType::kAck);
  EXPECT_EQ(Taken(), "here there ");
}

// A client that sends from several addresses has a session of each.
// Sessions whose tokens begin at the same number.
class SameTokens : public ClientNotifications {
 private:
  FixedRandom random_;
};

TEST_F(SameTokens, SessionsOfSeveralSources_AreToldApart) {
  const UdpAddress first = peer_.Datagrams().back().other;
  Answer(1);
  CoapRpcCliAddr addr = PeerAddr();
  addr.srcIp.addr.ipv4 = kOwnIp + 5;
  const CoapRpcCliReqParam param = ParamOf(2);
  EXPECT_EQ(COAP_RpcCliObserveReq(Ctx(), &key_, &param, &addr), 0U);
  const CoapMessage other = Next();
  EXPECT_EQ(other.token, registration_.token);
  peer_.SetRemote(peer_.Datagrams().back().other);
  Answer(other, 50, "set");
  peer_.Send(
      Separate(CoapType::kCon, 990, other.token, "a").AddUint(kOptObserve, 49).PayloadText("old"));
  Next();
  peer_.SetRemote(first);
  Notify(49, "first");
  EXPECT_EQ(Taken(), "set first ");
  EXPECT_EQ(NumOld(), 1U);
}

// --- Payloads in blocks ---

class ClientNotifiedInBlocks : public ClientNotifications {
 protected:
  void SetUp() override {
    ClientNotifications::SetUp();
    Answer(1);
  }

  static std::string BodyOf(char what) { return std::string(2500, what); }

  // Block makes block `num` of a body as a message of the given kind.
  static CoapMessage WithBlock(CoapMessage message, const std::string &body, uint32_t num,
                               Bytes etag) {
    if (!etag.empty()) message.Add(kOptEtag, std::move(etag));
    return message.AddBlock(kOptBlock2, {num, num < 2, 6})
        .PayloadText(std::string_view(body).substr(size_t{num} * 1024, 1024));
  }

  CoapMessage First(uint32_t number, const std::string &body, Bytes etag = {}) {
    return WithBlock(Notification(number, ""), body, 0, std::move(etag));
  }

  // Begin sends the first block, and returns the request for the second one.
  CoapMessage Begin(uint32_t number, const std::string &body, Bytes etag = {}) {
    peer_.Send(First(number, body, std::move(etag)));
    return NextOf(CoapType::kCon);
  }

  // NextOf passes over messages of other types.
  CoapMessage NextOf(CoapType type) {
    CoapMessage message = Next();
    while (message.type != type && !HasFailure()) message = Next();
    return message;
  }

  // Give answers a request for a block.
  void Give(const CoapMessage &request, const std::string &body, Bytes etag = {}) {
    const std::optional<CoapBlock> block = request.Block(kOptBlock2);
    ASSERT_TRUE(block);
    peer_.Send(WithBlock(AnswerOf(request), body, block->num, std::move(etag)));
  }

  // Finish gives the blocks from the one asked for to the last.
  void Finish(const CoapMessage &second, const std::string &body, const Bytes &etag = {}) {
    Give(second, body, etag);
    Give(NextOf(CoapType::kCon), body, etag);
    Ticks(2);
  }
};

TEST_F(ClientNotifiedInBlocks, Body_IsTakenWhole) {
  Finish(Begin(2, BodyOf('x')), BodyOf('x'));
  EXPECT_EQ(Taken(), BodyOf('x') + ' ');
  Notify(2, "copy");
  Notify(3, "three");
  EXPECT_EQ(Taken(), BodyOf('x') + " three ");
}

TEST_F(ClientNotifiedInBlocks, LateFirstBlock_BeginsNoFetch) {
  Finish(Begin(2, BodyOf('x'), {1}), BodyOf('x'), {1});
  Notify(3, "three");
  for (uint32_t number : {2U, 3U}) {
    peer_.Send(First(number, BodyOf('x'), {1}));
    EXPECT_EQ(Next().type, CoapType::kAck);
    EXPECT_TRUE(IsSilent());
  }
  EXPECT_EQ(Taken(), BodyOf('x') + " three ");
  EXPECT_EQ(NumOld(), 2U);
}

TEST_F(ClientNotifiedInBlocks, LateFirstBlockInAnotherBody_DisturbsNothing) {
  for (const Bytes &etag : {Bytes{}, Bytes{9}}) {
    const uint32_t base = etag.empty() ? 10 : 20;
    Finish(Begin(base, BodyOf('x'), etag.empty() ? Bytes{} : Bytes{1}), BodyOf('x'),
           etag.empty() ? Bytes{} : Bytes{1});
    app_.responses.clear();
    const CoapMessage second = Begin(base + 1, BodyOf('y'), etag);
    peer_.Send(First(base, BodyOf('x'), etag.empty() ? Bytes{} : Bytes{1}));
    EXPECT_EQ(Next().type, CoapType::kAck);
    Finish(second, BodyOf('y'), etag);
    EXPECT_EQ(Taken(), BodyOf('y') + ' ');
  }
}

// A late copy of a later block: not of the body that is coming in now.
TEST_F(ClientNotifiedInBlocks, LateSecondBlockInAnotherBody_DisturbsNothing) {
  for (const bool hasEtag : {false, true}) {
    app_.responses.clear();
    const Bytes one = hasEtag ? Bytes{1} : Bytes{};
    const Bytes two = hasEtag ? Bytes{2} : Bytes{};
    const CoapMessage old = Begin(hasEtag ? 20 : 10, BodyOf('x'), one);
    Finish(old, BodyOf('x'), one);
    const CoapMessage second = Begin(hasEtag ? 21 : 11, BodyOf('y'), two);
    Give(old, BodyOf('x'), one);
    Finish(second, BodyOf('y'), two);
    EXPECT_EQ(Taken(), BodyOf('x') + ' ' + BodyOf('y') + ' ') << hasEtag;
  }
}

// The next block is lost for good: the notification after that begins a body of its own.
TEST_F(ClientNotifiedInBlocks, AfterALostBlock_TheNextBodyArrives) {
  for (const Bytes &etag : {Bytes{}, Bytes{8}}) {
    app_.responses.clear();
    const uint32_t base = etag.empty() ? 10 : 20;
    Begin(base, BodyOf('x'), etag.empty() ? Bytes{} : Bytes{7});
    for (int i = 0; i < 25; ++i) host_.AdvanceMs(1'000);
    while (peer_.ReceiveNow()) {
    }
    Finish(Begin(base + 1, BodyOf('y'), etag), BodyOf('y'), etag);
    EXPECT_EQ(Taken(), BodyOf('y') + ' ') << base;
  }
}

// The body that was begun first is whole only after a newer payload has come.
TEST_F(ClientNotifiedInBlocks, OvertakenBody_IsDropped) {
  const CoapMessage second = Begin(2, BodyOf('x'));
  Notify(3, "three");
  Finish(second, BodyOf('x'));
  EXPECT_EQ(Taken(), "three ");
  EXPECT_EQ(NumOld(), 1U);
  Finish(Begin(4, BodyOf('y')), BodyOf('y'));
  EXPECT_EQ(Taken(), "three " + BodyOf('y') + ' ');
}

// A notification that tells nothing overtakes nothing.
TEST_F(ClientNotifiedInBlocks, EmptyNotificationInABody_LetsItArrive) {
  const CoapMessage second = Begin(2, BodyOf('x'));
  CoapMessage empty = Separate(CoapType::kCon, ++mid_, registration_.token, "a", Code(2, 1));
  peer_.Send(empty.AddUint(kOptObserve, 3));
  EXPECT_EQ(Next().type, CoapType::kAck);
  Finish(second, BodyOf('x'));
  EXPECT_EQ(Taken(), BodyOf('x') + ' ');
  EXPECT_EQ(NumOld(), 0U);
}

// --- Renewals that wait ---

// The answer of a restarted peer is lost, and the notification behind it comes first.
TEST_F(ClientNotifications, NotificationOfARestartedPeerBeforeItsAnswer_CountsWhenItIsRepeated) {
  Answer(1);
  Notify(4999, "older");
  Notify(5000, "old");
  const CoapMessage renewal = Renew();
  Notify(4999, "copy");
  const CoapMessage early = Notification(3, "set");
  for (int i = 0; i < 2; ++i) {
    peer_.Send(early);
    Ticks(2);
    EXPECT_FALSE(peer_.ReceiveNow());
  }
  Answer(renewal, 2);
  peer_.Send(early);
  EXPECT_EQ(ReplyTo(mid_).type, CoapType::kAck);
  EXPECT_EQ(Taken(), "older old set ");
  EXPECT_EQ(NumOld(), 1U);
}

class ClientRenewal : public ClientNotifiedInBlocks {
 protected:
  uint32_t Verify() {
    const CoapRpcCliReqParam param = ParamOf(1);
    const CoapRpcCliAddr addr = PeerAddr();
    return COAP_RpcCliObserveReqVerify(Ctx(), &key_, &param, &addr);
  }
};

TEST_F(ClientRenewal, Verify_WaitsForThePayloadAndHasItsCheckCode) {
  Notify(2, "two");
  const CoapMessage second = Begin(3, BodyOf('x'), {0x21});
  for (int i = 0; i < 3; ++i) EXPECT_EQ(Verify(), 0U);
  host_.AdvanceMs(1'100);
  Give(second, BodyOf('x'), {0x21});
  const CoapMessage third = NextOf(CoapType::kCon);
  EXPECT_EQ(third.Block(kOptBlock2)->num, 2U) << "no renewal before it";
  Give(third, BodyOf('x'), {0x21});
  const CoapMessage renewal = NextOf(CoapType::kCon);
  EXPECT_EQ(renewal.Values(kOptUriQuery), std::vector<Bytes>{BytesOf("_ual-checkcode=33")});
  EXPECT_EQ(renewal.Values(kOptObserve), std::vector<Bytes>{{}});
  EXPECT_EQ(Taken(), "two " + BodyOf('x') + ' ');
  Answer(renewal, 3);
  EXPECT_TRUE(IsSilent()) << "calls do not queue up";
}

// ---- what was dropped and is no copy

class ClientMissing : public ClientRenewal {
 protected:
  void SetUp() override {
    ClientRenewal::SetUp();
    peer_.Send(Notification(10, "ten").Add(kOptEtag, {7}));
    EXPECT_EQ(Next().type, CoapType::kAck);
  }
  // Asked renews the relation, and gives the check code that it asks with.
  std::string Asked(bool isAnswered = true) {
    EXPECT_EQ(Verify(), 0U);
    const CoapMessage renewal = NextOf(CoapType::kCon);
    if (isAnswered) Answer(renewal, 11);
    if (!isAnswered) peer_.Send(RstOf(renewal));
    Ticks(2);
    const std::vector<Bytes> query = renewal.Values(kOptUriQuery);
    return query.size() == 1 ? std::string(query[0].begin(), query[0].end()) : "";
  }

  const std::string known_ = "_ual-checkcode=7";
  const std::string all_ = "_ual-checkcode=0";
};

TEST_F(ClientMissing, OvertakenNotification_EverythingIsAskedForOnce) {
  EXPECT_EQ(Asked(), known_);
  Notify(9, "nine");
  EXPECT_EQ(Taken(), "ten ");
  EXPECT_EQ(Asked(false), all_);
  EXPECT_EQ(Asked(), all_);
  EXPECT_EQ(Asked(), known_);
}

TEST_F(ClientMissing, CopiesAndEmptyOnes_AreNotMissing) {
  Notify(10, "ten");
  peer_.Send(Separate(CoapType::kCon, ++mid_, registration_.token, "a", Code(2, 1))
                 .AddUint(kOptObserve, 9));
  EXPECT_EQ(Next().type, CoapType::kAck);
  EXPECT_EQ(NumOld(), 2U);
  EXPECT_EQ(Asked(), known_);
}

TEST_F(ClientMissing, OvertakenAnswer_EverythingIsAskedFor) {
  EXPECT_EQ(Verify(), 0U);
  const CoapMessage renewal = NextOf(CoapType::kCon);
  Notify(12, "twelve");
  Answer(renewal, 11, "set");
  EXPECT_EQ(Asked(), all_);
}

TEST_F(ClientMissing, OvertakenBody_EverythingIsAskedFor) {
  const CoapMessage second = Begin(11, BodyOf('x'), {8});
  peer_.Send(Notification(12, "twelve").Add(kOptEtag, {9}));
  EXPECT_EQ(Next().type, CoapType::kAck);
  Finish(second, BodyOf('x'), {8});
  EXPECT_EQ(Taken(), "ten twelve ");
  EXPECT_EQ(Asked(), all_);
  EXPECT_EQ(Asked(), "_ual-checkcode=9");
}

// A registration without check code asks for nothing, so its answer leaves things as they are.
TEST_F(ClientMissing, PlainRenewal_DoesNotHelp) {
  Notify(9, "nine");
  EXPECT_EQ(Asked(false), all_);
  Answer(Renew(), 11);
  EXPECT_EQ(Asked(), all_);
}

// An unanswered question for everything that nothing was missing for changes no later one.
TEST_F(ClientMissing, LostBatch_TheNextOneVerifies) {
  const CoapRpcCliReqParam param = ParamOf(1);
  const CoapRpcCliAddr addr = PeerAddr();
  EXPECT_EQ(COAP_RpcCliObserveReqBatch(Ctx(), &key_, &param, &addr), 0U);
  peer_.Send(RstOf(NextOf(CoapType::kCon)));
  Ticks(2);
  EXPECT_EQ(Asked(), known_);
}

TEST_F(ClientRenewal, GivenUpPayload_IsNotWaitedFor) {
  Begin(2, BodyOf('x'));
  EXPECT_EQ(Verify(), 0U);
  bool isRenewed = false;
  uint64_t waitedMs = 0;
  for (; waitedMs < 30'000 && !isRenewed; waitedMs += 500) {
    host_.AdvanceMs(500);
    while (const std::optional<CoapMessage> message = peer_.ReceiveNow()) {
      isRenewed = isRenewed || message->Has(kOptObserve);
    }
  }
  EXPECT_TRUE(isRenewed);
  EXPECT_GE(waitedMs, 21'000U);
  EXPECT_LE(waitedMs, 25'000U);
}

TEST_F(ClientRenewal, PayloadAfterTheOneWaitedFor_IsNotWaitedFor) {
  const CoapMessage second = Begin(2, BodyOf('x'));
  EXPECT_EQ(Verify(), 0U);
  host_.AdvanceMs(1'100);
  Finish(second, BodyOf('x'));
  peer_.Send(First(3, BodyOf('y')));
  host_.AdvanceMs(1'100);
  bool isRenewed = false;
  while (const std::optional<CoapMessage> message = peer_.ReceiveMessage(Pump(), kNothingComes)) {
    isRenewed = isRenewed || message->Has(kOptObserve);
    if (message->type == CoapType::kCon && !message->Has(kOptObserve)) {
      peer_.Send(AckOf(*message));
    }
  }
  EXPECT_TRUE(isRenewed);
}

TEST_F(ClientRenewal, EndedWhileItWaits_OnlyTheCancelLeaves) {
  const CoapMessage second = Begin(2, BodyOf('x'));
  EXPECT_EQ(Verify(), 0U);
  host_.AdvanceMs(1'100);
  EXPECT_EQ(UnObserve(key_), 0U);
  peer_.Send(AckOf(second));
  const CoapMessage cancel = NextOf(CoapType::kCon);
  EXPECT_EQ(cancel.Values(kOptObserve), std::vector<Bytes>{{1}});
  peer_.Send(AckOf(cancel));
  EXPECT_TRUE(IsSilent());
  EXPECT_EQ(Ctx()->cli->resendTimer, 0U);
}

TEST_F(ClientRenewal, OthersDoNotWaitWithIt) {
  Begin(2, BodyOf('x'));
  for (uint32_t i = 0; i < 30; ++i) EXPECT_EQ(Verify(), 0U);
  RawPeer other{UdpAddress{"127.0.0.2", 0}};
  const CoapRpcCliReqParam param = ParamOf(2);
  const CoapRpcCliAddr addr = AddrOf(other);
  EXPECT_EQ(COAP_RpcCliObserveReq(Ctx(), &key_, &param, &addr), 0U);
  EXPECT_TRUE(Next(other).Has(kOptObserve));
}

TEST_F(ClientRenewal, StoppedWhileItWaits_FreesAll) {
  Begin(2, BodyOf('x'));
  EXPECT_EQ(Verify(), 0U);
  host_.AdvanceMs(1'100);
  instance_.reset();
}

}  // namespace
}  // namespace coap_rpc_test
