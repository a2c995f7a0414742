// Two instances: relations to a peer that is away, restarts, stands still or vanishes.
#include "two_observe.h"

namespace coap_rpc_test {
namespace {

class TwoPeers : public TwoObserve {
 protected:
  TwoPeers() {
    Publish(true);
    Fill(3);
  }

  // Runs until `num` requests of the relation have been given up.
  bool HasGivenUp(uint32_t num) {
    return RunUntil([this, num] { return asker_.RecordOf(key_)->Tout >= num; });
  }
};

TEST_F(TwoPeers, ServerAwayAtTheStart_GetsTheRetransmission) {
  server_.Detach(key_);
  EXPECT_EQ(asker_.Observe(key_, server_), 0u);
  Steps(20);
  server_.Attach(key_);
  EXPECT_TRUE(IsMirrored());
  EXPECT_EQ(asker_.RecordOf(key_)->Tout, 0u);
}

TEST_F(TwoPeers, ServerAwayForGood_EachGivenUpRequestIsCounted) {
  server_.Detach(key_);
  for (uint32_t i = 1; i <= 3; ++i) {
    EXPECT_EQ(asker_.Observe(key_, server_), 0u);
    ASSERT_TRUE(HasGivenUp(i)) << i;
  }
  EXPECT_EQ(asker_.RecordOf(key_)->reSnd, 3u);
  server_.Attach(key_);
  EXPECT_EQ(asker_.Observe(key_, server_), 0u);
  EXPECT_TRUE(IsMirrored());
}

TEST_F(TwoPeers, ClientThatStoodStill_CatchesUp) {
  StartMirror();
  for (int i = 0; i < 30; ++i) {
    Set("0001", std::to_string(1000 + i));
    server_.Host().AdvanceMs(1000);
  }
  EXPECT_NE(mirror_.tuples, app_.data);
  EXPECT_TRUE(IsMirrored());
}

TEST_F(TwoPeers, ServerThatRestarts_IsObservedAgain) {
  StartMirror();
  server_.Stop();
  app_.data.clear();
  Steps(50);
  server_.Start();
  server_.ServeObserve(key_, &app_, true);
  Fill(5);
  EXPECT_EQ(NumObservers(), 0u);
  EXPECT_EQ(asker_.Observe(key_, server_), 0u);
  EXPECT_TRUE(IsMirrored());
  EXPECT_EQ(NumObservers(), 1u);
}

TEST_F(TwoPeers, VerifyAfterARestart_BringsWhatTheApplicationHas) {
  StartMirror();
  server_.Stop();
  server_.Start();
  server_.ServeObserve(key_, &app_, true);
  app_.data["0009"] = "only";  // known to the application, not published
  EXPECT_EQ(asker_.Call(COAP_RpcCliObserveReqVerify, key_, server_), 0u);
  EXPECT_TRUE(IsMirrored());
  EXPECT_EQ(app_.numWalks, 1u);
}

TEST_F(TwoPeers, ClientThatRestarts_IsServedFromItsNewSession) {
  StartMirror();
  asker_.Stop();
  mirror_ = Mirror();
  asker_.Start();
  RegisterAsker();
  EXPECT_EQ(asker_.Observe(key_, server_), 0u);
  EXPECT_TRUE(IsMirrored());
  Set("0001", "more");
  EXPECT_TRUE(IsMirrored());
}

TEST_F(TwoPeers, UriDetachedAndAttached_IsObservedAgain) {
  StartMirror();
  server_.Detach(key_);
  Steps(50);
  server_.Attach(key_);
  Set("0001", "more");
  EXPECT_EQ(asker_.Observe(key_, server_), 0u);
  EXPECT_TRUE(IsMirrored());
}

TEST_F(TwoPeers, KeepAlive_ReportsTheServerThatVanished) {
  EXPECT_EQ(COAP_RpcSetKeepAlive(asker_.Ctx(), 5), 0u);
  StartMirror();
  Steps(600);
  EXPECT_TRUE(responses_.gone.empty());
  server_.Detach(key_);
  ASSERT_TRUE(RunUntil([this] { return !responses_.gone.empty(); }));
  EXPECT_EQ(responses_.gone[0], kServerIp);
  EXPECT_NE(asker_.RecordOf(key_), nullptr);  // left as it was
  EXPECT_TRUE(asker_.HasSession());
}

TEST_F(TwoPeers, ClientThatVanishes_IsDroppedAfterItsLastRetransmission) {
  StartMirror();
  asker_.Stop();
  Set("0001", "more");
  EXPECT_TRUE(RunUntil(
      [this] {
        server_.Host().AdvanceMs(1000);
        return NumObservers() == 0;
      },
      120))
      << NumObservers();
  asker_.Start();
}

}  // namespace
}  // namespace coap_rpc_test
