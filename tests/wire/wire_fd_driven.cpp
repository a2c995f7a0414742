// A host that serves the descriptor and nothing else: whatever becomes due has something armed.
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "coap_svc/rpc/coap_rpc_cli.h"
#include "fd_host.h"
#include "observe_server.h"
#include "own_network.h"

namespace coap_rpc_test {
namespace {

constexpr uint8_t kAsync = 1;
constexpr uint64_t kFirstRetransmissionMs = 3000;  // at the latest

class FdDriven : public ObserveServer {
 protected:
  // Watched is one observable URI.
  struct Watched {
    ObserveApp app;
    CoapRpcUriKey key = {};
    CoapRpcSerUriVtbl *entry = nullptr;
  };

  static void SetUpTestSuite() { EnterOwnNetwork(); }

  FdDriven() : fd_(Ctx()) {}

  std::unique_ptr<Watched> ServeWatched(const char *path, uint32_t msgType = COAP_RPC_CON) {
    auto watched = std::make_unique<Watched>();
    watched->key = KeyOf(path, msgType, 1);
    const CoapRpcSerObVtblReg ob = ObRegOf(true);
    watched->entry = Serve(watched->key, RegOf(&watched->app, 0), &ob);
    return watched;
  }

  std::optional<CoapMessage> NextAt(RawPeer &peer) {
    return peer.ReceiveMessage([this] { fd_.Serve(); }, 3);
  }

  void Watch(RawPeer &peer, const Watched &watched, uint8_t token) {
    CoapMessage get = Request(CoapType::kCon, kCodeGet, ++mid_, {token});
    peer.SetRemote(Address());
    peer.Send(get.AddPath(watched.key.uri).AddUint(kOptObserve, 0));
    const std::optional<CoapMessage> answer = NextAt(peer);
    ASSERT_TRUE(answer);
    EXPECT_TRUE(answer->Has(kOptObserve));
  }

  // Change has a change told, as by a timer of the host.
  void Change(Watched &watched, const std::string &val, int numTuples = 1) {
    for (int i = 0; i < numTuples; ++i) {
      const std::string name = "k" + std::to_string(100 + i);
      COAP_RpcSerObserveDataUpdate(Ctx(), &watched.key, name.data(), val.data());
    }
    COAP_RpcSerUriUpdateHandle(watched.entry);
  }

  // Took takes the notification that has come without further ado, and acknowledges it.
  std::optional<CoapMessage> Took(RawPeer &peer) {
    std::optional<CoapMessage> message = peer.ReceiveNow();
    if (message && message->type == CoapType::kCon) peer.Send(AckOf(*message));
    return message;
  }

  void AnswerAll(std::vector<void *> &handles) {
    for (void *handle : handles) {
      COAP_RpcSerSendAsyncResponse(Ctx(), handle, reinterpret_cast<const uint8_t *>("{}"), 2);
    }
    handles.clear();
  }

  void RegisterRequests(const CoapRpcUriKey &key) {
    const CoapRpcCliVtblReg reg = {};
    ASSERT_EQ(COAP_RpcCliRegVtbl(Ctx(), &key, &reg), 0u);
  }

  // Call sends a request of the instance to a peer.
  uint32_t Call(const CoapRpcUriKey &key, const RawPeer &peer) {
    const CoapRpcCliReqParam param = {};
    CoapRpcCliAddr addr = {};
    addr.srcIp.family = addr.dstIp.family = COAP_RPC_IPV4;
    addr.srcIp.addr.ipv4 = kLoopback + 1;
    addr.dstIp.addr.ipv4 = kLoopback;
    addr.dstPort = peer.Local().port;
    addr.codeType = COAP_RPC_GET;
    return COAP_RpcCliConReq(Ctx(), &key, &param, &addr);
  }

