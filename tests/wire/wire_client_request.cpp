// What requests look like on the wire, and from where they leave.
#include "fixed_random.h"
#include "wire_client.h"

namespace coap_rpc_test {
namespace {

using Options = std::vector<CoapOption>;

Options PlainOptions(std::initializer_list<const char *> path) {
  Options options = {{kOptUriHost, BytesOf("127.0.0.2")}};
  for (const char *segment : path) options.push_back({kOptUriPath, BytesOf(segment)});
  options.push_back({kOptContentFormat, {50}});
  return options;
}

class ClientRequest : public WireClient {
 protected:
  // AskTwice begins two relations of one entry, and gives the request of the first.
  CoapMessage AskTwice() {
    const CoapRpcUriKey key = KeyOf("a", COAP_RPC_CON, 1);
    Register(key, &app_);
    EXPECT_EQ(Observe(key, 1), 0U);
    EXPECT_EQ(Observe(key, 2), 0U);
    return Next();
  }

  // CallFrom makes a call whose session has a source address.
  template <typename Call>
  uint32_t CallFrom(uint32_t ipv4, Call call, const CoapRpcUriKey &key) {
    Register(key, &app_);
    const CoapRpcCliReqParam param = ParamOf(1);
    CoapRpcCliAddr addr = PeerAddr();
    addr.srcIp.addr.ipv4 = ipv4;
    return call(Ctx(), &key, &param, &addr);
  }

