// Handlers of the C++ interface that answer later.
#include "cpp_node.h"

namespace coap_rpc_test {
namespace {

using Texts = std::vector<std::string>;

class LaterAnswer : public CppNode {
 protected:
  void Serve(const ServeParam &param = {}) {
    must(node_->serve(
        "a",
        [this](const Asked &asked) {
          laters_.push_back(asked.later());
          return laters_.back();
        },
        param));
  }

  // Open sends a request that is acknowledged and stays open.
  CoapMessage Open(const std::string &payload = "q") {
    const CoapMessage post = Post("a", payload);
    EXPECT_EQ(Ask(post), AckOf(post));
    return post;
  }

  CoapMessage NextAnswer() {
    const std::optional<CoapMessage> message = Next();
    EXPECT_TRUE(message) << peer_.LogText();
    if (message) peer_.Send(AckOf(*message));
    return message ? *message : CoapMessage();
  }

  std::vector<Later> laters_;
};

TEST_F(LaterAnswer, Text_IsSentWhenItIsThere) {
  Serve();
  const CoapMessage post = Open();
  ASSERT_EQ(laters_.size(), 1u);
  EXPECT_TRUE(laters_[0].isOpen());
  must(laters_[0].reply("done"));
  EXPECT_FALSE(laters_[0].isOpen());
  const CoapMessage answer = NextAnswer();
  EXPECT_EQ(answer.type, CoapType::kCon);
  EXPECT_EQ(answer.code, Code(2, 4));
  EXPECT_EQ(answer.token, post.token);
  EXPECT_EQ(answer.Text(), "done");
}

TEST_F(LaterAnswer, Reply_HasCodeFormatAndOptions) {
  Serve();
  Open();
  must(laters_[0].reply({.code = 201, .format = 50, .payload = "{}", .options = {{4, "e"}}}));
  const CoapMessage answer = NextAnswer();
  EXPECT_EQ(answer.code, Code(2, 1));
  EXPECT_EQ(answer.Uint(kOptContentFormat), 50u);
  EXPECT_EQ(answer.Values(kOptEtag), std::vector<Bytes>{BytesOf("e")});
}

TEST_F(LaterAnswer, ReplyWithoutCode_HasTheMethodsOwn) {
  Serve();
  const CoapMessage get = Get("a");
  EXPECT_EQ(Ask(get), AckOf(get));
  must(laters_[0].reply(Reply{.payload = "x"}));
  EXPECT_EQ(NextAnswer().code, Code(2, 5));
}

TEST_F(LaterAnswer, Fail_HasCodeAndText) {
  Serve();
  Open();
  EXPECT_FALSE(laters_[0].fail(205));
  EXPECT_TRUE(laters_[0].isOpen());
  must(laters_[0].fail(409, "taken"));
  const CoapMessage answer = NextAnswer();
  EXPECT_EQ(answer.code, Code(4, 9));
  EXPECT_EQ(answer.Text(), "taken");
}

TEST_F(LaterAnswer, BadReply_LeavesItOpen) {
  Serve();
  Open();
  EXPECT_FALSE(laters_[0].reply({.code = 299}));
  EXPECT_FALSE(laters_[0].reply({.options = {{999, "x"}}}));
  must(laters_[0].reply("good"));
  EXPECT_EQ(NextAnswer().Text(), "good");
}

TEST_F(LaterAnswer, InsideTheHandler_TravelsInTheAcknowledgement) {
  must(node_->serve("a", [](const Asked &asked) {
    const Later later = asked.later();
    must(later.reply("at once"));
    return later;
  }));
  const CoapMessage answer = Ask(Post("a"));
  EXPECT_EQ(answer.type, CoapType::kAck);
  EXPECT_EQ(answer.Text(), "at once");
  EXPECT_TRUE(Complaints().empty());
}

TEST_F(LaterAnswer, Copies_AreOneAnswer) {
  Serve();
  Open();
  const Later copy = laters_[0];
  laters_.clear();
  EXPECT_TRUE(copy.isOpen());
  const Later other = copy;
  must(other.reply("x"));
  EXPECT_FALSE(copy.isOpen());
  EXPECT_STREQ(copy.reply("y").error().what(), "it has ended, or its node has");
  EXPECT_EQ(NextAnswer().Text(), "x");
  EXPECT_EQ(COAP_RpcGetOpenAsyncNum(node_->ctx()), 0u);
}

TEST_F(LaterAnswer, LastCopyDestroyed_Is503) {
  Serve();
  Open();
  laters_.clear();
  EXPECT_EQ(NextAnswer().code, Code(5, 3));
}

TEST_F(LaterAnswer, NotKept_Is503) {
  must(node_->serve("a", [](const Asked &asked) { return asked.later(); }));
  EXPECT_EQ(Ask(Post("a")).code, Code(5, 3));
}

TEST_F(LaterAnswer, NoneOfItsOwnRequest_Is500) {
  Serve();
  Open();
  must(node_->serve("foreign", [this](const Asked &) { return laters_[0]; }));
  must(node_->serve("empty", [](const Asked &) { return Later(); }));
  must(node_->serve("other", [this](const Asked &asked) {
    const Later own = asked.later();
    return laters_[0];
  }));
  EXPECT_EQ(Ask(Post("foreign")).code, Code(5, 0));
  EXPECT_EQ(Ask(Post("empty")).code, Code(5, 0));
  EXPECT_EQ(Ask(Post("other")).code, Code(5, 0));
  EXPECT_EQ(Complaints(), (Texts{"foreign: the handler has not returned its later()",
                                 "empty: the handler has not returned its later()",
                                 "other: the handler has not returned its later()"}));
  EXPECT_TRUE(laters_[0].isOpen());
  must(laters_[0].reply("x"));
  EXPECT_EQ(NextAnswer().Text(), "x");
}

TEST_F(LaterAnswer, Exception_Is500_AndTheLaterIsClosed) {
  must(node_->serve("a", [this](const Asked &asked) -> Later {
    laters_.push_back(asked.later());
    throw std::runtime_error("oops");
  }));
  const CoapMessage answer = Ask(Post("a"));
  EXPECT_EQ(answer.code, Code(5, 0));
  EXPECT_TRUE(answer.payload.empty());
  EXPECT_FALSE(laters_[0].isOpen());
  EXPECT_EQ(Complaints(), Texts{"a: oops"});
}

TEST_F(LaterAnswer, Timeout_ClosesIt) {
  Serve({.timeoutMs = 1000});
  Open();
  Open();
  EXPECT_EQ(NextAnswer().code, Code(5, 4));
  EXPECT_EQ(NextAnswer().code, Code(5, 4));
  EXPECT_FALSE(laters_[0].isOpen());
  EXPECT_FALSE(laters_[1].reply("x"));
}

TEST_F(LaterAnswer, UnservedAndListenClosed_ClosesIt) {
  Serve();
  Open();
  must(node_->unserve("a"));
  EXPECT_FALSE(laters_[0].isOpen());
}

TEST_F(LaterAnswer, UnservedAndListenStays_Is503) {
  Serve();
  must(node_->serve("other", [](const Asked &) {}));
  Open();
  must(node_->unserve("a"));
  must(laters_[0].reply("x"));
  EXPECT_EQ(NextAnswer().code, Code(5, 3));
}

TEST_F(LaterAnswer, OutlivesItsNode) {
  Serve();
  Open();
  node_.reset();
  EXPECT_FALSE(laters_[0].isOpen());
  EXPECT_FALSE(laters_[0].reply("x"));
  EXPECT_FALSE(laters_[0].fail(500));
}

// The handler keeps its own Laters, which go with it.
TEST_F(LaterAnswer, NodeEndsWithHandlerThatKeepsThem) {
  must(node_->serve("a", [kept = std::vector<Later>()](const Asked &asked) mutable {
    kept.push_back(asked.later());
    return kept.back();
  }));
  Open();
  node_.reset();
}

// What a handler keeps may still use handles when it is destroyed.
TEST_F(LaterAnswer, HandlesUsedWhileTheNodeEnds_AreEmpty) {
  struct User {
    std::vector<Later> *laters = nullptr;
    Table<uint8_t, uint8_t> table;
    Timer timer;
    ~User() {
      EXPECT_FALSE(laters->at(0).reply("x"));
      EXPECT_FALSE(table.set(1, 1));
      EXPECT_FALSE(table.isOpen());
    }
  };
  auto user = std::make_shared<User>();
  user->laters = &laters_;
  user->table = must(node_->table<uint8_t, uint8_t>("t"));
  user->timer = must(node_->every(milliseconds(10), [] {}));
  must(node_->serve("user", [user](const Asked &) {}));
  user.reset();
  Serve();
  Open();
  node_.reset();
  EXPECT_EQ(TestProcess::Get().Asserts().size(), 0u);
}

TEST_F(LaterAnswer, NoMemoryForTheLater_Is500) {
  must(node_->serve("a", [this](const Asked &asked) {
    host_.Pool().Failures().FailOnce(1);
    laters_.push_back(asked.later());
    host_.Pool().Failures().Clear();
    return laters_.back();
  }));
  EXPECT_EQ(Ask(Post("a")).code, Code(5, 0));
  EXPECT_FALSE(laters_[0].isOpen());
}

TEST_F(LaterAnswer, AThousand_AreAnsweredInAnyOrder) {
  Serve({.timeoutMs = 3600000});
  for (int i = 0; i < 1000; ++i) Open(std::to_string(i));
  for (size_t i = laters_.size(); i-- > 0;) must(laters_[i].reply(std::to_string(i)));
  std::set<std::string> texts;
  for (int i = 0; i < 1000; ++i) texts.insert(NextAnswer().Text());
  EXPECT_EQ(texts.size(), 1000u);
}

}  // namespace
}  // namespace coap_rpc_test
