// Thousands of calls of one instance to direct entries of another, over a network that loses,
// repeats and reorders: each POST is executed at most once, and each call ends once, with the
// answer to its own request or without one.
//
// Each seed is one run, the same on any machine.  COAP_RPC_FAULT_SEEDS=20 runs seeds 1 to 20 of
// every load, with all of its calls.
#include <array>
#include <cstdio>
#include <cstdlib>
#include <numeric>

#include "coap_svc/rpc/coap_rpc_call.h"
#include "coap_svc/rpc/coap_rpc_direct.h"
#include "coap_svc/rpc/libadapter/direct/coap_rpc_lib_direct_once.h"
#include "lossy_network.h"
#include "two_instances.h"

namespace coap_rpc_test {
namespace {

constexpr char kPath[] = "a/b";
constexpr uint32_t kNumSources = 32;  // of the client's addresses, each with a session
constexpr uint16_t kNstart = 4;
constexpr uint64_t kDownMs = 5000;           // a server that restarts
constexpr uint64_t kMaxLatencyMs = 100'000;  // RFC 7252 section 4.8.2
constexpr uint64_t kLongerThanAnyLifetimeMs = 300'000;
constexpr uint32_t kNonDeadlineMs = 30'000;
constexpr uint32_t kCallNotSent = 1900001499;

enum class Served { kAtOnce, kLater, kEither };

struct Load {
  const char *name;
  Served served = Served::kAtOnce;
  bool isNon = false;
  bool isForgetful = false;  // the server forgets at once what it has executed
  uint32_t numCalls = 10'000;
  uint32_t bodySize = 40;
  uint32_t numRestarts = 0;
  uint32_t shorter = 1;  // this part of the calls unless seeds are asked for
  uint32_t maxOpen = 64;
  uint64_t longestMs = kMaxLatencyMs;  // on the way to the server
};

// BodyOf is a text that names a life of the server and a call, and no part of it fits another's.
std::string BodyOf(uint32_t life, uint32_t serial, uint32_t size) {
  const std::string unit = std::to_string(life) + ":" + std::to_string(serial) + " ";
  std::string body;
  while (body.size() < size) body += unit;
  body.resize(size);
  return body;
}

// Named is what a body says of itself.
struct Named {
  uint32_t life = 0;
  uint32_t serial = UINT32_MAX;

  explicit Named(const std::string &body) {
    EXPECT_EQ(sscanf(body.c_str(), "%u:%u ", &life, &serial), 2) << body.substr(0, 40);
  }
};

// CountingServer counts what it executes, in each of its lives.
class CountingServer {
 public:
  explicit CountingServer(const Load &load) : load_(load) { Begin(); }

  void Start() {
    side_.Start();
    Begin();
  }
  void Stop() {
    numForgotten_ += COAP_RpcGetForgottenNum(side_.Ctx());
    side_.Stop();
    open_.clear();
  }
  bool IsRunning() const { return side_.IsRunning(); }
  uint32_t Life() const { return static_cast<uint32_t>(lives_.size()); }  // from 1
  uint64_t NumForgotten() const { return numForgotten_ + COAP_RpcGetForgottenNum(side_.Ctx()); }

  // In a life, 1 the first one; and in all of them.
  uint32_t NumExecuted(uint32_t life, uint32_t serial) const { return lives_[life - 1][serial]; }
  uint32_t NumExecuted(uint32_t serial) const {
    return std::accumulate(lives_.begin(), lives_.end(), 0u,
                           [=](uint32_t sum, const auto &life) { return sum + life[serial]; });
  }

  void Step() {
    side_.Host().AdvanceMs(kTickMs);
    side_.Host().ClearLogs();
    if (!IsRunning()) return;
    if (load_.isForgetful) coap_rpc::ForgetAllOnce(side_.Ctx());
    AnswerDue();
  }

 private:
  struct Open {
    uint32_t serial;
    void *handle;
  };

  void AnswerDue() {
    ++nowTicks_;
    while (!open_.empty() && open_.begin()->first <= nowTicks_) {
      const auto first = open_.extract(open_.begin());
      const std::string answer = AnswerTo(first.mapped().serial);
      EXPECT_EQ(COAP_RpcSerSendAsyncResponse(side_.Ctx(), first.mapped().handle,
                                             reinterpret_cast<const uint8_t *>(answer.data()),
                                             static_cast<uint32_t>(answer.size())),
                0u);
    }
  }

  static CountingServer &Of(uint64_t userData) {
    return *reinterpret_cast<CountingServer *>(userData);
  }

