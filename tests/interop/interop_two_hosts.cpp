// Two processes on two hosts, with a bad link between them.
#include <map>

#include "two_hosts.h"
#include "two_instances.h"

namespace coap_rpc_test {
namespace {

constexpr int kNumCalls = 1000;
constexpr uint32_t kNumUris = 16;         // each has an answering session of its own
constexpr uint32_t kNumSessions = 32;     // of the client
constexpr uint64_t kPatienceMs = 60'000;  // until a call is repeated
constexpr uint64_t kVerifyPeriodMs = 20'000;
constexpr uint64_t kDoubtMs = 120'000;  // until a mirror that differs is rebuilt
constexpr uint64_t kGiveUpMs = 1'200'000;
constexpr int kNumChanges = 1000;

const CoapRpcIpAddr kServer = Ipv4Address(kFirstHostIp + 1);
const CoapRpcUriKey kTable = KeyOf("table", COAP_RPC_CON, 1);

CoapRpcUriKey RpcKey(uint32_t number, uint32_t pktType = COAP_RPC_DEFAULT) {
  return KeyOf(("rpc/" + std::to_string(number % kNumUris)).c_str(), COAP_RPC_CON, 0, pktType);
}

std::string TextOf(const std::map<std::string, std::string> &tuples) {
  std::string text = "table";
  for (const auto &[key, val] : tuples) text.append(" ").append(key).append("=").append(val);
  return text;
}

// Node is one of the two hosts.
class Node {
 public:
  Node(uint32_t ipv4, const Channel &channel) : channel_(channel), side_(ipv4) {}

  uint64_t NowMs() const { return nowMs_; }

 protected:
  void Step() {
    if (!channel_.NextBeat()) _exit(1);  // the test is dead
    side_.Host().AdvanceMs(kBeatMs);
    nowMs_ += kBeatMs;
  }

  const Channel &channel_;
  Side side_;

 private:
  uint64_t nowMs_ = 0;
};

// Server answers calls with their payload and changes its table, until it is told to stop.
class Server : public Node {
 public:
  using Node::Node;

  void Run() {
    for (uint32_t i = 0; i < kNumUris; ++i) side_.ServeAsync(RpcKey(i), &calls_);
    side_.ServeObserve(kTable, &table_, true);
    calls_.onAsync = [this](void *handle) { Take(handle); };
    while (numChanges_ < kNumChanges) {
      if (NowMs() >= nextChangeMs_) Change();
      Answer();
      Step();
    }
    channel_.Send(TextOf(table_.data));
    while (channel_.Receive() != "stop") {
      Answer();
      Step();
    }
  }

 private:
  struct Job {
    void *handle = nullptr;
    uint64_t dueMs = 0;
  };

  // What the link doubles while its answer is pending is not executed again: a repeated call says
  // so in its payload.
  void Take(void *handle) {
    const std::string &text = calls_.requests.back().payload;
    EXPECT_TRUE(jobs_.insert({text, {handle, NowMs() + random_() % 4000}}).second) << text;
  }

  void Answer() {
    for (const auto &[text, job] : std::map<std::string, Job>(jobs_)) {
      if (job.dueMs > NowMs()) continue;
      EXPECT_EQ(COAP_RpcSerSendAsyncResponse(side_.Ctx(), job.handle,
                                             reinterpret_cast<const uint8_t *>(text.data()),
                                             static_cast<uint32_t>(text.size())),
                0u);
      jobs_.erase(text);
    }
  }

  void Change() {
    const std::string key = std::to_string(1000 + random_() % 80);
    const std::string val = std::to_string(1000 + random_() % 9000);
    if (random_() % 4 == 0) {
      table_.data.erase(key);
      COAP_RpcSerObserveDataDel(side_.Ctx(), &kTable, key.data());
    } else {
      table_.data[key] = val;
      COAP_RpcSerObserveDataUpdate(side_.Ctx(), &kTable, key.data(), val.data());
    }
    ++numChanges_;
    nextChangeMs_ = NowMs() + random_() % 300;
  }

  App calls_;
  ObserveApp table_;
  std::map<std::string, Job> jobs_;  // by payload
  std::mt19937 random_{41};
  int numChanges_ = 0;
  uint64_t nextChangeMs_ = 0;
};

// Client makes the calls and mirrors the table until both are done.
class Client : public Node {
 public:
  using Node::Node;

