// Detaching, moving and stopping while everything that can be under way is under way.
#include <algorithm>
#include <array>

#include "coap_svc/rpc/coap_rpc_cli.h"
#include "coap_svc/rpc/init/coap_rpc_main.h"
#include "observe_server.h"

namespace coap_rpc_test {
namespace {

constexpr uint8_t kAsync = 1;
constexpr char kSilentHost[] = "127.0.0.3";
constexpr uint32_t kSilentIp = 0x7F000003;
constexpr uint64_t kLongMs = 120'000;  // longer than every retransmission, transfer and session

// The three served URIs.
enum Uri { kObs, kBig, kAsk, kNumUris };

// Busy is a server and client with, all at once: an observer whose notification is not
// acknowledged, a body of 60,000 bytes of which two blocks were fetched, an asynchronous request
// without answer and one whose answer has not left, a request and an observe relation of the client
// to a peer that says nothing.
class Busy : public ObserveServer {
 public:
  Busy() : silent_({kSilentHost, 0}) {
    host_.Logs().SuppressBelow(4);
    keys_[kObs] = KeyOf("obs", COAP_RPC_CON, 1);
    keys_[kBig] = KeyOf("big", COAP_RPC_CON, 1);
    keys_[kAsk] = KeyOf("ask");
    const CoapRpcSerObVtblReg ob = ObRegOf(true);
    big_.padding = 60'000;
    Serve(keys_[kObs], RegOf(&app_, 0), &ob);
    Serve(keys_[kBig], RegOf(&big_, 0), &ob);
    Serve(keys_[kAsk], RegOf(&ask_, kAsync));
    for (RawPeer *peer : {&bigPeer_, &asker_}) peer->SetRemote(Address());
    StartObserver();
    StartTransfer();
    StartRequests();
    StartClient();
  }
  void TestBody() override {}

  void Detach(Uri uri) { EXPECT_EQ(COAP_RpcSerUnsetUri(Ctx(), &keys_[uri]), 0u); }

  void Move(Uri uri) {
    CoapRpcSerListenAddr addr = {};
    addr.listenAddr.family = COAP_RPC_IPV4;
    addr.listenAddr.addr.ipv4 = kLoopback;
    addr.port = FindFreeUdpPort();
    EXPECT_EQ(COAP_RpcSerSetUri(Ctx(), &keys_[uri], &addr), 0u);
  }

  void EndRelation() { COAP_RpcCliObserveUnReq(Ctx(), &relationKey_, &param_, &addr_); }

  void StopServer() { COAP_RpcSerUninit(Ctx()); }
  void StopClient() { COAP_RpcCliUninit(Ctx()); }

  // Stop takes the instance down; nothing may be left of it.
  void Stop() {
    instance_->Stop();
    TearDown();
  }

  void Wait(uint64_t ms) { host_.AdvanceMs(ms); }

  // Speak lets all peers say what they still may: acknowledgements, the next block, the requests
  // once more, answers to the client.
  void Speak() {
    peer_.Send(AckOf(notification_));
    peer_.Send(RstOf(notification_));
    bigPeer_.Send(BlockRequest(2));
    asker_.Send(question_);
    for (const CoapMessage &request : clientRequests_) {
      CoapMessage answer = Request(CoapType::kAck, Code(2, 5), request.messageId, request.token);
      silent_.Send(answer.AddPath(request.Path()).PayloadText("late"));
    }
    Tick();
  }

 private:
  static CoapRpcIpAddr Ipv4(uint32_t ipv4) {
    CoapRpcIpAddr addr = {};
    addr.family = COAP_RPC_IPV4;
    addr.addr.ipv4 = ipv4;
    return addr;
  }

  CoapMessage Registration(const char *path) {
    CoapMessage get = Request(CoapType::kCon, kCodeGet, ++mid_, {0x0B}).AddPath(path);
    return get.AddUint(kOptObserve, 0);
  }

  CoapMessage BlockRequest(uint32_t num) {
    CoapMessage get = Request(CoapType::kCon, kCodeGet, ++mid_, {0x0C}).AddPath("big");
    return get.AddBlock(kOptBlock2, {num, false, 6});
  }

  void UpdateOf(Uri uri) {
    EXPECT_EQ(COAP_RpcSerObserveDataUpdate(Ctx(), &keys_[uri], "key1", "val1"), 0u);
  }

  void StartObserver() {
    EXPECT_EQ(Ask(peer_, Registration("obs")).code, Code(2, 1));
    UpdateOf(kObs);
    notification_ = Next(peer_).value_or(CoapMessage());
    EXPECT_EQ(notification_.type, CoapType::kCon);
    EXPECT_EQ(notification_.code, Code(2, 5));
  }

  void StartTransfer() {
    EXPECT_EQ(Ask(bigPeer_, Registration("big")).code, Code(2, 1));
    UpdateOf(kBig);
    const CoapMessage first = Next(bigPeer_).value_or(CoapMessage());
    EXPECT_TRUE(first.Block(kOptBlock2).value_or(CoapBlock()).more);
    bigPeer_.Send(AckOf(first));
    EXPECT_TRUE(Ask(bigPeer_, BlockRequest(1)).Block(kOptBlock2).value_or(CoapBlock()).more);
  }

  void StartRequests() {
    for (const char *text : {"never answered", "answered"}) {
      question_ = Get(CoapType::kCon, "ask", text);
      ExpectEmptyAck(Ask(asker_, question_), question_);
    }
    EXPECT_EQ(ask_.handles.size(), 2u);
  }

