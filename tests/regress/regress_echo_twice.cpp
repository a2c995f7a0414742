// A request whose Echo was refused too left a copy of itself in memory.
#include "libcoap_memory.h"
#include "wire_client.h"

namespace coap_rpc_test {
namespace {

constexpr uint16_t kOptEcho = 252;

class EchoTwice : public WireClient {
 protected:
  EchoTwice() {
    COAP_RpcRefreshTaskTimer(Ctx());
    Register(key_, &app_);
  }

  // CallRefused makes a call that is told to bring another Echo each time.
  void CallRefused(uint64_t userData) {
    EXPECT_EQ(Call(key_, userData), 0u);
    while (const std::optional<CoapMessage> request = peer_.ReceiveMessage(Pump(), kNothingComes)) {
      peer_.Send(AnswerOf(*request, Code(4, 1)).Add(kOptEcho, {++echo_}));
    }
  }

  const CoapRpcUriKey key_ = KeyOf("a");
  App app_;
  uint8_t echo_ = 0;
};

TEST_F(EchoTwice, LeavesNothing) {
  CallRefused(1);
  const int64_t numLive = NumLibcoapLive();
  for (uint64_t i = 2; i < 6; ++i) CallRefused(i);
  EXPECT_EQ(NumLibcoapLive(), numLive);
}

}  // namespace
}  // namespace coap_rpc_test
