/* fuzz_host.cpp: a lean host for fuzz targets. */
#include "fuzz_host.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "coap_svc/rpc/coap_rpc_test.h"
#include "csvc_dbg.h"
#include "fresh_memory.h"
#include "host/edge.h"
#include "kst_mem.h"
#include "test_process.h"

using coap_rpc_test::TestProcess;
using fuzz::Host;
using kestrel::FromHandle;
using kestrel::HandleOf;

namespace fuzz {
namespace {

constexpr size_t kMaxBytes = size_t{64} << 20;  // of one allocation

uint64_t ElapsedMs() { return TestProcess::Get().ElapsedMs(); }

}  // namespace

CoapRpcUriKey KeyOf(const char *uri, uint32_t msgType, uint32_t observe, uint32_t pktType) {
  CoapRpcUriKey key = {};
  memcpy(key.uri, uri, strnlen(uri, sizeof(key.uri)));
  key.msgType = msgType;
  key.observe = observe;
  key.pktType = pktType;
  return key;
}

Host::Host() {
  TestProcess::Get().Reset();
  COAP_RpcTestSetClock(ElapsedMs);
}

Host::~Host() {
  Check(numLive_ == 0, "memory was not freed");
  Check(timers_.empty(), "timers were not stopped");
  Check(disp_.Registry().All().empty(), "display objects were not unregistered");
}

CoapRpcInitParam Host::Param() {
  CoapRpcInitParam param = {};
  param.name = kInstanceName;
  param.logEnable = 1;
  param.memHandle = param.tmrHandle = param.dbgHandle = HandleOf(this);
  param.dispHandle = HandleOf(&disp_);
  param.logHandle = HandleOf(&log_);
  return param;
}

void Host::AdvanceMs(uint32_t ms) {
  TestProcess &process = TestProcess::Get();
  process.FollowTo(process.ElapsedMs() + ms);
  while (Timer *due = FirstDue()) {
    due->dueMs +=
        (process.ElapsedMs() - due->dueMs) / due->periodMs * due->periodMs + due->periodMs;
    const Timer called = *due;  // the tick may stop it
    called.tick(called.param);
  }
}

Host::Timer *Host::FirstDue() {
  const uint64_t nowMs = TestProcess::Get().ElapsedMs();
  Timer *first = nullptr;
  for (Timer &timer : timers_) {
    if (timer.dueMs <= nowMs && (!first || timer.dueMs < first->dueMs)) first = &timer;
  }
  return first;
}

void *Host::Malloc(size_t size) {
  if (size > kMaxBytes || (failAt_ != 0 && --failAt_ == 0)) return nullptr;
  void *p = malloc(std::max<size_t>(size, 1));
  if (!p) return nullptr;
  ++numLive_;
  coap_rpc_test::MarkFresh(p, size);
  return p;
}

void Host::Free(void *p) {
  if (!p) return;
  Check(numLive_ != 0, "more memory was freed than allocated");
  --numLive_;
  free(p);
}

uint64_t Host::StartTimer(KST_TmrTick tick, uint32_t periodMs, void *param) {
  timers_.push_back(
      {++lastTimerId_, tick, periodMs, param, TestProcess::Get().ElapsedMs() + periodMs});
  return lastTimerId_;
}

void Host::StopTimer(uint64_t id) {
  std::erase_if(timers_, [id](const Timer &timer) { return timer.id == id; });
}

}  // namespace fuzz

namespace {

// Render reads all arguments of a text, so that address checkers see them.  To follow an input, the
// texts are printed when the environment has FUZZ_LOG.
__attribute__((format(printf, 1, 0))) void Render(const char *fmt, va_list args) {
  static const bool isPrinted = getenv("FUZZ_LOG") != nullptr;
  static char text[8192];
  vsnprintf(text, sizeof(text), fmt, args);
  if (isPrinted) std::fprintf(stderr, "%s\n", text);
}

}  // namespace

void *KST_Malloc_(uint64_t mem, size_t size, const char *, uint32_t) {
  return mem != 0 ? FromHandle<Host>(mem)->Malloc(size) : nullptr;
}

uint32_t KST_Free_(uint64_t mem, void *p, const char *, uint32_t) {
  if (mem != 0) FromHandle<Host>(mem)->Free(p);
  return 0;
}

char *KST_StrNew(uint64_t mem, const char *fmt, ...) {
  va_list args;
  va_start(args, fmt);
  const std::string text = kestrel::FormatV(fmt, args);
  va_end(args);
  auto *copy = static_cast<char *>(KST_Malloc_(mem, text.size() + 1, "", 0));
  if (copy) memcpy(copy, text.c_str(), text.size() + 1);
  return copy;
}

void KST_StrDel(uint64_t mem, char *s) { KST_Free_(mem, s, "", 0); }

uint64_t KST_TmrStartLoop(uint64_t tmr, KST_TmrTick tick, uint32_t periodMs, void *param) {
  return tmr != 0 ? FromHandle<Host>(tmr)->StartTimer(tick, periodMs, param) : 0;
}

void KST_TmrStop(uint64_t tmr, uint64_t id) {
  if (tmr != 0) FromHandle<Host>(tmr)->StopTimer(id);
}

void KST_LogCnt(uint64_t, const char *, uint32_t) {}

uint32_t KST_LogFirstHalf_(uint64_t log, const char *, uint32_t, uint32_t) {
  return log != 0 ? 0 : 1;
}

void KST_LogSecondHalf_(uint64_t, const char *, uint32_t, uint32_t, const char *, const char *fmt,
                        ...) {
  va_list args;
  va_start(args, fmt);
  Render(fmt, args);
  va_end(args);
}

void CSVC_DBG_Debug(uint64_t, uint32_t, const char *fmt, ...) {
  va_list args;
  va_start(args, fmt);
  Render(fmt, args);
  va_end(args);
}

void CSVC_DBG_SysLog(uint64_t, uint32_t, const char *fmt, ...) {
  va_list args;
  va_start(args, fmt);
  Render(fmt, args);
  va_end(args);
}
