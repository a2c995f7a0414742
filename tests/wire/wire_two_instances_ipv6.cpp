// Two instances that talk over IPv6.
#include "two_instances.h"

namespace coap_rpc_test {
namespace {

// The addresses fd00::1 and fd00::2.
CoapRpcIpAddr Ipv6Address(uint8_t last) {
  CoapRpcIpAddr addr = {};
  addr.family = COAP_RPC_IPV6;
  addr.addr.ipv6[0] = 0xFD;
  addr.addr.ipv6[15] = last;
  return addr;
}

class TwoIpv6 : public testing::Test {
 protected:
  static bool HasAddress(uint8_t last) {
    in6_addr address = {};
    memcpy(&address, Ipv6Address(last).addr.ipv6, sizeof(address));
    return AddIpv6Address(address);
  }

  void SetUp() override {
    if (!EnterOwnNetwork() || !HasAddress(1) || !HasAddress(2)) {
      GTEST_SKIP() << "a network with IPv6 addresses of our own cannot be made here";
    }
    asker_ = std::make_unique<Side>(Ipv6Address(1));
    server_ = std::make_unique<Side>(Ipv6Address(2));
  }

  template <typename Condition>
  bool RunUntil(Condition condition) {
    for (int i = 0; i < 1000; ++i) {
      if (condition()) return true;
      asker_->Host().AdvanceMs(kTickMs);
      server_->Host().AdvanceMs(kTickMs);
    }
    return condition();
  }

  std::unique_ptr<Side> asker_;
  std::unique_ptr<Side> server_;
  Responses responses_;
};

TEST_F(TwoIpv6, Calls_AreAnswered) {
  // Bound to its source: the system would choose the server's own address otherwise.
  const CoapRpcUriKey call = KeyOf("rpc", COAP_RPC_CON, 0, COAP_RPC_BROADCAST);
  const CoapRpcUriKey key = KeyOf("rpc");
  App app;
  app.onAsync = [&](void *handle) {
    const std::string text = "re " + app.requests.back().payload;
    EXPECT_EQ(COAP_RpcSerSendAsyncResponse(server_->Ctx(), handle,
                                           reinterpret_cast<const uint8_t *>(text.data()),
                                           static_cast<uint32_t>(text.size())),
              0u);
  };
  asker_->Register(call, &responses_);
  asker_->Register(key, &responses_);
  asker_->ServeAsync(KeyOf("rpc", COAP_RPC_CON, 0, COAP_RPC_UNICAST), nullptr);
  server_->ServeAsync(key, &app);
  for (const size_t size : {4u, 1100u, 60'000u}) {
    const std::string payload(size, 'q');
    responses_.all.clear();
    EXPECT_EQ(asker_->Ask(call, *server_, payload), 0u);
    ASSERT_TRUE(RunUntil([&] { return responses_.all.size() == 1; })) << size;
    EXPECT_EQ(responses_.all[0].payload, "re " + payload);
  }
}

TEST_F(TwoIpv6, Table_IsMirrored) {
  const CoapRpcUriKey key = KeyOf("table", COAP_RPC_CON, 1);
  ObserveApp app;
  app.padding = 47;
  server_->ServeObserve(key, &app, true);
  Mirror mirror;
  asker_->Register(key, &responses_);
  responses_.onPayload = [&](const std::string &payload) { mirror.TakeJson(payload); };
  for (int i = 0; i < 1000; ++i) {
    const std::string text = std::to_string(1000 + i);
    app.data[text] = text;
    EXPECT_EQ(COAP_RpcSerObserveDataUpdate(server_->Ctx(), &key, text.data(), text.data()), 0u);
  }
  EXPECT_EQ(asker_->Observe(key, *server_), 0u);
  ASSERT_TRUE(RunUntil([&] { return mirror.tuples == app.data; }));
  EXPECT_EQ(COAP_RpcSerObserveDataUpdate(server_->Ctx(), &key, "1000", "more"), 0u);
  EXPECT_TRUE(RunUntil([&] { return mirror.tuples["1000"] == "more"; }));
}

}  // namespace
}  // namespace coap_rpc_test
