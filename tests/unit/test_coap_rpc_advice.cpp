// Warnings about input that is accepted and can never work.
#include <unistd.h>

#include "coap_svc/rpc/coap_rpc_cli.h"
#include "coap_svc/rpc/coap_rpc_direct.h"
#include "coap_svc/rpc/coap_rpc_ext.h"
#include "test_instance.h"

namespace coap_rpc_test {
namespace {

constexpr uint32_t kWarnLevel = 2;

int32_t KeyCmp(const void *, const void *) { return 0; }
uint32_t BuildUpdate(uint64_t, uint8_t *, uint8_t *, void *) { return 0; }
uint32_t BuildDelete(uint64_t, uint8_t *, void *) { return 0; }

CoapRpcSerObVtblReg ObReg() {
  CoapRpcSerObVtblReg ob = {};
  ob.keyLen = 4;
  ob.tupleKeyCmp = KeyCmp;
  ob.buildUpdate = BuildUpdate;
  ob.buildDelete = BuildDelete;
  return ob;
}

// What a call was advised about, beside its result.
struct Outcome {
  uint32_t ret;
  std::vector<std::string> advice;

  bool operator==(const Outcome &) const = default;
};

std::ostream &operator<<(std::ostream &out, const Outcome &outcome) {
  return out << outcome.ret << testing::PrintToString(outcome.advice);
}

class Advice : public testing::Test {
 protected:
  Advice() { EXPECT_EQ(COAP_RpcSetAdvice(instance_, 1), 0u); }

  // AfterCall gathers the warnings since the last one, and lets them be logged again.
  Outcome AfterCall(uint32_t ret) {
    Outcome outcome = {ret, {}};
    for (const LogRecord &record : host_.LogsOf("COAP_RpcSetAdvice")) {
      EXPECT_EQ(record.level, kWarnLevel);
      EXPECT_EQ(record.line, 1642u);
      const size_t begin = strlen("[CoapRpc]advice: ");
      outcome.advice.push_back(record.text.substr(begin, record.text.find(", uri:") - begin));
    }
    num_ += static_cast<uint32_t>(outcome.advice.size());
    EXPECT_EQ(COAP_RpcGetAdviceNum(instance_), num_);
    COAP_RpcSetAdvice(instance_, 1);
    host_.ClearLogs();
    return outcome;
  }

  Outcome Serve(const CoapRpcUriKey &key, uint8_t format = COAP_RPC_JSON,
                const CoapRpcSerObVtblReg *ob = nullptr) {
    CoapRpcSerVtblReg reg = {};
    reg.payloadFormat = format;
    return AfterCall(COAP_RpcSerRegVtbl(instance_, &key, &reg, ob));
  }
  Outcome Register(const CoapRpcUriKey &key) {
    const CoapRpcCliVtblReg reg = {};
    return AfterCall(COAP_RpcCliRegVtbl(instance_, &key, &reg));
  }
  Outcome Attach(const CoapRpcUriKey &key, uint16_t port) {
    CoapRpcSerListenAddr addr = {};
    addr.listenAddr.family = COAP_RPC_IPV4;
    addr.listenAddr.addr.ipv4 = 0x7F000000 | (static_cast<uint32_t>(getpid()) & 0x3FFFFF) | 1 << 22;
    addr.port = port;
    return AfterCall(COAP_RpcSerSetUri(instance_, &key, &addr));
  }

  using Function = uint32_t (*)(CoapRpcCtx *, const CoapRpcUriKey *, const CoapRpcCliReqParam *,
                                const CoapRpcCliAddr *);
  Outcome Ask(Function ask, const CoapRpcUriKey &key, uint32_t method = COAP_RPC_GET) {
    const CoapRpcCliReqParam param = {};
    CoapRpcCliAddr addr = {};
    addr.srcIp.family = addr.dstIp.family = COAP_RPC_IPV4;
    addr.srcIp.addr.ipv4 = 0x7F000001;
    addr.dstIp.addr.ipv4 = 0x7F000002;
    addr.dstPort = 9;
    addr.codeType = method;
    return AfterCall(ask(instance_, &key, &param, &addr));
  }

