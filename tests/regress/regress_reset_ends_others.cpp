// With several requests to a peer under way, a reset for one ended all of them when the instance
// served anything as well.
#include "coap_svc/rpc/coap_rpc_ser.h"
#include "wire_client.h"

namespace coap_rpc_test {
namespace {

class ResetEndsOthers : public WireClient {
 protected:
  ResetEndsOthers() {
    COAP_RpcRefreshTaskTimer(Ctx());
    COAP_RpcSetNstart(Ctx(), 3);
    const CoapRpcUriKey served = KeyOf("served");
    const CoapRpcSerVtblReg reg = {};
    CoapRpcSerListenAddr addr = {};
    addr.listenAddr.family = COAP_RPC_IPV4;
    addr.listenAddr.addr.ipv4 = kOwnIp;
    addr.port = FindFreeUdpPort();
    EXPECT_EQ(COAP_RpcSerRegVtbl(Ctx(), &served, &reg, nullptr), 0U);
    EXPECT_EQ(COAP_RpcSerSetUri(Ctx(), &served, &addr), 0U);
  }

  CoapMessage Ask(const char *path) {
    const CoapRpcUriKey key = KeyOf(path);
    Register(key, &app_);
    EXPECT_EQ(Call(key), 0U);
    return Next();
  }

  App app_;
};

TEST_F(ResetEndsOthers, OfOneRequest_LeavesTheOthersWaiting) {
  const CoapMessage first = Ask("a");
  const CoapMessage second = Ask("b");
  peer_.Send(RstOf(first));
  EXPECT_EQ(Next(), second);  // once more
  peer_.Send(AnswerOf(second).PayloadText("right"));
  Ticks(2);
  ASSERT_EQ(app_.responses.size(), 1U);
  EXPECT_EQ(app_.responses[0].payload, "right");
}

TEST_F(ResetEndsOthers, SignOfLife_LeavesRequestsWaiting) {
  COAP_RpcSetKeepAlive(Ctx(), 5);
  peer_.Send(AnswerOf(Ask("a")));
  const CoapMessage ping = Next();
  ASSERT_EQ(ping.code, kCodeEmpty);
  const CoapMessage request = Ask("b");
  peer_.Send(RstOf(ping));
  EXPECT_EQ(Next(), request);  // once more
}

}  // namespace
}  // namespace coap_rpc_test