  App app_;
};

TEST_F(ClientRequest, PlainCon_ByteByByte) {
  App app;
  app.out = "hi";
  const CoapRpcUriKey key = KeyOf("a/b");
  Register(key, &app);
  EXPECT_EQ(Call(key, 7, COAP_RPC_POST), 0U);
  const std::optional<Bytes> datagram = peer_.Receive(Pump());
  ASSERT_TRUE(datagram);
  Bytes expected = {0x40, 0x02, 0, 0, 0x39};
  const Bytes host = BytesOf("127.0.0.2");
  expected.insert(expected.end(), host.begin(), host.end());
  const Bytes rest = {0x81, 'a', 0x01, 'b', 0x11, 50, 0xFF, 'h', 'i'};
  expected.insert(expected.end(), rest.begin(), rest.end());
  expected[2] = (*datagram)[2];
  expected[3] = (*datagram)[3];
  EXPECT_EQ(HexText(*datagram), HexText(expected));

  const uint32_t mid = static_cast<uint32_t>((*datagram)[2] << 8 | (*datagram)[3]);
  EXPECT_TRUE(
      host_.HasLog("[CoapRpc]req snd success, uri:a/b, observe:0, msgType:0, codeType:2, mid:" +
                   std::to_string(mid) + ".\n"));
  EXPECT_TRUE(host_.HasLog("request payload len: 2."));
  EXPECT_TRUE(host_.HasLog(
      "[CoapRpc]cli reqPdu add payload success, uri:a/b, observe:0, msgType:0, codeType:2, len:2, "
      "payload:hi.\n"));
  EXPECT_EQ(app.outSize, 65471U);
  EXPECT_TRUE(app.isFirstByteZero);
  EXPECT_EQ(app.reqUserData, 7U);
}

TEST_F(ClientRequest, PlainNon_HasNoTokenAndNoPayloadMarkerForLength0) {
  App app;
  const CoapRpcUriKey key = KeyOf("a", COAP_RPC_NON);
  Register(key, &app);
  EXPECT_EQ(Call(key), 0U);
  const CoapMessage request = Next();
  EXPECT_EQ(request.type, CoapType::kNon);
  EXPECT_EQ(request.code, kCodeGet);
  EXPECT_TRUE(request.token.empty());
  EXPECT_EQ(request.options, PlainOptions({"a"}));
  EXPECT_TRUE(request.payload.empty());
  EXPECT_TRUE(host_.HasLog(
      "[CoapRpc]cli reqPdu add payload success, uri:a, observe:0, msgType:1, codeType:1, len:0, "
      "payload:.\n"));
}

TEST_F(ClientRequest, AllFourMethods_GoOutAsTheyStand) {
  App app;
  const CoapRpcUriKey key = KeyOf("a", COAP_RPC_NON);
  Register(key, &app);
  for (const uint8_t code : {kCodeGet, kCodePost, kCodePut, kCodeDelete}) {
    EXPECT_EQ(Call(key, 1, code), 0U);
    EXPECT_EQ(Next().code, code);
  }
}

TEST_F(ClientRequest, PayloadOfTheCall_ReachesBuildReq) {
  App app;
  const CoapRpcUriKey key = KeyOf("a", COAP_RPC_NON);
  Register(key, &app);
  uint8_t bytes[] = {'x', 'y'};
  CoapRpcCliReqParam param = ParamOf(1);
  param.payload = bytes;
  param.payloadLen = 2;
  const CoapRpcCliAddr addr = PeerAddr();
  EXPECT_EQ(COAP_RpcCliNonReq(Ctx(), &key, &param, &addr), 0U);
  EXPECT_EQ(app.reqPayload, "xy");
}

TEST_F(ClientRequest, UnregisteredUri_GoesOutBareAndCountsAsSent) {
  EXPECT_EQ(Call(KeyOf("nobody")), 0U);
  const std::optional<Bytes> datagram = peer_.Receive(Pump());
  ASSERT_TRUE(datagram);
  EXPECT_EQ(datagram->size(), 4U);
  EXPECT_EQ((*datagram)[0], 0x40);
  EXPECT_EQ((*datagram)[1], 0x01);
  EXPECT_EQ(SessionOf(PeerAddr())->msgStatistic[0], 1U);
  EXPECT_EQ(ReqOf(KeyOf("nobody")), nullptr);
}

TEST_F(ClientRequest, NoBuildReq_HasOptionsAndNoPayload) {
  const CoapRpcUriKey key = KeyOf("a");
  const CoapRpcCliVtblReg reg = {};
  ASSERT_EQ(COAP_RpcCliRegVtbl(Ctx(), &key, &reg), 0U);
  EXPECT_EQ(Call(key), 0U);
  const CoapMessage request = Next();
  EXPECT_EQ(request.options, PlainOptions({"a"}));
  EXPECT_TRUE(request.payload.empty());
  EXPECT_EQ(Ctx()->cli->reqBuf, nullptr);
}

TEST_F(ClientRequest, PayloadBuffer_IsMadeOnce) {
  App app;
  const CoapRpcUriKey key = KeyOf("a", COAP_RPC_NON);
  Register(key, &app);
  EXPECT_EQ(Call(key), 0U);
  const uint8_t *buffer = Ctx()->cli->reqBuf;
  ASSERT_NE(buffer, nullptr);
  EXPECT_EQ(Call(key), 0U);
  EXPECT_EQ(Ctx()->cli->reqBuf, buffer);
}

TEST_F(ClientRequest, UriOf64Characters_IsNotReadBeyond) {
  App app;
  const std::string uri = std::string(63, 'u') + 'v';
  const CoapRpcUriKey key = KeyOf(uri.c_str(), COAP_RPC_NON);
  Register(key, &app);
  EXPECT_EQ(Call(key), 0U);
  EXPECT_EQ(Next().Path(), uri);
}

TEST_F(ClientRequest, EmptySegments_AreEmptyOptions) {
  App app;
  const CoapRpcUriKey key = KeyOf("/a/", COAP_RPC_NON);
  Register(key, &app);
  EXPECT_EQ(Call(key), 0U);
  EXPECT_EQ(Next().options, PlainOptions({"", "a", ""}));
}

TEST_F(ClientRequest, Observe_TokenObserveAndOptionOrder) {
  const FixedRandom random(0xAA);
  App app;
  const CoapRpcUriKey key = KeyOf("a/b", COAP_RPC_CON, 1);
  Register(key, &app);
  EXPECT_EQ(Observe(key), 0U);
  const CoapMessage request = Next();
  EXPECT_EQ(request.type, CoapType::kCon);
  EXPECT_EQ(request.token, Bytes(5, 0xAA));
  EXPECT_EQ(request.options, Options({{kOptUriHost, BytesOf("127.0.0.2")},
                                      {kOptObserve, {}},
                                      {kOptUriPath, BytesOf("a")},
                                      {kOptUriPath, BytesOf("b")},
                                      {kOptContentFormat, {50}}}));
  EXPECT_TRUE(host_.HasLog("observer req set option."));
  EXPECT_TRUE(host_.HasLog("observer req token init."));
  EXPECT_EQ(ReqOf(key)->tokenLen, 5U);
  EXPECT_EQ(ReqOf(key)->mid, request.messageId);
}

TEST_F(ClientRequest, ObserveAgain_KeepsTheToken) {
  App app;
  const CoapRpcUriKey key = KeyOf("a", COAP_RPC_CON, 1);
  Register(key, &app);
  EXPECT_EQ(Observe(key), 0U);
  const CoapMessage first = Next();
  peer_.Send(AnswerOf(first, Code(2, 1)).AddUint(kOptObserve, 1));
  host_.ClearLogs();
  EXPECT_EQ(Observe(key), 0U);
  const CoapMessage second = Next();
  EXPECT_EQ(second.token, first.token);
  EXPECT_NE(second.messageId, first.messageId);
  EXPECT_FALSE(host_.HasLog("observer req token init."));
}

TEST_F(ClientRequest, TwoRelations_HaveTwoTokens) {
  const CoapMessage first = AskTwice();
  peer_.Send(AckOf(first));
  const CoapMessage second = Next();
  EXPECT_NE(first.token, second.token);
}

// A client that starts again may get the port of its former life: RFC 7252 section 5.3.1.
TEST_F(ClientRequest, StartedAgain_HasOtherTokens) {
  App app;
  const CoapRpcUriKey key = KeyOf("a", COAP_RPC_CON, 1);
  std::vector<Bytes> tokens;
  for (int i = 0; i < 3; ++i) {
    if (i != 0) instance_ = std::make_unique<TestInstance>(host_);
    Register(key, &app);
    EXPECT_EQ(Observe(key), 0U);
    tokens.push_back(Next().token);
    EXPECT_GE(tokens.back().size(), 1U);
    instance_.reset();
  }
  EXPECT_NE(tokens[0], tokens[1]);
  EXPECT_NE(tokens[1], tokens[2]);
  EXPECT_NE(tokens[0], tokens[2]);
}

// The next token after the largest number needs one byte more.
TEST_F(ClientRequest, LargestRandomNumber_CountsOn) {
  const FixedRandom random(0xFF);
  const CoapMessage first = AskTwice();
  EXPECT_EQ(first.token, Bytes(5, 0xFF));
  peer_.Send(AckOf(first));
  EXPECT_EQ(Next().token, Bytes({1, 0, 0, 0, 0, 1}));  // libcoap has drawn one as well
}

// Nor is there a random number without a token.
TEST_F(ClientRequest, RandomZeros_AreAToken) {
  const FixedRandom random(0);
  App app;
  const CoapRpcUriKey key = KeyOf("a", COAP_RPC_CON, 1);
  Register(key, &app);
  EXPECT_EQ(Observe(key), 0U);
  EXPECT_EQ(Next().token, Bytes({0x80, 0, 0, 0, 0}));
}

// Tokens count up for each session: a relation that moves must not bring one along that another
// relation of its new peer has.
TEST_F(ClientRequest, RelationThatMovesToAnotherPeer_DrawsATokenThere) {
  const FixedRandom random;
  App app;
  const CoapRpcUriKey key = KeyOf("a", COAP_RPC_CON, 1);
  Register(key, &app);
  RawPeer other{UdpAddress{"127.0.0.2", 0}};
  const CoapRpcCliReqParam first = ParamOf(1);
  const CoapRpcCliReqParam second = ParamOf(2);
  const CoapRpcCliAddr here = PeerAddr();
  const CoapRpcCliAddr there = AddrOf(other);
  EXPECT_EQ(COAP_RpcCliObserveReq(Ctx(), &key, &first, &here), 0U);
  EXPECT_EQ(COAP_RpcCliObserveReq(Ctx(), &key, &second, &there), 0U);
  peer_.Send(AckOf(Next(peer_)));
  const CoapMessage stays = Next(other);
  other.Send(AckOf(stays));
  EXPECT_EQ(COAP_RpcCliObserveReq(Ctx(), &key, &first, &there), 0U);
  const CoapMessage moved = Next(other);
  EXPECT_EQ(stays.token, Bytes(5, 0xAA));
  EXPECT_NE(moved.token, stays.token);
  other.Send(AckOf(moved));
}

class MovedRelation : public ClientRequest {
 protected:
  MovedRelation() {
    Register(key_, &app_);
    Move(peer_);
    first_ = Next(peer_);
    peer_.Send(AnswerOf(first_, Code(2, 5)).AddUint(kOptObserve, 1).PayloadText("x"));
    Ticks(20);
  }

