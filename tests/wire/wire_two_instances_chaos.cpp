// Two instances that do whatever they may, in random order; in the end everything works again.
//
// Each seed is one run: the network and libcoap's random numbers are the test's as well.  The
// digest that it prints is the same each time, also in other builds.
#include <cstdio>
#include <random>

#include "test_network.h"
#include "test_sleep.h"
#include "two_instances.h"

namespace coap_rpc_test {
namespace {

constexpr int kNumOperations = 600;
constexpr uint32_t kNumUris = 3;

struct Seeds {
  uint32_t operations;
  uint32_t network;
};

// The network lives longer than the instances.
class WithTestNetwork {
 protected:
  explicit WithTestNetwork(uint32_t seed) : network_(seed) {}

  TestNetwork network_;
};

class TwoChaos : public testing::WithParamInterface<Seeds>,
                 public WithTestNetwork,
                 public TwoInstances {
 protected:
  TwoChaos() : WithTestNetwork(GetParam().network), random_(GetParam().operations) {
    calls_.onAsync = [this](void *handle) {
      handles_.push_back(handle);
      if (Below(8) == 0) Detach();
      if (Below(3) == 0) Answer();
    };
    answers_.onPayload = tables_.onPayload = [this](const std::string &) {
      if (Below(8) == 0) OneOfTheAsker();
    };
    StartServer();
    StartAsker();
    numSleeps_ = 0;
    SetTestSleep([](unsigned) { return ++numSleeps_ * 0; });
  }
  ~TwoChaos() override { SetTestSleep(nullptr); }

  uint32_t Below(uint32_t limit) { return static_cast<uint32_t>(random_() % limit); }

  static CoapRpcUriKey CallKey(uint32_t i, uint32_t pktType = COAP_RPC_DEFAULT) {
    return KeyOf(("call/" + std::to_string(i)).c_str(), i % 2, 0, pktType);
  }
  static CoapRpcUriKey TableKey(uint32_t i, uint32_t msgType = COAP_RPC_CON) {
    return KeyOf(("table/" + std::to_string(i)).c_str(), msgType, 1);
  }
  // A table's notifications are CON or NON, its payloads JSON or IDL.
  static CoapRpcUriKey ServedTableKey(uint32_t i) { return TableKey(i, i % 2); }
  static bool IsJson(uint32_t i) { return i != 1; }

  void StartServer() {
    for (uint32_t i = 0; i < kNumUris; ++i) {
      server_.ServeAsync(CallKey(i), &calls_);
      apps_[i].padding = i == 2 ? 400 : 0;
      server_.ServeObserve(ServedTableKey(i), &apps_[i], IsJson(i));
    }
  }
  void StartAsker() {
    for (uint32_t i = 0; i < kNumUris; ++i) {
      asker_.Register(CallKey(i), &answers_);
      asker_.ServeAsync(CallKey(i, COAP_RPC_UNICAST), nullptr);
      asker_.Register(TableKey(i), &tables_);
    }
    EXPECT_EQ(COAP_RpcSetKeepAlive(asker_.Ctx(), 5), 0u);
  }

  void Restart(Side &side) {
    side.Stop();
    if (Below(2) == 0) Wait();
    if (&side == &server_) handles_.clear();
    side.Start();
    if (&side == &server_) {
      StartServer();
    } else {
      StartAsker();
    }
  }

  void Wait() {
    static constexpr int kSteps[] = {1, 5, 20, 60, 400};
    const int num = kSteps[Below(5)];
    const uint32_t who = Below(6);
    for (int i = 0; i < num; ++i) {
      if (who != 0 && asker_.IsRunning()) asker_.Host().AdvanceMs(kTickMs);
      if (who != 1 && server_.IsRunning()) server_.Host().AdvanceMs(kTickMs);
    }
    asker_.Host().ClearLogs();
    server_.Host().ClearLogs();
  }

  void Ask() {
    static constexpr size_t kSizes[] = {1, 40, 900, 1100, 5'000, 60'000};
    const std::string payload(kSizes[Below(6)], 'q');
    const CoapRpcUriKey key = CallKey(Below(kNumUris));
    asker_.Ask(key, server_, payload, 16 + Below(3));
  }

  void Answer() {
    if (handles_.empty()) return;
    const size_t which = Below(static_cast<uint32_t>(handles_.size()));
    const std::string text(Below(4) == 0 ? 30'000 : 30, 'a');
    if (Below(6) == 0) {
      COAP_RpcSerAbortAsyncResponse(server_.Ctx(), handles_[which]);
    } else {
      COAP_RpcSerSendAsyncResponse(server_.Ctx(), handles_[which],
                                   reinterpret_cast<const uint8_t *>(text.data()),
                                   static_cast<uint32_t>(text.size()));
    }
    if (Below(2) == 0) handles_.erase(handles_.begin() + static_cast<ptrdiff_t>(which));
  }

  void Observe() {
    static constexpr Side::Request *kCalls[] = {COAP_RpcCliObserveReq, COAP_RpcCliObserveReqVerify,
                                                COAP_RpcCliObserveReqBatch,
                                                COAP_RpcCliObserveUnReq};
    Side::Request *const call = kCalls[Below(4)];
    asker_.Call(call, TableKey(Below(kNumUris)), server_, "", 0);
  }

  void Update() {
    const uint32_t table = Below(kNumUris);
    const CoapRpcUriKey key = ServedTableKey(table);
    for (uint32_t i = Below(40); i != 0; --i) {
      const std::string tuple = std::to_string(1000 + Below(100));
      if (Below(4) == 0) {
        apps_[table].data.erase(tuple);
        COAP_RpcSerObserveDataDel(server_.Ctx(), &key, tuple.data());
      } else {
        apps_[table].data[tuple] = std::to_string(1000 + Below(9000));
        COAP_RpcSerObserveDataUpdate(server_.Ctx(), &key, tuple.data(),
                                     apps_[table].data[tuple].data());
      }
    }
  }

  void Detach() {
    const CoapRpcUriKey key =
        Below(2) == 0 ? CallKey(Below(kNumUris)) : ServedTableKey(Below(kNumUris));
    COAP_RpcSerUnsetUri(server_.Ctx(), &key);
  }

  void Attach() {
    const uint32_t which = Below(kNumUris);
    const uint16_t port = Below(6) == 0 ? kCoapPort + 1 : kCoapPort;
    server_.Attach(CallKey(which), port);
    server_.Attach(ServedTableKey(which), port);
  }

  void AttachOrDetachAnswers() {
    const CoapRpcUriKey key = CallKey(Below(kNumUris), COAP_RPC_UNICAST);
    if (Below(4) == 0) {
      COAP_RpcSerUnsetUri(asker_.Ctx(), &key);
    } else {
      asker_.Attach(key);
    }
  }

  void OneOfTheAsker() {
    switch (Below(3)) {
      case 0:
        return Ask();
      case 1:
        return Observe();
      default:
        return AttachOrDetachAnswers();
    }
  }

  void OneOfTheServer() {
    switch (Below(8)) {
      case 0:
        return Detach();
      case 1:
      case 2:
        return Attach();
      case 3:
      case 4:
        return Answer();
      default:
        return Update();
    }
  }

  void One() {
    const uint32_t which = Below(100);
    if (which == 0) return Restart(Below(2) == 0 ? asker_ : server_);
    if (which < 35) return Wait();
    if (which < 65) return OneOfTheAsker();
    OneOfTheServer();
  }

  void ExpectThatEverythingWorks() {
    answers_.onPayload = tables_.onPayload = nullptr;
    calls_.onAsync = [this](void *handle) {
      handles_.push_back(handle);
      const uint8_t text[] = {'o', 'k'};
      COAP_RpcSerSendAsyncResponse(server_.Ctx(), handle, text, sizeof(text));
    };
    for (uint32_t i = 0; i < kNumUris; ++i) {
      asker_.Attach(CallKey(i, COAP_RPC_UNICAST));
      server_.Attach(CallKey(i));
      server_.Attach(ServedTableKey(i));
      asker_.Call(COAP_RpcCliObserveUnReq, TableKey(i), server_);
    }
    Steps(3000);  // whatever was under way has ended
    for (uint32_t i = 0; i < kNumUris; ++i) {
      ExpectAnswer(i);
      ExpectMirror(i);
    }
  }

  void ExpectAnswer(uint32_t i) {
    bool isAnswered = false;
    answers_.onPayload = [&](const std::string &payload) { isAnswered |= payload == "ok"; };
    asker_.Ask(CallKey(i), server_, "final");
    EXPECT_TRUE(RunUntil([&] { return isAnswered; }, 600)) << i;
    answers_.onPayload = nullptr;
  }

  // A change that was pending when the last observer left goes to the next one, outdated or not.
  void FetchOldChanges(uint32_t i) {
    asker_.Call(COAP_RpcCliObserveReq, TableKey(i), server_);
    Steps(100);
    asker_.Call(COAP_RpcCliObserveUnReq, TableKey(i), server_);
    Steps(50);
  }

  // A registration or cancel may have reached the server after the asker gave it up, or not at all.
  // The server then keeps a relation that nobody has any more, and its notifications take payloads,
  // until one of them fails: one in six is a CON, and fails after 93 s at most.
  void ExpectOneRelation(uint32_t i) {
    const std::vector<uint32_t> &nums = apps_[i].observerNums;
    for (int round = 0; round < 12 && nums.back() > 1; ++round) {
      asker_.Call(COAP_RpcCliObserveReqBatch, TableKey(i), server_);
      Steps(300);
    }
    EXPECT_EQ(nums.back(), 1u) << i;
  }

  void ExpectMirror(uint32_t i) {
    FetchOldChanges(i);
    Mirror mirror;
    tables_.onPayload = [&](const std::string &payload) {
      if (IsJson(i)) {
        mirror.TakeJson(payload);
      } else {
        mirror.TakeIdl(payload);
      }
    };
    asker_.Call(COAP_RpcCliObserveReq, TableKey(i), server_);
    Steps(20);
    ExpectOneRelation(i);
    asker_.Call(COAP_RpcCliObserveReqBatch, TableKey(i), server_);
    EXPECT_TRUE(RunUntil([&] { return mirror.tuples == apps_[i].data; }, 1500)) << i;
    asker_.Call(COAP_RpcCliObserveUnReq, TableKey(i), server_);
    Steps(50);
    tables_.onPayload = nullptr;
  }

  // With --gtest_repeat all runs of a seed are compared.
  void ExpectTheSameRun() {
    static std::map<std::pair<uint32_t, uint32_t>, uint64_t> digests;
    const std::pair seeds(GetParam().operations, GetParam().network);
    EXPECT_EQ(network_.Digest(), digests.emplace(seeds, network_.Digest()).first->second);
  }

  static inline unsigned numSleeps_ = 0;  // after failed attempts to open an endpoint

  std::mt19937 random_;
  Responses answers_;
  Responses tables_;
  App calls_;
  std::array<ObserveApp, kNumUris> apps_;
  std::vector<void *> handles_;
};

// In the last one the server stands still while a registration is given up.
INSTANTIATE_TEST_SUITE_P(Seeds, TwoChaos,
                         testing::Values(Seeds{1, 1}, Seeds{2, 2}, Seeds{3, 3}, Seeds{4, 4},
                                         Seeds{1, 18}),
                         [](const auto &test) {
                           return std::to_string(test.param.operations) + "_" +
                                  std::to_string(test.param.network);
                         });

TEST_P(TwoChaos, RandomOperations_EverythingWorksInTheEnd) {
  for (int i = 0; i < kNumOperations; ++i) One();
  EXPECT_GT(answers_.all.size(), 5u);
  EXPECT_GT(tables_.all.size(), 5u);
  ExpectThatEverythingWorks();
  EXPECT_EQ(numSleeps_, 0u);
  ExpectTheSameRun();
  printf("%llu datagrams, digest %016llx\n", static_cast<unsigned long long>(network_.NumSent()),
         static_cast<unsigned long long>(network_.Digest()));
}

}  // namespace
}  // namespace coap_rpc_test
