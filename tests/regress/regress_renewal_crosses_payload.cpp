// A payload in blocks was lost when its first block crossed a renewal with another check code: the
// client asks for the blocks with the query of the renewal, of which the server has not yet heard
// when it begins to send.
#include "two_observe.h"

namespace coap_rpc_test {
namespace {

class RenewalCrossesPayload : public TwoObserve,
                              public testing::WithParamInterface<Side::Request *> {};

INSTANTIATE_TEST_SUITE_P(Requests, RenewalCrossesPayload,
                         testing::Values(COAP_RpcCliObserveReq, COAP_RpcCliObserveReqVerify,
                                         COAP_RpcCliObserveReqBatch));

TEST_P(RenewalCrossesPayload, PayloadArrivesAllTheSame) {
  app_.padding = 47;
  Publish(true);
  Fill(200);
  StartMirror();
  // Later, the first block would come before the renewal leaves.
  for (uint64_t ms = 1; ms < 450; ms += 20) {
    for (int i = 0; i < 40; ++i) Erase(std::to_string(10'000 + 5 * i).substr(1));
    for (int i = 0; i < 40; ++i) Set(std::to_string(10'000 + 5 * i + 1).substr(1), "more");
    server_.Host().AdvanceMs(ms);
    EXPECT_EQ(asker_.Call(GetParam(), key_, server_), 0u);
    asker_.Host().AdvanceMs(1100);  // it has left
    ASSERT_TRUE(IsMirrored()) << ms;
    Fill(200);
    ASSERT_TRUE(IsMirrored()) << ms;
  }
}

}  // namespace
}  // namespace coap_rpc_test
