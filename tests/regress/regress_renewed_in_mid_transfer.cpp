// A relation that was renewed while a payload of it came in blocks left its URI silent for 20 s:
// the client had dropped what it had of the payload, and the server waited for it to go on. Renewed
// every 20 s, the next payload met the next renewal, and none ever arrived.
#include "two_observe.h"

namespace coap_rpc_test {
namespace {

TEST_F(TwoObserve, RenewedInMidTransfer_TheUriIsNotSilent) {
  app_.padding = 47;
  Publish(true);
  Fill(1000);
  StartMirror();
  for (int i = 0; i < 1000; ++i) Set(std::to_string(10'000 + i).substr(1), "more");
  ASSERT_TRUE(RunUntil([this] { return Entry()->isSendingLargeBlock != 0; }));
  EXPECT_EQ(asker_.Call(COAP_RpcCliObserveReqVerify, key_, server_), 0u);
  Steps(15);
  ASSERT_NE(mirror_.tuples, app_.data);
  EXPECT_TRUE(RunUntil([this] { return mirror_.tuples == app_.data; }, 120));
}

}  // namespace
}  // namespace coap_rpc_test
