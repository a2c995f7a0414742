// What a server counts, each number provoked by messages.
#include "coap_svc/rpc/coap_rpc_ext.h"
#include "direct_server.h"
#include "stats_reader.h"

namespace coap_rpc_test {
namespace {

class Stats : public Direct {
 protected:
  CoapRpcStats Now() const { return StatsOf(Ctx()); }
  CoapRpcSerUriVtbl *Find(const char *uri) {
    const CoapRpcUriKey key = KeyOf(uri);
    return COAP_RpcSerFindUriVtbl(Ctx()->ser, &key);
  }
};

TEST_F(Stats, FreshInstance_HasCountedNothing) {
  CoapRpcStats stats = Now();
  EXPECT_EQ(stats.version, COAP_RPC_STATS_VERSION);
  EXPECT_GT(stats.poolBytes, sizeof(CoapRpcCtx));
  EXPECT_GE(stats.poolMaxBytes, stats.poolBytes);
  stats.version = stats.size = 0;
  stats.poolBytes = stats.poolMaxBytes = 0;
  const CoapRpcStats zero = {};
  EXPECT_EQ(memcmp(&stats, &zero, sizeof(stats)), 0);
}

TEST_F(Stats, NullArguments) {
  CoapRpcStats stats = {};
  stats.size = sizeof(stats);
  EXPECT_EQ(COAP_RpcGetStats(nullptr, &stats), 1900001661u);
  EXPECT_EQ(COAP_RpcGetStats(Ctx(), nullptr), 1900001661u);
  EXPECT_EQ(COAP_RpcVisitUriStats(nullptr, nullptr, 0, UriVisit::On, 0, nullptr), 1900001664u);
  EXPECT_EQ(COAP_RpcVisitUriStats(Ctx(), nullptr, 0, nullptr, 0, nullptr), 1900001664u);
  EXPECT_EQ(COAP_RpcShowStats(nullptr), 1900001666u);
}

TEST_F(Stats, OlderRecord_IsFilledAsFarAsItGoes) {
  ServeDirect(kModeSync);
  Ask(Message(kCodeGet));
  CoapRpcStats stats;
  memset(&stats, 0xEE, sizeof(stats));
  stats.size = 7;
  EXPECT_EQ(COAP_RpcGetStats(Ctx(), &stats), 1900001662u);
  stats.size = offsetof(CoapRpcStats, in) + 2 * sizeof(uint64_t);
  const uint32_t size = stats.size;
  EXPECT_EQ(COAP_RpcGetStats(Ctx(), &stats), 0u);
  EXPECT_EQ(stats.size, size);
  EXPECT_EQ(stats.in.messages, 1u);
  EXPECT_EQ(stats.in.requests[0], 0xEEEEEEEEEEEEEEEEu);
}

TEST_F(Stats, LargerRecord_SaysWhatIsFilled) {
  struct {
    CoapRpcStats known;
    uint64_t newer;
  } later = {};
  later.newer = 7;
  later.known.size = sizeof(later);
  EXPECT_EQ(COAP_RpcGetStats(Ctx(), &later.known), 0u);
  EXPECT_EQ(later.known.size, sizeof(CoapRpcStats));
  EXPECT_EQ(later.newer, 7u);
}

TEST_F(Stats, Messages_AreCountedByMethodAndClass) {
  ServeDirect(kModeSync, ParamWith(COAP_RPC_ALLOW_ALL & ~uint32_t{COAP_RPC_ALLOW_DELETE}));
  app_.out = "x";
  const uint8_t methods[] = {kCodeGet,   kCodePost,  kCodePut,   kCodeDelete,
                             kCodeFetch, kCodePatch, kCodeIpatch};
  size_t bytesIn = 0;
  size_t bytesOut = 0;
  for (const uint8_t method : methods) {
    const CoapMessage request = Message(method, "q").AddUint(kOptContentFormat, 0);
    bytesIn += ToBytes(request).size();
    bytesOut += ToBytes(Ask(request)).size();
  }
  const CoapRpcStats stats = Now();
  EXPECT_EQ(stats.in.messages, 7u);
  EXPECT_EQ(stats.in.bytes, bytesIn);
  EXPECT_EQ(stats.in.requests[0], 0u);
  for (const uint8_t method : methods) EXPECT_EQ(stats.in.requests[method], 1u) << int{method};
  EXPECT_EQ(stats.out.messages, 7u);
  EXPECT_EQ(stats.out.bytes, bytesOut);
  EXPECT_EQ(stats.out.responses[2], 6u);
  EXPECT_EQ(stats.out.responses[4], 1u);  // DELETE is not allowed
  EXPECT_EQ(stats.out.responses[5], 0u);
  EXPECT_EQ(stats.peers, 1u);
}

TEST_F(Stats, EmptyMessages_AreCountedByType) {
  ServeDirect(kModeSync);
  CoapMessage ping = Request(CoapType::kCon, 0, ++mid_);
  EXPECT_EQ(Ask(ping).type, CoapType::kRst);
  peer_.Send(Request(CoapType::kAck, 0, 77));
  peer_.Send(Request(CoapType::kRst, 0, 78));
  ExpectSilence(peer_);
  const CoapRpcStats stats = Now();
  EXPECT_EQ(stats.in.pings, 1u);
  EXPECT_EQ(stats.in.emptyAcks, 1u);
  EXPECT_EQ(stats.in.resets, 1u);
  EXPECT_EQ(stats.out.resets, 1u);
  EXPECT_EQ(stats.in.messages, 3u);
}

TEST_F(Stats, UnknownMethodAndCode_AreOthers) {
  ServeDirect(kModeSync);
  Ask(Message(9));
  peer_.Send(Request(CoapType::kNon, Code(2, 5), ++mid_, {1}));
  peer_.Send(Request(CoapType::kNon, Code(3, 1), ++mid_, {1}));
  ExpectSilence(peer_);
  EXPECT_EQ(Now().in.requests[0], 1u);
  EXPECT_EQ(Now().in.responses[2], 1u);
}

TEST_F(Stats, MalformedMessages) {
  ServeDirect(kModeSync);
  CoapMessage reserved = Request(CoapType::kCon, Code(1, 5), ++mid_, {1});  // a reserved class
  Ask(reserved);
  EXPECT_EQ(Now().badMessages, 1u);
}

TEST_F(Stats, RepeatedRequest_IsARepeatAndNoCall) {
  ServeDirect(kModeSync);
  const CoapMessage post = Message(kCodePost, "q");
  Ask(post);
  EXPECT_EQ(Now().repeats, 0u);
  Ask(post);
  Ask(post);
  EXPECT_EQ(Now().repeats, 2u);
  EXPECT_EQ(UriStatsOf(Ctx()).requests, 1u);
  EXPECT_EQ(Now().callbacks, 1u);
}

TEST_F(Stats, SlowHandler_IsSeenInItsUriAndInTheRun) {
  ServeDirect(kModeSync);
  app_.onCall = [] { PassNs(3000000); };
  Ask(Message(kCodeGet));
  app_.onCall = [] { PassNs(1000000); };
  Ask(Message(kCodeGet));
  const CoapRpcUriStats uri = UriStatsOf(Ctx());
  EXPECT_EQ(uri.size, sizeof(uri));
  EXPECT_EQ(uri.version, COAP_RPC_STATS_VERSION);
  EXPECT_EQ(uri.requests, 2u);
  EXPECT_EQ(uri.callbackNs, 4000000u);
  EXPECT_EQ(uri.callbackMaxNs, 3000000u);
  const CoapRpcStats stats = Now();
  EXPECT_EQ(stats.callbacks, 2u);
  EXPECT_EQ(stats.callbackNs, 4000000u);
  EXPECT_EQ(stats.callbackMaxNs, 3000000u);
  EXPECT_GE(stats.ioRuns, 2u);
  EXPECT_EQ(stats.ioNs, 4000000u);
  EXPECT_EQ(stats.ioMaxNs, 3000000u);
}

TEST_F(Stats, SlowAsyncHandler_IsSeen) {
  ServeDirect(kModeAsync);
  app_.onCall = [] { PassNs(5000000); };
  void *handle = AskOpen(Message(kCodePost, "q"));
  EXPECT_EQ(Now().openAsync, 1u);
  EXPECT_EQ(UriStatsOf(Ctx()).requests, 1u);
  EXPECT_EQ(UriStatsOf(Ctx()).callbackMaxNs, 5000000u);
  EXPECT_EQ(Send(handle, "x"), 0u);
  NextAnswer();
  Tick();
  EXPECT_EQ(Now().openAsync, 0u);
  EXPECT_EQ(Now().out.emptyAcks, 1u);
  EXPECT_EQ(Now().in.emptyAcks, 1u);
}

TEST_F(Stats, AnswerWithoutAcknowledgement_IsSentAgainAndFails) {
  ServeDirect(kModeAsync);
  void *handle = AskOpen(Message(kCodePost, "q"));
  EXPECT_EQ(Send(handle, "x"), 0u);
  for (int i = 0; i < 100; ++i) host_.AdvanceMs(1000);
  const CoapRpcStats stats = Now();
  EXPECT_EQ(stats.resends, 4u);
  EXPECT_EQ(stats.out.responses[2], 5u);
  EXPECT_EQ(stats.nacks[COAP_RPC_NACK_TIMEOUT], 1u);
}

TEST_F(Stats, AnswerThatIsReset) {
  ServeDirect(kModeAsync);
  void *handle = AskOpen(Message(kCodePost, "q"));
  EXPECT_EQ(Send(handle, "x"), 0u);
  const std::optional<CoapMessage> answer = Next(peer_);
  ASSERT_TRUE(answer);
  peer_.Send(Request(CoapType::kRst, 0, answer->messageId));
  ExpectSilence(peer_);
  EXPECT_EQ(Now().nacks[COAP_RPC_NACK_RESET], 1u);
}

TEST_F(Stats, PeersLimit_IsCountedAsRefused) {
  ServeDirect(kModeAsync);
  AskOpen(Message(kCodePost, "q"));
  Ctx()->lib->numOpenAsync += COAP_RPC_MAX_OPEN_ASYNC;
  EXPECT_EQ(Ask(Message(kCodePost, "q")).code, Code(5, 3));
  Ctx()->lib->numOpenAsync -= COAP_RPC_MAX_OPEN_ASYNC;
  EXPECT_EQ(Now().refused[COAP_RPC_LIMIT_DIRECT], 1u);
  EXPECT_EQ(Now().out.responses[5], 1u);
}

TEST_F(Stats, UrisAreVisitedInTurns) {
  for (const char *uri : {"a", "b", "c", "d", "e"}) Serve(KeyOf(uri), DirectReg(kModeSync));
  UriVisit visit;
  EXPECT_EQ(visit.Run(Ctx(), nullptr, 2), 2u);
  CoapRpcUriKey last = KeyOf(visit.uris.back().c_str());
  EXPECT_EQ(visit.Run(Ctx(), &last, 2), 2u);
  last = KeyOf("ca");  // not a key
  EXPECT_EQ(visit.Run(Ctx(), &last), 2u);
  last = KeyOf("e");
  EXPECT_EQ(visit.Run(Ctx(), &last), 0u);
  EXPECT_EQ(visit.uris, (std::vector<std::string>{"a", "b", "c", "d", "d", "e"}));
  EXPECT_EQ(Now().uris, 5u);
}

TEST_F(Stats, UriMayBeRemovedWhileItIsVisited) {
  for (const char *uri : {"a", "b", "c", "d", "e"}) Serve(KeyOf(uri), DirectReg(kModeSync));
  std::vector<std::string> uris;
  std::function<void(const CoapRpcUriKey &)> onUri = [&](const CoapRpcUriKey &key) {
    uris.emplace_back(key.uri);
    if (key.uri[0] == 'a') Serve(KeyOf("aa"), DirectReg(kModeSync));
    if (key.uri[0] == 'b') COAP_RpcSerDelUriVtbl(Ctx()->ser, Find("c"));
    if (key.uri[0] == 'd') COAP_RpcSerDelUriVtbl(Ctx()->ser, Find("d"));
    if (key.uri[0] == 'e') {
      EXPECT_EQ(key.uri, std::string("e")) << "the key is a copy";
    }
  };
  uint32_t num = 0;
  EXPECT_EQ(COAP_RpcVisitUriStats(
                Ctx(), nullptr, 0,
                [](uint64_t on, const CoapRpcUriKey *key, const CoapRpcUriStats *) {
                  (*reinterpret_cast<decltype(onUri) *>(on))(*key);
                },
                reinterpret_cast<uint64_t>(&onUri), &num),
            0u);
  EXPECT_EQ(uris, (std::vector<std::string>{"a", "aa", "b", "d", "e"}));
  EXPECT_EQ(num, 5u);
}

TEST_F(Stats, AreReadInsideCallbacks) {
  ServeDirect(kModeSync);
  CoapRpcStats inside = {};
  uint64_t requests = 0;
  app_.onCall = [&] {
    inside = Now();
    requests = UriStatsOf(Ctx()).requests;
    EXPECT_EQ(COAP_RpcSerUnsetUri(Ctx(), &key_), 0u);
    EXPECT_EQ(Now().uris, 1u);
    COAP_RpcShowStats(Ctx());
    host_.RunCommand("disp server perUri");
  };
  Ask(Message(kCodePost, "q"));
  EXPECT_EQ(inside.in.requests[COAP_RPC_POST], 1u);
  EXPECT_EQ(inside.callbacks, 0u) << "it has not returned";
  EXPECT_EQ(requests, 1u);
  EXPECT_EQ(Now().callbacks, 1u);
}

TEST_F(Stats, TenThousandUris) {
  host_.Logs().SuppressBelow(KST_LOG_ERROR + 1);
  CoapRpcSerVtblReg reg = DirectReg(kModeSync);
  for (int i = 0; i < 10000; ++i) {
    const CoapRpcUriKey key = KeyOf(std::to_string(i).c_str());
    ASSERT_EQ(COAP_RpcSerRegVtbl(Ctx(), &key, &reg, nullptr), 0u);
  }
  EXPECT_EQ(Now().uris, 10000u);
  UriVisit visit;
  EXPECT_EQ(visit.Run(Ctx()), 10000u);
  EXPECT_EQ(std::set<std::string>(visit.uris.begin(), visit.uris.end()).size(), 10000u);
}

TEST_F(Stats, AnySizeOfTheRecord) {
  struct {
    CoapRpcStats stats;
    uint64_t beyond;
  } record;
  for (const uint32_t size : {8u, 9u, 16u, 100u, 1000u, uint32_t{sizeof(CoapRpcStats)} - 1, ~0u}) {
    memset(&record, 0xEE, sizeof(record));
    record.stats.size = size;
    EXPECT_EQ(COAP_RpcGetStats(Ctx(), &record.stats), 0u) << size;
    const uint32_t filled = std::min(size, uint32_t{sizeof(CoapRpcStats)});
    EXPECT_EQ(record.stats.size, filled);
    const auto *bytes = reinterpret_cast<const uint8_t *>(&record);
    EXPECT_TRUE(std::all_of(bytes + filled, bytes + sizeof(record), [](uint8_t byte) {
      return byte == 0xEE;
    })) << size;
  }
}

// ---- display commands ----

TEST_F(Stats, TimesAsRows) {
  ServeDirect(kModeSync);
  COAP_RpcShowStats(Ctx());
  app_.onCall = [] { PassNs(1500); };
  Ask(Message(kCodePost, "q"));
  app_.onCall = [] { PassNs(uint64_t{1} << 41); };
  Ask(Message(kCodePost, "q"));
  const std::vector<std::string> pages = host_.RunCommand("disp server times");
  ASSERT_EQ(pages.size(), 1u);
  const auto has = [&](const std::string &line) {
    return pages[0].find(line) != std::string::npos;
  };
  EXPECT_TRUE(
      pages[0].starts_with("server times[  0]: name(callbacks)/below(1024)/unit(ns)/count(0)\n"
                           "server times[  1]: name(callbacks)/below(2048)/unit(ns)/count(1)\n"));
  EXPECT_TRUE(has("server times[ 30]: name(callbacks)/below(1099511627776)/unit(ns)/count(0)\n"));
  EXPECT_TRUE(pages[0].ends_with(
      "server times[ 31]: name(callbacks)/below(inf)/unit(ns)/count(1)/sum(2199023257052)\n"
      " ***total 32 server time(s) ***\n"))
      << pages[0];
  EXPECT_TRUE(host_.RunCommand("disp client times")[0].ends_with(
      "client times[ 31]: name(calls)/below(inf)/unit(ns)/count(0)/sum(0)\n"
      " ***total 32 client time(s) ***\n"));
}

TEST_F(Stats, CommandsAreThereWhenAskedFor) {
  EXPECT_EQ(host_.Display().Commands().size(), 8u);
  EXPECT_EQ(COAP_RpcShowStats(Ctx()), 0u);
  EXPECT_EQ(host_.Display().Commands().size(), 15u);
  EXPECT_EQ(COAP_RpcShowStats(Ctx()), 0u);
  EXPECT_EQ(host_.Display().Commands().size(), 15u);
}

TEST_F(Stats, ServerNumbersAsRows) {
  ServeDirect(kModeSync);
  Ask(Message(kCodePost, "q"));
  COAP_RpcShowStats(Ctx());
  const std::vector<std::string> pages = host_.RunCommand("disp server stats");
  const Numbers numbers = NumbersOf(pages);
  ASSERT_EQ(pages.size(), 1u);
  EXPECT_TRUE(pages[0].starts_with(
      "server stats[  0]: name(in.messages)/of(-)/kind(counter)/unit(-)/value(1)\n"));
  EXPECT_TRUE(pages[0].ends_with("\n ***total " + std::to_string(numbers.size()) +
                                 " server number(s) ***\n"));
  EXPECT_EQ(numbers.at("in.requests.post"), 1u);
  EXPECT_EQ(numbers.at("out.responses.2xx"), 1u);
  EXPECT_EQ(numbers.at("uris"), 1u);
  EXPECT_EQ(numbers.at("pool.used"), Now().poolBytes);
}

TEST_F(Stats, UriNumbersAsRows) {
  ServeDirect(kModeSync);
  app_.onCall = [] { PassNs(7); };
  Ask(Message(kCodePost, "q"));
  COAP_RpcShowStats(Ctx());
  EXPECT_EQ(host_.RunCommand("disp server perUri"),
            (std::vector<std::string>{
                "server perUri[  0]: uri(a/b)/msgType(CON)/observe(0)/pktType(DEFAULT)/requests(1)"
                "/callbackNs(7)/callbackMaxNs(7)/notifications(0)/delivered(0)/failed(0)/putBack(0)"
                "/tuples(0)/pending(0)/inFlight(0)/oldestMs(0)/observers(0)\n",
                " ***total 1 server uri(s) ***\n"}));
}

TEST_F(Stats, OpenRequestsAsRows) {
  COAP_RpcShowStats(Ctx());
  EXPECT_EQ(host_.RunCommand("disp server async"),
            std::vector<std::string>{" ***total 0 server async(s) ***\n"});
  ServeDirect(kModeAsync);
  AskOpen(Message(kCodePost, "q"));
  host_.AdvanceMs(1500);
  const std::vector<std::string> rows = host_.RunCommand("disp server async");
  ASSERT_EQ(rows.size(), 2u);
  EXPECT_EQ(rows[0].find("server async[  0]: handle(1)/kind(direct)/uri(a/b)/method(POST)/peer("),
            0u);
  EXPECT_NE(rows[0].find(":" + std::to_string(peer_.Local().port) + ")/state(open)/ageMs("),
            std::string::npos)
      << rows[0];
  EXPECT_EQ(rows[1], " ***total 1 server async(s) ***\n");
}

}  // namespace
}  // namespace coap_rpc_test
