// One peer registered as an observer without end, under a token and a query for each, and took
// memory for all of them.
#include "observe_server.h"

namespace coap_rpc_test {
namespace {

class EndlessObservers : public ObserveServer {
 protected:
  CoapMessage Registration(uint32_t i) {
    const Bytes token = {static_cast<uint8_t>(i >> 8), static_cast<uint8_t>(i)};
    return Observe(CoapType::kCon, token, "q=" + std::to_string(i));
  }
};

TEST_F(EndlessObservers, ThousandAreTaken) {
  ServeObs(COAP_RPC_CON);
  for (uint32_t i = 0; i < 1000; ++i) EXPECT_TRUE(Ask(Registration(i)).Has(kOptObserve)) << i;
  EXPECT_EQ(entry_->observerNum, 1000u);

  const CoapMessage refused = Ask(Registration(1000));
  EXPECT_EQ(refused.code, Code(2, 1));
  EXPECT_FALSE(refused.Has(kOptObserve));
  EXPECT_EQ(entry_->observerNum, 1000u);

  CoapMessage leave = Registration(0);
  leave.options.clear();
  leave.AddPath("obs").AddUint(kOptObserve, 1).AddText(kOptUriQuery, "q=0");
  Ask(leave);
  EXPECT_TRUE(Ask(Registration(1001)).Has(kOptObserve));
  EXPECT_EQ(entry_->observerNum, 1000u);
}

}  // namespace
}  // namespace coap_rpc_test
