// Each action of peers and applications on a server, and the numbers that it changes: these, and no
// others.
#include "async_server.h"
#include "coap_svc/rpc/common/coap_rpc_times.h"
#include "direct_server.h"
#include "flight_server.h"
#include "stats_changes.h"
#include "sync_server.h"

namespace coap_rpc_test {
namespace {

// ---- the record ----

TEST(StatsRecord, EachFieldHasAName) {
  CoapRpcStats stats = {};
  std::set<size_t> named;
  for (const auto &list : {coap_rpc::ServerNumbers(), coap_rpc::ClientNumbers()}) {
    for (const coap_rpc::Number &number : list) EXPECT_TRUE(named.insert(number.at).second);
  }
  const auto skip = [&](const void *from, size_t size) {
    const auto at =
        static_cast<size_t>(static_cast<const char *>(from) - reinterpret_cast<char *>(&stats));
    for (size_t i = 0; i < size; i += sizeof(uint64_t)) named.insert(at + i);
  };
  skip(&stats.callbackTimes, sizeof(stats.callbackTimes));  // have tables of their own
  skip(&stats.callTimes, sizeof(stats.callTimes));
  for (CoapRpcTraffic *traffic : {&stats.in, &stats.out}) {
    skip(&traffic->responses[1], 8);
    skip(&traffic->responses[3], 8);
    skip(&traffic->responses[6], 16);
  }
  skip(&stats.nacks[3], 8);  // not one of ours
  skip(&stats.nacks[6], 8);
  for (uint64_t *list : {stats.callEnds, stats.mirrors}) {
    skip(&list[0], 8);
    skip(&list[7], 8);
  }
  constexpr size_t kNumUsed = COAP_RPC_LIMIT_FOLLOWED + 1;
  skip(&stats.refused[kNumUsed], sizeof(stats.refused) - kNumUsed * 8);
  for (size_t at = offsetof(CoapRpcStats, in); at < sizeof(stats); at += 8) {
    EXPECT_EQ(named.count(at), 1u) << "bytes " << at;
  }
}

TEST(StatsRecord, TimesAreCountedBySize) {
  CoapRpcTimes times = {};
  const std::map<uint64_t, size_t> cases = {{0, 0},
                                            {1023, 0},
                                            {1024, 1},
                                            {2047, 1},
                                            {2048, 2},
                                            {1000000, 10},
                                            {1u << 30, 21},
                                            {uint64_t{1} << 39, 30},
                                            {uint64_t{1} << 40, 31},
                                            {UINT64_MAX, 31}};
  for (const auto &[ns, index] : cases) {
    const uint64_t before = times.num[index];
    coap_rpc::CountTime(times, ns);
    EXPECT_EQ(times.num[index], before + 1) << ns;
    if (index < 31) {
      EXPECT_LT(ns, coap_rpc::TimeBelow(static_cast<uint32_t>(index)));
    }
  }
}

// ---- messages and direct entries ----

class DirectChanges : public CountingTest<Direct> {
 protected:
  // Meet lets the peer be known, which is one more of them.
  void Meet() {
    Expect(
        "a first message", [&] { Ask(Request(CoapType::kCon, 0, ++mid_)); },
        With(With(In("pings"), Out("resets")), {{"peers", 1}}));
  }
};

TEST_F(DirectChanges, RequestsByMethod) {
  ServeDirect(kModeSync, ParamWith(COAP_RPC_ALLOW_ALL));
  app_.out = "x";
  Meet();
  const std::map<std::string, uint8_t> methods = {
      {"get", kCodeGet},     {"post", kCodePost},   {"put", kCodePut},      {"delete", kCodeDelete},
      {"fetch", kCodeFetch}, {"patch", kCodePatch}, {"ipatch", kCodeIpatch}};
  for (const auto &[name, code] : methods) {
    const CoapMessage request = Message(code, "q").AddUint(kOptContentFormat, 0);
    const Changes answered = With(In("requests." + name), Out("responses.2xx"));
    Expect(
        name, [&] { Ask(request); }, With(answered, kCallback));
    const bool isSafe = code == kCodeGet || code == kCodeFetch;  // its handler is asked again
    const Changes repeated = {{"repeats", 1}};
    Expect(
        name + " again", [&] { Ask(request); }, With(answered, isSafe ? kCallback : repeated));
  }
}

TEST_F(DirectChanges, WhatIsNoGoodRequest) {
  ServeDirect(kModeSync, ParamWith(COAP_RPC_ALLOW_GET));
  Meet();
  const auto say = [&](CoapType type, uint8_t code, const Bytes &token = {}) {
    peer_.Send(Request(type, code, ++mid_, token));
    ExpectSilence(peer_);
  };
  Expect(
      "a method that is not allowed", [&] { Ask(Message(kCodePut, "q")); },
      With(In("requests.put"), Out("responses.4xx")));
  Expect(
      "a method that nobody knows", [&] { Ask(Message(9)); },
      With(In("requests.other"), Out("responses.4xx")));
  Expect(
      "a path that nobody serves",
      [&] { Ask(Request(CoapType::kCon, kCodeGet, ++mid_, {1}).AddPath("none")); },
      With(In("requests.get"), Out("responses.4xx")));
  Expect(
      "an acknowledgement of nothing", [&] { say(CoapType::kAck, 0); }, In("acks"));
  Expect(
      "a reset of nothing", [&] { say(CoapType::kRst, 0); },
      With(In("resets"), {{"nacks.reset", 1}}));
  for (const auto &[name, codeClass] :
       std::map<std::string, uint8_t>{{"2xx", 2}, {"4xx", 4}, {"5xx", 5}, {"other", 3}}) {
    Expect(
        "an answer " + name + " to nothing",
        [&, codeClass = codeClass] { say(CoapType::kNon, Code(codeClass, 5), {1}); },
        In("responses." + name));
  }
  Expect(
      "a reserved class", [&] { Ask(Request(CoapType::kCon, Code(1, 5), ++mid_, {1})); },
      With(With(In("responses.other"), Out("resets")), {{"bad", 1}}));
  Expect("what is no CoAP",
         [&] {
           peer_.Send(Bytes{0x40, 1});
           ExpectSilence(peer_);
         },
         {});
}

TEST_F(DirectChanges, HandlerThatFails) {
  ServeDirect(kModeSync);
  Meet();
  app_.result = -1;
  Expect(
      "a failure", [&] { Ask(Message(kCodePost, "q")); },
      With(With(In("requests.post"), Out("responses.5xx")), kCallback));
}

TEST_F(DirectChanges, SlowHandler) {
  ServeDirect(kModeSync);
  Meet();
  app_.onCall = [] { PassNs(5000); };
  const Changes answered = With(In("requests.post"), Out("responses.2xx"));
  Expect(
      "5 us", [&] { Ask(Message(kCodePost, "q")); },
      With(answered, {{"callbacks", 1},
                      {"callbacks.times.3", 1},
                      {"callbacks.time", 5000},
                      {"callbacks.longest", 5000},
                      {"io.time", 5000},
                      {"io.longest", 5000}}));
  app_.onCall = [] { PassNs(1000); };
  Expect(
      "1 us", [&] { Ask(Message(kCodePost, "q")); },
      With(answered, {{"callbacks", 1},
                      {"callbacks.times.0", 1},
                      {"callbacks.time", 1000},
                      {"io.time", 1000}}));
}

TEST_F(DirectChanges, LaterAnswers) {
  ServeDirect(kModeAsync);
  Meet();
  void *handle = nullptr;
  const CoapMessage request = Message(kCodePost, "q");
  Expect(
      "a request", [&] { handle = AskOpen(request); },
      With(With(In("requests.post"), Out("acks")), With(kCallback, {{"async.open", 1}})));
  Expect(
      "the same again", [&] { Ask(request); },
      With(With(In("requests.post"), Out("acks")), {{"repeats", 1}}));
  Expect(
      "its answer",
      [&] {
        Send(handle, "x");
        Tick();
      },
      With(Out("responses.2xx"), {{"async.open", -1}}));
  Expect(
      "the answer again", [&] { host_.AdvanceMs(3000); },
      With(Out("responses.2xx"), {{"resends", 1}}));
  Expect(
      "a reset of it",
      [&] {
        const std::optional<CoapMessage> answer = Next(peer_);
        ASSERT_TRUE(answer);
        while (peer_.ReceiveNow()) {
        }
        peer_.Send(Request(CoapType::kRst, 0, answer->messageId));
        ExpectSilence(peer_);
      },
      With(In("resets"), {{"nacks.reset", 1}}));
  handle = AskOpen(Message(kCodePost, "q"));
  Expect("an answer that nobody acknowledges",
         [&] {
           Send(handle, "x");
           for (int i = 0; i < 100; ++i) host_.AdvanceMs(1000);
         },
         {{"async.open", -1},
          {"nacks.timeout", 1},
          {"out.messages", 5},
          {"out.responses.2xx", 5},
          {"resends", 4}});
}

TEST_F(DirectChanges, AnswerWhoseEndpointCloses) {
  ServeDirect(kModeAsync);
  Send(AskOpen(Message(kCodePost, "q")), "x");
  Tick();
  Expect("its URI is detached",
         [&] {
           EXPECT_EQ(COAP_RpcSerUnsetUri(Ctx(), &key_), 0u);
           Tick();
         },
         {{"nacks.undeliverable", 1}, {"peers", -1}});
}

// ---- base entries ----

class BaseChanges : public CountingTest<Async> {};

TEST_F(BaseChanges, SynchronousRequest) {
  Serve(KeyOf("s"), RegOf(&app_, 0));
  Ask(Request(CoapType::kCon, 0, ++mid_));
  app_.out = "x";
  app_.result = 1;
  Expect(
      "a GET", [&] { Ask(Get(CoapType::kCon, "s", "q")); },
      With(With(In("requests.get"), Out("responses.2xx")), kCallback));
  EXPECT_EQ(UriStatsOf(Ctx()).requests, 1u);
}

TEST_F(BaseChanges, AsynchronousRequest) {
  ServeAsync();
  Ask(asker_, Request(CoapType::kCon, 0, ++mid_));
  const CoapMessage request = GetWith({1, 2});
  void *handle = nullptr;
  Expect(
      "a request", [&] { handle = AskOnce(request); },
      With(With(In("requests.get"), Out("acks")),
           With(kCallback, {{"async.open", 1}, {"async.sessions", 1}})));
  Expect(
      "the same again", [&] { Ask(asker_, request); },
      With(With(In("requests.get"), Out("acks")), {{"repeats", 1}}));
  Expect(
      "its answer",
      [&] {
        Answer(handle, "x");
        Tick();
      },
      With(Out("requests.post"), {{"async.open", -1}}));
  Expect(
      "the answer's acknowledgement",
      [&] {
        NextAtHome();
        Tick();
      },
      In("acks"));
  EXPECT_EQ(UriStatsOf(Ctx()).requests, 1u) << "the one that was repeated is one";
}

// ---- observers ----

class ObserveChanges : public CountingTest<FlightServer> {};

TEST_P(ObserveChanges, TuplesAndNotifications) {
  ServeRelation();
  Ask(Request(CoapType::kCon, 0, ++mid_));
  Expect("a tuple that nobody observes", [&] { Update("k001", "v001"); }, {{"tuples", 1}});
  Delete("k001");
  Expect(
      "a registration", [&] { Register(peer_, CoapType::kCon, {1}); },
      With(With(In("requests.get"), Out("responses.2xx")), {{"observers", 1}}));
  host_.AdvanceMs(3000);
  DropWhatCame();
  Expect("a change", [&] { Update("k001", "v001"); }, {{"tuples", 1}, {"changes.pending", 1}});
  Expect("a second change", [&] { Update("k002", "v001"); },
         {{"tuples", 1}, {"changes.pending", 1}});
  Expect("a while", [&] { host_.AdvanceMs(500); }, {{"changes.oldest", 500}});
  Expect(
      "their notification",
      [&] {
        NextChanges(peer_);
        PassTime(2000);
      },
      With(With(With(kCallback, Out("responses.2xx")), IsCon() ? In("acks") : Changes{}),
           {{"changes.oldest", -500},
            {"changes.pending", -2},
            {"notifications", 1},
            {"notifications.delivered", 1}}));
  Expect("a deletion", [&] { Delete("k001"); }, {{"tuples", -1}, {"changes.pending", 1}});
}

INSTANTIATE_TEST_SUITE_P(All, ObserveChanges, AllRelations(), RelationName);

class FailedChanges : public ObserveChanges {};

TEST_P(FailedChanges, ResetNotification) {
  StartRelation();
  host_.AdvanceMs(3000);
  DropWhatCame();
  CoapMessage lost;
  Expect(
      "a notification",
      [&] {
        Update("k001", "v001");
        lost = Unanswered(peer_);
      },
      With(With(kCallback, Out("responses.2xx")),
           {{"tuples", 1}, {"changes.inFlight", 1}, {"notifications", 1}}));
  Expect(
      "its reset",
      [&] {
        peer_.Send(Request(CoapType::kRst, 0, lost.messageId));
        Tick();
      },
      With(In("resets"), {{"changes.inFlight", -1},
                          {"changes.pending", 1},
                          {"changes.putBack", 1},
                          {"nacks.reset", 1},
                          {"notifications.failed", 1},
                          {"observers", -1}}));
}

INSTANTIATE_TEST_SUITE_P(All, FailedChanges, Relations(COAP_RPC_CON), RelationName);

// ---- readers with versions ----

class SyncChanges : public CountingTest<SyncServer> {};

TEST_F(SyncChanges, PullsAndRounds) {
  ServeSynced();
  Ask(Request(CoapType::kCon, 0, ++mid_));
  Expect("a tuple", [&] { Update("k001", "v001"); }, {{"tuples", 1}});
  const Changes pulled = With(In("requests.get"), Out("responses.2xx"));
  Expect(
      "a newcomer", [&] { Pull(peer_, {}); }, With(pulled, {{"sync.pulls", 1}, {"sync.pages", 1}}));
  Expect(
      "everything", [&] { PullSince(peer_, 0); },
      With(pulled, {{"sync.pulls", 1}, {"sync.pages", 1}, {"sync.full", 1}}));
  Expect(
      "news", [&] { PullSince(peer_, 1); }, With(pulled, {{"sync.pulls", 1}, {"sync.pages", 1}}));
  Expect(
      "a registration", [&] { Ask(peer_, Registering()); },
      With(pulled, {{"sync.pulls", 1}, {"sync.pages", 1}, {"observers", 1}}));
  Expect(
      "a round",
      [&] {
        Update("k001", "v002");
        NextNotification(peer_);
        Tick();
      },
      With(Out("responses.2xx"), {{"sync.pages", 1}, {"notifications", 1}}));
}

}  // namespace
}  // namespace coap_rpc_test