  void Run() {
    for (uint32_t i = 0; i < kNumUris; ++i) {
      side_.Register(RpcKey(i), &answers_);
      side_.ServeAsync(RpcKey(i, COAP_RPC_UNICAST), nullptr);
    }
    side_.Register(kTable, &tables_);
    answers_.onPayload = [this](const std::string &text) { pending_.erase(std::stoi(text)); };
    tables_.onPayload = [this](const std::string &text) { mirror_.TakeJson(text); };
    side_.Observe(kTable, kServer);
    while (!IsDone() && NowMs() < kGiveUpMs) {
      CallAgain();
      Verify();
      Step();
      if (expected_.empty()) expected_ = channel_.Receive();
    }
    EXPECT_EQ(numCalls_, kNumCalls);
    EXPECT_TRUE(pending_.empty()) << pending_.size();
    EXPECT_EQ(TextOf(mirror_.tuples), expected_);
    channel_.Send("done after " + std::to_string(NowMs()) +
                  " ms, calls repeated: " + std::to_string(numRepeated_) +
                  ", mirrors rebuilt: " + std::to_string(numMirrors_));
  }

 private:
  struct Attempt {
    int number = 0;
    uint64_t dueMs = 0;
  };

  bool IsDone() {
    return numCalls_ == kNumCalls && pending_.empty() && TextOf(mirror_.tuples) == expected_;
  }

  void Call(int number, int attempt) {
    const auto index = static_cast<uint32_t>(number);
    const std::string text = std::to_string(number) + "/" + std::to_string(attempt);
    side_.Ask(RpcKey(index), kServer, text, 16 + index % kNumSessions);
    pending_[number] = {attempt, NowMs() + kPatienceMs};
  }

  void CallAgain() {
    while (numCalls_ < kNumCalls && pending_.size() < kNumSessions) Call(numCalls_++, 1);
    for (const auto &[number, attempt] : std::map<int, Attempt>(pending_)) {
      if (attempt.dueMs > NowMs()) continue;
      ++numRepeated_;
      Call(number, attempt.number + 1);
    }
  }

  // Verify renews the relation.  What was deleted in a payload that was lost is in no later one:
  // when in doubt, the mirror is rebuilt.
  void Verify() {
    if (NowMs() < nextVerifyMs_) return;
    nextVerifyMs_ = NowMs() + kVerifyPeriodMs;
    if (!expected_.empty() && settledMs_ == 0) settledMs_ = NowMs();
    const bool isInDoubt = settledMs_ != 0 && NowMs() >= settledMs_ + kDoubtMs;
    if (!isInDoubt || TextOf(mirror_.tuples) == expected_) {
      side_.Call(COAP_RpcCliObserveReqVerify, kTable, kServer);
      return;
    }
    side_.Call(COAP_RpcCliObserveUnReq, kTable, kServer);
    mirror_ = Mirror();
    ++numMirrors_;
    settledMs_ = NowMs();
    side_.Observe(kTable, kServer);
  }

  Responses answers_;
  Responses tables_;
  Mirror mirror_;
  std::map<int, Attempt> pending_;
  std::string expected_;
  int numCalls_ = 0;
  int numRepeated_ = 0;
  int numMirrors_ = 0;
  uint64_t nextVerifyMs_ = kVerifyPeriodMs;
  uint64_t settledMs_ = 0;
};

TEST(TwoHosts, LinkThatLosesAFifth_AllCallsCompleteAndTheMirrorIsEqualAtTheEnd) {
  HostProcess client(kFirstHostIp,
                     [](const Channel &channel) { Client(kFirstHostIp, channel).Run(); });
  HostProcess server(kFirstHostIp + 1,
                     [](const Channel &channel) { Server(kFirstHostIp + 1, channel).Run(); });
  if (!client.HasNetwork() || !server.HasNetwork()) {
    GTEST_SKIP() << "network namespaces and tunnel devices cannot be made here";
  }
  Link link(client.Tunnel(), server.Tunnel(), {20, 10, 10});
  HostTime time;
  while (!client.HasEnded()) {
    time.Beat(&link, {&client, &server});
    const std::string table = server.Talk().Receive();
    if (!table.empty()) {
      EXPECT_TRUE(client.Talk().Send(table));
    }
  }
  RecordProperty("client", client.Talk().Receive());
  EXPECT_TRUE(server.Talk().Send("stop"));
  while (!server.HasEnded()) time.Beat(&link, {&server});
  EXPECT_GT(link.NumLost(), 500u);
}

}  // namespace
}  // namespace coap_rpc_test
