// Answers that take long: within the deadline of the call, however it is answered.
#include "client_calls.h"

namespace coap_rpc_test {
namespace {

constexpr uint64_t kLongMs = 60'000;
constexpr uint64_t kVeryLongMs = 120'000;

class CallPatience : public ClientCalls {
 protected:
  // FinishInBlocks sends the first of two blocks, and the second when it is asked for.
  void FinishInBlocks(CoapMessage first) {
    peer_.Send(first.AddBlock(kOptBlock2, {0, true, 2}).PayloadText(std::string(64, 'x')));
    CoapMessage request = Next();
    if (request.code == kCodeEmpty) request = Next();
    ASSERT_TRUE(request.Has(kOptBlock2)) << request;
    peer_.Send(Piggyback(request).AddBlock(kOptBlock2, {1, false, 2}).PayloadText("end"));
    Ticks(3);
    ASSERT_EQ(Statuses(), Ends{COAP_RPC_CALL_ANSWERED});
    EXPECT_EQ(told_[0].payload, std::string(64, 'x') + "end");
  }
};

TEST_F(CallPatience, SeparateAnswerInBlocks) {
  Make(Get("a"));
  const CoapMessage request = Next();
  Say(AckOf(request));
  Wait(kLongMs);
  FinishInBlocks(Apart(CoapType::kCon, 7, request));
}

TEST_F(CallPatience, NonAnswerInBlocks) {
  CoapRpcCall call = Get("a");
  call.isNon = 1;
  Make(call);
  const CoapMessage request = Next();
  Wait(kLongMs);
  FinishInBlocks(Apart(CoapType::kNon, 7, request));
}

TEST_F(CallPatience, SeparateAnswerInBlocks_WithinALongDeadline) {
  CoapRpcCall call = Get("a");
  call.deadlineMs = UINT32_MAX;
  Make(call);
  const CoapMessage request = Next();
  Say(AckOf(request));
  Wait(kVeryLongMs);
  FinishInBlocks(Apart(CoapType::kCon, 7, request));
}

TEST_F(CallPatience, NonAnswerInBlocks_WithinALongDeadline) {
  CoapRpcCall call = Get("a");
  call.isNon = 1;
  call.deadlineMs = UINT32_MAX;
  Make(call);
  const CoapMessage request = Next();
  Wait(kVeryLongMs);
  FinishInBlocks(Apart(CoapType::kNon, 7, request));
}

TEST_F(CallPatience, AnswerToAPayloadInBlocks) {
  const std::string payload(1500, 'x');
  Make(Post("p", payload));
  const CoapMessage first = Next();
  peer_.Send(Piggyback(first, Code(2, 31)).AddBlock(kOptBlock1, *first.Block(kOptBlock1)));
  const CoapMessage last = Next();
  EXPECT_FALSE(last.Block(kOptBlock1)->more);
  Say(AckOf(last));
  Wait(kLongMs);
  Say(Apart(CoapType::kCon, 7, last, Code(2, 4)).AddBlock(kOptBlock1, *last.Block(kOptBlock1)));
  ASSERT_EQ(Statuses(), Ends{COAP_RPC_CALL_ANSWERED});
  EXPECT_EQ(told_[0].rsp.code, 204U);
}

TEST_F(CallPatience, BaseRequests_AreGivenUpAsEver) {
  App app;
  const CoapRpcUriKey key = KeyOf("base");
  Register(key, &app);
  COAP_RpcSetNstart(Ctx(), 2);
  const CoapRpcCliReqParam param = ParamOf(1);
  const CoapRpcCliAddr addr = BaseAddr();
  Make(Get("a"));
  EXPECT_EQ(COAP_RpcCliConReq(Ctx(), &key, &param, &addr), 0U);
  Wait(100'000);
  uint32_t numBase = 0;
  uint32_t numCall = 0;
  for (const PeerDatagram &datagram : peer_.Datagrams()) {
    CoapMessage message;
    EXPECT_EQ(Parse(datagram.bytes, &message), "");
    ++(message.Path() == "base" ? numBase : numCall);
  }
  EXPECT_EQ(numCall, 5U);
  EXPECT_EQ(numBase, 3U);
}

}  // namespace
}  // namespace coap_rpc_test
