// Tables of the C++ interface, as readers of versions and plain observers see them.
#include "cpp_node.h"

namespace coap_rpc_test {
namespace {

using coaprpc::Big;

struct Port {
  Big<uint16_t> slot, index;
  std::string text() const { return std::to_string(slot) + "/" + std::to_string(index); }
};
struct Stats {
  Big<uint32_t> rx;
  Big<uint8_t> isUp;
};
using Rows = std::vector<std::pair<Port, Stats>>;

constexpr char kPort12[] = "44 00 01 00 02", kPort13[] = "44 00 01 00 03";
constexpr char kStats5[] = "45 00 00 00 05 01";

class TableTest : public CppNode {
 protected:
  void Make() { table_ = must(node_->table<Port, Stats>("ports")); }

  std::string IdArg() {
    char text[32];
    snprintf(text, sizeof(text), "id=%016llx",
             static_cast<unsigned long long>(table_.state().replid));
    return text;
  }

  CoapMessage Pull(std::vector<std::string> args, std::optional<uint32_t> observe = {}) {
    CoapMessage get = Get("ports").AddText(kOptUriQuery, "_sync=1");
    for (const std::string &arg : args) get.AddText(kOptUriQuery, arg);
    return observe ? get.AddUint(kOptObserve, *observe) : get;
  }

  // Rows is the end of a page of everything: versions, keys and values.
  testing::AssertionResult HasRows(const std::string &hex) {
    const std::string page = HexText(Ask(Pull({IdArg(), "since=0", "full=1"})).payload);
    const bool has = page.size() >= hex.size() && page.substr(page.size() - hex.size()) == hex;
    return (has ? testing::AssertionSuccess() : testing::AssertionFailure()) << page;
  }

