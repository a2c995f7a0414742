// Client sessions: their table, their texts, and how idle ones age out.
#include "coap_svc/rpc/client/coap_rpc_cli_session.h"

#include "cli_fixture.h"
#include "coap_svc/rpc/common/coap_rpc_list.h"

namespace coap_rpc_test {
namespace {

using coap_rpc::LinkIsAlone;

constexpr char kSessionPath[] = "coap_server/src/coap_svc/rpc/client/coap_rpc_cli_session";

class CliSession : public CliFixture {
 protected:
  CoapRpcCliSession *Add(const CoapRpcCliAddr &addr) {
    const CoapRpcUriKey key = KeyOf("a");
    return COAP_RpcCliAddSession(cli_, &key, &addr);
  }

  // Request leaves one relation bound to the session of `addr`.
  void Request(uint64_t userData, const CoapRpcCliAddr &addr) {
    const CoapRpcUriKey key = KeyOf("a", COAP_RPC_NON, 1);
    const CoapRpcCliReqParam param = ParamOf(userData);
    ASSERT_EQ(COAP_RpcCliObserveReq(&ctx_, &key, &param, &addr), 0U);
  }

  // End takes the relation away, but not the session.
  void End(uint64_t userData) {
    COAP_RpcCliDelReqData(cli_, ReqOf(KeyOf("a", COAP_RPC_NON, 1), ParamOf(userData)));
  }

