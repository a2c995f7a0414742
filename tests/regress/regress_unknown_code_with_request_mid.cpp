// A message of a code that CoAP does not know, with the number of a request under way, held up
// every later CON request of its session.
#include "wire_client.h"

namespace coap_rpc_test {
namespace {

constexpr uint32_t kUnknownCode = Code(1, 0);

class UnknownCodeWithRequestMid : public WireClient {
 protected:
  UnknownCodeWithRequestMid() { COAP_RpcRefreshTaskTimer(Ctx()); }

  CoapMessage Ask(const CoapRpcUriKey &key, App *app) {
    Register(key, app);
    EXPECT_EQ(Call(key, 1, COAP_RPC_GET), 0U);
    return Next();
  }

  void Answer(const CoapMessage &request, CoapType type) {
    peer_.Send(Request(type, kUnknownCode, request.messageId, {}));
    Ticks(2);
  }

  App first_, second_;
};

TEST_F(UnknownCodeWithRequestMid, AsNon_LeavesTheRequestWaiting) {
  const CoapMessage request = Ask(KeyOf("a"), &first_);
  Answer(request, CoapType::kNon);
  EXPECT_EQ(Next().messageId, request.messageId);  // once more
  peer_.Send(AnswerOf(request).PayloadText("y"));
  Ticks(2);
  EXPECT_EQ(first_.responses.size(), 1U);
  EXPECT_EQ(Ask(KeyOf("b"), &second_).Path(), "b");
}

TEST_F(UnknownCodeWithRequestMid, AsAck_EndsTheRequestAndFreesTheSession) {
  Answer(Ask(KeyOf("a"), &first_), CoapType::kAck);
  EXPECT_EQ(Ask(KeyOf("b"), &second_).Path(), "b");
}

}  // namespace
}  // namespace coap_rpc_test
