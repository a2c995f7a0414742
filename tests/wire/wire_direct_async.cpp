// Asynchronous requests to direct entries, byte by byte.
#include "coap_svc/rpc/coap_rpc_ext.h"
#include "coap_svc/rpc/libadapter/direct/coap_rpc_lib_direct_async.h"
#include "direct_server.h"

namespace coap_rpc_test {
namespace {

class DirectAsyncTest : public Direct {
 protected:
  uint32_t NumPeers() const { return Ctx()->lib->direct->numPeers; }
};

// ---- where the answer goes ----

TEST_F(DirectAsyncTest, AnsweredInTheCallback_Piggybacked) {
  ServeDirect(kModeAsync);
  app_.onCall = [&] { EXPECT_EQ(Send(app_.handles.back(), "now"), 0u); };
  const CoapMessage get = Message(kCodeGet, "q");
  EXPECT_EQ(Ask(get), AnswerTo(get, Code(2, 5), "now"));
  const CoapMessage post = Message(kCodePost);
  EXPECT_EQ(Ask(post), AnswerTo(post, Code(2, 4), "now"));
  EXPECT_EQ(app_.payloads, (std::vector<std::string>{"q", ""}));
  EXPECT_EQ(Send(app_.handles.back(), "again"), 1900001302u);
  EXPECT_EQ(COAP_RpcGetOpenAsyncNum(Ctx()), 0u);
  EXPECT_EQ(NumPeers(), 0u);
  ExpectSilence(peer_);
}

TEST_F(DirectAsyncTest, AnsweredInTheCallback_TheLastAnswerCounts) {
  ServeDirect(kModeAsync);
  app_.onCall = [&] {
    EXPECT_EQ(COAP_RpcSerFailAsync(Ctx(), app_.handles.back(), 500, "no"), 0u);
    EXPECT_EQ(Send(app_.handles.back(), "yes"), 0u);
  };
  const CoapMessage post = Message(kCodePost);
  EXPECT_EQ(Ask(post), AnswerTo(post, Code(2, 4), "yes"));
}

TEST_F(DirectAsyncTest, AnsweredLater_SeparateConfirmable) {
  ServeDirect(kModeAsync);
  const CoapMessage post = Message(kCodePost, "q");
  void *handle = AskOpen(post);
  EXPECT_EQ(COAP_RpcGetOpenAsyncNum(Ctx()), 1u);
  EXPECT_EQ(Send(handle, "later"), 0u);
  EXPECT_EQ(COAP_RpcGetOpenAsyncNum(Ctx()), 0u);
  const CoapMessage answer = NextAnswer();
  EXPECT_EQ(answer.type, CoapType::kCon);
  EXPECT_EQ(answer.code, Code(2, 4));
  EXPECT_EQ(answer.token, post.token);
  EXPECT_NE(answer.messageId, post.messageId);
  EXPECT_TRUE(answer.options.empty());
  EXPECT_EQ(answer.Text(), "later");
  ExpectSilence(peer_);
  EXPECT_EQ(Send(handle, "again"), 1900001302u);
  EXPECT_EQ(NumPeers(), 0u);
}

TEST_F(DirectAsyncTest, NonRequest_NonAnswer) {
  ServeDirect(kModeAsync);
  const CoapMessage get = Message(kCodeGet, "q", CoapType::kNon);
  EXPECT_EQ(Send(AskOpen(get), "later"), 0u);
  const CoapMessage answer = NextAnswer();
  EXPECT_EQ(answer.type, CoapType::kNon);
  EXPECT_EQ(answer.code, Code(2, 5));
  EXPECT_EQ(answer.token, get.token);
  EXPECT_EQ(answer.Text(), "later");
}

TEST_F(DirectAsyncTest, TwoPeersAndTokens_EachGetsItsOwn) {
  ServeDirect(kModeAsync);
  RawPeer other;
  other.SetRemote(Address());
  void *first = AskOpen(Request(CoapType::kCon, kCodePost, 1, {}).AddPath("a/b"));
  void *second = AskOpen(Request(CoapType::kCon, kCodePost, 2, {2, 2, 2}).AddPath("a/b"));
  Ask(other, Request(CoapType::kCon, kCodePost, 1, {}).AddPath("a/b"));
  Send(app_.handles[2], "third");
  Send(second, "second");
  Send(first, "first");
  EXPECT_EQ(Next(other)->Text(), "third");
  const CoapMessage a = NextAnswer();
  EXPECT_EQ(a.Text(), "second");
  EXPECT_EQ(a.token, (Bytes{2, 2, 2}));
  const CoapMessage b = NextAnswer();
  EXPECT_EQ(b.Text(), "first");
  EXPECT_TRUE(b.token.empty());
}

TEST_F(DirectAsyncTest, EmptyAnswer_MethodsCode) {
  ServeDirect(kModeAsync);
  EXPECT_EQ(Send(AskOpen(Message(kCodePost)), ""), 0u);
  EXPECT_EQ(NextAnswer().code, Code(2, 4));
}

TEST_F(DirectAsyncTest, LargeAnswer_Separate_ComesWhole) {
  ServeDirect(kModeAsync);
  const CoapMessage post = Message(kCodePost, "q");
  const std::string body(5000, 'x');
  Send(AskOpen(post), body);
  const CoapMessage first = NextAnswer();
  EXPECT_EQ(first.token, post.token);
  Bytes whole = first.payload;
  std::optional<CoapBlock> block = first.Block(kOptBlock2);
  while (block && block->more) {
    const CoapMessage next =
        Ask(Message(kCodePost).AddBlock(kOptBlock2, {block->num + 1, false, block->szx}));
    EXPECT_EQ(next.type, CoapType::kAck);
    whole.insert(whole.end(), next.payload.begin(), next.payload.end());
    block = next.Block(kOptBlock2);
  }
  EXPECT_EQ(whole, BytesOf(body));
  EXPECT_EQ(app_.payloads.size(), 1u);
}

TEST_F(DirectAsyncTest, SmallBlocksAskedFor_Separate) {
  ServeDirect(kModeAsync);
  Send(AskOpen(Message(kCodeGet).AddBlock(kOptBlock2, {0, false, 2})), std::string(100, 'x'));
  EXPECT_EQ(NextAnswer().payload.size(), 64u);
}

// ---- codes ----

TEST_F(DirectAsyncTest, Fail_WithText) {
  ServeDirect(kModeAsync);
  EXPECT_EQ(COAP_RpcSerFailAsync(Ctx(), AskOpen(Message(kCodePost)), 404, "no such thing"), 0u);
  const CoapMessage answer = NextAnswer();
  EXPECT_EQ(answer.code, Code(4, 4));
  EXPECT_EQ(answer.Text(), "no such thing");
  EXPECT_TRUE(answer.options.empty());
}

TEST_F(DirectAsyncTest, Fail_WithoutOrWithLongText) {
  ServeDirect(kModeAsync);
  EXPECT_EQ(COAP_RpcSerFailAsync(Ctx(), AskOpen(Message(kCodePost)), 503, nullptr), 0u);
  EXPECT_TRUE(NextAnswer().payload.empty());
  const std::string text(2000, 'x');
  EXPECT_EQ(COAP_RpcSerFailAsync(Ctx(), AskOpen(Message(kCodePost)), 531, text.c_str()), 0u);
  const CoapMessage answer = NextAnswer();
  EXPECT_EQ(answer.code, Code(5, 31));
  EXPECT_EQ(answer.payload.size(), 1024u);
}

TEST_F(DirectAsyncTest, Fail_LongTextEndsWithAWholeCharacter) {
  ServeDirect(kModeAsync);
  for (const std::string character : {"\u00e4", "\u20ac", "\U0001F600"}) {
    for (size_t before = 1018; before <= 1024; ++before) {
      const std::string text = std::string(before, 'x') + character + character;
      COAP_RpcSerFailAsync(Ctx(), AskOpen(Message(kCodePost)), 500, text.c_str());
      const size_t num = std::min<size_t>((1024 - before) / character.size(), 2);
      EXPECT_EQ(NextAnswer().Text(), text.substr(0, before + num * character.size()));
    }
  }
}

TEST_F(DirectAsyncTest, Fail_BadArguments) {
  ServeDirect(kModeAsync);
  void *handle = AskOpen(Message(kCodePost));
  EXPECT_EQ(COAP_RpcSerFailAsync(nullptr, handle, 404, ""), 1900001472u);
  EXPECT_EQ(COAP_RpcSerFailAsync(Ctx(), nullptr, 404, ""), 1900001472u);
  EXPECT_EQ(COAP_RpcSerFailAsync(Ctx(), reinterpret_cast<void *>(99), 404, ""), 1900001302u);
  for (const uint32_t code : {0u, 205u, 399u, 432u, 499u, 532u, 600u, ~0u}) {
    EXPECT_EQ(COAP_RpcSerFailAsync(Ctx(), handle, code, ""), 1900001473u) << code;
  }
  EXPECT_EQ(Send(handle, "x"), 0u);
  EXPECT_EQ(NextAnswer().Text(), "x");
}

TEST_F(DirectAsyncTest, Fail_OfABaseEntry_NotPending) {
  App base;
  Serve(KeyOf("c"), RegOf(&base, kModeAsync));
  Ask(Get(CoapType::kCon, "c", "q"));
  ASSERT_EQ(base.handles.size(), 1u);
  EXPECT_EQ(COAP_RpcSerFailAsync(Ctx(), base.handles[0], 404, ""), 1900001302u);
  EXPECT_EQ(COAP_RpcSerSetAsyncAnswer(Ctx(), base.handles[0], 201, 0), 1900001302u);
}

TEST_F(DirectAsyncTest, Abort_503) {
  ServeDirect(kModeAsync);
  EXPECT_EQ(COAP_RpcSerAbortAsyncResponse(Ctx(), AskOpen(Message(kCodePost))), 0u);
  EXPECT_EQ(NextAnswer().code, Code(5, 3));
}

TEST_F(DirectAsyncTest, SetAnswer_InTheCallback_IsForTheLaterAnswer) {
  ServeDirect(kModeAsync);
  app_.onCall = [&] { EXPECT_EQ(COAP_RpcSerSetAnswer(Ctx(), 201, 50), 0u); };
  Send(AskOpen(Message(kCodePost)), "{}");
  const CoapMessage answer = NextAnswer();
  EXPECT_EQ(answer.code, Code(2, 1));
  EXPECT_EQ(answer.Uint(kOptContentFormat), 50u);
}

TEST_F(DirectAsyncTest, SetAsyncAnswer_Later) {
  ServeDirect(kModeAsync);
  void *handle = AskOpen(Message(kCodePost));
  EXPECT_EQ(COAP_RpcSerSetAnswer(Ctx(), 201, 50), 1900001470u);
  EXPECT_EQ(COAP_RpcSerSetAsyncAnswer(Ctx(), handle, 206, 50), 1900001471u);
  EXPECT_EQ(COAP_RpcSerSetAsyncAnswer(nullptr, handle, 202, 50), 1900001475u);
  EXPECT_EQ(COAP_RpcSerSetAsyncAnswer(Ctx(), nullptr, 202, 50), 1900001475u);
  EXPECT_EQ(COAP_RpcSerSetAsyncAnswer(Ctx(), handle, 202, 60), 0u);
  Send(handle, "x");
  const CoapMessage answer = NextAnswer();
  EXPECT_EQ(answer.code, Code(2, 2));
  EXPECT_EQ(answer.Uint(kOptContentFormat), 60u);
  EXPECT_EQ(COAP_RpcSerSetAsyncAnswer(Ctx(), handle, 202, 60), 1900001302u);
}

TEST_F(DirectAsyncTest, GetRequest_InTheCallback) {
  ServeDirect(kModeAsync);
  CoapRpcSerRequest request = {};
  app_.onCall = [&] { EXPECT_EQ(COAP_RpcSerGetRequest(Ctx(), &request), 0u); };
  AskOpen(Message(kCodePost));
  EXPECT_EQ(request.method, 2u);
  EXPECT_EQ(COAP_RpcSerGetRequest(Ctx(), &request), 1900001479u);
}

TEST_F(DirectAsyncTest, NoResponse_IsHonoured) {
  constexpr uint16_t kOptNoResponse = 258;
  ServeDirect(kModeAsync);
  Send(AskOpen(Message(kCodePost).AddUint(kOptNoResponse, 2)), "unwanted");
  ExpectSilence(peer_);
  COAP_RpcSerFailAsync(Ctx(), AskOpen(Message(kCodePost).AddUint(kOptNoResponse, 2)), 500, "");
  EXPECT_EQ(NextAnswer().code, Code(5, 0));
}

TEST_F(DirectAsyncTest, NoCallback_501) {
  CoapRpcSerVtblReg reg = DirectReg(kModeAsync);
  reg.onAsyncRequest = nullptr;
  Serve(key_, reg);
  EXPECT_EQ(COAP_RpcSerSetDirect(Ctx(), &key_, nullptr), 0u);
  EXPECT_EQ(Ask(Message(kCodeGet)).code, Code(5, 1));
}

// ---- time ----

TEST_F(DirectAsyncTest, Timeout_504AndTheApplicationHears) {
  ServeDirect(kModeAsync, ParamWith(0, 500));
  void *handle = AskOpen(Message(kCodePost, "q"));
  host_.AdvanceMs(300);
  EXPECT_TRUE(app_.ends.empty());
  EXPECT_EQ(NextAnswer().code, Code(5, 4));
  ASSERT_EQ(app_.ends.size(), 1u);
  EXPECT_EQ(app_.ends[0].first, handle);
  EXPECT_EQ(app_.ends[0].second, uint32_t{COAP_RPC_ASYNC_TIMEOUT});
  EXPECT_EQ(Send(handle, "late"), 1900001302u);
  EXPECT_EQ(COAP_RpcGetOpenAsyncNum(Ctx()), 0u);
  EXPECT_EQ(NumPeers(), 0u);
}

TEST_F(DirectAsyncTest, Timeout_DefaultIsAMinute) {
  ServeDirect(kModeAsync);
  AskOpen(Message(kCodePost, "q", CoapType::kNon));
  host_.AdvanceMs(59000);
  ExpectSilence(peer_);
  host_.AdvanceMs(1000);
  EXPECT_EQ(NextAnswer().code, Code(5, 4));
}

TEST_F(DirectAsyncTest, Timeout_SetAgainCountsForOpenRequests) {
  ServeDirect(kModeAsync);
  AskOpen(Message(kCodePost));
  const CoapRpcSerDirectParam param = ParamWith(0, 500);
  EXPECT_EQ(COAP_RpcSerSetDirect(Ctx(), &key_, &param), 0u);
  EXPECT_EQ(NextAnswer().code, Code(5, 4));
  EXPECT_EQ(app_.ends.size(), 1u);
}

TEST_F(DirectAsyncTest, Timeout_OfManyInTheOrderOfArrival) {
  ServeDirect(kModeAsync, ParamWith(0, 1000));
  AskOpen(Message(kCodePost, "", CoapType::kNon));
  AskOpen(Message(kCodePost, "", CoapType::kNon));
  host_.AdvanceMs(2000);
  ASSERT_EQ(app_.ends.size(), 2u);
  EXPECT_EQ(app_.ends[0].first, app_.handles[0]);
  EXPECT_EQ(app_.ends[1].first, app_.handles[1]);
}

TEST_F(DirectAsyncTest, Timeout_TheCallbackMayDoAnything) {
  ServeDirect(kModeAsync, ParamWith(0, 500));
  void *handle = AskOpen(Message(kCodePost));
  app_.onEnd = [&] {
    EXPECT_EQ(Send(handle, "late"), 1900001302u);
    EXPECT_EQ(COAP_RpcSerUnsetUri(Ctx(), &key_), 0u);
  };
  host_.AdvanceMs(1000);
  EXPECT_EQ(app_.ends.size(), 1u);
}

TEST_F(DirectAsyncTest, Timeout_TheCallbackMayDeleteTheEntry) {
  const CoapRpcUriKey other = KeyOf("c");
  Serve(other, DirectReg(kModeAsync));
  const CoapRpcSerDirectParam param = ParamWith(0, 500);
  EXPECT_EQ(COAP_RpcSerSetDirect(Ctx(), &other, &param), 0u);
  ServeDirect(kModeAsync, param);
  for (int i = 0; i < 3; ++i) AskOpen(Message(kCodePost));
  app_.onEnd = [&] {
    CoapRpcSerUriVtbl *entry = COAP_RpcSerFindUriVtbl(Ctx()->ser, &key_);
    if (entry) COAP_RpcSerDelUriVtbl(Ctx()->ser, entry);
  };
  host_.AdvanceMs(1000);
  EXPECT_EQ(app_.ends.size(), 1u);
  EXPECT_EQ(NumPeers(), 0u);
}

// ---- ends ----

TEST_F(DirectAsyncTest, ListenClosed_TheCallbackMayDeleteTheEntry) {
  ServeDirect(kModeAsync, ParamWith(0));
  for (int i = 0; i < 3; ++i) AskOpen(Message(kCodePost));
  app_.onEnd = [&] {
    CoapRpcSerUriVtbl *entry = COAP_RpcSerFindUriVtbl(Ctx()->ser, &key_);
    if (entry) COAP_RpcSerDelUriVtbl(Ctx()->ser, entry);
  };
  COAP_RpcSerUnsetUri(Ctx(), &key_);
  EXPECT_EQ(app_.ends.size(), 1u);
  EXPECT_EQ(NumPeers(), 0u);
}

TEST_F(DirectAsyncTest, ListenClosed_TheApplicationHears) {
  ServeDirect(kModeAsync, ParamWith(0));
  void *handle = AskOpen(Message(kCodePost));
  EXPECT_EQ(COAP_RpcSerUnsetUri(Ctx(), &key_), 0u);
  ASSERT_EQ(app_.ends.size(), 1u);
  EXPECT_EQ(app_.ends[0], std::make_pair(handle, uint32_t{COAP_RPC_ASYNC_CLOSED}));
  EXPECT_EQ(Send(handle, "late"), 1900001302u);
  EXPECT_EQ(COAP_RpcGetOpenAsyncNum(Ctx()), 0u);
  EXPECT_EQ(NumPeers(), 0u);
}

TEST_F(DirectAsyncTest, ListenClosed_QueuedAnswerGoesWithIt) {
  ServeDirect(kModeAsync, ParamWith(0));
  EXPECT_EQ(Send(AskOpen(Message(kCodePost)), "x"), 0u);
  EXPECT_EQ(COAP_RpcSerUnsetUri(Ctx(), &key_), 0u);
  EXPECT_TRUE(app_.ends.empty()) << "it was answered";
  EXPECT_EQ(NumPeers(), 0u);
  ExpectSilence(peer_);
}

TEST_F(DirectAsyncTest, ListenClosedInTheCallback_503) {
  ServeDirect(kModeAsync, ParamWith(0));
  app_.onCall = [&] { COAP_RpcSerUnsetUri(Ctx(), &key_); };
  EXPECT_EQ(Ask(Message(kCodePost)).code, Code(5, 3));
  EXPECT_EQ(app_.ends.size(), 1u);
}

TEST_F(DirectAsyncTest, DetachedWhileTheListenStays_503) {
  App other;
  Serve(KeyOf("c"), RegOf(&other, kModeSync));
  ServeDirect(kModeAsync);
  void *handle = AskOpen(Message(kCodePost));
  EXPECT_EQ(COAP_RpcSerUnsetUri(Ctx(), &key_), 0u);
  EXPECT_EQ(Send(handle, "x"), 0u);
  EXPECT_EQ(NextAnswer().code, Code(5, 3));
}

TEST_F(DirectAsyncTest, Uninit_WithOpenAndAnsweredRequests) {
  ServeDirect(kModeAsync, ParamWith(0));
  for (int i = 0; i < 4; ++i) AskOpen(Message(i % 2 == 0 ? kCodePost : kCodeGet));
  Send(app_.handles[0], std::string(5000, 'x'));
  Send(app_.handles[1], std::string(5000, 'x'));
  Tick();
  Send(app_.handles[2], "x");
  instance_->Stop();
  EXPECT_TRUE(app_.ends.empty());
  EXPECT_EQ(host_.Pool().LiveCount(), 0u);
}

TEST_F(DirectAsyncTest, PeerThatResets_LosesTheAnswerAlone) {
  ServeDirect(kModeAsync);
  Send(AskOpen(Message(kCodePost)), "one");
  peer_.Send(RstOf(*Next(peer_)));
  Tick();
  Send(AskOpen(Message(kCodePost)), "two");
  EXPECT_EQ(NextAnswer().Text(), "two");
}

// NSTART is 1: the first answer holds the others back until it is given up.
TEST_F(DirectAsyncTest, PeerThatAcknowledgesNothing_LosesItsQueuedAnswers) {
  ServeDirect(kModeAsync, ParamWith(0, 1000000));
  std::vector<void *> handles;
  for (int i = 0; i < 100; ++i) handles.push_back(AskOpen(Message(kCodePost)));
  void *open = AskOpen(Message(kCodePost));
  for (void *handle : handles) Send(handle, "x");
  Tick();
  EXPECT_GT(Ctx()->lib->direct->numQueued, 0u);
  host_.AdvanceMs(200000);
  EXPECT_EQ(Ctx()->lib->direct->numQueued, 0u);
  while (peer_.ReceiveNow()) {
  }
  EXPECT_EQ(Send(open, "open"), 0u);
  EXPECT_EQ(NextAnswer().Text(), "open");
  EXPECT_EQ(NumPeers(), 0u);
}

// ---- bounds ----

TEST_F(DirectAsyncTest, ManyAnswersAtOnce_AllArrive) {
  ServeDirect(kModeAsync);
  for (int i = 0; i < 300; ++i) AskOpen(Message(kCodePost));
  for (size_t i = 0; i < app_.handles.size(); ++i) Send(app_.handles[i], std::to_string(i));
  for (int i = 0; i < 300; ++i) EXPECT_EQ(NextAnswer().Text(), std::to_string(i));
  EXPECT_EQ(NumPeers(), 0u);
}

TEST_F(DirectAsyncTest, Backlog_503) {
  ServeDirect(kModeAsync, ParamWith(0, 1000000));
  AskOpen(Message(kCodePost));
  Ctx()->lib->direct->numQueued = 16384;
  EXPECT_EQ(Ask(Message(kCodePost)).code, Code(5, 3));
  Ctx()->lib->direct->numQueued = 0;
  AskOpen(Message(kCodePost));
}

TEST_F(DirectAsyncTest, TooManyOpen_503) {
  ServeDirect(kModeAsync);
  Ctx()->lib->numOpenAsync = COAP_RPC_MAX_OPEN_ASYNC;
  EXPECT_EQ(Ask(Message(kCodePost)).code, Code(5, 3));
  EXPECT_EQ(NumPeers(), 0u);
  Ctx()->lib->numOpenAsync = 0;
  AskOpen(Message(kCodePost));
}

// One address cannot take all places, whatever port it asks from; of two others at least one has
// another hash.
TEST_F(DirectAsyncTest, HostWithAsManyOpenAsAreFree_503) {
  ServeDirect(kModeAsync);
  AskOpen(Message(kCodePost));
  Ctx()->lib->numOpenAsync = COAP_RPC_MAX_OPEN_ASYNC - 1;
  EXPECT_EQ(Ask(Message(kCodePost)).code, Code(5, 3));
  RawPeer otherPort;
  otherPort.SetRemote(Address());
  otherPort.Send(Message(kCodePost));
  EXPECT_EQ(Next(otherPort)->code, Code(5, 3));
  for (const char *host : {"127.0.0.9", "127.0.0.10"}) {
    RawPeer other{UdpAddress{host, 0}};
    other.SetRemote(Address());
    other.Send(Message(kCodePost));
    ASSERT_TRUE(Next(other));
  }
  EXPECT_EQ(app_.handles.size(), 2u);
  Ctx()->lib->numOpenAsync = 2;
  for (void *handle : app_.handles) Send(handle, "x");
  EXPECT_EQ(COAP_RpcGetOpenAsyncNum(Ctx()), 0u);
  AskOpen(Message(kCodePost));
}

TEST_F(DirectAsyncTest, TooManyPeers_503) {
  ServeDirect(kModeAsync);
  Ctx()->lib->direct->numPeers = 16384;
  EXPECT_EQ(Ask(Message(kCodePost)).code, Code(5, 3));
  Ctx()->lib->direct->numPeers = 0;
  AskOpen(Message(kCodePost));
}

// A quarter of the places is for all ports of one address; of two others at least one has another
// hash.
TEST_F(DirectAsyncTest, TooManyPeersOfOneHost_503) {
  ServeDirect(kModeAsync);
  AskOpen(Message(kCodePost));
  for (uint16_t &num : Ctx()->lib->direct->numPeersOfHosts) num = num != 0 ? 4096 : 0;
  RawPeer same;
  same.SetRemote(Address());
  same.Send(Message(kCodePost));
  const std::optional<CoapMessage> refused = Next(same);
  ASSERT_TRUE(refused);
  EXPECT_EQ(refused->code, Code(5, 3));
  for (const char *host : {"127.0.0.9", "127.0.0.10"}) {
    RawPeer other{UdpAddress{host, 0}};
    other.SetRemote(Address());
    other.Send(Message(kCodePost));
    ASSERT_TRUE(Next(other));
  }
  EXPECT_GT(app_.handles.size(), 1u);
  for (uint16_t &num : Ctx()->lib->direct->numPeersOfHosts) num = num >= 4096 ? 1 : num;
  AskOpen(Message(kCodePost));
}

// Each silent peer has an answer under way and 32 behind it.
TEST_F(DirectAsyncTest, ManyUnacknowledged_NonAnswers) {
  ServeDirect(kModeAsync, ParamWith(0, 1000000));
  std::vector<std::unique_ptr<RawPeer>> silent(2048 / 33 + 1);
  for (auto &peer : silent) {
    peer = std::make_unique<RawPeer>();
    peer->SetRemote(Address());
    for (int i = 0; i < 33; ++i) {
      const CoapMessage post = Message(kCodePost);
      peer->Send(post);
      const std::optional<CoapMessage> ack = Next(*peer);
      ASSERT_TRUE(ack);
      ExpectEmptyAck(*ack, post);
    }
  }
  ASSERT_EQ(app_.handles.size(), silent.size() * 33);
  const CoapMessage first = Message(kCodePost);
  Send(AskOpen(first), "before");
  EXPECT_EQ(NextAnswer().type, CoapType::kCon);
  for (size_t i = 0; i < silent.size() * 33; ++i) Send(app_.handles[i], "unheard");
  COAP_RpcProcIo(Ctx());
  const CoapMessage post = Message(kCodePost);
  Send(AskOpen(post), "later");
  EXPECT_EQ(NextAnswer().type, CoapType::kNon);
  EXPECT_EQ(Ask(post), AnswerTo(post, Code(2, 4), "later"));
}

}  // namespace
}  // namespace coap_rpc_test