  void Tick(uint32_t num) {
    for (uint32_t i = 0; i < num; ++i) COAP_RpcCliAgingSessionTimeOut(&ctx_);
  }
};

TEST_F(CliSession, Cmp_OrdersBySourceDestinationPort) {
  const CoapRpcCliSessionKey base = SessionKeyOf(AddrOf(5, 5, 5));
  const CoapRpcCliSessionKey src = SessionKeyOf(AddrOf(6, 4, 4));
  const CoapRpcCliSessionKey dst = SessionKeyOf(AddrOf(5, 6, 4));
  const CoapRpcCliSessionKey port = SessionKeyOf(AddrOf(5, 5, 0xFFFFFFFF));
  for (const CoapRpcCliSessionKey &greater : {src, dst, port}) {
    EXPECT_EQ(COAP_RpcSessionCmp_(&base, &greater), -1);
    EXPECT_EQ(COAP_RpcSessionCmp_(&greater, &base), 1);
  }
  EXPECT_EQ(COAP_RpcSessionCmp_(&base, &base), 0);
}

TEST_F(CliSession, Add_FillsTheRecordAndLogs) {
  const CoapRpcCliSession *session = Add(AddrOf(0x0A000001, 0x0A000002, 5683));
  ASSERT_NE(session, nullptr);
  EXPECT_TRUE(host_.HasLog(
      "[CoapRpc]cli create session success, src:10.0.0.1, dst:10.0.0.2, port:5683.\n"));
  EXPECT_EQ(session->agingTick, 90U);
  EXPECT_EQ(session->coapSession, nullptr);
  EXPECT_TRUE(LinkIsAlone(session->agingLink));
  EXPECT_TRUE(LinkIsAlone(session->uriDataList));
  EXPECT_EQ(SessionOf(AddrOf(0x0A000001, 0x0A000002, 5683)), session);
  EXPECT_EQ(SessionOf(AddrOf(0x0A000001, 0x0A000002, 5684)), nullptr);
}

TEST_F(CliSession, AddOfAPresentKeyOrWithoutMemory_GivesNull) {
  ASSERT_NE(Add(AddrOf()), nullptr);
  const uint64_t numLive = host_.Pool().LiveCount();
  EXPECT_EQ(Add(AddrOf()), nullptr);
  host_.Pool().Failures().FailOnce(1);
  EXPECT_EQ(Add(AddrOf(1, 2)), nullptr);
  EXPECT_EQ(host_.Pool().LiveCount(), numLive);
  EXPECT_EQ(NumSessions(), 1U);
}

TEST_F(CliSession, FirstAndNext_WalkInKeyOrder) {
  for (const uint32_t port : {3U, 1U, 2U}) ASSERT_NE(Add(AddrOf(1, 2, port)), nullptr);
  CoapRpcCliSession *session = COAP_RpcCliFindFirstSession(cli_);
  for (const uint32_t port : {1U, 2U, 3U}) {
    ASSERT_NE(session, nullptr);
    EXPECT_EQ(uint32_t{session->key.dstPort}, port);
    session = COAP_RpcCliFindNextSession(cli_, &session->key);
  }
  EXPECT_EQ(session, nullptr);
}

TEST_F(CliSession, GetSessionStr_ShowsAddressesOfBothFamilies) {
  char text[128];
  CoapRpcCliSessionKey key = SessionKeyOf(AddrOf(0x7F000001, 0x7F000002, 65535));
  EXPECT_EQ(COAP_RpcCliGetSessionStr_(&key, text, sizeof text), text);
  EXPECT_STREQ(text, "src:127.0.0.1, dst:127.0.0.2, port:65535");
  key.srcIp.family = key.dstIp.family = COAP_RPC_IPV6;
  memset(key.srcIp.addr.ipv6, 0xFF, 16);
  memset(key.dstIp.addr.ipv6, 0, 16);
  COAP_RpcCliGetSessionStr_(&key, text, sizeof text);
  EXPECT_STREQ(text, "src:ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff, dst:::, port:65535");
  COAP_RpcCliGetSessionStr_(&key, text, 8);
  EXPECT_STREQ(text, "src:fff");
}

TEST_F(CliSession, Init_StartsTheAgingTimerForGood) {
  ASSERT_EQ(host_.Timers().Running().size(), 1U);
  const RunningTimer &timer = host_.Timers().Running()[0];
  EXPECT_EQ(timer.periodMs, 1000U);
  EXPECT_EQ(timer.tick, COAP_RpcCliAgingSessionTimeOut);
  EXPECT_EQ(timer.param, &ctx_);
  EXPECT_EQ(timer.id, cli_->agingTimer);
  host_.AdvanceMs(200'000);
  EXPECT_EQ(host_.Timers().Running().size(), 1U);
}

TEST_F(CliSession, Init_WithoutATimer_Gives1900001401) {
  Stop();
  CoapRpcCliData *cli = COAP_RpcCliDataCreate_(&ctx_);
  cli->owner = &ctx_;
  ctx_.cli = cli;
  host_.Timers().Failures().FailOnce(1);
  EXPECT_EQ(COAP_RpcCliSessionInit(cli), 1900001401U);
  EXPECT_EQ(COAP_RpcCliTryStartAgingSessionTimer(cli), 0U);
  EXPECT_EQ(COAP_RpcCliTryStartAgingSessionTimer(cli), 0U);
  EXPECT_EQ(host_.Timers().Running().size(), 1U);
  EXPECT_EQ(COAP_RpcCliSessionUninit(cli), 0U);
  COAP_RpcCliDataDelete_(&ctx_);
}

TEST_F(CliSession, LastRequestGone_FreedOnThe90thTick) {
  Request(1, AddrOf());
  Tick(200);  // with a request it does not age
  EXPECT_EQ(NumSessions(), 1U);
  End(1);
  host_.ClearLogs();
  Tick(89);
  EXPECT_EQ(NumSessions(), 1U);
  EXPECT_EQ(SessionOf(AddrOf())->agingTick, 1U);
  EXPECT_TRUE(host_.Logs().Records().empty());
  Tick(1);
  EXPECT_EQ(NumSessions(), 0U);
  EXPECT_TRUE(
      host_.HasLog("[CoapRpc]aging session success, src:10.0.0.1, dst:10.0.0.2, port:5683.\n"));
  EXPECT_EQ(adapter_.calls.back(), "delete");
}

TEST_F(CliSession, RequestBeforeTheLastTick_RearmsTheSession) {
  Request(1, AddrOf());
  End(1);
  Tick(89);
  Request(2, AddrOf());
  EXPECT_TRUE(LinkIsAlone(SessionOf(AddrOf())->agingLink));
  EXPECT_EQ(SessionOf(AddrOf())->agingTick, 90U);
  Tick(91);
  EXPECT_EQ(NumSessions(), 1U);
  End(2);
  Tick(89);
  EXPECT_EQ(NumSessions(), 1U);
  Tick(1);
  EXPECT_EQ(NumSessions(), 0U);
}

TEST_F(CliSession, TickOfAZeroedCount_FreesAtOnce) {
  CoapRpcCliSession *session = Add(AddrOf());
  COAP_RpcCliInsetAgingList(cli_, session);
  session->agingTick = 0;
  Tick(1);
  EXPECT_EQ(NumSessions(), 0U);
}

// A callback of the application may let the host's time go by.
TEST_F(CliSession, TicksWhileItIsWorkedWith_DoNotAgeIt) {
  CoapRpcCliSession *session = Add(AddrOf());
  COAP_RpcCliInsetAgingList(cli_, session);
  session->holds = 1;
  Tick(100);
  EXPECT_EQ(NumSessions(), 1U);
  EXPECT_EQ(session->agingTick, 90U);
  session->holds = 0;
  ctx_.ioDepth = 1;
  Tick(100);
  EXPECT_EQ(session->agingTick, 90U);
  ctx_.ioDepth = 0;
  Tick(90);
  EXPECT_EQ(NumSessions(), 0U);
}

TEST_F(CliSession, AgedOutWithRequests_IsLoggedAndKept) {
  Request(1, AddrOf());
  CoapRpcCliSession *session = SessionOf(AddrOf());
  // No function puts it there: the list is entered without requests only.
  COAP_RPC_LIST(CoapRpcCliSession, agingLink)(cli_->agingList).Append(session);
  session->agingTick = 1;
  Tick(1);
  EXPECT_EQ(NumSessions(), 1U);
  EXPECT_EQ(DebugLines("[CoapRpc]aging session success").size(), 1U);
  COAP_RpcCliRemoveAgingList(cli_, session);
}

TEST_F(CliSession, TickFreesSeveralInTheOrderOfTheList) {
  for (const uint32_t port : {2U, 1U, 3U}) COAP_RpcCliInsetAgingList(cli_, Add(AddrOf(1, 2, port)));
  Tick(90);
  EXPECT_EQ(NumSessions(), 0U);
  EXPECT_EQ(DebugLines("[CoapRpc]aging session success"),
            (std::vector<std::string>{
                "[CoapRpc]aging session success, src:0.0.0.1, dst:0.0.0.2, port:2.\n",
                "[CoapRpc]aging session success, src:0.0.0.1, dst:0.0.0.2, port:1.\n",
                "[CoapRpc]aging session success, src:0.0.0.1, dst:0.0.0.2, port:3.\n"}));
}

TEST_F(CliSession, InsetAgingList_OnlyWithoutRequestsAndAlwaysAtTheTail) {
  COAP_RpcCliInsetAgingList(cli_, nullptr);
  Request(1, AddrOf());
  COAP_RpcCliInsetAgingList(cli_, SessionOf(AddrOf()));
  EXPECT_TRUE(LinkIsAlone(cli_->agingList));
  CoapRpcCliSession *first = Add(AddrOf(1, 2));
  CoapRpcCliSession *second = Add(AddrOf(1, 3));
  COAP_RpcCliInsetAgingList(cli_, first);
  COAP_RpcCliInsetAgingList(cli_, second);
  first->agingTick = 5;
  COAP_RpcCliInsetAgingList(cli_, first);
  EXPECT_EQ(first->agingTick, 90U);
  EXPECT_EQ(cli_->agingList.next, &second->agingLink);
  EXPECT_EQ(cli_->agingList.prev, &first->agingLink);
}

TEST_F(CliSession, TryDel_OnlyWithoutRequests) {
  COAP_RpcCliTryDelSession(cli_, nullptr);
  Request(1, AddrOf());
  COAP_RpcCliTryDelSession(cli_, SessionOf(AddrOf()));
  EXPECT_EQ(NumSessions(), 1U);
  End(1);
  COAP_RpcCliTryDelSession(cli_, SessionOf(AddrOf()));
  EXPECT_EQ(NumSessions(), 0U);
  EXPECT_TRUE(LinkIsAlone(cli_->agingList));
}

TEST_F(CliSession, TryDelInsideLibcoapsIo_LeavesItToTheNextTick) {
  Add(AddrOf());
  ctx_.ioDepth = 1;
  COAP_RpcCliTryDelSession(cli_, SessionOf(AddrOf()));
  EXPECT_EQ(NumSessions(), 1U);
  EXPECT_TRUE(adapter_.calls.empty());
  ctx_.ioDepth = 0;
  Tick(1);
  EXPECT_EQ(NumSessions(), 0U);
}

TEST_F(CliSession, TryStop_OnlyWithAnEmptyAgingList) {
  COAP_RpcCliInsetAgingList(cli_, Add(AddrOf()));
  COAP_RpcCliTryStopAgingSessionTimer(cli_);
  EXPECT_EQ(host_.Timers().Running().size(), 1U);
  COAP_RpcCliRemoveAgingList(cli_, SessionOf(AddrOf()));
  COAP_RpcCliTryStopAgingSessionTimer(cli_);
  EXPECT_TRUE(host_.Timers().Running().empty());
  EXPECT_EQ(cli_->agingTimer, 0U);
}

TEST_F(CliSession, Uninit_FreesWhatIsIdleAndAssertsOnTheRest) {
  Add(AddrOf(1, 2));
  Request(1, AddrOf(1, 3));
  COAP_RpcCliInsetAgingList(cli_, Add(AddrOf(1, 4)));
  EXPECT_EQ(COAP_RpcCliSessionUninit(cli_), 0U);
  EXPECT_EQ(TestHost::Process().Asserts(), std::vector<AssertRecord>({{kSessionPath, 176}}));
  EXPECT_EQ(NumSessions(), 1U);
  EXPECT_NE(SessionOf(AddrOf(1, 3)), nullptr);
  EXPECT_TRUE(host_.Timers().Running().empty());
  End(1);
  EXPECT_EQ(COAP_RpcCliSessionUninit(cli_), 0U);
  EXPECT_EQ(NumSessions(), 0U);
}

TEST_F(CliSession, Uninit_OfNullZeroedAndTwice_IsHarmless) {
  EXPECT_EQ(COAP_RpcCliSessionUninit(nullptr), 0U);
  CoapRpcCliData zeroed = {};
  EXPECT_EQ(COAP_RpcCliSessionUninit(&zeroed), 0U);
  Add(AddrOf());
  EXPECT_EQ(COAP_RpcCliSessionUninit(cli_), 0U);
  EXPECT_EQ(COAP_RpcCliSessionUninit(cli_), 0U);
  EXPECT_TRUE(TestHost::Process().Asserts().empty());
}

TEST_F(CliSession, TickOfAStoppedClient_IsHarmless) {
  Stop();
  EXPECT_EQ(COAP_RpcCliAgingSessionTimeOut(&ctx_), 0U);
}

}  // namespace
}  // namespace coap_rpc_test
