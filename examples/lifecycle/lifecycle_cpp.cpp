// lifecycle_cpp.cpp: an instance owned by C++ objects, running for a moment on the reference host.
#include <coap_svc/rpc/coap_rpc.h>
#include <kestrel.h>
#include <kst_tmr.h>

#include <cstdio>
#include <memory>

namespace {

struct HostDeleter {
  void operator()(Kestrel *host) const { KestrelDelete(host); }
};
struct InstanceDeleter {
  void operator()(CoapRpcCtx *ctx) const { COAP_RpcUninit(ctx); }
};
using Host = std::unique_ptr<Kestrel, HostDeleter>;
using Instance = std::unique_ptr<CoapRpcCtx, InstanceDeleter>;

Instance MakeInstance(Kestrel *host) {
  CoapRpcInitParam param = {};
  param.name = "lifecycle";
  param.logEnable = 1;
  param.memHandle = KestrelMem(host);
  param.dispHandle = KestrelDisp(host);
  param.logHandle = KestrelLog(host);
  param.tmrHandle = KestrelTmr(host);
  return Instance(COAP_RpcInit(&param));
}

// A tick of our own: after the second one the loop ends.
uint32_t CountTicks(void *param) {
  auto *host = static_cast<Kestrel *>(param);
  static int numTicks = 0;
  std::printf("tick %d\n", ++numTicks);
  return numTicks == 2 ? KestrelStop(host) : 0;
}

}  // namespace

int main() {
  char error[256];
  const Host host(KestrelNew(nullptr, error, sizeof(error)));
  if (!host) {
    std::fprintf(stderr, "no host: %s\n", error);
    return 1;
  }
  const Instance instance = MakeInstance(host.get());
  if (!instance) {
    std::fprintf(stderr, "the instance did not start, see the log\n");
    return 1;
  }

  const uint64_t timer = KST_TmrStartLoop(KestrelTmr(host.get()), CountTicks, 100, host.get());
  const uint32_t result = KestrelRun(host.get());
  KST_TmrStop(KestrelTmr(host.get()), timer);
  std::printf("loop ended: %s\n", KestrelResultText(result));
  return result == KESTREL_OK ? 0 : 1;
}
