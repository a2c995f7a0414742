// interop_client: calls the foreign servers of tests/interop/peers, which stand on 127.0.0.2:5683.
//
// Prints a line for each case: its name, a tab, and what was delivered to the application.  A
// delivery reads "205 +1000=val0 -1001": the code, and the rows of a table or the payload.
#include <coap_svc/rpc/coap_rpc_ext.h>
#include <jansson.h>
#include <poll.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "example.h"
#include "interop_pattern.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr size_t kMaxText = 40;

// StepMs is how long a step takes: an observe call goes out with the next tick of 1001 ms.
int StepMs() {
  const char *slowness = std::getenv("INTEROP_SLOWNESS");
  return 2500 * (slowness ? std::atoi(slowness) : 1);
}

Example g_example;
std::vector<std::string> g_told;
uint32_t g_verdict = 0;  // of onResponse

// ---- what is delivered ----

std::string TextOf(const json_t *row, const char *name) {
  const char *text = json_string_value(json_object_get(row, name));
  return text ? text : "";
}

std::string RowText(const json_t *row) {
  if (TextOf(row, "op") == "d") return " -" + TextOf(row, "key");
  return " +" + TextOf(row, "key") + "=" + TextOf(row, "val");
}

std::string PayloadText(const std::string &payload) {
  json_t *root = json_loadb(payload.data(), payload.size(), 0, nullptr);
  const json_t *data = json_object_get(root, "data");
  std::string text;
  for (size_t i = 0; i < json_array_size(data); ++i) text += RowText(json_array_get(data, i));
  const bool isTable = data != nullptr;
  json_decref(root);
  if (isTable) return text;
  if (payload.size() <= kMaxText) return " '" + payload + "'";
  const bool isPattern = payload == InteropPattern(payload.size());
  return " " + std::to_string(payload.size()) + (isPattern ? " bytes of the pattern" : " bytes");
}

uint32_t OnResponse(uint64_t, uint64_t, uint8_t *payload, uint32_t len,
                    const CoapRpcCliRspInfo *info) {
  std::string text = std::to_string(info->rspCode);
  if (len != 0) text += PayloadText({payload, payload + len});
  if (info->checkCodeOk) text += ", check code";
  g_told.push_back(text);
  return g_verdict;
}

int32_t BuildReq(uint64_t, const CoapRpcCliReqParam *req, uint8_t *out, uint32_t) {
  if (req->payloadLen != 0) std::memcpy(out, req->payload, req->payloadLen);
  return static_cast<int32_t>(req->payloadLen);
}

std::string TakeTold() {
  std::string all;
  for (const std::string &text : g_told) all += (all.empty() ? "" : " | ") + text;
  g_told.clear();
  return all.empty() ? "nothing" : all;
}

// ---- calls ----

CoapRpcUriKey KeyOf(const char *uri, uint32_t msgType, uint32_t observe) {
  CoapRpcUriKey key = ExampleKey(uri, observe, COAP_RPC_DEFAULT);
  key.msgType = msgType;
  return key;
}

// A response without Observe belongs to the plain key: say, the last block of a notification.
void Register(const char *uri) {
  CoapRpcCliVtblReg reg = {};
  reg.payloadFormat = COAP_RPC_JSON;
  reg.buildReq = BuildReq;
  reg.onResponse = OnResponse;
  for (const uint32_t msgType : {COAP_RPC_CON, COAP_RPC_NON}) {
    for (const uint32_t observe : {0u, 1u}) {
      const CoapRpcUriKey key = KeyOf(uri, msgType, observe);
      COAP_RpcCliRegVtbl(g_example.ctx, &key, &reg);
    }
  }
}

void RunFor(int ms) {
  const auto end = Clock::now() + std::chrono::milliseconds(ms);
  while (Clock::now() < end) {
    pollfd wait = {KestrelPollFd(g_example.host), POLLIN, 0};
    const int due = KestrelPollTimeoutMs(g_example.host);
    poll(&wait, 1, due < 0 ? 50 : std::min(due, 50));
    KestrelTurn(g_example.host);
  }
}

using CallFunc = decltype(&COAP_RpcCliConReq);

