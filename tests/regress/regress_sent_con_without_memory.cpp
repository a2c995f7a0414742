// A confirmable message that was sent, and then found no memory to wait for its acknowledgement,
// stayed counted as under way: its session never sent another one.
#include "libcoap_memory.h"
#include "observe_server.h"

namespace coap_rpc_test {
namespace {

class SentConWithoutMemory : public ObserveServer {
 protected:
  // HearsOf reads notifications until one tells of a key.
  bool HearsOf(const std::string &key) {
    while (const std::optional<CoapMessage> message = Next(peer_)) {
      if (message->type == CoapType::kCon) peer_.Send(AckOf(*message));
      if (message->Text().find(key) != std::string::npos) return true;
    }
    return false;
  }

  // NotifyWithoutMemory sends a notification for whose acknowledgement nothing waits.
  void NotifyWithoutMemory() {
    NoMemory nothingToWaitIn([](const Need &need) { return need.tag == COAP_NODE; });
    Update("k001", "v001");
    EXPECT_TRUE(HearsOf("k001"));
    EXPECT_GE(nothingToWaitIn.NumRefused(), 1);
  }
};

TEST_F(SentConWithoutMemory, TheNextNotificationGoesOut) {
  ServeObs(COAP_RPC_CON);
  Register(peer_, CoapType::kCon, {1});
  NotifyWithoutMemory();
  Update("k002", "v002");
  EXPECT_TRUE(HearsOf("k002")) << peer_.LogText();
}

}  // namespace
}  // namespace coap_rpc_test
