// A datagram that announces more blocks but no size took the server down inside libcoap.
#include <string>

#include "coap_svc/rpc/coap_rpc_ext.h"
#include "coap_svc/rpc/coap_rpc_ser.h"
#include "raw_peer.h"
#include "test_instance.h"

namespace coap_rpc_test {
namespace {

constexpr size_t kBlockSize = 1024;
constexpr uint8_t kSzx1024 = 6;

std::string g_received;

int32_t TakeRequest(uint64_t, const CoapRpcSerReqInfo *, uint8_t *payload, uint32_t len, uint8_t *,
                    uint32_t) {
  g_received.assign(payload, payload + len);
  return 0;
}

TEST(Block1, WithoutSize1_BodyArrivesWhole) {
  g_received.clear();
  TestHost host;
  TestInstance ctx(host);
  const CoapRpcUriKey key = KeyOf("a", COAP_RPC_CON, 0, COAP_RPC_UNICAST);
  CoapRpcSerVtblReg reg = {};
  reg.onRequest = TakeRequest;
  CoapRpcSerListenAddr addr = {};
  addr.listenAddr.family = COAP_RPC_IPV4;
  addr.listenAddr.addr.ipv4 = 0x7F000001;
  addr.port = FindFreeUdpPort();
  ASSERT_EQ(COAP_RpcSerRegVtbl(ctx, &key, &reg, nullptr), 0u);
  ASSERT_EQ(COAP_RpcSerSetUri(ctx, &key, &addr), 0u);

  RawPeer peer;
  peer.SetRemote({"127.0.0.1", addr.port});
  const std::string body(2 * kBlockSize + 10, 'b');
  for (uint32_t num = 0; num < 3; ++num) {
    SCOPED_TRACE(num);
    const bool isLast = num == 2;
    peer.Send(Request(CoapType::kCon, 2, static_cast<uint16_t>(100 + num), {7})
                  .AddPath("a")
                  .AddBlock(kOptBlock1, {num, !isLast, kSzx1024})
                  .PayloadText(body.substr(num * kBlockSize, kBlockSize)));
    const auto answer = peer.ReceiveMessage([&] { COAP_RpcProcIo(ctx); });
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->code, isLast ? 65 : 95);  // 2.01, 2.31
  }
  EXPECT_EQ(g_received, body);
}

}  // namespace
}  // namespace coap_rpc_test
