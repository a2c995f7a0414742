// Calls: what goes out, byte by byte, and what an answer comes to.
#include <set>

#include "client_calls.h"
#include "fixed_random.h"

namespace coap_rpc_test {
namespace {

TEST_F(ClientCalls, Get_IsTokenAndPath) {
  Make(Get("a/b"));
  const CoapMessage request = Next();
  CoapMessage expected = Request(CoapType::kCon, kCodeGet, request.messageId, request.token);
  expected.AddPath("a/b");
  EXPECT_EQ(request, expected);
  EXPECT_EQ(request.token.size(), 8U);
  EXPECT_EQ(told_.size(), 0U);
}

TEST_F(ClientCalls, Answer_IsToldWithAllItSays) {
  const uint64_t id = Make(Get("a/b"));
  CoapMessage answer = Piggyback(Next(), Code(2, 1));
  answer.AddUint(kOptContentFormat, 50).AddUint(kOptMaxAge, 7).Add(kOptEtag, {1, 2, 3});
  answer.AddText(kOptLocationPath, "x").AddText(kOptLocationPath, "y").PayloadText("hello");
  Say(answer);
  ASSERT_EQ(told_.size(), 1U);
  const Told &told = told_[0];
  EXPECT_EQ(told.rsp.id, id);
  EXPECT_EQ(told.rsp.status, COAP_RPC_CALL_ANSWERED);
  EXPECT_EQ(told.rsp.isLast, 1U);
  EXPECT_EQ(told.rsp.code, 201U);
  EXPECT_EQ(told.rsp.has, COAP_RPC_CALL_HAS_FORMAT);
  EXPECT_EQ(told.rsp.contentFormat, 50U);
  EXPECT_EQ(told.rsp.maxAge, 7U);
  EXPECT_EQ(Bytes(told.rsp.etag.bytes, told.rsp.etag.bytes + told.rsp.etag.len), Bytes({1, 2, 3}));
  EXPECT_EQ(told.location, "x/y");
  EXPECT_EQ(told.payload, "hello");
  EXPECT_GT(told.rsp.rttUs, 0U);
  EXPECT_EQ(NumCalls(), 0U);
  EXPECT_TRUE(IsSilent());
}

TEST_F(ClientCalls, ErrorIsAnAnswer) {
  Make(Get("a"));
  Say(Piggyback(Next(), Code(4, 4)));
  ASSERT_EQ(Statuses(), Ends{COAP_RPC_CALL_ANSWERED});
  EXPECT_EQ(told_[0].rsp.code, 404U);
  EXPECT_EQ(told_[0].rsp.maxAge, 60U);
  EXPECT_EQ(told_[0].rsp.has, 0U);
  EXPECT_FALSE(told_[0].hasLocation);
  EXPECT_EQ(told_[0].rsp.payload, nullptr);
}

TEST_F(ClientCalls, EveryOption_InOrderOfNumbers) {
  const CoapRpcCallEtag etags[] = {{2, {0xAA, 0xBB}}, {8, {1, 2, 3, 4, 5, 6, 7, 8}}};
  const CoapRpcCallEtag ifMatch[] = {{0, {}}, {1, {9}}};
  CoapRpcCall call = Post("/p//q/", "body");
  call.method = COAP_RPC_PUT;
  call.query = "a=1&&b";
  call.has = COAP_RPC_CALL_HAS_FORMAT | COAP_RPC_CALL_HAS_ACCEPT | COAP_RPC_CALL_HAS_IF_NONE_MATCH;
  call.contentFormat = 0;
  call.accept = 65535;
  call.etags = etags;
  call.numEtags = 2;
  call.ifMatch = ifMatch;
  call.numIfMatch = 2;
  Make(call);
  const CoapMessage request = Next();
  CoapMessage expected = Request(CoapType::kCon, kCodePut, request.messageId, request.token);
  expected.Add(kOptIfMatch).Add(kOptIfMatch, {9}).Add(kOptEtag, {0xAA, 0xBB});
  expected.Add(kOptEtag, {1, 2, 3, 4, 5, 6, 7, 8}).Add(kOptIfNoneMatch);
  expected.AddText(kOptUriPath, "p").Add(kOptUriPath).AddText(kOptUriPath, "q").Add(kOptUriPath);
  expected.Add(kOptContentFormat).AddText(kOptUriQuery, "a=1").Add(kOptUriQuery);
  expected.AddText(kOptUriQuery, "b").AddUint(kOptAccept, 65535).PayloadText("body");
  EXPECT_EQ(request, expected);
}

TEST_F(ClientCalls, Format_IsNotSentWithoutPayload) {
  CoapRpcCall call = Get("a");
  call.has = COAP_RPC_CALL_HAS_FORMAT;
  call.contentFormat = 50;
  Make(call);
  EXPECT_FALSE(Next().Has(kOptContentFormat));
}

TEST_F(ClientCalls, NoPath_IsNoOption) {
  for (const char *path : {"", "/", static_cast<const char *>(nullptr)}) {
    Make(Get(path));
    const CoapMessage request = Next();
    EXPECT_TRUE(request.options.empty()) << request;
    Say(Piggyback(request));
  }
}

TEST_F(ClientCalls, EveryMethod) {
  for (uint32_t method = COAP_RPC_GET; method <= COAP_RPC_IPATCH; ++method) {
    CoapRpcCall call = Get("a");
    call.method = method;
    Make(call);
    const CoapMessage request = Next();
    EXPECT_EQ(request.code, method);
    Say(Piggyback(request));
  }
  EXPECT_EQ(told_.size(), 7U);
}

TEST_F(ClientCalls, Non_IsSentOnceAndAnswered) {
  CoapRpcCall call = Get("a");
  call.isNon = 1;
  Make(call);
  const CoapMessage request = Next();
  EXPECT_EQ(request.type, CoapType::kNon);
  Wait(30'000);
  EXPECT_EQ(told_.size(), 0U);
  Say(Apart(CoapType::kNon, 7, request));
  EXPECT_EQ(Statuses(), Ends{COAP_RPC_CALL_ANSWERED});
}

TEST_F(ClientCalls, TokensDiffer) {
  std::set<Bytes> tokens;
  for (int i = 0; i < 100; ++i) {
    Make(Get("a"));
    const CoapMessage request = Next();
    tokens.insert(request.token);
    Say(Piggyback(request));
  }
  EXPECT_EQ(tokens.size(), 100U);
}

TEST_F(ClientCalls, TokensDiffer_WhateverTheRandomNumbers) {
  const FixedRandom random(0);
  COAP_RpcSetNstart(Ctx(), 10);
  std::set<Bytes> tokens;
  for (int i = 0; i < 10; ++i) Make(Get("a"));
  for (int i = 0; i < 10; ++i) tokens.insert(Next().token);
  EXPECT_EQ(tokens.size(), 10U);
  EXPECT_EQ(tokens.count(Bytes(8)), 0U);
}

TEST_F(ClientCalls, LargePayload_GoesInBlocks) {
  std::string payload(5000, 'x');
  for (size_t i = 0; i < payload.size(); ++i) payload[i] = static_cast<char>('a' + i % 26);
  Make(Post("p", payload));
  std::string got;
  CoapMessage request;
  std::optional<CoapBlock> block;
  do {
    request = Next();
    block = request.Block(kOptBlock1);
    ASSERT_TRUE(block) << request;
    got += request.Text();
    EXPECT_EQ(told_.size(), 0U);
    CoapMessage answer = Piggyback(request, block->more ? Code(2, 31) : Code(2, 4));
    peer_.Send(answer.AddBlock(kOptBlock1, *block));
  } while (block->more);
  Ticks(3);
  EXPECT_EQ(got, payload);
  ASSERT_EQ(Statuses(), Ends{COAP_RPC_CALL_ANSWERED});
  EXPECT_EQ(told_[0].rsp.code, 204U);
  EXPECT_EQ(NumDropped(), 0U);
}

TEST_F(ClientCalls, LargeAnswer_IsToldWhole) {
  std::string body(1000, 'x');
  for (size_t i = 0; i < body.size(); ++i) body[i] = static_cast<char>('a' + i % 26);
  Make(Get("p"));
  for (uint32_t num = 0; num * 64 < body.size(); ++num) {
    const CoapMessage request = Next();
    EXPECT_EQ(request.Path(), "p");
    const CoapBlock block{num, (num + 1) * 64 < body.size(), 2};
    EXPECT_EQ(told_.size(), 0U);
    peer_.Send(
        Piggyback(request).AddBlock(kOptBlock2, block).PayloadText(body.substr(num * 64, 64)));
  }
  Ticks(3);
  ASSERT_EQ(Statuses(), Ends{COAP_RPC_CALL_ANSWERED});
  EXPECT_EQ(told_[0].payload, body);
}

TEST_F(ClientCalls, LargeAnswer_OfEveryNonMethod) {
  const std::string block(64, 'x');
  for (uint32_t method = COAP_RPC_GET; method <= COAP_RPC_IPATCH; ++method) {
    CoapRpcCall call = Get("p");
    call.method = method;
    call.isNon = 1;
    Make(call);
    const CoapMessage first = Next();
    const CoapMessage answer = Apart(CoapType::kNon, 7, first).AddBlock(kOptBlock2, {0, true, 2});
    peer_.Send(CoapMessage(answer).PayloadText(block));
    const CoapMessage second = Next();
    EXPECT_EQ(second.code, method);
    ASSERT_TRUE(second.Has(kOptBlock2)) << second;
    Say(Apart(CoapType::kNon, 8, second).AddBlock(kOptBlock2, {1, false, 2}).PayloadText("end"));
    ASSERT_EQ(told_.size(), method);
    EXPECT_EQ(told_.back().payload, block + "end");
  }
  EXPECT_EQ(NumCalls(), 0U);
}

TEST_F(ClientCalls, AnswerWithoutEnd_Is408) {
  Make(Get("p"));
  const CoapMessage request = Next();
  const std::string block(1024, 'x');
  peer_.Send(Piggyback(request).AddBlock(kOptBlock2, {0, true, 6}).PayloadText(block));
  const CoapMessage next = Next();
  // The peer says that it sends a block beyond the limit.
  Say(Piggyback(next)
          .AddBlock(kOptBlock2, {COAP_RPC_MAX_CALL_PAYLOAD / 1024, true, 6})
          .PayloadText(block));
  ASSERT_EQ(Statuses(), Ends{COAP_RPC_CALL_ANSWERED});
  EXPECT_EQ(told_[0].rsp.code, 408U);
  EXPECT_EQ(NumCalls(), 0U);
  EXPECT_TRUE(IsSilent());
}

TEST_F(ClientCalls, SeparateAnswer_IsAcknowledged) {
  Make(Get("a"));
  const CoapMessage request = Next();
  Say(AckOf(request));
  Wait(50'000);
  EXPECT_EQ(told_.size(), 0U);
  const CoapMessage answer = Apart(CoapType::kCon, 77, request).PayloadText("late");
  peer_.Send(answer);
  EXPECT_EQ(Next(), AckOf(answer));
  ASSERT_EQ(Statuses(), Ends{COAP_RPC_CALL_ANSWERED});
  EXPECT_EQ(told_[0].payload, "late");
}

// What is wrong with a call is said, and nothing is sent or kept.
class BadCalls : public ClientCalls {
 protected:
  void Expect(const CoapRpcCall &call, uint32_t code) {
    EXPECT_EQ(Try(call), code);
    ExpectNothing();
  }
  void Expect(const CoapRpcCallAddr &addr, uint32_t code) {
    EXPECT_EQ(Try(Get("a"), addr), code);
    ExpectNothing();
  }
  void ExpectNothing() {
    EXPECT_EQ(NumCalls(), 0U);
    EXPECT_TRUE(IsSilent());
    EXPECT_EQ(told_.size(), 0U);
  }
};

TEST_F(BadCalls, Null) {
  const CoapRpcCallAddr addr = To(peer_);
  const CoapRpcCall call = Get("a");
  CoapRpcCall deaf = call;
  deaf.onRsp = nullptr;
  const auto calls = {COAP_RpcCall, COAP_RpcCallObserve};
  for (const auto fn : calls) {
    EXPECT_EQ(fn(nullptr, &addr, &call, &id_), 1900001484U);
    EXPECT_EQ(fn(Ctx(), nullptr, &call, &id_), 1900001484U);
    EXPECT_EQ(fn(Ctx(), &addr, nullptr, &id_), 1900001484U);
    EXPECT_EQ(fn(Ctx(), &addr, &call, nullptr), 1900001484U);
    EXPECT_EQ(fn(Ctx(), &addr, &deaf, &id_), 1900001484U);
  }
  EXPECT_EQ(COAP_RpcCallCancel(nullptr, 1), 1900001501U);
  EXPECT_EQ(COAP_RpcGetCallNum(nullptr), 0U);
  EXPECT_EQ(COAP_RpcGetDroppedAnswerNum(nullptr), 0U);
  ExpectNothing();
}

TEST_F(BadCalls, Address) {
  CoapRpcCallAddr addr = To(peer_);
  addr.dstIp.family = 3;
  Expect(addr, 1900001485);
  addr = To(peer_);
  addr.srcIp.family = COAP_RPC_IPV6;
  Expect(addr, 1900001485);
  for (const uint32_t ip : {0U, 0xE0000001U, 0xFFFFFFFFU}) {
    addr = To(peer_);
    addr.dstIp.addr.ipv4 = ip;
    Expect(addr, 1900001485);
  }
  for (const uint32_t port : {0U, 65536U, 0xFFFFFFFFU}) {
    addr = To(peer_);
    addr.dstPort = port;
    Expect(addr, 1900001486);
  }
  addr = To(peer_);
  addr.dstIp.family = COAP_RPC_IPV6;
  addr.dstIp.addr.ipv6[0] = 0xFF;
  Expect(addr, 1900001485);
}

TEST_F(BadCalls, SourceOfAnotherMachine_IsToldAtOnce) {
  CoapRpcCallAddr addr = To(peer_);
  addr.srcIp.family = COAP_RPC_IPV4;
  addr.srcIp.addr.ipv4 = 0xC0000201;  // 192.0.2.1, of documents
  Expect(addr, 1900001495);
}

TEST_F(BadCalls, Method) {
  for (const uint32_t method : {0U, 8U, 0x41U, 256U, 0xFFFFFFFFU}) {
    CoapRpcCall call = Get("a");
    call.method = method;
    Expect(call, 1900001487);
  }
}

TEST_F(BadCalls, Path) {
  const std::string longest(255, 'x');
  Expect(Get(("a/" + longest + "x").c_str()), 1900001488);
  Make(Get(("/" + longest + "/b").c_str()));
  EXPECT_EQ(Next().Path(), longest + "/b");
}

TEST_F(BadCalls, Query) {
  CoapRpcCall call = Get("a");
  const std::string argument(255, 'q');
  const std::string whole =
      argument + "&" + argument + "&" + argument + "&" + argument + "&0123456789";
  const std::string one(1034, 'q');
  for (const std::string &query : {one, argument + "q", "a&" + argument + "q"}) {
    call.query = query.c_str();
    Expect(call, 1900001489);
  }
  ASSERT_EQ(whole.size(), 1034U);
  call.query = whole.c_str();
  Make(call);
  EXPECT_EQ(Next().Values(kOptUriQuery).size(), 5U);
}

TEST_F(BadCalls, OptionsBeyondAMessage) {
  CoapRpcCall call = Get("a");
  const std::string argument(200, 'q');
  std::string query = argument;
  for (int i = 0; i < 5; ++i) query += "&" + argument;
  call.query = query.c_str();
  Expect(call, 1900001492);
}

TEST_F(BadCalls, EtagsAndFormats) {
  const CoapRpcCallEtag empty = {0, {}};
  const CoapRpcCallEtag tooLong = {9, {}};
  CoapRpcCall call = Get("a");
  call.numEtags = 1;
  for (const CoapRpcCallEtag *tag :
       {static_cast<const CoapRpcCallEtag *>(nullptr), &empty, &tooLong}) {
    call.etags = tag;
    Expect(call, 1900001490);
  }
  call = Get("a");
  call.numIfMatch = 1;
  for (const CoapRpcCallEtag *tag : {static_cast<const CoapRpcCallEtag *>(nullptr), &tooLong}) {
    call.ifMatch = tag;
    Expect(call, 1900001490);
  }
  call = Get("a");
  call.has = COAP_RPC_CALL_HAS_ACCEPT;
  call.accept = 65536;
  Expect(call, 1900001490);
  call = Post("a", "x");
  call.has = COAP_RPC_CALL_HAS_FORMAT;
  call.contentFormat = 65536;
  Expect(call, 1900001490);
}

TEST_F(BadCalls, Payload) {
  CoapRpcCall call = Post("a", "x");
  call.payloadLen = COAP_RPC_MAX_CALL_PAYLOAD + 1;
  Expect(call, 1900001491);
  call.payload = nullptr;
  call.payloadLen = 1;
  Expect(call, 1900001491);
}

TEST_F(BadCalls, ObserveOfAnythingButGet) {
  const CoapRpcCallAddr addr = To(peer_);
  CoapRpcCall call = Get("a");
  call.method = COAP_RPC_FETCH;
  EXPECT_EQ(COAP_RpcCallObserve(Ctx(), &addr, &call, &id_), 1900001487U);
  call = Post("a", "x");
  call.method = COAP_RPC_GET;
  EXPECT_EQ(COAP_RpcCallObserve(Ctx(), &addr, &call, &id_), 1900001491U);
  ExpectNothing();
}

TEST_F(BadCalls, CancelOfUnknown) {
  EXPECT_EQ(COAP_RpcCallCancel(Ctx(), 1), 1900001502U);
  const uint64_t id = Make(Get("a"));
  EXPECT_EQ(COAP_RpcCallCancel(Ctx(), id + 1), 1900001502U);
  EXPECT_EQ(COAP_RpcCallCancel(Ctx(), 0), 1900001502U);
  Say(Piggyback(Next()));
  EXPECT_EQ(COAP_RpcCallCancel(Ctx(), id), 1900001502U);
  EXPECT_EQ(told_.size(), 1U);
}

}  // namespace
}  // namespace coap_rpc_test