  // An entry answers at once or later: where both occur they are two, and a call's serial chooses.
  void Begin() {
    lives_.emplace_back(load_.numCalls);
    if (load_.served != Served::kLater) Serve(0, kModeSync);
    if (load_.served != Served::kAtOnce) Serve(1, kModeAsync);
  }
  void Serve(uint32_t number, uint8_t mode) {
    const CoapRpcUriKey key = KeyOf((kPath + std::to_string(number)).c_str());
    CoapRpcSerVtblReg reg = {};
    reg.mode = mode;
    reg.userData = reinterpret_cast<uint64_t>(this);
    reg.onRequest = OnRequest;
    reg.onAsyncRequest = OnAsyncRequest;
    CoapRpcSerDirectParam param = {};
    param.onAsyncEnd = OnAsyncEnd;
    EXPECT_EQ(COAP_RpcSerRegVtbl(side_.Ctx(), &key, &reg, nullptr), 0u);
    EXPECT_EQ(COAP_RpcSerSetDirect(side_.Ctx(), &key, &param), 0u);
    side_.Attach(key);
  }

  uint32_t Execute(const uint8_t *payload, uint32_t len) {
    const std::string body(payload, payload + len);
    const uint32_t serial = Named(body).serial;
    EXPECT_EQ(body, BodyOf(0, serial, load_.bodySize));
    if (serial < load_.numCalls) ++lives_.back()[serial];
    return serial;
  }
  std::string AnswerTo(uint32_t serial) const { return BodyOf(Life(), serial, load_.bodySize); }

  static int32_t OnRequest(uint64_t userData, const CoapRpcSerReqInfo *, uint8_t *payload,
                           uint32_t len, uint8_t *out, uint32_t) {
    CountingServer &self = Of(userData);
    const std::string answer = self.AnswerTo(self.Execute(payload, len));
    std::copy(answer.begin(), answer.end(), out);
    return static_cast<int32_t>(answer.size());
  }

  // The application takes up to 5 s.
  static uint32_t OnAsyncRequest(uint64_t userData, uint8_t *payload, uint32_t len, void *async) {
    CountingServer &self = Of(userData);
    const uint32_t serial = self.Execute(payload, len);
    self.open_.emplace(self.nowTicks_ + serial * 7919 % 50, Open{serial, async});
    return 0;
  }
  static void OnAsyncEnd(uint64_t, void *, uint32_t reason) { ADD_FAILURE() << reason; }

  static constexpr uint8_t kModeSync = 0, kModeAsync = 1;

  const Load &load_;
  Side side_{kServerIp};
  std::vector<std::vector<uint32_t>> lives_;  // executions by serial
  std::multimap<uint64_t, Open> open_;        // by when they are answered
  uint64_t nowTicks_ = 0;
  uint64_t numForgotten_ = 0;
};

struct Run {
  Load load;
  uint32_t seed;
};

class CallFaults : public testing::TestWithParam<Run> {
 protected:
  struct Call {
    uint64_t id = 0;    // 0: not made
    uint32_t life = 0;  // of the server when it was made
    bool mayBeRefused = false;
    uint32_t numEnds = 0;
    CoapRpcCallRsp end = {};
    uint32_t answerLife = 0;
  };

  CallFaults() : calls_(load_.numCalls) {
    EXPECT_EQ(COAP_RpcSetNstart(client_.Ctx(), kNstart), 0u);
    COAP_RpcSetLibLogLevel(client_.Ctx(), 0);
  }

  static void OnRsp(uint64_t userData, const CoapRpcCallRsp *rsp) {
    CallFaults &self = *reinterpret_cast<CallFaults *>(userData);
    const auto found = self.serials_.find(rsp->id);
    ASSERT_NE(found, self.serials_.end());
    self.Note(found->second, *rsp);
  }

  void Note(uint32_t serial, const CoapRpcCallRsp &rsp) {
    Call &call = calls_[serial];
    ++call.numEnds;
    call.end = rsp;
    --numOpen_;
    if (rsp.status != COAP_RPC_CALL_ANSWERED || rsp.code != 204) return;
    const std::string body(rsp.payload, rsp.payload + rsp.payloadLen);
    call.answerLife = Named(body).life;
    EXPECT_EQ(body, BodyOf(call.answerLife, serial, load_.bodySize));
  }

  bool IsLater(uint32_t serial) const {
    return load_.served == Served::kLater || (load_.served == Served::kEither && serial % 2 == 1);
  }

