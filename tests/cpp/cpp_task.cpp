// Coroutines that wait for calls.
#include "cpp_node.h"

namespace coap_rpc_test {
namespace {

using Texts = std::vector<std::string>;

class Coroutine : public CppNode {
 protected:
  Coroutine() {
    must(node_->serve("upper", [](std::string_view text) { return "U:" + std::string(text); }));
  }

  std::string Silent() const { return "127.0.0.1:" + std::to_string(silent_.Local().port); }

  Task<std::string> Ask(std::string text) {
    Result<Answer> answer = co_await Caller().call(Server(), "upper", text);
    co_return must(std::move(answer)).payload;
  }

  Task<> AskTwice() {
    notes_.push_back(co_await Ask("1"));
    notes_.push_back(co_await Ask("2"));
  }

  // Wait asks a peer that does not answer; its witness tells when it is destroyed.
  Task<> Wait([[maybe_unused]] Witness witness) {
    const Result<Answer> answer = co_await Caller().call(Silent(), "a", "x");
    notes_.push_back(answer.error().what());
  }

  Task<> Throw() {
    co_await Ask("1");
    throw std::runtime_error("oops");
  }

  Task<int> ThrowAtOnce() {
    throw std::runtime_error("at once");
    co_return 1;
  }

  Task<> Catch() {
    try {
      co_await Throw();
    } catch (const std::runtime_error &error) {
      notes_.push_back(error.what());
    }
    try {
      co_await ThrowAtOnce();
    } catch (const std::runtime_error &error) {
      notes_.push_back(error.what());
    }
  }

