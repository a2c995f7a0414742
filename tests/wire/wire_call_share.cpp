// Observations of the same by one instance: one registration, and all hear of it.
#include "client_calls.h"

namespace coap_rpc_test {
namespace {

class CallShare : public ClientCalls {
 protected:
  // Heard is what the observation with an id was told, in order.
  std::string Heard(uint64_t id) const {
    std::string all;
    for (const Told &told : told_) {
      if (told.rsp.id != id) continue;
      const bool isAnswer = told.rsp.status == COAP_RPC_CALL_ANSWERED;
      all += isAnswer ? told.payload : std::to_string(told.rsp.status);
      all += told.rsp.isLast != 0 ? "! " : " ";
    }
    return all;
  }
  CoapMessage Expect() {
    request_ = Next();
    return request_;
  }
  void Accept(uint32_t number, std::string_view text) {
    Say(Piggyback(request_).AddUint(kOptObserve, number).AddUint(kOptMaxAge, 30).PayloadText(text));
  }
  void Notify(uint32_t number, std::string_view text) {
    Say(Apart(CoapType::kNon, ++mid_, request_)
            .AddUint(kOptObserve, number)
            .AddUint(kOptMaxAge, 30)
            .PayloadText(text));
  }
  // Two begins an observation and, once it is registered, one that follows it.
  void Two() {
    first_ = Watch(Get("w"));
    Expect();
    Accept(10, "a");
    second_ = Watch(Get("w"));
    const Bytes token = request_.token;
    EXPECT_EQ(Expect().token, token) << "another token replaces the observer";
    EXPECT_EQ(request_.Uint(kOptObserve), 0U);
    Accept(11, "b");
  }
  // BothAsk begins two observations, whose registration is not answered yet.
  void BothAsk() {
    first_ = Watch(Get("w"));
    second_ = Watch(Get("w"));
    Expect();
  }
  // ExpectHeard says what the two have heard.
  void ExpectHeard(const char *first, const char *second) const {
    EXPECT_EQ(Heard(first_), first);
    EXPECT_EQ(Heard(second_), second);
  }
  void Cancel(uint64_t id) { EXPECT_EQ(COAP_RpcCallCancel(Ctx(), id), 0U); }
  bool IsFarewell(const CoapMessage &message) const {
    return message.Values(kOptObserve) == std::vector<Bytes>{{1}} &&
           message.token == request_.token;
  }

