// Observations by calls: order, renewal, blocks, and their ends.
#include "client_calls.h"

namespace coap_rpc_test {
namespace {

class CallObserve : public ClientCalls {
 protected:
  CoapMessage Register() {
    id_ = Watch(Get("w"));
    request_ = Next();
    return request_;
  }
  CoapMessage Notification(uint32_t number, std::string_view text, CoapType type = CoapType::kNon) {
    CoapMessage message = Apart(type, ++mid_, request_);
    message.AddUint(kOptObserve, number).AddUint(kOptMaxAge, 30).PayloadText(text);
    return message;
  }
  // Accept answers the latest registration.
  void Accept(uint32_t number, std::string_view text, uint32_t maxAge = 30) {
    CoapMessage answer = Piggyback(request_).AddUint(kOptObserve, number);
    if (maxAge != 60) answer.AddUint(kOptMaxAge, maxAge);
    Say(answer.PayloadText(text));
  }
  std::string Texts() const {
    std::string all;
    for (const Told &told : told_) all += told.payload + (told.rsp.isLast != 0 ? "!" : "") + " ";
    return all;
  }
  // NextWithin waits for a message and returns after how many milliseconds it came.
  uint64_t NextWithin(uint64_t ms, CoapMessage *out) {
    for (uint64_t t = 0; t < ms; t += kTickMs) {
      if (const auto message = peer_.ReceiveNow()) {
        *out = *message;
        return t;
      }
      Tick();
    }
    return UINT64_MAX;
  }

