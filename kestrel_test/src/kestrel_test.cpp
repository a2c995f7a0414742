/* kestrel_test.cpp: the host under test control with its C interface. */
#include "kestrel_test.h"

#include <poll.h>
#include <sched.h>

#include <algorithm>
#include <cstdio>
#include <vector>

#include "coap_svc/rpc/coap_rpc_ext.h"
#include "coap_svc/rpc/coap_rpc_stats.h"
#include "coap_svc/rpc/coap_rpc_test.h"
#include "complaint.h"
#include "csvc_dbg.h"
#include "kst.h"
#include "osal.h"
#include "test_services.h"

using coap_rpc_test::Complain;
using coap_rpc_test::LogKind;
using coap_rpc_test::LogRecord;
using coap_rpc_test::NumComplaints;
using coap_rpc_test::TestProcess;
using coap_rpc_test::TestServices;

struct KestrelTest {
  TestServices services;
  std::vector<CoapRpcCtx *> driven;
  uint64_t numComplaints = NumComplaints();  // before this host
  bool isRunning = false;
};

namespace {

constexpr uint64_t kStepMs = 100, kIdleMs = 2000;
constexpr int kMaxRounds = 1000;  // peers that never stop must not stop time

uint64_t ElapsedMs() { return TestProcess::Get().ElapsedMs(); }

bool IsReadable(CoapRpcCtx *ctx) {
  pollfd ask = {COAP_RpcGetIoFd(ctx), POLLIN, 0};
  return poll(&ask, 1, 0) > 0;
}

bool IsDriven(const KestrelTest &host, const CoapRpcCtx *ctx) {
  return std::find(host.driven.begin(), host.driven.end(), ctx) != host.driven.end();
}

// Run runs the driven instances that have work.  Returns whether there was one.  A callback may
// change who is driven.
template <typename HasWork>
bool Run(KestrelTest *host, HasWork hasWork) {
  bool hasRun = false;
  for (CoapRpcCtx *ctx : std::vector<CoapRpcCtx *>(host->driven)) {
    if (!IsDriven(*host, ctx) || !hasWork(ctx)) continue;
    COAP_RpcProcIo(ctx);
    hasRun = true;
  }
  return hasRun;
}

// Settle runs all instances once, since time has moved, and then those that have got something. The
// system may deliver datagrams in a thread of its own: yielding lets it.
void Settle(KestrelTest *host) {
  Run(host, [](CoapRpcCtx *) { return true; });
  for (int round = 0; round < kMaxRounds; ++round) {
    if (Run(host, IsReadable)) continue;
    sched_yield();
    if (!Run(host, IsReadable)) return;
  }
}

void Advance(KestrelTest *host, uint64_t ms) {
  auto &timers = host->services.Timers();
  const uint64_t untilMs = timers.NowMs() + ms;
  Settle(host);
  while (timers.NowMs() < untilMs) {
    const uint64_t stepMs = std::min(untilMs, timers.NowMs() + kStepMs);
    timers.AdvanceMs((host->driven.empty() ? untilMs : timers.NextDueMs(stepMs)) - timers.NowMs());
    Settle(host);
  }
}

// Activity is what has to stand still for an instance to be idle.
struct Activity {
  uint64_t numMessages = 0, numCalls = 0;
};

Activity ActivityOf(const KestrelTest *host) {
  Activity activity;
  for (CoapRpcCtx *ctx : host->driven) {
    CoapRpcStats stats = {};
    stats.size = sizeof(stats);
    COAP_RpcGetStats(ctx, &stats);
    activity.numMessages += stats.in.messages + stats.out.messages;
    activity.numCalls += stats.openCalls;
  }
  return activity;
}

// IdleWatch notes since when nothing has been going on.
struct IdleWatch {
  KestrelTest *host;
  uint64_t sinceMs;
  uint64_t numMessages;
};

uint32_t IsIdle(void *param) {
  auto *watch = static_cast<IdleWatch *>(param);
  const Activity now = ActivityOf(watch->host);
  const uint64_t nowMs = watch->host->services.Timers().NowMs();
  const bool isQuiet = now.numCalls == 0 && now.numMessages == watch->numMessages;
  if (!isQuiet) watch->sinceMs = nowMs;
  watch->numMessages = now.numMessages;
  return nowMs - watch->sinceMs >= kIdleMs;
}

uint64_t NumLeft(const TestServices &services) {
  return services.Pool().LiveCount() + services.Timers().Running().size() +
         services.Display().Objects().size();
}

std::vector<const LogRecord *> LinesOf(const KestrelTest *host) {
  std::vector<const LogRecord *> lines;
  for (const LogRecord &record : host->services.Logs().Records()) {
    if (record.kind == LogKind::kSecond) lines.push_back(&record);
  }
  return lines;
}

// One function of each file that only the shared library calls: an archive gives what is asked for
// by then, and the shared library may come later in the link line.
template <typename Function>
void *AddressOf(Function function) {
  return reinterpret_cast<void *>(function);
}

[[gnu::used]] void *const g_parts[] = {AddressOf(KST_Malloc_), AddressOf(KST_ModsInit),
                                       AddressOf(KST_GetMemStr), AddressOf(OSAL_MemCmp),
                                       AddressOf(OSAL_AVL3_Find)};

}  // namespace

