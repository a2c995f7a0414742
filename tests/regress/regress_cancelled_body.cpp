// The cancel of an observation that was asked for with a body in blocks sent that body out of the
// observation's own record, and went on sending after the record had expired.
#include "wire_client.h"

namespace coap_rpc_test {
namespace {

constexpr uint32_t kTicksUntilARecordExpires = 250;

class CancelledBody : public WireClient {
 protected:
  CancelledBody() {
    COAP_RpcRefreshTaskTimer(Ctx());
    app_.out.assign(5000, 'b');
    Register(key_, &app_);
  }

  // Take plays the server of a request in blocks.  Returns its body; the last block is answered
  // with `answer`.
  std::string Take(CoapMessage block, uint8_t code, bool isObserved) {
    std::string body;
    for (;;) {
      const std::optional<CoapBlock> option = block.Block(kOptBlock1);
      EXPECT_TRUE(option) << peer_.LogText();
      if (!option) return body;
      body += block.Text();
      CoapMessage answer = AnswerOf(block, option->more ? Code(2, 31) : code);
      if (!option->more && isObserved) answer.AddUint(kOptObserve, 2).PayloadText("answer");
      peer_.Send(answer.AddBlock(kOptBlock1, *option));
      if (!option->more) return body;
      block = Next();
    }
  }

  App app_;
  const CoapRpcUriKey key_ = KeyOf("a", COAP_RPC_CON, 1);
};

TEST_F(CancelledBody, GoesOutWholeAfterItsRecordHasExpired) {
  ASSERT_EQ(Observe(key_), 0U);
  EXPECT_EQ(Take(Next(), Code(2, 5), true), app_.out);
  Ticks(kTicksUntilARecordExpires);
  ASSERT_EQ(app_.responses.size(), 1U);

  ASSERT_EQ(UnObserve(key_), 0U);
  const CoapMessage cancel = Next();
  EXPECT_EQ(cancel.Uint(kOptObserve), 1U);
  EXPECT_EQ(Take(cancel, Code(2, 5), false), app_.out);
}

}  // namespace
}  // namespace coap_rpc_test
