// Asynchronous requests: asked from one port, answered by a POST to port 5683 of the same address.
#include <algorithm>
#include <map>
#include <random>

#include "async_server.h"
#include "coap_svc/rpc/coap_rpc_cli.h"
#include "coap_svc/rpc/coap_rpc_ext.h"

namespace coap_rpc_test {
namespace {

TEST_F(Async, Answer_ArrivesAsConfirmablePost) {
  ServeAsync();
  void *handle = AskOnce(GetWith({0x11, 0x22}));
  EXPECT_EQ(app_.requests[0].payload, "q");
  ExpectSilence(home_);
  EXPECT_EQ(Answer(handle, "{}"), 0u);
  const CoapMessage post = NextAtHome();
  EXPECT_EQ(post.type, CoapType::kCon);
  EXPECT_EQ(post.code, kCodePost);
  EXPECT_EQ(post.token, (Bytes{0x11, 0x22}));
  EXPECT_EQ(post.options, (std::vector<CoapOption>{{kOptUriPath, BytesOf("a")},
                                                   {kOptUriPath, BytesOf("b")},
                                                   {kOptContentFormat, {50}}}));
  EXPECT_EQ(post.Text(), "{}");
  ExpectSilence(asker_);
}

TEST_F(Async, RequestWithoutToken_AnsweredUnderATokenOfOurOwn) {
  ServeAsync();
  EXPECT_EQ(Answer(AskOnce(GetWith({})), "{}"), 0u);
  const CoapMessage post = NextAtHome();
  EXPECT_EQ(post.token.size(), 8u);
  EXPECT_EQ(post.Text(), "{}");
}

TEST_F(Async, AnswerTakesTheMessageTypeOfTheEntry) {
  ServeAsync(COAP_RPC_NON);
  EXPECT_EQ(Answer(AskOnce(GetWith({1})), "{}"), 0u);  // asked confirmably
  EXPECT_EQ(NextAtHome().type, CoapType::kNon);
}

TEST_F(Async, NonRequest_IsNotAcknowledged) {
  ServeAsync(COAP_RPC_NON);
  asker_.Send(GetWith({1}, CoapType::kNon));
  ExpectSilence(asker_);
  ASSERT_EQ(app_.handles.size(), 1u);
  EXPECT_EQ(Answer(app_.handles[0], "{}"), 0u);
  const CoapMessage post = NextAtHome();
  EXPECT_EQ(post.type, CoapType::kNon);
  EXPECT_EQ(post.code, kCodePost);
}

TEST_F(Async, AnswerIsDumped) {
  ServeAsync();
  EXPECT_EQ(Answer(AskOnce(GetWith({1})), "{}"), 0u);
  const std::vector<LogRecord> records = host_.LogsOf("COAP_RpcLogMemDump");
  ASSERT_EQ(records.size(), 2u);
  EXPECT_NE(records[0].text.find("-COAP_RpcSerSendAsyncResponse-"), std::string::npos);
  EXPECT_NE(records[1].text.find("7b7d"), std::string::npos);
}

TEST_F(Async, AnswerInsideTheCallback_Arrives) {
  ServeAsync();
  app_.onAsync = [this](void *handle) { EXPECT_EQ(Answer(handle, "now"), 0u); };
  AskOnce(GetWith({1}));
  EXPECT_EQ(NextAtHome().Text(), "now");
}

TEST_F(Async, AbortedConRequest_Gets205WithoutPayload) {
  ServeAsync();
  EXPECT_EQ(COAP_RpcSerAbortAsyncResponse(Ctx(), AskOnce(GetWith({7}))), 0u);
  const CoapMessage answer = NextAtHome();
  EXPECT_EQ(answer.type, CoapType::kCon);
  EXPECT_EQ(answer.code, Code(2, 5));
  EXPECT_EQ(answer.token, (Bytes{7}));
  EXPECT_TRUE(answer.options.empty());
  EXPECT_TRUE(answer.payload.empty());
}

TEST_F(Async, AbortedNonRequest_Silence) {
  ServeAsync(COAP_RPC_NON);
  asker_.Send(GetWith({1}, CoapType::kNon));
  Tick();
  ASSERT_EQ(app_.handles.size(), 1u);
  EXPECT_EQ(COAP_RpcSerAbortAsyncResponse(Ctx(), app_.handles[0]), 0u);
  ExpectSilence(home_);
  ExpectSilence(asker_);
}

TEST_F(Async, HandleAfterItsAnswer_Gives1900001302) {
  ServeAsync();
  void *handle = AskOnce(GetWith({1}));
  EXPECT_EQ(Answer(handle, "{}"), 0u);
  NextAtHome();
  EXPECT_EQ(Answer(handle, "{}"), 1900001302u);
  EXPECT_EQ(COAP_RpcSerAbortAsyncResponse(Ctx(), handle), 1900001302u);
  ExpectSilence(home_);
}

TEST_F(Async, HandleThatNeverWas_Gives1900001302) {
  ServeAsync();
  for (const uintptr_t handle : {uintptr_t{1}, UINTPTR_MAX}) {
    EXPECT_EQ(Answer(reinterpret_cast<void *>(handle), "{}"), 1900001302u);
  }
}

TEST_F(Async, NullArguments) {
  ServeAsync();
  void *handle = AskOnce(GetWith({1}));
  const uint8_t byte = 1;
  EXPECT_EQ(COAP_RpcSerSendAsyncResponse(nullptr, handle, &byte, 1), 1900000414u);
  EXPECT_EQ(COAP_RpcSerSendAsyncResponse(Ctx(), nullptr, &byte, 1), 1900000414u);
  EXPECT_EQ(COAP_RpcSerSendAsyncResponse(Ctx(), handle, nullptr, 1), 1900000414u);
  EXPECT_EQ(COAP_RpcSerAbortAsyncResponse(nullptr, handle), 1900001301u);
  EXPECT_EQ(COAP_RpcSerAbortAsyncResponse(Ctx(), nullptr), 1900001301u);
}

TEST_F(Async, NoMemoryForTheAnswer_Gives1900000418AndStaysPending) {
  ServeAsync();
  void *handle = AskOnce(GetWith({1}));
  host_.Pool().Failures().FailOnce(1);
  EXPECT_EQ(Answer(handle, "a"), 1900000418u);
  EXPECT_EQ(Answer(handle, "b"), 0u);
  EXPECT_EQ(NextAtHome().Text(), "b");
}

TEST_F(Async, AnsweredTwice_TheLastOneGoesOutOnce) {
  ServeAsync();
  void *handle = AskOnce(GetWith({1}));
  EXPECT_EQ(Answer(handle, "first"), 0u);
  EXPECT_EQ(Answer(handle, "second"), 0u);
  EXPECT_EQ(NextAtHome().Text(), "second");
  ExpectSilence(home_);
}

TEST_F(Async, AbortedAfterAnAnswer_IsAborted) {
  ServeAsync();
  void *handle = AskOnce(GetWith({1}));
  EXPECT_EQ(Answer(handle, "first"), 0u);
  EXPECT_EQ(COAP_RpcSerAbortAsyncResponse(Ctx(), handle), 0u);
  EXPECT_EQ(NextAtHome().code, Code(2, 5));
  ExpectSilence(home_);
}

TEST_F(Async, AnsweredButNeverRun_LeaksNothing) {
  ServeAsync();
  void *handle = AskOnce(GetWith({1}));
  EXPECT_EQ(Answer(handle, "first"), 0u);
  AskOnce(GetWith({2}));
  instance_->Stop();
  EXPECT_EQ(host_.Pool().LiveCount(), 0u) << host_.Pool().LeakText();
}

TEST_F(Async, Retransmission_IsAcknowledgedAndNotExecutedAgain) {
  ServeAsync();
  for (const Bytes &token : {Bytes{}, Bytes{1, 2}}) {
    const CoapMessage request = GetWith(token);
    void *handle = AskOnce(request);
    const size_t numRequests = app_.requests.size();
    ExpectEmptyAck(Ask(asker_, request), request);
    ExpectEmptyAck(Ask(asker_, request), request);
    EXPECT_EQ(app_.requests.size(), numRequests);
    EXPECT_EQ(Answer(handle, "once"), 0u);
    EXPECT_EQ(NextAtHome().Text(), "once");
    ExpectSilence(home_);
  }
}

TEST_F(Async, RetransmissionOfANonRequest_IsNotExecutedAgain) {
  ServeAsync(COAP_RPC_NON);
  const CoapMessage request = GetWith({}, CoapType::kNon);
  asker_.Send(request);
  asker_.Send(request);
  ExpectSilence(asker_);
  EXPECT_EQ(app_.requests.size(), 1u);
}

TEST_F(Async, SameMessageIdAfterTheExchangeLifetime_IsANewRequest) {
  ServeAsync();
  const CoapMessage request = GetWith({});
  AskOnce(request);
  host_.AdvanceMs(247'000);
  void *second = AskOnce(request);
  EXPECT_EQ(Answer(app_.handles[0], "old"), 0u);
  EXPECT_EQ(NextAtHome().Text(), "old");
  EXPECT_EQ(Answer(second, "new"), 0u);
  EXPECT_EQ(NextAtHome().Text(), "new");
}

TEST_F(Async, SameTokenTwice_BothAreAnswered) {
  ServeAsync();
  void *first = AskOnce(GetWith({9}));
  void *second = AskOnce(GetWith({9}));
  EXPECT_EQ(Answer(second, "2"), 0u);
  EXPECT_EQ(NextAtHome().Text(), "2");
  EXPECT_EQ(Answer(first, "1"), 0u);
  const CoapMessage post = NextAtHome();
  EXPECT_EQ(post.Text(), "1");
  EXPECT_EQ(post.token, (Bytes{9}));
}

TEST_F(Async, ThousandPendingOfOnePeer_AnsweredInRandomOrder_AllArrive) {
  ServeAsync();
  constexpr size_t kNum = 1000;
  for (size_t i = 0; i < kNum; ++i) {
    AskOnce(GetWith(i % 2 == 0 ? Bytes{} : Bytes{static_cast<uint8_t>(i), 1}));
  }
  std::vector<size_t> order(kNum);
  for (size_t i = 0; i < kNum; ++i) order[i] = i;
  std::shuffle(order.begin(), order.end(), std::mt19937(1));
  for (const size_t i : order) {
    EXPECT_EQ(Answer(app_.handles[i], std::to_string(i)), 0u);
  }
  std::map<std::string, int> arrived;
  for (size_t i = 0; i < kNum; ++i) ++arrived[NextAtHome().Text()];
  EXPECT_EQ(arrived.size(), kNum);
  for (const auto &[text, count] : arrived) EXPECT_EQ(count, 1) << text;
}

TEST_F(Async, BigAnswer_ComesInBlocks) {
  ServeAsync();
  const std::string text(65470, 'x');
  EXPECT_EQ(Answer(AskOnce(GetWith({})), text), 0u);
  EXPECT_EQ(BigBodyAtHome(), BytesOf(text));
}

TEST_F(Async, TwoBigAnswersAtOnce_BothArrive) {
  ServeAsync(COAP_RPC_NON);
  void *first = AskOnce(GetWith({}));
  void *second = AskOnce(GetWith({}));
  const std::string texts[] = {std::string(3000, 'a'), std::string(3000, 'b')};
  EXPECT_EQ(Answer(first, texts[0]), 0u);
  EXPECT_EQ(Answer(second, texts[1]), 0u);
  std::map<uint32_t, Bytes> bodies;  // by Request-Tag
  constexpr uint16_t kRequestTag = 292;
  for (int i = 0; i < 6;) {
    const std::optional<CoapMessage> part = home_.ReceiveMessage(Pump());
    ASSERT_TRUE(part) << home_.LogText();
    if (part->code == kCodeEmpty) continue;  // what our own answers meet with
    ++i;
    Bytes &body = bodies[part->Uint(kRequestTag).value_or(0)];
    const CoapBlock block = part->Block(kOptBlock1).value_or(CoapBlock());
    EXPECT_EQ(body.size(), block.num * 1024u);
    body.insert(body.end(), part->payload.begin(), part->payload.end());
    home_.SetRemote(home_.Datagrams().back().other);
    home_.Send(Request(CoapType::kNon, block.more ? Code(2, 31) : Code(2, 1), ++mid_, part->token)
                   .AddBlock(kOptBlock1, block));
  }
  ASSERT_EQ(bodies.size(), 2u) << home_.LogText();
  std::vector<Bytes> got;
  got.reserve(bodies.size());
  for (const auto &[tag, body] : bodies) got.push_back(body);
  std::sort(got.begin(), got.end());
  EXPECT_EQ(got, (std::vector<Bytes>{BytesOf(texts[0]), BytesOf(texts[1])}));
}

TEST_F(Async, SmallAnswersWithLowTokens_DoNotEndABigOne) {
  ServeAsync();
  const std::string text(5000, 'x');
  std::vector<void *> handles = {AskOnce(GetWith({}))};
  for (uint8_t token = 1; token <= 4; ++token) handles.push_back(AskOnce(GetWith({token})));
  EXPECT_EQ(Answer(handles[0], text), 0u);
  for (size_t i = 1; i < handles.size(); ++i) EXPECT_EQ(Answer(handles[i], "small"), 0u);
  Bytes body;
  int numSmall = 0;
  while (body.size() < text.size() || numSmall < 4) {
    const std::optional<CoapMessage> post = home_.ReceiveMessage(Pump());
    ASSERT_TRUE(post) << home_.LogText();
    const std::optional<CoapBlock> block = post->Block(kOptBlock1);
    CoapMessage answer = Request(CoapType::kAck, block && block->more ? Code(2, 31) : Code(2, 1),
                                 post->messageId, post->token);
    if (block) {
      body.insert(body.end(), post->payload.begin(), post->payload.end());
      answer.AddBlock(kOptBlock1, *block);
    } else {
      EXPECT_EQ(post->Text(), "small");
      ++numSmall;
    }
    home_.SetRemote(home_.Datagrams().back().other);
    home_.Send(answer);
  }
  EXPECT_EQ(body, BytesOf(text));
}

TEST_F(Async, AnswerThatArrives_GoesToTheClientTable) {
  const CoapRpcUriKey serverKey = KeyOf("a/b", COAP_RPC_CON, 0, COAP_RPC_UNICAST);
  Serve(serverKey, RegOf(&app_, kAsync));
  CoapRpcCliVtblReg reg = {};
  std::vector<std::string> responses;
  reg.userData = reinterpret_cast<uint64_t>(&responses);
  reg.onResponse = [](uint64_t userData, uint64_t, uint8_t *payload, uint32_t len,
                      const CoapRpcCliRspInfo *) {
    reinterpret_cast<std::vector<std::string> *>(userData)->push_back(
        std::string(payload, payload + len));
    return 0u;
  };
  const CoapRpcUriKey clientKey = KeyOf("a/b");
  EXPECT_EQ(COAP_RpcCliRegVtbl(Ctx(), &clientKey, &reg), 0u);
  const CoapMessage post = Post(CoapType::kCon, "a/b", "answer");
  EXPECT_EQ(Ask(asker_, post), Request(CoapType::kAck, Code(2, 1), post.messageId, post.token));
  EXPECT_EQ(responses, (std::vector<std::string>{"answer"}));
  EXPECT_TRUE(app_.handles.empty());
}

TEST_F(Async, PeersInTurns_SessionsAreReplacedAndAllAnswersArrive) {
  ServeAsync();
  RawPeer other({OwnHost(Role::kOtherPeer), 0});
  RawPeer otherHome({OwnHost(Role::kOtherPeer), kCoapPort});
  other.SetRemote(Address());
  for (int i = 0; i < 5; ++i) {
    AskOnce(GetWith({1}));
    const CoapMessage request = GetWith({2});
    ExpectEmptyAck(Ask(other, request), request);
  }
  for (void *handle : app_.handles) EXPECT_EQ(Answer(handle, "{}"), 0u);
  for (RawPeer *home : {&home_, &otherHome}) {
    for (int i = 0; i < 5; ++i) {
      const std::optional<CoapMessage> post = home->ReceiveMessage(Pump());
      ASSERT_TRUE(post);
      EXPECT_EQ(post->Text(), "{}");
      home->SetRemote(home->Datagrams().back().other);
      home->Send(AckOf(*post));
    }
  }
}

TEST_F(Async, BigRequest_IsHandedOverWholeAndAnswered) {
  ServeAsync();
  const std::string text(3000, 'r');
  CoapMessage answer;
  for (uint32_t num = 0; num < 3; ++num) {
    CoapMessage part = Request(CoapType::kCon, kCodeGet, ++mid_, {5}).AddPath("a/b");
    part.AddBlock(kOptBlock1, {num, num < 2, 6}).AddUint(kOptSize1, 3000);
    part.PayloadText(text.substr(size_t{num} * 1024, 1024));
    answer = Ask(asker_, part);
  }
  ASSERT_EQ(app_.requests.size(), 1u) << asker_.LogText();
  EXPECT_EQ(app_.requests[0].payload, text);
  EXPECT_EQ(Answer(app_.handles[0], "done"), 0u);
  EXPECT_EQ(NextAtHome().Text(), "done");
}

TEST_F(Async, NoCallback_Gives503) {
  CoapRpcSerVtblReg reg = RegOf(&app_, kAsync);
  reg.onAsyncRequest = nullptr;
  Serve(KeyOf("a/b"), reg);
  const CoapMessage request = GetWith({1});
  const CoapMessage answer = Ask(asker_, request);
  EXPECT_EQ(answer, Request(CoapType::kAck, Code(5, 3), request.messageId, {1}));
}

TEST_F(Async, WithoutPayload_NobodyIsCalled) {
  ServeAsync();
  const CoapMessage request = Request(CoapType::kCon, kCodeGet, ++mid_, {1}).AddPath("a/b");
  ExpectEmptyAck(Ask(asker_, request), request);
  EXPECT_TRUE(app_.handles.empty());
}

TEST_F(Async, NoMemoryForSessionOrRecord_Gives503) {
  ServeAsync();
  for (const uint64_t n : {2u, 3u}) {  // the first is the payload's copy
    host_.Pool().Failures().FailOnce(n);
    EXPECT_EQ(Ask(asker_, GetWith({1})).code, Code(5, 3)) << n;
    EXPECT_TRUE(app_.handles.empty());
  }
}

TEST_F(Async, SessionIsKeptForThePeerAndReplacedForAnother) {
  ServeAsync();
  AskOnce(GetWith({1}));
  const coap_session_t *session = entry_->asyncSession;
  ASSERT_NE(session, nullptr);
  AskOnce(GetWith({2}));
  EXPECT_EQ(entry_->asyncSession, session);

  RawPeer other({OwnHost(Role::kOtherPeer), 0});
  other.SetRemote(Address());
  const CoapMessage request = GetWith({3});
  ExpectEmptyAck(Ask(other, request), request);
  EXPECT_NE(entry_->asyncSession, session);
  // The first peer's requests are answered all the same.
  EXPECT_EQ(Answer(app_.handles[0], "1"), 0u);
  EXPECT_EQ(NextAtHome().Text(), "1");
}

TEST_F(Async, TooManyPeersWithPendingRequests_Gives503UntilOneIsAnswered) {
  ServeAsync();
  const auto askFrom = [this](int i) {
    RawPeer peer({"127.250." + std::to_string(i / 200) + "." + std::to_string(i % 200 + 1), 0});
    peer.SetRemote(Address());
    peer.Send(GetWith({1}, CoapType::kNon));
    return peer.ReceiveMessage(Pump(), 2);
  };
  for (int i = 0; i < 500; ++i) ASSERT_FALSE(askFrom(i)) << i;
  EXPECT_EQ(app_.handles.size(), 500u);
  const std::optional<CoapMessage> refusal = askFrom(500);
  ASSERT_TRUE(refusal);
  EXPECT_EQ(refusal->code, Code(5, 3));
  EXPECT_EQ(app_.handles.size(), 500u);

  EXPECT_EQ(COAP_RpcSerAbortAsyncResponse(Ctx(), app_.handles[0]), 0u);
  Tick();
  EXPECT_FALSE(askFrom(500));
  EXPECT_EQ(app_.handles.size(), 501u);
}

TEST_F(Async, UnicastAndBroadcastEntries_AreFoundAgainForTheAnswer) {
  for (const uint32_t pktType : {COAP_RPC_UNICAST, COAP_RPC_BROADCAST}) {
    const std::string uri = "p" + std::to_string(pktType);
    Serve(KeyOf(uri.c_str(), COAP_RPC_CON, 0, pktType), RegOf(&app_, kAsync));
    const CoapMessage request =
        Request(CoapType::kCon, kCodeGet, ++mid_, {}).AddPath(uri).PayloadText("q");
    EXPECT_EQ(Answer(AskOnce(request), uri), 0u);
    const CoapMessage post = NextAtHome();
    EXPECT_EQ(post.code, kCodePost);
    EXPECT_EQ(post.Path(), uri);
    EXPECT_EQ(post.Text(), uri);
  }
}

TEST_F(Async, UriDetachedBeforeTheAnswer_HandleEndsAndNothingLeaks) {
  ServeAsync();
  void *handle = AskOnce(GetWith({1}));
  const CoapRpcUriKey key = KeyOf("a/b");
  EXPECT_EQ(COAP_RpcSerUnsetUri(Ctx(), &key), 0u);
  EXPECT_EQ(Answer(handle, "late"), 0u);
  EXPECT_EQ(NextAtHome().code, Code(4, 4));
  Tick();
  Tick();
  EXPECT_EQ(Answer(handle, "late"), 1900001302u);
}

TEST_F(Async, ObserveOption_DoesNotMakeTheTargetSessionAnObserver) {
  CoapRpcUriKey key = KeyOf("a/b", COAP_RPC_CON, 1);
  CoapRpcSerUriVtbl *entry = Serve(key, RegOf(&app_, kAsync));
  CoapMessage request = GetWith({1});
  request.Add(kOptObserve);
  EXPECT_EQ(Ask(asker_, request).code, Code(2, 1));
  ASSERT_EQ(app_.handles.size(), 1u);
  EXPECT_EQ(Answer(app_.handles[0], "{}"), 0u);
  const CoapMessage post = NextAtHome();
  EXPECT_EQ(post.code, kCodePost);
  EXPECT_FALSE(post.Has(kOptObserve));
  EXPECT_EQ(entry->observerNum, 0u);  // no observe record: nobody is counted
}

}  // namespace
}  // namespace coap_rpc_test
