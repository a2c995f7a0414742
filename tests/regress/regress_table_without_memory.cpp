// A table of sessions or of resources that could not be made, or could not grow, ended the process:
// a datagram of one more peer was enough when memory was short.
#include "coap_svc/rpc/coap_rpc_cli.h"
#include "libcoap_memory.h"
#include "wire_server.h"

namespace coap_rpc_test {
namespace {

constexpr uint32_t kNotSent = 1900001103;
constexpr size_t kFirstTableBytes = 512;
constexpr int kMany = 1000;  // more than a table takes before it grows

bool IsText(const Need &need) { return need.tag == COAP_STRING; }

// Nothing else that libcoap keeps as a text is as long here.
bool IsFirstTable(const Need &need) { return IsText(need) && need.size == kFirstTableBytes; }
bool IsLargerTable(const Need &need) { return IsText(need) && need.size > kFirstTableBytes; }

class TableWithoutMemory : public WireServer {
 protected:
  // ExpectNoSession expects that a peer is not heard while there is no memory, and is afterwards.
  void ExpectNoSession(const NoMemory::Match &match) {
    {
      NoMemory noMemory(match);
      peer_.Send(Get(CoapType::kCon, "a"));
      ExpectSilence(peer_);
      EXPECT_EQ(noMemory.NumRefused(), 1);
    }
    Ask(Get(CoapType::kCon, "a"));
  }

  uint32_t Call(uint16_t port) {
    const CoapRpcUriKey key = KeyOf("b");
    const CoapRpcCliReqParam param = {};
    CoapRpcCliAddr addr = {};
    addr.srcIp.family = addr.dstIp.family = COAP_RPC_IPV4;
    addr.srcIp.addr.ipv4 = kLoopback;
    addr.dstIp.addr.ipv4 = OwnIpv4(Role::kPeer);
    addr.dstPort = port;
    addr.codeType = COAP_RPC_GET;
    return COAP_RpcCliConReq(Ctx(), &key, &param, &addr);
  }

  App app_;
  RawPeer called_{UdpAddress{OwnHost(Role::kPeer), 0}};
};

TEST_F(TableWithoutMemory, FirstSessionOfAnEndpoint_IsGivenUp) {
  Serve(KeyOf("a"), RegOf(&app_, 0));
  ExpectNoSession([isRefused = false](const Need &need) mutable {
    return IsText(need) && !std::exchange(isRefused, true);
  });
}

TEST_F(TableWithoutMemory, FirstSessionOfAnEndpointWithHalfATable_IsGivenUp) {
  Serve(KeyOf("a"), RegOf(&app_, 0));
  ExpectNoSession(IsFirstTable);
}

TEST_F(TableWithoutMemory, SessionForWhichTheTableWouldGrow_IsGivenUp) {
  Serve(KeyOf("a"), RegOf(&app_, 0));
  std::vector<std::unique_ptr<RawPeer>> peers;
  {
    NoMemory noMemory(IsLargerTable);
    while (noMemory.NumRefused() == 0 && peers.size() < kMany) {
      peers.push_back(std::make_unique<RawPeer>());
      peers.back()->SetRemote(Address());
      peers.back()->Send(Get(CoapType::kCon, "a"));
      Tick();
    }
    EXPECT_EQ(noMemory.NumRefused(), 1);
    EXPECT_FALSE(peers.back()->ReceiveNow());
  }
  for (const auto &peer : peers) {
    peer->ReceiveNow();
    Ask(*peer, Get(CoapType::kCon, "a"));
  }
}

TEST_F(TableWithoutMemory, FirstSessionOfACaller_IsGivenUp) {
  {
    NoMemory noMemory(IsFirstTable);
    EXPECT_EQ(Call(called_.Local().port), kNotSent);
    EXPECT_GE(noMemory.NumRefused(), 1);
    ExpectSilence(called_);
  }
  EXPECT_TRUE(Next(called_));  // with the next attempt
}

TEST_F(TableWithoutMemory, SessionOfACallerForWhichTheTableWouldGrow_IsGivenUp) {
  uint16_t port = 10'000;
  {
    NoMemory noMemory(IsLargerTable);
    uint32_t result = 0;
    while (result == 0 && port < 10'000 + kMany) result = Call(++port);
    EXPECT_EQ(result, kNotSent);
    EXPECT_GE(noMemory.NumRefused(), 1);
  }
  RawPeer unlucky(UdpAddress{OwnHost(Role::kPeer), port});
  EXPECT_TRUE(Next(unlucky));  // with the next attempt
}

TEST_F(TableWithoutMemory, ResourceForWhichTheTableWouldGrow_IsGivenUp) {
  std::string uri;
  {
    NoMemory noMemory(IsLargerTable);
    for (int i = 0; i < kMany && noMemory.NumRefused() == 0; ++i) {
      uri = "r" + std::to_string(i);
      Serve(KeyOf(uri.c_str()), RegOf(&app_, 0));
    }
    EXPECT_EQ(noMemory.NumRefused(), 1);
  }
  EXPECT_NE(Ask(Get(CoapType::kCon, "r0")).code, Code(4, 4));
  EXPECT_EQ(Ask(Get(CoapType::kCon, uri)).code, Code(4, 4));
  Serve(KeyOf(uri.c_str()), RegOf(&app_, 0));
  EXPECT_NE(Ask(Get(CoapType::kCon, uri)).code, Code(4, 4));
}

}  // namespace
}  // namespace coap_rpc_test