  // Both sides register a key and are told the same.
  void ExpectOfKey(const CoapRpcUriKey &key, const std::string &advice) {
    const Outcome expected = {0, {advice}};
    EXPECT_EQ(Serve(key), expected);
    EXPECT_EQ(Register(key), expected);
  }

  TestHost host_;
  TestInstance instance_{host_};
  uint32_t num_ = 0;
  const Outcome fine_ = {0, {}};
};

TEST_F(Advice, LongPath) {
  const Outcome expected = {0, {"no message finds a path of more than 32 characters"}};
  for (size_t len = 32; len <= 63; ++len) {
    SCOPED_TRACE(len);
    const CoapRpcUriKey key = KeyOf(std::string(len, 'a').c_str());
    EXPECT_EQ(Register(key), len == 32 ? fine_ : expected);
    EXPECT_EQ(Serve(key), fine_) << "it may become a direct entry";
    EXPECT_EQ(Attach(key, 5683), len == 32 ? fine_ : expected);
  }
}

TEST_F(Advice, LongPathOfADirectEntry_IsFound) {
  const CoapRpcUriKey key = KeyOf(std::string(63, 'a').c_str());
  EXPECT_EQ(Serve(key), fine_);
  EXPECT_EQ(COAP_RpcSerSetDirect(instance_, &key, nullptr), 0u);
  EXPECT_EQ(Attach(key, 5683), fine_);
}

TEST_F(Advice, PathWithoutTerminator) {
  ExpectOfKey(KeyOf(std::string(64, 'a').c_str()), "no message finds a path without terminator");
}

TEST_F(Advice, PathThatMessagesEncode) {
  EXPECT_EQ(Serve(KeyOf("az/AZ09-._~!$'()*+,;=:@&")), fine_);
  EXPECT_EQ(Serve(KeyOf("a%20b")), fine_);
  for (const char *uri : {"a b", " ", " a", "a ", "a\tb", "a\"", "a?b", "gr\xC3\xB6\xC3\x9F"}) {
    ExpectOfKey(KeyOf(uri), "no message finds a path with characters that are percent-encoded");
  }
}

TEST_F(Advice, BytesAfterTheTerminator) {
  CoapRpcUriKey key = KeyOf("a");
  key.uri[63] = 'x';
  ExpectOfKey(key, "no message finds a path with bytes after its terminator");
}

TEST_F(Advice, UnknownTypes) {
  for (const uint32_t type : {2u, 255u, UINT32_MAX}) {
    ExpectOfKey(KeyOf("a", type), "unknown message type");
  }
  for (const uint32_t type : {3u, 255u, UINT32_MAX}) {
    ExpectOfKey(KeyOf("a", 0, 0, type), "unknown packet type");
  }
  EXPECT_EQ(Serve(KeyOf("a", 1, 1, 2)), fine_);
}

TEST_F(Advice, TuplesThatNobodyGets) {
  CoapRpcSerObVtblReg ob = ObReg();
  EXPECT_EQ(Serve(KeyOf("json", 0, 1), COAP_RPC_JSON, &ob), fine_);
  EXPECT_EQ(Serve(KeyOf("idl", 0, 1), COAP_RPC_BYTE, &ob), fine_);
  EXPECT_EQ(Serve(KeyOf("none"), 0), fine_);
  EXPECT_EQ(Serve(KeyOf("a", 0, 1), 3, &ob),
            (Outcome{0, {"tuples of an unknown payload format are not published"}}));
  const Outcome noBuilder = {0, {"changes without buildUpdate or buildDelete are not published"}};
  ob.buildDelete = nullptr;
  EXPECT_EQ(Serve(KeyOf("b", 0, 1), COAP_RPC_JSON, &ob), noBuilder);
  ob = ObReg();
  ob.buildUpdate = nullptr;
  EXPECT_EQ(Serve(KeyOf("c", 0, 1), COAP_RPC_JSON, &ob), noBuilder);
}

TEST_F(Advice, Port0) {
  Serve(KeyOf("a"));
  EXPECT_EQ(Attach(KeyOf("a"), 0),
            (Outcome{0, {"nobody knows the port that the system chooses for port 0"}}));
  EXPECT_EQ(Attach(KeyOf("a"), 5683), fine_);
}

TEST_F(Advice, UnregisteredKey) {
  const std::vector<std::string> expected = {
      "a request of a key that is not registered has no payload"};
  EXPECT_EQ(Ask(COAP_RpcCliConReq, KeyOf("a")).advice, expected);
  EXPECT_EQ(Ask(COAP_RpcCliNonReq, KeyOf("a", 1)).advice, expected);
  EXPECT_EQ(Ask(COAP_RpcCliObserveReq, KeyOf("a", 0, 1)).advice, expected);
  Register(KeyOf("a"));
  EXPECT_EQ(Ask(COAP_RpcCliConReq, KeyOf("a")), fine_);
}

TEST_F(Advice, UnknownMethod) {
  Register(KeyOf("a"));
  for (const uint32_t method : {1u, 4u, 7u}) {
    EXPECT_EQ(Ask(COAP_RpcCliConReq, KeyOf("a"), method), fine_);
  }
  EXPECT_EQ(Ask(COAP_RpcCliConReq, KeyOf("a"), 0).advice,
            (std::vector{std::string("unknown method")}));
  EXPECT_EQ(Ask(COAP_RpcCliConReq, KeyOf("a"), 8).advice,
            (std::vector{std::string("unknown method")}));
}

TEST_F(Advice, RelationsThatObserveNothing) {
  Register(KeyOf("a"));
  Register(KeyOf("a", COAP_RPC_NON, 1));
  for (const Function observe :
       {COAP_RpcCliObserveReq, COAP_RpcCliObserveReqVerify, COAP_RpcCliObserveReqBatch}) {
    EXPECT_EQ(Ask(observe, KeyOf("a")), (Outcome{0, {"a key with observe 0 does not observe"}}));
    EXPECT_EQ(Ask(observe, KeyOf("a", COAP_RPC_NON, 1)),
              (Outcome{0, {"a NON relation is never sent"}}));
  }
}

TEST_F(Advice, Line_HasTheKey) {
  const CoapRpcUriKey key = KeyOf("a b", 1, 1, 2);
  const CoapRpcSerVtblReg reg = {};
  COAP_RpcSerRegVtbl(instance_, &key, &reg, nullptr);
  EXPECT_TRUE(
      host_.HasLog("[CoapRpc]advice: no message finds a path with characters that are "
                   "percent-encoded, uri:a b, msgType:1, observe:1, pktType:2.\n"));
}

TEST_F(Advice, EachBrokenRule_IsOneWarning) {
  CoapRpcUriKey key = KeyOf((std::string(40, 'a') + " ").c_str(), 9, 0, 9);
  EXPECT_EQ(Register(key).advice.size(), 4u);
}

TEST_F(Advice, SameWarning_IsLoggedOnceAndCounted) {
  const CoapRpcUriKey keys[] = {KeyOf("a"), KeyOf("b")};
  const CoapRpcCliReqParam param = {};
  CoapRpcCliAddr addr = {};
  addr.srcIp.family = addr.dstIp.family = COAP_RPC_IPV4;
  addr.dstIp.addr.ipv4 = 0x7F000002;
  addr.dstPort = 9;
  for (int i = 0; i < 200; ++i) {
    for (const CoapRpcUriKey &key : keys) COAP_RpcCliConReq(instance_, &key, &param, &addr);
  }
  EXPECT_EQ(host_.LogsOf("COAP_RpcSetAdvice").size(), 4u) << "two rules, two keys";
  EXPECT_EQ(COAP_RpcGetAdviceNum(instance_), 800u);
  COAP_RpcSetAdvice(instance_, 1);
  COAP_RpcCliConReq(instance_, &keys[0], &param, &addr);
  EXPECT_EQ(host_.LogsOf("COAP_RpcSetAdvice").size(), 6u);
}

TEST_F(Advice, ManyWarnings_AreCountedOnly) {
  const CoapRpcCliVtblReg reg = {};
  for (int i = 0; i < 100; ++i) {
    const CoapRpcUriKey key = KeyOf(("a " + std::to_string(i)).c_str());
    COAP_RpcCliRegVtbl(instance_, &key, &reg);
  }
  EXPECT_EQ(host_.LogsOf("COAP_RpcSetAdvice").size(), 64u);
  EXPECT_EQ(COAP_RpcGetAdviceNum(instance_), 100u);
}

TEST_F(Advice, FailedCalls_AreNotAdvisedAbout) {
  const CoapRpcSerVtblReg reg = {};
  EXPECT_EQ(AfterCall(COAP_RpcSerRegVtbl(instance_, nullptr, &reg, nullptr)),
            (Outcome{1900000169u, {}}));
}

TEST_F(Advice, NullInstance) {
  EXPECT_EQ(COAP_RpcSetAdvice(nullptr, 1), 1900001641u);
  EXPECT_EQ(COAP_RpcGetAdviceNum(nullptr), 0u);
}

// Results and lines of calls that are advised about.
std::vector<std::string> WhatIsLogged(uint32_t isOn) {
  TestHost host;
  const TestInstance instance(host);
  if (isOn != 0) COAP_RpcSetAdvice(instance, isOn);
  const CoapRpcUriKey key = KeyOf("a b", 9, 1, 9);
  const CoapRpcSerVtblReg served = {};
  const CoapRpcCliVtblReg called = {};
  const CoapRpcCliReqParam param = {};
  CoapRpcCliAddr addr = {};
  addr.srcIp.family = addr.dstIp.family = COAP_RPC_IPV4;
  addr.dstIp.addr.ipv4 = 0x7F000002;
  addr.dstPort = 9;
  std::vector<std::string> lines = {
      std::to_string(COAP_RpcSerRegVtbl(instance, &key, &served, nullptr)),
      std::to_string(COAP_RpcCliRegVtbl(instance, &key, &called)),
      std::to_string(COAP_RpcCliObserveReq(instance, &key, &param, &addr))};
  for (const LogRecord &record : host.Logs().Records()) {
    if (record.line != 1642) lines.push_back(std::to_string(record.line) + record.text);
  }
  return lines;
}

// Results of calls that fail.
std::vector<uint32_t> ResultsOfFailedCalls(uint32_t isOn) {
  TestHost host;
  const TestInstance instance(host);
  COAP_RpcSetAdvice(instance, isOn);
  const CoapRpcUriKey key = KeyOf("a b", 9, 0, 9);
  const CoapRpcSerVtblReg served = {};
  const CoapRpcSerObVtblReg withoutCompare = {};
  const CoapRpcCliReqParam param = {};
  CoapRpcSerListenAddr listen = {};
  CoapRpcCliAddr peer = {};
  std::vector<uint32_t> results = {COAP_RpcSerRegVtbl(instance, &key, &served, &withoutCompare),
                                   COAP_RpcSerSetUri(instance, &key, &listen),
                                   COAP_RpcCliConReq(instance, &key, &param, &peer)};
  listen.listenAddr.family = peer.srcIp.family = peer.dstIp.family = COAP_RPC_IPV4;
  listen.listenAddr.addr.ipv4 = peer.dstIp.addr.ipv4 = 0x7F000002;
  peer.dstPort = 9;
  results.push_back(COAP_RpcSerSetUri(instance, &key, &listen));
  results.push_back(COAP_RpcCliConReq(instance, &key, &param, &peer));
  results.push_back(COAP_RpcCliNonReq(instance, &key, &param, &peer));
  return results;
}

TEST(AdviceOff, ResultsOfFailedCalls_AreTheSame) {
  const std::vector<uint32_t> expected = {1900000251, 1900000082, 1900001015,
                                          1900000163, 1900001103, 1900001103};
  EXPECT_EQ(ResultsOfFailedCalls(0), expected);
  EXPECT_EQ(ResultsOfFailedCalls(1), expected);
}

TEST(AdviceOff, OtherLinesAndResults_AreTheSame) { EXPECT_EQ(WhatIsLogged(1), WhatIsLogged(0)); }

TEST(AdviceOff, IsTheDefault) {
  TestHost host;
  const TestInstance instance(host);
  const CoapRpcSerVtblReg reg = {};
  const CoapRpcUriKey key = KeyOf("a b");
  EXPECT_EQ(COAP_RpcSerRegVtbl(instance, &key, &reg, nullptr), 0u);
  EXPECT_TRUE(host.LogsOf("COAP_RpcSetAdvice").empty());
  EXPECT_EQ(COAP_RpcGetAdviceNum(instance), 0u);
}

}  // namespace
}  // namespace coap_rpc_test
