// interop_call_client: makes calls to the foreign servers of tests/interop/peers, which stand on
// 127.0.0.2:5683.
//
//   interop_call_client <file of the cases> <peer>
//
// Prints a line for each case: its name, a tab, and what its calls came to.  A result reads
// "2.05 format 0: 'hello'", or says why there is no answer; " | " stands between the results.
//
// A case has steps, one after another.  A step is a call, and its result is told; with "observe":
//
//   start    an observation, which stays until the end of the case
//   hear     a call that changes what is observed: the notification is told
//   quiet    the same, when none should come
//   cancel   the observation is cancelled
#include <coap_svc/rpc/coap_rpc_call.h>
#include <jansson.h>
#include <poll.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "example.h"
#include "interop_pattern.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr size_t kMaxText = 40;
constexpr uint32_t kLinkFormat = 40;

Example g_example;

// WaitMs is how long a result may take; longer than what a peer does on purpose.
int WaitMs() {
  const char *slowness = std::getenv("INTEROP_SLOWNESS");
  return 5000 * (slowness ? std::atoi(slowness) : 1);
}

// ---- results ----

struct Heard {
  std::vector<std::string> texts;
  CoapRpcCallEtag etag = {};  // of the latest
  bool isOver = false;        // an observation's last news have come
};

std::string LinksText(const std::string &links) {
  const bool isKnown =
      links.find("</test>") != std::string::npos && links.find("</obs>") != std::string::npos;
  return isKnown ? "links, test and obs among them" : "links";
}

std::string PayloadText(const std::string &payload, uint32_t format) {
  if (format == kLinkFormat) return LinksText(payload);
  if (payload.size() <= kMaxText) return "'" + payload + "'";
  const bool isPattern = payload == InteropPattern(payload.size());
  return std::to_string(payload.size()) + (isPattern ? " bytes of the pattern" : " bytes");
}

std::string AnswerText(const CoapRpcCallRsp &rsp) {
  char code[16];
  std::snprintf(code, sizeof(code), "%u.%02u", rsp.code / 100, rsp.code % 100);
  std::string text = code;
  if (rsp.locationPath) text += std::string(" Location-Path ") + rsp.locationPath;
  const bool hasFormat = (rsp.has & COAP_RPC_CALL_HAS_FORMAT) != 0;
  if (hasFormat) text += " format " + std::to_string(rsp.contentFormat);
  if (!rsp.payload) return text;
  const std::string payload(rsp.payload, rsp.payload + rsp.payloadLen);
  return text + ": " + PayloadText(payload, hasFormat ? rsp.contentFormat : 0);
}

std::string StatusText(const CoapRpcCallRsp &rsp) {
  static const std::map<uint32_t, std::string> names = {{COAP_RPC_CALL_TIMEOUT, "timeout"},
                                                        {COAP_RPC_CALL_CANCELLED, "cancelled"},
                                                        {COAP_RPC_CALL_RESET, "reset"},
                                                        {COAP_RPC_CALL_UNREACHABLE, "unreachable"},
                                                        {COAP_RPC_CALL_STOPPED, "stopped"}};
  const auto found = names.find(rsp.status);
  return found != names.end() ? found->second : "status " + std::to_string(rsp.status);
}

void OnRsp(uint64_t heardAt, const CoapRpcCallRsp *rsp) {
  auto &heard = *reinterpret_cast<Heard *>(heardAt);
  const bool isAnswered = rsp->status == COAP_RPC_CALL_ANSWERED;
  heard.texts.push_back(isAnswered ? AnswerText(*rsp) : StatusText(*rsp));
  if (rsp->etag.len != 0) heard.etag = rsp->etag;
}

// The last news of an observation say so.
void OnNews(uint64_t heardAt, const CoapRpcCallRsp *rsp) {
  OnRsp(heardAt, rsp);
  auto &heard = *reinterpret_cast<Heard *>(heardAt);
  heard.isOver = rsp->isLast != 0;
  if (heard.isOver) heard.texts.back() += ", last";
}

