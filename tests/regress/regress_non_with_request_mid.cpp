// A NON response that carried the number of the request before the request was acknowledged held up
// every later CON request of its session: the two numbers may be equal, by chance or by habit of
// the peer.
#include "wire_client.h"

namespace coap_rpc_test {
namespace {

class NonWithRequestMid : public WireClient {
 protected:
  NonWithRequestMid() { COAP_RpcRefreshTaskTimer(Ctx()); }

  CoapMessage Ask(const std::string &payload, uint32_t code) {
    app_.out = payload;
    Register(key_, &app_);
    EXPECT_EQ(Call(key_, 1, code), 0U);
    return Next();
  }

  void AnswerThenAcknowledge(const CoapMessage &request) {
    peer_.Send(Separate(CoapType::kNon, request.messageId, request.token, "a").PayloadText("x"));
    Ticks(2);
    EXPECT_EQ(app_.responses.size(), 1U);
    peer_.Send(Request(CoapType::kAck, 0, request.messageId, {}));
    Ticks(2);
  }

  void ExpectNextRequestGoesOut() {
    const CoapRpcUriKey key = KeyOf("b");
    app_.out.clear();
    Register(key, &app_);
    EXPECT_EQ(Call(key, 2), 0U);
    EXPECT_EQ(Next().Path(), "b");
  }

  const CoapRpcUriKey key_ = KeyOf("a");
  App app_;
};

TEST_F(NonWithRequestMid, OfAPlainRequest_FreesTheSession) {
  AnswerThenAcknowledge(Ask("", COAP_RPC_GET));
  ExpectNextRequestGoesOut();
}

TEST_F(NonWithRequestMid, OfABlockWiseRequest_FreesTheSession) {
  CoapMessage block = Ask(std::string(3000, 'x'), COAP_RPC_POST);
  for (std::optional<CoapBlock> option = block.Block(kOptBlock1); option && option->more;
       option = block.Block(kOptBlock1)) {
    peer_.Send(Request(CoapType::kAck, Code(2, 31), block.messageId, block.token)
                   .AddBlock(kOptBlock1, *option));
    block = Next();
  }
  AnswerThenAcknowledge(block);
  ExpectNextRequestGoesOut();
}

TEST_F(NonWithRequestMid, OfAnotherToken_LeavesTheRequestWaiting) {
  const CoapMessage request = Ask("", COAP_RPC_GET);
  peer_.Send(Separate(CoapType::kNon, request.messageId, {9}, "a").PayloadText("x"));
  EXPECT_EQ(Next().messageId, request.messageId);  // once more
  peer_.Send(AnswerOf(request).PayloadText("y"));
  Ticks(2);
  ExpectNextRequestGoesOut();
}

}  // namespace
}  // namespace coap_rpc_test
