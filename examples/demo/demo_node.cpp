#include "demo_node.h"

#include <coap_svc/rpc/coap_rpc_ext.h>
#include <kst_tmr.h>
#include <poll.h>

#include <algorithm>
#include <cstdio>
#include <list>
#include <utility>

namespace {

// Warnings, which are all that this program's log takes: it is not even asked about the lines for each
// datagram.
constexpr uint32_t kLibLogLevel = 4;
constexpr int kMaxWaitMs = 20;

void OnReadable(void *param, int) { COAP_RpcProcIo(static_cast<CoapRpcCtx *>(param)); }

uint32_t CallWork(void *work) {
  (*static_cast<std::function<void()> *>(work))();
  return 0;
}

}  // namespace

double SecondsSince(DemoClock::time_point start) {
  return std::chrono::duration<double>(DemoClock::now() - start).count();
}

Node::Node(Kestrel *host, const char *name, std::string self, std::string other)
    : host_(host), self_(std::move(self)), other_(std::move(other)) {
  CoapRpcInitParam param = {};
  param.name = name;
  param.logEnable = 1;
  param.memHandle = KestrelMem(host);
  param.dispHandle = KestrelDisp(host);
  param.logHandle = KestrelLog(host);
  param.tmrHandle = KestrelTmr(host);
  ctx_ = COAP_RpcInit(&param);
  if (!ctx_) return;
  COAP_RpcSetLibLogLevel(ctx_, kLibLogLevel);
  KestrelWatch(host_, COAP_RpcGetIoFd(ctx_), OnReadable, ctx_);
}

Node::~Node() {
  if (!ctx_) return;
  KestrelUnwatch(host_, COAP_RpcGetIoFd(ctx_));
  COAP_RpcUninit(ctx_);
}

Kestrel *MakeDemoHost(const std::string &name, const std::string &folder) {
  const std::string logFile = folder + "/" + name + ".log", socket = folder + "/" + name + ".sock";
  KestrelParam param = {};
  char error[256] = "";
  param.name = name.c_str();
  param.logLevel = KESTREL_LEVEL_WARN;
  param.logSinks = KESTREL_SINK_FILE;
  param.logFile = logFile.c_str();
  Kestrel *host = KestrelNew(&param, error, sizeof(error));
  if (!host) {
    std::fprintf(stderr, "%s: no host: %s\n", name.c_str(), error);
    return nullptr;
  }
  KestrelDispAccess access = {};
  access.path = socket.c_str();
  const uint32_t ret = KestrelDispListen(host, &access);
  if (ret != KESTREL_OK) {
    std::fprintf(stderr, "%s: %s: %s\n", name.c_str(), socket.c_str(), KestrelResultText(ret));
  }
  return host;
}

void Every(Kestrel *host, uint32_t periodMs, std::function<void()> work) {
  static std::list<std::function<void()>> works;
  works.push_back(std::move(work));
  KST_TmrStartLoop(KestrelTmr(host), CallWork, periodMs, &works.back());
}

bool RunUntil(Kestrel *host, double seconds, const std::function<bool()> &isDone) {
  const auto start = DemoClock::now();
  while (!isDone()) {
    if (SecondsSince(start) > seconds) return false;
    const int dueMs = KestrelPollTimeoutMs(host);
    pollfd waiting = {KestrelPollFd(host), POLLIN, 0};
    poll(&waiting, 1, dueMs < 0 ? kMaxWaitMs : std::min(dueMs, kMaxWaitMs));
    if (KestrelTurn(host) != KESTREL_OK) return false;
  }
  return true;
}
