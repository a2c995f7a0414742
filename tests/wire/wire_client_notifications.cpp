// The order of a relation's notifications: late copies and overtaken ones are dropped, whole
// payloads in blocks included, and nothing makes a relation deaf.
#include "client_notifications.h"
#include "fixed_random.h"

namespace coap_rpc_test {
namespace {

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
  EXPECT_EQ(COAP_RpcGetOldNotificationNum(Ctx()), 2U);
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
TEST_F(ClientNotifications, NotificationAfterAnEmptyAnswer_Counts) {
  Answer(1);
  Notify(7, "seven");
  Answer(Renew(), 9);
  Notify(8, "eight");
  Notify(9, "nine");
  EXPECT_EQ(Taken(), "seven eight nine ");
}

TEST_F(ClientNotifications, NotificationAfterAWholeSet_IsOld) {
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

}  // namespace
}  // namespace coap_rpc_test
