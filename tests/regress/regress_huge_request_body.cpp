// One datagram that claimed to be part of a huge body made libcoap set aside as much: by its Size1
// up to 4 GiB, by its block number 1 GiB.
#include "coap_svc/rpc/coap_rpc_ext.h"
#include "wire_server.h"

namespace coap_rpc_test {
namespace {

constexpr uint32_t kMaxBody = 1024 * 1024;

class HugeRequestBody : public WireServer {
 protected:
  HugeRequestBody() { Serve(KeyOf("a"), RegOf(&app_, 0)); }

  CoapMessage Part(const CoapBlock &block, uint32_t size1) {
    CoapMessage part = Get(CoapType::kCon, "a", std::string(1024, 'x'));
    if (size1 != 0) part.AddUint(kOptSize1, size1);
    return part.AddBlock(kOptBlock1, block);
  }

  void ExpectTooLarge(const CoapMessage &request) {
    const CoapMessage answer = Ask(request);
    EXPECT_EQ(CodeText(answer.code), "4.13");
    EXPECT_EQ(answer.Uint(kOptSize1), kMaxBody);
    EXPECT_EQ(answer.token, request.token);
  }

  App app_;
};

TEST_F(HugeRequestBody, SizeAboveTheLimit_Gets413) {
  for (const uint32_t size : {kMaxBody + 1, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
    ExpectTooLarge(Part({0, true, 6}, size));
  }
}

TEST_F(HugeRequestBody, BlockPastTheLimit_Gets413) {
  for (const uint32_t num : {1024u, 0xFFFFEu, 0xFFFFFu}) {
    ExpectTooLarge(Part({num, true, 6}, 0));
    ExpectTooLarge(Part({num, false, 6}, 2048));
  }
}

TEST_F(HugeRequestBody, AtTheLimit_IsTaken) {
  for (uint32_t num = 0; num < 1024; ++num) {
    peer_.Send(Part({num, num < 1023, 6}, kMaxBody));
    // No time goes by.
    const auto answer = peer_.ReceiveMessage([this] { COAP_RpcProcIo(Ctx()); });
    ASSERT_TRUE(answer);
    EXPECT_EQ(CodeText(answer->code), num < 1023 ? "2.31" : "0.00") << num;
  }
  ASSERT_EQ(app_.requests.size(), 1u);
  EXPECT_EQ(app_.requests[0].payload.size(), kMaxBody);
}

TEST_F(HugeRequestBody, GrowsAboveTheLimit_IsDropped) {
  EXPECT_EQ(CodeText(Ask(Part({0, true, 6}, 4096)).code), "2.31");
  ExpectTooLarge(Part({1024, true, 6}, 4096));
  for (uint32_t num = 1; num < 4; ++num) Ask(Part({num, num < 3, 6}, 4096));
  EXPECT_TRUE(app_.requests.empty());
}

}  // namespace
}  // namespace coap_rpc_test
