/* sweep_clients.cpp: requests that the client sends, and relations that it asks for. */
#include "coap_svc/rpc/coap_rpc_ext.h"
#include "sweep.h"

namespace coap_rpc_test {
namespace {

constexpr size_t kLarge = 3000;
constexpr int kRetransmitted = 250;  // rounds in which an unanswered request is given up

const CoapRpcUriKey kCon = KeyOf("call");
const CoapRpcUriKey kNon = KeyOf("call", COAP_RPC_NON);
const CoapRpcUriKey kWatch = KeyOf("watch", COAP_RPC_CON, 1);

void Prepare(Stage &stage) {
  for (const CoapRpcUriKey &key : {kCon, kNon, kWatch}) stage.RegisterClient(key);
  stage.client.payloadLen = 4;
}

void ExpectKnown(uint32_t result) { ExpectOneOf(result, {0, 1900001101, 1900001102, 1900001103}); }

// A confirmable request that could not be sent waits.
bool Waits(const std::string &tables) { return Has(tables, "client request[  0]"); }

// WorksCalls expects an answer to every kind of call, whatever is left of the calls before.
void WorksCalls(Stage &stage) {
  stage.SetSilent(false);
  stage.Listen(kRetransmitted);
  stage.Forget();
  for (const CoapRpcUriKey &key : {kCon, kNon}) {
    EXPECT_EQ(stage.Call(COAP_RpcCliConReq, key), 0u);
    stage.Listen(4);
  }
  ASSERT_EQ(stage.client.responses.size(), 2u);
  EXPECT_EQ(stage.client.responses[0].substr(0, 6), kAnswer);
  EXPECT_EQ(stage.client.responses[1].substr(0, 6), kAnswer);
}

// WorksWatching ends the relation, starts it again and expects a notification.
void WorksWatching(Stage &stage) {
  stage.Listen(kRetransmitted);
  EXPECT_EQ(stage.Call(COAP_RpcCliObserveUnReq, kWatch), 0u);
  stage.Listen(kRetransmitted);
  stage.Forget();
  EXPECT_EQ(stage.Call(COAP_RpcCliObserveReq, kWatch), 0u);
  stage.Listen(15);
  EXPECT_EQ(stage.client.responses, std::vector<std::string>{kAnswer});
  stage.Notify("news");
  stage.Listen(4);
  ASSERT_EQ(stage.client.responses.size(), 2u);
  EXPECT_EQ(stage.client.responses[1], "news");
  EXPECT_EQ(stage.Call(COAP_RpcCliObserveUnReq, kWatch), 0u);
  WorksCalls(stage);
}

void PlayCon(Stage &stage) { ExpectKnown(stage.Call(COAP_RpcCliConReq, kCon, "payload")); }
// Without payload, so that the next call takes up the record that a failed one leaves.
void PlayNon(Stage &stage) { ExpectKnown(stage.Call(COAP_RpcCliNonReq, kNon)); }

void PlayAnswered(Stage &stage) {
  PlayCon(stage);
  stage.Listen(15);
}

void PrepareLarge(Stage &stage) {
  Prepare(stage);
  stage.client.payloadLen = kLarge;
}
void PrepareLargeAnswer(Stage &stage) {
  Prepare(stage);
  stage.SetAnswerLen(kLarge);
}

template <Stage::Request *kCall>
void PlayWatch(Stage &stage) {
  ExpectKnown(stage.Call(kCall, kWatch));
  stage.Listen(15);
}

void PrepareWatching(Stage &stage) {
  Prepare(stage);
  PlayWatch<COAP_RpcCliObserveReq>(stage);
  EXPECT_EQ(stage.client.responses, std::vector<std::string>{kAnswer});
}
void PlayNotified(Stage &stage) {
  stage.Notify("news");
  stage.Listen(4);
}
// The renewal that is called for in mid-transfer waits.
void PlayRenewedInBlocks(Stage &stage) {
  stage.SetAnswerLen(kLarge);
  ExpectKnown(stage.Call(COAP_RpcCliObserveReqVerify, kWatch));
  stage.Listen(11);
  ExpectKnown(stage.Call(COAP_RpcCliObserveReqBatch, kWatch));
  stage.Listen(15);
  stage.SetAnswerLen(0);
}
void PlayCancel(Stage &stage) {
  EXPECT_EQ(stage.Call(COAP_RpcCliObserveUnReq, kWatch), 0u);
  stage.Listen(4);
}

// A relation that the peer does not acknowledge is sent again and again, then given up.
void PrepareSilent(Stage &stage) {
  Prepare(stage);
  stage.SetSilent(true);
}
void PlayResend(Stage &stage) {
  ExpectKnown(stage.Call(COAP_RpcCliConReq, kCon, "payload"));
  ExpectKnown(stage.Call(COAP_RpcCliObserveReq, kWatch));
  stage.Listen(kRetransmitted);
}
void WorksAfterSilence(Stage &stage) {
  stage.SetSilent(false);
  WorksWatching(stage);
}

void PrepareKeepAlive(Stage &stage) {
  Prepare(stage);
  EXPECT_EQ(COAP_RpcSetKeepAlive(stage.Ctx(), 3), 0u);
  PlayAnswered(stage);
  stage.SetSilent(true);
}
void PlayKeepAlive(Stage &stage) { stage.Listen(160); }
void WorksKeepAlive(Stage &stage) {
  EXPECT_EQ(COAP_RpcSetKeepAlive(stage.Ctx(), 0), 0u);
  WorksCalls(stage);
}

// The end of each request that was sent is told, one by one or as a count, whatever failed.
uint32_t g_numEnded = 0;
void CountEnd(uint64_t, const CoapRpcRequestEnd *end) { g_numEnded += end->num; }

void PlayEnds(Stage &stage) {
  g_numEnded = 0;
  const uint32_t set = COAP_RpcSetOnRequestEnd(stage.Ctx(), CountEnd, 0);
  ExpectOneOf(set, {0, 1900001462});
  const uint32_t sent = stage.Call(COAP_RpcCliConReq, kCon);
  ExpectKnown(sent);
  stage.Listen(kRetransmitted);
  if (set == 0 && sent == 0) {
    EXPECT_EQ(g_numEnded, 1u);
  }
}
void WorksEnds(Stage &stage) {
  stage.Listen(kRetransmitted);
  g_numEnded = 0;
  EXPECT_EQ(COAP_RpcSetOnRequestEnd(stage.Ctx(), CountEnd, 0), 0u);
  EXPECT_EQ(stage.Call(COAP_RpcCliConReq, kCon), 0u);
  stage.Listen(kRetransmitted);
  EXPECT_EQ(g_numEnded, 1u);
  WorksCalls(stage);
}

}  // namespace

const std::vector<Scenario> &ClientScenarios() {
  constexpr uint32_t kMemory = kPool | kLibcoap;
  constexpr uint32_t kAll = kMemory | kTimers;
  static const std::vector<Scenario> scenarios = {
      {"ConRequest", kMemory, Prepare, PlayCon, WorksCalls, true, Waits},
      {"NonRequest", kMemory, Prepare, PlayNon, WorksCalls, true, Waits},
      {"Response", kMemory, Prepare, PlayAnswered, WorksCalls},
      {"LargeRequest", kMemory, PrepareLarge, PlayAnswered, WorksCalls},
      {"LargeResponse", kMemory, PrepareLargeAnswer, PlayAnswered, WorksCalls},
      {"Observe", kAll, Prepare, PlayWatch<COAP_RpcCliObserveReq>, WorksWatching},
      {"ObserveVerify", kAll, PrepareWatching, PlayWatch<COAP_RpcCliObserveReqVerify>,
       WorksWatching},
      {"ObserveBatch", kAll, PrepareWatching, PlayWatch<COAP_RpcCliObserveReqBatch>, WorksWatching},
      {"RenewedInBlocks", kAll, PrepareWatching, PlayRenewedInBlocks, WorksWatching},
      {"Notified", kMemory, PrepareWatching, PlayNotified, WorksWatching},
      {"Cancel", kLibcoap, PrepareWatching, PlayCancel, WorksWatching},
      {"Resend", kAll, PrepareSilent, PlayResend, WorksAfterSilence},
      {"RequestEnds", kMemory, PrepareSilent, PlayEnds, WorksEnds},
      {"KeepAlive", kLibcoap, PrepareKeepAlive, PlayKeepAlive, WorksKeepAlive},
  };
  return scenarios;
}

}  // namespace coap_rpc_test
