// interop_server: what the foreign clients of tests/interop/peers talk to.
//
//   interop_server [--seconds <n>]
//
// It serves 127.0.0.2:5683 and says on its output what its callbacks were given:
//
//   test, seg1/seg2/seg3  GET: as many bytes as the request has, and one; POST to test: 2.04
//   large                 GET and POST: as many bytes as the payload's number says
//   large-post            POST: 2.04 when the payload is the known pattern, else 2.01
//   large-echo            POST: as many bytes as the request has, and one
//   separate              GET: the payload comes back as a POST to port 5683 of the asker
//   unavailable           GET: asynchronous without a callback
//   obs, obs-large, obs-away
//                         observable tables of texts, in JSON; the second one with versions
//   obs-idl               the same in messages like "u:1000=val0" and "d:1000"
//   gone/<client>         tables for observers that vanish
//   ctl                   POST: "set <uri> <key> <value>", "del <uri> <key>", "away <uri>"
#include <coap_svc/rpc/coap_rpc_sync.h>
#include <kst_tmr.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>
#include <vector>

#include "example.h"
#include "interop_pattern.h"
#include "interop_table.h"

namespace {

constexpr uint8_t kSync = 0, kAsync = 1;
constexpr int32_t kChanged = -1;
constexpr uint32_t kAnswerDelayMs = 200;

Example g_example;

std::string TextOf(const uint8_t *payload, uint32_t len) { return {payload, payload + len}; }

// ---- at once ----

int32_t Report(const char *name, uint32_t len, int32_t result) {
  std::printf("request %s %u\n", name, len);
  return result;
}

int32_t OnTest(uint64_t, const CoapRpcSerReqInfo *, uint8_t *, uint32_t len, uint8_t *, uint32_t) {
  return Report("get", len, static_cast<int32_t>(len));
}

int32_t OnPost(uint64_t, const CoapRpcSerReqInfo *, uint8_t *, uint32_t len, uint8_t *, uint32_t) {
  return Report("post", len, kChanged);
}

int32_t OnLarge(uint64_t, const CoapRpcSerReqInfo *, uint8_t *payload, uint32_t len, uint8_t *,
                uint32_t) {
  return Report("large", len, std::atoi(TextOf(payload, len).c_str()) - 1);
}

int32_t OnLargePost(uint64_t, const CoapRpcSerReqInfo *, uint8_t *payload, uint32_t len, uint8_t *,
                    uint32_t) {
  const bool isGood = TextOf(payload, len) == InteropPattern(len);
  return Report(isGood ? "large-post" : "large-post-damaged", len, isGood ? kChanged : 0);
}

// ---- later ----

struct Answer {
  void *async;
  std::string text;
};
std::vector<Answer> g_answers;

uint32_t OnSeparate(uint64_t, uint8_t *payload, uint32_t len, void *async) {
  std::printf("request separate %u\n", len);
  g_answers.push_back({async, TextOf(payload, len)});
  return 0;
}

uint32_t AnswerAll(void *) {
  for (const auto &[async, text] : std::exchange(g_answers, {})) {
    COAP_RpcSerSendAsyncResponse(g_example.ctx, async,
                                 reinterpret_cast<const uint8_t *>(text.data()),
                                 static_cast<uint32_t>(text.size()));
  }
  return 0;
}

// ---- tables ----

InteropTables g_tables;

int32_t OnControl(uint64_t, const CoapRpcSerReqInfo *, uint8_t *payload, uint32_t len, uint8_t *,
                  uint32_t) {
  return g_tables.Obey(TextOf(payload, len)) ? kChanged : 0;
}

// ---- what is served ----

struct Row {
  const char *uri;
  uint32_t msgType;
  uint32_t pktType;
  uint8_t mode;
  CoapRpcSerOnRequest onRequest;
  CoapRpcSerOnAsyncRequest onAsyncRequest;
};

// A POST only finds UNICAST entries of its own message type.
constexpr Row kRows[] = {
    {"test", COAP_RPC_CON, COAP_RPC_DEFAULT, kSync, OnTest, nullptr},
    {"test", COAP_RPC_CON, COAP_RPC_UNICAST, kSync, OnPost, nullptr},
    {"test", COAP_RPC_NON, COAP_RPC_UNICAST, kSync, OnPost, nullptr},
    {"seg1/seg2/seg3", COAP_RPC_CON, COAP_RPC_DEFAULT, kSync, OnTest, nullptr},
    {"large", COAP_RPC_CON, COAP_RPC_DEFAULT, kSync, OnLarge, nullptr},
    {"large", COAP_RPC_CON, COAP_RPC_UNICAST, kSync, OnLarge, nullptr},
    {"large-post", COAP_RPC_CON, COAP_RPC_UNICAST, kSync, OnLargePost, nullptr},
    {"large-echo", COAP_RPC_CON, COAP_RPC_UNICAST, kSync, OnTest, nullptr},
    {"separate", COAP_RPC_CON, COAP_RPC_DEFAULT, kAsync, nullptr, OnSeparate},
    {"separate", COAP_RPC_NON, COAP_RPC_DEFAULT, kAsync, nullptr, OnSeparate},
    {"unavailable", COAP_RPC_CON, COAP_RPC_DEFAULT, kAsync, nullptr, nullptr},
    {"ctl", COAP_RPC_CON, COAP_RPC_UNICAST, kSync, OnControl, nullptr},
};

bool ServeRows() {
  return std::all_of(std::begin(kRows), std::end(kRows), [](const Row &row) {
    CoapRpcUriKey key = ExampleKey(row.uri, 0, row.pktType);
    key.msgType = row.msgType;
    CoapRpcSerVtblReg reg = {};
    reg.mode = row.mode;
    reg.onRequest = row.onRequest;
    reg.onAsyncRequest = row.onAsyncRequest;
    return ExampleServe(g_example.ctx, &key, &reg, nullptr, EXAMPLE_SERVER, EXAMPLE_PORT) == 0;
  });
}

// The large table has versions as well; observers of the base interface notice nothing.
bool ServeVersions() {
  CoapRpcSerSyncParam param = {};
  param.pageBytes = COAP_RPC_SYNC_MIN_PAGE;
  return std::any_of(g_tables.All().begin(), g_tables.All().end(), [&](const InteropTable &table) {
    return table.Uri() == "obs-large" &&
           COAP_RpcSerSetUriSync(g_example.ctx, &table.Key(), &param) == 0;
  });
}

}  // namespace

int main(int argc, char **argv) {
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  if (ExampleStart(&g_example, "interop_server") != 0) return 1;
  KST_TmrStartLoop(KestrelTmr(g_example.host), AnswerAll, kAnswerDelayMs, nullptr);
  const bool isServing =
      ServeRows() && g_tables.Serve(g_example.ctx, {"libcoap", "aiocoap", "node"}) &&
      ServeVersions();
  if (isServing) {
    std::printf("serving %s\n", EXAMPLE_SERVER);
    ExampleRun(&g_example, ExampleNumber(argc, argv, "--seconds", 0));
  }
  return ExampleEnd(&g_example) == 0 && isServing ? 0 : 1;
}
