// Requests to direct entries that arrive again.
#include "coap_svc/rpc/coap_rpc_ext.h"
#include "coap_svc/rpc/libadapter/direct/coap_rpc_lib_direct_data.h"
#include "direct_server.h"

namespace coap_rpc_test {
namespace {

constexpr uint16_t kRequestTag = 292;  // RFC 9175

class Once : public Direct {
 protected:
  uint32_t NumRemembered() const { return Ctx()->lib->direct->once.num; }
  size_t NumBytes() const { return Ctx()->lib->direct->once.numBytes; }

  // AskNow asks without a move of the clock, so that nothing expires.
  void AskNow(const CoapMessage &request) {
    peer_.Send(request);
    EXPECT_TRUE(peer_.ReceiveMessage([this] { COAP_RpcProcIo(Ctx()); }));
  }
};

TEST_F(Once, EachUnsafeMethod_SameAnswerNoSecondCall) {
  ServeDirect(kModeSync, ParamWith(COAP_RPC_ALLOW_ALL));
  for (const uint8_t method : {kCodePost, kCodePut, kCodeDelete, kCodePatch, kCodeIpatch}) {
    for (const CoapType type : {CoapType::kCon, CoapType::kNon}) {
      app_.payloads.clear();
      app_.out = "first";
      app_.onCall = [&] { COAP_RpcSerSetAnswer(Ctx(), 201, 50); };
      const CoapMessage request = Message(method, "q", type);
      const CoapMessage answer = Ask(request);
      app_.out = "second";
      EXPECT_EQ(ToBytes(Ask(request)), ToBytes(answer));
      EXPECT_EQ(ToBytes(Ask(request)), ToBytes(answer));
      EXPECT_EQ(app_.payloads.size(), 1u) << int{method};
    }
  }
}

TEST_F(Once, GetAndFetch_AreAskedAgain) {
  ServeDirect(kModeSync, ParamWith(COAP_RPC_ALLOW_ALL));
  for (const uint8_t method : {kCodeGet, kCodeFetch}) {
    app_.payloads.clear();
    const CoapMessage request = Message(method, "q").AddUint(kOptContentFormat, 0);
    Ask(request);
    Ask(request);
    EXPECT_EQ(app_.payloads.size(), 2u);
  }
  EXPECT_EQ(NumRemembered(), 0u);
}

TEST_F(Once, OtherNumberTokenPortOrMethod_IsAnotherRequest) {
  ServeDirect(kModeSync, ParamWith(COAP_RPC_ALLOW_ALL));
  RawPeer other;
  other.SetRemote(Address());
  CoapMessage post = Message(kCodePost, "q");
  Ask(post);
  Ask(other, post);
  post.token = {0xAB};
  Ask(post);
  post.token = {0xAB, 0xCE};
  Ask(post);
  ++post.messageId;
  Ask(post);
  post.code = kCodePut;
  Ask(post);
  EXPECT_EQ(app_.payloads.size(), 6u);
  EXPECT_EQ(NumRemembered(), 6u);
}

TEST_F(Once, ManyTokensUnderOneNumber_TheLatestAreKnown) {
  constexpr uint8_t kNumTokens = 100;
  ServeDirect(kModeSync);
  CoapMessage post = Message(kCodePost, "q");
  const auto askWith = [&](uint8_t token) {
    post.token = {token};
    AskNow(post);
  };
  for (uint8_t token = 0; token < kNumTokens; ++token) askWith(token);
  askWith(kNumTokens - 1);
  askWith(kNumTokens - 50);
  EXPECT_EQ(app_.payloads.size(), size_t{kNumTokens});
  askWith(0);  // a chain is read so far only
  EXPECT_EQ(app_.payloads.size(), size_t{kNumTokens} + 1);
}

TEST_F(Once, OtherPeerWithTheSamePort_IsAnotherRequest) {
  ServeDirect(kModeSync);
  const uint16_t port = FindFreeUdpPort(OwnHost(Role::kPeer));
  RawPeer one({OwnHost(Role::kPeer), port});
  RawPeer other({OwnHost(Role::kOtherPeer), port});
  const CoapMessage post = Message(kCodePost);
  for (RawPeer *peer : {&one, &other, &one, &other}) {
    peer->SetRemote(Address());
    Ask(*peer, post);
  }
  EXPECT_EQ(app_.payloads.size(), 2u);
}

TEST_F(Once, PeersOfIpv6_AreToldApartAndKnownAgain) {
  if (!HasIpv6Loopback()) GTEST_SKIP() << "no ::1 on this machine";
  CoapRpcSerListenAddr addr = {};
  addr.listenAddr.family = COAP_RPC_IPV6;
  addr.listenAddr.addr.ipv6[15] = 1;
  addr.port = FindFreeUdpPort("::1");
  const CoapRpcSerVtblReg reg = DirectReg(kModeSync);
  EXPECT_EQ(COAP_RpcSerRegVtbl(Ctx(), &key_, &reg, nullptr), 0u);
  EXPECT_EQ(COAP_RpcSerSetDirect(Ctx(), &key_, nullptr), 0u);
  EXPECT_EQ(COAP_RpcSerSetUri(Ctx(), &key_, &addr), 0u);
  RawPeer one({"::1", 0});
  RawPeer other({"::1", 0});
  CoapMessage post = Message(kCodePost);
  for (const Bytes &token :
       {Bytes{}, Bytes{1, 2, 3, 4, 5, 6, 7, 8}, Bytes{1, 2, 3, 4, 5, 6, 7, 9}}) {
    app_.payloads.clear();
    post.token = token;
    for (RawPeer *peer : {&one, &other, &one, &other}) {
      peer->SetRemote({"::1", addr.port});
      Ask(*peer, post);
    }
    EXPECT_EQ(app_.payloads.size(), 2u);
  }
}

TEST_F(Once, ErrorsAreRememberedToo) {
  ServeDirect(kModeSync);
  app_.result = -5;
  const CoapMessage post = Message(kCodePost);
  EXPECT_EQ(Ask(post).code, Code(5, 0));
  app_.result = 0;
  EXPECT_EQ(Ask(post).code, Code(5, 0));
  EXPECT_EQ(app_.payloads.size(), 1u);
}

TEST_F(Once, KnownForTheLifetimeOfTheType) {
  ServeDirect(kModeSync);
  const std::pair<CoapType, uint64_t> kCases[] = {{CoapType::kCon, kExchangeLifetimeMs},
                                                  {CoapType::kNon, kNonLifetimeMs}};
  for (const auto &[type, lifetimeMs] : kCases) {
    app_.payloads.clear();
    const CoapMessage post = Message(kCodePost, "q", type);
    Ask(post);
    const uint64_t sinceMs = TestHost::Process().ElapsedMs();
    host_.AdvanceMs(lifetimeMs - 1000);
    Ask(post);
    EXPECT_EQ(app_.payloads.size(), 1u);
    host_.AdvanceMs(lifetimeMs + 200 - (TestHost::Process().ElapsedMs() - sinceMs));
    Ask(post);
    EXPECT_EQ(app_.payloads.size(), 2u);
  }
  EXPECT_EQ(COAP_RpcGetForgottenNum(Ctx()), 0u);
}

TEST_F(Once, ExpiredRecordsAreFreedWithoutRequests) {
  ServeDirect(kModeSync);
  Ask(Message(kCodePost));
  EXPECT_EQ(NumRemembered(), 1u);
  host_.AdvanceMs(kExchangeLifetimeMs + 200);
  EXPECT_EQ(NumRemembered(), 0u);
  EXPECT_EQ(NumBytes(), 0u);
}

TEST_F(Once, LargeAnswer_FirstBlockAgainAndTheRest) {
  ServeDirect(kModeSync);
  app_.out = std::string(3000, 'x');
  const CoapMessage post = Message(kCodePost, "q");
  const CoapMessage first = Ask(post);
  EXPECT_EQ(ToBytes(Ask(post)), ToBytes(first));
  EXPECT_EQ(app_.payloads.size(), 1u);
  const CoapMessage last = Ask(Message(kCodePost).AddBlock(kOptBlock2, {2, false, 6}));
  EXPECT_EQ(last.payload.size(), 3000u - 2048u);
}

// ---- in blocks ----

class OnceBlocks : public Once {
 protected:
  static constexpr size_t kBlockSize = 1024;