  void StartClient() {
    addr_.srcIp = Ipv4(kLoopback);
    addr_.dstIp = Ipv4(kSilentIp);
    addr_.dstPort = silent_.Local().port;
    addr_.codeType = COAP_RPC_GET;
    EXPECT_EQ(COAP_RpcCliConReq(Ctx(), &plainKey_, &param_, &addr_), 0u);
    EXPECT_EQ(COAP_RpcCliObserveReq(Ctx(), &relationKey_, &param_, &addr_), 0u);
    clientRequests_.push_back(Next(silent_).value_or(CoapMessage()));
    Wait(1100);
    // Not before everything else: the answer is to be on its way still.
    const uint8_t text[] = "answer";
    EXPECT_EQ(COAP_RpcSerSendAsyncResponse(Ctx(), ask_.handles[1], text, sizeof(text)), 0u);
  }

  std::array<CoapRpcUriKey, kNumUris> keys_;
  ObserveApp big_;
  App ask_;
  RawPeer bigPeer_;
  RawPeer asker_;
  RawPeer silent_;
  CoapMessage notification_;
  CoapMessage question_;
  std::vector<CoapMessage> clientRequests_;
  const CoapRpcUriKey plainKey_ = KeyOf("plain");
  const CoapRpcUriKey relationKey_ = KeyOf("relation", COAP_RPC_CON, 1);
  const CoapRpcCliReqParam param_ = {};
  CoapRpcCliAddr addr_ = {};
};

// RunAllOrders runs the steps on a new Busy in every order, with `between` after each, and stops
// it.
template <size_t kNum>
void RunAllOrders(const std::array<std::function<void(Busy &)>, kNum> &steps,
                  const std::function<void(Busy &)> &between) {
  std::array<size_t, kNum> order;
  for (size_t i = 0; i < kNum; ++i) order[i] = i;
  do {
    std::string text = "order";
    for (const size_t step : order) text += " " + std::to_string(step);
    SCOPED_TRACE(text);
    Busy busy;
    for (const size_t step : order) {
      steps[step](busy);
      between(busy);
    }
    busy.Stop();
  } while (!testing::Test::HasFailure() && std::next_permutation(order.begin(), order.end()));
}

using Steps = std::array<std::function<void(Busy &)>, 4>;

const Steps kDetachAll = {
    [](Busy &busy) { busy.Detach(kObs); }, [](Busy &busy) { busy.Detach(kBig); },
    [](Busy &busy) { busy.Detach(kAsk); }, [](Busy &busy) { busy.EndRelation(); }};

const Steps kMoveAll = {[](Busy &busy) { busy.Move(kObs); }, [](Busy &busy) { busy.Move(kBig); },
                        [](Busy &busy) { busy.Move(kAsk); },
                        [](Busy &busy) { busy.EndRelation(); }};

const Steps kMoveAndDetach = {[](Busy &busy) {
                                busy.Move(kObs);
                                busy.Detach(kObs);
                              },
                              [](Busy &busy) { busy.Move(kBig); },
                              [](Busy &busy) { busy.Detach(kBig); },
                              [](Busy &busy) { busy.Detach(kAsk); }};

const std::array<std::function<void(Busy &)>, 2> kStopSides = {
    [](Busy &busy) { busy.StopServer(); }, [](Busy &busy) { busy.StopClient(); }};

void DoNothing(Busy &) {}
void Speak(Busy &busy) { busy.Speak(); }
void WaitLong(Busy &busy) {
  busy.Wait(kLongMs);
  busy.Speak();
}

TEST(Teardown, StopAtOnce_IsClean) {
  Busy busy;
  busy.Stop();
}

TEST(Teardown, StopAfterALongSilence_IsClean) {
  Busy busy;
  busy.Wait(kLongMs);
  busy.Stop();
}

TEST(Teardown, DetachInEveryOrder_IsClean) { RunAllOrders(kDetachAll, DoNothing); }

TEST(Teardown, DetachInEveryOrderWhilePeersSpeak_IsClean) { RunAllOrders(kDetachAll, Speak); }

TEST(Teardown, DetachInEveryOrderWithLongPauses_IsClean) { RunAllOrders(kDetachAll, WaitLong); }

TEST(Teardown, MoveInEveryOrder_IsClean) { RunAllOrders(kMoveAll, DoNothing); }

TEST(Teardown, MoveInEveryOrderWhilePeersSpeak_IsClean) { RunAllOrders(kMoveAll, Speak); }

TEST(Teardown, MoveInEveryOrderWithLongPauses_IsClean) { RunAllOrders(kMoveAll, WaitLong); }

TEST(Teardown, MoveThenDetachInEveryOrderWhilePeersSpeak_IsClean) {
  RunAllOrders(kMoveAndDetach, Speak);
}

TEST(Teardown, SidesStoppedInEitherOrder_IsClean) { RunAllOrders(kStopSides, DoNothing); }

// libcoap lives longer than the server and the client, and calls back into what is left.
TEST(Teardown, SidesStoppedWhilePeersSpeak_IsClean) { RunAllOrders(kStopSides, Speak); }

TEST(Teardown, SidesStoppedLongBeforeTheAdapter_IsClean) { RunAllOrders(kStopSides, WaitLong); }

}  // namespace
}  // namespace coap_rpc_test
