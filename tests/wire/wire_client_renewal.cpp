// Renewals deferred until a payload is complete, and those that ask for everything after a change
// was dropped.
#include "client_notifications.h"

namespace coap_rpc_test {
namespace {

// --- Delayed renewals ---

// The answer of a restarted peer is lost, and the notification after it comes first.
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
