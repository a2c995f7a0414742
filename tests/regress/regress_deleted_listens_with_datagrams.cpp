// A callback that deleted ten listens with datagrams waiting held the thread for ever: libcoap
// looked again and again at sockets that it was not to read any more.
#include <string>
#include <vector>

#include "wire_server.h"

namespace coap_rpc_test {
namespace {

constexpr uint16_t kNumListens = 24;  // libcoap looks at ten at a time

struct Listener {
  CoapRpcUriKey key = {};
  CoapRpcSerListenAddr addr = {};
};

class DeletedListens : public WireServer {
 protected:
  void SetUp() override {
    for (uint16_t i = 0; i < kNumListens; ++i) {
      listens_.push_back({KeyOf(("u" + std::to_string(i)).c_str()), AddrOf(i)});
    }
    CoapRpcSerVtblReg reg = RegOf(&app_, 0);
    reg.userData = reinterpret_cast<uint64_t>(this);
    reg.onRequest = [](uint64_t userData, const CoapRpcSerReqInfo *, uint8_t *, uint32_t, uint8_t *,
                       uint32_t) {
      return reinterpret_cast<DeletedListens *>(userData)->UnsetAll();
    };
    for (const Listener &listen : listens_) {
      ASSERT_EQ(COAP_RpcSerRegVtbl(Ctx(), &listen.key, &reg, nullptr), 0u);
    }
    SetAll();
  }

  static CoapRpcSerListenAddr AddrOf(uint16_t i) {
    CoapRpcSerListenAddr addr = {};
    addr.listenAddr.family = COAP_RPC_IPV4;
    addr.listenAddr.addr.ipv4 = OwnIpv4(Role::kServer);
    addr.port = static_cast<uint16_t>(kCoapPort + i);
    return addr;
  }

  void SetAll() {
    for (const Listener &listen : listens_) {
      EXPECT_EQ(COAP_RpcSerSetUri(Ctx(), &listen.key, &listen.addr), 0u);
    }
  }

  int32_t UnsetAll() {
    ++numCalls_;
    for (const Listener &listen : listens_) COAP_RpcSerUnsetUri(Ctx(), &listen.key);
    if (isSetAgain_) SetAll();
    return 0;
  }

  void SendToAll() {
    for (const Listener &listen : listens_) {
      peer_.SetRemote({OwnHost(Role::kServer), static_cast<uint16_t>(listen.addr.port)});
      peer_.Send(Get(CoapType::kNon, listen.key.uri, "q"));
    }
  }

  App app_;
  std::vector<Listener> listens_;
  uint32_t numCalls_ = 0;
  bool isSetAgain_ = false;
};

TEST_F(DeletedListens, AreLeftAlone) {
  SendToAll();
  COAP_RpcProcTask(Ctx());
  EXPECT_EQ(numCalls_, 1u);
}

// Those that are made again take what has come meanwhile.
TEST_F(DeletedListens, MadeAgain_AreRead) {
  isSetAgain_ = true;
  SendToAll();
  for (int i = 0; i < kNumListens; ++i) Tick();
  EXPECT_EQ(numCalls_, uint32_t{kNumListens});
}

}  // namespace
}  // namespace coap_rpc_test
