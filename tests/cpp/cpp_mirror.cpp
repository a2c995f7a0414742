// Mirrors of the C++ interface, of tables of the C++ interface.
#include "cpp_node.h"

namespace coap_rpc_test {
namespace {

using coaprpc::Big;
using coaprpc::MirrorFunctions;
using Texts = std::vector<std::string>;

struct Port {
  Big<uint16_t> slot, index;
};
struct Stats {
  Big<uint32_t> rx;
};
using Functions = MirrorFunctions<Port, Stats>;

class MirrorTest : public CppNode {
 protected:
  MirrorTest() { table_ = must(node_->table<Port, Stats>("ports")); }

  static std::string TextOf(const Port &port) {
    return std::to_string(port.slot) + "/" + std::to_string(port.index);
  }

  Functions Note() {
    Functions functions;
    functions.added = [this](const Port &port, const Stats &stats) {
      notes_.push_back("+" + TextOf(port) + "=" + std::to_string(stats.rx));
    };
    functions.changed = [this](const Port &port, const Stats &before, const Stats &after) {
      notes_.push_back("~" + TextOf(port) + "=" + std::to_string(before.rx) + ">" +
                       std::to_string(after.rx));
    };
    functions.removed = [this](const Port &port, const Stats &last) {
      notes_.push_back("-" + TextOf(port) + "=" + std::to_string(last.rx));
    };
    functions.synced = [this](uint64_t version) { synced_ = version; };
    return functions;
  }

  void Open(Functions functions) {
    mirror_ = must(Caller().mirror<Port, Stats>(Server(), "ports", std::move(functions)));
  }
  void OpenSynced(Functions functions = {}) {
    Open(std::move(functions));
    EXPECT_TRUE(Until([&] { return mirror_.isSynced(); }));
  }

