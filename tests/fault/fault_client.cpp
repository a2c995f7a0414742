// A client whose every allocation or timer fails in turn: calls report it, nothing leaks, and the
// next run works.
#include <gtest/gtest.h>

#include <memory>

#include "coap_svc/rpc/client/coap_rpc_cli_req.h"
#include "coap_svc/rpc/coap_rpc_cli.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_ctx.h"
#include "raw_peer.h"
#include "test_instance.h"

namespace coap_rpc_test {
namespace {

uint32_t g_numResponses = 0;

int32_t BuildReq(uint64_t len, const CoapRpcCliReqParam *, uint8_t *out, uint32_t) {
  memset(out, 'x', len);
  return static_cast<int32_t>(len);
}

uint32_t OnResponse(uint64_t, uint64_t, uint8_t *, uint32_t, const CoapRpcCliRspInfo *) {
  ++g_numResponses;
  return 0;
}

class ClientFault : public testing::Test {
 protected:
  static CoapRpcCliReqParam ReqParamOf(uint64_t userData, uint8_t *payload, uint32_t len) {
    CoapRpcCliReqParam param = {};
    param.userData = userData;
    param.payload = payload;
    param.payloadLen = len;
    return param;
  }

  CoapRpcCliAddr Addr() const {
    CoapRpcCliAddr addr = {};
    addr.srcIp.family = addr.dstIp.family = COAP_RPC_IPV4;
    addr.srcIp.addr.ipv4 = 0x7F000001;
    addr.dstIp.addr.ipv4 = 0x7F000002;
    addr.dstPort = peer_.Local().port;
    addr.codeType = COAP_RPC_POST;
    return addr;
  }

  static void Register(CoapRpcCtx *ctx, const CoapRpcUriKey &key, uint64_t payloadLen) {
    CoapRpcCliVtblReg reg = {};
    reg.userData = payloadLen;
    reg.buildReq = BuildReq;
    reg.onResponse = OnResponse;
    const uint32_t ret = COAP_RpcCliRegVtbl(ctx, &key, &reg);
    EXPECT_TRUE(ret == 0 || ret == 1900001051U) << ret;
  }

  // AnswerAll acknowledges what has arrived, with a payload and a path.
  void AnswerAll() {
    while (std::optional<CoapMessage> request = peer_.ReceiveMessage([] {}, 1)) {
      CoapMessage answer = Request(CoapType::kAck, Code(2, 5), request->messageId, request->token);
      peer_.Send(answer.AddPath(request->Path()).PayloadText("answer"));
    }
  }

  // Run does what a client does: it registers, posts, posts block-wise, observes, gets answers,
  // cancels.
  void Run(CoapRpcCtx *ctx) {
    const CoapRpcUriKey post = KeyOf("post");
    const CoapRpcUriKey large = KeyOf("large", COAP_RPC_NON);
    const CoapRpcUriKey observe = KeyOf("observe", COAP_RPC_CON, 1);
    Register(ctx, post, 10);
    Register(ctx, large, 3000);
    Register(ctx, observe, 0);
    uint8_t bytes[100] = {};
    const CoapRpcCliReqParam withPayload = ReqParamOf(1, bytes, sizeof bytes);
    const CoapRpcCliReqParam bare = ReqParamOf(2, nullptr, 0);
    const CoapRpcCliAddr addr = Addr();
    ExpectKnown(COAP_RpcCliConReq(ctx, &post, &withPayload, &addr));
    ExpectKnown(COAP_RpcCliNonReq(ctx, &large, &bare, &addr));
    ExpectKnown(COAP_RpcCliObserveReq(ctx, &observe, &withPayload, &addr));
    ExpectKnown(COAP_RpcCliObserveReq(ctx, &observe, &bare, &addr));
    for (int i = 0; i < 12; ++i) {
      host_.AdvanceMs(100);
      AnswerAll();
    }
    host_.AdvanceMs(1001);
    AnswerAll();
    EXPECT_EQ(COAP_RpcCliObserveUnReq(ctx, &observe, &bare, &addr), 0U);
  }

  static void ExpectKnown(uint32_t ret) {
    EXPECT_TRUE(ret == 0 || (ret >= 1900001101U && ret <= 1900001103U)) << ret;
  }

  void ExpectNothingLeft() {
    EXPECT_EQ(host_.Pool().LiveCount(), 0U) << host_.Pool().LeakText();
    EXPECT_TRUE(host_.Pool().Violations().empty());
    EXPECT_TRUE(host_.Timers().Running().empty());
    EXPECT_TRUE(TestHost::Process().Asserts().empty());
  }

  // RunAll runs once undisturbed, then with each call of `failures` failing, as `arm` says.
  template <typename Arm>
  void RunAll(FailPlan &failures, Arm arm) {
    uint64_t numCalls = 0;
    {
      TestInstance ctx(host_);
      const uint64_t before = failures.NumCalls();
      Run(ctx);
      numCalls = failures.NumCalls() - before;
    }
    EXPECT_GT(g_numResponses, 0U);
    for (uint64_t n = 1; n <= numCalls; ++n) {
      SCOPED_TRACE(n);
      TestInstance ctx(host_);
      host_.ClearLogs();
      arm(n);
      Run(ctx);
      failures.Clear();
      ctx.Stop();
      ExpectNothingLeft();
    }
    EXPECT_GT(numCalls, 0U);
  }

  TestHost host_;
  RawPeer peer_{UdpAddress{"127.0.0.2", 0}};
};

TEST_F(ClientFault, EveryAllocationFails_CallsReportAndNothingLeaks) {
  RunAll(host_.Pool().Failures(), [this](uint64_t n) { host_.Pool().Failures().FailOnce(n); });
}

TEST_F(ClientFault, EveryAllocationFailsFromN_CallsReportAndNothingLeaks) {
  RunAll(host_.Pool().Failures(), [this](uint64_t n) { host_.Pool().Failures().FailFrom(n); });
}

TEST_F(ClientFault, EveryTimerRefusesToStart_CallsGoOn) {
  RunAll(host_.Timers().Failures(), [this](uint64_t n) { host_.Timers().Failures().FailOnce(n); });
}

TEST_F(ClientFault, StopAtAnyMoment_IsClean) {
  for (uint64_t stopAt = 0; stopAt < 30; ++stopAt) {
    SCOPED_TRACE(stopAt);
    TestInstance ctx(host_);
    const CoapRpcUriKey post = KeyOf("post");
    const CoapRpcUriKey observe = KeyOf("observe", COAP_RPC_CON, 1);
    Register(ctx, post, 3000);
    Register(ctx, observe, 0);
    const CoapRpcCliAddr addr = Addr();
    for (uint64_t i = 0; i < stopAt; ++i) {
      const CoapRpcCliReqParam param = ReqParamOf(i, nullptr, 0);
      ExpectKnown(COAP_RpcCliConReq(ctx, &post, &param, &addr));
      ExpectKnown(COAP_RpcCliObserveReq(ctx, &observe, &param, &addr));
      host_.AdvanceMs(100);
      if (i % 3 == 0) AnswerAll();
    }
    ctx.Stop();
    ExpectNothingLeft();
    host_.ClearLogs();
  }
}

}  // namespace
}  // namespace coap_rpc_test
