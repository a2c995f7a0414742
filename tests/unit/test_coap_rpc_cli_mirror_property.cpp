/* test_coap_rpc_cli_mirror_property.cpp: mirrors of a set that changes, over a network that loses,
 * repeats, delays and reorders, while servers and mirrors restart.
 *
 * Each seed is one run, the same on any machine.  In each:
 *
 *   - the table of every mirror equals the set in the end, and the table made of its callbacks
 *     equals both
 *   - whenever a mirror says that it is synced with a version, it equals the set at that version
 *   - whenever a mirror confirms a version, it equals the set at that version
 *   - no answer of a server that keeps to the protocol is taken for an error
 *
 * COAP_RPC_MIRROR_SEEDS=10000 runs seeds 1 to 10000 in place of 1 to 1000. */
#include <cstdlib>
#include <queue>
#include <set>

#include "mirror_world.h"

namespace coap_rpc_test {
namespace {

constexpr int kNumMirrors = 5;
constexpr uint64_t kBusyMs = 12000;
constexpr uint64_t kMaxSettleMs = 600000;
constexpr uint32_t kSeedsPerCase = 50;
constexpr uint32_t kSeeds = 1000;

struct Datagram {
  uint64_t dueMs;
  uint64_t number;  // later ones of the same time come later
  int mirror;
  uint64_t socket;
  bool isToServer;
  coap_rpc::MirrorAsk ask;
  uint64_t token;
  std::string bytes;

  bool operator>(const Datagram &other) const {
    return std::pair(dueMs, number) > std::pair(other.dueMs, other.number);
  }
};

class World {
 public:
  explicit World(uint32_t seed) : random_(seed) {
    minTombs_ = Pick(3) == 0 ? 1 : 1 + Pick(32);
    pageBytes_ = 100 + Pick(400);
    numKeys_ = 1 + Pick(Pick(4) == 0 ? 300 : 40);
    lossPercent_ = Pick(51);
    twicePercent_ = Pick(20);
    latePercent_ = Pick(10);
    delayMs_ = 1 + Pick(Pick(3) == 0 ? 400 : 40);
    param_.keyLen = 4;
    param_.valLen = 4;
    param_.numInFlight = 1 + Pick(8);
    param_.heartbeatMs = 500 + Pick(3000);
    if (Pick(2) == 0) param_.keyCmp = ByText;
    NewLife();
    for (int i = 0; i < kNumMirrors; ++i) NewMirror(i);
  }

  void Run() {
    while (nowMs_ < kBusyMs && !::testing::Test::HasFailure()) Step(true);
    const uint64_t endMs = nowMs_ + kMaxSettleMs;
    while (nowMs_ < endMs && !AllSynced() && !::testing::Test::HasFailure()) Step(false);
    EXPECT_TRUE(AllSynced());
    EXPECT_NE(numConfirmed_, 0u);
    for (auto &mirror : mirrors_) CheckEnd(*mirror);
  }

 private:
  uint32_t Pick(uint64_t num) { return static_cast<uint32_t>(random_() % num); }
  bool Happens(uint32_t percent) { return Pick(100) < percent; }
  static std::string Padded(char letter, uint32_t number) {
    std::string text = std::to_string(1000 + number).substr(1);
    return letter + text;
  }
  std::string Key() { return Padded('k', Pick(numKeys_)); }
  std::string Val() { return Padded('v', Pick(5)); }

  ServerLife &Life() { return *lives_.back(); }

  void NewLife() {
    lives_.push_back(std::make_unique<ServerLife>(minTombs_, pageBytes_));
    observers_.clear();
    for (uint32_t i = 0; i < numKeys_; ++i) {
      if (Pick(2) == 0) Life().Put(Padded('k', i), Val());
    }
  }

  void NewMirror(int i) {
    const uint64_t socket = mirrors_[i] ? mirrors_[i]->socket : 0;
    mirrors_[i] = std::make_unique<TestMirror>(host_.Mem(), param_, random_, nowMs_);
    mirrors_[i]->socket = socket;
    mirrors_[i]->onSynced = [this, i](uint64_t version) { CheckSynced(*mirrors_[i], version); };
  }

  // CheckSynced looks for the set that the mirror was said to equal.
  void CheckSynced(const TestMirror &mirror, uint64_t version) {
    for (const auto &life : lives_) {
      if (life->Set().replid != mirror.core.replid) continue;
      const RowsSum *sum = life->SumAt(version);
      ASSERT_TRUE(sum) << version;
      EXPECT_TRUE(*sum == mirror.sum) << "version " << version;
      return;
    }
    FAIL() << "no such life";
  }

  void CheckEnd(const TestMirror &mirror) {
    EXPECT_EQ(mirror.Table(), Life().Table());
    EXPECT_EQ(mirror.shadow, Life().Table());
    EXPECT_EQ(mirror.core.numBad, 0u);
    EXPECT_EQ(mirror.core.numDigestErrors, 0u);
  }

  bool AllSynced() {
    for (auto &mirror : mirrors_) {
      const coap_rpc::Mirror &core = mirror->core;
      if (core.state != COAP_RPC_MIRROR_SYNCED || core.replid != Life().Set().replid) return false;
      if (core.cursor != Life().Set().head) return false;
    }
    return true;
  }

  void Step(bool isBusy) {
    uint64_t nextMs = nowMs_ + 1 + Pick(30);
    for (auto &mirror : mirrors_) nextMs = std::min(nextMs, MirrorDueMs(mirror->core));
    if (!network_.empty()) nextMs = std::min(nextMs, network_.top().dueMs);
    nowMs_ = std::max(nowMs_, nextMs);
    if (isBusy) Disturb();
    if (Life().HasNews() && Pick(3) == 0) Push();
    Deliver();
    for (int i = 0; i < kNumMirrors; ++i) {
      MirrorTick(mirrors_[i]->core, nowMs_);
      SendAll(i);
    }
  }

