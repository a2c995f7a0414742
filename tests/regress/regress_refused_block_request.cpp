// A block-wise request to a peer that refused datagrams for a while never ended: it went on under a
// token made of freed memory.
#include "wire_client.h"

namespace coap_rpc_test {
namespace {

constexpr size_t kNumBytes = 5000;

class RefusedBlockRequest : public WireClient {
 protected:
  RefusedBlockRequest() : gate_(std::make_unique<RawPeer>(UdpAddress{"127.0.0.2", 0})) {
    COAP_RpcRefreshTaskTimer(Ctx());
    addr_ = AddrOf(*gate_, COAP_RPC_POST);
  }

  // RefuseFor closes the peer's port for a while.
  void RefuseFor(uint32_t ticks) {
    const UdpAddress local = gate_->Local();
    gate_.reset();
    Ticks(ticks);
    gate_ = std::make_unique<RawPeer>(local);
  }

  // Take answers a block that must begin at `at`.  Returns where it ends.
  size_t Take(const CoapMessage &block, size_t at) {
    const std::optional<CoapBlock> option = block.Block(kOptBlock1);
    EXPECT_TRUE(option) << gate_->LogText();
    if (!option) return kNumBytes;
    EXPECT_EQ(at, size_t{option->num} << (option->szx + 4));
    CoapMessage answer = Request(CoapType::kAck, option->more ? Code(2, 31) : Code(2, 4),
                                 block.messageId, block.token);
    if (!option->more) answer.AddPath("a");
    gate_->Send(answer.AddBlock(kOptBlock1, *option));
    return at + block.payload.size();
  }

  std::unique_ptr<RawPeer> gate_;
  CoapRpcCliAddr addr_;
  App app_;
};

TEST_F(RefusedBlockRequest, GoesOnUnderItsToken) {
  const CoapRpcUriKey key = KeyOf("a");
  const CoapRpcCliReqParam param = ParamOf(1);
  app_.out.assign(kNumBytes, 'x');
  Register(key, &app_);
  EXPECT_EQ(COAP_RpcCliConReq(Ctx(), &key, &param, &addr_), 0U);
  size_t numBytes = Take(Next(*gate_), 0);
  const CoapMessage second = Next(*gate_);

  RefuseFor(35);  // the first retransmission comes after 2 to 3 s
  CoapMessage block = Next(*gate_);
  EXPECT_EQ(block, second);
  while (true) {
    numBytes = Take(block, numBytes);
    if (numBytes >= kNumBytes) break;
    block = Next(*gate_);
  }
  EXPECT_EQ(numBytes, kNumBytes);
  Ticks(2);
  ASSERT_EQ(app_.responses.size(), 1U);
  EXPECT_EQ(app_.responses[0].info.rspCode, 204U);
}

}  // namespace
}  // namespace coap_rpc_test
