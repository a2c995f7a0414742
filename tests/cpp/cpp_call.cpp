// Calls of the C++ interface: how each ends, whoever waits for it and whoever does not.
#include "cpp_node.h"

namespace coap_rpc_test {
namespace {

using Texts = std::vector<std::string>;

class CallTest : public CppNode {
 protected:
  CallTest() {
    must(node_->serve("upper", [](std::string_view text) { return "U:" + std::string(text); }));
  }

  // Note makes a function that notes how a call has ended.
  auto Note() {
    return [this](const Result<Answer> &answer) {
      ends_.push_back(answer ? std::to_string(answer->code) + " " + answer->payload
                             : answer.error().what());
    };
  }

  // Silent is a peer that takes requests and answers nothing of itself.
  std::string Silent() const { return "127.0.0.1:" + std::to_string(silent_.Local().port); }

  std::optional<CoapMessage> NextAtSilent() { return silent_.ReceiveMessage(Pump()); }

  RawPeer silent_;
  Texts ends_;
};

TEST_F(CallTest, ThenOfATemporary_IsCalledOnce) {
  Caller().call(Server(), "upper", "hi").then(Note());
  EXPECT_TRUE(Until([&] { return !ends_.empty(); }));
  EXPECT_EQ(ends_, Texts{"204 U:hi"});
  EXPECT_EQ(COAP_RpcGetCallNum(Caller().ctx()), 0u);
}

TEST_F(CallTest, WithoutPayload_IsAGet) {
  Caller().call(Server(), "upper").then(Note());
  EXPECT_TRUE(Until([&] { return !ends_.empty(); }));
  EXPECT_EQ(ends_, Texts{"205 U:"});
}

TEST_F(CallTest, ErrorCode_IsAnAnswer) {
  Caller().call(Server(), "nothing", "x").then(Note());
  EXPECT_TRUE(Until([&] { return !ends_.empty(); }));
  EXPECT_EQ(ends_, Texts{"404 Not Found"});
}

TEST_F(CallTest, Param_IsOnTheWire) {
  Caller()
      .call(Silent(), "/a/b", "x",
            {.method = COAP_RPC_PUT,
             .query = "q=1&r",
             .format = 50,
             .accept = 60,
             .etags = {{1, {7}}},
             .ifMatch = {{2, {8, 9}}},
             .isIfNoneMatch = true,
             .isNon = true})
      .then(Note());
  const CoapMessage put = *NextAtSilent();
  EXPECT_EQ(put.type, CoapType::kNon);
  EXPECT_EQ(put.code, kCodePut);
  EXPECT_EQ(put.Path(), "a/b");
  EXPECT_EQ(put.Values(kOptUriQuery), (std::vector<Bytes>{BytesOf("q=1"), BytesOf("r")}));
  EXPECT_EQ(put.Uint(kOptContentFormat), 50u);
  EXPECT_EQ(put.Uint(kOptAccept), 60u);
  EXPECT_EQ(put.Values(kOptEtag), std::vector<Bytes>{Bytes{7}});
  EXPECT_EQ(put.Values(kOptIfMatch), std::vector<Bytes>{(Bytes{8, 9})});
  EXPECT_TRUE(put.Has(kOptIfNoneMatch));
}

TEST_F(CallTest, Answer_HasWhatTheServerSaid) {
  std::optional<Answer> got;
  Caller().call(Silent(), "a").then([&](Result<Answer> answer) { got = *answer; });
  const CoapMessage get = *NextAtSilent();
  CoapMessage answer = Request(CoapType::kAck, Code(2, 1), get.messageId, get.token);
  answer.AddUint(kOptContentFormat, 0).AddUint(kOptMaxAge, 7).AddText(kOptEtag, "ee");
  silent_.Send(
      answer.AddText(kOptLocationPath, "x").AddText(kOptLocationPath, "y").PayloadText("p"));
  ASSERT_TRUE(Until([&] { return got.has_value(); }));
  EXPECT_EQ(got->code, 201u);
  EXPECT_TRUE(got->isSuccess());
  EXPECT_EQ(got->format, 0);
  EXPECT_EQ(got->maxAge, std::chrono::seconds(7));
  EXPECT_EQ(got->etag, "ee");
  EXPECT_EQ(got->locationPath, "x/y");
  EXPECT_EQ(got->payload, "p");
  EXPECT_TRUE(got->isLast);
}

TEST_F(CallTest, Deadline_IsAnErrorThatIsATimeout) {
  bool isTimeout = false;
  const auto note = [&](const Result<Answer> &answer) { isTimeout = answer.error().isTimeout(); };
  Caller().call(Silent(), "a", "x", {.deadline = milliseconds(300)}).then(note);
  host_.AdvanceMs(200);
  EXPECT_FALSE(isTimeout);
  host_.AdvanceMs(200);
  EXPECT_TRUE(isTimeout);
}

TEST_F(CallTest, DeadlineThatIsPast_EndsSoon) {
  Caller().call(Silent(), "a", "x", {.deadline = milliseconds(-5)}).then(Note());
  host_.AdvanceMs(200);
  EXPECT_EQ(ends_, Texts{"no answer in time"});
}

TEST_F(CallTest, Reset_And_Unreachable_AreErrors) {
  Caller().call(Silent(), "a", "x").then(Note());
  silent_.Send(RstOf(*NextAtSilent()));
  EXPECT_TRUE(Until([&] { return ends_.size() == 1; }));
  Caller().call("127.0.0.1:1", "a", "x").then(Note());
  EXPECT_TRUE(Until([&] { return ends_.size() == 2; }));
  EXPECT_EQ(ends_, (Texts{"the peer refused the message", "nobody can be reached there"}));
}

TEST_F(CallTest, NotSent_IsToldInsideThen) {
  Caller().call("no address", "a").then(Note());
  Caller().call(Server(), std::string(300, 'x')).then(Note());
  ASSERT_EQ(ends_.size(), 2u);
  EXPECT_EQ(ends_[1], COAP_RpcErrStr(1900001488));
}

TEST_F(CallTest, PathWithANul_IsNotCutThere) {
  const std::string path("upper\0x", 7);
  Caller().call(Server(), path, "hi").then(Note());
  EXPECT_EQ(ends_.size(), 1u);
  EXPECT_FALSE(Caller().observe(Server(), path, [](const Result<Answer> &) {}));
}

TEST_F(CallTest, Destroyed_IsCancelled_AndNobodyIsTold) {
  int numEnds = 0;
  {
    Call call = Caller().call(Silent(), "a", "x");
    call.then([this, witness = Witness(numEnds)](const Result<Answer> &) { ends_.push_back(""); });
    EXPECT_TRUE(NextAtSilent());
    EXPECT_EQ(COAP_RpcGetCallNum(Caller().ctx()), 1u);
  }
  EXPECT_EQ(numEnds, 1);
  EXPECT_EQ(COAP_RpcGetCallNum(Caller().ctx()), 0u);
  host_.AdvanceMs(100000);
  EXPECT_TRUE(ends_.empty());
}

TEST_F(CallTest, Cancelled_And_AssignedTo_AreCancelled) {
  Call call = Caller().call(Silent(), "a", "x");
  call = Caller().call(Silent(), "b", "x");
  EXPECT_EQ(COAP_RpcGetCallNum(Caller().ctx()), 1u);
  call.cancel();
  EXPECT_FALSE(call.isOpen());
  EXPECT_EQ(COAP_RpcGetCallNum(Caller().ctx()), 0u);
}

TEST_F(CallTest, Moved_EndsOnce) {
  Call call = Caller().call(Server(), "upper", "hi");
  Call moved = std::move(call);
  moved.then(Note());
  EXPECT_FALSE(call.isOpen());
  EXPECT_TRUE(moved.isOpen());
  EXPECT_TRUE(Until([&] { return !ends_.empty(); }));
  EXPECT_FALSE(moved.isOpen());
  moved.then(Note());
  EXPECT_EQ(ends_, (Texts{"204 U:hi", "it has ended, or its node has"}));
}

TEST_F(CallTest, AnswerBeforeThen_IsKept) {
  Call call = Caller().call(Server(), "upper", "hi");
  EXPECT_TRUE(Until([&] { return COAP_RpcGetCallNum(Caller().ctx()) == 0; }));
  EXPECT_TRUE(call.isOpen());
  call.then(Note());
  EXPECT_EQ(ends_, Texts{"204 U:hi"});
  EXPECT_FALSE(call.isOpen());
}

TEST_F(CallTest, AnswerNobodyTakes_IsFreed) {
  { const Call call = Caller().call(Server(), "upper", "hi"); }
  Call call = Caller().call(Server(), "upper", "hi");
  EXPECT_TRUE(Until([&] { return COAP_RpcGetCallNum(Caller().ctx()) == 0; }));
}

TEST_F(CallTest, SecondThen_TakesThePlaceOfTheFirst) {
  int numEnds = 0;
  Call call = Caller().call(Server(), "upper", "hi");
  call.then([witness = Witness(numEnds)](const Result<Answer> &) { FAIL(); });
  call.then(Note());
  EXPECT_EQ(numEnds, 1);
  EXPECT_TRUE(Until([&] { return !ends_.empty(); }));
}

TEST_F(CallTest, FunctionThatThrows_IsLogged) {
  Caller().call(Server(), "upper", "hi").then([](const Result<Answer> &) {
    throw std::runtime_error("oops");
  });
  EXPECT_TRUE(Until([&] { return !Complaints().empty(); }));
  EXPECT_EQ(Complaints(), Texts{"answer: oops"});
}

TEST_F(CallTest, FunctionDestroysItsCall) {
  auto call = std::make_unique<Call>(Caller().call(Server(), "upper", "hi"));
  call->then([&, text = std::string("a text of its own, on the heap")](const Result<Answer> &) {
    call.reset();
    ends_.push_back(text);
  });
  EXPECT_TRUE(Until([&] { return !ends_.empty(); }));
  EXPECT_EQ(ends_, Texts{"a text of its own, on the heap"});
}

TEST_F(CallTest, FunctionKeepsItsCallAlive) {
  auto call = std::make_shared<Call>(Caller().call(Server(), "upper", "hi"));
  call->then([this, call](const Result<Answer> &) { ends_.push_back("x"); });
  call.reset();
  EXPECT_TRUE(Until([&] { return !ends_.empty(); }));
}

TEST_F(CallTest, FunctionCallsOn) {
  int num = 0;
  std::function<void(const Result<Answer> &)> again = [&](const Result<Answer> &answer) {
    ASSERT_TRUE(answer);
    if (++num < 20) Caller().call(Server(), "upper", "x").then(again);
  };
  Caller().call(Server(), "upper", "x").then(again);
  EXPECT_TRUE(Until([&] { return num == 20; }));
}

TEST_F(CallTest, NodeEnds_NobodyIsTold) {
  int numEnds = 0;
  Call call = Caller().call(Silent(), "a", "x");
  Caller()
      .call(Silent(), "b", "x")
      .then([this, witness = Witness(numEnds)](const Result<Answer> &) { ends_.push_back("x"); });
  caller_.reset();
  EXPECT_EQ(numEnds, 1);
  EXPECT_TRUE(ends_.empty());
  EXPECT_FALSE(call.isOpen());
  call.cancel();
}

TEST_F(CallTest, NoMemory_IsTold) {
  Caller();
  for (uint64_t n = 1;; ++n) {
    host_.Pool().Failures().FailOnce(n);
    Caller().call(Server(), "upper", "hi").then(Note());
    host_.Pool().Failures().Clear();
    if (ends_.size() < n) break;
  }
  EXPECT_GT(ends_.size(), 2u);
  const size_t numFailed = ends_.size();
  EXPECT_TRUE(Until([&] { return ends_.size() == numFailed + 1; }));
  EXPECT_EQ(ends_.back(), "204 U:hi");
}

TEST_F(CallTest, LargeBodies_GoBothWays) {
  const std::string body(20000, 'b');
  size_t size = 0;
  Caller().call(Server(), "upper", body).then([&](const Result<Answer> &answer) {
    size = answer->payload.size();
  });
  EXPECT_TRUE(Until([&] { return size != 0; }));
  EXPECT_EQ(size, body.size() + 2);
}

}  // namespace
}  // namespace coap_rpc_test
