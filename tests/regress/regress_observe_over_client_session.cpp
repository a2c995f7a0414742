// A peer that answered a call with a registration of its own made libcoap look for the endpoint of
// the caller's session, which has none.
#include "coap_svc/rpc/coap_rpc_ser.h"
#include "coap_svc/rpc/server/coap_rpc_ser_uri.h"
#include "wire_client.h"

namespace coap_rpc_test {
namespace {

constexpr uint16_t kFieldLen = 4;
constexpr uint32_t kTicksPerTask = 10;

int32_t FieldCmp(const void *a, const void *b) { return memcmp(a, b, kFieldLen); }

class ObserveOverClientSession : public WireClient {
 protected:
  void ServeObservable(const CoapRpcUriKey &key) {
    CoapRpcSerVtblReg reg = {};
    reg.payloadFormat = COAP_RPC_JSON;
    CoapRpcSerObVtblReg ob = {};
    ob.keyLen = kFieldLen;
    ob.tupleKeyCmp = FieldCmp;
    CoapRpcSerListenAddr addr = {};
    addr.listenAddr.family = COAP_RPC_IPV4;
    addr.listenAddr.addr.ipv4 = kOwnIp;
    addr.port = FindFreeUdpPort();
    ASSERT_EQ(COAP_RpcSerRegVtbl(Ctx(), &key, &reg, &ob), 0u);
    ASSERT_EQ(COAP_RpcSerSetUri(Ctx(), &key, &addr), 0u);
  }

  uint32_t NumObservers(const CoapRpcUriKey &key) {
    return COAP_RpcSerFindUriVtbl(Ctx()->ser, &key)->observerNum;
  }
};

TEST_F(ObserveOverClientSession, Registration_IsAnswered) {
  App app;
  const CoapRpcUriKey called = KeyOf("a");
  const CoapRpcUriKey served = KeyOf("o", COAP_RPC_CON, 1);
  Register(called, &app);
  ServeObservable(served);
  ASSERT_EQ(Call(called), 0u);
  const CoapMessage call = Next();

  CoapMessage observe = Request(CoapType::kCon, kCodeGet, 77, {1});
  peer_.Send(observe.AddPath("o").AddUint(kOptObserve, 0));
  const CoapMessage answer = Next();
  EXPECT_EQ(answer.type, CoapType::kAck);
  EXPECT_EQ(answer.messageId, 77);
  EXPECT_EQ(answer.code, Code(2, 1));
  EXPECT_EQ(NumObservers(served), 1u);

  peer_.Send(AnswerOf(call).PayloadText("answer"));
  Ticks(kTicksPerTask);
  EXPECT_EQ(app.responses.size(), 1u);
}

}  // namespace
}  // namespace coap_rpc_test
