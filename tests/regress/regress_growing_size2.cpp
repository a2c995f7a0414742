// A response whose Size2 grew from block to block lost bytes that had come, and was delivered with
// others of the heap in their place.
#include "wire_client.h"

namespace coap_rpc_test {
namespace {

class GrowingSize2 : public WireClient {
 protected:
  void Reply(const CoapBlock &block, char filler, uint32_t size2) {
    CoapMessage part = AnswerOf(Next()).AddBlock(kOptBlock2, block);
    part.PayloadText(std::string(1024, filler));
    peer_.Send(size2 == 0 ? part : part.AddUint(kOptSize2, size2));
  }
};

TEST_F(GrowingSize2, EveryByteIsWhatCame) {
  const CoapRpcUriKey key = KeyOf("a");
  App app;
  Register(key, &app);
  Call(key);
  Reply({0, true, 6}, 'a', 3000);
  Reply({2, true, 6}, 'c', 0);
  Reply({1, true, 6}, 'b', 5000);
  Reply({3, false, 6}, 'd', 0);
  Ticks(11);
  ASSERT_EQ(app.responses.size(), 1u);
  std::string body;
  for (const char filler : {'a', 'b', 'c', 'd'}) body += std::string(1024, filler);
  EXPECT_EQ(app.responses[0].payload, body);
}

}  // namespace
}  // namespace coap_rpc_test