  Table<Port, Stats> table_;
};

TEST_F(TableTest, Set_Erase_AreInThePages) {
  Make();
  must(table_.set({1, 2}, {5, 1}));
  must(table_.set({1, 3}, {6, 0}));
  EXPECT_TRUE(HasRows(std::string("01 ") + kPort12 + " " + kStats5 + " 01 " + kPort13 +
                      " 45 00 00 00 06 00"));
  EXPECT_EQ(table_.size(), 2u);
  EXPECT_EQ(table_.head(), 2u);
  must(table_.set({1, 3}, {6, 0}));
  EXPECT_EQ(table_.head(), 2u);
  table_.erase({1, 2});
  table_.erase({9, 9});
  EXPECT_EQ(table_.size(), 1u);
  EXPECT_TRUE(HasRows(std::string("01 ") + kPort12 + " f6"));
}

TEST_F(TableTest, Replace_PublishesWhatDiffers) {
  Make();
  must(table_.set({1, 2}, {5, 1}));
  must(table_.set({7, 7}, {7, 1}));
  const uint64_t head = table_.head();
  must(table_.replace(Rows{{{1, 2}, {5, 1}}, {{1, 3}, {0, 0}}, {{1, 3}, {6, 0}}}));
  EXPECT_EQ(table_.size(), 2u);
  EXPECT_GE(table_.head(), head + 2);
  must(table_.replace(Rows()));
  EXPECT_EQ(table_.size(), 0u);
}

TEST_F(TableTest, ReplaceFromARangeThatThrows_ThrowsAndRemovesNothing) {
  struct Thrower {
    int at;
    std::pair<Port, Stats> operator*() const {
      if (at == 1) throw std::runtime_error("oops");
      return {{8, 8}, {8, 8}};
    }
    void operator++() { ++at; }
    bool operator==(const Thrower &other) const { return at == other.at; }
  };
  struct Range {
    Thrower begin() const { return {0}; }
    Thrower end() const { return {2}; }
  };
  Make();
  must(table_.set({1, 2}, {5, 1}));
  EXPECT_THROW(static_cast<void>(table_.replace(Range())), std::runtime_error);
  EXPECT_EQ(table_.size(), 2u);
}

TEST_F(TableTest, Confirmed_IsWhatEveryObserverHas) {
  Make();
  std::vector<uint64_t> confirmed;
  must(table_.onConfirmed([&](uint64_t version) { confirmed.push_back(version); }));
  must(table_.set({1, 2}, {5, 1}));
  EXPECT_EQ(table_.confirmed(), 0u);
  EXPECT_EQ(Ask(Pull({}, 0)).code, Code(2, 5));
  Ask(Pull({IdArg(), "since=1"}));
  EXPECT_EQ(table_.confirmed(), 1u);
  EXPECT_EQ(confirmed, std::vector<uint64_t>{1});
}

TEST_F(TableTest, FunctionOfConfirmedThatThrows_IsLogged_AndMayEndTheTable) {
  Make();
  must(table_.onConfirmed([&](uint64_t) {
    table_ = {};
    throw std::runtime_error("oops");
  }));
  must(table_.set({1, 2}, {5, 1}));
  Ask(Pull({}, 0));
  peer_.Send(Pull({IdArg(), "since=1"}));
  EXPECT_TRUE(Until([&] { return !Complaints().empty(); }));
  EXPECT_EQ(Complaints(), std::vector<std::string>{"ports: oops"});
  EXPECT_FALSE(table_.isOpen());
}

TEST_F(TableTest, PlainObserver_GetsJson) {
  Make();
  Ask(Get("ports").AddUint(kOptObserve, 0));
  must(table_.set({1, 2}, {5, 1}));
  const CoapMessage update = *Next();
  peer_.Send(AckOf(update));
  EXPECT_EQ(update.Uint(kOptContentFormat), 50u);
  EXPECT_EQ(update.Text(), R"({"data":[{"key":"1/2","value":"0000000501"}]})");
  table_.erase({1, 2});
  EXPECT_EQ(Next()->Text(), R"({"data":[{"key":"1/2","value":null}]})");
}

TEST_F(TableTest, PlainGet_GetsTheRows) {
  Make();
  EXPECT_EQ(Ask(Get("ports")).Text(), "[]");
  must(table_.set({1, 3}, {6, 0}));
  must(table_.set({1, 2}, {5, 1}));
  const CoapMessage answer = Ask(Get("ports"));
  EXPECT_EQ(answer.code, Code(2, 5));
  EXPECT_EQ(answer.Uint(kOptContentFormat), 50u);
  EXPECT_EQ(answer.Text(),
            R"([{"key":"1/2","value":"0000000501"},{"key":"1/3","value":"0000000600"}])");
  EXPECT_EQ(Ask(Post("ports", "x")).code, Code(4, 5));
}

TEST_F(TableTest, PlainGet_TellsHowManyRowsHaveNoRoom) {
  struct Long {
    uint8_t bytes[16000];
  };
  auto table = must(node_->table<uint8_t, Long>("long"));
  for (uint8_t i = 0; i < 4; ++i) must(table.set(i, {}));
  std::string json;
  Caller().call(Server(), "long").then([&](const Result<Answer> &answer) {
    json = answer->payload;
  });
  EXPECT_TRUE(Until([&] { return !json.empty(); }));
  EXPECT_TRUE(json.starts_with(R"([{"key":"00","value":"0000)")) << json.substr(0, 40);
  EXPECT_TRUE(json.ends_with(R"(00"},{"more":2}])")) << json.substr(json.size() - 40);
}

TEST_F(TableTest, Text_IsInTheJsonPage) {
  Make();
  must(table_.set({1, 2}, {5, 1}));
  const CoapMessage page = Ask(Pull({IdArg(), "since=0", "full=1"}).AddUint(kOptAccept, 50));
  EXPECT_NE(page.Text().find("\"1/2\""), std::string::npos) << page.Text();
}

TEST_F(TableTest, Destroyed_IsGone_AndAnotherMayFollow) {
  Make();
  must(node_->serve("other", [](const Asked &) {}));
  must(table_.set({1, 2}, {5, 1}));
  table_ = {};
  EXPECT_FALSE(table_.isOpen());
  EXPECT_STREQ(table_.set({1, 2}, {5, 1}).error().what(), "it has ended, or its node has");
  table_.erase({1, 2});
  EXPECT_FALSE(table_.replace(Rows()));
  EXPECT_FALSE(table_.onConfirmed([](uint64_t) {}));
  EXPECT_EQ(table_.head(), 0u);
  EXPECT_EQ(Ask(Pull({})).code, Code(4, 4));

  EXPECT_STREQ((node_->table<Port, Port>("ports").error().what()),
               "the path had a table with keys or values of other lengths");
  Make();
  EXPECT_EQ(table_.size(), 0u);
  must(table_.set({1, 3}, {6, 0}));
  EXPECT_EQ(table_.size(), 1u);
}

TEST_F(TableTest, SamePathTwice_IsRefused) {
  Make();
  EXPECT_STREQ((node_->table<Port, Stats>("ports").error().what()), "the path has a table already");
  EXPECT_TRUE(table_.isOpen());
}

TEST_F(TableTest, Param_IsPassedOn) {
  EXPECT_EQ((node_->table<Port, Stats>("p", {.pageBytes = 10}).error().code), 1900001513u);
  EXPECT_FALSE((node_->table<Port, Stats>(std::string(33, 'x'))));
  EXPECT_TRUE((node_->table<Port, Stats>(std::string(32, 'x'))));
  EXPECT_FALSE((node_->table<Port, Stats>("q", {.listen = "nowhere"})));
}

TEST_F(TableTest, Moved_IsTheSame_AndOutlivesItsNode) {
  Make();
  Table<Port, Stats> moved = std::move(table_);
  must(moved.set({1, 2}, {5, 1}));
  EXPECT_FALSE(table_.isOpen());
  node_.reset();
  EXPECT_FALSE(moved.set({1, 2}, {5, 1}));
}

TEST_F(TableTest, NoMemory_IsAResult) {
  Make();
  host_.Pool().Failures().FailOnce(1);
  EXPECT_EQ(table_.set({1, 2}, {5, 1}).error().code, 1900000135u);
  must(table_.set({1, 2}, {5, 1}));
  uint64_t numFailed = 0;
  for (uint64_t n = 1;; ++n, ++numFailed) {
    host_.Pool().Failures().FailOnce(n);
    const auto other = node_->table<Port, Stats>("other");
    host_.Pool().Failures().Clear();
    if (other) break;
  }
  EXPECT_GE(numFailed, 3u);
}

// ---- keys and values that say themselves what their bytes are ----

struct Name {
  static constexpr size_t size = 4;
  std::string text_;
  void encode(std::span<uint8_t, size> out) const {
    for (size_t i = 0; i < size; ++i) out[i] = i < text_.size() ? uint8_t(text_[i]) : 0;
  }
  static std::optional<Name> decode(std::span<const uint8_t, size> bytes) {
    if (bytes[0] == 0) return {};
    return Name{std::string(bytes.begin(), bytes.end())};
  }
  std::string text() const { return text_; }
};

// It leaves the bytes after the text as they are.
struct Short {
  static constexpr size_t size = 4;
  std::string text_;
  void encode(std::span<uint8_t, size> out) const { std::copy(text_.begin(), text_.end(), &out[0]); }
  static Short decode(std::span<const uint8_t, size> bytes) {
    return {std::string(bytes.begin(), bytes.end())};
  }
};

TEST_F(TableTest, BytesThatEncodeLeavesOut_AreZero) {
  auto all = must(node_->table<Short, Short>("all"));
  auto each = must(node_->table<Short, Short>("each"));
  must(all.replace(std::vector<std::pair<Short, Short>>{{{"long"}, {"1234"}}, {{"lo"}, {"5"}}}));
  must(each.set({"long"}, {"1234"}));
  must(each.set({"lo"}, {"5"}));
  EXPECT_EQ(all.state().digest, each.state().digest);
}

TEST_F(TableTest, OwnBytes_AreOnTheWire) {
  auto names = must(node_->table<Name, uint8_t>("names"));
  must(names.set({"ab"}, 7));
  const Bytes page =
      Ask(Get("names")
              .AddText(kOptUriQuery, "_sync=1")
              .AddText(kOptUriQuery,
                       [&] {
                         char text[32];
                         snprintf(text, sizeof(text), "id=%llx",
                                  static_cast<unsigned long long>(names.state().replid));
                         return std::string(text);
                       }())
              .AddText(kOptUriQuery, "since=0"))
          .payload;
  EXPECT_NE(HexText(page).find("44 61 62 00 00 41 07"), std::string::npos) << HexText(page);
}

TEST(Value, Big_IsInNetworkOrder) {
  constexpr Big<uint32_t> number = 0x01020304;
  uint8_t bytes[4];
  memcpy(bytes, &number, sizeof(bytes));
  EXPECT_EQ(bytes[0], 1);
  EXPECT_EQ(bytes[3], 4);
  static_assert(number == 0x01020304u);
  static_assert(Big<int16_t>(-2) == -2);
  EXPECT_EQ(Big<double>(1.5), 1.5);
  EXPECT_EQ(Big<CoapType>(CoapType::kRst), CoapType::kRst);
}

TEST(Value, FlagsOfAnyByte_AreTrue) {
  const uint8_t bytes[] = {0, 1, 2, 0xFF};
  for (const uint8_t &byte : bytes) {
    EXPECT_EQ(*coaprpc::detail::Codec<bool>::decode(&byte), byte != 0);
    EXPECT_EQ(bool(*coaprpc::detail::Codec<Big<bool>>::decode(&byte)), byte != 0);
  }
}

// Members may have the names of what another type has as its functions.
TEST(Value, MembersOfAnyName) {
  struct File {
    Big<uint32_t> size;
    uint8_t encode, decode[2];
  };
  EXPECT_EQ((coaprpc::detail::Codec<File>::size), 7u);
  const uint8_t bytes[] = {0, 0, 1, 0, 5, 6, 7};
  EXPECT_EQ(coaprpc::detail::Codec<File>::decode(bytes)->size, 256u);
  EXPECT_EQ(coaprpc::detail::Codec<File>::decode(bytes)->decode[1], 7);
}

TEST(Value, Json_IsTheText_OrTheBytes) {
  using coaprpc::detail::quotedJson;
  EXPECT_EQ(quotedJson("a/\u00e9\u20ac\U0001F600"), "\"a/\u00e9\u20ac\U0001F600\"");
  EXPECT_EQ(quotedJson(std::string_view("\"\\\n\0", 4)), R"("\u0022\u005c\u000a\u0000")");
  for (const char *bad :
       {"\x80", "\xC1\xBF", "\xC3", "\xC3(", "\xE0\x9F\xBF", "\xED\xA0\x80", "\xE2\x82",
        "\xF0\x8F\xBF\xBF", "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "\xFF"}) {
    EXPECT_FALSE(quotedJson(bad)) << bad;
    EXPECT_FALSE(quotedJson(std::string("a") + bad + "b")) << bad;
  }
  EXPECT_EQ(coaprpc::detail::toJson<Name>("ab\xFF\xFF"), R"("6162ffff")");
  EXPECT_EQ(coaprpc::detail::toJson<Name>("\0bcd"), R"("00626364")");
}

TEST(Value, Texts_AreCutAndNeverFail) {
  char buf[4];
  EXPECT_STREQ(coaprpc::detail::toText<Name>("abcd", buf, sizeof(buf)), "abc");
  EXPECT_STREQ(coaprpc::detail::toText<Name>("\0\0\0\0", buf, sizeof(buf)), "");
}

TEST(Value, RecordWithoutDefault_IsDecoded) {
  struct Odd {
    explicit Odd(uint8_t number) : at(number) {}
    uint8_t at;
  };
  const uint8_t byte = 9;
  EXPECT_EQ(coaprpc::detail::Codec<Odd>::decode(&byte)->at, 9);
}

TEST(Address, Texts) {
  using coaprpc::Address;
  EXPECT_EQ(Address("127.0.0.2").text(), "127.0.0.2:5683");
  EXPECT_EQ(Address("127.0.0.2:1").text(), "127.0.0.2:1");
  EXPECT_EQ(Address("::1").text(), "[::1]:5683");
  EXPECT_EQ(Address("[fe80::1]:65535").text(), "[fe80::1]:65535");
  EXPECT_TRUE(Address("::1") == Address("[::1]:5683"));
  EXPECT_FALSE(Address("::1") == Address("[::1]:5684"));
  EXPECT_FALSE(Address("::1") == Address("::2"));
  EXPECT_FALSE(Address("127.0.0.2") == Address("127.0.0.3"));
  EXPECT_FALSE(Address(Address("127.0.0.1").ip(), 65536).isValid());
  EXPECT_FALSE(Address(std::string("127.0.0.1\0x", 11)).isValid());
  CoapRpcIpAddr unclean = {};
  std::memset(unclean.addr.ipv6, 0xAB, sizeof(unclean.addr.ipv6));
  unclean.family = COAP_RPC_IPV4;
  unclean.addr.ipv4 = 0x7F000002;
  EXPECT_TRUE(Address(unclean, 5683) == Address("127.0.0.2"));
  for (const char *bad : {"", "x", "127.0.0", "127.0.0.1:", "127.0.0.1:0", "127.0.0.1:65536",
                          "127.0.0.1:1x", "127.0.0.1: 1", "127.0.0.1:-1", "[127.0.0.1]:1", "[::1",
                          "[::1]x", "[::1]1", "::1:x", "coap://127.0.0.1", "localhost",
                          "0000000000000000000000000000000000000000000000000000000000000000"}) {
    EXPECT_FALSE(Address(bad).isValid()) << bad;
    EXPECT_EQ(Address(bad).text(), "") << bad;
  }
}

// Containers copy what may throw when it is moved, and handles cannot be copied.
template <typename... Handles>
constexpr bool kMoveWithoutThrowing = (... && (std::is_nothrow_move_constructible_v<Handles> &&
                                               std::is_nothrow_move_assignable_v<Handles>));
static_assert(kMoveWithoutThrowing<Node, Call, Observation, Timer, Later, Task<>,
                                   Table<Port, Stats>, coaprpc::Mirror<Port, Stats>>);

TEST(Must, ThrowsTheError) {
  try {
    must(Result<int>(coaprpc::Unexpected(coaprpc::Error::ofCode(1900000135))));
    FAIL();
  } catch (const coaprpc::Failure &failure) {
    EXPECT_EQ(failure.error().code, 1900000135u);
    EXPECT_STREQ(failure.what(), COAP_RpcErrStr(1900000135));
  }
  EXPECT_EQ(must(Result<int>(3)), 3);
  EXPECT_EQ(*must(Result<std::unique_ptr<int>>(std::make_unique<int>(4))), 4);
}

}  // namespace
}  // namespace coap_rpc_test