// RunUntil runs the host until that is so, or the time is over.
void RunUntil(const std::function<bool()> &isSo, int ms) {
  const auto end = Clock::now() + std::chrono::milliseconds(ms);
  while (!isSo() && Clock::now() < end) {
    pollfd wait = {KestrelPollFd(g_example.host), POLLIN, 0};
    const int due = KestrelPollTimeoutMs(g_example.host);
    poll(&wait, 1, due < 0 ? 50 : std::min(due, 50));
    KestrelTurn(g_example.host);
  }
}

void RunUntilNum(const Heard &heard, size_t num) {
  RunUntil([&] { return heard.texts.size() >= num; }, WaitMs());
}

// ---- steps ----

// Step is a step of the file.
class Step {
 public:
  explicit Step(const json_t *json) : json_(json) {}

  std::string Text(const char *name, const char *otherwise = "") const {
    const char *text = json_string_value(json_object_get(json_, name));
    return text ? text : otherwise;
  }
  bool Is(const char *name, const char *value) const { return Text(name) == value; }
  bool Has(const char *name) const { return json_object_get(json_, name) != nullptr; }
  uint32_t Number(const char *name) const {
    return static_cast<uint32_t>(json_integer_value(json_object_get(json_, name)));
  }
  std::string Payload() const {
    return Has("pattern") ? InteropPattern(Number("pattern")) : Text("payload");
  }
  uint32_t Method() const {
    static const std::map<std::string, uint32_t> methods = {{"GET", COAP_RPC_GET},
                                                            {"POST", COAP_RPC_POST},
                                                            {"PUT", COAP_RPC_PUT},
                                                            {"DELETE", COAP_RPC_DELETE}};
    return methods.at(Text("method", "GET"));
  }

 private:
  const json_t *json_;
};

using CallFunc = decltype(&COAP_RpcCall);

// Case runs the steps of a case.
class Case {
 public:
  std::string Run(const json_t *steps) {
    for (size_t i = 0; i < json_array_size(steps) && !HasEnded(); ++i) {
      RunStep(Step(json_array_get(steps, i)));
    }
    std::string all;
    for (const std::string &text : told_) all += (all.empty() ? "" : " | ") + text;
    if (observation_ != 0 && !HasEnded()) COAP_RpcCallCancel(g_example.ctx, observation_);
    return all;
  }

 private:
  // HasEnded: the observation has, without a cancel.
  bool HasEnded() const { return observation_ != 0 && news_.isOver; }

  void RunStep(const Step &step) {
    if (step.Is("observe", "start")) return Observe(step);
    if (step.Is("observe", "cancel")) return Cancel();
    if (step.Has("observe")) return Change(step);
    Heard heard;
    heard.etag = etag_;
    Make(COAP_RpcCall, step, OnRsp, &heard, nullptr);
    etag_ = heard.etag;
    Tell(heard, 0, 1);
  }

  void Observe(const Step &step) {
    Make(COAP_RpcCallObserve, step, OnNews, &news_, &observation_);
    Tell(news_, 0, 1);
  }

  void Change(const Step &step) {
    const size_t numBefore = news_.texts.size();
    Heard heard;
    Make(COAP_RpcCall, step, OnRsp, &heard, nullptr);
    if (heard.texts.empty() || heard.texts[0].substr(0, 2) != "2.") Tell(heard, 0, 1);
    RunUntilNum(news_, numBefore + (step.Is("observe", "hear") ? 1 : 0));
    if (step.Is("observe", "quiet")) RunUntil([] { return false; }, WaitMs() / 5);
    Tell(news_, numBefore, step.Is("observe", "hear") ? 1 : 0);
  }

  void Cancel() {
    const size_t numBefore = news_.texts.size();
    const uint32_t result = COAP_RpcCallCancel(g_example.ctx, observation_);
    if (result != 0) told_.push_back(std::string("not cancelled: ") + COAP_RpcErrStr(result));
    observation_ = 0;
    Tell(news_, numBefore, 1);
    RunUntil([] { return COAP_RpcGetCallNum(g_example.ctx) == 0; }, WaitMs());
  }

