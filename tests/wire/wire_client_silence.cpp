// Peers that do not answer: retransmission, NACKs, keep-alive, and peers that come back.
#include <algorithm>

#include "wire_client.h"

namespace coap_rpc_test {
namespace {

class ClientSilence : public WireClient {
 protected:
  // Drain returns all messages that come within `ms`.
  std::vector<CoapMessage> Drain(uint64_t ms) {
    std::vector<CoapMessage> messages;
    for (uint64_t t = 0; t < ms; t += kTickMs) {
      std::optional<CoapMessage> message = peer_.ReceiveMessage(Pump(), 1);
      if (message) messages.push_back(*message);
    }
    return messages;
  }

  // DirectEvent runs the event handler on the session of the peer.
  int DirectEvent(coap_event_t event) {
    return COAP_RpcEventHandler(SessionOf(PeerAddr())->coapSession, event);
  }

  App app_;
  CoapRpcUriKey key_ = KeyOf("a");
};

TEST_F(ClientSilence, Con_IsSentThreeTimesInAll) {
  Register(key_, &app_);
  EXPECT_EQ(Call(key_), 0U);
  const std::vector<CoapMessage> messages = Drain(30'000);
  ASSERT_EQ(messages.size(), 3U);
  EXPECT_EQ(messages[0], messages[1]);
  EXPECT_EQ(messages[0], messages[2]);
  const std::string mid = std::to_string(messages[0].messageId);
  EXPECT_TRUE(
      host_.HasLog("[CoapRpc]handle nack, mid=" + mid + ", reason=0, msgType=0, codeType=1\n"));
  const std::vector<LogRecord> lines = host_.Logs().OfKind(LogKind::kSysLog);
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_EQ(lines[0].level, 1U);
  EXPECT_EQ(lines[0].text,
            "[CoapRpc]handle nack, mid=" + mid + ", reason=0, msgType=0, codeType=1");
}

TEST_F(ClientSilence, Non_IsSentOnce) {
  const CoapRpcUriKey key = KeyOf("a", COAP_RPC_NON);
  Register(key, &app_);
  EXPECT_EQ(Call(key), 0U);
  EXPECT_EQ(Drain(30'000).size(), 1U);
}

TEST_F(ClientSilence, Relation_CountsItsExhaustedRetransmissions) {
  const CoapRpcUriKey key = KeyOf("a", COAP_RPC_CON, 1);
  Register(key, &app_);
  EXPECT_EQ(Observe(key), 0U);
  EXPECT_EQ(Drain(32'000).size(), 3U);
  EXPECT_EQ(ReqOf(key)->Tout, 1U);
  EXPECT_EQ(ReqOf(key)->reSnd, 1U);  // libcoap's own repetitions are no attempts of ours
  EXPECT_EQ(Observe(key), 0U);
  EXPECT_EQ(Drain(32'000).size(), 3U);
  EXPECT_EQ(ReqOf(key)->Tout, 2U);
}

TEST_F(ClientSilence, AcknowledgedCon_IsNotRepeated) {
  Register(key_, &app_);
  EXPECT_EQ(Call(key_), 0U);
  peer_.Send(AckOf(Next()));
  EXPECT_TRUE(Drain(30'000).empty());
}

TEST_F(ClientSilence, SecondConOfASession_WaitsForTheFirst) {
  Register(key_, &app_);
  COAP_RpcRefreshTaskTimer(Ctx());  // the acknowledgement is read well before a repetition is due
  EXPECT_EQ(Call(key_, 1, COAP_RPC_GET), 0U);
  EXPECT_EQ(Call(key_, 2, COAP_RPC_POST), 0U);
  const CoapMessage first = Next();
  EXPECT_EQ(first.code, kCodeGet);
  EXPECT_TRUE(Drain(1000).empty());
  peer_.Send(AckOf(first));
  EXPECT_EQ(Next().code, kCodePost);
}

TEST_F(ClientSilence, NackWithoutASentMessage_HasItsOwnText) {
  Register(key_, &app_);
  EXPECT_EQ(Call(key_), 0U);
  host_.ClearLogs();
  COAP_RpcNackhandler(SessionOf(PeerAddr())->coapSession, nullptr, COAP_NACK_TOO_MANY_RETRIES, 9);
  EXPECT_TRUE(host_.HasLog("[CoapRpc]handle nack, mid=9, reason=0.\n"));
  ASSERT_EQ(host_.Logs().OfKind(LogKind::kSysLog).size(), 1U);
  EXPECT_EQ(host_.Logs().OfKind(LogKind::kSysLog)[0].text, "[CoapRpc]handle nack, mid=9, reason=0");
}

TEST_F(ClientSilence, OtherNacks_AreIgnored) {
  Register(key_, &app_);
  EXPECT_EQ(Call(key_), 0U);
  host_.ClearLogs();
  for (int reason = 1; reason <= 8; ++reason) {
    COAP_RpcNackhandler(SessionOf(PeerAddr())->coapSession, nullptr,
                        static_cast<coap_nack_reason_t>(reason), 9);
  }
  EXPECT_TRUE(host_.Logs().Records().empty());
}

TEST_F(ClientSilence, DisconnectEvent_TellsEveryRegisteredUri) {
  App apps[3];
  for (int i = 0; i < 3; ++i)
    Register(KeyOf(std::string(1, static_cast<char>('a' + i)).c_str()), &apps[i]);
  const CoapRpcCliVtblReg silent = {};  // no onDisconnect
  const CoapRpcUriKey silentKey = KeyOf("b", COAP_RPC_NON);
  ASSERT_EQ(COAP_RpcCliRegVtbl(Ctx(), &silentKey, &silent), 0U);
  EXPECT_EQ(Call(key_), 0U);
  host_.ClearLogs();
  EXPECT_EQ(DirectEvent(COAP_EVENT_KEEPALIVE_FAILURE), 0);
  for (const App &app : apps) {
    ASSERT_EQ(app.gone.size(), 1U);
    EXPECT_EQ(app.gone[0].family, 1);
    EXPECT_EQ(uint32_t{app.gone[0].addr.ipv4}, kPeerIp);
  }
  const std::vector<LogRecord> lines = host_.LogsOf("COAP_RPC_LOG_MOD_DO");
  EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                          [](const LogRecord &line) {
                            return line.text ==
                                   "[CoapRpc]session disconnected, ipAddr:0x7f000002.\n";
                          }),
            3);
  EXPECT_NE(SessionOf(PeerAddr()), nullptr);
}

TEST_F(ClientSilence, OtherEvents_TellNobody) {
  Register(key_, &app_);
  EXPECT_EQ(Call(key_), 0U);
  for (const coap_event_t event : {COAP_EVENT_XMIT_BLOCK_FAIL, COAP_EVENT_MSG_RETRANSMITTED,
                                   COAP_EVENT_SESSION_CLOSED, COAP_EVENT_BAD_PACKET}) {
    EXPECT_EQ(DirectEvent(event), 0);
  }
  EXPECT_TRUE(app_.gone.empty());
}

TEST_F(ClientSilence, KeepAlive_ReportsAVanishedPeer) {
  const CoapRpcUriKey key = KeyOf("a", COAP_RPC_CON, 1);
  Register(key, &app_);
  ASSERT_EQ(COAP_RpcSetKeepAlive(Ctx(), 3), 0U);
  EXPECT_EQ(Observe(key), 0U);
  peer_.Send(AckOf(Next()));
  const std::vector<CoapMessage> pings = Drain(60'000);
  ASSERT_FALSE(pings.empty());
  EXPECT_EQ(pings[0].code, kCodeEmpty);
  EXPECT_EQ(pings[0].type, CoapType::kCon);
  ASSERT_FALSE(app_.gone.empty());
  EXPECT_EQ(uint32_t{app_.gone[0].addr.ipv4}, kPeerIp);
}

TEST_F(ClientSilence, KeepAlive_ReportsNobodyWhoAnswers) {
  Register(key_, &app_);
  ASSERT_EQ(COAP_RpcSetKeepAlive(Ctx(), 3), 0U);
  EXPECT_EQ(Call(key_), 0U);
  for (int i = 0; i < 8; ++i) {
    const CoapMessage message = Next();
    peer_.Send(message.code == kCodeEmpty ? RstOf(message) : AckOf(message));
  }
  EXPECT_TRUE(app_.gone.empty());
}

TEST_F(ClientSilence, KeepAliveOff_AsksNobody) {
  Register(key_, &app_);
  ASSERT_EQ(COAP_RpcSetKeepAlive(Ctx(), 3), 0U);
  ASSERT_EQ(COAP_RpcSetKeepAlive(Ctx(), 0), 0U);
  EXPECT_EQ(Call(key_), 0U);
  peer_.Send(AckOf(Next()));
  EXPECT_TRUE(Drain(60'000).empty());
  EXPECT_TRUE(app_.gone.empty());
}

TEST_F(ClientSilence, SetKeepAliveOfNull_Gives1900001404) {
  EXPECT_EQ(COAP_RpcSetKeepAlive(nullptr, 3), 1900001404U);
  EXPECT_EQ(TestHost::Process().Asserts(),
            std::vector<AssertRecord>(
                {{"coap_server/src/coap_svc/rpc/libadapter/coap_rpc_lib_ext", 1403}}));
  EXPECT_EQ(COAP_RpcGetTokenlessRspNum(nullptr), 0U);
}

TEST_F(ClientSilence, RelationEndedInsideOnDisconnect_IsSafe) {
  const CoapRpcUriKey key = KeyOf("a", COAP_RPC_CON, 1);
  Register(key, &app_);
  app_.onGone = [&] { EXPECT_EQ(UnObserve(key), 0U); };
  ASSERT_EQ(COAP_RpcSetKeepAlive(Ctx(), 3), 0U);
  EXPECT_EQ(Observe(key), 0U);
  peer_.Send(AckOf(Next()));
  Drain(60'000);
  EXPECT_FALSE(app_.gone.empty());
  EXPECT_EQ(SessionOf(PeerAddr()), nullptr);
}

TEST_F(ClientSilence, StopWithEverythingInFlight_IsClean) {
  const CoapRpcUriKey relation = KeyOf("o", COAP_RPC_CON, 1);
  Register(key_, &app_);
  Register(relation, &app_);
  app_.out = std::string(30'000, 'z');
  EXPECT_EQ(Call(key_), 0U);
  EXPECT_EQ(Call(key_, 2), 0U);
  EXPECT_EQ(Observe(relation), 0U);
  EXPECT_EQ(Observe(relation, 2), 0U);
  Ticks(12);
  instance_->Stop();
  EXPECT_TRUE(TestHost::Process().Asserts().empty());
  EXPECT_TRUE(app_.responses.empty());
}

TEST_F(ClientSilence, IdleSession_IsGivenUpAfter90Seconds) {
  const CoapRpcUriKey key = KeyOf("a", COAP_RPC_NON);
  Register(key, &app_);
  EXPECT_EQ(Call(key), 0U);
  host_.AdvanceMs(89'999);
  EXPECT_NE(SessionOf(PeerAddr()), nullptr);
  host_.AdvanceMs(1);
  EXPECT_EQ(SessionOf(PeerAddr()), nullptr);
}

TEST_F(ClientSilence, PeerThatComesBack_GetsWhatFailedInBetween) {
  Register(key_, &app_);
  EXPECT_EQ(Call(key_), 0U);
  Next();
  app_.built = -1;  // no attempt succeeds
  for (uint64_t i = 2; i <= 5; ++i) EXPECT_EQ(Call(key_, i), 1900001103U);
  Ticks(25);
  app_.built.reset();
  std::vector<CoapMessage> messages;
  for (int i = 0; i < 40'000 / 100 && messages.size() < 4; ++i) {
    std::optional<CoapMessage> message = peer_.ReceiveMessage(Pump(), 1);
    if (!message) continue;
    peer_.Send(AckOf(*message));
    if (messages.empty() || messages.back() != *message) messages.push_back(*message);
  }
  EXPECT_EQ(messages.size(), 4U);
  EXPECT_EQ(COAP_RpcCliFindFirstReqData(Ctx()->cli), nullptr);
}

class ClientQueue : public ClientSilence {
 protected:
  void SetUp() override { COAP_RpcRefreshTaskTimer(Ctx()); }

  // Numbered sends a request that carries its number.
  uint32_t Numbered(uint64_t number) {
    app_.out = std::to_string(number);
    return Call(key_, number, COAP_RPC_POST);
  }

  // AnswerInOrder acknowledges until `num` different requests have come; their numbers in order.
  std::vector<std::string> AnswerInOrder(RawPeer &peer, size_t num) {
    std::vector<std::string> numbers;
    uint32_t lastMid = 0x10000;
    for (int round = 0; round < 3000 && numbers.size() < num; ++round) {
      const std::optional<CoapMessage> message = peer.ReceiveMessage(Pump(), 1);
      if (!message) continue;
      peer.Send(AckOf(*message));
      if (message->messageId != lastMid) numbers.push_back(message->Text());
      lastMid = message->messageId;
    }
    return numbers;
  }
};

TEST_F(ClientQueue, PeerThatIsBusy_GetsAThousandInOrderOnce) {
  Register(key_, &app_);
  host_.Logs().SuppressBelow(4);
  constexpr size_t kNum = 1000;
  std::vector<std::string> expected;
  for (uint64_t i = 0; i < kNum; ++i) {
    ASSERT_EQ(Numbered(i), 0U);
    expected.push_back(std::to_string(i));
  }
  EXPECT_EQ(SessionOf(PeerAddr())->msgStatistic[0], kNum);
  EXPECT_EQ(AnswerInOrder(peer_, kNum), expected);
  EXPECT_TRUE(Drain(30'000).empty());
}

TEST_F(ClientQueue, PeerWhosePortWasClosed_GetsEverythingWhenItIsBack) {
  Register(key_, &app_);
  const uint16_t port = peer_.Local().port;
  auto other = std::make_unique<RawPeer>(UdpAddress{"127.0.0.2", 0});
  const UdpAddress away = other->Local();
  other.reset();  // nobody listens: the network says so
  ASSERT_NE(away.port, port);
  CoapRpcCliAddr addr = PeerAddr(COAP_RPC_POST);
  addr.dstPort = away.port;
  std::vector<std::string> expected;
  for (uint64_t i = 0; i < 8; ++i) {
    const CoapRpcCliReqParam param = ParamOf(i);
    app_.out = std::to_string(i);
    COAP_RpcCliConReq(Ctx(), &key_, &param, &addr);  // some are refused and queued
    expected.push_back(std::to_string(i));
    Tick();
  }
  RawPeer back(away);
  std::vector<std::string> numbers = AnswerInOrder(back, 8);
  std::sort(numbers.begin(), numbers.end());
  EXPECT_EQ(numbers, expected);
  EXPECT_EQ(COAP_RpcCliFindFirstReqData(Ctx()->cli), nullptr);
}

}  // namespace
}  // namespace coap_rpc_test
