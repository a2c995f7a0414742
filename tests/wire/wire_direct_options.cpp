// Options of requests to direct entries and of their answers, byte by byte.
#include "coap_svc/rpc/coap_rpc_ext.h"
#include "coap_svc/rpc/libadapter/direct/coap_rpc_lib_direct_data.h"
#include "direct_server.h"
#include "libcoap_memory.h"

namespace coap_rpc_test {
namespace {

constexpr uint16_t kOptLocationQuery = 20;
constexpr uint32_t kBadOption = 1900001509, kTooMany = 1900001550, kNoMemory = 1900001551;
const std::string kLarge(3000, 'x');

class DirectOptions : public Direct {
 protected:
  uint32_t Add(uint32_t number, const Bytes &value) {
    return COAP_RpcSerAddAnswerOption(Ctx(), number, value.data(),
                                      static_cast<uint32_t>(value.size()));
  }
  uint32_t AddAsync(void *handle, uint32_t number, const Bytes &value) {
    return COAP_RpcSerAddAsyncAnswerOption(Ctx(), handle, number, value.data(),
                                           static_cast<uint32_t>(value.size()));
  }

  // AddFour adds one of each number, in the opposite of their order.
  void AddFour() {
    EXPECT_EQ(Add(20, BytesOf("q=1")), 0u);
    EXPECT_EQ(Add(14, {1, 0}), 0u);
    EXPECT_EQ(Add(8, BytesOf("x")), 0u);
    EXPECT_EQ(Add(8, BytesOf("y")), 0u);
    EXPECT_EQ(Add(4, {0, 1, 2}), 0u);
  }

  static CoapMessage WithFour(CoapMessage message) {
    return message.Add(kOptEtag, {0, 1, 2})
        .AddText(kOptLocationPath, "x")
        .AddText(kOptLocationPath, "y")
        .Add(kOptMaxAge, {1, 0})
        .AddText(kOptLocationQuery, "q=1");
  }

  static void ExpectFour(const CoapMessage &message) {
    CoapMessage known;
    for (const CoapOption &option : message.options) {
      const bool isBlock = option.number == kOptBlock2 || option.number == kOptSize2;
      if (!isBlock && option.number != kOptContentFormat) known.Add(option.number, option.value);
    }
    EXPECT_EQ(known.options, WithFour(CoapMessage()).options);
  }

  CoapMessage NextBlock(uint8_t method, uint32_t num, uint8_t szx, const Bytes &etag = {}) {
    CoapMessage request = Message(method).AddBlock(kOptBlock2, {num, false, szx});
    if (!etag.empty()) request.Add(kOptEtag, etag);
    return Ask(request);
  }
};

// ---- options of requests ----

class Option {
 public:
  explicit Option(CoapRpcCtx *ctx) : ctx_(ctx) {}

  uint32_t Get(uint32_t number, uint32_t index, uint32_t size = 300) {
    bytes.assign(size, 0xEE);
    len = 0xEEEE;
    const uint32_t ret =
        COAP_RpcSerGetOption(ctx_, number, index, size != 0 ? bytes.data() : nullptr, size, &len);
    if (ret == 0) bytes.resize(len);
    return ret;
  }

  Bytes bytes;
  uint32_t len = 0;

