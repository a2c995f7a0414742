// A request for a later block of a payload that named another payload's ETag took memory for good.
#include "libcoap_memory.h"
#include "observe_server.h"

namespace coap_rpc_test {
namespace {

class BlockWithOtherEtag : public ObserveServer {
 protected:
  CoapMessage AskForSecond() {
    CoapMessage get = Get(CoapType::kCon, "obs").AddBlock(kOptBlock2, {1, false, 6});
    return Ask(get.Add(kOptEtag, {9}));
  }
};

TEST_F(BlockWithOtherEtag, NothingIsLeft) {
  ServeObs(COAP_RPC_CON);
  app_.padding = 3000;
  Register(peer_, CoapType::kCon, {1});
  Update("k001", "v001");
  ASSERT_TRUE(NextNotification(peer_).Block(kOptBlock2));
  EXPECT_TRUE(AskForSecond().payload.empty());
  const int64_t numLive = NumLibcoapLive();
  AskForSecond();
  EXPECT_EQ(NumLibcoapLive(), numLive);
}

}  // namespace
}  // namespace coap_rpc_test
