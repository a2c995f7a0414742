// A block of a response with the size that is reserved over UDP was delivered as the whole
// response.
#include "wire_client.h"

namespace coap_rpc_test {
namespace {

class ReservedBlockSizeAnswer : public WireClient {
 protected:
  ReservedBlockSizeAnswer() { Register(key_, &app_); }

  // Answer is a part of the response with the reserved size in an option.
  static CoapMessage Part(CoapMessage answer, uint16_t option = kOptBlock2) {
    return answer.Add(option, {0x0F}).PayloadText(std::string(20, 'x'));
  }

  void ExpectNothing() {
    Ticks(11);
    EXPECT_TRUE(app_.responses.empty());
  }

  const CoapRpcUriKey key_ = KeyOf("a");
  App app_;
};

TEST_F(ReservedBlockSizeAnswer, IsNotDelivered) {
  uint64_t userData = 0;
  for (const uint16_t option : {kOptBlock2, kOptBlock1}) {
    Call(key_, ++userData);
    peer_.Send(Part(AnswerOf(Next()), option));
    ExpectNothing();
  }
}

TEST_F(ReservedBlockSizeAnswer, Separate_IsRejected) {
  Call(key_);
  const CoapMessage request = Next();
  peer_.Send(AckOf(request));
  const CoapMessage con = Part(Separate(CoapType::kCon, 0x4242, request.token, "a"));
  peer_.Send(con);
  EXPECT_EQ(Next(), RstOf(con));
  ExpectNothing();
}

TEST_F(ReservedBlockSizeAnswer, LaterBlock_IsNotDelivered) {
  Call(key_);
  CoapMessage first = AnswerOf(Next()).AddBlock(kOptBlock2, {0, true, 0});
  peer_.Send(first.PayloadText(std::string(16, 'x')));
  peer_.Send(Part(AnswerOf(Next())));
  ExpectNothing();
}

}  // namespace
}  // namespace coap_rpc_test
