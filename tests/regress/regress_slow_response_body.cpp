// A body whose blocks came in for longer than 21 s was given up, and its next block taken for the
// whole answer.
#include "test_process.h"
#include "wire_client.h"

namespace coap_rpc_test {
namespace {

class SlowResponseBody : public WireClient {};

TEST_F(SlowResponseBody, IsTakenHoweverLongItTakes) {
  constexpr uint32_t kNumBlocks = 20;
  const CoapRpcUriKey key = KeyOf("a");
  App app;
  Register(key, &app);
  Call(key);
  const uint64_t startMs = TestProcess::Get().ElapsedMs();
  for (uint32_t last = 0; last + 1 < kNumBlocks;) {
    const std::optional<CoapMessage> request = peer_.ReceiveMessage(Pump());
    ASSERT_TRUE(request) << last;
    Ticks(15);
    last = request->Block(kOptBlock2).value_or(CoapBlock()).num;
    CoapMessage part = AnswerOf(*request).AddBlock(kOptBlock2, {last, last + 1 < kNumBlocks, 2});
    peer_.Send(part.PayloadText(std::string(64, 'p')));
  }
  Ticks(11);
  EXPECT_GT(TestProcess::Get().ElapsedMs(), startMs + 25'000);
  ASSERT_EQ(app.responses.size(), 1u);
  EXPECT_EQ(app.responses[0].payload, std::string(64 * kNumBlocks, 'p'));
}

}  // namespace
}  // namespace coap_rpc_test