  CoapMessage request_;
  uint16_t mid_ = 100;
};

TEST_F(CallObserve, RegistersAndHears) {
  const CoapMessage request = Register();
  CoapMessage expected = Request(CoapType::kCon, kCodeGet, request.messageId, request.token);
  EXPECT_EQ(request, expected.Add(kOptObserve).AddPath("w"));
  EXPECT_EQ(request.token.size(), 8U);
  Accept(10, "a");
  const CoapMessage con = Notification(11, "b", CoapType::kCon);
  peer_.Send(con);
  EXPECT_EQ(Next(), AckOf(con));
  Say(Notification(12, "c"));
  EXPECT_EQ(Texts(), "a b c ");
  for (const Told &told : told_) {
    EXPECT_EQ(told.rsp.id, id_);
    EXPECT_EQ(told.rsp.code, 205U);
    EXPECT_EQ(told.rsp.maxAge, 30U);
  }
  EXPECT_GT(told_[0].rsp.rttUs, 0U);
  EXPECT_EQ(told_[1].rsp.rttUs, 0U);
  EXPECT_EQ(NumCalls(), 1U);
}

TEST_F(CallObserve, OlderNotifications_AreDropped) {
  (void)Register();
  Accept(10, "a");
  Say(Notification(12, "c"));
  const CoapMessage old = Notification(11, "b", CoapType::kCon);
  peer_.Send(old);
  EXPECT_EQ(Next(), AckOf(old));
  Say(Notification(12, "c"));
  Say(Notification(0xFFFFF0, "before the wrap"));
  EXPECT_EQ(Texts(), "a c ");
  EXPECT_EQ(COAP_RpcGetOldNotificationNum(Ctx()), 3U);
}

TEST_F(CallObserve, NumbersWrap_AndAge) {
  (void)Register();
  Accept(0xFFFFFF, "a", 1000);
  Say(Notification(0, "b"));
  EXPECT_EQ(Texts(), "a b ");
  Say(Apart(CoapType::kNon, 7, request_)
          .AddUint(kOptObserve, 0xFFFFFE)
          .AddUint(kOptMaxAge, 1000)
          .PayloadText("old"));
  EXPECT_EQ(Texts(), "a b ");
  Say(Apart(CoapType::kNon, 8, request_)
          .AddUint(kOptObserve, 1)
          .AddUint(kOptMaxAge, 1000)
          .PayloadText("c"));
  Wait(129'000);
  Say(Apart(CoapType::kNon, 9, request_)
          .AddUint(kOptObserve, 0xFFFFFE)
          .AddUint(kOptMaxAge, 1000)
          .PayloadText("d"));
  EXPECT_EQ(Texts(), "a b c d ");
}

TEST_F(CallObserve, RegistersAgain_AfterMaxAge) {
  const CoapMessage first = Register();
  Accept(10, "a");
  CoapMessage renewal;
  const uint64_t ms = NextWithin(60'000, &renewal);
  EXPECT_GE(ms, 34'000U);
  EXPECT_LE(ms, 46'000U);
  CoapMessage expected = first;
  expected.messageId = renewal.messageId;
  EXPECT_EQ(renewal, expected);
  request_ = renewal;
  Accept(11, "b");
  EXPECT_EQ(Texts(), "a b ");
}

TEST_F(CallObserve, MaxAgeIsSixtySeconds_WhenItIsNotSaid) {
  (void)Register();
  Accept(10, "a", 60);
  CoapMessage renewal;
  const uint64_t ms = NextWithin(90'000, &renewal);
  EXPECT_GE(ms, 64'000U);
  EXPECT_LE(ms, 76'000U);
}

TEST_F(CallObserve, NotificationsPutTheRenewalOff) {
  (void)Register();
  Accept(10, "a");
  for (uint32_t number = 11; number < 20; ++number) {
    CoapMessage message;
    EXPECT_EQ(NextWithin(20'000, &message), UINT64_MAX);
    Say(Notification(number, "x"));
  }
  EXPECT_EQ(told_.size(), 10U);
}

TEST_F(CallObserve, UnansweredRegistration_IsATimeout) {
  CoapRpcCall call = Get("w");
  call.deadlineMs = 3'000;
  Watch(call);
  (void)Next();
  Wait(4'000);
  EXPECT_EQ(Statuses(), Ends{COAP_RPC_CALL_TIMEOUT});
  EXPECT_EQ(NumCalls(), 0U);
}

TEST_F(CallObserve, UnansweredRenewal_IsATimeout) {
  (void)Register();
  Accept(10, "a");
  Wait(50'000 + 95'000);
  EXPECT_EQ(Statuses(), (Ends{COAP_RPC_CALL_ANSWERED, COAP_RPC_CALL_TIMEOUT}));
  EXPECT_EQ(told_[1].rsp.isLast, 1U);
}

TEST_F(CallObserve, NotificationWhileARenewalIsLost_CountsAsItsAnswer) {
  (void)Register();
  Accept(10, "a");
  CoapMessage renewal;
  ASSERT_NE(NextWithin(60'000, &renewal), UINT64_MAX);
  Say(Notification(11, "b"));
  CoapMessage repeated;
  ASSERT_NE(NextWithin(5'000, &repeated), UINT64_MAX) << "the renewal is still to be answered";
  request_ = repeated;
  Accept(12, "c");
  EXPECT_EQ(Texts(), "a b c ");
}

TEST_F(CallObserve, AnswerWithoutObserve_IsTheLast) {
  (void)Register();
  Say(Piggyback(request_).PayloadText("once"));
  EXPECT_EQ(Texts(), "once! ");
  EXPECT_EQ(NumCalls(), 0U);
  EXPECT_EQ(COAP_RpcCallCancel(Ctx(), id_), 1900001502U);
}

TEST_F(CallObserve, ErrorNotification_IsTheLast) {
  (void)Register();
  Accept(10, "a");
  Say(Apart(CoapType::kNon, 9, request_, Code(4, 4)));
  EXPECT_EQ(Texts(), "a ! ");
  EXPECT_EQ(told_[1].rsp.code, 404U);
  EXPECT_EQ(NumCalls(), 0U);
  const CoapMessage more = Notification(12, "more", CoapType::kCon);
  peer_.Send(more);
  EXPECT_EQ(Next(), RstOf(more));
}

TEST_F(CallObserve, Cancel_TellsTheServer) {
  const CoapMessage first = Register();
  Accept(10, "a");
  EXPECT_EQ(COAP_RpcCallCancel(Ctx(), id_), 0U);
  EXPECT_EQ(told_.back().rsp.status, COAP_RPC_CALL_CANCELLED);
  EXPECT_EQ(COAP_RpcCallCancel(Ctx(), id_), 1900001502U);
  const CoapMessage farewell = Next();
  CoapMessage expected = Request(CoapType::kCon, kCodeGet, farewell.messageId, first.token);
  EXPECT_EQ(farewell, expected.Add(kOptObserve, {1}).AddPath("w"));
  Say(Notification(11, "b"));
  Say(Piggyback(farewell).PayloadText("state"));
  EXPECT_EQ(Texts(), "a ! ");
  EXPECT_EQ(NumCalls(), 0U);
  EXPECT_EQ(NumDropped(), 0U);
  EXPECT_TRUE(IsSilent());
}

TEST_F(CallObserve, Cancel_BeforeTheAnswer) {
  (void)Register();
  EXPECT_EQ(COAP_RpcCallCancel(Ctx(), id_), 0U);
  const CoapMessage farewell = Next();
  EXPECT_EQ(farewell.Values(kOptObserve), std::vector<Bytes>{{1}});
  Wait(100'000);
  EXPECT_EQ(NumCalls(), 0U);  // nobody has acknowledged the farewell
  for (const PeerDatagram &datagram : peer_.Datagrams()) {
    CoapMessage message;
    EXPECT_EQ(Parse(datagram.bytes, &message), "");
    if (&datagram != &peer_.Datagrams()[0]) {
      EXPECT_EQ(message.Values(kOptObserve), std::vector<Bytes>{{1}});
    }
  }
  EXPECT_EQ(Statuses(), Ends{COAP_RPC_CALL_CANCELLED});
}

TEST_F(CallObserve, Cancel_InsideANotification) {
  (void)Register();
  Accept(10, "a");
  onTold_ = [&](const CoapRpcCallRsp &rsp) {
    if (rsp.status == COAP_RPC_CALL_ANSWERED) {
      EXPECT_EQ(COAP_RpcCallCancel(Ctx(), rsp.id), 0U);
    }
  };
  Say(Notification(11, "b"));
  EXPECT_EQ(Texts(), "a b ! ");
  EXPECT_EQ(Next().Values(kOptObserve), std::vector<Bytes>{{1}});
}

TEST_F(CallObserve, Cancel_OfAQueuedOne) {
  Make(Get("a"));
  const CoapMessage request = Next();
  const uint64_t id = Watch(Get("w"));
  EXPECT_EQ(COAP_RpcCallCancel(Ctx(), id), 0U);
  Say(Piggyback(request));
  EXPECT_TRUE(IsSilent());
  EXPECT_EQ(Statuses(), (Ends{COAP_RPC_CALL_CANCELLED, COAP_RPC_CALL_ANSWERED}));
}

TEST_F(CallObserve, NotificationInBlocks_IsToldWhole) {
  (void)Register();
  Accept(10, "a");
  std::string body;
  for (int i = 0; i < 200; ++i) body += static_cast<char>('a' + i % 26);
  CoapMessage first = Apart(CoapType::kNon, 9, request_).AddUint(kOptObserve, 11);
  peer_.Send(first.AddBlock(kOptBlock2, {0, true, 2}).PayloadText(body.substr(0, 64)));
  for (uint32_t num = 1; num < 4; ++num) {
    const CoapMessage request = Next();
    EXPECT_FALSE(request.Has(kOptObserve));
    const CoapBlock block{num, num < 3, 2};
    peer_.Send(
        Piggyback(request).AddBlock(kOptBlock2, block).PayloadText(body.substr(num * 64, 64)));
  }
  Ticks(3);
  ASSERT_EQ(told_.size(), 2U);
  EXPECT_EQ(told_[1].payload, body);
  EXPECT_EQ(told_[1].rsp.isLast, 0U);
  Say(Notification(12, "c"));
  EXPECT_EQ(told_.size(), 3U);
}

TEST_F(CallObserve, BrokenBlocks_AreAskedForAgain) {
  (void)Register();
  Accept(10, "a");
  const std::string block(64, 'x');
  CoapMessage first = Apart(CoapType::kNon, 9, request_).AddUint(kOptObserve, 11);
  peer_.Send(first.AddBlock(kOptBlock2, {0, true, 2}).PayloadText(block));
  const CoapMessage request = Next();
  Say(Piggyback(request).AddBlock(kOptBlock2, {3, false, 2}).PayloadText("the last of four"));
  EXPECT_EQ(Texts(), "a ");
  ASSERT_NE(NextWithin(7'000, &request_), UINT64_MAX);
  EXPECT_EQ(request_.Uint(kOptObserve), 0U);
  Accept(12, "b");
  EXPECT_EQ(Texts(), "a b ");
}

TEST_F(CallObserve, NewerNotification_OvertakesBlocks) {
  (void)Register();
  Accept(10, "a");
  const std::string block(64, 'x');
  CoapMessage first = Apart(CoapType::kNon, 9, request_).AddUint(kOptObserve, 11);
  peer_.Send(first.AddBlock(kOptBlock2, {0, true, 2}).PayloadText(block));
  const CoapMessage request = Next();
  Say(Notification(12, "newer"));
  Say(Piggyback(request).AddBlock(kOptBlock2, {1, false, 2}).PayloadText("end"));
  EXPECT_EQ(Texts(), "a newer ");
}

TEST_F(CallObserve, RenewalWaitsForBlocks) {
  (void)Register();
  Accept(10, "a");
  std::string body(64, 'x');
  CoapMessage first = Apart(CoapType::kNon, 9, request_).AddUint(kOptObserve, 11);
  // The freshness of the notification before this one ends while blocks come in.
  peer_.Send(first.AddBlock(kOptBlock2, {0, true, 2}).PayloadText(body));
  uint32_t numBlocks = 0;
  for (uint32_t num = 1; num <= 10; ++num) {
    const CoapMessage request = Next();
    ASSERT_TRUE(request.Has(kOptBlock2)) << request;
    EXPECT_EQ(request.Block(kOptBlock2)->num, num);
    for (int i = 0; i < 50; ++i) Tick();
    const CoapBlock block{num, num < 10, 2};
    peer_.Send(Piggyback(request).AddBlock(kOptBlock2, block).PayloadText(body));
    ++numBlocks;
    (void)peer_.ReceiveNow();  // what was repeated meanwhile
    while (peer_.ReceiveNow()) {
    }
  }
  Ticks(3);
  EXPECT_EQ(numBlocks, 10U);
  ASSERT_EQ(told_.size(), 2U);
  EXPECT_EQ(told_[1].payload.size(), 11U * 64);
}

TEST_F(CallObserve, Reset_IsTheEnd) {
  (void)Register();
  Say(RstOf(request_));
  EXPECT_EQ(Statuses(), Ends{COAP_RPC_CALL_RESET});
}

TEST_F(CallObserve, Stop_TellsOnceAndTheServer) {
  (void)Register();
  Accept(10, "a");
  instance_->Stop();
  EXPECT_EQ(Texts(), "a ! ");
  EXPECT_EQ(told_.back().rsp.status, COAP_RPC_CALL_STOPPED);
}

}  // namespace
}  // namespace coap_rpc_test
