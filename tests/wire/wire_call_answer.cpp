// Whose answer a message is: that of the call with its token on its session, or nobody's.
#include "client_calls.h"
#include "coap_malformed.h"

namespace coap_rpc_test {
namespace {

constexpr uint16_t kUnknownCritical = 9;  // odd and not assigned

TEST_F(ClientCalls, ForeignToken_InAnAcknowledgement) {
  Make(Get("a"));
  const CoapMessage request = Next();
  CoapMessage foreign = Piggyback(request);
  foreign.token[7] ^= 1;
  Say(foreign);
  EXPECT_EQ(told_.size(), 0U);
  EXPECT_EQ(NumDropped(), 1U);
  Say(Piggyback(request).PayloadText("right"));
  ASSERT_EQ(told_.size(), 1U);
  EXPECT_EQ(told_[0].payload, "right");
}

TEST_F(ClientCalls, ForeignToken_InSeparateAnswers) {
  Make(Get("a"));
  const CoapMessage request = Next();
  CoapMessage foreign = Apart(CoapType::kCon, 5, request);
  foreign.token[0] ^= 1;
  peer_.Send(foreign);
  EXPECT_EQ(Next(), RstOf(foreign));
  foreign.type = CoapType::kNon;
  Say(foreign);
  EXPECT_EQ(NumDropped(), 2U);
  EXPECT_EQ(told_.size(), 0U);
  Say(Piggyback(request));
  EXPECT_EQ(told_.size(), 1U);
}

// The acknowledgement of the answer is lost.
TEST_F(ClientCalls, SeparateAnswerAgain_IsAcknowledgedAgain) {
  CoapRpcCall patient = Get("keeps the session");
  patient.deadlineMs = 300'000;
  Make(patient);
  Say(AckOf(Next()));
  Make(Get("a"));
  const CoapMessage request = Next();
  Say(AckOf(request));
  const CoapMessage answer = Apart(CoapType::kCon, 77, request);
  const CoapMessage another = Apart(CoapType::kCon, 78, request);
  for (int i = 0; i < 3; ++i) {
    peer_.Send(answer);
    EXPECT_EQ(Next(), AckOf(answer));
    peer_.Send(another);
    EXPECT_EQ(Next(), RstOf(another));
  }
  EXPECT_EQ(told_.size(), 1U);
  Wait(247'000);
  peer_.Send(answer);
  EXPECT_EQ(Next(), RstOf(answer));
}

TEST_F(ClientCalls, AnotherPort_IsNotHeard) {
  Make(Get("a"));
  const CoapMessage request = Next();
  RawPeer other{UdpAddress{"127.0.0.2", 0}};
  other.SetRemote(peer_.Remote().port != 0 ? peer_.Remote() : peer_.Datagrams()[0].other);
  other.Send(Piggyback(request));
  Ticks(3);
  EXPECT_EQ(told_.size(), 0U);
  Say(Piggyback(request));
  EXPECT_EQ(told_.size(), 1U);
}

TEST_F(ClientCalls, AnotherSession_IsNotHeard) {
  RawPeer other{UdpAddress{"127.0.0.2", 0}};
  Make(Get("a"));
  const CoapMessage request = Next();
  EXPECT_EQ(Try(Get("b"), To(other)), 0U);
  (void)Next(other);
  other.Send(Apart(CoapType::kNon, 5, request));
  Ticks(3);
  EXPECT_EQ(told_.size(), 0U);
  EXPECT_EQ(NumDropped(), 1U);
}

TEST_F(ClientCalls, Twice_IsToldOnce) {
  Make(Get("a"));
  const CoapMessage request = Next();
  for (int i = 0; i < 3; ++i) Say(Piggyback(request));
  EXPECT_EQ(told_.size(), 1U);
  Make(Get("a"));
  const CoapMessage again = Next();
  Say(AckOf(again));
  for (int i = 0; i < 3; ++i) Say(Apart(CoapType::kCon, 5, again));
  for (int i = 0; i < 3; ++i) Say(Apart(CoapType::kNon, 6, again));
  EXPECT_EQ(told_.size(), 2U);
}

TEST_F(ClientCalls, AfterTheEnd_IsDroppedAndCounted) {
  const uint64_t id = Make(Get("a"));
  const CoapMessage request = Next();
  EXPECT_EQ(COAP_RpcCallCancel(Ctx(), id), 0U);
  Say(Piggyback(request));
  EXPECT_EQ(NumDropped(), 1U);
  const CoapMessage late = Apart(CoapType::kCon, 5, request);
  peer_.Send(late);
  EXPECT_EQ(Next(), RstOf(late));
  EXPECT_EQ(NumDropped(), 2U);
  EXPECT_EQ(told_.size(), 1U);
}

TEST_F(ClientCalls, UnknownCriticalOption_IsDroppedAndCounted) {
  CoapRpcCall call = Get("a");
  call.deadlineMs = 5'000;
  Make(call);
  const CoapMessage request = Next();
  Say(Piggyback(request).Add(kUnknownCritical));
  EXPECT_EQ(NumDropped(), 1U);
  const CoapMessage separate = Apart(CoapType::kCon, 5, request).Add(kUnknownCritical);
  peer_.Send(separate);
  EXPECT_EQ(Next(), RstOf(separate));
  EXPECT_EQ(NumDropped(), 2U);
  EXPECT_EQ(told_.size(), 0U);
  Wait(6'000);
  EXPECT_EQ(Statuses(), Ends{COAP_RPC_CALL_TIMEOUT});
}

TEST_F(ClientCalls, TruncatedAnywhere_IsDropped) {
  Make(Get("a"));
  const CoapMessage request = Next();
  CoapMessage answer = Apart(CoapType::kNon, 5, request, Code(2, 5));
  answer.AddUint(kOptContentFormat, 50).Add(kOptEtag, Bytes(8, 0xE7)).Payload({'x'});
  const Bytes whole = ToBytes(answer);
  uint64_t numMalformed = 0;
  for (size_t len = 0; len < whole.size(); ++len) {
    const Bytes part(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(len));
    CoapMessage message;
    if (Parse(part, &message).empty()) continue;  // a shorter message, which is tested below
    if (len >= 4) ++numMalformed;                 // less is no message at all
    peer_.Send(part);
    Ticks(2);
    ASSERT_EQ(told_.size(), 0U) << "of " << len << " bytes";
  }
  EXPECT_GT(numMalformed, 10U);
  EXPECT_EQ(NumDropped(), numMalformed);
  Say(answer);
  EXPECT_EQ(told_.size(), 1U);
}

TEST_F(ClientCalls, ShorterMessages_AreAnswersOrNothing) {
  for (size_t cut = 1; cut < 30; ++cut) {
    Make(Get("a"));
    const CoapMessage request = Next();
    CoapMessage answer = Piggyback(request).Add(kOptEtag, Bytes(8, 0xE7)).PayloadText("0123456789");
    Bytes part = ToBytes(answer);
    part.resize(part.size() > cut ? part.size() - cut : 0);
    peer_.Send(part);
    Ticks(2);
    if (told_.empty()) COAP_RpcCallCancel(Ctx(), id_);
    EXPECT_EQ(told_.size(), 1U);
    told_.clear();
    while (peer_.ReceiveNow()) {
    }
  }
}

// Calls and base requests on one session.
class CallsBesideBase : public ClientCalls {
 protected:
  void SetUp() override { Register(key_, &app_); }

  CoapMessage Ask() {
    const CoapRpcCliReqParam param = ParamOf(1);
    const CoapRpcCliAddr addr = BaseAddr();
    EXPECT_EQ(COAP_RpcCliConReq(Ctx(), &key_, &param, &addr), 0U);
    return Next();
  }

  App app_;
  const CoapRpcUriKey key_ = KeyOf("base");
};

TEST_F(CallsBesideBase, OneSession) {
  COAP_RpcSetNstart(Ctx(), 2);
  Make(Get("a"));
  (void)Next();
  (void)Ask();
  EXPECT_EQ(peer_.Datagrams()[0].other, peer_.Datagrams()[1].other);
}

TEST_F(CallsBesideBase, AnswerOfACall_IsNotTheBaseRequests) {
  COAP_RpcSetNstart(Ctx(), 2);
  Make(Get("base"));
  const CoapMessage call = Next();
  const CoapMessage base = Ask();
  EXPECT_EQ(base.token.size(), 0U);
  CoapMessage answer = Apart(CoapType::kNon, 5, call);
  answer.AddPath("base").PayloadText("x");
  Say(answer);
  ASSERT_EQ(told_.size(), 1U);
  EXPECT_EQ(app_.responses.size(), 0U);
  // Late, it is nobody's, whatever path it has.
  answer.messageId = 6;
  Say(answer);
  EXPECT_EQ(app_.responses.size(), 0U);
  EXPECT_EQ(NumDropped(), 1U);
  CoapMessage plain = AnswerOf(base).PayloadText("y");
  Say(plain);
  ASSERT_EQ(app_.responses.size(), 1U);
  EXPECT_EQ(app_.responses[0].payload, "y");
  EXPECT_EQ(told_.size(), 1U);
}

TEST_F(CallsBesideBase, TokenlessAnswer_IsNoCalls) {
  Make(Get("base"));
  const CoapMessage call = Next();
  CoapMessage plain = Separate(CoapType::kNon, 5, {}, "base").PayloadText("y");
  Say(plain);
  EXPECT_EQ(told_.size(), 0U);
  EXPECT_EQ(app_.responses.size(), 1U);
  Say(Piggyback(call));
  EXPECT_EQ(told_.size(), 1U);
}

TEST_F(CallsBesideBase, EndOfACall_IsNotTheBaseRequests) {
  std::vector<CoapRpcRequestEnd> ends;
  COAP_RpcSetOnRequestEnd(
      Ctx(),
      [](uint64_t userData, const CoapRpcRequestEnd *end) {
        reinterpret_cast<std::vector<CoapRpcRequestEnd> *>(userData)->push_back(*end);
      },
      reinterpret_cast<uint64_t>(&ends));
  COAP_RpcSetNstart(Ctx(), 2);
  Make(Get("base"));
  const CoapMessage call = Next();
  const CoapMessage base = Ask();
  Say(RstOf(call));
  EXPECT_EQ(Statuses(), Ends{COAP_RPC_CALL_RESET});
  EXPECT_EQ(ends.size(), 0U);
  Say(RstOf(base));
  EXPECT_EQ(ends.size(), 1U);
  EXPECT_EQ(told_.size(), 1U);
}

// The answer to a renewal may be overtaken by a notification, and is dropped: it is no base
// request's.
TEST_F(CallsBesideBase, DroppedAnswerOfAnObservation_IsNotTheBaseRequests) {
  std::vector<CoapRpcRequestEnd> ends;
  COAP_RpcSetOnRequestEnd(
      Ctx(),
      [](uint64_t userData, const CoapRpcRequestEnd *end) {
        reinterpret_cast<std::vector<CoapRpcRequestEnd> *>(userData)->push_back(*end);
      },
      reinterpret_cast<uint64_t>(&ends));
  Watch(Get("w"));
  const CoapMessage first = Next();
  const auto notification = [&](uint16_t number) {
    CoapMessage message = Apart(CoapType::kNon, number, first).AddUint(kOptObserve, number);
    return message.AddUint(kOptMaxAge, 1).PayloadText("x");
  };
  Say(Piggyback(first).AddUint(kOptObserve, 12).AddUint(kOptMaxAge, 1));
  Say(AckOf(Ask()));
  CoapMessage renewal;
  do renewal = Next();
  while (renewal.token != first.token);
  Say(notification(14));
  Say(AckOf(renewal));
  Say(notification(13));
  EXPECT_EQ(COAP_RpcGetOldNotificationNum(Ctx()), 1U);
  Wait(250'000);
  EXPECT_EQ(ends.size(), 1U);  // nobody has answered the base request
}

TEST_F(CallsBesideBase, BaseRequestThatIsUndone_LeavesTheCall) {
  const CoapRpcUriKey watchKey = KeyOf("w", COAP_RPC_CON, 1);
  Register(watchKey, &app_);
  const CoapRpcCliReqParam param = ParamOf(1);
  const CoapRpcCliAddr addr = BaseAddr();
  Make(Get("a"));
  const CoapMessage call = Next();
  EXPECT_EQ(COAP_RpcCliObserveReq(Ctx(), &watchKey, &param, &addr), 0U);
  EXPECT_EQ(COAP_RpcCliObserveUnReq(Ctx(), &watchKey, &param, &addr), 0U);
  Wait(5'000);
  Say(Piggyback(call));
  EXPECT_EQ(told_.size(), 1U);
}

TEST_F(CallsBesideBase, WithoutCalls_AnswersAreHeardAsEver) {
  COAP_RpcRefreshTaskTimer(Ctx());
  (void)Ask();
  CoapMessage unasked = Separate(CoapType::kNon, 5, Bytes(8, 7), "base").PayloadText("y");
  Say(unasked);
  EXPECT_EQ(app_.responses.size(), 1U);
}

// A call with a payload in blocks: what answers a block but the latest one is late.
class CallBlocks : public ClientCalls {
 protected:
  static constexpr uint8_t kContinue = Code(2, 31);

  CoapMessage ToBlock(const CoapMessage &request) {
    return Apart(CoapType::kNon, ++mid_, request, kContinue)
        .AddBlock(kOptBlock1, *request.Block(kOptBlock1));
  }
  // Upload makes a call of three blocks and returns the requests of all, the last one unanswered.
  std::vector<CoapMessage> Upload() {
    Make(Post("p", std::string(3000, 'x')));
    std::vector<CoapMessage> requests = {Next()};
    while (requests.size() < 3) {
      const CoapMessage &latest = requests.back();
      peer_.Send(Piggyback(latest, kContinue).AddBlock(kOptBlock1, *latest.Block(kOptBlock1)));
      requests.push_back(Next());
    }
    return requests;
  }
  // Whatever is sent meanwhile is the request under way, again.
  void ExpectNothingOf(const std::vector<CoapMessage> &requests, const CoapMessage &underWay) {
    for (const CoapMessage &request : requests) {
      Say(ToBlock(request));
      EXPECT_EQ(told_.size(), 0U);
      while (const auto sent = peer_.ReceiveNow()) EXPECT_EQ(*sent, underWay);
    }
  }

  uint16_t mid_ = 100;
};

TEST_F(CallBlocks, LateAnswersToEarlierBlocks_DisturbNothing) {
  std::vector<CoapMessage> requests = Upload();
  const CoapMessage last = requests.back();
  requests.pop_back();
  ExpectNothingOf(requests, last);
  Say(Piggyback(last, Code(2, 4)).PayloadText("done"));
  ASSERT_EQ(told_.size(), 1U);
  EXPECT_EQ(told_[0].payload, "done");
}

// Servers may keep the blocks of a body by token.
TEST_F(CallBlocks, Upload_HasOneToken) {
  const std::vector<CoapMessage> requests = Upload();
  for (const CoapMessage &request : requests) EXPECT_EQ(request.token, requests[0].token);
}

// The server wants blocks of 256 bytes, and says so in its answer to the first one of 1024.
TEST_F(CallBlocks, Upload_InSmallerBlocks_HasOneToken) {
  const std::string payload(3000, 'x');
  Make(Post("p", payload));
  const CoapMessage first = Next();
  CoapMessage request = first;
  size_t numBytes = 0;
  while (request.Block(kOptBlock1)->more) {
    numBytes += request.payload.size();
    const uint32_t num = request.Block(kOptBlock1)->num;
    peer_.Send(Piggyback(request, kContinue).AddBlock(kOptBlock1, {num, true, 4}));
    request = Next();
    EXPECT_EQ(request.token, first.token);
  }
  Say(Piggyback(request, Code(2, 4)));
  EXPECT_EQ(Statuses(), Ends{COAP_RPC_CALL_ANSWERED});
  EXPECT_EQ(numBytes + request.payload.size(), payload.size());
}

TEST_F(CallBlocks, LateAnswersWhileTheAnswerComesInBlocks_DisturbNothing) {
  const std::vector<CoapMessage> requests = Upload();
  const std::string half(1024, 'y');
  const CoapMessage first =
      Piggyback(requests.back(), Code(2, 4)).AddBlock(kOptBlock2, {0, true, 6}).PayloadText(half);
  peer_.Send(first);
  const CoapMessage next = Next();
  EXPECT_EQ(next.token, first.token);
  ExpectNothingOf(requests, next);
  Say(Piggyback(next, Code(2, 4)).AddBlock(kOptBlock2, {1, false, 6}).PayloadText(half));
  ASSERT_EQ(told_.size(), 1U);
  EXPECT_EQ(told_[0].payload, half + half);
}

TEST_F(CallBlocks, BlocksOfTwoAnswers_EndAPostWhichIsNotMadeAgain) {
  Make(Post("p", "x"));
  const std::string half(1024, 'y');
  const CoapMessage request = Next();
  peer_.Send(Piggyback(request, Code(2, 4))
                 .Add(kOptEtag, {1})
                 .AddBlock(kOptBlock2, {0, true, 6})
                 .PayloadText(half));
  const CoapMessage next = Next();
  Say(Piggyback(next, Code(2, 4))
          .Add(kOptEtag, {2})
          .AddBlock(kOptBlock2, {1, false, 6})
          .PayloadText(half));
  EXPECT_TRUE(IsSilent());
  ASSERT_EQ(told_.size(), 1U);
  EXPECT_EQ(told_[0].rsp.code, 408U);
}

constexpr uint16_t kOptEcho = 252;

// The acknowledgement is an empty message, whose options would make it malformed.
TEST_F(ClientCalls, EchoOption_GoesWithTheNextRequest) {
  Make(Get("a"));
  CoapMessage request = Next();
  Say(AckOf(request));
  Say(Apart(CoapType::kCon, 9, request).AddText(kOptEcho, "seen"));
  EXPECT_EQ(Next().type, CoapType::kAck);
  Make(Get("b"));
  request = Next();
  EXPECT_EQ(request.Values(kOptEcho), (std::vector<Bytes>{{'s', 'e', 'e', 'n'}}));
  Say(Piggyback(request));
  Make(Get("c"));
  EXPECT_FALSE(Next().Has(kOptEcho));
}

TEST_F(ClientCalls, EchoOption_WithoutRoom_IsLeft) {
  Make(Get("a"));
  Say(Piggyback(Next()).AddText(kOptEcho, std::string(40, 'e')));
  Make(Post("p", std::string(1110, 'x')));
  const CoapMessage request = Next();
  EXPECT_FALSE(request.Has(kOptEcho));
  Say(Piggyback(request));
  EXPECT_EQ(Statuses(), Ends(2, COAP_RPC_CALL_ANSWERED));
}

}  // namespace
}  // namespace coap_rpc_test