  Table<Port, Stats> table_;
  coaprpc::Mirror<Port, Stats> mirror_;
  Texts notes_;
  uint64_t synced_ = 0;
};

TEST_F(MirrorTest, Changes_AreTold_AndTheCopyIsWholeWhenSynced) {
  must(table_.set({1, 2}, {5}));
  OpenSynced(Note());
  EXPECT_EQ(notes_, Texts{"+1/2=5"});
  must(table_.set({1, 2}, {6}));
  must(table_.set({1, 3}, {7}));
  EXPECT_TRUE(Until([&] { return synced_ == 3; }));
  table_.erase({1, 2});
  EXPECT_TRUE(Until([&] { return synced_ == 4; }));
  EXPECT_EQ(notes_, (Texts{"+1/2=5", "~1/2=5>6", "+1/3=7", "-1/2=6"}));
}

TEST_F(MirrorTest, Find_And_RangeFor) {
  for (uint16_t i = 300; i > 0; --i) must(table_.set({1, i}, {i}));
  OpenSynced();
  EXPECT_EQ(mirror_.size(), 300u);
  EXPECT_EQ(mirror_.find({1, 7})->rx, 7u);
  EXPECT_FALSE(mirror_.find({2, 7}));
  uint32_t next = 1;
  for (const auto &[port, stats] : mirror_) {
    EXPECT_EQ(port.index, next);
    EXPECT_EQ(stats.rx, next++);
  }
  EXPECT_EQ(next, 301u);
  EXPECT_EQ(mirror_.begin()->first.index, 1);
}

TEST_F(MirrorTest, WithoutFunctions_AndEmpty) {
  OpenSynced();
  EXPECT_EQ(mirror_.begin(), mirror_.end());
  must(table_.set({1, 2}, {5}));
  EXPECT_TRUE(Until([&] { return mirror_.size() == 1; }));
}

TEST_F(MirrorTest, State_IsTold) {
  std::vector<uint32_t> states;
  Functions functions;
  functions.state = [&](uint32_t state, uint32_t) { states.push_back(state); };
  OpenSynced(functions);
  EXPECT_EQ(states.back(), uint32_t{COAP_RPC_MIRROR_SYNCED});
}

TEST_F(MirrorTest, Confirmed_IsHeardByTheTable) {
  uint64_t confirmed = 0;
  must(table_.onConfirmed([&](uint64_t version) { confirmed = version; }));
  OpenSynced();
  must(table_.set({1, 2}, {5}));
  EXPECT_TRUE(Until([&] { return confirmed == 1; }));
  EXPECT_EQ(table_.confirmed(), 1u);
}

TEST_F(MirrorTest, FunctionThatThrows_IsLogged_AndTheCopyIsRight) {
  Functions functions;
  functions.added = [](const Port &, const Stats &) { throw std::runtime_error("oops"); };
  OpenSynced(functions);
  must(table_.set({1, 2}, {5}));
  EXPECT_TRUE(Until([&] { return !Complaints().empty(); }));
  EXPECT_EQ(Complaints(), Texts{"mirror: oops"});
  EXPECT_EQ(mirror_.find({1, 2})->rx, 5u);
}

TEST_F(MirrorTest, DestroyedInItsFunctions) {
  must(table_.set({1, 2}, {5}));
  must(table_.set({1, 3}, {5}));
  const std::string text = "a text of its own, on the heap";
  Functions functions;
  functions.added = [this, text](const Port &, const Stats &) {
    mirror_ = {};
    notes_.push_back(text);
  };
  Open(functions);
  EXPECT_TRUE(Until([&] { return !notes_.empty(); }));
  host_.AdvanceMs(1000);
  EXPECT_EQ(notes_, Texts{text});
  EXPECT_FALSE(mirror_.isOpen());
}

TEST_F(MirrorTest, Destroyed_NobodyIsTold) {
  must(table_.set({1, 2}, {5}));
  OpenSynced(Note());
  notes_.clear();
  mirror_ = {};
  EXPECT_FALSE(mirror_.find({1, 2}));
  EXPECT_EQ(mirror_.begin(), mirror_.end());
  EXPECT_EQ(mirror_.size(), 0u);
  table_.erase({1, 2});
  host_.AdvanceMs(5000);
  EXPECT_TRUE(notes_.empty());
}

TEST_F(MirrorTest, OutlivesItsNode) {
  must(table_.set({1, 2}, {5}));
  OpenSynced(Note());
  notes_.clear();
  caller_.reset();
  EXPECT_FALSE(mirror_.isOpen());
  EXPECT_FALSE(mirror_.isSynced());
  EXPECT_FALSE(mirror_.find({1, 2}));
  EXPECT_TRUE(notes_.empty());
}

// Its functions keep the mirror itself, which they can still ask when they are destroyed.
TEST_F(MirrorTest, FunctionsThatAskAtTheirEnd) {
  struct Asker {
    coaprpc::Mirror<Port, Stats> *mirror;
    ~Asker() { EXPECT_FALSE(mirror->find({1, 2})); }
  };
  must(table_.set({1, 2}, {5}));
  Functions functions;
  functions.synced = [asker = std::make_shared<Asker>(Asker{&mirror_})](uint64_t) {};
  OpenSynced(std::exchange(functions, {}));
  caller_.reset();
}

TEST_F(MirrorTest, Moved_IsTheSame) {
  must(table_.set({1, 2}, {5}));
  OpenSynced();
  const coaprpc::Mirror<Port, Stats> moved = std::move(mirror_);
  EXPECT_EQ(moved.find({1, 2})->rx, 5u);
  EXPECT_FALSE(mirror_.isOpen());
}

TEST_F(MirrorTest, BadParameters_AreResults) {
  EXPECT_EQ((Caller().mirror<Port, Stats>("nowhere", "p").error().code), 1900001602u);
  EXPECT_FALSE((Caller().mirror<Port, Stats>(Server(), "")));
  EXPECT_EQ((Caller()
                 .mirror<Port, Stats>(Server(), "p", {}, {.heartbeat = milliseconds(1)})
                 .error()
                 .code),
            1900001606u);
  uint64_t numFailed = 0;
  for (uint64_t n = 1;; ++n, ++numFailed) {
    host_.Pool().Failures().FailOnce(n);
    const auto mirror = Caller().mirror<Port, Stats>(Server(), "ports", Note());
    host_.Pool().Failures().Clear();
    if (mirror) break;
  }
  EXPECT_GT(numFailed, 1u);
}

TEST_F(MirrorTest, OtherLengths_AreRefused) {
  const auto mirror = must(Caller().mirror<Port, Port>(Server(), "ports"));
  const auto other = must(Caller().mirror<Port, uint8_t>(Server(), "ports"));
  must(table_.set({1, 2}, {5}));
  EXPECT_TRUE(Until([&] { return other.state().state == COAP_RPC_MIRROR_REFUSED; }));
  EXPECT_EQ(other.state().code, 1900001621u);
}

// ---- values that their type refuses ----

struct Even {
  static constexpr size_t size = 1;
  uint8_t number;
  void encode(std::span<uint8_t, size> out) const { out[0] = number; }
  static std::optional<Even> decode(std::span<const uint8_t, size> bytes) {
    return bytes[0] % 2 == 0 ? std::optional(Even{bytes[0]}) : std::nullopt;
  }
};

TEST_F(MirrorTest, RefusedValues_AreNotShown) {
  auto numbers = must(node_->table<uint8_t, uint8_t>("numbers"));
  const auto note = [this](char what) {
    return [this, what](uint8_t key, const Even &val) {
      notes_.push_back(what + std::to_string(key) + "=" + std::to_string(val.number));
    };
  };
  const auto mirror = must(Caller().mirror<uint8_t, Even>(
      Server(), "numbers", {.added = note('+'), .removed = note('-')}));
  must(numbers.set(1, 1));
  must(numbers.set(2, 2));
  must(numbers.set(3, 3));
  const auto isSyncedTo = [&](uint64_t version) {
    return Until([&] { return mirror.state().syncedVersion == version; });
  };
  EXPECT_TRUE(isSyncedTo(3));
  EXPECT_EQ(notes_, Texts{"+2=2"});
  EXPECT_EQ(std::distance(mirror.begin(), mirror.end()), 1);
  EXPECT_FALSE(mirror.find(1));
  must(numbers.set(1, 4));
  EXPECT_TRUE(isSyncedTo(4));
  must(numbers.set(2, 5));
  EXPECT_TRUE(isSyncedTo(5));
  numbers.erase(3);
  EXPECT_TRUE(isSyncedTo(6));
  EXPECT_EQ(notes_, (Texts{"+2=2", "+1=4", "-2=2"}));
}

}  // namespace
}  // namespace coap_rpc_test
