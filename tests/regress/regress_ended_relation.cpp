// A relation that was ended before the server had answered its last request was not cancelled: the
// server kept it for good, and it could take changes away from the relation that followed.
#include "two_observe.h"

namespace coap_rpc_test {
namespace {

class EndedRelation : public TwoObserve {
 protected:
  EndedRelation() {
    Publish(true);
    Fill(60);
    server_.ServeObserve(otherKey_, &otherApp_, true);
    asker_.Register(otherKey_, &others_);
    // It keeps the session that both use.
    EXPECT_EQ(asker_.Observe(otherKey_, server_), 0u);
    EXPECT_TRUE(RunUntil([this] { return otherApp_.observerNums.size() == 1; }));
  }

  // EndUnanswered renews the relation, and ends it before the server has read that.
  void EndUnanswered() {
    EXPECT_EQ(asker_.Call(COAP_RpcCliObserveReqVerify, key_, server_), 0u);
    for (int i = 0; i < 11; ++i) asker_.Host().AdvanceMs(kTickMs);
    EXPECT_EQ(asker_.Call(COAP_RpcCliObserveUnReq, key_, server_), 0u);
  }

  const CoapRpcUriKey otherKey_ = KeyOf("other", COAP_RPC_CON, 1);
  ObserveApp otherApp_;
  Responses others_;
};

TEST_F(EndedRelation, RenewedAndEndedUnanswered_IsCancelled) {
  StartMirror();
  EndUnanswered();
  EXPECT_TRUE(RunUntil([this] { return NumObservers() == 0; }, 50));
  const size_t numPayloads = mirror_.numPayloads;
  Set("0001", "more");
  Steps(50);
  EXPECT_EQ(mirror_.numPayloads, numPayloads);
}

TEST_F(EndedRelation, BegunAndEndedUnanswered_IsCancelled) {
  EXPECT_EQ(asker_.Observe(key_, server_), 0u);
  for (int i = 0; i < 11; ++i) asker_.Host().AdvanceMs(kTickMs);
  EXPECT_EQ(asker_.Call(COAP_RpcCliObserveUnReq, key_, server_), 0u);
  EXPECT_TRUE(RunUntil([this] { return !app_.observerNums.empty(); }, 50));
  EXPECT_TRUE(RunUntil([this] { return NumObservers() == 0; }, 50));
}

TEST_F(EndedRelation, FollowedByANewOne_OnlyTheNewOneIsServed) {
  StartMirror();
  for (int round = 0; round < 3; ++round) {
    EndUnanswered();
    mirror_.tuples.clear();
    EXPECT_EQ(asker_.Observe(key_, server_), 0u);
    Steps(20);
    Fill(60);  // more than one block
    ASSERT_TRUE(IsMirrored()) << round;
    EXPECT_EQ(NumObservers(), 1u) << round;
  }
}

}  // namespace
}  // namespace coap_rpc_test