  void Make(uint32_t serial) {
    const std::string path = kPath + std::to_string(IsLater(serial) ? 1 : 0);
    const std::string body = BodyOf(0, serial, load_.bodySize);
    CoapRpcCallAddr addr = {};
    addr.srcIp = Ipv4Address(kClientIp + serial % kNumSources);
    addr.dstIp = Ipv4Address(kServerIp);
    addr.dstPort = kCoapPort;
    CoapRpcCall request = {};
    request.method = COAP_RPC_POST;
    request.isNon = load_.isNon;
    if (load_.isNon) request.deadlineMs = kNonDeadlineMs;
    request.path = path.c_str();
    request.payload = reinterpret_cast<const uint8_t *>(body.data());
    request.payloadLen = static_cast<uint32_t>(body.size());
    request.userData = reinterpret_cast<uint64_t>(this);
    request.onRsp = OnRsp;
    Send(addr, request, serial);
  }

  void Send(const CoapRpcCallAddr &addr, const CoapRpcCall &request, uint32_t serial) {
    Call &call = calls_[serial];
    call.life = server_.Life();
    call.mayBeRefused = !server_.IsRunning();
    const uint32_t ret = COAP_RpcCall(client_.Ctx(), &addr, &request, &call.id);
    if (ret != 0) {
      EXPECT_EQ(ret, kCallNotSent);
      EXPECT_TRUE(call.mayBeRefused);
      call.id = 0;
      return;
    }
    EXPECT_TRUE(serials_.emplace(call.id, serial).second);
    ++numOpen_;
  }

  void Step() {
    network_.AdvanceMs(kTickMs);
    client_.Host().AdvanceMs(kTickMs);
    server_.Step();
    client_.Host().ClearLogs();
  }

  // The whole of the server's library is gone for a while: its ports are closed.
  void Restart() {
    server_.Stop();
    for (Call &call : calls_) call.mayBeRefused |= call.id != 0 && call.numEnds == 0;
    for (uint64_t ms = 0; ms < kDownMs; ms += kTickMs) Round();
    server_.Start();
    COAP_RpcSetLibLogLevel(client_.Ctx(), 0);
  }

  // A few calls a turn, so that they do not end in step.
  void Round() {
    const uint32_t most = server_.IsRunning() ? 8 : 1;
    for (uint32_t i = 0; i < most && numOpen_ < load_.maxOpen && numMade_ < load_.numCalls; ++i) {
      Make(numMade_++);
    }
    Step();
  }

  void RunCalls() {
    for (uint32_t i = 1; i <= load_.numRestarts; ++i) {
      while (numMade_ < load_.numCalls * i / (load_.numRestarts + 1)) Round();
      Restart();
    }
    while (numMade_ < load_.numCalls || numOpen_ != 0 || !network_.IsEmpty()) Round();
  }

  void ExpectOneEnd(uint32_t serial) const {
    const Call &call = calls_[serial];
    EXPECT_EQ(call.numEnds, call.id != 0 ? 1u : 0u) << serial;
    if (call.numEnds == 0) return;
    if (call.end.status == COAP_RPC_CALL_UNREACHABLE) {
      EXPECT_TRUE(call.mayBeRefused) << serial;
    } else if (call.end.status != COAP_RPC_CALL_ANSWERED) {
      EXPECT_EQ(call.end.status, COAP_RPC_CALL_TIMEOUT) << serial;
    } else if (call.end.code != 204) {
      ExpectError(call.end.code, serial);
    }
  }

  // An answer that the server gave up is 5.04, a body of which a restart has taken a part 4.08.
  void ExpectError(uint32_t code, uint32_t serial) const {
    EXPECT_TRUE((code == 504 && IsLater(serial)) || (code == 408 && load_.numRestarts != 0))
        << serial << ": " << code;
  }

  void ExpectAnswerOfItsLife(uint32_t serial) const {
    const Call &call = calls_[serial];
    if (call.answerLife == 0) return;
    EXPECT_GE(call.answerLife, call.life) << serial;
    EXPECT_GE(server_.NumExecuted(call.answerLife, serial), 1u) << serial;
  }

  void ExpectAtMostOnce(uint32_t serial) const {
    for (uint32_t life = 1; life <= server_.Life(); ++life) {
      EXPECT_LE(server_.NumExecuted(life, serial), calls_[serial].id != 0 ? 1u : 0u) << serial;
    }
  }

  size_t NumWith(uint32_t status, uint32_t code = 0) const {
    return static_cast<size_t>(std::count_if(calls_.begin(), calls_.end(), [=](const Call &call) {
      return call.end.status == status && call.end.code == code;
    }));
  }

  size_t NumExecutedTwice() const {
    size_t num = 0;
    for (uint32_t serial = 0; serial < load_.numCalls; ++serial) {
      num += server_.NumExecuted(serial) > 1;
    }
    return num;
  }

