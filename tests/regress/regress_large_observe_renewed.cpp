// A relation with a large request that was renewed before its first request was answered took the
// client down: libcoap looked at the answer through the body that the renewal had replaced.
#include "wire_client.h"

namespace coap_rpc_test {
namespace {

constexpr uint32_t kTicksPerResend = 11;

TEST_F(WireClient, LargeObserveRenewed_FirstAnswerIsTaken) {
  COAP_RpcRefreshTaskTimer(Ctx());
  App app;
  app.out = std::string(5000, 'b');
  const CoapRpcUriKey key = KeyOf("a", COAP_RPC_CON, 1);
  Register(key, &app);
  ASSERT_EQ(Observe(key), 0U);
  const CoapMessage first = Next();
  ASSERT_EQ(Observe(key), 0U);
  Ticks(kTicksPerResend);

  peer_.Send(AnswerOf(first).AddUint(kOptObserve, 2).PayloadText("answer"));
  Ticks(2);
  ASSERT_EQ(app.responses.size(), 1U);
  EXPECT_EQ(app.responses[0].payload, "answer");
  const CoapMessage second = Next();
  EXPECT_EQ(second.token, first.token);
  EXPECT_NE(second.messageId, first.messageId);
}

}  // namespace
}  // namespace coap_rpc_test