void Call(CallFunc call, const CoapRpcUriKey &key, uint32_t code, std::string payload = "") {
  CoapRpcCliReqParam param = {};
  if (!payload.empty()) param.payload = reinterpret_cast<uint8_t *>(payload.data());
  param.payloadLen = static_cast<uint32_t>(payload.size());
  const CoapRpcCliAddr peer = ExamplePeer(EXAMPLE_CLIENT, EXAMPLE_SERVER, EXAMPLE_PORT, code);
  const uint32_t result = call(g_example.ctx, &key, &param, &peer);
  if (result != 0) g_told.push_back(std::string("failed: ") + COAP_RpcErrStr(result));
}

// Tell runs a step and prints what was delivered while it ran.
void Tell(const char *name, const std::function<void()> &step) {
  step();
  RunFor(StepMs());
  std::printf("%s\t%s\n", name, TakeTold().c_str());
}

void TellPlain(const char *name, uint32_t msgType, uint32_t code, const char *uri,
               const std::string &payload) {
  Tell(name, [&] { Call(COAP_RpcCliConReq, KeyOf(uri, msgType, 0), code, payload); });
}

// ---- cases ----

void RunPlain() {
  TellPlain("GET CON", COAP_RPC_CON, COAP_RPC_GET, "echo", "hello");
  TellPlain("GET NON", COAP_RPC_NON, COAP_RPC_GET, "echo", "hello");
  TellPlain("POST CON", COAP_RPC_CON, COAP_RPC_POST, "echo", "hello");
  TellPlain("POST NON", COAP_RPC_NON, COAP_RPC_POST, "echo", "hello");
  TellPlain("PUT", COAP_RPC_CON, COAP_RPC_PUT, "echo", "hello");
  TellPlain("DELETE", COAP_RPC_CON, COAP_RPC_DELETE, "echo", "");
  TellPlain("GET answered later", COAP_RPC_CON, COAP_RPC_GET, "slow", "hello");
  TellPlain("GET without path in the answer", COAP_RPC_CON, COAP_RPC_GET, "bare", "hello");
  TellPlain("GET of 3000 bytes", COAP_RPC_CON, COAP_RPC_GET, "large", "3000");
  TellPlain("POST of 5000 bytes", COAP_RPC_CON, COAP_RPC_POST, "large", InteropPattern(5000));
}

void Change(const char *step) {
  Call(COAP_RpcCliConReq, KeyOf("ctl", COAP_RPC_CON, 0), COAP_RPC_POST, step);
}

void RunObserve() {
  const CoapRpcUriKey key = KeyOf("table", COAP_RPC_CON, 1);
  const auto tell = [&](const char *name, CallFunc call) {
    Tell(name, [&] { Call(call, key, COAP_RPC_GET); });
  };
  const auto change = [](const char *name, const char *step) {
    Tell(name, [step] { Change(step); });
  };
  tell("observe", COAP_RpcCliObserveReq);
  change("change", "set table 1000 val1");
  change("new row", "set table 1002 val2");
  change("deletion", "del table 1001");
  tell("verify when up to date", COAP_RpcCliObserveReqVerify);
  change("change after verify", "set table 1000 val3");
  change("change without notification", "hide table 1000 val4");
  tell("verify when behind", COAP_RpcCliObserveReqVerify);
  tell("batch", COAP_RpcCliObserveReqBatch);
  tell("cancel", COAP_RpcCliObserveUnReq);
  change("change after cancel", "set table 1000 val5");
}

// An application that refuses a notification answers it with a reset.
void RunRefusal() {
  const CoapRpcUriKey key = KeyOf("refused", COAP_RPC_CON, 1);
  Tell("refuse: start", [&] { Call(COAP_RpcCliObserveReq, key, COAP_RPC_GET); });
  g_verdict = 1;
  Tell("refuse: change", [] { Change("set refused 1000 val1"); });
  g_verdict = 0;
  Tell("refuse: next change", [] { Change("set refused 1000 val2"); });
}

}  // namespace

int main() {
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  if (ExampleStart(&g_example, "interop_client") != 0) return 1;
  for (const char *uri : {"echo", "slow", "bare", "large", "table", "refused", "ctl"}) {
    Register(uri);
  }
  RunPlain();
  RunObserve();
  RunRefusal();
  return ExampleEnd(&g_example);
}