  void Print() const {
    const LossyNetwork::Counts &to = network_.ToServer();
    const LossyNetwork::Counts &from = network_.ToClient();
    printf("%zu answered, %zu with 4.08, %zu with 5.04, %zu timeouts, %zu unreachable; ",
           NumWith(COAP_RPC_CALL_ANSWERED, 204), NumWith(COAP_RPC_CALL_ANSWERED, 408),
           NumWith(COAP_RPC_CALL_ANSWERED, 504), NumWith(COAP_RPC_CALL_TIMEOUT),
           NumWith(COAP_RPC_CALL_UNREACHABLE));
    printf("%zu executed twice\n", NumExecutedTwice());
    for (const LossyNetwork::Counts &way : {to, from}) {
      printf("%llu sent, %llu lost, %llu copied, %llu overtaken\n",
             static_cast<unsigned long long>(way.sent), static_cast<unsigned long long>(way.lost),
             static_cast<unsigned long long>(way.copied),
             static_cast<unsigned long long>(way.overtaken));
    }
    printf("digest %016llx\n", static_cast<unsigned long long>(network_.Digest()));
  }

  static constexpr uint32_t kClientIp = 0x7F000101;

  const Load load_ = GetParam().load;
  const LossyNetwork::Faults toServer_ = {30, 10, load_.longestMs};
  const LossyNetwork::Faults toClient_ = {30, 10, kLongerThanAnyLifetimeMs};
  LossyNetwork network_{GetParam().seed, kServerIp, toServer_, toClient_};
  Side client_{kClientIp};
  CountingServer server_{load_};
  std::vector<Call> calls_;
  std::map<uint64_t, uint32_t> serials_;  // by id
  uint32_t numMade_ = 0;
  uint32_t numOpen_ = 0;
};

std::vector<Run> Runs(std::initializer_list<Load> loads) {
  const char *text = getenv("COAP_RPC_FAULT_SEEDS");
  const uint32_t numSeeds = text ? static_cast<uint32_t>(strtoul(text, nullptr, 10)) : 1;
  std::vector<Run> runs;
  for (Load load : loads) {
    if (!text) load.numCalls /= load.shorter;
    for (uint32_t seed = 1; seed <= numSeeds; ++seed) runs.push_back({load, seed});
  }
  return runs;
}

std::string NameOf(const testing::TestParamInfo<Run> &test) {
  return std::string(test.param.load.name) + "_" + std::to_string(test.param.seed);
}

TEST_P(CallFaults, ExecutedAtMostOnce_EndedOnceWithItsOwnAnswer) {
  RunCalls();
  for (uint32_t serial = 0; serial < load_.numCalls; ++serial) {
    ExpectOneEnd(serial);
    ExpectAnswerOfItsLife(serial);
    ExpectAtMostOnce(serial);
  }
  EXPECT_EQ(server_.NumForgotten(), 0u);
  EXPECT_EQ(COAP_RpcGetCallNum(client_.Ctx()), 0u);
  network_.ToServer().Expect(toServer_);
  network_.ToClient().Expect(toClient_);
  Print();
}

INSTANTIATE_TEST_SUITE_P(
    Runs, CallFaults,
    testing::ValuesIn(Runs({
        {.name = "Sync"},
        {.name = "Async", .served = Served::kLater, .shorter = 5},
        {.name = "Non", .served = Served::kEither, .isNon = true, .shorter = 5, .maxOpen = 400},
        {.name = "Restarts", .served = Served::kEither, .numRestarts = 3, .shorter = 5},
        {.name = "Blocks", .numCalls = 1000, .bodySize = 3000},
        {.name = "BlocksLater",
         .served = Served::kLater,
         .numCalls = 1000,
         .bodySize = 3000,
         .shorter = 4},
        {.name = "BlocksRestarts",
         .served = Served::kEither,
         .numCalls = 1000,
         .bodySize = 3000,
         .numRestarts = 3,
         .shorter = 2},
    })),
    NameOf);

// What the network does to a server without at-most-once, which is libcoap's own.
class WithoutMemory : public CallFaults {};

TEST_P(WithoutMemory, ExecutesAgain) {
  RunCalls();
  EXPECT_GT(NumExecutedTwice(), load_.numCalls / 10);
  Print();
}

INSTANTIATE_TEST_SUITE_P(Runs, WithoutMemory,
                         testing::ValuesIn(Runs({
                             {.name = "Sync", .isForgetful = true, .numCalls = 1000},
                         })),
                         NameOf);

}  // namespace
}  // namespace coap_rpc_test
