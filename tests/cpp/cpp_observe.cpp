// Observations of the C++ interface, and its timers.
#include "cpp_node.h"

namespace coap_rpc_test {
namespace {

using Texts = std::vector<std::string>;

// The peer is the server here.
class Observe : public CppNode {
 protected:
  auto Note() {
    return [this](const Result<Answer> &answer) {
      notes_.push_back(answer ? answer->payload + (answer->isLast ? "." : "")
                              : answer.error().what());
    };
  }

  std::string Observed() const { return "127.0.0.1:" + std::to_string(observed_.Local().port); }
  std::optional<CoapMessage> NextAtServer() { return observed_.ReceiveMessage(Pump()); }

  Observation Register() {
    Observation observation = must(Caller().observe(Observed(), "o", Note()));
    get_ = *NextAtServer();
    EXPECT_EQ(get_.Uint(kOptObserve), 0u);
    observed_.Send(Request(CoapType::kAck, Code(2, 5), get_.messageId, get_.token)
                       .AddUint(kOptObserve, 1)
                       .PayloadText("a"));
    EXPECT_TRUE(Until([&] { return notes_.size() == 1; }));
    return observation;
  }

  void Notify(uint32_t number, const std::string &text, uint8_t code = Code(2, 5)) {
    CoapMessage note = Request(CoapType::kNon, code, static_cast<uint16_t>(number), get_.token);
    if (number != 0) note.AddUint(kOptObserve, number);
    const size_t numBefore = notes_.size();
    observed_.Send(note.PayloadText(text));
    EXPECT_TRUE(Until([&] { return notes_.size() > numBefore; }));
  }

