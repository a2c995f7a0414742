#include "coap_svc/rpc/libadapter/log/coap_rpc_lib_log.h"

#include <execinfo.h>

#include <cstdlib>
#include <memory>

#include "coap_svc/rpc/common/coap_rpc_limits.h"
#include "coap_svc/rpc/common/coap_rpc_log_site.h"
#include "coap_svc/rpc/common/coap_rpc_safe.h"
#include "coap_svc/rpc/libadapter/log/coap_rpc_lib_caller.h"
#include "csvc_dbg.h"
#include "osal.h"

namespace {

using namespace coap_rpc;

// Frame 0 is the look-up, 1 the handler, 2 libcoap's logger, 3 its caller.
constexpr int kCallerFrame = kForeignFrames + 3;
constexpr int kNumFrames = kCallerFrame + 1;

struct CFree {
  void operator()(void *p) const { free(p); }
};

CoapRpcCtx *g_logRoot = nullptr;
CallerNames g_callerNames;

// NameStart returns the text after the last '/' and the first '(' after it.  Without either the
// whole text is meant, and its first character is skipped all the same, deliberately.
const char *NameStart(const char *symbol) {
  const char *slash = OSAL_StrRChr(symbol, '/');
  const char *paren = slash ? OSAL_StrChr(slash, '(') : nullptr;
  const char *before = paren ? paren : symbol;
  return *before != '\0' ? before + 1 : before;
}

const LogSite &SiteOf(coap_log_t level) {
  if (level >= COAP_LOG_DEBUG) return kLogLibCoapDebug;
  if (level >= COAP_LOG_INFO) return kLogLibCoapInfo;
  if (level >= COAP_LOG_WARN) return kLogLibCoapWarn;
  return kLogLibCoapError;
}

// TakersOf offers a message to both sinks, the debug channel whatever its handle.
uint32_t TakersOf(const CoapRpcCtx *ctx, coap_log_t level) {
  uint32_t takers = LogWanted(ctx->log, kLogModule, SiteOf(level)) ? kTakenByLog : kTakenByNobody;
  if (DebugWanted(ctx->param.dbgHandle)) takers |= kTakenByDebug;
  return takers;
}

void Write(const CoapRpcCtx *ctx, uint32_t takers, coap_log_t level, const char *func,
           const char *message) {
  static constexpr char kText[] = "[CoapRpc][%s], level = %u, msg = %s";
  const LogSite &site = SiteOf(level);
  const auto number = static_cast<uint32_t>(level);
  if ((takers & kTakenByLog) != 0) {
    KST_LogSecondHalf_(ctx->log, kLogModule, site.line, site.level, site.func, kText, func, number,
                       message);
  }
  if ((takers & kTakenByDebug) != 0) {
    CSVC_DBG_Debug(ctx->param.dbgHandle, kDebugChannelLevel, kText, func, number, message);
  }
}

// NameOfCaller is part of whom libcoap's logger calls, and calls the look-up from there: it counts
// the calls above itself.
__attribute__((always_inline)) inline const char *NameOfCaller(char (&buf)[kFuncNameSize]) {
  const void *caller = CallerOfLogger(__builtin_return_address(0), __builtin_frame_address(0));
  const char *func = g_callerNames.Find(caller);
  if (func) return func;
  func = COAP_RpcLibCoapGetLogCallFuncName_(buf, sizeof(buf));
  if (func == buf) g_callerNames.Remember(caller, func);
  return func;
}

#ifdef COAP_LOG_HAS_GATE

uint32_t AskSinks(coap_log_t level) {
  return g_logRoot ? TakersOf(g_logRoot, level) : kTakenByNobody;
}

__attribute__((noinline)) void TellSinks(uint32_t takers, coap_log_t level, const char *message) {
  char buf[kFuncNameSize];
  const char *func = NameOfCaller(buf);
  if (g_logRoot) Write(g_logRoot, takers, level, func, message);
}

constexpr coap_log_gate_t kGate = {AskSinks, TellSinks};

#endif

}  // namespace

void CoapRpcLibSetLogRoot(CoapRpcCtx *ctx) { g_logRoot = ctx; }

void CoapRpcLibAskLog(void) {
#ifdef COAP_LOG_HAS_GATE
  coap_set_log_gate(&kGate);
#endif
}

__attribute__((noinline)) const char *COAP_RpcLibCoapGetLogCallFuncName_(char *buf, int32_t len) {
  void *frames[kNumFrames];
  if (backtrace(frames, kNumFrames) < kNumFrames) return "__get_ptr_ng__";
  const std::unique_ptr<char *, CFree> symbols(backtrace_symbols(frames, kNumFrames));
  if (!symbols) return "__get_str_ng__";
  const size_t size = len > 0 ? static_cast<size_t>(len) : 0;
  if (snprintf_truncated_s(buf, size, "%s", NameStart(symbols.get()[kCallerFrame])) < 1) {
    return "__snprintf_str_ng__";
  }
  rsize_t left = size;
  char *rest = nullptr;
  strtok_s(buf, &left, "+", &rest);
  return buf;
}

__attribute__((noinline)) void CORP_RpcLibCoapLog(coap_log_t level, const char *message) {
  const CoapRpcCtx *ctx = g_logRoot;
  const uint32_t takers = ctx ? TakersOf(ctx, level) : kTakenByNobody;
  if (takers == kTakenByNobody) return;
  char buf[kFuncNameSize];
  Write(ctx, takers, level, NameOfCaller(buf), message);
}
