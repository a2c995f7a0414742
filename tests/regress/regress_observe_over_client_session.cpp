// A peer that is called may itself observe, over the session of the caller.  libcoap then looked
// for the session's endpoint, which a session of a client has not, and mixed up what it sent
// block-wise: it took a notification's resource for a request's token, also when the resource was
// gone.
#include <jansson.h>

#include "coap_svc/rpc/coap_rpc_ser.h"
#include "coap_svc/rpc/server/coap_rpc_ser_uri.h"
#include "wire_client.h"

namespace coap_rpc_test {
namespace {

constexpr uint16_t kFieldLen = 4;
constexpr size_t kLarge = 5000;
constexpr uint32_t kTicksPerTask = 10;
constexpr uint32_t kTicksPerSession = 900;  // that has no request

int32_t FieldCmp(const void *a, const void *b) { return memcmp(a, b, kFieldLen); }

uint32_t BuildLarge(uint64_t, uint8_t *, uint8_t *, void *out) {
  const std::string text(kLarge, 'n');
  return json_object_set_new(static_cast<json_t *>(out), "v", json_string(text.c_str())) != 0;
}
uint32_t BuildDelete(uint64_t, uint8_t *, void *) { return 1; }

class ObserveOverClientSession : public WireClient {
 protected:
  void SetUp() override {
    Register(called_, &app_);
    ServeObservable();
    ASSERT_EQ(Call(called_), 0u);
    call_ = Next();
  }

  void ServeObservable() {
    CoapRpcSerVtblReg reg = {};
    reg.payloadFormat = COAP_RPC_JSON;
    CoapRpcSerObVtblReg ob = {};
    ob.keyLen = kFieldLen;
    ob.tupleKeyCmp = FieldCmp;
    ob.buildUpdate = BuildLarge;
    ob.buildDelete = BuildDelete;
    CoapRpcSerListenAddr addr = {};
    addr.listenAddr.family = COAP_RPC_IPV4;
    addr.listenAddr.addr.ipv4 = kOwnIp;
    addr.port = FindFreeUdpPort();
    ASSERT_EQ(COAP_RpcSerRegVtbl(Ctx(), &served_, &reg, &ob), 0u);
    ASSERT_EQ(COAP_RpcSerSetUri(Ctx(), &served_, &addr), 0u);
  }

  // ObserveBack makes the peer observe, and returns the answer.
  CoapMessage ObserveBack() {
    CoapMessage observe = Request(CoapType::kCon, kCodeGet, 77, {1});
    peer_.Send(observe.AddPath("o").AddUint(kOptObserve, 0));
    return Next();
  }

  // NotifyLarge changes a tuple.  Returns the first block of the notification, acknowledged.
  CoapMessage NotifyLarge() {
    EXPECT_EQ(COAP_RpcSerObserveDataUpdate(Ctx(), &served_, "key", nullptr), 0u);
    CoapMessage notification = Next();
    peer_.Send(AckOf(notification));
    return notification;
  }

  // FetchRest makes the peer fetch the blocks after the first one.
  void FetchRest(const CoapMessage &first) {
    std::optional<CoapBlock> block = first.Block(kOptBlock2);
    for (uint16_t mid = 100; block && block->more; ++mid) {
      CoapMessage get = Request(CoapType::kCon, kCodeGet, mid, {1}).AddPath("o");
      peer_.Send(get.AddBlock(kOptBlock2, {block->num + 1, false, block->szx}));
      block = Next().Block(kOptBlock2);
    }
    EXPECT_TRUE(block) << peer_.LogText();
  }

  void ObserveNoMore() {
    CoapMessage leave = Request(CoapType::kCon, kCodeGet, 78, {1});
    peer_.Send(leave.AddPath("o").AddUint(kOptObserve, 1));
    Next();
  }

  // LeaveALargeNotification begins a notification in blocks whose resource goes.
  void LeaveALargeNotification() {
    peer_.Send(AnswerOf(call_).PayloadText("answer"));
    ObserveBack();
    ASSERT_TRUE(NotifyLarge().Block(kOptBlock2));
    COAP_RpcSerUnsetUri(Ctx(), &served_);
    Ticks(kTicksPerTask);
    peer_.ReceiveNow();  // what ends the observation
  }

  bool IsALastBlockKept() const {
    const CoapRpcLink &blocks = Ctx()->lib->lastBlockList;
    return blocks.next && blocks.next != &blocks;
  }

  App app_;
  const CoapRpcUriKey called_ = KeyOf("a");
  const CoapRpcUriKey served_ = KeyOf("o", COAP_RPC_CON, 1);
  CoapMessage call_;  // of the instance, not answered
};

TEST_F(ObserveOverClientSession, Registration_IsAnswered) {
  const CoapMessage answer = ObserveBack();
  EXPECT_EQ(answer.type, CoapType::kAck);
  EXPECT_EQ(answer.messageId, 77);
  EXPECT_EQ(answer.code, Code(2, 1));
  EXPECT_EQ(COAP_RpcSerFindUriVtbl(Ctx()->ser, &served_)->observerNum, 1u);

  peer_.Send(AnswerOf(call_).PayloadText("answer"));
  Ticks(kTicksPerTask);
  EXPECT_EQ(app_.responses.size(), 1u);
}

TEST_F(ObserveOverClientSession, LargeCallAfterALargeNotification_GoesOut) {
  LeaveALargeNotification();

  app_.out = std::string(kLarge, 'c');
  ASSERT_EQ(Call(called_, 2), 0u);
  std::optional<CoapMessage> sent = peer_.ReceiveMessage(Pump());
  while (sent && !sent->Block(kOptBlock1)) sent = peer_.ReceiveMessage(Pump());
  EXPECT_TRUE(sent) << peer_.LogText();
}

TEST_F(ObserveOverClientSession, CallRefusedAfterALargeNotification_FreesTheSession) {
  LeaveALargeNotification();
  ASSERT_EQ(Call(called_, 2), 0u);
  peer_.Send(RstOf(Next()));
  Ticks(kTicksPerTask);
  ASSERT_EQ(Call(called_, 3), 0u);
  EXPECT_EQ(Next().Path(), "a");
}

// Nothing tells when a session of our own goes: the last block, which is kept for peers that ask
// again, would be of a session that is no more.
TEST_F(ObserveOverClientSession, LargeNotificationFetchedAsTheSessionAges_NoLastBlockIsKept) {
  COAP_RpcRefreshTaskTimer(Ctx());
  peer_.Send(AnswerOf(call_).PayloadText("answer"));
  Ticks(kTicksPerSession - 5 * kTicksPerTask);
  ASSERT_NE(SessionOf(PeerAddr()), nullptr);
  ObserveBack();
  FetchRest(NotifyLarge());
  ObserveNoMore();
  Ticks(kTicksPerTask);
  EXPECT_EQ(COAP_RpcSerFindUriVtbl(Ctx()->ser, &served_)->isSendingLargeBlock, 0u);
  EXPECT_FALSE(IsALastBlockKept());
  Ticks(10 * kTicksPerTask);
  EXPECT_EQ(SessionOf(PeerAddr()), nullptr);
}

}  // namespace
}  // namespace coap_rpc_test