  // Tell notes the news since then; "nothing" stands for what was expected.
  void Tell(const Heard &heard, size_t numBefore, size_t numExpected) {
    told_.insert(told_.end(), heard.texts.begin() + static_cast<ptrdiff_t>(numBefore),
                 heard.texts.end());
    if (heard.texts.size() < numBefore + numExpected) told_.push_back("nothing");
  }

  void Make(CallFunc func, const Step &step, CoapRpcOnCallRsp onRsp, Heard *heard,
            uint64_t *idOut) {
    const std::string path = step.Text("path"), query = step.Text("query");
    const std::string payload = step.Payload();
    CoapRpcCall call = {};
    call.method = step.Method();
    call.isNon = step.Has("non") ? 1 : 0;
    call.path = path.c_str();
    call.query = query.c_str();
    call.payload = payload.empty() ? nullptr : reinterpret_cast<const uint8_t *>(payload.data());
    call.payloadLen = static_cast<uint32_t>(payload.size());
    SetOptions(step, &call);
    call.userData = reinterpret_cast<uint64_t>(heard);
    call.onRsp = onRsp;
    call.deadlineMs = static_cast<uint32_t>(WaitMs());
    const size_t numBefore = heard->texts.size();
    uint64_t id = 0;
    const uint32_t result = func(g_example.ctx, &kPeer, &call, &id);
    if (result != 0) heard->texts.push_back(std::string("refused: ") + COAP_RpcErrStr(result));
    if (idOut) *idOut = id;
    // The deadline is told too, so an end always comes.
    RunUntil([&] { return heard->texts.size() > numBefore; }, 2 * WaitMs());
  }

  void SetOptions(const Step &step, CoapRpcCall *call) const {
    if (call->payload) call->has |= COAP_RPC_CALL_HAS_FORMAT;  // 0: text
    if (step.Has("accept")) call->has |= COAP_RPC_CALL_HAS_ACCEPT;
    call->accept = step.Number("accept");
    if (step.Has("ifNoneMatch")) call->has |= COAP_RPC_CALL_HAS_IF_NONE_MATCH;
    call->etags = call->ifMatch = &etag_;
    if (step.Has("etag")) call->numEtags = 1;
    if (step.Has("ifMatch")) call->numIfMatch = 1;
  }

  static inline const CoapRpcCallAddr kPeer = [] {
    CoapRpcCallAddr addr = {};
    addr.srcIp = ExampleIpv4(EXAMPLE_CLIENT);
    addr.dstIp = ExampleIpv4(EXAMPLE_SERVER);
    addr.dstPort = EXAMPLE_PORT;
    return addr;
  }();

  std::vector<std::string> told_;
  Heard news_;
  uint64_t observation_ = 0;
  CoapRpcCallEtag etag_ = {};
};

// ---- cases ----

std::string RunCase(const json_t *each, const char *peer) {
  const json_t *reason = json_object_get(json_object_get(each, "cannot"), peer);
  if (reason) return std::string("cannot: ") + json_string_value(reason);
  const json_t *own = json_object_get(json_object_get(each, "at"), peer);
  return Case().Run(own ? own : json_object_get(each, "steps"));
}

}  // namespace

int main(int argc, char **argv) {
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  json_t *cases = argc == 3 ? json_load_file(argv[1], 0, nullptr) : nullptr;
  const json_t *calls = json_object_get(cases, "calls");
  if (!calls || ExampleStart(&g_example, "interop_calls") != 0) return 1;
  for (size_t i = 0; i < json_array_size(calls); ++i) {
    const json_t *each = json_array_get(calls, i);
    std::printf("%s\t%s\n", json_string_value(json_object_get(each, "id")),
                RunCase(each, argv[2]).c_str());
  }
  json_decref(cases);
  return ExampleEnd(&g_example);
}
