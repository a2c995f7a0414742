// What a client counts, each number provoked by messages.
#include "client_calls.h"
#include "coap_svc/rpc/libadapter/rpc_call/coap_rpc_lib_rpc_call_record.h"
#include "stats_reader.h"

namespace coap_rpc_test {
namespace {

class ClientStats : public ClientCalls {
 protected:
  CoapRpcStats Now() const { return StatsOf(Ctx()); }
  uint64_t Ended(uint32_t status) const { return Now().callEnds[status]; }
};

TEST_F(ClientStats, AnsweredCall) {
  onTold_ = [](const CoapRpcCallRsp &) { PassNs(9000); };
  Make(Get("a"));
  EXPECT_EQ(Now().calls, 1u);
  EXPECT_EQ(Now().openCalls, 1u);
  EXPECT_EQ(Now().sessions, 1u);
  Say(Piggyback(Next(), Code(4, 4)));
  const CoapRpcStats stats = Now();
  EXPECT_EQ(stats.openCalls, 0u);
  EXPECT_EQ(stats.callEnds[COAP_RPC_CALL_ANSWERED], 1u);
  EXPECT_EQ(stats.out.requests[COAP_RPC_GET], 1u);
  EXPECT_EQ(stats.in.responses[4], 1u);
  EXPECT_EQ(stats.callbacks, 1u);
  EXPECT_EQ(stats.callbackMaxNs, 9000u);
}

TEST_F(ClientStats, CallsByOutcome) {
  Make(Get("a"));
  Say(Request(CoapType::kRst, 0, Next().messageId));
  EXPECT_EQ(Ended(COAP_RPC_CALL_RESET), 1u);
  EXPECT_EQ(Now().nacks[COAP_RPC_NACK_RESET], 1u);
  EXPECT_EQ(Now().in.resets, 1u);

  const uint64_t id = Make(Get("a"));
  EXPECT_EQ(COAP_RpcCallCancel(Ctx(), id), 0u);
  EXPECT_EQ(Ended(COAP_RPC_CALL_CANCELLED), 1u);

  CoapRpcCall call = Get("a");
  call.deadlineMs = 1000;
  Make(call);
  Wait(1500);
  EXPECT_EQ(Ended(COAP_RPC_CALL_TIMEOUT), 1u);

  Make(Get("a"));
  Wait(100000);
  EXPECT_EQ(Ended(COAP_RPC_CALL_TIMEOUT), 2u);
  EXPECT_EQ(Now().nacks[COAP_RPC_NACK_TIMEOUT] + Now().nacks[COAP_RPC_NACK_RESET], 2u);
  EXPECT_EQ(Now().resends, 4u);
  EXPECT_EQ(Now().calls, 4u);
}

TEST_F(ClientStats, RefusedCall_IsNoCall) {
  Make(Get("a"));
  Ctx()->lib->calls->num += 65536;
  EXPECT_EQ(Try(Get("a")), 1900001493u);
  Ctx()->lib->calls->num -= 65536;
  EXPECT_EQ(Now().calls, 1u);
  EXPECT_EQ(Now().refused[COAP_RPC_LIMIT_CALLS], 1u);
}

TEST_F(ClientStats, Notifications) {
  Watch(Get("a"));
  const CoapMessage request = Next();
  Say(Piggyback(request).AddUint(kOptObserve, 5));
  EXPECT_EQ(Now().callNotifications, 1u);
  Say(Apart(CoapType::kNon, 7, request).AddUint(kOptObserve, 6));
  EXPECT_EQ(Now().callNotifications, 2u);
  Say(Apart(CoapType::kNon, 8, request).AddUint(kOptObserve, 4));  // overtaken
  EXPECT_EQ(Now().callNotifications, 2u);
  EXPECT_EQ(Now().notificationsOld, 1u);
  EXPECT_EQ(Now().callEnds[COAP_RPC_CALL_ANSWERED], 0u);
}

TEST_F(ClientStats, BaseResponse_IsACallback) {
  App app;
  app.onAnswer = [] { PassNs(4000); };
  Register(KeyOf("a"), &app);
  EXPECT_EQ(Call(KeyOf("a")), 0u);
  const CoapMessage request = Next();
  Say(Request(CoapType::kAck, Code(2, 5), request.messageId).AddPath("a").PayloadText("x"));
  Ticks(11);
  EXPECT_EQ(app.responses.size(), 1u);
  EXPECT_EQ(Now().callbacks, 1u);
  EXPECT_EQ(Now().callbackNs, 4000u);
}

TEST_F(ClientStats, ClientNumbersAsRows) {
  Make(Get("a"));
  COAP_RpcShowStats(Ctx());
  const std::vector<std::string> pages = host_.RunCommand("disp client stats");
  const Numbers numbers = NumbersOf(pages);
  ASSERT_EQ(pages.size(), 1u);
  EXPECT_TRUE(pages[0].starts_with(
      "client stats[  0]: name(calls)/of(-)/kind(counter)/unit(-)/value(1)\n"));
  EXPECT_TRUE(pages[0].ends_with("\n ***total " + std::to_string(numbers.size()) +
                                 " client number(s) ***\n"));
  EXPECT_EQ(numbers.at("calls.open"), 1u);
  EXPECT_EQ(numbers.at("calls.ended.answered"), 0u);
}

std::string Between(const std::string &row, const std::string &from, const std::string &to) {
  const size_t begin = row.find(from) + from.size();
  return row.substr(begin, row.find(to, begin) - begin);
}

TEST_F(ClientStats, CallsAndBaseRequestsAsRows) {
  App app;
  Register(KeyOf("a"), &app);
  COAP_RpcShowStats(Ctx());
  EXPECT_EQ(host_.RunCommand("disp client call"),
            std::vector<std::string>{" ***total 0 client call(s) ***\n"});
  Make(Get("a"));
  const CoapMessage first = Next();
  Make(Get("b"));  // queued after it
  RawPeer other({"127.0.0.2", 0});
  const CoapRpcCliReqParam param = ParamOf(1);
  const CoapRpcCliAddr addr = AddrOf(other);
  const CoapRpcUriKey key = KeyOf("a");
  EXPECT_EQ(COAP_RpcCliConReq(Ctx(), &key, &param, &addr), 0u);
  Wait(4000);  // the first transmission is repeated after 2 to 3 s
  const std::vector<std::string> rows = host_.RunCommand("disp client call");
  ASSERT_EQ(rows.size(), 4u);
  const std::string server = "127.0.0.2:" + std::to_string(peer_.Local().port);
  EXPECT_EQ(Between(rows[0], "kind(", ")"), "call");
  EXPECT_EQ(Between(rows[0], "server(", ")"), server);
  EXPECT_EQ(Between(rows[0], "local(", ":"), "127.0.0.1");
  EXPECT_EQ(Between(rows[0], "mid(", ")"), std::to_string(first.messageId));
  for (const size_t at : {size_t{0}, size_t{1}}) {
    const bool isSent = Between(rows[at], "state(", ")") == "sent";
    EXPECT_EQ(Between(rows[at], "attempts(", ")"), isSent ? "2" : "0");
    EXPECT_EQ(Between(rows[at], "ageMs(", ")").size(), 4u) << rows[at];
  }
  EXPECT_EQ(Between(rows[2], "kind(", ")"), "base");
  EXPECT_EQ(Between(rows[2], "server(", ")"), "127.0.0.2:" + std::to_string(other.Local().port));
  EXPECT_EQ(Between(rows[2], "attempts(", ")"), "2");
  EXPECT_NEAR(std::stod(Between(rows[2], "ageMs(", ")")), 4000.0, 200.0);
  EXPECT_EQ(rows[3], " ***total 3 client call(s) ***\n");
}

}  // namespace
}  // namespace coap_rpc_test
