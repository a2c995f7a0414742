// interop_direct_server: direct entries, for the foreign clients of tests/interop/peers.
//
//   interop_direct_server [--seconds <n>]
//
// It serves 127.0.0.2:5683:
//
//   test                  GET: "hello"; PUT: 2.04; POST: the payload in capitals; DELETE: 2.02
//   seg1/seg2/seg3        GET: "hello"
//   query                 GET: the arguments first and second
//   separate              GET: "later", 200 ms later
//   large-separate        GET: 5000 bytes of the pattern, 200 ms later
//   fail                  GET: 5.03 with a text, 200 ms later
//   location              POST: 2.01 at location/1?first=1
//   accept                GET: a text, for Accept 50 in JSON; for other formats 4.06
//   validate              GET: "hello" with the ETag 0102, or 2.03 for that; PUT: 2.04, or 4.12 for
//                         another If-Match
//   large                 GET: 20,000 bytes of the pattern; PUT, POST: 2.04 when the payload is the
//                         pattern, else 4.00
//   large-echo            POST: the payload
//   obs, obs-large, obs-away, gone/<client>, ctl
//                         as those of interop_server, but direct
//
// The resource types are Type1 (query), Type2 (separate) and both (accept), whose interface is If1.
#include <coap_svc/rpc/coap_rpc_direct.h>
#include <kst_tmr.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "example.h"
#include "interop_pattern.h"
#include "interop_table.h"

