// The body of a request that was answered without its handler stayed, and blocks of the next one
// were taken for repetitions of its own.
#include "libcoap_memory.h"
#include "observe_server.h"

namespace coap_rpc_test {
namespace {

class FinishedUpload : public ObserveServer {
 protected:
  // Ends a request in two blocks that asks to observe and for a later block, which do not go
  // together.
  uint8_t SendBoth() {
    uint8_t code = 0;
    for (const uint32_t num : {0u, 1u}) {
      CoapMessage part = Observe(CoapType::kCon, {1}).AddBlock(kOptBlock1, {num, num == 0, 2});
      part.AddBlock(kOptBlock2, {1, false, 2}).PayloadText(std::string(64, 'x'));
      code = Ask(part).code;
    }
    return code;
  }
};

TEST_F(FinishedUpload, NothingIsLeft) {
  ServeObs(COAP_RPC_CON);
  EXPECT_EQ(SendBoth(), Code(4, 0));
  const int64_t numLive = NumLibcoapLive();
  EXPECT_EQ(Ask(Observe(CoapType::kCon, {1}, "", 1)).code >> 5, 2);
  EXPECT_EQ(SendBoth(), Code(4, 0));
  EXPECT_EQ(NumLibcoapLive(), numLive);
  // A last block alone completes nothing.
  CoapMessage last = Observe(CoapType::kCon, {1}).AddBlock(kOptBlock1, {1, false, 2});
  last.AddBlock(kOptBlock2, {1, false, 2}).PayloadText(std::string(64, 'x'));
  EXPECT_EQ(Ask(last).code, kCodeEmpty);
}

}  // namespace
}  // namespace coap_rpc_test