 private:
  CoapRpcCtx *ctx_;
};

TEST_F(DirectOptions, GetOption_EachOccurrenceAsItWasSent) {
  ServeDirect(kModeSync, ParamWith(COAP_RPC_ALLOW_ALL));
  Option option(Ctx());
  const Bytes longQuery(255, 'q');
  app_.onCall = [&] {
    EXPECT_EQ(option.Get(COAP_RPC_OPTION_IF_MATCH, 0), 0u);
    EXPECT_EQ(option.bytes, (Bytes{0, 9}));
    EXPECT_EQ(option.Get(COAP_RPC_OPTION_IF_MATCH, 1), 0u);
    EXPECT_EQ(option.bytes, Bytes{});
    EXPECT_EQ(option.Get(COAP_RPC_OPTION_IF_MATCH, 2), 1900001505u);
    EXPECT_EQ(option.Get(COAP_RPC_OPTION_ETAG, 1), 0u);
    EXPECT_EQ(option.bytes, (Bytes{2}));
    EXPECT_EQ(option.Get(COAP_RPC_OPTION_URI_QUERY, 1), 0u);
    EXPECT_EQ(option.bytes, longQuery);
    EXPECT_EQ(option.Get(65000, 0), 0u);
    EXPECT_EQ(option.bytes, (Bytes{1, 2, 3}));
    for (const uint32_t number : {0u, 5u, 65001u, 65536u + 4, ~0u}) {
      EXPECT_EQ(option.Get(number, 0), 1900001505u) << number;
    }
    EXPECT_EQ(option.Get(COAP_RPC_OPTION_ETAG, ~0u), 1900001505u);
  };
  Ask(Message(kCodePut, "p")
          .Add(kOptIfMatch, {0, 9})
          .Add(kOptIfMatch)
          .Add(kOptEtag, {1})
          .Add(kOptEtag, {2})
          .AddText(kOptUriQuery, "a=1")
          .Add(kOptUriQuery, longQuery)
          .Add(65000, {1, 2, 3}));
  EXPECT_EQ(app_.payloads.size(), 1u);
}

TEST_F(DirectOptions, GetOption_TooSmallABuffer_TellsTheLength) {
  ServeDirect(kModeAsync);
  Option option(Ctx());
  app_.onCall = [&] {
    EXPECT_EQ(option.Get(COAP_RPC_OPTION_ETAG, 0, 2), 1900001506u);
    EXPECT_EQ(option.len, 3u);
    EXPECT_EQ(option.bytes, (Bytes{0xEE, 0xEE}));
    EXPECT_EQ(option.Get(COAP_RPC_OPTION_ETAG, 0, 0), 1900001506u);
    EXPECT_EQ(option.len, 3u);
    EXPECT_EQ(option.Get(COAP_RPC_OPTION_ETAG, 0, 3), 0u);
    EXPECT_EQ(option.Get(COAP_RPC_OPTION_IF_MATCH, 0, 0), 0u);
    EXPECT_EQ(option.len, 0u);
  };
  AskOpen(Message(kCodeGet).Add(kOptEtag, {1, 2, 3}).Add(kOptIfMatch));
  EXPECT_EQ(option.Get(COAP_RPC_OPTION_ETAG, 0), 1900001479u);
}

TEST_F(DirectOptions, GetOption_BadArguments) {
  uint8_t byte;
  uint32_t len;
  EXPECT_EQ(COAP_RpcSerGetOption(nullptr, 4, 0, &byte, 1, &len), 1900001504u);
  EXPECT_EQ(COAP_RpcSerGetOption(Ctx(), 4, 0, nullptr, 1, &len), 1900001504u);
  EXPECT_EQ(COAP_RpcSerGetOption(Ctx(), 4, 0, &byte, 1, nullptr), 1900001504u);
  EXPECT_EQ(COAP_RpcSerGetOption(Ctx(), 4, 0, &byte, 1, &len), 1900001479u);
}

TEST_F(DirectOptions, IfNoneMatch_ReachesNoCallback) {
  ServeDirect(kModeSync, ParamWith(COAP_RPC_ALLOW_ALL));
  EXPECT_EQ(Ask(Message(kCodePut).Add(kOptIfNoneMatch)).code, Code(4, 12));
  EXPECT_TRUE(app_.payloads.empty());
}

// ---- options of answers ----

TEST_F(DirectOptions, Answer_AllInTheOrderOfTheirNumbers) {
  ServeDirect(kModeSync);
  app_.out = "{}";
  app_.onCall = [&] {
    AddFour();
    EXPECT_EQ(COAP_RpcSerSetAnswer(Ctx(), 201, 50), 0u);
  };
  const CoapMessage post = Message(kCodePost, "q");
  CoapMessage expected = AnswerTo(post, Code(2, 1), "{}");
  expected.Add(kOptEtag, {0, 1, 2}).AddText(kOptLocationPath, "x").AddText(kOptLocationPath, "y");
  expected.AddUint(kOptContentFormat, 50).Add(kOptMaxAge, {1, 0});
  expected.AddText(kOptLocationQuery, "q=1");
  EXPECT_EQ(ToBytes(Ask(post)), ToBytes(expected));
}

TEST_F(DirectOptions, Answer_WithoutPayload) {
  ServeDirect(kModeSync);
  app_.onCall = [&] {
    COAP_RpcSerSetAnswer(Ctx(), 203, COAP_RPC_DIRECT_NO_FORMAT);
    EXPECT_EQ(Add(COAP_RPC_OPTION_ETAG, {1, 2, 3, 4, 5, 6, 7, 8}), 0u);
  };
  const CoapMessage get = Message(kCodeGet);
  EXPECT_EQ(Ask(get), AnswerTo(get, Code(2, 3)).Add(kOptEtag, {1, 2, 3, 4, 5, 6, 7, 8}));
}

TEST_F(DirectOptions, Answer_EmptyAndLongestValues) {
  ServeDirect(kModeSync);
  const Bytes longest(255, 'l');
  app_.onCall = [&] {
    EXPECT_EQ(COAP_RpcSerAddAnswerOption(Ctx(), COAP_RPC_OPTION_MAX_AGE, nullptr, 0), 0u);
    EXPECT_EQ(Add(COAP_RPC_OPTION_LOCATION_PATH, {}), 0u);
    EXPECT_EQ(Add(COAP_RPC_OPTION_LOCATION_QUERY, longest), 0u);
  };
  const CoapMessage get = Message(kCodeGet);
  EXPECT_EQ(Ask(get), AnswerTo(get, Code(2, 5))
                          .Add(kOptLocationPath)
                          .Add(kOptMaxAge)
                          .Add(kOptLocationQuery, longest));
}

TEST_F(DirectOptions, Answer_OptionsAreForOneRequest) {
  ServeDirect(kModeSync);
  app_.onCall = [&] { AddFour(); };
  Ask(Message(kCodeGet));
  app_.onCall = nullptr;
  const CoapMessage get = Message(kCodeGet);
  EXPECT_EQ(Ask(get), AnswerTo(get, Code(2, 5)));
}

TEST_F(DirectOptions, Answer_ErrorOfTheHandlerHasThem_OfTheLibraryNot) {
  ServeDirect(kModeSync);
  app_.onCall = [&] {
    Add(COAP_RPC_OPTION_MAX_AGE, {5});
    COAP_RpcSerSetAnswer(Ctx(), 503, COAP_RPC_DIRECT_NO_FORMAT);
  };
  const CoapMessage busy = Message(kCodePost);
  EXPECT_EQ(Ask(busy), AnswerTo(busy, Code(5, 3)).Add(kOptMaxAge, {5}));
  app_.result = -1;
  const CoapMessage failed = Message(kCodePost);
  EXPECT_EQ(Ask(failed), AnswerTo(failed, Code(5, 0)));
}

TEST_F(DirectOptions, Answer_Repeated_TheSame) {
  ServeDirect(kModeSync);
  app_.out = "x";
  app_.onCall = [&] { AddFour(); };
  const CoapMessage post = Message(kCodePost, "q");
  const CoapMessage answer = Ask(post);
  ExpectFour(answer);
  app_.onCall = nullptr;
  EXPECT_EQ(ToBytes(Ask(post)), ToBytes(answer));
  EXPECT_EQ(app_.payloads.size(), 1u);
}

TEST_F(DirectOptions, AddAnswerOption_BadArguments) {
  EXPECT_EQ(COAP_RpcSerAddAnswerOption(nullptr, 4, "a", 1), 1900001508u);
  EXPECT_EQ(COAP_RpcSerAddAnswerOption(Ctx(), 4, nullptr, 1), 1900001508u);
  EXPECT_EQ(COAP_RpcSerAddAnswerOption(Ctx(), 4, "a", 1), 1900001470u);
  ServeDirect(kModeSync);
  app_.onCall = [&] {
    for (const uint32_t number :
         {0u, 1u, 3u, 5u, 6u, 11u, 12u, 15u, 23u, 27u, 28u, 60u, 258u, 65536u + 4, ~0u}) {
      EXPECT_EQ(Add(number, {1}), kBadOption) << number;
    }
    EXPECT_EQ(Add(COAP_RPC_OPTION_ETAG, {}), kBadOption);
    EXPECT_EQ(Add(COAP_RPC_OPTION_ETAG, Bytes(9)), kBadOption);
    EXPECT_EQ(Add(COAP_RPC_OPTION_MAX_AGE, Bytes(5)), kBadOption);
    EXPECT_EQ(Add(COAP_RPC_OPTION_LOCATION_PATH, Bytes(256)), kBadOption);
    EXPECT_EQ(Add(COAP_RPC_OPTION_LOCATION_QUERY, Bytes(256)), kBadOption);
    EXPECT_EQ(COAP_RpcSerAddAnswerOption(Ctx(), COAP_RPC_OPTION_LOCATION_PATH, "", ~0u),
              kBadOption);
    EXPECT_EQ(Add(COAP_RPC_OPTION_LOCATION_PATH, BytesOf(".")), kBadOption);
    EXPECT_EQ(Add(COAP_RPC_OPTION_LOCATION_PATH, BytesOf("..")), kBadOption);
  };
  const CoapMessage get = Message(kCodeGet);
  EXPECT_EQ(Ask(get), AnswerTo(get, Code(2, 5)));
  app_.onCall = [&] {
    for (const uint32_t number : {COAP_RPC_OPTION_ETAG, COAP_RPC_OPTION_MAX_AGE}) {
      EXPECT_EQ(Add(number, {1}), 0u);
      EXPECT_EQ(Add(number, {2}), kBadOption);
    }
    EXPECT_EQ(Add(COAP_RPC_OPTION_LOCATION_PATH, BytesOf("...")), 0u);
    EXPECT_EQ(Add(COAP_RPC_OPTION_LOCATION_QUERY, BytesOf(".")), 0u);
  };
  const CoapMessage once = Message(kCodeGet);
  EXPECT_EQ(Ask(once), AnswerTo(once, Code(2, 5))
                           .Add(kOptEtag, {1})
                           .AddText(kOptLocationPath, "...")
                           .Add(kOptMaxAge, {1})
                           .AddText(kOptLocationQuery, "."));
}

TEST_F(DirectOptions, AddAnswerOption_Bounds) {
  ServeDirect(kModeSync);
  app_.onCall = [&] {
    for (int i = 0; i < 8; ++i) EXPECT_EQ(Add(COAP_RPC_OPTION_LOCATION_PATH, {}), 0u);
    EXPECT_EQ(Add(COAP_RPC_OPTION_LOCATION_PATH, {}), kTooMany);
  };
  EXPECT_EQ(Ask(Message(kCodeGet)).Values(kOptLocationPath).size(), 8u);
  app_.onCall = [&] {
    EXPECT_EQ(Add(COAP_RPC_OPTION_LOCATION_PATH, Bytes(250, 'x')), 0u);
    EXPECT_EQ(Add(COAP_RPC_OPTION_LOCATION_PATH, Bytes(7, 'y')), kTooMany);
    EXPECT_EQ(Add(COAP_RPC_OPTION_LOCATION_PATH, Bytes(6, 'y')), 0u);
  };
  EXPECT_EQ(Ask(Message(kCodeGet)).Values(kOptLocationPath),
            (std::vector<Bytes>{Bytes(250, 'x'), Bytes(6, 'y')}));
}

TEST_F(DirectOptions, AddAnswerOption_NoMemory_TheAnswerGoesWithout) {
  ServeDirect(kModeSync);
  app_.onCall = [&] {
    host_.Pool().Failures().FailOnce(1);
    EXPECT_EQ(Add(COAP_RPC_OPTION_ETAG, {1}), kNoMemory);
  };
  const CoapMessage get = Message(kCodeGet);
  EXPECT_EQ(Ask(get), AnswerTo(get, Code(2, 5)));
}

// A message grows in steps; each of them may fail, with some of the options written.
TEST_F(DirectOptions, NoMemoryForTheMessage_503WithoutOptions) {
  ServeDirect(kModeSync);
  const Bytes half(127, 'p');
  app_.onCall = [&] {
    EXPECT_EQ(Add(COAP_RPC_OPTION_ETAG, {1}), 0u);
    EXPECT_EQ(Add(COAP_RPC_OPTION_LOCATION_PATH, half), 0u);
    EXPECT_EQ(Add(COAP_RPC_OPTION_LOCATION_QUERY, half), 0u);
  };
  for (const size_t len : {0u, 600u}) {
    app_.out = std::string(len, 'x');
    const CoapMessage get = Message(kCodeGet);
    int numGrowths = 0;
    NoMemory none([&](const Need &need) { return need.isGrowth && ++numGrowths == 1; });
    EXPECT_EQ(Ask(get), AnswerTo(get, Code(5, 3))) << len;
    EXPECT_EQ(none.NumRefused(), 1);
  }
}

TEST_F(DirectOptions, NoMemoryForTheBody_ErrorWithoutOptions) {
  ServeDirect(kModeSync);
  app_.out = kLarge;
  app_.onCall = [&] {
    AddFour();
    host_.Pool().Failures().FailOnce(1);
  };
  const CoapMessage first = Message(kCodeGet);
  EXPECT_EQ(Ask(first), AnswerTo(first, Code(5, 3)));
  app_.onCall = [&] { AddFour(); };
  const CoapMessage second = Message(kCodeGet);
  const NoMemory none([](const Need &need) { return need.tag == COAP_LG_XMIT; });
  const CoapMessage answer = Ask(second);
  EXPECT_EQ(answer.code, Code(5, 0));
  EXPECT_TRUE(answer.options.empty());
}

// ---- in blocks ----

TEST_F(DirectOptions, LargeAnswer_EachBlockHasThem_OneETag) {
  ServeDirect(kModeSync);
  app_.out = kLarge;
  app_.onCall = [&] {
    AddFour();
    COAP_RpcSerSetAnswer(Ctx(), 205, 50);
  };
  const CoapMessage first = Ask(Message(kCodeGet));
  ExpectFour(first);
  EXPECT_EQ(first.Uint(kOptContentFormat), 50u);
  EXPECT_EQ(first.Uint(kOptSize2), 3000u);
  std::string body = first.Text();
  for (uint32_t num = 1; num < 3; ++num) {
    const CoapMessage next = NextBlock(kCodeGet, num, 6);
    ExpectFour(next);
    EXPECT_EQ(next.Uint(kOptContentFormat), 50u);
    body += next.Text();
  }
  EXPECT_EQ(body, kLarge);
  EXPECT_EQ(app_.payloads.size(), 1u);
}

TEST_F(DirectOptions, LargeAnswer_ETagOfEachLengthStaysAsItIs) {
  ServeDirect(kModeSync);
  app_.out = kLarge;
  for (const Bytes &etag :
       {Bytes{0}, Bytes{0, 0}, Bytes{7}, Bytes(8, 0), Bytes(8, 0xFF), Bytes{0, 0, 0, 1}}) {
    app_.onCall = [&] { EXPECT_EQ(Add(COAP_RPC_OPTION_ETAG, etag), 0u); };
    const size_t numBefore = app_.payloads.size();
    EXPECT_EQ(Ask(Message(kCodeGet)).Values(kOptEtag), std::vector<Bytes>{etag});
    const CoapMessage next = NextBlock(kCodeGet, 1, 6, etag);
    EXPECT_EQ(next.Values(kOptEtag), std::vector<Bytes>{etag});
    EXPECT_EQ(next.Text(), kLarge.substr(1024, 1024));
    EXPECT_EQ(app_.payloads.size(), numBefore + 1) << "the block is of the same body";
  }
}

TEST_F(DirectOptions, LargeAnswer_BlockWithAForeignETag_IsOfANewAnswer) {
  ServeDirect(kModeSync);
  app_.out = kLarge;
  app_.onCall = [&] { Add(COAP_RPC_OPTION_ETAG, {7}); };
  Ask(Message(kCodeGet));
  const CoapMessage next = NextBlock(kCodeGet, 1, 6, {8});
  EXPECT_EQ(next.Values(kOptEtag), (std::vector<Bytes>{{7}}));
  EXPECT_EQ(app_.payloads.size(), 2u);
}

TEST_F(DirectOptions, LaterBlockWithTheETagThatLibcoapDrew_IsOfTheSameBody) {
  ServeDirect(kModeSync);
  app_.out = kLarge;
  const CoapMessage first = Ask(Message(kCodePost));
  ASSERT_EQ(first.Values(kOptEtag).size(), 1u);
  const CoapMessage next = NextBlock(kCodePost, 1, 6, first.Values(kOptEtag)[0]);
  EXPECT_EQ(next.Text(), kLarge.substr(1024, 1024));
  EXPECT_EQ(app_.payloads.size(), 1u);
}

TEST_F(DirectOptions, LargeAnswer_OptionsLeaveLessRoom_SmallerBlocks) {
  ServeDirect(kModeSync);
  const Bytes path(255, 'p');
  app_.out = std::string(1000, 'x');
  app_.onCall = [&] { EXPECT_EQ(Add(COAP_RPC_OPTION_LOCATION_PATH, path), 0u); };
  for (const bool isAsked : {false, true}) {
    CoapMessage get = Message(kCodeGet);
    if (isAsked) get.AddBlock(kOptBlock2, {0, false, 6});
    const CoapMessage first = Ask(get);
    EXPECT_EQ(first.Block(kOptBlock2), (CoapBlock{0, true, 5}));
    EXPECT_EQ(first.Values(kOptLocationPath), std::vector<Bytes>{path});
    EXPECT_LE(ToBytes(first).size(), 1152u);
    const CoapMessage next = NextBlock(kCodeGet, 1, 5);
    EXPECT_EQ(next.Block(kOptBlock2), (CoapBlock{1, false, 5}));
    EXPECT_EQ(first.Text() + next.Text(), app_.out);
  }
}

TEST_F(DirectOptions, BlocksAskedForAndOneIsEnough_OwnETag) {
  ServeDirect(kModeSync);
  app_.out = "small";
  app_.onCall = [&] { Add(COAP_RPC_OPTION_ETAG, {0, 7}); };
  const CoapMessage answer = Ask(Message(kCodeGet).AddBlock(kOptBlock2, {0, false, 6}));
  EXPECT_EQ(answer.Values(kOptEtag), (std::vector<Bytes>{{0, 7}}));
  EXPECT_EQ(answer.Text(), "small");
}

TEST_F(DirectOptions, BlockAfterTheEnd_400WithoutOptions) {
  ServeDirect(kModeSync);
  app_.out = "small";
  app_.onCall = [&] { AddFour(); };
  const CoapMessage answer = NextBlock(kCodeGet, 3, 6);
  EXPECT_EQ(answer.code, Code(4, 0));
  for (const uint16_t number : {kOptEtag, kOptLocationPath, kOptMaxAge}) {
    EXPECT_FALSE(answer.Has(number)) << number;
  }
  EXPECT_FALSE(answer.Has(kOptLocationQuery));
}

TEST_F(DirectOptions, LargeAnswer_RepeatedRequest_TheSame) {
  ServeDirect(kModeSync);
  app_.out = kLarge;
  app_.onCall = [&] { AddFour(); };
  const CoapMessage post = Message(kCodePost, "q");
  const CoapMessage first = Ask(post);
  EXPECT_EQ(ToBytes(Ask(post)), ToBytes(first));
  EXPECT_EQ(app_.payloads.size(), 1u);
}

TEST_F(DirectOptions, Upload_TheLastAnswerHasThem) {
  ServeDirect(kModeSync);
  app_.onCall = [&] { AddFour(); };
  const CoapMessage first = Message(kCodePost, std::string(64, 'x'));
  EXPECT_FALSE(Ask(CoapMessage(first).AddBlock(kOptBlock1, {0, true, 2})).Has(kOptEtag));
  const CoapMessage answer = Ask(Message(kCodePost, "end").AddBlock(kOptBlock1, {1, false, 2}));
  EXPECT_EQ(answer.code, Code(2, 4));
  const CoapBlock last = {1, false, 2};
  EXPECT_EQ(answer.options, WithFour(CoapMessage()).AddBlock(kOptBlock1, last).options);
}

// ---- asynchronous ----

TEST_F(DirectOptions, Async_AddedInTheCallback_PiggybackedAndSeparate) {
  ServeDirect(kModeAsync);
  bool isNow = true;
  app_.onCall = [&] {
    AddFour();
    if (isNow) Send(app_.handles.back(), "now");
  };
  const CoapMessage post = Message(kCodePost);
  EXPECT_EQ(Ask(post), WithFour(AnswerTo(post, Code(2, 4), "now")));
  isNow = false;
  Send(AskOpen(Message(kCodePost)), "later");
  const CoapMessage answer = NextAnswer();
  EXPECT_EQ(answer.Text(), "later");
  EXPECT_EQ(answer.options, WithFour(CoapMessage()).options);
}

TEST_F(DirectOptions, Async_AddedLater) {
  ServeDirect(kModeAsync);
  const CoapMessage post = Message(kCodePost, "q");
  void *handle = AskOpen(post);
  EXPECT_EQ(AddAsync(handle, COAP_RPC_OPTION_LOCATION_PATH, BytesOf("1")), 0u);
  EXPECT_EQ(COAP_RpcSerSetAsyncAnswer(Ctx(), handle, 201, 50), 0u);
  EXPECT_EQ(AddAsync(handle, COAP_RPC_OPTION_ETAG, {9}), 0u);
  Send(handle, "{}");
  const CoapMessage answer = NextAnswer();
  EXPECT_EQ(answer.code, Code(2, 1));
  EXPECT_EQ(answer.options, CoapMessage()
                                .Add(kOptEtag, {9})
                                .AddText(kOptLocationPath, "1")
                                .AddUint(kOptContentFormat, 50)
                                .options);
  EXPECT_EQ(Ask(post).options, answer.options) << "the answer again";
  EXPECT_EQ(AddAsync(handle, COAP_RPC_OPTION_ETAG, {9}), 1900001302u);
}

TEST_F(DirectOptions, Async_LargeAnswer) {
  ServeDirect(kModeAsync);
  app_.onCall = [&] { AddFour(); };
  Send(AskOpen(Message(kCodeGet)), kLarge);
  ExpectFour(NextAnswer());
  const CoapMessage next = NextBlock(kCodeGet, 1, 6, {0, 1, 2});
  ExpectFour(next);
  EXPECT_EQ(next.Text(), kLarge.substr(1024, 1024));
}

TEST_F(DirectOptions, Async_ErrorsOfTheApplicationHaveThem) {
  ServeDirect(kModeAsync);
  app_.onCall = [&] { Add(COAP_RPC_OPTION_MAX_AGE, {5}); };
  COAP_RpcSerFailAsync(Ctx(), AskOpen(Message(kCodePost)), 503, "busy");
  EXPECT_EQ(NextAnswer().Uint(kOptMaxAge), 5u);
  COAP_RpcSerAbortAsyncResponse(Ctx(), AskOpen(Message(kCodePost)));
  EXPECT_EQ(NextAnswer().Uint(kOptMaxAge), 5u);
}

TEST_F(DirectOptions, Async_TimeoutAndDetach_WithoutOptions) {
  App other;
  Serve(KeyOf("c"), RegOf(&other, kModeSync));
  ServeDirect(kModeAsync, ParamWith(0, 500));
  app_.onCall = [&] { AddFour(); };
  AskOpen(Message(kCodePost));
  const CoapMessage late = NextAnswer();
  EXPECT_EQ(late.code, Code(5, 4));
  EXPECT_TRUE(late.options.empty());
  void *handle = AskOpen(Message(kCodePost));
  EXPECT_EQ(COAP_RpcSerUnsetUri(Ctx(), &key_), 0u);
  Send(handle, "x");
  const CoapMessage gone = NextAnswer();
  EXPECT_EQ(gone.code, Code(5, 3));
  EXPECT_TRUE(gone.options.empty());
}

TEST_F(DirectOptions, Async_BadArguments) {
  ServeDirect(kModeAsync);
  void *handle = AskOpen(Message(kCodePost));
  EXPECT_EQ(COAP_RpcSerAddAsyncAnswerOption(nullptr, handle, 4, "a", 1), 1900001552u);
  EXPECT_EQ(COAP_RpcSerAddAsyncAnswerOption(Ctx(), nullptr, 4, "a", 1), 1900001552u);
  EXPECT_EQ(COAP_RpcSerAddAsyncAnswerOption(Ctx(), handle, 4, nullptr, 1), 1900001552u);
  EXPECT_EQ(AddAsync(reinterpret_cast<void *>(99), 4, {1}), 1900001302u);
  EXPECT_EQ(AddAsync(handle, 12, {1}), kBadOption);
  EXPECT_EQ(AddAsync(handle, 4, {1}), 0u);
  EXPECT_EQ(AddAsync(handle, 4, {1}), kBadOption);
  for (int i = 0; i < 7; ++i) EXPECT_EQ(AddAsync(handle, 8, {}), 0u);
  EXPECT_EQ(AddAsync(handle, 8, {}), kTooMany);
  Send(handle, "x");
  EXPECT_EQ(NextAnswer().options.size(), 8u);
}

TEST_F(DirectOptions, Uninit_OptionsOfOpenRequestsAreFreed) {
  ServeDirect(kModeAsync);
  app_.onCall = [&] { AddFour(); };
  AskOpen(Message(kCodePost));
  Send(AskOpen(Message(kCodePost)), "x");
  instance_->Stop();
  EXPECT_EQ(host_.Pool().LiveCount(), 0u);
}

}  // namespace
}  // namespace coap_rpc_test
