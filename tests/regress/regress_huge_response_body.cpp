// One datagram of a peer that claimed to be part of a huge answer made libcoap set aside as much:
// by its Size2 up to 4 GiB, by its block number 1 GiB.
#include "usage.h"
#include "wire_client.h"

namespace coap_rpc_test {
namespace {

class HugeResponseBody : public WireClient {
 protected:
  HugeResponseBody() { Register(key_, &app_); }

  CoapMessage Part(const CoapMessage &request, const CoapBlock &block) {
    CoapMessage part = AnswerOf(request).AddBlock(kOptBlock2, block);
    return part.AddUint(kOptSize2, 0x7FFFFFFF).PayloadText(std::string(1024, 'p'));
  }

  // Reply sends a part and expects it to take little memory.
  void Reply(const CoapMessage &part) {
    const uint64_t before = HeapBytes();
    peer_.Send(part);
    COAP_RpcProcIo(Ctx());
    EXPECT_LE(HeapBytes(), before + 512 * 1024);
  }

  const CoapRpcUriKey key_ = KeyOf("a");
  App app_;
};

TEST_F(HugeResponseBody, Size2IsNotBelieved) {
  Call(key_);
  Reply(Part(Next(), {0, true, 6}));
  Reply(Part(Next(), {1, false, 6}));
  ASSERT_EQ(app_.responses.size(), 1u);
  EXPECT_EQ(app_.responses[0].payload, std::string(2048, 'p'));
  EXPECT_EQ(app_.responses[0].info.rspCode, 205u);
}

TEST_F(HugeResponseBody, BlockFarAhead_EndsTheTransfer) {
  for (const uint32_t num : {1024u, 0xFFFFFu}) {
    SCOPED_TRACE(num);
    app_.responses.clear();
    Call(key_, num);
    Reply(Part(Next(), {0, true, 6}));
    Reply(Part(Next(), {num, true, 6}));
    Ticks(11);
    ASSERT_EQ(app_.responses.size(), 1u);
    EXPECT_EQ(app_.responses[0].info.rspCode, 413u);
  }
}

// Beyond 1 MiB a body takes what has come of it.  No time passes.
TEST_F(HugeResponseBody, BlocksInOrder_AreTakenUpTo16MiB) {
  // The address checker's realloc always copies.
  const uint32_t most = kSlowdown == 1 ? 16 * 1024 + 1 : 3 * 1024;
  const auto work = [this] { COAP_RpcProcIo(Ctx()); };
  for (const uint32_t numBlocks : {3 * 1024u, 16 * 1024u, 16 * 1024u + 1}) {
    SCOPED_TRACE(numBlocks);
    if (numBlocks > most) break;
    app_.responses.clear();
    Call(key_, numBlocks);
    for (uint32_t num = 0; num < numBlocks; ++num) {
      const std::optional<CoapMessage> request = peer_.ReceiveMessage(work);
      ASSERT_TRUE(request) << num;
      peer_.Send(Part(*request, {num, num + 1 < numBlocks, 6}));
    }
    work();
    ASSERT_EQ(app_.responses.size(), 1u);
    if (numBlocks > 16 * 1024) {
      EXPECT_EQ(app_.responses[0].info.rspCode, 413u);
    } else {
      EXPECT_EQ(app_.responses[0].info.rspCode, 205u);
      EXPECT_EQ(app_.responses[0].payload, std::string(size_t{numBlocks} * 1024, 'p'));
    }
  }
}

}  // namespace
}  // namespace coap_rpc_test
