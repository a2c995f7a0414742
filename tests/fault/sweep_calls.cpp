/* sweep_calls.cpp: ordinary calls and observations.  Each that was accepted is told of, once,
 * whatever fails; each that was not leaves nothing. */
#include "coap_svc/rpc/coap_rpc_call.h"
#include "coap_svc/rpc/coap_rpc_ext.h"
#include "sweep.h"

namespace coap_rpc_test {
namespace {

constexpr uint32_t kDeadlineMs = 5'000;
constexpr int kAllEnded = 60;  // rounds, after which each call has ended
constexpr size_t kLarge = 3000;

struct Calls {
  uint32_t numOpen = 0;  // accepted, and not told of the end
  uint32_t numEnded = 0;
  std::vector<std::string> answers;
  uint64_t id = 0;
};
Calls g_calls;

void OnRsp(uint64_t, const CoapRpcCallRsp *rsp) {
  if (rsp->status == COAP_RPC_CALL_ANSWERED) {
    g_calls.answers.emplace_back(rsp->payload, rsp->payload + rsp->payloadLen);
  }
  if (rsp->isLast == 0) return;
  --g_calls.numOpen;
  ++g_calls.numEnded;
}

CoapRpcCall CallOf(const std::string &payload) {
  CoapRpcCall call = {};
  call.method = payload.empty() ? COAP_RPC_GET : COAP_RPC_PUT;
  call.path = "call/it";
  call.query = "a=1&b";
  call.payload = reinterpret_cast<const uint8_t *>(payload.data());
  call.payloadLen = static_cast<uint32_t>(payload.size());
  call.deadlineMs = kDeadlineMs;
  call.onRsp = OnRsp;
  return call;
}

uint32_t Start(Stage &stage, decltype(COAP_RpcCall) *fn, const CoapRpcCall &call) {
  const CoapRpcCallAddr addr = stage.FarAddr();
  const uint32_t ret = fn(stage.Ctx(), &addr, &call, &g_calls.id);
  ExpectOneOf(ret, {0, 1900001494, 1900001497, 1900001498, 1900001499});
  if (ret == 0) ++g_calls.numOpen;
  return ret;
}
uint32_t Start(Stage &stage, const std::string &payload = "") {
  return Start(stage, COAP_RpcCall, CallOf(payload));
}
uint32_t StartWatch(Stage &stage) { return Start(stage, COAP_RpcCallObserve, CallOf("")); }

void Prepare(Stage &) { g_calls = {}; }
void PrepareLargeAnswer(Stage &stage) {
  Prepare(stage);
  stage.SetAnswerLen(kLarge);
}
void PrepareSilent(Stage &stage) {
  Prepare(stage);
  stage.SetSilent(true);
}

void PlayCall(Stage &stage) {
  Start(stage);
  stage.Listen(15);
}
void PlayLarge(Stage &stage) {
  Start(stage, std::string(kLarge, 'p'));
  stage.Listen(15);
}
void PlayQueue(Stage &stage) {
  Start(stage, "one");
  const uint64_t first = g_calls.id;
  for (const char *payload : {"two", "three", "four"}) Start(stage, payload);
  COAP_RpcCallCancel(stage.Ctx(), first);
  stage.Listen(10);
  COAP_RpcCallCancel(stage.Ctx(), g_calls.id);
  stage.Listen(kAllEnded);
}
void PlayWatch(Stage &stage) {
  StartWatch(stage);
  stage.Listen(15);
}
void PrepareWatching(Stage &stage) {
  Prepare(stage);
  PlayWatch(stage);
  EXPECT_EQ(g_calls.answers, std::vector<std::string>{kAnswer});
}
// The answers of the stage have no Max-Age: it registers again after 65 to 75 s.
void PlayRenewal(Stage &stage) {
  stage.Listen(800);
  stage.Notify("news");
  stage.Listen(4);
}
void PlayLeave(Stage &stage) {
  const uint32_t ret = StartWatch(stage);
  stage.Listen(4);
  if (ret == 0) COAP_RpcCallCancel(stage.Ctx(), g_calls.id);
  stage.Listen(4);
}

// Works expects each call to have ended, and new ones to be answered.
void Works(Stage &stage) {
  stage.SetSilent(false);
  COAP_RpcCallCancel(stage.Ctx(), g_calls.id);  // an observation that goes on
  stage.Listen(kAllEnded);
  EXPECT_EQ(g_calls.numOpen, 0u);
  if (COAP_RpcGetCallNum(stage.Ctx()) != 0)
    stage.Listen(1000);  // an unanswered farewell is given up
  EXPECT_EQ(COAP_RpcGetCallNum(stage.Ctx()), 0u);
  g_calls = {};
  stage.SetAnswerLen(0);
  EXPECT_EQ(Start(stage), 0u);
  stage.Listen(4);
  EXPECT_EQ(Start(stage, std::string(kLarge, 'p')), 0u);
  stage.Listen(10);
  EXPECT_EQ(g_calls.answers, std::vector<std::string>(2, kAnswer));
  EXPECT_EQ(StartWatch(stage), 0u);
  stage.Listen(4);
  stage.Notify("news");
  stage.Listen(4);
  ASSERT_EQ(g_calls.answers.size(), 4u);
  EXPECT_EQ(g_calls.answers[3], "news");
  EXPECT_EQ(COAP_RpcCallCancel(stage.Ctx(), g_calls.id), 0u);
  stage.Listen(4);
  EXPECT_EQ(COAP_RpcGetCallNum(stage.Ctx()), 0u);
  EXPECT_EQ(g_calls.numEnded, 3u);
}

}  // namespace

const std::vector<Scenario> &CallScenarios() {
  constexpr uint32_t kAll = kPool | kLibcoap | kTimers;
  static const std::vector<Scenario> scenarios = {
      {"Call", kAll, Prepare, PlayCall, Works},
      {"CallWithPayloadInBlocks", kAll, Prepare, PlayLarge, Works},
      {"CallAnsweredInBlocks", kAll, PrepareLargeAnswer, PlayCall, Works},
      {"CallsInAQueue", kAll, PrepareSilent, PlayQueue, Works},
      {"CallThatObserves", kAll, Prepare, PlayWatch, Works},
      {"CallThatObservesInBlocks", kAll, PrepareLargeAnswer, PlayWatch, Works},
      {"CallThatRegistersAgain", kLibcoap | kTimers, PrepareWatching, PlayRenewal, Works},
      {"CallThatStopsObserving", kAll, Prepare, PlayLeave, Works},
  };
  return scenarios;
}

}  // namespace coap_rpc_test