  RawPeer observed_;
  CoapMessage get_;
  Texts notes_;
};

TEST_F(Observe, Notifications_AreTold) {
  const Observation observation = Register();
  Notify(2, "b");
  Notify(3, "c");
  EXPECT_EQ(notes_, (Texts{"a", "b", "c"}));
  EXPECT_TRUE(observation.isOpen());
}

TEST_F(Observe, TwoOfOneResource_BothHear) {
  const Observation first = Register();
  Texts others;
  Observation second = must(Caller().observe(
      Observed(), "o", [&](const Result<Answer> &note) { others.push_back(must(note).payload); }));
  const CoapMessage again = *NextAtServer();
  EXPECT_EQ(again.token, get_.token);
  observed_.Send(Request(CoapType::kAck, Code(2, 5), again.messageId, again.token)
                     .AddUint(kOptObserve, 2)
                     .PayloadText("b"));
  Notify(3, "c");
  EXPECT_EQ(others, (Texts{"b", "c"}));
  second.cancel();
  Notify(4, "d");
  EXPECT_EQ(notes_, (Texts{"a", "b", "c", "d"}));
}

TEST_F(Observe, ErrorOfTheServer_IsTheLast) {
  const Observation observation = Register();
  Notify(0, "gone", Code(4, 4));
  EXPECT_EQ(notes_, (Texts{"a", "gone."}));
  EXPECT_FALSE(observation.isOpen());
}

TEST_F(Observe, Destroyed_TellsTheServer_AndNobodyElse) {
  { const Observation observation = Register(); }
  EXPECT_EQ(NextAtServer()->Uint(kOptObserve), 1u);
  EXPECT_EQ(notes_, Texts{"a"});
}

TEST_F(Observe, DestroyedInItsFunction) {
  Observation observation;
  const std::string text = "a text of its own, on the heap";
  observation = must(Caller().observe(Observed(), "o", [&, text](const Result<Answer> &) {
    observation.cancel();
    notes_.push_back(text);
  }));
  get_ = *NextAtServer();
  observed_.Send(
      Request(CoapType::kAck, Code(2, 5), get_.messageId, get_.token).AddUint(kOptObserve, 1));
  EXPECT_TRUE(Until([&] { return !notes_.empty(); }));
  EXPECT_EQ(notes_, Texts{text});
  EXPECT_EQ(NextAtServer()->Uint(kOptObserve), 1u);
}

TEST_F(Observe, Detached_GoesOn) {
  Register().detach();
  Notify(2, "b");
  EXPECT_EQ(notes_, (Texts{"a", "b"}));
}

TEST_F(Observe, FunctionThatThrows_HearsTheNext) {
  int num = 0;
  const Observation observation =
      must(Caller().observe(Observed(), "o", [&](const Result<Answer> &) {
        ++num;
        throw std::runtime_error("oops");
      }));
  get_ = *NextAtServer();
  observed_.Send(
      Request(CoapType::kAck, Code(2, 5), get_.messageId, get_.token).AddUint(kOptObserve, 1));
  EXPECT_TRUE(Until([&] { return num == 1; }));
  observed_.Send(Request(CoapType::kNon, Code(2, 5), 9, get_.token).AddUint(kOptObserve, 2));
  EXPECT_TRUE(Until([&] { return num == 2; }));
  EXPECT_EQ(Complaints(), (Texts{"observation: oops", "observation: oops"}));
}

TEST_F(Observe, NoAnswer_IsAnError) {
  const Observation observation =
      must(Caller().observe(Observed(), "o", Note(), {.deadline = milliseconds(300)}));
  EXPECT_TRUE(Until([&] { return !notes_.empty(); }));
  EXPECT_EQ(notes_, Texts{"no answer in time"});
  EXPECT_FALSE(observation.isOpen());
}

TEST_F(Observe, NotSent_IsAResult) {
  int numEnds = 0;
  const auto observe = [&](const std::string &path) {
    return Caller().observe("nowhere", path, [w = Witness(numEnds)](const Result<Answer> &) {});
  };
  EXPECT_EQ(observe("o").error().code, 1900001485u);
  EXPECT_EQ(numEnds, 1);
}

TEST_F(Observe, NodeEnds_NobodyIsTold) {
  Observation observation = Register();
  caller_.reset();
  EXPECT_FALSE(observation.isOpen());
  EXPECT_EQ(notes_, Texts{"a"});
}

TEST_F(Observe, NoMemory_IsAResult) {
  Caller();
  uint64_t numFailed = 0;
  for (uint64_t n = 1;; ++n, ++numFailed) {
    host_.Pool().Failures().FailOnce(n);
    const Result<Observation> observation = Caller().observe(Observed(), "o", Note());
    host_.Pool().Failures().Clear();
    if (observation) break;
  }
  EXPECT_GT(numFailed, 2u);
}

// ---- timers ----

TEST_F(Observe, Timer_TicksUntilItIsDestroyed) {
  int num = 0;
  {
    const Timer timer = must(node_->every(milliseconds(100), [&] { ++num; }));
    host_.AdvanceMs(350);
    EXPECT_EQ(num, 3);
  }
  host_.AdvanceMs(1000);
  EXPECT_EQ(num, 3);
}

TEST_F(Observe, Timer_DestroysItself_AndThrows) {
  Timer timer;
  int num = 0;
  timer = must(node_->every(milliseconds(100), [&, text = std::string(40, 'x')] {
    ++num;
    timer.cancel();
    throw std::runtime_error(text);
  }));
  host_.AdvanceMs(1000);
  EXPECT_EQ(num, 1);
  EXPECT_EQ(Complaints(), Texts{"timer: " + std::string(40, 'x')});
}

TEST_F(Observe, Timer_DetachedEndsWithItsNode) {
  int num = 0, numEnds = 0;
  must(node_->every(milliseconds(0), [&, witness = Witness(numEnds)] { ++num; })).detach();
  host_.AdvanceMs(3);
  EXPECT_EQ(num, 3);
  node_.reset();
  EXPECT_EQ(numEnds, 1);
}

TEST_F(Observe, Timer_NoTimerOfTheHost_IsAResult) {
  host_.Timers().Failures().FailOnce(1);
  EXPECT_STREQ(node_->every(milliseconds(10), [] {}).error().what(), "no timer");
}

}  // namespace
}  // namespace coap_rpc_test
