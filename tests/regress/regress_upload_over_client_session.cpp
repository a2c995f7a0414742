// A peer that is called may upload over the caller's session: without bound, it could hold as many
// bodies as it has tags for them.
#include "coap_svc/rpc/coap_rpc_ser.h"
#include "libcoap/ext/coap_rpc_lib_internals.h"
#include "wire_client.h"

namespace coap_rpc_test {
namespace {

constexpr uint16_t kOptRequestTag = 292;
constexpr unsigned kMost = 64;

int32_t TakeRequest(uint64_t, const CoapRpcSerReqInfo *, uint8_t *, uint32_t, uint8_t *, uint32_t) {
  return 0;
}

class UploadOverClientSession : public WireClient {
 protected:
  UploadOverClientSession() {
    COAP_RpcRefreshTaskTimer(Ctx());
    Register(called_, &app_);
    CoapRpcSerVtblReg reg = {};
    reg.onRequest = TakeRequest;
    CoapRpcSerListenAddr addr = {};
    addr.listenAddr.family = COAP_RPC_IPV4;
    addr.listenAddr.addr.ipv4 = kOwnIp;
    addr.port = FindFreeUdpPort();
    EXPECT_EQ(COAP_RpcSerRegVtbl(Ctx(), &served_, &reg, nullptr), 0u);
    EXPECT_EQ(COAP_RpcSerSetUri(Ctx(), &served_, &addr), 0u);
    Call(called_);
    peer_.Send(AnswerOf(Next()));
  }

  uint8_t Send(const CoapBlock &block, uint8_t tag) {
    CoapMessage part = Request(CoapType::kCon, kCodeGet, ++mid_, {5}).AddPath("s");
    part.AddBlock(kOptBlock1, block).Add(kOptRequestTag, {tag});
    peer_.Send(part.PayloadText(std::string(16, 'x')));
    return Next().code;
  }

  unsigned NumUploads() { return CoapRpcLibLimitUploads(Ctx()->lib->coapCtx, 1000, SIZE_MAX); }

  const CoapRpcUriKey called_ = KeyOf("a");
  const CoapRpcUriKey served_ = KeyOf("s");
  App app_;
  uint16_t mid_ = 0x2000;
};

TEST_F(UploadOverClientSession, ManyAreBounded) {
  for (uint8_t tag = 0; tag < kMost + 20; ++tag) EXPECT_EQ(Send({0, true, 0}, tag), Code(2, 31));
  Tick();
  EXPECT_EQ(NumUploads(), kMost);
}

// MAX_TRANSMIT_WAIT of RFC 7252, with two retransmissions.
TEST_F(UploadOverClientSession, IsGivenUpAfter21SecondsOfSilence) {
  EXPECT_EQ(Send({0, true, 0}, 1), Code(2, 31));
  host_.AdvanceMs(20'000);
  EXPECT_EQ(NumUploads(), 1u);
  host_.AdvanceMs(2'000);
  EXPECT_EQ(NumUploads(), 0u);
}

}  // namespace
}  // namespace coap_rpc_test