namespace {

constexpr uint8_t kSync = 0, kAsync = 1;
constexpr uint32_t kAnswerDelayMs = 200;
constexpr uint32_t kText = 0, kJson = 50;
constexpr size_t kLargeLen = 20000, kSeparateLen = 5000;

Example g_example;
InteropTables g_tables;

// ---- answers ----

struct Request {
  CoapRpcSerRequest info;
  std::string payload;
};

struct Answer {
  uint32_t code;
  std::string payload;
  uint32_t format = kText;
};

const Answer kHello = {205, "hello"};

std::string QueryOf(const char *name) {
  char value[32];
  if (COAP_RpcSerGetQuery(g_example.ctx, name, value, sizeof(value)) != 0) return "none";
  return std::string(name) + "=" + value;
}

Answer Upper(std::string text) {
  for (char &letter : text) letter = static_cast<char>(std::toupper(letter));
  return {204, text};
}

Answer Test(const Request &request) {
  switch (request.info.method) {
    case COAP_RPC_GET:
      return kHello;
    case COAP_RPC_POST:
      return Upper(request.payload);
    case COAP_RPC_DELETE:
      return {202, ""};
    default:
      return {204, ""};
  }
}

Answer Hello(const Request &) { return kHello; }

Answer Query(const Request &) { return {205, QueryOf("first") + " " + QueryOf("second")}; }

void AddOption(uint32_t number, const std::string &value) {
  COAP_RpcSerAddAnswerOption(g_example.ctx, number, value.data(),
                             static_cast<uint32_t>(value.size()));
}

Answer Location(const Request &) {
  AddOption(COAP_RPC_OPTION_LOCATION_PATH, "location");
  AddOption(COAP_RPC_OPTION_LOCATION_PATH, "1");
  AddOption(COAP_RPC_OPTION_LOCATION_QUERY, "first=1");
  return {201, ""};
}

Answer Accept(const Request &request) {
  const uint32_t accept = request.info.accept;
  if (accept == kJson) return {205, "{\"text\":\"hello\"}", kJson};
  if (accept == kText || accept == COAP_RPC_DIRECT_NO_FORMAT) return kHello;
  return {406, ""};
}

const std::string kETag = "\x01\x02";

std::vector<std::string> OptionsOf(uint32_t number) {
  std::vector<std::string> found;
  char value[8];
  uint32_t len = 0;
  while (COAP_RpcSerGetOption(g_example.ctx, number, static_cast<uint32_t>(found.size()), value,
                              sizeof(value), &len) == 0) {
    found.emplace_back(value, len);
  }
  return found;
}

bool Names(const std::vector<std::string> &etags) {
  return std::find(etags.begin(), etags.end(), kETag) != etags.end();
}

Answer Replace() {
  const std::vector<std::string> etags = OptionsOf(COAP_RPC_OPTION_IF_MATCH);
  return {etags.empty() || Names(etags) ? 204u : 412u, ""};
}

Answer Validate(const Request &request) {
  if (request.info.method == COAP_RPC_PUT) return Replace();
  AddOption(COAP_RPC_OPTION_ETAG, kETag);
  return Names(OptionsOf(COAP_RPC_OPTION_ETAG)) ? Answer{203, ""} : kHello;
}

Answer Large(const Request &request) {
  if (request.info.method == COAP_RPC_GET) return {205, InteropPattern(kLargeLen)};
  const bool isGood = request.payload == InteropPattern(request.payload.size());
  return {isGood ? 204u : 400u, ""};
}

Answer Echo(const Request &request) { return {204, request.payload}; }

Answer Control(const Request &request) {
  return {g_tables.Obey(request.payload) ? 204u : 404u, ""};
}

// ---- at once ----

using Serve = Answer (*)(const Request &);

int32_t OnRequest(uint64_t serve, const CoapRpcSerReqInfo *, uint8_t *payload, uint32_t len,
                  uint8_t *out, uint32_t size) {
  Request request = {{}, {payload, payload + len}};
  if (COAP_RpcSerGetRequest(g_example.ctx, &request.info) != 0) return -1;
  const Answer answer = reinterpret_cast<Serve>(serve)(request);
  COAP_RpcSerSetAnswer(g_example.ctx, answer.code, answer.format);
  return static_cast<int32_t>(answer.payload.copy(reinterpret_cast<char *>(out), size));
}

// ---- later ----

struct Later {
  void *async;
  std::string text;
};
std::vector<Later> g_later;

uint32_t Defer(void *async, const std::string &text) {
  COAP_RpcSerSetAnswer(g_example.ctx, 205, kText);
  g_later.push_back({async, text});
  return 0;
}

uint32_t OnSeparate(uint64_t, uint8_t *, uint32_t, void *async) { return Defer(async, "later"); }

uint32_t OnLargeSeparate(uint64_t, uint8_t *, uint32_t, void *async) {
  return Defer(async, InteropPattern(kSeparateLen));
}

uint32_t OnFail(uint64_t, uint8_t *, uint32_t, void *async) {
  g_later.push_back({async, ""});
  return 0;
}

void AnswerLater(const Later &later) {
  if (later.text.empty()) {
    COAP_RpcSerFailAsync(g_example.ctx, later.async, 503, "busy");
  } else {
    COAP_RpcSerSendAsyncResponse(g_example.ctx, later.async,
                                 reinterpret_cast<const uint8_t *>(later.text.data()),
                                 static_cast<uint32_t>(later.text.size()));
  }
}

uint32_t AnswerAll(void *) {
  for (const Later &later : std::exchange(g_later, {})) AnswerLater(later);
  return 0;
}

// ---- what is served ----

struct Row {
  const char *uri;
  uint32_t methods;
  Serve serve;
  CoapRpcSerOnAsyncRequest onAsyncRequest;
};

constexpr uint32_t kPut = COAP_RPC_ALLOW_GET | COAP_RPC_ALLOW_POST | COAP_RPC_ALLOW_PUT;

constexpr Row kRows[] = {
    {"test", COAP_RPC_ALLOW_ALL, Test, nullptr},
    {"seg1/seg2/seg3", COAP_RPC_ALLOW_GET, Hello, nullptr},
    {"query", COAP_RPC_ALLOW_GET, Query, nullptr},
    {"location", COAP_RPC_ALLOW_POST, Location, nullptr},
    {"accept", COAP_RPC_ALLOW_GET, Accept, nullptr},
    {"validate", COAP_RPC_ALLOW_GET | COAP_RPC_ALLOW_PUT, Validate, nullptr},
    {"large", kPut, Large, nullptr},
    {"large-echo", COAP_RPC_ALLOW_POST, Echo, nullptr},
    {"ctl", COAP_RPC_ALLOW_POST, Control, nullptr},
    {"separate", COAP_RPC_ALLOW_GET, nullptr, OnSeparate},
    {"large-separate", COAP_RPC_ALLOW_GET, nullptr, OnLargeSeparate},
    {"fail", COAP_RPC_ALLOW_GET, nullptr, OnFail},
};

struct Link {
  const char *uri;
  const char *name;
  const char *value;
};

constexpr Link kLinks[] = {
    {"query", "rt", "Type1"},
    {"separate", "rt", "Type2"},
    {"accept", "rt", "Type1 Type2"},
    {"accept", "if", "If1"},
};

bool SetLink(const Link &link) {
  const CoapRpcUriKey key = ExampleKey(link.uri, 0, COAP_RPC_DEFAULT);
  return COAP_RpcSerSetLinkAttribute(g_example.ctx, &key, link.name, link.value) == 0;
}

bool MakeDirect(const CoapRpcUriKey &key, uint32_t methods) {
  CoapRpcSerDirectParam param = {};
  param.methods = methods;
  return COAP_RpcSerSetDirect(g_example.ctx, &key, &param) == 0;
}

bool ServeRow(const Row &row) {
  const CoapRpcUriKey key = ExampleKey(row.uri, 0, COAP_RPC_DEFAULT);
  CoapRpcSerVtblReg reg = {};
  reg.mode = row.serve ? kSync : kAsync;
  reg.userData = reinterpret_cast<uint64_t>(row.serve);
  reg.onRequest = OnRequest;
  reg.onAsyncRequest = row.onAsyncRequest;
  return ExampleServe(g_example.ctx, &key, &reg, nullptr, EXAMPLE_SERVER, EXAMPLE_PORT) == 0 &&
         MakeDirect(key, row.methods);
}

bool ServeTables() {
  return g_tables.Serve(g_example.ctx, {"libcoap", "aiocoap", "node", "gocoap", "californium"}) &&
         std::all_of(g_tables.All().begin(), g_tables.All().end(), [](const InteropTable &table) {
           return MakeDirect(table.Key(), COAP_RPC_ALLOW_GET);
         });
}

bool ServeAll() {
  return std::all_of(std::begin(kRows), std::end(kRows), ServeRow) &&
         std::all_of(std::begin(kLinks), std::end(kLinks), SetLink) && ServeTables();
}

}  // namespace

int main(int argc, char **argv) {
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  if (ExampleStart(&g_example, "interop_direct") != 0) return 1;
  KST_TmrStartLoop(KestrelTmr(g_example.host), AnswerAll, kAnswerDelayMs, nullptr);
  const bool isServing = ServeAll();
  if (isServing) {
    std::printf("serving %s\n", EXAMPLE_SERVER);
    ExampleRun(&g_example, ExampleNumber(argc, argv, "--seconds", 0));
  }
  return ExampleEnd(&g_example) == 0 && isServing ? 0 : 1;
}