  FdHost fd_;
  RawPeer other_;
};

TEST_F(FdDriven, WhatComesDueInsideARun_IsDone) {
  const auto silent = ServeWatched("silent");
  const auto busy = ServeWatched("busy");
  Watch(peer_, *silent, 1);
  Watch(other_, *busy, 2);
  Change(*silent, "v001");
  fd_.Serve();
  const std::optional<CoapMessage> first = peer_.ReceiveNow();
  ASSERT_TRUE(first);
  busy->app.whileBuilding = [](const std::string &) { FdHost::MoveClock(kFirstRetransmissionMs); };
  Change(*busy, "v001");
  fd_.Serve();
  EXPECT_TRUE(Took(other_));
  EXPECT_EQ(peer_.ReceiveNow(), first);  // once more
}

// A run looks for notifications in the order of the resources: of two that ask for each other, one
// has been looked at already.
TEST_F(FdDriven, NotificationAskedForByANotification_IsSent) {
  const std::unique_ptr<Watched> uris[] = {ServeWatched("a", COAP_RPC_NON),
                                           ServeWatched("b", COAP_RPC_NON)};
  Watch(peer_, *uris[0], 1);
  Watch(peer_, *uris[1], 2);
  for (int i = 0; i < 2; ++i) {
    Watched &asker = *uris[i];
    Watched &asked = *uris[1 - i];
    asker.app.whileBuilding = [&](const std::string &) { Change(asked, "v002"); };
    Change(asker, "v001");
    fd_.Serve();
    asker.app.whileBuilding = nullptr;
    EXPECT_TRUE(Took(peer_)) << i;
    EXPECT_TRUE(Took(peer_)) << i;
    fd_.Serve();
  }
}

TEST_F(FdDriven, AnswerGivenInsideARun_IsSent) {
  RawPeer home({OwnHost(Role::kPeer), kCoapPort});
  RawPeer asker({OwnHost(Role::kPeer), 0});
  asker.SetRemote(Address());
  const auto busy = ServeWatched("busy", COAP_RPC_NON);
  Watch(other_, *busy, 1);
  App app;
  Serve(KeyOf("async"), RegOf(&app, kAsync));
  asker.Send(Get(CoapType::kCon, "async", "q"));
  fd_.Serve();
  ASSERT_EQ(app.handles.size(), 1u);
  busy->app.whileBuilding = [&](const std::string &) {
    FdHost::MoveClock(1);
    AnswerAll(app.handles);
    FdHost::MoveClock(1);
  };
  Change(*busy, "v001");
  fd_.Serve();
  const std::optional<CoapMessage> answer = home.ReceiveNow();
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->Text(), "{}");
}

// The queue of messages under way began a while ago, and its first one is due in 8 to 12 s after
// that.
TEST_F(FdDriven, MessageSentBetweenRuns_IsRepeatedInTime) {
  const CoapRpcUriKey key = KeyOf("a");
  const CoapRpcUriKey nonKey = KeyOf("a", COAP_RPC_NON);
  RegisterRequests(key);
  RegisterRequests(nonKey);
  ASSERT_EQ(Call(nonKey, other_), 0u);  // opens the session
  ASSERT_EQ(Call(key, peer_), 0u);
  uint32_t numSent = 0;
  for (int i = 0; i < 200 && numSent < 3; ++i) {
    fd_.Advance(100);
    if (peer_.ReceiveNow()) ++numSent;
  }
  ASSERT_EQ(numSent, 3u);
  ASSERT_TRUE(other_.ReceiveNow());
  fd_.Advance(4500);
  ASSERT_EQ(Call(key, other_), 0u);
  const std::optional<CoapMessage> request = other_.ReceiveNow();
  ASSERT_TRUE(request);
  fd_.Advance(kFirstRetransmissionMs);
  EXPECT_EQ(other_.ReceiveNow(), request);
}

TEST_F(FdDriven, PendingRequest_CausesNoRuns) {
  App app;
  Serve(KeyOf("async"), RegOf(&app, kAsync));
  peer_.Send(Get(CoapType::kCon, "async", "q"));
  fd_.Serve();
  ASSERT_EQ(app.handles.size(), 1u);
  const uint32_t numBefore = fd_.NumRuns();
  fd_.Advance(3'600'000);
  EXPECT_LE(fd_.NumRuns() - numBefore, 5u);  // the end of its session is one
  AnswerAll(app.handles);
  fd_.Serve();
}

TEST_F(FdDriven, MessagesThatAreAcknowledged_SeldomSetTheTimer) {
  constexpr uint32_t kNumMessages = 50;
  const auto watched = ServeWatched("watched");
  Watch(peer_, *watched, 1);
  const uint32_t numBefore = fd_.NumTimerSets();
  for (uint32_t i = 0; i < kNumMessages; ++i) {
    Change(*watched, i % 2 == 0 ? "v001" : "v002");
    fd_.Serve();
    ASSERT_TRUE(Took(peer_)) << i;
    fd_.Serve();
  }
  EXPECT_LE(fd_.NumTimerSets() - numBefore, kNumMessages / 5);
}

// A notification is deferred while the blocks of another to the same peer are fetched, for two
// seconds after the latest.
TEST_F(FdDriven, NotificationThatWaitsForBlocks_GoesOutAfterTwoSeconds) {
  const auto big = ServeWatched("big", COAP_RPC_NON);
  const auto small = ServeWatched("small", COAP_RPC_NON);
  big->app.padding = 1000;
  Watch(peer_, *big, 1);
  Watch(peer_, *small, 2);
  Change(*big, "v001", 10);
  fd_.Serve();
  const std::optional<CoapMessage> block = Took(peer_);
  ASSERT_TRUE(block && block->Block(kOptBlock2));
  fd_.Advance(50);  // what is looked at ten times a second is not looked at when that is over
  CoapMessage next = Request(CoapType::kCon, kCodeGet, ++mid_, {1}).AddPath("big");
  peer_.Send(next.AddBlock(kOptBlock2, {1, false, block->Block(kOptBlock2)->szx}));
  ASSERT_TRUE(NextAt(peer_));
  fd_.Advance(500);
  Change(*small, "v001");
  fd_.Advance(1000);
  EXPECT_FALSE(peer_.ReceiveNow());
  fd_.Advance(501);
  EXPECT_TRUE(Took(peer_));
}

// One CON message is under way to a peer at a time.
TEST_F(FdDriven, NotificationThatWaitsForAMessage_GoesOutWhenThatIsGivenUp) {
  const auto first = ServeWatched("first");
  const auto second = ServeWatched("second");
  Watch(peer_, *first, 1);
  Watch(peer_, *second, 2);
  Change(*first, "v001");
  Change(*second, "v001");
  fd_.Serve();
  const std::optional<CoapMessage> message = peer_.ReceiveNow();
  ASSERT_TRUE(message);
  const bool isFirst = message->token == Bytes{1};
  fd_.Advance(100'000);
  std::optional<CoapMessage> last;
  while (const std::optional<CoapMessage> next = peer_.ReceiveNow()) last = next;
  ASSERT_TRUE(last);
  EXPECT_EQ(last->token, Bytes{static_cast<uint8_t>(isFirst ? 2 : 1)});
}

TEST_F(FdDriven, PayloadInBlocks_IsReleased) {
  const auto big = ServeWatched("big", COAP_RPC_NON);
  big->app.padding = 1000;
  Watch(peer_, *big, 1);
  Change(*big, "v001", 10);
  fd_.Serve();
  const std::optional<CoapMessage> first = Took(peer_);
  ASSERT_TRUE(first && first->Block(kOptBlock2));
  ReadBlocks(*first, "big", "", mid_, [&](const CoapMessage &next) {
    peer_.Send(next);
    return NextAt(peer_).value_or(CoapMessage());
  });
  EXPECT_NE(big->entry->isSendingLargeBlock, 0u);
  fd_.Advance(1200);
  EXPECT_EQ(big->entry->isSendingLargeBlock, 0u);
  fd_.Advance(10'000);  // its last block is forgotten as well, and nothing is to be done any more
  const uint32_t numBefore = fd_.NumRuns();
  fd_.Advance(10'000);
  EXPECT_EQ(fd_.NumRuns(), numBefore);
}

TEST_F(FdDriven, PayloadInBlocksThatNobodyFetches_IsReleased) {
  const auto big = ServeWatched("big", COAP_RPC_NON);
  big->app.padding = 1000;
  Watch(peer_, *big, 1);
  Change(*big, "v001", 10);
  fd_.Serve();
  EXPECT_NE(big->entry->isSendingLargeBlock, 0u);
  fd_.Advance(20'000);
  EXPECT_EQ(big->entry->isSendingLargeBlock, 0u);
}

// The address is gone for a moment; the notification is tried again a second later.
TEST_F(FdDriven, NotificationThatCannotBeSent_IsTriedAgain) {
  if (!EnterOwnNetwork()) GTEST_SKIP() << "no network of its own";
  const auto watched = ServeWatched("watched", COAP_RPC_NON);
  Watch(peer_, *watched, 1);
  Change(*watched, "v001");
  ASSERT_TRUE(SetInterfaceUp("lo", false));
  fd_.Serve();
  ASSERT_TRUE(SetInterfaceUp("lo"));
  ASSERT_FALSE(peer_.ReceiveNow());
  fd_.Advance(1000);
  EXPECT_TRUE(Took(peer_));
}

// A peer that is asked for a sign of life after five seconds, whenever that was wished for.
TEST_F(FdDriven, SilentPeer_IsAsked) {
  const CoapRpcUriKey key = KeyOf("a", COAP_RPC_NON);
  RegisterRequests(key);
  fd_.Serve();
  COAP_RpcSetKeepAlive(Ctx(), 5);
  fd_.Serve();
  ASSERT_EQ(Call(key, peer_), 0u);
  fd_.Advance(5000);
  ASSERT_TRUE(peer_.ReceiveNow());  // the request
  const std::optional<CoapMessage> ping = peer_.ReceiveNow();
  ASSERT_TRUE(ping);
  EXPECT_EQ(ping->code, kCodeEmpty);
  peer_.SetRemote(peer_.Datagrams().back().other);
  peer_.Send(RstOf(*ping));
  COAP_RpcSetKeepAlive(Ctx(), 0);
  fd_.Advance(10'000);
  EXPECT_FALSE(peer_.ReceiveNow()) << peer_.LogText();
  COAP_RpcSetKeepAlive(Ctx(), 5);
  fd_.Advance(5000);
  EXPECT_TRUE(peer_.ReceiveNow());
}

// FdUnderLoad asks for notifications and answers while datagrams come and messages wait for their
// acknowledgement, and while time passes inside callbacks.
class FdUnderLoad : public FdDriven {
 protected:
  void SetUp() override {
    asker_.SetRemote(Address());
    Serve(KeyOf("async"), RegOf(&async_, kAsync));
    Watch(peer_, *watched_, 1);
    Watch(other_, *slow_, 2);
    slow_->app.whileBuilding = [this](const std::string &) { PassTime(); };
    host_.Logs().SuppressBelow(KST_LOG_ERROR + 1);
    COAP_RpcSetLibLogLevel(Ctx(), 0);
  }

  uint32_t UpTo(uint32_t num) { return static_cast<uint32_t>(random_()) % (num + 1); }

  // PassTime moves the clock, now and then past whatever waits for a retransmission.
  void PassTime() { FdHost::MoveClock(UpTo(15) == 0 ? kFirstRetransmissionMs : UpTo(2)); }

  void MakeLoad() {
    for (uint32_t num = UpTo(2); num > 0; --num) asker_.Send(Get(CoapType::kNon, "nowhere"));
    if (UpTo(3) == 0) Change(*slow_, "v001");
    asker_.Send(Get(CoapType::kNon, "async", "q"));
    fd_.Serve();
    fd_.Advance(UpTo(20));
  }

  // TakeLoad acknowledges some of what came.
  void TakeLoad() {
    while (asker_.ReceiveNow()) {
    }
    if (UpTo(5) != 0) return;
    while (Took(other_)) fd_.Serve();
  }

  // Ask asks for one notification, and for one answer before it or while it is made.
  void Ask() {
    const bool isInside = UpTo(1) == 0;
    watched_->app.whileBuilding = [this, isInside](const std::string &) {
      PassTime();
      if (isInside) AnswerAll(async_.handles);
      PassTime();
    };
    if (!isInside) AnswerAll(async_.handles);
    Change(*watched_, "v001");
  }

  bool HasAnswerLeft() {
    const std::optional<CoapMessage> answer = home_.ReceiveNow();
    if (!answer) return false;
    home_.SetRemote(home_.Datagrams().back().other);
    home_.Send(AckOf(*answer));
    return true;
  }

  std::mt19937 random_{7};
  RawPeer home_{UdpAddress{OwnHost(Role::kPeer), kCoapPort}};
  RawPeer asker_{UdpAddress{OwnHost(Role::kPeer), 0}};
  App async_;
  const std::unique_ptr<Watched> watched_ = ServeWatched("watched", COAP_RPC_NON);
  const std::unique_ptr<Watched> slow_ = ServeWatched("slow");
};

TEST_F(FdUnderLoad, WhatIsAskedFor_HasLeftWhenTheDescriptorIsQuiet) {
  constexpr int kNumAsked = 10'000;
  int numStalled = 0;
  for (int i = 0; i < kNumAsked; ++i) {
    MakeLoad();
    ASSERT_EQ(async_.handles.size(), 1u) << i;
    Ask();
    fd_.Serve();
    if (!Took(peer_)) ++numStalled;
    if (!HasAnswerLeft()) ++numStalled;
    ASSERT_LT(numStalled, 100) << i;
    fd_.Serve();
    TakeLoad();
    async_.requests.clear();
    host_.ClearLogs();
  }
  EXPECT_EQ(numStalled, 0);
}

}  // namespace
}  // namespace coap_rpc_test