  // Move calls the relation's key and parameter at a peer.
  void Move(const RawPeer &peer, uint64_t userData = 1) {
    const CoapRpcCliReqParam param = ParamOf(userData);
    const CoapRpcCliAddr addr = AddrOf(peer);
    EXPECT_EQ(COAP_RpcCliObserveReq(Ctx(), &key_, &param, &addr), 0U);
  }

  const FixedRandom random_;  // sessions begin with the same token
  App app_;
  const CoapRpcUriKey key_ = KeyOf("a", COAP_RPC_CON, 1);
  RawPeer other_{UdpAddress{"127.0.0.2", 0}};
  CoapMessage first_;
};

TEST_F(MovedRelation, KeepsItsTokenThereAndBack) {
  Move(other_);
  const CoapMessage there = Next(other_);
  other_.Send(AckOf(there));
  EXPECT_EQ(there.token, first_.token);
  Move(other_, 2);
  const CoapMessage fresh = Next(other_);
  other_.Send(AckOf(fresh));
  EXPECT_NE(fresh.token, there.token) << "drawn after it";
  Move(peer_);
  const CoapMessage back = Next(peer_);
  peer_.Send(AckOf(back));
  EXPECT_EQ(back.token, first_.token);
}

TEST_F(MovedRelation, TokenTakenBeforeItIsSent_IsGivenUp) {
  Move(other_, 2);
  Move(other_);
  const CoapMessage fresh = Next(other_);
  other_.Send(AckOf(fresh));
  EXPECT_EQ(fresh.token, first_.token);
  const CoapMessage moved = Next(other_);
  other_.Send(AckOf(moved));
  EXPECT_NE(moved.token, fresh.token);
}

TEST_F(MovedRelation, EndedBeforeItIsSent_LeavesOthersWithItsTokenAlone) {
  Move(other_, 2);
  const CoapMessage stays = Next(other_);
  other_.Send(AnswerOf(stays, Code(2, 5)).AddUint(kOptObserve, 1).PayloadText("y"));
  Ticks(20);
  Move(other_);
  const CoapRpcCliReqParam param = ParamOf(1);
  const CoapRpcCliAddr addr = AddrOf(other_);
  EXPECT_EQ(COAP_RpcCliObserveUnReq(Ctx(), &key_, &param, &addr), 0U);
  EXPECT_FALSE(other_.ReceiveMessage(Pump(), kNothingComes));
}

TEST_F(MovedRelation, Ended_FormerPeerIsToldToo) {
  Move(other_);
  const CoapMessage there = Next(other_);
  other_.Send(AnswerOf(there, Code(2, 5)).AddUint(kOptObserve, 1).PayloadText("y"));
  Ticks(20);
  EXPECT_EQ(UnObserve(key_), 0U);  // names the former one
  for (RawPeer *peer : {&other_, &peer_}) {
    const CoapMessage cancel = Next(*peer);
    EXPECT_EQ(cancel.token, first_.token);
    EXPECT_EQ(cancel.Values(kOptObserve), std::vector<Bytes>{{1}});
    if (cancel.type == CoapType::kCon) peer->Send(AckOf(cancel));
  }
}

TEST_F(MovedRelation, FormerSessionAges_PeerIsTold) {
  Move(other_);
  other_.Send(AckOf(Next(other_)));
  for (int i = 0; i < 95; ++i) host_.AdvanceMs(1000);
  const CoapMessage cancel = Next(peer_);
  EXPECT_EQ(cancel.token, first_.token);
  EXPECT_EQ(cancel.Values(kOptObserve), std::vector<Bytes>{{1}});
}

class ClientCheckCode : public ClientRequest {
 protected:
  void SetUp() override { Register(key_, &app_); }