KestrelTest *KestrelTestNew(void) {
  auto *host = new KestrelTest;
  host->services.Pool().AllowAnyTag();
  host->services.Logs().RecordPrintedOnly();
  host->services.Logs().SuppressBelow(KST_LOG_INFO);
  COAP_RpcTestSetClock(ElapsedMs);
  return host;
}

uint64_t KestrelTestDelete(KestrelTest *host) {
  if (!host) return 0;
  const std::string leaks = host->services.LeakText();
  if (!leaks.empty()) std::fprintf(stderr, "kestrel-test: %s", leaks.c_str());
  const uint64_t numFaults = NumLeft(host->services) + NumComplaints() - host->numComplaints;
  host->services.DiscardAll();
  delete host;
  if (TestServices::Count() == 0) COAP_RpcTestSetClock(nullptr);
  return numFaults;
}

CoapRpcInitParam KestrelTestParam(const KestrelTest *host, const char *name) {
  CoapRpcInitParam param = {};
  param.name = name;
  param.logEnable = 1;
  param.memHandle = host->services.Mem();
  param.dispHandle = host->services.Disp();
  param.logHandle = host->services.Log();
  param.tmrHandle = host->services.Tmr();
  return param;
}

void KestrelTestDrive(KestrelTest *host, CoapRpcCtx *ctx) { host->driven.push_back(ctx); }

void KestrelTestUndrive(KestrelTest *host, const CoapRpcCtx *ctx) { std::erase(host->driven, ctx); }

void KestrelTestAdvanceMs(KestrelTest *host, uint64_t ms) {
  if (host->isRunning) return Complain("time cannot be moved in a callback");
  host->isRunning = true;
  Advance(host, ms);
  host->isRunning = false;
}

uint64_t KestrelTestNowMs(const KestrelTest *host) { return host->services.Timers().NowMs(); }

uint32_t KestrelTestRunUntil(KestrelTest *host, KestrelTestIsDone isDone, void *param,
                             uint64_t maxMs) {
  const uint64_t untilMs = KestrelTestNowMs(host) + maxMs;
  while (!isDone(param)) {
    const uint64_t nowMs = KestrelTestNowMs(host);
    if (nowMs >= untilMs) return 0;
    KestrelTestAdvanceMs(host, std::min(kStepMs, untilMs - nowMs));
    if (host->isRunning) return 0;
  }
  return 1;
}

uint32_t KestrelTestRunUntilIdle(KestrelTest *host, uint64_t maxMs) {
  IdleWatch watch = {host, KestrelTestNowMs(host), ActivityOf(host).numMessages};
  return KestrelTestRunUntil(host, IsIdle, &watch, maxMs);
}

void KestrelTestFailAlloc(KestrelTest *host, uint64_t n) {
  host->services.Pool().Failures().Clear();
  if (n != 0) host->services.Pool().Failures().FailOnce(n);
}

void KestrelTestFailAllocsFrom(KestrelTest *host, uint64_t n) {
  host->services.Pool().Failures().Clear();
  if (n != 0) host->services.Pool().Failures().FailFrom(n);
}

uint64_t KestrelTestAllocNum(const KestrelTest *host) {
  return host->services.Pool().Failures().NumCalls();
}

uint64_t KestrelTestFailedNum(const KestrelTest *host) {
  return host->services.Pool().Failures().NumFailed();
}

void KestrelTestLimitBytes(KestrelTest *host, uint64_t bytes) {
  host->services.Pool().SetByteLimit(bytes);
}

uint64_t KestrelTestLiveBlocks(const KestrelTest *host) {
  return host->services.Pool().LiveCount();
}

uint64_t KestrelTestLiveBytes(const KestrelTest *host) { return host->services.Pool().LiveBytes(); }

void KestrelTestSetLogLevel(KestrelTest *host, uint32_t level) {
  host->services.Logs().SuppressBelow(level);
}

uint32_t KestrelTestLogNum(const KestrelTest *host) {
  return static_cast<uint32_t>(LinesOf(host).size());
}

uint32_t KestrelTestLogGet(const KestrelTest *host, uint32_t index, KestrelTestLogLine *line) {
  const auto lines = LinesOf(host);
  if (index >= lines.size()) return 1;
  *line = {lines[index]->level, lines[index]->func.c_str(), lines[index]->text.c_str()};
  return 0;
}

uint32_t KestrelTestLogHas(const KestrelTest *host, const char *part) {
  const auto lines = LinesOf(host);
  return static_cast<uint32_t>(std::count_if(lines.begin(), lines.end(), [part](const auto *line) {
    return line->text.find(part) != std::string::npos;
  }));
}

void KestrelTestClearLog(KestrelTest *host) { host->services.Logs().Clear(); }

/* Nobody reads the debug channel of these hosts, so the library need not write its texts. */
uint32_t CSVC_DBG_Takes(uint64_t, uint32_t) { return 0; }

uint32_t KestrelTestAssertNum(void) {
  return static_cast<uint32_t>(TestProcess::Get().Asserts().size());
}
