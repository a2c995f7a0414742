// What the client makes of responses: delivered, refused, repeated, or sent by a hostile peer.
#include "coap_svc/rpc/libadapter/call/coap_rpc_lib_call_response.h"
#include "wire_client.h"

namespace coap_rpc_test {
namespace {

class ClientResponse : public WireClient {
 protected:
  // Ask sends a plain CON request and returns it as the peer sees it.
  CoapMessage Ask(const CoapRpcUriKey &key) {
    EXPECT_EQ(Call(key), 0U);
    return Next();
  }

  // Observed starts a relation, which the peer acknowledges, and returns its request.
  CoapMessage Observed(const CoapRpcUriKey &key, uint64_t userData = 1) {
    EXPECT_EQ(Observe(key, userData), 0U);
    CoapMessage request = Next();
    peer_.Send(AckOf(request));
    Ticks(2);
    return request;
  }

  App app_;
  CoapRpcUriKey key_ = KeyOf("a/b");
};

TEST_F(ClientResponse, PiggybackedWithPath_IsDelivered) {
  Register(key_, &app_);
  peer_.Send(AnswerOf(Ask(key_)).PayloadText("payload"));
  Ticks(11);
  ASSERT_EQ(app_.responses.size(), 1U);
  const App::Response &response = app_.responses[0];
  EXPECT_EQ(response.payload, "payload");
  EXPECT_TRUE(response.isTerminated);
  EXPECT_EQ(response.info.isChanged, 0U);
  EXPECT_EQ(response.info.rspCode, 205U);
  EXPECT_EQ(response.info.checkCodeOk, 0U);
  EXPECT_EQ(response.info.pubFlag, 0U);
  EXPECT_TRUE(host_.HasLog(
      "[CoapRpc]cli get response payload success, uri:a/b, len:7, payload:payload.\n"));
  EXPECT_EQ(COAP_RpcGetTokenlessRspNum(Ctx()), 0U);
}

TEST_F(ClientResponse, WithoutPath_IsLoggedAndAccepted) {
  Register(key_, &app_);
  const CoapMessage request = Ask(key_);
  peer_.Send(Request(CoapType::kAck, Code(2, 5), request.messageId).PayloadText("lost"));
  Ticks(11);
  EXPECT_TRUE(app_.responses.empty());
  const std::vector<LogRecord> lines = host_.LogsOf("COAP_RpcCliResponseHandler");
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_EQ(lines[0].text, "[CoapRpc]cli parse response data get vtbl failed.\n");
  EXPECT_EQ(lines[0].level, 3U);
  EXPECT_EQ(lines[0].line, 1081U);
  EXPECT_TRUE(IsSilent());
}

TEST_F(ClientResponse, SeparateConWithoutPath_IsAcknowledged) {
  Register(key_, &app_);
  peer_.Send(AckOf(Ask(key_)));
  peer_.Send(Request(CoapType::kCon, Code(2, 5), 77).PayloadText("lost"));
  const CoapMessage ack = Next();
  EXPECT_EQ(ack.type, CoapType::kAck);
  EXPECT_EQ(ack.messageId, 77);
}

TEST_F(ClientResponse, ChangedWithoutPayload_IsDeliveredAsNull) {
  Register(key_, &app_);
  peer_.Send(AnswerOf(Ask(key_), Code(2, 4)));
  Ticks(11);
  ASSERT_EQ(app_.responses.size(), 1U);
  EXPECT_TRUE(app_.responses[0].isNull);
  EXPECT_EQ(app_.responses[0].info.isChanged, 1U);
  EXPECT_EQ(app_.responses[0].info.rspCode, 204U);
  EXPECT_TRUE(host_.HasLog("[CoapRpc]get client response data, respSize:0.\n"));
  EXPECT_TRUE(host_.HasLog("[CoapRpc]cli parse response retcode, uri:a/b.\n"));
}

TEST_F(ClientResponse, OtherCodesWithoutPayload_CallNothing) {
  Register(key_, &app_);
  for (const uint8_t code : {Code(2, 5), Code(2, 1), Code(4, 4), Code(5, 3)}) {
    peer_.Send(AnswerOf(Ask(key_), code));
    Ticks(11);
  }
  EXPECT_TRUE(app_.responses.empty());
  EXPECT_TRUE(host_.HasLog("[CoapRpc]get client response data, respSize:0.\n"));
}

TEST_F(ClientResponse, ErrorsWithPayload_CarryTheirCode) {
  Register(key_, &app_);
  peer_.Send(AnswerOf(Ask(key_), Code(4, 4)).PayloadText("no"));
  Ticks(11);
  ASSERT_EQ(app_.responses.size(), 1U);
  EXPECT_EQ(app_.responses[0].info.rspCode, 404U);
  EXPECT_EQ(app_.responses[0].payload, "no");
}

TEST_F(ClientResponse, NonForAUriRegisteredAsCon_IsDelivered) {
  Register(key_, &app_);
  Ask(key_);
  peer_.Send(Separate(CoapType::kNon, 5, {}, "a/b").PayloadText("non"));
  Ticks(11);
  ASSERT_EQ(app_.responses.size(), 1U);
  EXPECT_EQ(app_.responses[0].payload, "non");
}

TEST_F(ClientResponse, RejectedSeparate_IsAnsweredWithReset) {
  Register(key_, &app_);
  app_.result = 5;
  peer_.Send(AckOf(Ask(key_)));
  Ticks(11);
  for (const CoapType type : {CoapType::kCon, CoapType::kNon}) {
    const auto mid = static_cast<uint16_t>(600 + static_cast<int>(type));
    peer_.Send(Separate(type, mid, {}, "a/b").PayloadText("x"));
    const CoapMessage reset = Next();
    EXPECT_EQ(reset.type, CoapType::kRst);
    EXPECT_EQ(reset.messageId, mid);
  }
  const std::vector<LogRecord> lines = host_.LogsOf("COAP_RpcCliResponseHandler");
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_EQ(lines[0].text,
            "[CoapRpc]cli parse response data failed, uri:a/b, msgType:0, observe:0, "
            "pktType:0.\n");
  EXPECT_EQ(lines[0].line, 1083U);
}

TEST_F(ClientResponse, RejectedPiggybacked_GetsNothing) {
  Register(key_, &app_);
  app_.result = 5;
  peer_.Send(AnswerOf(Ask(key_)).PayloadText("x"));
  EXPECT_TRUE(IsSilent());
  EXPECT_EQ(app_.responses.size(), 1U);
}

TEST_F(ClientResponse, RejectedChanged_IsAnsweredWithReset) {
  Register(key_, &app_);
  app_.result = 5;
  peer_.Send(AckOf(Ask(key_)));
  peer_.Send(Separate(CoapType::kCon, 601, {}, "a/b", Code(2, 4)));
  EXPECT_EQ(Next().type, CoapType::kRst);
  const std::vector<LogRecord> lines = host_.LogsOf("COAP_RpcCliResNoDataProc");
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_EQ(lines[0].text,
            "[CoapRpc]parse rsp data failed, uri:a/b, msgType:0, observe:0, pktType:0.\n");
  EXPECT_EQ(lines[0].line, 1084U);
}

TEST_F(ClientResponse, NoOnResponse_AcceptsUnread) {
  const CoapRpcCliVtblReg reg = {};
  ASSERT_EQ(COAP_RpcCliRegVtbl(Ctx(), &key_, &reg), 0U);
  peer_.Send(AckOf(Ask(key_)));
  peer_.Send(Separate(CoapType::kCon, 602, {}, "a/b").PayloadText("x"));
  EXPECT_EQ(Next().type, CoapType::kAck);
  peer_.Send(Separate(CoapType::kCon, 603, {}, "a/b", Code(2, 4)));
  EXPECT_EQ(Next().type, CoapType::kAck);
}

TEST_F(ClientResponse, NoMemoryForTheCopy_IsLoggedAndAccepted) {
  Register(key_, &app_);
  const CoapMessage request = Ask(key_);
  peer_.Send(AnswerOf(request).PayloadText("x"));
  host_.Pool().Failures().FailFrom(1);
  Ticks(11);
  host_.Pool().Failures().Clear();
  EXPECT_TRUE(app_.responses.empty());
  EXPECT_TRUE(host_.HasLog("[CoapRpc]payload malloc failed.\n"));
  EXPECT_TRUE(IsSilent());
}

TEST_F(ClientResponse, ConTwice_IsDeliveredOnceAndAcknowledgedTwice) {
  Register(key_, &app_);
  peer_.Send(AckOf(Ask(key_)));
  const CoapMessage answer = Separate(CoapType::kCon, 700, {}, "a/b").PayloadText("x");
  for (int i = 0; i < 2; ++i) {
    peer_.Send(answer);
    EXPECT_EQ(Next().type, CoapType::kAck);
  }
  EXPECT_EQ(app_.responses.size(), 1U);
}

TEST_F(ClientResponse, AckTwice_IsDeliveredOnce) {
  Register(key_, &app_);
  const CoapMessage answer = AnswerOf(Ask(key_)).PayloadText("x");
  peer_.Send(answer);
  peer_.Send(answer);
  Ticks(22);
  EXPECT_EQ(app_.responses.size(), 1U);
}

TEST_F(ClientResponse, FromAnotherPort_IsNotHeard) {
  Register(key_, &app_);
  const CoapMessage request = Ask(key_);
  RawPeer other{UdpAddress{"127.0.0.2", 0}};
  other.SetRemote(peer_.Datagrams()[0].other);
  other.Send(AnswerOf(request).PayloadText("forged"));
  Ticks(11);
  EXPECT_TRUE(app_.responses.empty());
  peer_.Send(AnswerOf(request).PayloadText("true"));
  Ticks(11);
  ASSERT_EQ(app_.responses.size(), 1U);
  EXPECT_EQ(app_.responses[0].payload, "true");
}

TEST_F(ClientResponse, WithAWrongToken_IsFoundByItsPathAllTheSame) {
  Register(key_, &app_);
  const CoapMessage request = Ask(key_);
  peer_.Send(Separate(CoapType::kNon, 5, {9, 9}, "a/b").PayloadText("x"));
  Ticks(11);
  EXPECT_EQ(app_.responses.size(), 1U);
  EXPECT_EQ(COAP_RpcGetTokenlessRspNum(Ctx()), 0U);
  // The request itself is still waiting for its acknowledgement.
  EXPECT_EQ(Next().messageId, request.messageId);
}

TEST_F(ClientResponse, StrayWithoutToken_EndsTheRetransmissionAndIsCounted) {
  Register(key_, &app_);
  Ask(key_);
  peer_.Send(Separate(CoapType::kNon, 5, {}, "a/b").PayloadText("stray"));
  Ticks(11);
  EXPECT_EQ(COAP_RpcGetTokenlessRspNum(Ctx()), 1U);
  Ticks(300);
  EXPECT_TRUE(IsSilent());
  EXPECT_TRUE(host_.Logs().OfKind(LogKind::kSysLog).empty());  // no NACK either
}

TEST_F(ClientResponse, Reset_IsTheEndOfTheRequest) {
  Register(key_, &app_);
  peer_.Send(RstOf(Ask(key_)));
  Ticks(300);
  EXPECT_TRUE(IsSilent());
  EXPECT_TRUE(app_.responses.empty());
  EXPECT_TRUE(host_.Logs().OfKind(LogKind::kSysLog).empty());
}

TEST_F(ClientResponse, CheckCodeEchoedWithObserve_IsOk) {
  const CoapRpcUriKey key = KeyOf("a/b", COAP_RPC_NON, 1);
  Register(key, &app_);
  Ask(KeyOf("other"));  // opens the session
  const auto send = [this](const CoapMessage &message) {
    peer_.Send(message);
    Ticks(11);
    return app_.responses.empty() ? CoapRpcCliRspInfo{} : app_.responses.back().info;
  };
  const auto base = [](uint16_t mid, uint8_t code = Code(2, 5)) {
    return Separate(CoapType::kNon, mid, {1}, "a/b", code).PayloadText("x");
  };
  EXPECT_EQ(
      send(base(1).AddUint(kOptObserve, 3).AddText(kOptUriQuery, "_ual-checkcode=5")).checkCodeOk,
      1U);
  EXPECT_EQ(
      send(base(2).AddUint(kOptObserve, 3).AddText(kOptUriQuery, "_ual-checkcode")).checkCodeOk,
      1U);
  EXPECT_EQ(send(base(3)
                     .AddUint(kOptObserve, 3)
                     .AddText(kOptUriQuery, "x=1")
                     .AddText(kOptUriQuery, "_ual-checkcode=5"))
                .checkCodeOk,
            1U);
  EXPECT_EQ(
      send(base(4).AddUint(kOptObserve, 3).AddText(kOptUriQuery, "_ual-checkcodes=5")).checkCodeOk,
      0U);
  EXPECT_EQ(
      send(base(5).AddUint(kOptObserve, 3).AddText(kOptUriQuery, "ual-checkcode=5")).checkCodeOk,
      0U);
  EXPECT_EQ(send(base(6).AddUint(kOptObserve, 3)).checkCodeOk, 0U);
  EXPECT_EQ(
      send(base(7, Code(2, 1)).AddUint(kOptObserve, 3).AddText(kOptUriQuery, "_ual-checkcode=5"))
          .checkCodeOk,
      0U);
  EXPECT_EQ(app_.responses.size(), 7U);
}

TEST_F(ClientResponse, CheckCodeWithoutObserve_IsNotOk) {
  Register(key_, &app_);
  Ask(key_);
  peer_.Send(Separate(CoapType::kNon, 1, {1}, "a/b")
                 .AddText(kOptUriQuery, "_ual-checkcode=5")
                 .PayloadText("x"));
  Ticks(11);
  ASSERT_EQ(app_.responses.size(), 1U);
  EXPECT_EQ(app_.responses[0].info.checkCodeOk, 0U);
}

TEST_F(ClientResponse, PubData_FromAHandMadeRecord) {
  CoapRpcMsgInfo info = {};
  info.code = 68;
  info.rsv[12] = '2';
  CoapRpcCliRspInfo rspInfo = COAP_GetRpcCliPubData(&info);
  EXPECT_EQ(rspInfo.isChanged, 1U);
  EXPECT_EQ(rspInfo.rspCode, 204U);
  EXPECT_EQ(rspInfo.pubFlag, 1U);
  EXPECT_EQ(rspInfo.checkCodeOk, 0U);
  info.code = 165;
  info.rsv[12] = '1';
  info.rsv[11] = info.rsv[13] = '2';
  rspInfo = COAP_GetRpcCliPubData(&info);
  EXPECT_EQ(rspInfo.isChanged, 0U);
  EXPECT_EQ(rspInfo.rspCode, 505U);
  EXPECT_EQ(rspInfo.pubFlag, 0U);
}

TEST_F(ClientResponse, BlockwiseBody_IsDeliveredWhole) {
  Register(key_, &app_);
  const std::string body(2500, 'q');
  CoapMessage request = Ask(key_);
  for (uint32_t num = 0; num < 3; ++num) {
    const bool more = num < 2;
    peer_.Send(AnswerOf(request)
                   .AddBlock(kOptBlock2, {num, more, 6})
                   .PayloadText(std::string_view(body).substr(num * 1024, 1024)));
    if (more) request = Next();
  }
  Ticks(11);
  ASSERT_EQ(app_.responses.size(), 1U);
  EXPECT_EQ(app_.responses[0].payload, body);
}

TEST_F(ClientResponse, RelationEndedInsideOnResponse_FreesTheSessionAfterwards) {
  const CoapRpcUriKey key = KeyOf("a/b", COAP_RPC_CON, 1);
  Register(key, &app_);
  const CoapMessage request = Observed(key);
  app_.onAnswer = [&] { EXPECT_EQ(UnObserve(key), 0U); };
  peer_.Send(Separate(CoapType::kCon, 800, request.token, "a/b")
                 .AddUint(kOptObserve, 4)
                 .PayloadText("last"));
  Ticks(1);
  EXPECT_EQ(app_.responses.size(), 1U);
  EXPECT_EQ(ReqOf(key), nullptr);
  Ticks(11);
  EXPECT_EQ(SessionOf(PeerAddr()), nullptr);
}

TEST_F(ClientResponse, RequestInsideOnResponse_GoesOut) {
  Register(key_, &app_);
  const CoapRpcUriKey next = KeyOf("next", COAP_RPC_NON);
  App nextApp;
  Register(next, &nextApp);
  app_.onAnswer = [&] { EXPECT_EQ(Call(next, 2), 0U); };
  peer_.Send(AnswerOf(Ask(key_)).PayloadText("x"));
  EXPECT_EQ(Next().Path(), "next");
}

// Peers whose sockets are ready at the same time: ending one's relation from the other's callback
// must not pull it from under libcoap, which has both of them in hand.
TEST_F(ClientResponse, OtherPeersRelationEndedInsideOnResponse_IsSafe) {
  const CoapRpcUriKey keyA = KeyOf("a", COAP_RPC_CON, 1);
  const CoapRpcUriKey keyB = KeyOf("b", COAP_RPC_CON, 1);
  App appA;
  App appB;
  Register(keyA, &appA);
  Register(keyB, &appB);
  RawPeer other{UdpAddress{"127.0.0.2", 0}};
  const CoapRpcCliReqParam param = ParamOf(1);
  const CoapRpcCliAddr addrA = PeerAddr();
  const CoapRpcCliAddr addrB = AddrOf(other);
  EXPECT_EQ(COAP_RpcCliObserveReq(Ctx(), &keyA, &param, &addrA), 0U);
  EXPECT_EQ(COAP_RpcCliObserveReq(Ctx(), &keyB, &param, &addrB), 0U);
  const CoapMessage requestA = Next(peer_);
  const CoapMessage requestB = Next(other);
  peer_.Send(AckOf(requestA));
  other.Send(AckOf(requestB));
  Ticks(11);
  appA.onAnswer = [&] { COAP_RpcCliObserveUnReq(Ctx(), &keyB, &param, &addrB); };
  appB.onAnswer = [&] { COAP_RpcCliObserveUnReq(Ctx(), &keyA, &param, &addrA); };
  peer_.Send(
      Separate(CoapType::kCon, 1, requestA.token, "a").AddUint(kOptObserve, 9).PayloadText("x"));
  other.Send(
      Separate(CoapType::kCon, 1, requestB.token, "b").AddUint(kOptObserve, 9).PayloadText("x"));
  Ticks(22);
  EXPECT_EQ(appA.responses.size() + appB.responses.size(), 2U);
  EXPECT_EQ(COAP_RpcCliFindFirstSession(Ctx()->cli), nullptr);
}

TEST_F(ClientResponse, HostileOptions_DoNoHarm) {
  Register(key_, &app_);
  Ask(key_);
  const std::string longText(255, 'z');
  const auto base = [](uint16_t mid) { return Request(CoapType::kNon, Code(2, 5), mid, {1}); };
  peer_.Send(base(1).AddPath(longText).PayloadText("x"));
  peer_.Send(base(2).AddPath(std::string(33, 'p')).PayloadText("x"));
  peer_.Send(base(3).AddPath("a").AddPath("%00").PayloadText("x"));
  CoapMessage many = base(4).AddPath("a/b");
  for (int i = 0; i < 4; ++i) many.AddText(kOptUriQuery, longText);
  peer_.Send(many.PayloadText("x"));
  peer_.Send(
      base(5).AddPath("a/b").Add(kOptEtag, Bytes(8, 0xFF)).Add(kOptEtag, {1}).PayloadText("x"));
  peer_.Send(base(6).AddPath("a/b").Add(kOptObserve, {1, 2, 3}).PayloadText("x"));
  peer_.Send(base(7).AddPath("a/b").Add(999, {1}).PayloadText("x"));  // unknown and critical
  peer_.Send(base(8).AddPath("a/b").AddBlock(kOptBlock2, {9, true, 6}).PayloadText("x"));
  Ticks(60);
  EXPECT_EQ(CheckCodeOf(key_), 0xFFFFFFFFFFFFFFFF);
}

TEST_F(ClientResponse, HandlerOfAStrangeSession_Accepts) {
  EXPECT_EQ(COAP_RpcCliResponseHandler(nullptr, nullptr, nullptr, 1), COAP_RESPONSE_OK);
  COAP_RpcNackhandler(nullptr, nullptr, COAP_NACK_TOO_MANY_RETRIES, 1);
  EXPECT_EQ(COAP_RpcEventHandler(nullptr, COAP_EVENT_KEEPALIVE_FAILURE), 0);
}

}  // namespace
}  // namespace coap_rpc_test
