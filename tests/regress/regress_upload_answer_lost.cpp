// A caller whose request came in blocks, and whose answer was lost, was told 4.08 of a call that
// was done.
#include "two_instances.h"

namespace coap_rpc_test {
namespace {

constexpr char kRelayHost[] = "127.0.0.3";
constexpr uint32_t kRelayIp = 0x7F000003;

class UploadAnswerLost : public TwoInstances {
 protected:
  UploadAnswerLost() {
    toServer_.SetRemote({"127.0.0.2", kCoapPort});
    CoapRpcSerVtblReg reg = {};
    reg.userData = reinterpret_cast<uint64_t>(&app_);
    reg.onRequest = App::OnRequest;
    app_.result = 4;
    EXPECT_EQ(COAP_RpcSerRegVtbl(server_.Ctx(), &key_, &reg, nullptr), 0u);
    server_.Attach(key_);
    asker_.Register(key_, &responses_);
  }

  // Relay carries what both sides send, but not the first answer with a payload.  To others it adds
  // the path that finds the caller's table.
  void Relay() {
    while (const std::optional<CoapMessage> message = toAsker_.ReceiveNow()) {
      const std::optional<CoapBlock> block = message->Block(kOptBlock1);
      if (block && block->num != 0 && !block->more) ++numLastBlocks_;
      toServer_.Send(*message);
    }
    while (std::optional<CoapMessage> message = toServer_.ReceiveNow()) {
      const bool isAnswer = !message->payload.empty();
      if (isAnswer && numLost_++ == 0) continue;
      toAsker_.Send(isAnswer ? message->AddPath("a") : *message);
    }
  }

  const CoapRpcUriKey key_ = KeyOf("a");
  App app_;
  Responses responses_;
  RawPeer toAsker_{UdpAddress{kRelayHost, kCoapPort}};
  RawPeer toServer_{UdpAddress{"127.0.0.1", 0}};
  int numLastBlocks_ = 0;
  int numLost_ = 0;  // and what came after it
};

TEST_F(UploadAnswerLost, CallSucceeds_HandlerRunsOnce) {
  const std::string body(5000, 'b');
  ASSERT_EQ(asker_.Ask(key_, Ipv4Address(kRelayIp), body), 0u);
  const bool isAnswered = RunUntil([this] {
    Relay();
    return !responses_.all.empty();
  });
  ASSERT_TRUE(isAnswered);
  Steps(200);
  EXPECT_EQ(numLastBlocks_, 2);
  ASSERT_EQ(responses_.all.size(), 1u);
  EXPECT_EQ(responses_.all[0].payload, std::string(5, '\0'));
  EXPECT_EQ(responses_.all[0].info.rspCode, 201u);
  ASSERT_EQ(app_.requests.size(), 1u);
  EXPECT_EQ(app_.requests[0].payload, body);
}

}  // namespace
}  // namespace coap_rpc_test