  // BlockOf is block 0 or the last one of a body of two blocks, which a Request-Tag names.
  CoapMessage BlockOf(uint32_t num, uint32_t body) {
    CoapMessage block = Message(kCodePost).AddBlock(kOptBlock1, {num, num == 0, 6});
    block.token.push_back(static_cast<uint8_t>(num));
    block.AddUint(kRequestTag, body);
    return block.PayloadText(
        std::string(num == 0 ? kBlockSize : 100, static_cast<char>('a' + num)));
  }
};

TEST_F(OnceBlocks, BothBlocksAgainAfterAnotherBody_SameAnswersNoSecondCall) {
  ServeDirect(kModeSync);
  app_.out = "done";
  const CoapMessage first = BlockOf(0, 1);
  const CoapMessage last = BlockOf(1, 1);
  const CoapMessage toFirst = Ask(first);
  const CoapMessage toLast = Ask(last);
  EXPECT_EQ(toFirst.code, Code(2, 31));
  EXPECT_EQ(toLast.Text(), "done");
  Ask(BlockOf(0, 2));
  Ask(BlockOf(1, 2));
  EXPECT_EQ(app_.payloads.size(), 2u);
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(ToBytes(Ask(first)), ToBytes(toFirst));
    EXPECT_EQ(ToBytes(Ask(last)), ToBytes(toLast));
  }
  EXPECT_EQ(app_.payloads.size(), 2u);
}

// The block that completes the body is another one each time.
TEST_F(OnceBlocks, BothBlocksAgainInTheOtherOrder_NoSecondCall) {
  ServeDirect(kModeSync);
  const CoapMessage blocks[] = {BlockOf(0, 1), BlockOf(1, 1), BlockOf(0, 2), BlockOf(1, 2)};
  for (const int i : {0, 1, 3, 2, 1, 0, 2, 3, 0, 1, 3, 2}) {
    peer_.Send(blocks[i]);
    host_.AdvanceMs(100);
  }
  EXPECT_EQ(app_.payloads.size(), 2u);
}

TEST_F(OnceBlocks, OpenBody_BothAgain_NoSecondCall) {
  ServeDirect(kModeAsync);
  const CoapMessage first = BlockOf(0, 1);
  const CoapMessage last = BlockOf(1, 1);
  Ask(first);
  ExpectEmptyAck(Ask(last), last);
  EXPECT_EQ(Ask(first).code, Code(2, 31));
  ExpectEmptyAck(Ask(last), last);
  EXPECT_EQ(app_.payloads.size(), 1u);
}

TEST_F(OnceBlocks, FirstBlockThatWasRefused_IsAskedAgain) {
  ServeDirect(kModeSync);
  CoapMessage first = BlockOf(0, 1);
  first.payload.pop_back();
  EXPECT_EQ(Ask(first).code, Code(4, 0));
  EXPECT_EQ(NumRemembered(), 0u);
}

TEST_F(OnceBlocks, LastBlockOfTheAnswer_AgainForTheWholeLifetime) {
  ServeDirect(kModeSync);
  app_.out = std::string(3000, 'x');
  Ask(Message(kCodePost, "q"));
  const CoapMessage request = Message(kCodePost).AddBlock(kOptBlock2, {2, false, 6});
  const CoapMessage last = Ask(request);
  EXPECT_EQ(last.code, Code(2, 4));
  EXPECT_EQ(last.payload.size(), 3000u - 2048u);
  host_.AdvanceMs(kExchangeLifetimeMs - 2000);
  EXPECT_EQ(ToBytes(Ask(request)), ToBytes(last));
  EXPECT_EQ(app_.payloads.size(), 1u);
}

TEST_F(OnceBlocks, OfAnEntryThatIsNotDirect_AreNotRemembered) {
  ServeDirect(kModeSync);
  const CoapRpcUriKey other = KeyOf("other");
  Serve(other, DirectReg(kModeSync));
  CoapMessage first = Request(CoapType::kCon, kCodePost, ++mid_, {1}).AddPath("other");
  first.AddBlock(kOptBlock1, {0, true, 6}).PayloadText(std::string(kBlockSize, 'a'));
  EXPECT_EQ(Ask(first).code, Code(2, 31));
  EXPECT_EQ(NumRemembered(), 0u);
}

// ---- asynchronous ----

TEST_F(Once, OpenRequest_EmptyAckAgain) {
  ServeDirect(kModeAsync);
  for (const uint8_t method : {kCodePost, kCodeGet}) {
    const CoapMessage request = Message(method, "q");
    void *handle = AskOpen(request);
    ExpectEmptyAck(Ask(request), request);
    ExpectEmptyAck(Ask(request), request);
    Send(handle, "later");
    EXPECT_EQ(NextAnswer().Text(), "later");
  }
  EXPECT_EQ(app_.payloads.size(), 2u);
}

TEST_F(Once, OpenNonRequest_Silence) {
  ServeDirect(kModeAsync);
  const CoapMessage request = Message(kCodePost, "q", CoapType::kNon);
  AskOpen(request);
  peer_.Send(request);
  ExpectSilence(peer_);
  EXPECT_EQ(app_.payloads.size(), 1u);
}

TEST_F(Once, AnsweredSeparately_TheAnswerAgain) {
  ServeDirect(kModeAsync);
  const CoapMessage post = Message(kCodePost, "q");
  void *handle = AskOpen(post);
  COAP_RpcSerSetAsyncAnswer(Ctx(), handle, 201, 50);
  Send(handle, "{}");
  NextAnswer();
  EXPECT_EQ(Ask(post), AnswerTo(post, Code(2, 1), "{}").AddUint(kOptContentFormat, 50));
  EXPECT_EQ(app_.payloads.size(), 1u);
}

TEST_F(Once, AnsweredInTheCallback_TheAnswerAgain) {
  ServeDirect(kModeAsync);
  app_.onCall = [&] { Send(app_.handles.back(), "now"); };
  const CoapMessage post = Message(kCodePost, "q");
  const CoapMessage answer = Ask(post);
  EXPECT_EQ(Ask(post), answer);
  EXPECT_EQ(app_.payloads.size(), 1u);
}

TEST_F(Once, TimedOut_504Again) {
  ServeDirect(kModeAsync, ParamWith(0, 500));
  const CoapMessage post = Message(kCodePost, "q");
  AskOpen(post);
  EXPECT_EQ(NextAnswer().code, Code(5, 4));
  EXPECT_EQ(Ask(post).code, Code(5, 4));
  EXPECT_EQ(app_.payloads.size(), 1u);
}

// The first answer is never acknowledged; those that libcoap does not have yet are dropped with it.
TEST_F(Once, AnswerThatIsDropped_504AndNoSecondCall) {
  ServeDirect(kModeAsync, ParamWith(0, 1000000));
  std::vector<CoapMessage> posts;
  for (int i = 0; i < 100; ++i) {
    posts.push_back(Message(kCodePost, "q"));
    AskOpen(posts.back());
  }
  for (void *handle : app_.handles) Send(handle, "later");
  host_.AdvanceMs(100000);
  while (peer_.ReceiveNow()) {
  }
  EXPECT_EQ(Ask(posts.front()).Text(), "later");
  EXPECT_EQ(Ask(posts.back()).code, Code(5, 4));
  EXPECT_EQ(app_.payloads.size(), 100u);
}

TEST_F(Once, OpenWhenItsListenCloses_504AndNoSecondCall) {
  ServeDirect(kModeAsync, ParamWith(0, 1000000));
  const CoapMessage post = Message(kCodePost, "q");
  AskOpen(post);
  EXPECT_EQ(COAP_RpcSerUnsetUri(Ctx(), &key_), 0u);
  EXPECT_EQ(app_.ends.size(), 1u);
  CoapRpcSerListenAddr addr = {};
  addr.listenAddr.family = COAP_RPC_IPV4;
  addr.listenAddr.addr.ipv4 = OwnIpv4(Role::kServer);
  addr.port = kCoapPort;
  EXPECT_EQ(COAP_RpcSerSetUri(Ctx(), &key_, &addr), 0u);
  EXPECT_EQ(Ask(post).code, Code(5, 4));
  EXPECT_EQ(app_.payloads.size(), 1u);
}

TEST_F(Once, AnsweredGet_IsForgotten) {
  ServeDirect(kModeAsync);
  const CoapMessage get = Message(kCodeGet, "q");
  Send(AskOpen(get), "later");
  NextAnswer();
  EXPECT_EQ(NumRemembered(), 0u);
  AskOpen(get);
}

TEST_F(Once, RefusedForLackOfRoom_IsNotRemembered) {
  ServeDirect(kModeAsync);
  Ctx()->lib->numOpenAsync = COAP_RPC_MAX_OPEN_ASYNC;
  const CoapMessage post = Message(kCodePost, "q");
  EXPECT_EQ(Ask(post).code, Code(5, 3));
  Ctx()->lib->numOpenAsync = 0;
  AskOpen(post);
}

// ---- bounds ----

TEST_F(Once, MoreThanTheMaximum_OldestForgottenAndCounted) {
  ServeDirect(kModeSync);
  host_.Logs().SuppressBelow(KST_LOG_ERROR + 1);
  COAP_RpcSetLibLogLevel(Ctx(), 0);
  const auto requestOf = [](uint16_t mid) {
    return Request(CoapType::kNon, kCodePost, mid, {1}).AddPath("a/b");
  };
  constexpr uint32_t kNum = COAP_RPC_MAX_REMEMBERED + 10;
  for (uint32_t i = 0; i < kNum; ++i) AskNow(requestOf(static_cast<uint16_t>(i)));
  EXPECT_EQ(NumRemembered(), COAP_RPC_MAX_REMEMBERED);
  EXPECT_EQ(COAP_RpcGetForgottenNum(Ctx()), 10u);
  AskNow(requestOf(10));
  EXPECT_EQ(app_.payloads.size(), kNum) << "the oldest that is left";
  AskNow(requestOf(9));
  EXPECT_EQ(app_.payloads.size(), kNum + 1);
}

TEST_F(Once, MoreThanTheMaximumOfBytes_OldestForgottenAndCounted) {
  ServeDirect(kModeSync);
  app_.out = std::string(1000, 'x');
  for (int i = 0; i < 5000; ++i) AskNow(Message(kCodePost, "", CoapType::kNon));
  EXPECT_LE(NumBytes(), COAP_RPC_MAX_REMEMBERED_BYTES);
  EXPECT_GT(NumBytes(), COAP_RPC_MAX_REMEMBERED_BYTES - 2000);
  EXPECT_EQ(COAP_RpcGetForgottenNum(Ctx()) + NumRemembered(), 5000u);
}

TEST_F(Once, OpenRequest_IsKnownHoweverManyComeAfterIt) {
  ServeDirect(kModeAsync, ParamWith(0, 1000000));
  host_.Logs().SuppressBelow(KST_LOG_ERROR + 1);
  COAP_RpcSetLibLogLevel(Ctx(), 0);
  const CoapMessage post = Message(kCodePost);
  void *handle = AskOpen(post);
  app_.onCall = [&] { Send(app_.handles.back(), "now"); };
  for (uint32_t i = 0; i < COAP_RPC_MAX_REMEMBERED + 10; ++i) AskNow(Message(kCodePost));
  EXPECT_EQ(COAP_RpcGetForgottenNum(Ctx()), 10u);
  app_.payloads.clear();
  ExpectEmptyAck(Ask(post), post);
  EXPECT_TRUE(app_.payloads.empty());
  Send(handle, "later");
  EXPECT_EQ(NextAnswer().Text(), "later");
  EXPECT_EQ(Ask(post).Text(), "later");
}

TEST_F(Once, RecordTakes96BytesAtMostBesideItsAnswer) {
  ServeDirect(kModeSync);
  app_.out = std::string(500, 'x');
  for (int i = 0; i < 100; ++i) AskNow(Message(kCodePost));
  EXPECT_LE(NumBytes(), 100u * (96 + 500 + 1));
}

TEST_F(Once, MemoryComesBackWithTheLastRecord) {
  ServeDirect(kModeSync);
  Ask(Message(kCodePost));
  app_.out = std::string(1000, 'x');
  const uint64_t numBefore = host_.Pool().LiveCount();
  for (int i = 0; i < 200; ++i) AskNow(Message(kCodePost));
  EXPECT_GT(host_.Pool().LiveCount(), numBefore);
  host_.AdvanceMs(kExchangeLifetimeMs + 200);
  EXPECT_LT(host_.Pool().LiveCount(), numBefore);
}

TEST_F(Once, ForgottenNum_WithoutInstanceOrDirectEntry) {
  EXPECT_EQ(COAP_RpcGetForgottenNum(nullptr), 0u);
  EXPECT_EQ(COAP_RpcGetForgottenNum(Ctx()), 0u);
}

}  // namespace
}  // namespace coap_rpc_test
