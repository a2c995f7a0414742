// A relation with a large request that was renewed before its first request was answered took the
// client down: libcoap looked at the answer through the body that the renewal had replaced.  Others
// that pointed to a freed body did the same.
#include "libcoap_memory.h"
#include "wire_client.h"

namespace coap_rpc_test {
namespace {

constexpr uint32_t kTicksPerResend = 11;

class LargeObserveRenewed : public WireClient {
 protected:
  LargeObserveRenewed() {
    COAP_RpcRefreshTaskTimer(Ctx());
    app_.out = std::string(5000, 'b');
    Register(key_, &app_);
    Register(small_, &smallApp_);
  }

  void ObserveAndLeave() {
    ASSERT_EQ(Observe(key_), 0U);
    Ticks(kTicksPerResend);
  }

  void ExpectAnswerIsTaken(const CoapMessage &request) {
    peer_.Send(AnswerOf(request).AddUint(kOptObserve, 2).PayloadText("answer"));
    Ticks(2);
    ASSERT_EQ(app_.responses.size(), 1U);
    EXPECT_EQ(app_.responses[0].payload, "answer");
  }

  App app_;
  App smallApp_;
  const CoapRpcUriKey key_ = KeyOf("a", COAP_RPC_CON, 1);
  const CoapRpcUriKey small_ = KeyOf("b");
};

TEST_F(LargeObserveRenewed, FirstAnswerIsTaken) {
  ASSERT_EQ(Observe(key_), 0U);
  const CoapMessage first = Next();
  ObserveAndLeave();
  ExpectAnswerIsTaken(first);
  const CoapMessage second = Next();
  EXPECT_EQ(second.token, first.token);
  EXPECT_NE(second.messageId, first.messageId);
}

TEST_F(LargeObserveRenewed, WhileItWaitedForItsTurn_AnswerIsTaken) {
  ASSERT_EQ(Call(small_), 0U);
  const CoapMessage call = Next();
  ObserveAndLeave();
  ObserveAndLeave();
  peer_.Send(AnswerOf(call));
  CoapMessage first = Next();
  while (first.messageId == call.messageId) first = Next();
  ExpectAnswerIsTaken(first);
}

// The renewal gives up the first body before it finds that there is no memory for its own.
TEST_F(LargeObserveRenewed, WithoutMemory_IsCancelled) {
  ASSERT_EQ(Observe(key_), 0U);
  const CoapMessage first = Next();
  {
    NoMemory noBodies([](const Need &need) { return need.tag == COAP_LG_XMIT; });
    ObserveAndLeave();
    EXPECT_EQ(noBodies.NumRefused(), 1);
    EXPECT_EQ(UnObserve(key_), 0U);
    EXPECT_EQ(noBodies.NumRefused(), 2);
  }
  peer_.Send(AnswerOf(first));
  EXPECT_EQ(Next().Uint(kOptObserve), 1U);
}

TEST_F(LargeObserveRenewed, WhileItWaitedForItsTurn_StopLeavesNothing) {
  ASSERT_EQ(Call(small_), 0U);
  Next();
  ObserveAndLeave();
  ObserveAndLeave();
  instance_->Stop();
  EXPECT_EQ(NumLibcoapLive(), 0);
}

}  // namespace
}  // namespace coap_rpc_test
