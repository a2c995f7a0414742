#include "coap_svc/rpc/libadapter/coap_rpc_lib_log.h"

#include <execinfo.h>

#include <cstdlib>
#include <memory>

#include "coap_svc/rpc/common/coap_rpc_limits.h"
#include "coap_svc/rpc/common/coap_rpc_log_site.h"
#include "coap_svc/rpc/common/coap_rpc_safe.h"
#include "csvc_dbg.h"
#include "osal.h"

namespace {

using namespace coap_rpc;

constexpr int kNumFrames = 4;
constexpr int kCallerFrame = 3;  // 0 the look-up, 1 the handler, 2 libcoap's logger, 3 its caller

struct CFree {
  void operator()(void *p) const { free(p); }
};

CoapRpcCtx *g_logRoot = nullptr;

// NameStart returns the text behind the last '/' and the first '(' after it.  Without either the
// whole text is meant, and its first character is skipped all the same, deliberately.
const char *NameStart(const char *symbol) {
  const char *slash = OSAL_StrRChr(symbol, '/');
  const char *paren = slash ? OSAL_StrChr(slash, '(') : nullptr;
  return (paren ? paren : symbol) + 1;
}

const LogSite &SiteOf(coap_log_t level) {
  if (level >= COAP_LOG_DEBUG) return kLogLibCoapDebug;
  if (level >= COAP_LOG_INFO) return kLogLibCoapInfo;
  if (level >= COAP_LOG_WARN) return kLogLibCoapWarn;
  return kLogLibCoapError;
}

}  // namespace

void CoapRpcLibSetLogRoot(CoapRpcCtx *ctx) { g_logRoot = ctx; }

__attribute__((noinline)) const char *COAP_RpcLibCoapGetLogCallFuncName_(char *buf, int32_t len) {
  void *frames[kNumFrames];
  if (backtrace(frames, kNumFrames) < kNumFrames) return "__get_ptr_ng__";
  const std::unique_ptr<char *, CFree> symbols(backtrace_symbols(frames, kNumFrames));
  if (!symbols) return "__get_str_ng__";
  if (snprintf_truncated_s(buf, static_cast<size_t>(len), "%s",
                           NameStart(symbols.get()[kCallerFrame])) < 1) {
    return "__snprintf_str_ng__";
  }
  rsize_t left = static_cast<rsize_t>(len);
  char *rest = nullptr;
  strtok_s(buf, &left, "+", &rest);
  return buf;
}

__attribute__((noinline)) void CORP_RpcLibCoapLog(coap_log_t level, const char *message) {
  const CoapRpcCtx *ctx = g_logRoot;
  if (!ctx) return;
  char buf[kFuncNameSize];
  const char *func = COAP_RpcLibCoapGetLogCallFuncName_(buf, sizeof(buf));
  const auto number = static_cast<uint32_t>(level);
  COAP_RPC_LOG(ctx->log, SiteOf(level), "[CoapRpc][%s], level = %u, msg = %s", func, number,
               message);
  CSVC_DBG_Debug(ctx->param.dbgHandle, 1, "[CoapRpc][%s], level = %u, msg = %s", func, number,
                 message);
}
