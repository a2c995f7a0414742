// Ends of requests that no response, or none that the application took, came to: told once each.
#include <algorithm>
#include <map>

#include "client_end.h"
#include "fixed_random.h"

namespace coap_rpc_test {
namespace {

TEST_F(ClientEnd, Unanswered_IsATimeout) {
  CoapRpcCliReqParam param = ParamOf(7);
  param.reqKeyRsv[0] = 0xAB;
  param.reqKeyRsv[15] = 0xCD;
  const CoapRpcCliAddr addr = PeerAddr();
  EXPECT_EQ(COAP_RpcCliConReq(Ctx(), &key_, &param, &addr), 0U);
  Wait(10'000);
  EXPECT_EQ(Told(), Reasons{});
  Wait(kGivenUpMs);
  ASSERT_EQ(Told(), Reasons{COAP_RPC_END_TIMEOUT});
  const CoapRpcRequestEnd &end = ends_[0];
  EXPECT_EQ(memcmp(&end.key, &key_, sizeof(key_)), 0);
  EXPECT_EQ(end.userData, 7U);
  EXPECT_EQ(memcmp(end.reqKeyRsv, param.reqKeyRsv, sizeof(end.reqKeyRsv)), 0);
  EXPECT_EQ(memcmp(&end.peer, &addr.dstIp, sizeof(end.peer)), 0);
  EXPECT_EQ(end.peerPort, peer_.Local().port);
  EXPECT_EQ(end.rspCode, 0U);
  EXPECT_EQ(end.num, 1U);
  ExpectNothingMore();
}

TEST_F(ClientEnd, Reset) {
  Say(RstOf(Ask(3)));
  EXPECT_EQ(Told(), Reasons{COAP_RPC_END_RESET});
  EXPECT_EQ(ToldUserData(), std::vector<uint64_t>{3});
  ExpectNothingMore();
}

TEST_F(ClientEnd, NobodyAtThePort_IsUnreachable) {
  CoapRpcCliAddr addr = {};
  {
    const RawPeer gone{UdpAddress{"127.0.0.2", 0}};
    addr = AddrOf(gone);
  }
  const CoapRpcCliReqParam param = ParamOf(4);
  EXPECT_EQ(COAP_RpcCliConReq(Ctx(), &key_, &param, &addr), 0U);
  Wait(5000);
  EXPECT_EQ(Told(), Reasons{}) << "libcoap goes on";
  Wait(kGivenUpMs);
  EXPECT_EQ(Told(), Reasons{COAP_RPC_END_UNREACHABLE});
  ExpectNothingMore();
}

TEST_F(ClientEnd, UnknownCriticalOption_IsABadResponse) {
  constexpr uint16_t kCritical = 2053;
  Say(AnswerOf(Ask()).Add(kCritical).PayloadText("x"));
  EXPECT_EQ(Told(), Reasons{COAP_RPC_END_BAD_RESPONSE});
  ExpectNothingMore();
}

TEST_F(ClientEnd, ResponsesThatNobodyHears) {
  const CoapRpcUriKey mute = KeyOf("mute");
  const CoapRpcCliVtblReg reg = {};
  ASSERT_EQ(COAP_RpcCliRegVtbl(Ctx(), &mute, &reg), 0U);
  const auto with = [this](uint8_t code, std::string_view path) {
    const CoapMessage request = Ask();
    return Request(CoapType::kAck, code, request.messageId).AddPath(path);
  };
  const auto without = [this](uint8_t code) {
    return Request(CoapType::kAck, code, Ask().messageId);
  };
  Say(without(Code(2, 5)).PayloadText("lost"));
  Say(without(Code(2, 4)));
  Say(with(Code(2, 5), "other").PayloadText("x"));
  Say(with(Code(2, 5), "mute").PayloadText("x"));
  Say(with(Code(2, 4), "mute"));
  Say(with(Code(2, 5), "a/b"));
  Say(with(Code(4, 4), "a/b"));
  EXPECT_EQ(Told(), (Reasons{COAP_RPC_END_NO_PATH, COAP_RPC_END_NO_PATH, COAP_RPC_END_NO_ENTRY,
                             COAP_RPC_END_NO_ENTRY, COAP_RPC_END_NO_ENTRY, COAP_RPC_END_EMPTY,
                             COAP_RPC_END_EMPTY}));
  std::vector<uint32_t> codes;
  for (const CoapRpcRequestEnd &end : ends_) codes.push_back(end.rspCode);
  EXPECT_EQ(codes, (std::vector<uint32_t>{205, 204, 205, 205, 204, 205, 404}));
  EXPECT_TRUE(app_.responses.empty());
  ExpectNothingMore();
}

TEST_F(ClientEnd, Refused) {
  app_.result = 5;
  Say(AnswerOf(Ask()).PayloadText("x"));
  Say(AnswerOf(Ask(), Code(2, 4)));
  EXPECT_EQ(Told(), (Reasons{COAP_RPC_END_REFUSED, COAP_RPC_END_REFUSED}));
  EXPECT_EQ(ends_[1].rspCode, 204U);
  ExpectNothingMore();
}

TEST_F(ClientEnd, NoMemoryForTheResponse) {
  const CoapMessage request = Ask();
  host_.Pool().Failures().FailFrom(1);
  Say(AnswerOf(request).PayloadText("x"));
  host_.Pool().Failures().Clear();
  EXPECT_EQ(Told(), Reasons{COAP_RPC_END_NO_MEMORY});
  ExpectNothingMore();
}

TEST_F(ClientEnd, TakenResponses_AreNotTold) {
  Say(AnswerOf(Ask()).PayloadText("x"));
  Say(AnswerOf(Ask(), Code(2, 4)));
  Say(AnswerOf(Ask(), Code(5, 3)).PayloadText("busy"));
  const CoapMessage later = Ask();
  Say(AckOf(later));
  Wait(60'000);
  Say(Separate(CoapType::kCon, 900, {}, "a/b").PayloadText("x"));
  Say(AckOf(Ask()));
  Say(Separate(CoapType::kNon, 901, {}, "a/b").PayloadText("x"));
  Ask();
  Say(Separate(CoapType::kCon, 902, {}, "a/b").PayloadText("the acknowledgement was lost"));
  EXPECT_EQ(app_.responses.size(), 6U);
  Keep();
  ExpectNothingMore();
  EXPECT_EQ(Told(), Reasons{});
}

TEST_F(ClientEnd, AnswerToARetransmission_IsNotTold) {
  Ask();
  std::optional<CoapMessage> again;
  for (int i = 0; i < 100 && !again; ++i) {
    Tick();
    again = peer_.ReceiveNow();
  }
  ASSERT_TRUE(again);
  Say(AnswerOf(*again).PayloadText("x"));
  Say(AnswerOf(*again).PayloadText("x"));  // sent twice
  ExpectNothingMore();
  EXPECT_EQ(Told(), Reasons{});
}

TEST_F(ClientEnd, SeparateResponses_EndTheirRequests) {
  app_.result = 5;
  Say(AckOf(Ask(1)));
  Say(AckOf(Ask(2)));
  Say(Separate(CoapType::kNon, 900, {}, "other"));
  EXPECT_EQ(Told(), Reasons{}) << "a path that was not asked for";
  Say(Separate(CoapType::kNon, 901, {}, "a/b").PayloadText("x"));
  Say(Request(CoapType::kCon, Code(2, 5), 902).PayloadText("no path"));
  EXPECT_EQ(Told(), (Reasons{COAP_RPC_END_REFUSED, COAP_RPC_END_NO_PATH}));
  EXPECT_EQ(ToldUserData(), (std::vector<uint64_t>{1, 2}));
  ExpectNothingMore();
}

TEST_F(ClientEnd, AcknowledgedAndNoResponse_IsATimeoutInTheEnd) {
  Keep();
  Say(AckOf(Ask()));
  Wait(kLifetimeMs - 2000);
  EXPECT_EQ(Told(), Reasons{});
  Wait(4000);
  EXPECT_EQ(Told(), Reasons{COAP_RPC_END_TIMEOUT});
  ExpectNothingMore();
}

// A stray response without token ends the retransmission: that was all that the request had.
TEST_F(ClientEnd, CancelledByAStrayResponse_IsATimeoutInTheEnd) {
  Keep();
  Ask();
  Say(Separate(CoapType::kNon, 900, {}, "w").PayloadText("stray"));
  Wait(kLifetimeMs - 2000);
  EXPECT_EQ(Told(), Reasons{});
  Wait(4000);
  EXPECT_EQ(Told(), Reasons{COAP_RPC_END_TIMEOUT});
  ExpectNothingMore();
}

// Queued ones are not given up before they were sent.
TEST_F(ClientEnd, ManyToASilentPeer_AreToldOneByOne) {
  constexpr uint64_t kNum = 30;
  Keep();
  for (uint64_t i = 0; i < kNum; ++i) EXPECT_EQ(Call(key_, i), 0U);
  size_t num = 0;
  for (int i = 0; i < 200 && num + 1 < kNum; ++i) {
    Wait(5000);
    EXPECT_LE(ends_.size(), num + 1) << "in " << 5 * i << " s";
    num = ends_.size();
  }
  EXPECT_EQ(Told(), Reasons(num, COAP_RPC_END_TIMEOUT));
  CoapMessage last;
  for (int i = 0; i < 100 && last.code == kCodeEmpty; ++i) {
    Tick();
    if (const auto message = peer_.ReceiveNow()) last = *message;
  }
  Say(AnswerOf(last).PayloadText("x"));
  ExpectNothingMore();
  std::vector<uint64_t> expected;
  for (uint64_t i = 0; i + 1 < kNum; ++i) expected.push_back(i);
  EXPECT_EQ(ToldUserData(), expected);
}

TEST_F(ClientEnd, TwoAlikeUnderWay_EndEachForItself) {
  ASSERT_EQ(COAP_RpcSetNstart(Ctx(), 4), 0U);
  const CoapMessage first = Ask();
  const CoapMessage second = Ask();
  Say(AnswerOf(second).PayloadText("x"));
  Wait(kGivenUpMs);
  EXPECT_EQ(Told(), Reasons{COAP_RPC_END_TIMEOUT});
  EXPECT_EQ(app_.responses.size(), 1U);
  EXPECT_NE(first.messageId, second.messageId);
  ExpectNothingMore();
}

TEST_F(ClientEnd, ClosedSession_EndsWhatWaitsForIt) {
  Say(AckOf(Ask(5)));
  Wait(80'000);
  EXPECT_EQ(Told(), Reasons{});
  Wait(15'000);
  EXPECT_EQ(Told(), Reasons{COAP_RPC_END_CLOSED});
  EXPECT_EQ(ToldUserData(), std::vector<uint64_t>{5});
  ExpectNothingMore();
}

TEST_F(ClientEnd, EndedRelation_IsNotTold_RequestsOfItsSessionAre) {
  Watch();
  EXPECT_EQ(Call(key_, 9), 0U);
  EXPECT_EQ(UnObserve(watchKey_), 0U);
  Wait(3000);
  EXPECT_EQ(Told(), Reasons{COAP_RPC_END_CLOSED});
  EXPECT_EQ(ToldUserData(), std::vector<uint64_t>{9});
  ExpectNothingMore();
}

TEST_F(ClientEnd, Registration_IsToldForEachSending) {
  Watch(6);
  Wait(kGivenUpMs);
  EXPECT_EQ(Told(), Reasons{COAP_RPC_END_TIMEOUT});
  EXPECT_EQ(ends_[0].key.observe, 1U);
  Say(RstOf(Watch(6)));
  EXPECT_EQ(Told(), (Reasons{COAP_RPC_END_TIMEOUT, COAP_RPC_END_RESET}));
  EXPECT_EQ(ToldUserData(), (std::vector<uint64_t>{6, 6}));
  EXPECT_NE(ReqOf(watchKey_, 6), nullptr);
  ExpectNothingMore();
}

TEST_F(ClientEnd, RegistrationThatWasAccepted_IsNotTold) {
  Say(AnswerOf(Watch(), Code(2, 1)).AddUint(kOptObserve, 1));
  Say(AnswerOf(Watch(), Code(2, 5)).AddUint(kOptObserve, 2).PayloadText("all"));
  const CoapMessage request = Watch();
  Say(AckOf(request));
  Say(Separate(CoapType::kCon, 900, request.token, "w").AddUint(kOptObserve, 3).PayloadText("x"));
  EXPECT_EQ(app_.responses.size(), 2U);
  ExpectNothingMore();
  EXPECT_EQ(Told(), Reasons{});
}

// The acknowledgement was lost; a notification says as much.  It ends every sending in libcoap.
TEST_F(ClientEnd, RegistrationsAnsweredByANotification_AreNotTold) {
  ASSERT_EQ(COAP_RpcSetNstart(Ctx(), 4), 0U);
  Watch();
  const CoapMessage request = Watch();
  Say(Separate(CoapType::kCon, 900, request.token, "w").AddUint(kOptObserve, 3).PayloadText("x"));
  EXPECT_EQ(app_.responses.size(), 1U);
  ExpectNothingMore();
  EXPECT_EQ(Told(), Reasons{});
}

// A sending that libcoap does not end with it is told when it is lost: a message to another peer
// stands between the two in libcoap's queue.
TEST_F(ClientEnd, RegistrationThatANotificationDoesNotEnd_IsToldWhenItIsLost) {
  const FixedRandom random;  // each timeout is 2.7 s
  const RawPeer other{UdpAddress{"127.0.0.2", 0}};
  const CoapRpcCliReqParam param = ParamOf(8);
  const CoapRpcCliAddr addr = AddrOf(other);
  EXPECT_EQ(COAP_RpcCliConReq(Ctx(), &key_, &param, &addr), 0U);
  const CoapMessage request = Watch(6);
  EXPECT_EQ(Observe(watchKey_, 6), 0U);
  Wait(2900);
  Say(Separate(CoapType::kCon, 900, request.token, "w").AddUint(kOptObserve, 3).PayloadText("x"));
  EXPECT_EQ(Told(), Reasons{});
  Wait(kGivenUpMs);
  EXPECT_EQ(Told(), (Reasons{COAP_RPC_END_TIMEOUT, COAP_RPC_END_TIMEOUT}));
  EXPECT_EQ(ToldUserData(), (std::vector<uint64_t>{8, 6}));
  ExpectNothingMore();
}

// It has reached the peer, though its response was overtaken by what it told later.
TEST_F(ClientEnd, RegistrationWithAnOvertakenAnswer_IsNotTold) {
  Say(AnswerOf(Watch(), Code(2, 1)).AddUint(kOptObserve, 1));
  const CoapMessage request = Watch();
  Say(Separate(CoapType::kCon, 900, request.token, "w").AddUint(kOptObserve, 7).PayloadText("x"));
  Say(AnswerOf(request).AddUint(kOptObserve, 6).PayloadText("set"));
  EXPECT_EQ(app_.responses.size(), 1U);
  ExpectNothingMore();
  EXPECT_EQ(Told(), Reasons{});
}

// Notifications of a relation go on while none of its renewals arrives: they answer nothing.
TEST_F(ClientEnd, RenewalThatIsLostWhileNotificationsCome_IsTold) {
  Say(AnswerOf(Watch(6), Code(2, 1)).AddUint(kOptObserve, 1));
  const CoapMessage request = Watch(6);
  Say(Separate(CoapType::kCon, 900, request.token, "w").AddUint(kOptObserve, 3).PayloadText("x"));
  EXPECT_EQ(app_.responses.size(), 1U);
  Wait(kGivenUpMs);
  EXPECT_EQ(Told(), Reasons{COAP_RPC_END_TIMEOUT});
  ExpectNothingMore();
}

TEST_F(ClientEnd, RegistrationThatWasRefused_IsTold) {
  Say(AnswerOf(Watch(), Code(4, 4)));
  const CoapMessage second = Watch();
  Say(Request(CoapType::kAck, Code(2, 5), second.messageId, second.token).PayloadText("lost"));
  EXPECT_EQ(Told(), (Reasons{COAP_RPC_END_NO_ENTRY, COAP_RPC_END_NO_PATH}))
      << "the path of a response without Observe is that of a plain request";
  Say(AnswerOf(Watch(), Code(5, 3)).AddUint(kOptObserve, 1));
  EXPECT_EQ(Told().back(), uint32_t{COAP_RPC_END_EMPTY});
  EXPECT_EQ(ends_.back().rspCode, 503U);
  app_.result = 1;
  Say(AnswerOf(Watch()).AddUint(kOptObserve, 1).PayloadText("x"));
  EXPECT_EQ(Told().back(), uint32_t{COAP_RPC_END_REFUSED});
  EXPECT_EQ(ends_.size(), 4U);
  ExpectNothingMore();
}

TEST_F(ClientEnd, LaterNotifications_AreNoRequests) {
  const CoapMessage request = Watch();
  Say(AnswerOf(request, Code(2, 5)).AddUint(kOptObserve, 1).PayloadText("x"));
  app_.result = 1;
  Say(Separate(CoapType::kCon, 900, request.token, "w").AddUint(kOptObserve, 3).PayloadText("x"));
  EXPECT_EQ(app_.responses.size(), 2U);
  ExpectNothingMore();
  EXPECT_EQ(Told(), Reasons{});
}

TEST_F(ClientEnd, NonRequests_AreNotTold) {
  const CoapRpcUriKey key = KeyOf("n", COAP_RPC_NON);
  Register(key, &app_);
  EXPECT_EQ(Call(key), 0U);
  Say(RstOf(Next()));
  ExpectNothingMore();
  EXPECT_EQ(Told(), Reasons{});
}

TEST_F(ClientEnd, RequestThatCannotBeSent_IsNotAtItsEnd) {
  app_.built = -1;
  EXPECT_EQ(Call(key_), 1900001103U);
  Wait(kGivenUpMs);
  EXPECT_EQ(Told(), Reasons{});
  app_.built.reset();
  Wait(2 * kGivenUpMs);
  EXPECT_EQ(Told(), Reasons{COAP_RPC_END_TIMEOUT});
}

// ---- bodies in blocks

class ClientEndBlocks : public ClientEnd {
 protected:
  // Upload takes `num` blocks of a request and returns the one after them.
  CoapMessage Upload(size_t num) {
    app_.out.assign(5000, 'x');
    CoapMessage block = Ask();
    for (size_t i = 0; i < num; ++i) {
      peer_.Send(Request(CoapType::kAck, Code(2, 31), block.messageId, block.token)
                     .AddBlock(kOptBlock1, *block.Block(kOptBlock1)));
      block = Next();
    }
    return block;
  }
  // Serve sends an answer with a block of a body of three.
  void Serve(uint32_t num, CoapMessage answer) {
    const bool isMore = num < 2;
    answer.Add(kOptEtag, {7}).AddBlock(kOptBlock2, {num, isMore, 6});
    peer_.Send(answer.Payload(Bytes(isMore ? 1024 : 10, 'y')));
  }
};

TEST_F(ClientEndBlocks, LastBlockAnswered) {
  const CoapMessage block = Upload(4);
  EXPECT_FALSE(block.Block(kOptBlock1)->more);
  Say(AnswerOf(block, Code(2, 4)).AddBlock(kOptBlock1, *block.Block(kOptBlock1)));
  EXPECT_EQ(app_.responses.size(), 1U);
  ExpectNothingMore();
  EXPECT_EQ(Told(), Reasons{});
}

TEST_F(ClientEndBlocks, LastBlockRefused) {
  app_.result = 1;
  const CoapMessage block = Upload(4);
  Say(AnswerOf(block, Code(2, 4)).AddBlock(kOptBlock1, *block.Block(kOptBlock1)));
  EXPECT_EQ(Told(), Reasons{COAP_RPC_END_REFUSED});
  ExpectNothingMore();
}

TEST_F(ClientEndBlocks, BlockInTheMiddleGivenUp) {
  Upload(2);
  Wait(kGivenUpMs);
  EXPECT_EQ(Told(), Reasons{COAP_RPC_END_TIMEOUT});
  ExpectNothingMore();
}

TEST_F(ClientEndBlocks, ResponseInBlocks) {
  CoapMessage request = Ask();
  for (uint32_t i = 0; i < 3; ++i) {
    if (i != 0) request = Next();
    Serve(i, AnswerOf(request));
  }
  Wait(500);
  EXPECT_EQ(app_.responses.size(), 1U);
  ExpectNothingMore();
  EXPECT_EQ(Told(), Reasons{});
}

TEST_F(ClientEndBlocks, ResponseInBlocks_Refused) {
  app_.result = 1;
  CoapMessage request = Ask();
  for (uint32_t i = 0; i < 3; ++i) {
    if (i != 0) request = Next();
    Serve(i, AnswerOf(request));
  }
  Wait(500);
  EXPECT_EQ(Told(), Reasons{COAP_RPC_END_REFUSED});
  ExpectNothingMore();
}

TEST_F(ClientEndBlocks, ResponseThatStopsInTheMiddle_IsATimeoutInTheEnd) {
  Keep();
  const CoapMessage request = Ask();
  Serve(0, AnswerOf(request));
  Wait(kLifetimeMs - 2000);
  EXPECT_EQ(Told(), Reasons{});
  Wait(4000);
  EXPECT_EQ(Told(), Reasons{COAP_RPC_END_TIMEOUT});
  ExpectNothingMore();
}

// A body that comes slowly is not given up while libcoap waits for it.
TEST_F(ClientEndBlocks, SlowResponse_IsNotTold) {
  constexpr uint32_t kNum = 16;
  constexpr uint64_t kBlockMs = 18'000;  // libcoap waits for 21 s
  Keep();
  for (uint32_t i = 0; i < kNum; ++i) {
    const CoapMessage request = i == 0 ? Ask() : Next();
    Say(AckOf(request));
    Wait(kBlockMs);
    peer_.Send(Separate(CoapType::kNon, static_cast<uint16_t>(900 + i), request.token, "a/b")
                   .Add(kOptEtag, {7})
                   .AddBlock(kOptBlock2, {i, i + 1 < kNum, 6})
                   .Payload(Bytes(1024, 'y')));
  }
  Wait(500);
  ASSERT_EQ(app_.responses.size(), 1U);
  EXPECT_EQ(app_.responses[0].payload.size(), 1024U * kNum);
  ExpectNothingMore();
  EXPECT_EQ(Told(), Reasons{});
}

}  // namespace
}  // namespace coap_rpc_test
