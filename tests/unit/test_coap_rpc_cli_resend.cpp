// The resend timer: what a tick visits, and callbacks that change the tables under it.
#include "cli_fixture.h"
#include "coap_svc/rpc/common/coap_rpc_list.h"

namespace coap_rpc_test {
namespace {

class CliResend : public CliFixture {
 protected:
  void Observe(uint64_t userData) {
    const CoapRpcUriKey key = ObserveKey();
    const CoapRpcCliReqParam param = ParamOf(userData);
    const CoapRpcCliAddr addr = AddrOf();
    ASSERT_EQ(COAP_RpcCliObserveReq(&ctx_, &key, &param, &addr), 0U);
  }
  void UnObserve(uint64_t userData) {
    const CoapRpcUriKey key = ObserveKey();
    const CoapRpcCliReqParam param = ParamOf(userData);
    const CoapRpcCliAddr addr = AddrOf();
    EXPECT_EQ(COAP_RpcCliObserveUnReq(&ctx_, &key, &param, &addr), 0U);
  }
  uint32_t Post(uint64_t userData) {
    const CoapRpcUriKey key = KeyOf("post");
    const CoapRpcCliReqParam param = ParamOf(userData);
    const CoapRpcCliAddr addr = AddrOf();
    return COAP_RpcCliConReq(&ctx_, &key, &param, &addr);
  }
  static CoapRpcUriKey ObserveKey() { return KeyOf("obs", COAP_RPC_CON, 1); }
  size_t NumResendLines() const { return DebugLines("[CoapRpc]req resend").size(); }
  void Tick() { host_.AdvanceMs(1001); }
};

TEST_F(CliResend, Timer_RunsWhileTheListIsNotEmpty) {
  EXPECT_EQ(COAP_RpcStartReSendReqTimer(&ctx_), 0U);
  EXPECT_EQ(COAP_RpcStartReSendReqTimer(&ctx_), 0U);
  ASSERT_EQ(host_.Timers().Running().size(), 2U);  // with the aging timer
  const RunningTimer timer = host_.Timers().Running()[1];
  EXPECT_EQ(timer.periodMs, 1001U);
  EXPECT_EQ(timer.tick, COAP_RpcReSendReqTimeOut);
  EXPECT_EQ(timer.param, &ctx_);
  Tick();  // the list is empty
  EXPECT_EQ(host_.Timers().Running().size(), 1U);
  EXPECT_EQ(cli_->resendTimer, 0U);
}

TEST_F(CliResend, TimerThatRefuses_Gives1900001402AndIsTriedAgain) {
  host_.Timers().Failures().FailOnce(1);
  EXPECT_EQ(COAP_RpcStartReSendReqTimer(&ctx_), 1900001402U);
  host_.Timers().Failures().FailOnce(1);
  Observe(1);
  EXPECT_EQ(cli_->resendTimer, 0U);
  Observe(2);
  EXPECT_NE(cli_->resendTimer, 0U);
  Tick();
  EXPECT_EQ(adapter_.sends.size(), 2U);
}

TEST_F(CliResend, TryStop_KeepsTheTimerOfANonEmptyList) {
  Observe(1);
  COAP_RpcTryStopReSendReqTimer(&ctx_);
  EXPECT_NE(cli_->resendTimer, 0U);
  UnObserve(1);
  COAP_RpcTryStopReSendReqTimer(&ctx_);
  EXPECT_EQ(cli_->resendTimer, 0U);
}

TEST_F(CliResend, TwentyFiveQueued_OneTickLogs20AndSends19) {
  for (uint64_t i = 1; i <= 25; ++i) Observe(i);
  Tick();
  EXPECT_EQ(NumResendLines(), 20U);
  EXPECT_EQ(adapter_.sends.size(), 19U);
  EXPECT_EQ(adapter_.sends.back().userData, 19U);
  Tick();
  EXPECT_EQ(NumResendLines(), 26U);
  EXPECT_EQ(adapter_.sends.size(), 25U);
  EXPECT_EQ(cli_->resendTimer, 0U);
}

TEST_F(CliResend, TwentyQueued_TheTwentiethWaits) {
  for (uint64_t i = 1; i <= 20; ++i) Observe(i);
  Tick();
  EXPECT_EQ(NumResendLines(), 20U);
  EXPECT_EQ(adapter_.sends.size(), 19U);
  EXPECT_NE(cli_->resendTimer, 0U);
}

TEST_F(CliResend, NineteenThatAlwaysFail_KeepTheLaterOnesWaiting) {
  adapter_.sendResult = 1;
  for (uint64_t i = 1; i <= 21; ++i) Observe(i);
  Tick();
  Tick();
  EXPECT_EQ(adapter_.sends.size(), 38U);
  for (const SendCall &send : adapter_.sends) EXPECT_LE(send.userData, 19U);
}

TEST_F(CliResend, SendThatCancelsItsOwnRelation_CancelsItAtThePeerToo) {
  adapter_.onSend = [this](CoapRpcCliSession *, CoapRpcCliReqData *req) {
    UnObserve(req->key.param.userData);
  };
  Observe(1);
  Tick();
  EXPECT_EQ(NumReqs(), 0U);
  EXPECT_EQ(adapter_.calls,
            (std::vector<std::string>{"refresh", "create", "send", "cancel", "cancel"}));
  EXPECT_EQ(NumSessions(), 1U);  // it was sending: left to the next aging tick
  host_.AdvanceMs(1000);
  EXPECT_EQ(NumSessions(), 0U);
}

TEST_F(CliResend, SendThatCancelsTheOthers_VisitsNoneOfThem) {
  adapter_.onSend = [this](CoapRpcCliSession *, CoapRpcCliReqData *) {
    adapter_.onSend = nullptr;
    for (uint64_t i = 2; i <= 25; ++i) UnObserve(i);
  };
  for (uint64_t i = 1; i <= 25; ++i) Observe(i);
  Tick();
  EXPECT_EQ(adapter_.sends.size(), 1U);
  EXPECT_EQ(NumReqs(), 1U);
  EXPECT_EQ(cli_->resendTimer, 0U);
}

TEST_F(CliResend, SendThatFailsAfterCancellingItsRelation_LeavesNothing) {
  adapter_.sendResult = 1;
  adapter_.onSend = [this](CoapRpcCliSession *, CoapRpcCliReqData *) { UnObserve(1); };
  Observe(1);
  Tick();
  EXPECT_EQ(NumReqs(), 0U);
  EXPECT_EQ(adapter_.cancelledAt.size(), 1U);
  EXPECT_EQ(cli_->resendTimer, 0U);
}

TEST_F(CliResend, SendThatQueuesMore_LeavesThemToTheNextTick) {
  adapter_.onSend = [this](CoapRpcCliSession *, CoapRpcCliReqData *req) {
    if (req->key.param.userData < 3) Observe(req->key.param.userData + 1);
  };
  Observe(1);
  Tick();
  EXPECT_EQ(adapter_.sends.size(), 1U);
  Tick();
  Tick();
  EXPECT_EQ(adapter_.sends.size(), 3U);
  EXPECT_EQ(cli_->resendTimer, 0U);
}

TEST_F(CliResend, SendThatStartsRequestsWhileTheyFail_QueuesThem) {
  adapter_.sendResult = 1;
  adapter_.onSend = [this](CoapRpcCliSession *, CoapRpcCliReqData *req) {
    if (req->key.param.userData != 1) return;
    EXPECT_EQ(Post(2), 1900001103U);
  };
  EXPECT_EQ(Post(1), 1900001103U);
  EXPECT_EQ(NumReqs(), 2U);
  adapter_.onSend = nullptr;
  adapter_.sendResult = 0;
  adapter_.sends.clear();
  Tick();
  EXPECT_EQ(adapter_.sends.size(), 2U);
  EXPECT_EQ(NumReqs(), 0U);
}

TEST_F(CliResend, SendThatRepeatsItsOwnPlainRequest_FreesItOnce) {
  adapter_.onSend = [this](CoapRpcCliSession *, CoapRpcCliReqData *) {
    adapter_.onSend = nullptr;
    EXPECT_EQ(Post(1), 0U);
  };
  EXPECT_EQ(Post(1), 0U);
  EXPECT_EQ(NumReqs(), 0U);
  EXPECT_EQ(adapter_.sends.size(), 2U);
}

TEST_F(CliResend, PlainRequestCancelledInItsFailingSend_IsNotQueued) {
  adapter_.sendResult = 1;
  adapter_.onSend = [this](CoapRpcCliSession *, CoapRpcCliReqData *) {
    const CoapRpcUriKey key = KeyOf("post");
    const CoapRpcCliReqParam param = ParamOf(1);
    const CoapRpcCliAddr addr = AddrOf();
    EXPECT_EQ(COAP_RpcCliUnReq(&ctx_, &key, &param, &addr), 0U);
  };
  EXPECT_EQ(Post(1), 1900001103U);
  EXPECT_EQ(NumReqs(), 0U);
  EXPECT_EQ(cli_->resendTimer, 0U);
}

TEST_F(CliResend, SendThatMovesItsRelationToAnotherPeer_KeepsBothSessions) {
  adapter_.onSend = [this](CoapRpcCliSession *, CoapRpcCliReqData *) {
    adapter_.onSend = nullptr;
    const CoapRpcUriKey key = ObserveKey();
    const CoapRpcCliReqParam param = ParamOf(1);
    const CoapRpcCliAddr addr = AddrOf(1, 9);
    EXPECT_EQ(COAP_RpcCliObserveReq(&ctx_, &key, &param, &addr), 0U);
  };
  Observe(1);
  Tick();
  EXPECT_EQ(NumReqs(), 1U);
  EXPECT_EQ(NumSessions(), 2U);
}

TEST_F(CliResend, TickOfAStoppedClient_IsHarmless) {
  Stop();
  EXPECT_EQ(COAP_RpcReSendReqTimeOut(&ctx_), 0U);
  COAP_RpcTryStopReSendReqTimer(&ctx_);
  COAP_RpcResendRequest(&ctx_, 1);
}

TEST_F(CliResend, TenThousandQueuedToAPeerThatComesBack_GoOutInOrderOnce) {
  constexpr uint64_t kNum = 10'000;
  host_.Logs().SuppressBelow(4);
  const uint64_t numLive = host_.Pool().LiveCount();
  adapter_.sendResult = 1;
  uint8_t payload[16] = {};
  for (uint64_t i = 0; i < kNum; ++i) {
    const CoapRpcUriKey key = KeyOf("post");
    CoapRpcCliReqParam param = ParamOf(i);
    param.payload = payload;
    param.payloadLen = sizeof payload;
    const CoapRpcCliAddr addr = AddrOf();
    ASSERT_EQ(COAP_RpcCliConReq(&ctx_, &key, &param, &addr), 1900001103U);
    host_.ClearLogs();
  }
  EXPECT_EQ(NumReqs(), kNum);
  adapter_.sends.clear();
  adapter_.sendResult = 0;
  uint32_t numTicks = 0;
  for (; cli_->resendTimer != 0; ++numTicks) {
    COAP_RpcReSendReqTimeOut(&ctx_);
    host_.ClearLogs();
  }
  EXPECT_EQ(numTicks, 527U);  // 19 a tick
  ASSERT_EQ(adapter_.sends.size(), kNum);
  for (uint64_t i = 0; i < kNum; ++i) ASSERT_EQ(adapter_.sends[i].userData, i);
  for (uint32_t i = 0; i < 90; ++i) COAP_RpcCliAgingSessionTimeOut(&ctx_);
  EXPECT_EQ(host_.Pool().LiveCount(), numLive);
}

}  // namespace
}  // namespace coap_rpc_test
