// A NON request of an observer that carried the number of a notification under way, which it may by
// chance, ended the notification's retransmission and all notifications that would have followed.
#include "observe_server.h"

namespace coap_rpc_test {
namespace {

class NonWithNotificationMid : public ObserveServer {};

TEST_F(NonWithNotificationMid, LeavesTheNotificationWaiting) {
  ServeObs(COAP_RPC_CON);
  Register(peer_, CoapType::kCon, {1});
  Update("k001", "v001");
  const std::optional<CoapMessage> first = Next(peer_);
  ASSERT_TRUE(first);
  Ask(Request(CoapType::kNon, kCodeGet, first->messageId, {2}).AddPath("nowhere"));
  const std::optional<CoapMessage> again =
      peer_.ReceiveMessage([this] { host_.AdvanceMs(100); }, 40);
  ASSERT_TRUE(again) << peer_.LogText();
  EXPECT_EQ(again->messageId, first->messageId);
  peer_.Send(AckOf(*again));
  Update("k002", "v002");
  EXPECT_NE(NextNotification(peer_).Text().find("k002"), std::string::npos);
}

}  // namespace
}  // namespace coap_rpc_test