  // Renew sends the relation again in a mode and returns what went out.
  CoapMessage Renew(decltype(&COAP_RpcCliObserveReq) call) {
    const CoapRpcCliReqParam param = ParamOf(1);
    const CoapRpcCliAddr addr = PeerAddr();
    EXPECT_EQ(call(Ctx(), &key_, &param, &addr), 0U);
    CoapMessage request = Next();
    peer_.Send(AckOf(request));
    return request;
  }

  void Learn(uint64_t checkCode) {
    COAP_RpcCliFindUriVtbl(Ctx()->cli, &key_)->checkCode = checkCode;
  }

  App app_;
  CoapRpcUriKey key_ = KeyOf("a", COAP_RPC_CON, 1);
};

TEST_F(ClientCheckCode, Verify_SendsTheCodeFromTheSecondCallOnAndOnlyOnce) {
  Learn(0xFFFFFFFFFFFFFFFF);
  EXPECT_FALSE(Renew(COAP_RpcCliObserveReqVerify).Has(kOptUriQuery));
  const CoapMessage second = Renew(COAP_RpcCliObserveReqVerify);
  EXPECT_EQ(second.Values(kOptUriQuery),
            std::vector<Bytes>{BytesOf("_ual-checkcode=18446744073709551615")});
  EXPECT_EQ(second.options.back().number, kOptUriQuery);
  EXPECT_EQ(ReqOf(key_)->mode, 0U);
  EXPECT_FALSE(Renew(COAP_RpcCliObserveReq).Has(kOptUriQuery));
}

TEST_F(ClientCheckCode, Batch_SendsTheCode0) {
  Learn(12345);
  Renew(COAP_RpcCliObserveReqBatch);
  EXPECT_EQ(Renew(COAP_RpcCliObserveReqBatch).Values(kOptUriQuery),
            std::vector<Bytes>{BytesOf("_ual-checkcode=0")});
}

TEST_F(ClientCheckCode, VerifyWithNothingLearnt_SendsTheCode0) {
  Renew(COAP_RpcCliObserveReq);
  EXPECT_EQ(Renew(COAP_RpcCliObserveReqVerify).Values(kOptUriQuery),
            std::vector<Bytes>{BytesOf("_ual-checkcode=0")});
}

TEST_F(ClientCheckCode, ETagOfAResponse_IsTheCodeOfTheNextVerify) {
  const CoapMessage request = Renew(COAP_RpcCliObserveReq);
  peer_.Send(Separate(CoapType::kCon, 900, request.token, "a")
                 .AddUint(kOptObserve, 2)
                 .Add(kOptEtag, {0x01, 0x00, 0x02})
                 .PayloadText("x"));
  EXPECT_EQ(Next().type, CoapType::kAck);
  EXPECT_EQ(CheckCodeOf(key_), 65538U);
  EXPECT_EQ(Renew(COAP_RpcCliObserveReqVerify).Values(kOptUriQuery),
            std::vector<Bytes>{BytesOf("_ual-checkcode=65538")});
}

TEST_F(ClientRequest, Cancel_SendsTheRelationsTokenWithObserve1) {
  App app;
  const CoapRpcUriKey key = KeyOf("a", COAP_RPC_CON, 1);
  Register(key, &app);
  EXPECT_EQ(Observe(key), 0U);
  const CoapMessage request = Next();
  peer_.Send(AnswerOf(request, Code(2, 1)).AddUint(kOptObserve, 1));
  Ticks(20);
  EXPECT_EQ(UnObserve(key), 0U);
  EXPECT_TRUE(
      host_.HasLog("[CoapRpc]cancel observe request, uri:a, observe:1, msgType:0, codeType:1.\n"));
  const CoapMessage cancel = Next();
  EXPECT_EQ(cancel.type, CoapType::kCon);
  EXPECT_EQ(cancel.code, kCodeGet);
  EXPECT_EQ(cancel.token, request.token);
  EXPECT_EQ(cancel.Values(kOptObserve), std::vector<Bytes>{{1}});
  EXPECT_EQ(cancel.Path(), "a");
  EXPECT_EQ(ReqOf(key), nullptr);
  EXPECT_EQ(SessionOf(PeerAddr()), nullptr);
  EXPECT_TRUE(host_.HasLog("[CoapRpc]del session success, src:0x7f000001, dst:0x7f000002, port:" +
                           std::to_string(peer_.Local().port) + ".\n"));
  peer_.Send(AckOf(cancel));
}

TEST_F(ClientRequest, CancelOfWhatWasNeverSent_SendsNothing) {
  App app;
  const CoapRpcUriKey key = KeyOf("a", COAP_RPC_CON, 1);
  Register(key, &app);
  EXPECT_EQ(Observe(key), 0U);
  EXPECT_EQ(UnObserve(key), 0U);
  EXPECT_TRUE(IsSilent());
}

TEST_F(ClientRequest, DynamicMac_DrawsATokenForEverySend) {
  const FixedRandom random;
  App app;
  const CoapRpcUriKey key = KeyOf("terminals/dynamic-mac", COAP_RPC_NON, 0, COAP_RPC_BROADCAST);
  Register(key, &app);
  EXPECT_EQ(Call(key), 0U);
  EXPECT_EQ(Call(key), 0U);
  const CoapMessage first = Next();
  const CoapMessage second = Next();
  EXPECT_EQ(first.token.size(), 5U);
  EXPECT_EQ(second.token.size(), 5U);
  EXPECT_NE(first.token, second.token);
  EXPECT_EQ(first.Path(), "terminals/dynamic-mac");
}

TEST_F(ClientRequest, Unicast_LeavesFromWhereTheStackLikes) {
  const CoapRpcUriKey key = KeyOf("a", COAP_RPC_NON, 0, COAP_RPC_UNICAST);
  EXPECT_EQ(CallFrom(0x7F000003, COAP_RpcCliNonReq, key), 0U);
  Next();
  EXPECT_EQ(peer_.Datagrams()[0].other.host, "127.0.0.1");
  EXPECT_TRUE(host_.HasLog("try create unicast session."));
  EXPECT_TRUE(host_.HasLog("[CoapRpc]add session success, src:0x7f000003, dst:0x7f000002, port:" +
                           std::to_string(peer_.Local().port) + ".\n"));
}

TEST_F(ClientRequest, Broadcast_LeavesFromTheSourceAddress) {
  const CoapRpcUriKey key = KeyOf("a", COAP_RPC_NON, 0, COAP_RPC_BROADCAST);
  EXPECT_EQ(CallFrom(0x7F000003, COAP_RpcCliNonReq, key), 0U);
  Next();
  EXPECT_EQ(peer_.Datagrams()[0].other.host, "127.0.0.3");
  EXPECT_TRUE(host_.HasLog("try create broadcast session."));
}

TEST_F(ClientRequest, FirstCallOfASession_DecidesItsSource) {
  const CoapRpcUriKey unicast = KeyOf("a", COAP_RPC_NON, 0, COAP_RPC_UNICAST);
  const CoapRpcUriKey broadcast = KeyOf("a", COAP_RPC_NON, 0, COAP_RPC_BROADCAST);
  const std::vector<std::pair<uint32_t, const CoapRpcUriKey *>> calls = {
      {0x7F000003, &unicast}, {0x7F000003, &broadcast}, {0x7F000004, &broadcast},
      {0x7F000004, &unicast}};
  for (const auto &[source, key] : calls) {
    EXPECT_EQ(CallFrom(source, COAP_RpcCliNonReq, *key), 0U);
    Next();
  }
  std::vector<std::string> sources;
  for (const auto &datagram : peer_.Datagrams()) sources.push_back(datagram.other.host);
  EXPECT_EQ(sources,
            (std::vector<std::string>{"127.0.0.1", "127.0.0.1", "127.0.0.4", "127.0.0.4"}));
}

TEST_F(ClientRequest, BroadcastFromAForeignAddress_IsRetriedAndReported) {
  const CoapRpcUriKey key = KeyOf("a", COAP_RPC_CON, 0, COAP_RPC_BROADCAST);
  constexpr uint32_t kForeign = 0xC0000201;  // 192.0.2.1 is nobody's
  EXPECT_EQ(CallFrom(kForeign, COAP_RpcCliConReq, key), 1900001103U);
  const std::vector<LogRecord> lines = host_.LogsOf("COAP_RpcCliSendRequest");
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_EQ(lines[0].text,
            "[CoapRpc]session not exist, uri:a, observe:0, msgType:0, codeType:1.\n");
  EXPECT_EQ(lines[0].line, 1071U);
  host_.AdvanceMs(1001);
  EXPECT_EQ(host_.LogsOf("COAP_RpcCliSendRequest").size(), 2U);
}

TEST_F(ClientRequest, Ipv6Peer_GetsItsAddressWithoutBrackets) {
  if (!HasIpv6Loopback()) GTEST_SKIP() << "no ::1 on this machine";
  RawPeer peer{UdpAddress{"::1", 0}};
  App app;
  const CoapRpcUriKey key = KeyOf("a");
  Register(key, &app);
  const CoapRpcCliReqParam param = ParamOf(1);
  CoapRpcCliAddr addr = {};
  addr.srcIp.family = addr.dstIp.family = COAP_RPC_IPV6;
  addr.dstIp.addr.ipv6[15] = 1;
  addr.dstPort = peer.Local().port;
  addr.codeType = COAP_RPC_GET;
  EXPECT_EQ(COAP_RpcCliConReq(Ctx(), &key, &param, &addr), 0U);
  const CoapMessage request = Next(peer);
  EXPECT_EQ(request.Values(kOptUriHost), std::vector<Bytes>{BytesOf("::1")});
  EXPECT_TRUE(host_.HasLog("[CoapRpc]cli create session success, src:::, dst:::1, port:" +
                           std::to_string(peer.Local().port) + ".\n"));
  peer.Send(AnswerOf(request).PayloadText("six"));
  Ticks(11);
  ASSERT_EQ(app.responses.size(), 1U);
  EXPECT_EQ(app.responses[0].payload, "six");
}

TEST_F(ClientRequest, InvalidTypesAndCodes_AreNotSent) {
  App app;
  for (const uint32_t msgType : {4U, 7U, 0xFFFFFFFFU}) {
    const CoapRpcUriKey key = KeyOf("a", msgType);
    Register(key, &app);
    EXPECT_EQ(Call(key), 1900001103U) << msgType;
  }
  const CoapRpcUriKey key = KeyOf("a", COAP_RPC_NON);
  Register(key, &app);
  for (const uint32_t code : {256U, 0x80000001U}) EXPECT_EQ(Call(key, 1, code), 1900001103U);
  EXPECT_TRUE(IsSilent());
}

TEST_F(ClientRequest, EveryCodeByte_DoesNoHarm) {
  App app;
  const CoapRpcUriKey key = KeyOf("a", COAP_RPC_NON);
  Register(key, &app);
  for (uint32_t code = 0; code <= 255; ++code) Call(key, 1, code);
  Ticks(30);
  SUCCEED();
}

TEST_F(ClientRequest, UriUnderDiagnosis_IsWrittenToTheSystemLog) {
  App app;
  app.out = "body";
  const CoapRpcUriKey key = KeyOf("a");
  Register(key, &app);
  ASSERT_NE(COAP_RpcLogRegUri(Ctx(), "a"), nullptr);
  EXPECT_EQ(Call(key), 0U);
  const std::vector<LogRecord> lines = host_.Logs().OfKind(LogKind::kSysLog);
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_EQ(lines[0].level, 1U);
  EXPECT_EQ(lines[0].text,
            "[CoapRpc]send request success, time=01-02 03:04:05, "
            "srcip--destip:127.0.0.1-127.0.0.2 uri:a, len:4, payload:body.");
}

TEST_F(ClientRequest, BuildReqThatCallsBack_DoesNoHarm) {
  App app;
  app.out = "outer";
  App inner;
  inner.out = "inner";
  const CoapRpcUriKey key = KeyOf("a", COAP_RPC_NON);
  const CoapRpcUriKey innerKey = KeyOf("b", COAP_RPC_NON);
  Register(key, &app);
  Register(innerKey, &inner);
  app.onBuild = [&] { EXPECT_EQ(Call(innerKey, 2), 0U); };
  EXPECT_EQ(Call(key), 0U);
  EXPECT_EQ(Next().Text(), "inner");
  EXPECT_EQ(Next().Text(), "outer");
}

}  // namespace
}  // namespace coap_rpc_test