  void Disturb() {
    const uint32_t numChanges = Pick(300) == 0 ? 2 * numKeys_ : Pick(3);
    for (uint32_t n = 0; n < numChanges; ++n) {
      if (Pick(3) != 0) {
        Life().Put(Key(), Val());
      } else {
        Life().Delete(Key());
      }
    }
    if (Pick(1500) == 0) NewLife();
    if (Pick(1000) == 0) NewMirror(static_cast<int>(Pick(kNumMirrors)));
    if (Pick(500) == 0) observers_.clear();  // leases that ended
    if (Pick(1000) == 0) silentUntilMs_ = nowMs_ + Pick(5 * param_.heartbeatMs);
  }

  void Push() {
    const std::string bytes = Life().Notification(Pick(2) == 0 ? 0u : coap_rpc::kSyncConfirm);
    for (const auto &[who, token] : observers_) {
      Send({0, 0, who.first, who.second, false, {}, token, Happens(5) ? "" : bytes});
    }
  }

  void Send(Datagram datagram) {
    const uint32_t numCopies = Happens(twicePercent_) ? 2 : 1;
    for (uint32_t copy = 0; copy < numCopies; ++copy) {
      if (Happens(lossPercent_) || nowMs_ < silentUntilMs_) continue;
      datagram.dueMs = nowMs_ + 1 + Pick(delayMs_) + (Happens(latePercent_) ? Pick(4000) : 0);
      datagram.number = ++numSent_;
      network_.push(datagram);
    }
  }

  void Deliver() {
    while (!network_.empty() && network_.top().dueMs <= nowMs_) {
      const Datagram datagram = network_.top();
      network_.pop();
      if (datagram.isToServer) {
        Serve(datagram);
      } else if (mirrors_[datagram.mirror]->socket == datagram.socket) {
        Hand(datagram);
      }
    }
  }

  void Serve(const Datagram &datagram) {
    const std::pair who(datagram.mirror, datagram.socket);
    Datagram answer = datagram;
    answer.isToServer = false;
    answer.token = datagram.ask.token;
    if (datagram.ask.act == coap_rpc::MirrorAct::kRegister) {
      observers_[who] = answer.token;
      answer.bytes = Life().AnswerRegistration();
    } else {
      answer.bytes = Life().Answer(datagram.ask, observers_.count(who) != 0);
    }
    Send(answer);
  }

  void Hand(const Datagram &datagram) {
    TestMirror &mirror = *mirrors_[datagram.mirror];
    if (datagram.bytes.empty()) {
      MirrorTakeNothing(mirror.core, datagram.token, nowMs_);
    } else {
      mirror.Take(datagram.token, datagram.bytes, nowMs_);
    }
    SendAll(datagram.mirror);
  }

  void SendAll(int i) {
    TestMirror &mirror = *mirrors_[i];
    for (;;) {
      const coap_rpc::MirrorAsk ask = MirrorNext(mirror.core, nowMs_);
      if (ask.act == coap_rpc::MirrorAct::kNone) return;
      if (ask.act == coap_rpc::MirrorAct::kPing) continue;
      if (ask.act == coap_rpc::MirrorAct::kOpen) {
        ++mirror.socket;
      } else {
        CheckConfirmed(mirror, ask);
        Send({0, 0, i, mirror.socket, true, ask, 0, ""});
      }
    }
  }

  // CheckConfirmed: a repetition may confirm less than the mirror has by then.
  void CheckConfirmed(const TestMirror &mirror, const coap_rpc::MirrorAsk &ask) {
    const bool isConfirming = ask.act == coap_rpc::MirrorAct::kPull && !ask.isFull && !ask.isHello;
    if (!isConfirming || ask.isRepeated) return;
    ++numConfirmed_;
    CheckSynced(mirror, ask.since);
  }

  TestHost host_;
  std::mt19937_64 random_;
  CoapRpcMirrorParam param_ = {};
  uint32_t minTombs_ = 1, numKeys_ = 1, lossPercent_ = 0, twicePercent_ = 0, latePercent_ = 0;
  size_t pageBytes_ = 256;
  uint64_t delayMs_ = 1;
  uint64_t nowMs_ = 1000;
  uint64_t silentUntilMs_ = 0;
  uint64_t numSent_ = 0;
  uint64_t numConfirmed_ = 0;
  std::vector<std::unique_ptr<ServerLife>> lives_;
  std::map<std::pair<int, uint64_t>, uint64_t> observers_;  // token of mirror and socket
  std::unique_ptr<TestMirror> mirrors_[kNumMirrors];
  std::priority_queue<Datagram, std::vector<Datagram>, std::greater<>> network_;
};

class CliMirrorProperty : public ::testing::TestWithParam<uint32_t> {};

TEST_P(CliMirrorProperty, AnyFaults_TheTablesAreEqualInTheEnd) {
  for (uint32_t seed = GetParam(); seed < GetParam() + kSeedsPerCase && !HasFailure(); ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    World(seed).Run();
  }
}

uint32_t NumSeeds() {
  const char *text = getenv("COAP_RPC_MIRROR_SEEDS");
  return text ? static_cast<uint32_t>(strtoul(text, nullptr, 10)) : kSeeds;
}

INSTANTIATE_TEST_SUITE_P(Seeds, CliMirrorProperty,
                         ::testing::Range(1u, NumSeeds() + 1, kSeedsPerCase));

}  // namespace
}  // namespace coap_rpc_test
