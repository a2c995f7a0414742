// When a message under way was cancelled, those after it, also to other peers, were
// retransmitted too early: their times were counted from its time.
#include "coap_svc/rpc/coap_rpc_ser.h"
#include "wire_client.h"

namespace coap_rpc_test {
namespace {

// The first retransmission comes after 2 to 3 s.
constexpr uint64_t kNotYetMs = 1900;
constexpr uint64_t kByThenMs = 3200;

class CancelledMessageTimes : public WireClient {
 protected:
  CancelledMessageTimes() { COAP_RpcRefreshTaskTimer(Ctx()); }

  // AskOther sends a request to the other peer, after all messages under way.
  CoapMessage AskOther(const CoapRpcUriKey &key) {
    Register(key, &app_);
    const CoapRpcCliReqParam param = ParamOf(1);
    const CoapRpcCliAddr addr = AddrOf(other_);
    EXPECT_EQ(COAP_RpcCliConReq(Ctx(), &key, &param, &addr), 0U);
    return Next(other_);
  }

  CoapMessage AskFirst(const CoapRpcUriKey &key) {
    Register(key, &app_);
    EXPECT_EQ(Call(key), 0U);
    return Next();
  }

  // ExpectRepeatedInTime expects what has just been sent to the other peer once more in its time.
  void ExpectRepeatedInTime(const CoapMessage &request, uint64_t sentMs) {
    const auto elapsed = [&] { return TestProcess::Get().ElapsedMs() - sentMs; };
    while (elapsed() < kNotYetMs) {
      Tick();
      ASSERT_EQ(other_.ReceiveNow(), std::nullopt) << elapsed();
    }
    std::optional<CoapMessage> again;
    while (!again && elapsed() < kByThenMs) {
      Tick();
      again = other_.ReceiveNow();
    }
    EXPECT_EQ(again, request);
  }

  static uint64_t NowMs() { return TestProcess::Get().ElapsedMs(); }

  RawPeer other_{UdpAddress{"127.0.0.2", 0}};
  App app_;
};

TEST_F(CancelledMessageTimes, SeparateAnswer_LeavesTheNextTimeAlone) {
  const CoapMessage first = AskFirst(KeyOf("a"));
  Ticks(17);
  const uint64_t sentMs = NowMs();
  const CoapMessage request = AskOther(KeyOf("b"));
  peer_.Send(Separate(CoapType::kNon, 1, first.token, "a"));
  ExpectRepeatedInTime(request, sentMs);
}

// The message that goes stands between two others.
TEST_F(CancelledMessageTimes, SeparateAnswerInTheMiddle_LeavesTheNextTimeAlone) {
  RawPeer third({"127.0.0.2", 0});
  const CoapRpcUriKey key = KeyOf("c");
  Register(key, &app_);
  const CoapRpcCliReqParam param = ParamOf(1);
  const CoapRpcCliAddr addr = AddrOf(third);
  EXPECT_EQ(COAP_RpcCliConReq(Ctx(), &key, &param, &addr), 0U);
  Next(third);
  Ticks(9);
  const CoapMessage first = AskFirst(KeyOf("a"));
  Ticks(9);
  const uint64_t sentMs = NowMs();
  const CoapMessage request = AskOther(KeyOf("b"));
  peer_.Send(Separate(CoapType::kNon, 1, first.token, "a"));
  ExpectRepeatedInTime(request, sentMs);
}

// The messages of a session go with it.
TEST_F(CancelledMessageTimes, EndOfAListen_LeavesTheNextTimeAlone) {
  const CoapRpcUriKey key = KeyOf("obs", COAP_RPC_CON, 1);
  CoapRpcSerListenAddr addr = {};
  addr.listenAddr.family = COAP_RPC_IPV4;
  addr.listenAddr.addr.ipv4 = kOwnIp;
  addr.port = FindFreeUdpPort();
  CoapRpcSerVtblReg reg = {};
  CoapRpcSerObVtblReg ob = {};
  ob.keyLen = ob.valLen = 4;
  ob.tupleKeyCmp = [](const void *a, const void *b) { return memcmp(a, b, 4); };
  ob.buildUpdate = [](uint64_t, uint8_t *, uint8_t *, void *) -> uint32_t { return 0; };
  ASSERT_EQ(COAP_RpcSerRegVtbl(Ctx(), &key, &reg, &ob), 0U);
  ASSERT_EQ(COAP_RpcSerSetUri(Ctx(), &key, &addr), 0U);
  peer_.SetRemote({"127.0.0.1", addr.port});
  peer_.Send(Request(CoapType::kCon, kCodeGet, 1, {1}).AddPath("obs").AddUint(kOptObserve, 0));
  EXPECT_EQ(Next().type, CoapType::kAck);
  COAP_RpcSerObserveDataUpdate(Ctx(), &key, "k001", "v001");
  EXPECT_EQ(Next().type, CoapType::kCon);
  Ticks(17);
  const uint64_t sentMs = NowMs();
  const CoapMessage request = AskOther(KeyOf("b"));
  ASSERT_EQ(COAP_RpcSerUnsetUri(Ctx(), &key), 0U);
  ExpectRepeatedInTime(request, sentMs);
}

}  // namespace
}  // namespace coap_rpc_test
