// Handlers of the C++ interface that answer at once: what they return and what the peer gets.
#include "cpp_node.h"

namespace coap_rpc_test {
namespace {

using Texts = std::vector<std::string>;

class Serve : public CppNode {};

TEST_F(Serve, Text_IsThePayload) {
  must(node_->serve("upper", [](std::string_view text) { return std::string(text) + "!"; }));
  const CoapMessage post = Post("upper", "hi");
  EXPECT_EQ(Ask(post),
            Request(CoapType::kAck, Code(2, 4), post.messageId, post.token).PayloadText("hi!"));
  EXPECT_EQ(Ask(Get("upper")).code, Code(2, 5));
}

TEST_F(Serve, AnyText_MayBeReturned) {
  must(node_->serve("literal", [](const Asked &) { return "a"; }));
  must(node_->serve("view", [](std::string_view text) { return text; }));
  must(node_->serve("result", [](const Asked &) -> Result<std::string> { return "c"; }));
  EXPECT_EQ(Ask(Post("literal")).Text(), "a");
  EXPECT_EQ(Ask(Post("view", "b")).Text(), "b");
  EXPECT_EQ(Ask(Post("result")).Text(), "c");
}

TEST_F(Serve, Nothing_IsAnEmptyAnswer) {
  must(node_->serve("void", [](const Asked &) {}));
  must(node_->serve("result", [](const Asked &) -> Result<void> { return {}; }));
  for (const char *path : {"void", "result"}) {
    const CoapMessage answer = Ask(Post(path, "x"));
    EXPECT_EQ(answer.code, Code(2, 4));
    EXPECT_TRUE(answer.payload.empty());
  }
}

TEST_F(Serve, Reply_HasCodeFormatAndOptions) {
  must(node_->serve("r", [](const Asked &) {
    return Reply{.code = 201,
                 .format = coaprpc::Format::json,
                 .payload = "{}",
                 .options = {{COAP_RPC_OPTION_ETAG, "e1"}, {COAP_RPC_OPTION_LOCATION_PATH, "n"}}};
  }));
  const CoapMessage answer = Ask(Post("r"));
  EXPECT_EQ(answer.code, Code(2, 1));
  EXPECT_EQ(answer.Uint(kOptContentFormat), 50u);
  EXPECT_EQ(answer.Values(kOptEtag), std::vector<Bytes>{BytesOf("e1")});
  EXPECT_EQ(answer.Values(kOptLocationPath), std::vector<Bytes>{BytesOf("n")});
  EXPECT_EQ(answer.Text(), "{}");
}

TEST_F(Serve, ReplyWithoutCode_HasTheMethodsOwn) {
  must(node_->serve(
      "r", [](const Asked &) { return Reply{.format = coaprpc::Format::text, .payload = "x"}; }));
  EXPECT_EQ(Ask(Get("r")).code, Code(2, 5));
  EXPECT_EQ(Ask(Post("r")).code, Code(2, 4));
}

TEST_F(Serve, Error_Is500_AndInTheLogOnly) {
  must(node_->serve("e", [](const Asked &) -> Result<std::string> {
    return coaprpc::Unexpected(coaprpc::Error::ofText("disk full"));
  }));
  const CoapMessage answer = Ask(Post("e"));
  EXPECT_EQ(answer.code, Code(5, 0));
  EXPECT_TRUE(answer.payload.empty());
  EXPECT_EQ(Complaints(), Texts{"answer: disk full"});
}

TEST_F(Serve, Exception_Is500_AndInTheLogOnly) {
  must(node_->serve("t", [](const Asked &) -> std::string { throw std::runtime_error("oops"); }));
  const CoapMessage answer = Ask(Post("t"));
  EXPECT_EQ(answer.code, Code(5, 0));
  EXPECT_TRUE(answer.payload.empty());
  EXPECT_EQ(Complaints(), Texts{"t: oops"});
}

TEST_F(Serve, ThrownNumber_Is500) {
  must(node_->serve("t", [](const Asked &) -> std::string { throw 7; }));
  EXPECT_EQ(Ask(Post("t")).code, Code(5, 0));
  EXPECT_EQ(Complaints(), Texts{"t: not a std::exception"});
}

TEST_F(Serve, NullPointer_Is500) {
  must(node_->serve("null", [](const Asked &) -> const char * { return nullptr; }));
  EXPECT_EQ(Ask(Post("null")).code, Code(5, 0));
  EXPECT_EQ(Complaints(), Texts{"answer: the answer is a null pointer"});
}

// libcoap has paths percent-encoded, whatever messages have.
TEST_F(Serve, PathOfAnyCharacters) {
  for (const std::string path :
       {"a b", "a%20b", "\u00e9", "a?b", "#", "\x7f", "-._~!$'()*+,;=:@&"}) {
    must(node_->serve(path, [](const Asked &) {}));
    EXPECT_EQ(Ask(Post(path)).code, Code(2, 4)) << path;
    const auto table = must(node_->table<uint8_t, uint8_t>("t/" + path));
    const CoapMessage head = Get("t/" + path).AddText(kOptUriQuery, "_sync=1");
    EXPECT_EQ(Ask(head).code, Code(2, 5)) << path;
    must(node_->unserve(path));
    EXPECT_EQ(Ask(Post(path)).code, Code(4, 4)) << path;
  }
  EXPECT_FALSE(node_->serve(std::string(22, ' '), [](const Asked &) {}));
  EXPECT_TRUE(node_->serve(std::string(21, ' '), [](const Asked &) {}));
}

TEST_F(Serve, UnknownCode_Is500) {
  must(node_->serve("r", [](const Asked &) { return Reply{.code = 299}; }));
  EXPECT_EQ(Ask(Post("r")).code, Code(5, 0));
  EXPECT_EQ(Complaints().size(), 1u);
}

TEST_F(Serve, UnknownOption_Is500) {
  must(node_->serve("r", [](const Asked &) { return Reply{.options = {{999, "x"}}}; }));
  EXPECT_EQ(Ask(Post("r")).code, Code(5, 0));
}

TEST_F(Serve, LongestAnswer_GoesInBlocks_OneByteMoreIs500) {
  must(node_->serve(
      "long", [](std::string_view text) { return std::string(text == "+" ? 65471 : 65470, 'x'); }));
  EXPECT_EQ(Ask(Post("long", "+")).code, Code(5, 0));
  EXPECT_EQ(Complaints(), Texts{"answer: the answer is too long"});
  const CoapMessage first = Ask(Post("long", "-"));
  EXPECT_EQ(first.code, Code(2, 4));
  EXPECT_TRUE(first.Block(kOptBlock2)->more);
}

TEST_F(Serve, Request_TellsWhatWasAsked) {
  Texts seen;
  must(node_->serve("q", [&](const Asked &asked) {
    seen = {std::to_string(asked.method()),
            asked.query("a").value_or("-"),
            asked.query("b").value_or("-"),
            asked.query("c").value_or("-"),
            std::to_string(asked.format()),
            std::to_string(asked.accept()),
            asked.option(kOptEtag, 1).value_or("-"),
            asked.option(kOptEtag, 2).value_or("-"),
            std::string(asked.payload()),
            asked.peer().text()};
    EXPECT_TRUE(asked.isConfirmable());
    EXPECT_FALSE(asked.later().isOpen());
  }));
  CoapMessage post = Post("q", "body").AddText(kOptUriQuery, "a=1").AddText(kOptUriQuery, "b");
  post.AddUint(kOptContentFormat, 50).AddUint(kOptAccept, 60);
  Ask(post.AddText(kOptEtag, "x").AddText(kOptEtag, "yz"));
  EXPECT_EQ(seen, (Texts{"2", "1", "", "-", "50", "60", "yz", "-", "body",
                         "127.0.0.1:" + std::to_string(peer_.Local().port)}));
}

TEST_F(Serve, Methods_AreThoseAllowed) {
  must(node_->serve("m", [](const Asked &) {}, {.methods = COAP_RPC_ALLOW_PUT}));
  EXPECT_EQ(Ask(Message(kCodePut, "m")).code, Code(2, 4));
  EXPECT_EQ(Ask(Post("m")).code, Code(4, 5));
}

TEST_F(Serve, Attributes_AreInTheLinks) {
  must(node_->serve("l", [](const Asked &) {},
                    {.rt = "t", .interfaces = "i", .ct = "50", .title = "T"}));
  EXPECT_EQ(Ask(Get(".well-known/core")).Text(), "</l>;title=\"T\";ct=50;if=\"i\";rt=\"t\"");
  const Result<void> bad = node_->serve("bad", [](const Asked &) {}, {.rt = "\""});
  ASSERT_FALSE(bad);
  EXPECT_EQ(bad.error().code, 1900001556u);
}

TEST_F(Serve, Paths_AreChecked) {
  const auto handler = [](const Asked &) { return "x"; };
  EXPECT_FALSE(node_->serve("", handler));
  EXPECT_FALSE(node_->serve("/", handler));
  EXPECT_FALSE(node_->serve(std::string(64, 'a'), handler));
  EXPECT_FALSE(node_->serve(std::string_view("a\0b", 3), handler));
  EXPECT_TRUE(node_->serve(std::string(63, 'a'), handler));
  EXPECT_EQ(Ask(Post(std::string(63, 'a'))).Text(), "x");
  EXPECT_TRUE(node_->serve("/a/b", handler));
  EXPECT_EQ(Ask(Post("a/b")).Text(), "x");
}

TEST_F(Serve, SamePathTwice_IsRefused_WhicheverKindComesFirst) {
  const auto now = [](const Asked &) { return "now"; };
  const auto later = [](const Asked &asked) { return asked.later(); };
  must(node_->serve("a", now));
  EXPECT_STREQ(node_->serve("a", now).error().what(), "the path is served already");
  EXPECT_FALSE(node_->serve("a", later));
  must(node_->serve("b", later));
  EXPECT_FALSE(node_->serve("b", now));
  EXPECT_EQ(Ask(Post("a")).Text(), "now");
}

TEST_F(Serve, Unserved_IsGone_AndCanBeServedAgain) {
  int numEnds = 0;
  must(node_->serve("a", [witness = Witness(numEnds)](const Asked &) { return "1"; }));
  must(node_->unserve("a"));
  EXPECT_EQ(numEnds, 1);
  EXPECT_STREQ(node_->unserve("a").error().what(), "the path is not served");
  must(node_->serve("other", [](const Asked &) {}));
  EXPECT_EQ(Ask(Post("a")).code, Code(4, 4));
  must(node_->serve("a", [](const Asked &) { return "2"; }));
  EXPECT_EQ(Ask(Post("a")).Text(), "2");
}

TEST_F(Serve, HandlerThatUnservesItself_StillAnswers) {
  int numEnds = 0;
  must(node_->serve("other", [](const Asked &) {}));
  must(node_->serve("a", [this, &numEnds, text = std::string("a text of its own, on the heap"),
                          witness = Witness(numEnds)](const Asked &) {
    must(node_->unserve("a"));
    EXPECT_EQ(numEnds, 0);
    return text;
  }));
  EXPECT_EQ(Ask(Post("a")).Text(), "a text of its own, on the heap");
  EXPECT_EQ(numEnds, 1);
  EXPECT_EQ(Ask(Post("a")).code, Code(4, 4));
}

TEST_F(Serve, HandlerThatReplacesItself_StillAnswers) {
  must(node_->serve("a", [this](const Asked &) {
    must(node_->unserve("a"));
    must(node_->serve("a", [](const Asked &) { return "new"; }));
    return "old";
  }));
  EXPECT_EQ(Ask(Post("a")).Text(), "old");
  EXPECT_EQ(Ask(Post("a")).Text(), "new");
}

TEST_F(Serve, MovedNode_ServesOn_AndTheOldOneDoesNothing) {
  must(node_->serve("a", [](const Asked &) { return "x"; }));
  Node moved = std::move(*node_);
  EXPECT_EQ(Ask(Post("a")).Text(), "x");
  EXPECT_FALSE(node_->serve("b", [](const Asked &) {}));
  EXPECT_FALSE(node_->unserve("a"));
  EXPECT_FALSE((node_->table<uint8_t, uint8_t>("t")));
  EXPECT_FALSE(node_->every(milliseconds(1), [] {}));
  EXPECT_FALSE(node_->observe(Server(), "a", [](const Result<Answer> &) {}));
  EXPECT_EQ(node_->ctx(), nullptr);
  std::string why;
  node_->call(Server(), "a").then([&](const Result<Answer> &answer) {
    why = answer.error().what();
  });
  EXPECT_EQ(why, "it has ended, or its node has");
}

TEST_F(Serve, PortInUse_Fails_AndCanBeTriedAgain) {
  const std::string host = OwnHost(Role::kOtherPeer);
  auto holder = std::make_unique<RawPeer>(UdpAddress{host, kCoapPort});
  const auto handler = [](const Asked &) { return "x"; };
  const Result<void> result = node_->serve("a", handler, {.listen = host});
  ASSERT_FALSE(result);
  EXPECT_EQ(result.error().code, 1900000157u);
  holder.reset();
  must(node_->serve("a", handler, {.listen = host}));
  peer_.SetRemote({host, kCoapPort});
  EXPECT_EQ(Ask(Post("a")).Text(), "x");
}

TEST_F(Serve, AddressThatIsNone_IsRefused) {
  EXPECT_FALSE(node_->serve("a", [](const Asked &) {}, {.listen = "no address"}));
  EXPECT_FALSE(node_->serve("a", [](const Asked &) {}, {.listen = "0.0.0.0"}));
  EXPECT_TRUE(node_->serve("a", [](const Asked &) {}));
}

// Each allocation of the pool fails once, until none does.  The node ends before its witness.
TEST_F(Serve, NoMemory_FailsAndChangesNothing) {
  int numEnds = 0, numFailures = 0;
  for (uint64_t n = 1;; ++n) {
    host_.Pool().Failures().FailOnce(n);
    const Result<void> result =
        node_->serve("a", [witness = Witness(numEnds)](const Asked &) { return "x"; });
    host_.Pool().Failures().Clear();
    if (result) break;
    EXPECT_EQ(numEnds, ++numFailures);
  }
  EXPECT_GT(numFailures, 3);
  EXPECT_EQ(Ask(Post("a")).Text(), "x");
  node_.reset();
}

}  // namespace
}  // namespace coap_rpc_test
