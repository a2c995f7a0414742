// A notification or a ping that was acknowledged with a response in blocks, or with an Echo, was
// taken for a request: messages under tokens that no peer had given asked for the next block.
#include "observe_server.h"

namespace coap_rpc_test {
namespace {

constexpr uint16_t kOptEcho = 252;

class AckUnasked : public ObserveServer {
 protected:
  AckUnasked() { ServeObs(COAP_RPC_CON); }

  // AnswerNext acknowledges the next message with a response.
  void AnswerNext(uint8_t code) {
    const std::optional<CoapMessage> message = Next(peer_);
    ASSERT_TRUE(message);
    ASSERT_EQ(message->type, CoapType::kCon);
    CoapMessage answer = Request(CoapType::kAck, code, message->messageId, message->token);
    answer.Add(kOptEcho, {1, 2}).AddBlock(kOptBlock2, {0, true, 0});
    peer_.Send(answer.PayloadText(std::string(16, 'z')));
  }
};

TEST_F(AckUnasked, OfANotification_IsAnAcknowledgement) {
  Register(peer_, CoapType::kCon, {9});
  for (const uint8_t code : {Code(2, 5), Code(4, 1), Code(2, 31)}) {
    Update("k001", "v" + std::to_string(100 + code));
    AnswerNext(code);
    ExpectSilence(peer_);
  }
}

}  // namespace
}  // namespace coap_rpc_test
