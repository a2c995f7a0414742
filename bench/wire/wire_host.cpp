#include "wire_host.h"

#include <signal.h>

#include <cstdio>
#include <cstdlib>

#include "clock.h"
#include "coap_svc/rpc/coap_rpc_ext.h"
#include "coap_svc/rpc/common/coap_rpc_limits.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_rounds.h"
#include "kestrel_param.h"
#include "libcoap/ext/coap_rpc_lib_internals.h"
#include "options.h"

namespace coap_rpc_bench {
namespace {

constexpr uint64_t kNsPerMs = 1000000;
constexpr uint32_t kQuietLevel = COAP_LOG_WARN;
constexpr uint32_t kPlainWaitMs = 1000;

// For the signal handler.
Kestrel *g_host;
volatile sig_atomic_t g_isStopped;

void StopOnSignal(int) {
  g_isStopped = 1;
  KestrelStop(g_host);
}

void SayReady() {
  printf("ready\n");
  fflush(stdout);
}

void ServeInstance(void *instance, int) { COAP_RpcProcIo(static_cast<CoapRpcCtx *>(instance)); }

// ServeContext reads as the library does.
void ServeContext(void *context, int) {
  static uint32_t numFirst = 0;
  coap_rpc::ReadRounds rounds(numFirst);
  const uint64_t endNs = NowNs() + coap_rpc::kIoBudgetMs * kNsPerMs;
  while (rounds.Serve(static_cast<coap_context_t *>(context)) && NowNs() < endNs) {
  }
  numFirst = rounds.First();
}

void DropMessage(coap_log_t, const char *) {}

}  // namespace

Logging LoggingOf(const Options &options) {
  if (options.Is("--logging", "debug")) return Logging::kDebug;
  return options.Is("--logging", "default") ? Logging::kDefault : Logging::kNone;
}

WireHost::WireHost(Logging logging) : logging_(logging) {
  KestrelParam param = {};
  param.name = "bench";
  param.logSinks = KESTREL_SINK_NONE;
  host_ = KestrelNew(&param, nullptr, 0);
  if (!host_) abort();
  g_host = host_;
  signal(SIGTERM, StopOnSignal);
}

WireHost::~WireHost() {
  signal(SIGTERM, SIG_DFL);
  if (instance_) {
    KestrelUnwatch(host_, COAP_RpcGetIoFd(instance_));
    COAP_RpcUninit(instance_);
  }
  if (context_) {
    KestrelUnwatch(host_, coap_context_get_coap_fd(context_));
    coap_free_context(context_);
  }
  KestrelDelete(host_);
}

CoapRpcCtx *WireHost::NewInstance() {
  const bool isLogging = logging_ != Logging::kNone;
  CoapRpcInitParam param = coap_rpc_test::ParamOn(host_, "bench");
  param.logEnable = isLogging ? 1 : 0;
  param.logHandle = KestrelLog(host_);
  if (logging_ == Logging::kDebug) param.dbgHandle = KestrelDbg(host_);
  instance_ = COAP_RpcInit(&param);
  if (!instance_) abort();
  if (!isLogging) COAP_RpcSetLibLogLevel(instance_, kQuietLevel);
  KestrelWatch(host_, COAP_RpcGetIoFd(instance_), ServeInstance, instance_);
  return instance_;
}

coap_context_t *WireHost::NewContext() {
  coap_startup();
  coap_set_log_level(logging_ != Logging::kNone ? static_cast<coap_log_t>(coap_rpc::kLibLogLevel)
                                                : static_cast<coap_log_t>(kQuietLevel));
  coap_set_log_handler(DropMessage);
  coap_set_show_pdu_output(0);
  context_ = coap_new_context(nullptr);
  if (!context_) abort();
  coap_context_set_block_mode(context_, coap_rpc::kBlockMode);
  coap_context_set_max_idle_sessions(context_, coap_rpc::kMaxIdleSessions);
  KestrelWatch(host_, coap_context_get_coap_fd(context_), ServeContext, context_);
  return context_;
}

void WireHost::Run() {
  SayReady();
  KestrelRun(host_);
}

void WireHost::RunPlain() {
  SayReady();
  while (!g_isStopped && coap_io_process(context_, kPlainWaitMs) >= 0) {
  }
}

void WireHost::Stop() { KestrelStop(host_); }

coap_endpoint_t *NewEndPoint(coap_context_t *context, uint32_t ipv4, uint16_t port) {
  coap_address_t addr;
  coap_address_init(&addr);
  addr.size = sizeof(addr.addr.sin);
  addr.addr.sin = Ipv4Address(ipv4, port);
  coap_endpoint_t *endPoint = CoapRpcLibNewEndPoint(context, &addr, COAP_PROTO_UDP);
  if (!endPoint) abort();
  return endPoint;
}

}  // namespace coap_rpc_bench
