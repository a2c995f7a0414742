// A reset with any number let the next request of its session go out although one was under way.
#include "wire_client.h"

namespace coap_rpc_test {
namespace {

class ResetEndsTurn : public WireClient {
 protected:
  ResetEndsTurn() { COAP_RpcRefreshTaskTimer(Ctx()); }

  // AskTwice makes two requests, of which the second has to wait.  Returns the first.
  CoapMessage AskTwice() {
    for (const CoapRpcUriKey *key : {&first_, &second_}) {
      Register(*key, &app_);
      EXPECT_EQ(Call(*key), 0U);
    }
    const CoapMessage request = Next();
    EXPECT_EQ(request.Path(), "first");
    return request;
  }

  // WithOtherNumbers sends an empty message with numbers that are not the request's.
  void SendWithOtherNumbers(CoapType type, const CoapMessage &request) {
    for (uint16_t i = 1; i <= 5; ++i) {
      peer_.Send(Request(type, 0, static_cast<uint16_t>(request.messageId + i)));
    }
  }

  const CoapRpcUriKey first_ = KeyOf("first"), second_ = KeyOf("second");
  App app_;
};

TEST_F(ResetEndsTurn, OfNoMessage_LeavesTheNextRequestWaiting) {
  const CoapMessage request = AskTwice();
  SendWithOtherNumbers(CoapType::kRst, request);
  EXPECT_TRUE(IsSilent());
  peer_.Send(RstOf(request));
  EXPECT_EQ(Next().Path(), "second");
}

TEST_F(ResetEndsTurn, AcknowledgementOfNoMessage_LeavesTheNextRequestWaiting) {
  const CoapMessage request = AskTwice();
  SendWithOtherNumbers(CoapType::kAck, request);
  EXPECT_TRUE(IsSilent());
  peer_.Send(AckOf(request));
  EXPECT_EQ(Next().Path(), "second");
}

// What was counted once ends once.
TEST_F(ResetEndsTurn, RepeatedReset_EndsOneTurn) {
  const CoapMessage request = AskTwice();
  const CoapRpcUriKey third = KeyOf("third");
  Register(third, &app_);
  EXPECT_EQ(Call(third), 0U);
  for (int i = 0; i < 3; ++i) peer_.Send(RstOf(request));
  EXPECT_EQ(Next().Path(), "second");
  EXPECT_TRUE(IsSilent());
}

}  // namespace
}  // namespace coap_rpc_test
