// Each action on a client, and the numbers that it changes: these, and no others.
#include "client_calls.h"
#include "client_end.h"
#include "coap_svc/rpc/libadapter/mirror/coap_rpc_lib_mirror_record.h"
#include "coap_svc/rpc/libadapter/rpc_call/coap_rpc_lib_rpc_call_record.h"
#include "mirror_client.h"
#include "stats_changes.h"

namespace coap_rpc_test {
namespace {

constexpr uint16_t kUnknownCritical = 9;  // odd and not assigned

Changes Ended(const std::string &how) {
  return With(kCallback, {{"calls.open", -1}, {"calls.ended." + how, 1}});
}

class CallChanges : public CountingTest<ClientCalls> {
 protected:
  // Begin makes a call and returns its message.  The session stays.
  CoapMessage Begin(const CoapRpcCall &call) {
    CoapMessage message;
    const Changes session = {{"sessions", Now().sessions == 0 ? 1 : 0}};
    Expect(
        "a call",
        [&] {
          Make(call);
          message = Next();
        },
        With(With(Out("requests.get"), {{"calls", 1}, {"calls.open", 1}}), session));
    return message;
  }
};

TEST_F(CallChanges, AnswersByTime) {
  const std::map<uint64_t, size_t> cases = {{900, 0}, {5000, 3}, {5000000, 13}};
  for (const auto &[ns, index] : cases) {
    Make(Get("a"));
    COAP_RpcProcIo(Ctx());
    const std::optional<CoapMessage> message = peer_.ReceiveNow();
    ASSERT_TRUE(message);
    PassNs(ns);
    const uint64_t us = ns / 1000;
    Expect(
        "an answer",
        [&] {
          peer_.Send(Piggyback(*message));
          while (told_.empty()) COAP_RpcProcIo(Ctx());
        },
        With(With(In("responses.2xx"), Ended("answered")),
             {{"calls.times." + std::to_string(index), 1},
              {"calls.time", static_cast<int64_t>(us * 1000)}}));
    EXPECT_EQ(told_[0].rsp.rttUs, us);
    told_.clear();
    Ticks(3);
  }
}

TEST_F(CallChanges, OtherEnds) {
  COAP_RpcSetNstart(Ctx(), 10);
  const CoapMessage first = Begin(Get("a"));
  Expect(
      "a reset", [&] { Say(Request(CoapType::kRst, 0, first.messageId)); },
      With(With(In("resets"), Ended("reset")), {{"nacks.reset", 1}}));
  Begin(Get("a"));
  Expect(
      "a cancel", [&] { EXPECT_EQ(COAP_RpcCallCancel(Ctx(), id_), 0u); }, Ended("cancelled"));
  CoapRpcCall call = Get("a");
  call.deadlineMs = 1000;
  Begin(call);
  Expect(
      "a deadline", [&] { Wait(1500); }, Ended("timeout"));
  const CoapMessage refused = Begin(Get("a"));
  Expect(
      "an answer that is not understood", [&] { Say(Piggyback(refused).Add(kUnknownCritical)); },
      With(In("responses.2xx"), {{"nacks.badResponse", 1}}));
}

TEST_F(CallChanges, Silence) {
  Begin(Get("a"));
  Expect(
      "no answer", [&] { Wait(100'000); },
      With(Ended("timeout"),
           {{"nacks.timeout", 1}, {"out.messages", 4}, {"out.requests.get", 4}, {"resends", 4}}));
}

TEST_F(CallChanges, NobodyThere) {
  CoapRpcCallAddr addr = {};
  {
    const RawPeer gone{UdpAddress{"127.0.0.2", 0}};
    addr = To(gone);
  }
  Expect(
      "a call to nobody",
      [&] {
        EXPECT_EQ(Try(Get("a"), addr), 0u);
        Ticks(2);
      },
      With(With(kCallback, Out("requests.get")), {{"calls", 1},
                                                  {"calls.ended.unreachable", 1},
                                                  {"nacks.unreachable", 1},
                                                  {"sessions", 1}}));
}

TEST_F(CallChanges, Stop) {
  Begin(Get("a"));
  const CoapRpcStats before = Now();
  Changes changes;
  onTold_ = [&](const CoapRpcCallRsp &) { changes = ChangesFrom(before, Now()); };
  instance_->Stop();
  EXPECT_EQ(changes["calls.ended.stopped"], 1);
  EXPECT_EQ(changes["calls.open"], -1);
}

TEST_F(CallChanges, Observation) {
  CoapMessage request;
  Expect(
      "a registration",
      [&] {
        Watch(Get("a"));
        request = Next();
      },
      With(Out("requests.get"), {{"calls", 1}, {"calls.open", 1}, {"sessions", 1}}));
  const CoapRpcStats before = Now();
  Say(Piggyback(request).AddUint(kOptObserve, 5));
  Changes answered = ChangesFrom(before, Now());
  EXPECT_EQ(answered["calls.notifications"], 1);
  EXPECT_EQ(answered.count("calls.ended.answered"), 0u);
  Expect(
      "a notification", [&] { Say(Apart(CoapType::kNon, 7, request).AddUint(kOptObserve, 6)); },
      With(With(In("responses.2xx"), kCallback), {{"calls.notifications", 1}}));
  Expect(
      "an old one", [&] { Say(Apart(CoapType::kNon, 8, request).AddUint(kOptObserve, 4)); },
      With(In("responses.2xx"), {{"notifications.old", 1}}));
}

// ---- limits ----

TEST_F(CallChanges, CallsLimit) {
  Begin(Get("a"));
  Ctx()->lib->calls->num += COAP_RPC_MAX_CALLS;
  Expect("one too many", [&] { EXPECT_EQ(Try(Get("a")), 1900001493u); }, {{"refused.calls", 1}});
  Ctx()->lib->calls->num -= COAP_RPC_MAX_CALLS;
}

class FollowedChanges : public CountingTest<ClientEnd> {};

TEST_F(FollowedChanges, Limit) {
  for (uint64_t i = 0; i < COAP_RPC_MAX_FOLLOWED_REQUESTS; ++i) EXPECT_EQ(Call(key_, i), 0u);
  EXPECT_EQ(Now().refused[COAP_RPC_LIMIT_FOLLOWED], 0u);
  Expect("one too many", [&] { EXPECT_EQ(Call(key_, 1u << 20), 0u); }, {{"refused.followed", 1}});
}

TEST_F(FollowedChanges, BaseResponse) {
  app_.onAnswer = [] { PassNs(4000); };
  const CoapMessage request = Ask();
  Expect(
      "a response", [&] { Say(AnswerOf(request).PayloadText("x")); },
      With(In("responses.2xx"), {{"callbacks", 1},
                                 {"callbacks.longest", 4000},
                                 {"callbacks.time", 4000},
                                 {"callbacks.times.2", 1},
                                 {"io.longest", 4000},
                                 {"io.time", 4000}}));
}

class MirrorChanges : public CountingTest<MirrorClient> {};

TEST_F(MirrorChanges, StatesAndLimit) {
  Expect("a mirror", [&] { mirror_ = Open(Param()); }, {{"mirrors.connecting", 1}});
  const CoapMessage hello = Next();
  Expect(
      "a full sync",
      [&] {
        Say(AnswerWith(hello, {.flags = coap_rpc::kSyncNotObserving, .head = 2, .digest = 1}));
      },
      With(With(In("responses.2xx"), kCallback), {{"mirrors.connecting", -1},
                                                  {"mirrors.fullSync", 1},
                                                  {"out.messages", 3},
                                                  {"out.requests.get", 3}}));
  Ctx()->lib->mirrors->num += COAP_RPC_MAX_MIRRORS;
  const CoapRpcUriKey key = KeyOf("obs", COAP_RPC_CON, 0);
  const CoapRpcCallAddr addr = To(peer_);
  const CoapRpcMirrorParam param = Param();
  CoapRpcMirror *other = nullptr;
  Expect("one too many",
         [&] { EXPECT_EQ(COAP_RpcMirrorOpen(Ctx(), &key, &addr, &param, &other), 1900001607u); },
         {{"refused.mirrors", 1}});
  Ctx()->lib->mirrors->num -= COAP_RPC_MAX_MIRRORS;
}

TEST_F(MirrorChanges, CallbacksAreTimed) {
  std::string told;
  app_.onTold = [&](const std::string &text) {
    told += text + ", ";
    PassNs(4000);
  };
  const CoapRpcStats before = Now();
  Sync(Param());
  EXPECT_EQ(told, "FULL_SYNC, +k001=v001, SYNCED, synced 2, ");
  Changes changes = ChangesFrom(before, Now());
  std::erase_if(changes, [](const auto &one) { return !one.first.starts_with("callbacks"); });
  EXPECT_EQ(TextOf(changes), TextOf({{"callbacks", 4},
                                     {"callbacks.longest", 4000},
                                     {"callbacks.time", 16000},
                                     {"callbacks.times.2", 4}}));
}

}  // namespace
}  // namespace coap_rpc_test
