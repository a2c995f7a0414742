// An acknowledgement with the number of a request ended it and was delivered, whatever its token;
// the true answer was dropped as a repetition.
#include "wire_client.h"

namespace coap_rpc_test {
namespace {

const Bytes kForeignToken = {9};

class AckWithForeignToken : public WireClient {
 protected:
  AckWithForeignToken() { COAP_RpcRefreshTaskTimer(Ctx()); }

  CoapMessage Ask(uint32_t code = COAP_RPC_GET) {
    Register(key_, &app_);
    EXPECT_EQ(Call(key_, 1, code), 0U);
    return Next();
  }

  CoapMessage ForeignOf(const CoapMessage &request, uint8_t code = Code(2, 4)) {
    return AnswerOf(request, code).Token(kForeignToken).PayloadText("wrong");
  }

  void Send(const CoapMessage &message) {
    peer_.Send(message);
    Ticks(2);
  }

  void ExpectTrueAnswerIsTaken(const CoapMessage &request) {
    EXPECT_TRUE(app_.responses.empty());
    CoapMessage answer = AnswerOf(request).PayloadText("right");
    Send(request.Has(kOptObserve) ? answer.AddUint(kOptObserve, 5) : answer);
    ASSERT_EQ(app_.responses.size(), 1U);
    EXPECT_EQ(app_.responses[0].payload, "right");
  }

  const CoapRpcUriKey key_ = KeyOf("a");
  App app_;
};

TEST_F(AckWithForeignToken, OfARequestWithoutToken_LeavesItWaiting) {
  const CoapMessage request = Ask();
  ASSERT_TRUE(request.token.empty());
  Send(ForeignOf(request));
  EXPECT_EQ(Next(), request);  // once more
  ExpectTrueAnswerIsTaken(request);
}

TEST_F(AckWithForeignToken, OfUnknownCode_LeavesItWaiting) {
  const CoapMessage request = Ask();
  Send(ForeignOf(request, Code(1, 0)));
  Send(ForeignOf(request, Code(7, 31)));
  EXPECT_EQ(Next(), request);
  ExpectTrueAnswerIsTaken(request);
}

TEST_F(AckWithForeignToken, WithoutToken_IsNoAnswerToARequestWithOne) {
  const CoapRpcUriKey key = KeyOf("a", COAP_RPC_CON, 1);
  Register(key, &app_);
  ASSERT_EQ(Observe(key), 0U);
  const CoapMessage request = Next();
  ASSERT_FALSE(request.token.empty());
  Send(AnswerOf(request).Token({}).PayloadText("wrong"));
  Bytes longer = request.token;
  longer.push_back(0);
  Send(AnswerOf(request).Token(longer).PayloadText("wrong"));
  ExpectTrueAnswerIsTaken(request);
}

TEST_F(AckWithForeignToken, OfOneBlock_DoesNotMoveTheBodyOn) {
  app_.out = std::string(3000, 'x');
  const CoapMessage first = Ask(COAP_RPC_POST);
  Send(ForeignOf(first, Code(2, 31)).AddBlock(kOptBlock1, *first.Block(kOptBlock1)).Payload({}));
  EXPECT_EQ(Next(), first);
  Send(Request(CoapType::kAck, Code(2, 31), first.messageId, first.token)
           .AddBlock(kOptBlock1, *first.Block(kOptBlock1)));
  EXPECT_EQ(Next().Block(kOptBlock1)->num, 1U);
}

// Whoever knows the next number sends an answer before there is a request.
TEST_F(AckWithForeignToken, BeforeTheRequest_DoesNotShadowItsAnswer) {
  const CoapMessage first = Ask();
  Send(AnswerOf(first));
  CoapMessage early = first;
  early.messageId = static_cast<uint16_t>(first.messageId + 1);
  Send(ForeignOf(early));
  app_.responses.clear();
  const CoapMessage request = Ask();
  ASSERT_EQ(request.messageId, early.messageId);
  ExpectTrueAnswerIsTaken(request);
}

// A separate response without token ends the request under way, whose answer is heard all the same.
TEST_F(AckWithForeignToken, OfARequestThatWasTakenForAnswered_IsDelivered) {
  const CoapMessage request = Ask();
  Send(Separate(CoapType::kNon, 7, {}, "a").PayloadText("other"));
  Send(AnswerOf(request).PayloadText("right"));
  ASSERT_EQ(app_.responses.size(), 2U);
  EXPECT_EQ(app_.responses[1].payload, "right");
}

TEST_F(AckWithForeignToken, NoCodeAtAll_GoesByTheNumber) {
  const CoapMessage request = Ask();
  Send(AckOf(request));
  EXPECT_TRUE(peer_.ReceiveMessage(Pump(), 40) == std::nullopt);  // not repeated
  Send(Separate(CoapType::kNon, 7, request.token, "a").PayloadText("right"));
  EXPECT_EQ(app_.responses.size(), 1U);
}

TEST_F(AckWithForeignToken, Reset_GoesByTheNumber) {
  Send(RstOf(Ask()));
  EXPECT_TRUE(peer_.ReceiveMessage(Pump(), 40) == std::nullopt);
}

}  // namespace
}  // namespace coap_rpc_test