  CoapMessage request_;
  uint64_t first_ = 0, second_ = 0;
  uint16_t mid_ = 100;
};

TEST_F(CallShare, BothHearAll_ByOneToken) {
  Two();
  Notify(12, "c");
  ExpectHeard("a b c ", "b c ");
  EXPECT_EQ(NumCalls(), 2U);
}

TEST_F(CallShare, BeforeTheAnswer_NothingIsSentAgain) {
  BothAsk();
  Accept(10, "a");
  ExpectHeard("a ", "a ");
  EXPECT_TRUE(IsSilent());
}

TEST_F(CallShare, OtherOptions_AreAnotherRegistration) {
  CoapRpcCall queried = Get("w"), accepting = Get("w");
  queried.query = "a=1";
  accepting.has = COAP_RPC_CALL_HAS_ACCEPT;
  for (const CoapRpcCall &call : {Get("w"), queried, accepting, Get("wx"), Get("w/x")}) {
    const Bytes before = request_.token;
    Watch(call);
    EXPECT_NE(Expect().token, before);
    Accept(10, "a");
  }
  EXPECT_EQ(told_.size(), 5U) << "nobody shares";
}

TEST_F(CallShare, OneIsRenewedForAll) {
  Two();
  for (int i = 0; i < 5; ++i) {
    Wait(10'000);
    Notify(20 + static_cast<uint32_t>(i), "n");
  }
  EXPECT_EQ(Heard(second_), "b n n n n n ");
  const size_t numSent = peer_.Datagrams().size();
  Wait(50'000);
  EXPECT_GT(peer_.Datagrams().size(), numSent) << "no renewal";
}

TEST_F(CallShare, FollowerLeaves_TheOtherGoesOn) {
  Two();
  Cancel(second_);
  EXPECT_TRUE(IsSilent());
  Notify(12, "c");
  ExpectHeard("a b c ", "b 3! ");
  Cancel(first_);
  EXPECT_TRUE(IsFarewell(Next()));
}

TEST_F(CallShare, FirstLeaves_TheOtherGoesOn) {
  Two();
  Cancel(first_);
  EXPECT_TRUE(IsSilent());
  EXPECT_EQ(COAP_RpcCallCancel(Ctx(), first_), 1900001502U);
  Notify(12, "c");
  ExpectHeard("a b 3! ", "b c ");
  Cancel(second_);
  const CoapMessage farewell = Next();
  EXPECT_TRUE(IsFarewell(farewell));
  Say(Piggyback(farewell));
  EXPECT_EQ(NumCalls(), 0U);
}

TEST_F(CallShare, FirstLeavesWhileItIsQueued) {
  Make(Get("busy"));
  const CoapMessage busy = Next();
  first_ = Watch(Get("w"));
  second_ = Watch(Get("w"));
  Cancel(first_);
  Say(Piggyback(busy));
  Expect();
  Accept(10, "a");
  ExpectHeard("3! ", "a ");
}

TEST_F(CallShare, AllLeaveWhileTheyAreQueued) {
  Make(Get("busy"));
  const CoapMessage busy = Next();
  first_ = Watch(Get("w"));
  second_ = Watch(Get("w"));
  Cancel(first_);
  Cancel(second_);
  Say(Piggyback(busy));
  EXPECT_TRUE(IsSilent());
  EXPECT_EQ(NumCalls(), 0U);
}

TEST_F(CallShare, AfterAllHaveLeft_ANewOneRegisters) {
  Two();
  const Bytes token = request_.token;
  Cancel(second_);
  Cancel(first_);
  const uint64_t third = Watch(Get("w"));
  const CoapMessage farewell = Next();
  Say(Piggyback(farewell));
  EXPECT_NE(Expect().token, token);
  Accept(10, "d");
  EXPECT_EQ(Heard(third), "d ");
}

TEST_F(CallShare, TheEndIsToldToAll) {
  Two();
  Say(Apart(CoapType::kNon, 9, request_, Code(4, 4)).PayloadText("gone"));
  ExpectHeard("a b gone! ", "b gone! ");
  EXPECT_EQ(NumCalls(), 0U);
}

TEST_F(CallShare, ResetIsToldToAll) {
  BothAsk();
  Say(RstOf(request_));
  EXPECT_EQ(Statuses(), (Ends{COAP_RPC_CALL_RESET, COAP_RPC_CALL_RESET}));
}

TEST_F(CallShare, FollowerHasADeadlineOfItsOwn) {
  first_ = Watch(Get("w"));
  CoapRpcCall call = Get("w");
  call.deadlineMs = 2'000;
  second_ = Watch(call);
  Expect();
  Wait(2'500);
  EXPECT_EQ(Heard(second_), "2! ");
  Accept(10, "a");
  EXPECT_EQ(Heard(first_), "a ");
}

TEST_F(CallShare, HeardFollower_HasNone) {
  first_ = Watch(Get("w"));
  CoapRpcCall call = Get("w");
  call.deadlineMs = 2'000;
  second_ = Watch(call);
  Expect();
  Accept(10, "a");
  Wait(20'000);
  Notify(11, "b");
  EXPECT_EQ(Heard(second_), "a b ");
}

TEST_F(CallShare, SilentFirst_LeavesWhenItsFollowerIsTooLate) {
  first_ = Watch(Get("w"));
  Expect();
  Accept(10, "a");
  CoapRpcCall call = Get("w");
  call.deadlineMs = 2'000;
  second_ = Watch(call);
  Expect();
  Cancel(first_);
  Wait(2'500);
  EXPECT_EQ(Heard(second_), "2! ");
  bool isLeft = false;
  for (const PeerDatagram &datagram : peer_.Datagrams()) {
    CoapMessage message;
    EXPECT_EQ(Parse(datagram.bytes, &message), "");
    isLeft = isLeft || IsFarewell(message);
  }
  EXPECT_TRUE(isLeft);
}

TEST_F(CallShare, BegunInANotification) {
  first_ = Watch(Get("w"));
  Expect();
  onTold_ = [&](const CoapRpcCallRsp &) {
    if (second_ == 0) second_ = Watch(Get("w"));
  };
  Accept(10, "a");
  Expect();
  Accept(11, "b");
  ExpectHeard("a b ", "a b ");
}

TEST_F(CallShare, CancelledInANotification_IsNotTold) {
  Two();
  const uint64_t third = Watch(Get("w"));
  Expect();
  onTold_ = [&](const CoapRpcCallRsp &rsp) {
    if (rsp.id == first_ && rsp.status == COAP_RPC_CALL_ANSWERED) Cancel(second_);
  };
  Accept(12, "c");
  EXPECT_EQ(Heard(second_), "b 3! ");
  EXPECT_EQ(Heard(third), "c ");
}

TEST_F(CallShare, AllCancelledInANotification) {
  Two();
  bool isDone = false;
  onTold_ = [&](const CoapRpcCallRsp &) {
    if (std::exchange(isDone, true)) return;
    Cancel(first_);
    Cancel(second_);
  };
  Notify(12, "c");
  ExpectHeard("a b c 3! ", "b 3! ");
  EXPECT_TRUE(IsFarewell(Next()));
}

TEST_F(CallShare, CancelledAndBegunAtTheEnd) {
  Two();
  uint64_t third = 0;
  onTold_ = [&](const CoapRpcCallRsp &rsp) {
    if (rsp.id != first_) return;
    Cancel(second_);
    third = Watch(Get("w"));
  };
  const Bytes token = request_.token;
  Say(Apart(CoapType::kNon, 9, request_, Code(4, 4)).PayloadText("gone"));
  onTold_ = nullptr;
  EXPECT_EQ(Heard(second_), "b 3! ");
  EXPECT_NE(Expect().token, token);
  Accept(10, "new");
  EXPECT_EQ(Heard(third), "new ");
}

TEST_F(CallShare, StopTellsAllOnce) {
  Two();
  const uint64_t third = Watch(Get("w"));
  Cancel(first_);
  instance_->Stop();
  ExpectHeard("a b 3! ", "b 6! ");
  EXPECT_EQ(Heard(third), "6! ");
}

}  // namespace
}  // namespace coap_rpc_test
