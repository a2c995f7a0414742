// A request for a later block of a payload that named the payload's own ETag got 2.03 and no block.
#include "observe_server.h"

namespace coap_rpc_test {
namespace {

class BlockWithOwnEtag : public ObserveServer {
 protected:
  BlockWithOwnEtag() {
    ServeObs(COAP_RPC_CON);
    app_.padding = 3000;
    Register(peer_, CoapType::kCon, {1});
    Update("k001", "v001");
    first_ = NextNotification(peer_);
  }

  CoapMessage AskFor(uint32_t num, const std::vector<Bytes> &etags) {
    CoapMessage get = Get(CoapType::kCon, "obs").AddBlock(kOptBlock2, {num, false, 6});
    for (const Bytes &etag : etags) get.Add(kOptEtag, etag);
    return Ask(get);
  }

  static void ExpectSame(const CoapMessage &block, const CoapMessage &plain) {
    EXPECT_EQ(block.code, Code(2, 5));
    EXPECT_EQ(block.payload, plain.payload);
    EXPECT_EQ(block.Values(kOptEtag), plain.Values(kOptEtag));
  }

  CoapMessage first_;
};

TEST_F(BlockWithOwnEtag, EachBlockIsSent) {
  ASSERT_TRUE(first_.Has(kOptEtag));
  const Bytes own = first_.Values(kOptEtag)[0];
  const std::vector<std::vector<Bytes>> lists = {{own}, {{9}, own}, {own, {9}}};
  const CoapMessage plain = AskFor(1, {});
  EXPECT_EQ(plain.payload.size(), 1024u);
  for (const std::vector<Bytes> &etags : lists) ExpectSame(AskFor(1, etags), plain);
  ExpectSame(AskFor(2, {own}), AskFor(2, {}));
  host_.AdvanceMs(2'000);  // the payload is released, but for its last block
  const CoapMessage last = AskFor(2, {});
  EXPECT_FALSE(last.payload.empty());
  for (const std::vector<Bytes> &etags : lists) ExpectSame(AskFor(2, etags), last);
  EXPECT_TRUE(AskFor(2, {{9}}).payload.empty());
}

TEST_F(BlockWithOwnEtag, OthersOnly_NoBlockOfThisBody) {
  EXPECT_TRUE(AskFor(1, {{9}, {10}}).payload.empty());
}

}  // namespace
}  // namespace coap_rpc_test