  RawPeer silent_;
  Texts notes_;
};

TEST_F(Coroutine, Awaits_OneAfterTheOther) {
  must(Caller().spawn(AskTwice()));
  EXPECT_TRUE(Until([&] { return notes_.size() == 2; }));
  EXPECT_EQ(notes_, (Texts{"U:1", "U:2"}));
}

TEST_F(Coroutine, IsFreedAtItsEnd) {
  must(Caller().spawn(AskTwice()));
  EXPECT_TRUE(Until([&] { return notes_.size() == 2; }));
  const uint64_t before = host_.Pool().LiveCount();
  must(Caller().spawn(AskTwice()));
  EXPECT_TRUE(Until([&] { return notes_.size() == 4; }));
  EXPECT_EQ(host_.Pool().LiveCount(), before);
}

TEST_F(Coroutine, NotSpawned_DoesNotBegin) {
  { const Task<> task = AskTwice(); }
  host_.AdvanceMs(1000);
  EXPECT_TRUE(notes_.empty());
}

TEST_F(Coroutine, NodeEnds_DestroysItAndItsCall) {
  int numEnds = 0;
  must(Caller().spawn(Wait(Witness(numEnds))));
  EXPECT_TRUE(silent_.ReceiveMessage(Pump()));
  EXPECT_EQ(numEnds, 0);
  caller_.reset();
  EXPECT_EQ(numEnds, 1);
  EXPECT_TRUE(notes_.empty());
}

// Here another node than the call's keeps it.
TEST_F(Coroutine, Destroyed_CancelsItsCall) {
  int numEnds = 0;
  auto keeper = NewNode("keeper", Role::kOtherPeer);
  must(keeper->spawn(Wait(Witness(numEnds))));
  EXPECT_EQ(COAP_RpcGetCallNum(Caller().ctx()), 1u);
  keeper.reset();
  EXPECT_EQ(numEnds, 1);
  EXPECT_EQ(COAP_RpcGetCallNum(Caller().ctx()), 0u);
}

TEST_F(Coroutine, Thrown_IsLogged) {
  must(Caller().spawn(Throw()));
  EXPECT_TRUE(Until([&] { return !Complaints().empty(); }));
  EXPECT_EQ(Complaints(), Texts{"task: oops"});
}

TEST_F(Coroutine, Thrown_ReachesTheOneThatAwaits) {
  must(Caller().spawn(Catch()));
  EXPECT_TRUE(Until([&] { return notes_.size() == 2; }));
  EXPECT_EQ(notes_, (Texts{"oops", "at once"}));
  EXPECT_TRUE(Complaints().empty());
}

TEST_F(Coroutine, CallThatWasNotSent_GoesOnAtOnce) {
  const auto ask = [this]() -> Task<> {
    const Result<Answer> answer = co_await Caller().call("nowhere", "a");
    notes_.push_back(answer.error().what());
  };
  must(Caller().spawn(ask()));
  EXPECT_EQ(notes_.size(), 1u);
}

TEST_F(Coroutine, AnswerThatIsThereAlready_IsTaken) {
  Call call = Caller().call(Server(), "upper", "x");
  EXPECT_TRUE(Until([&] { return COAP_RpcGetCallNum(Caller().ctx()) == 0; }));
  const auto take = [&]() -> Task<> {
    const Result<Answer> answer = co_await std::move(call);
    notes_.push_back(answer->payload);
  };
  must(Caller().spawn(take()));
  EXPECT_EQ(notes_, Texts{"U:x"});
}

TEST_F(Coroutine, MovedFrom_IsRefused) {
  Task<> task = AskTwice();
  const Task<> moved = std::move(task);
  EXPECT_FALSE(Caller().spawn(std::move(task)));
}

TEST_F(Coroutine, MovedFrom_AwaitedThrows) {
  const auto wait = [this]() -> Task<> {
    Task<int> task = ThrowAtOnce();
    const Task<int> moved = std::move(task);
    try {
      co_await std::move(task);
    } catch (const coaprpc::Failure &failure) {
      notes_.push_back(failure.what());
    }
  };
  must(Caller().spawn(wait()));
  EXPECT_EQ(notes_, Texts{"the task was moved from"});
}

TEST_F(Coroutine, AwaitsACallThatHadAFunction) {
  const auto ask = [this]() -> Task<> {
    Call call = Caller().call(Server(), "upper", "x");
    call.then([this](const Result<Answer> &) { notes_.push_back("function"); });
    notes_.push_back((co_await std::move(call))->payload);
  };
  must(Caller().spawn(ask()));
  EXPECT_TRUE(Until([&] { return !notes_.empty(); }));
  EXPECT_EQ(notes_, Texts{"U:x"});
}

// Its last words find the node that is ending.
TEST_F(Coroutine, NodeUsedWhileItEnds_Fails) {
  struct Last {
    std::function<void()> words;
    ~Last() { words(); }
  };
  Node *ending = &Caller();
  const auto speak = [&] {
    Node &node = *ending;
    notes_.push_back(node.isOpen() ? "open" : "ending");
    EXPECT_FALSE(node.serve("a", [](const Asked &) {}));
    EXPECT_FALSE(node.unserve("a"));
    EXPECT_FALSE((node.table<uint8_t, uint8_t>("t")));
    EXPECT_FALSE((node.mirror<uint8_t, uint8_t>(Server(), "t")));
    EXPECT_FALSE(node.observe(Server(), "a", [](const Result<Answer> &) {}));
    EXPECT_FALSE(node.every(milliseconds(1), [] {}));
    EXPECT_FALSE(node.spawn(AskTwice()));
    EXPECT_EQ(node.stats().size, sizeof(CoapRpcStats));
    EXPECT_EQ(node.ctx(), nullptr);
    bool isTold = false;
    node.call(Server(), "a").then([&](const Result<Answer> &answer) { isTold = !answer; });
    EXPECT_TRUE(isTold);
  };
  const auto wait = [&]() -> Task<> {
    const Last last{speak};
    co_await Caller().call(Silent(), "a", "x");
  };
  must(Caller().spawn(wait()));
  caller_.reset();
  EXPECT_EQ(notes_, Texts{"ending"});
}

TEST_F(Coroutine, NoMemory_DestroysIt) {
  int numEnds = 0;
  Caller();
  host_.Pool().Failures().FailOnce(1);
  EXPECT_FALSE(Caller().spawn(Wait(Witness(numEnds))));
  EXPECT_EQ(numEnds, 1);
}

TEST_F(Coroutine, AHundredAtATime) {
  for (int i = 0; i < 100; ++i) must(Caller().spawn(AskTwice()));
  EXPECT_TRUE(Until([&] { return notes_.size() == 200; }));
}

TEST_F(Coroutine, InAHandler_AnswersLater) {
  const auto forward = [this](Later later, std::string text) -> Task<> {
    const Result<Answer> answer = co_await Caller().call(Server(), "upper", text);
    must(later.reply(answer->payload));
  };
  must(node_->serve("forward", [&](const Asked &asked) {
    const Later later = asked.later();
    must(node_->spawn(forward(later, std::string(asked.payload()))));
    return later;
  }));
  const CoapMessage post = Post("forward", "hi");
  EXPECT_EQ(CppNode::Ask(post), AckOf(post));
  EXPECT_EQ(Next()->Text(), "U:hi");
}

}  // namespace
}  // namespace coap_rpc_test
