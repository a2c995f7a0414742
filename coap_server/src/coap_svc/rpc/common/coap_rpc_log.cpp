#include "coap_svc/rpc/common/coap_rpc_log.h"

#include "coap_svc/rpc/common/coap_rpc_limits.h"
#include "coap_svc/rpc/common/coap_rpc_log_site.h"
#include "coap_svc/rpc/common/coap_rpc_own.h"
#include "coap_svc/rpc/common/coap_rpc_table.h"
#include "csvc_dbg.h"

// Null in a host that cannot be asked.
#pragma weak CSVC_DBG_Takes

namespace coap_rpc {
namespace {

constexpr uint32_t kFirstCountedLevel = KST_LOG_WARN;

uint64_t CounterOf(uint64_t log) { return reinterpret_cast<const KST_LogObj *>(log)->counter; }

using DiagTable = Table<CoapRpcLogData, char[COAP_RPC_URI_SIZE], offsetof(CoapRpcLogData, node)>;

DiagTable TableOf(CoapRpcLogDiag &diag) { return DiagTable(diag.tree, diag.desc); }

void WriteDebugLineV(uint32_t takers, uint64_t log, uint64_t dbg, const char *fmt, va_list args)
    __attribute__((format(printf, 4, 0)));

void WriteDebugLineV(uint32_t takers, uint64_t log, uint64_t dbg, const char *fmt, va_list args) {
  char text[kLogTextSize];
  vsnprintf_truncated_s(text, sizeof(text), fmt, args);
  if ((takers & kTakenByLog) != 0) {
    KST_LogSecondHalf_(log, kLogModule, kLogLogModDo.line, kLogLogModDo.level, kLogLogModDo.func,
                       "%s", text);
  }
  if ((takers & kTakenByDebug) != 0) CSVC_DBG_Debug(dbg, kDebugChannelLevel, "%s", text);
}

}  // namespace

bool LogWanted(uint64_t log, const char *module, const LogSite &site) {
  if (log == 0) return false;
  if (site.level >= kFirstCountedLevel) KST_LogCnt(CounterOf(log), module, site.line);
  if (KST_LogFirstHalf_(log, module, site.line, site.level) != 0) return false;
  NoteReached("log", site.func, site.line);
  return true;
}

bool DebugWanted(uint64_t dbg) {
  return !CSVC_DBG_Takes || CSVC_DBG_Takes(dbg, kDebugChannelLevel) != 0;
}

uint32_t DebugLineTakers(uint64_t log, uint64_t dbg) {
  uint32_t takers = LogWanted(log, kLogModule, kLogLogModDo) ? kTakenByLog : kTakenByNobody;
  if (dbg != 0 && DebugWanted(dbg)) takers |= kTakenByDebug;
  return takers;
}

void WriteDebugLine(uint32_t takers, uint64_t log, uint64_t dbg, const char *fmt, ...) {
  va_list args;
  va_start(args, fmt);
  WriteDebugLineV(takers, log, dbg, fmt, args);
  va_end(args);
}

}  // namespace coap_rpc

using namespace coap_rpc;

void COAP_RPC_LOG_MOD_DO(uint64_t log, uint64_t dbg, const char *fmt, ...) {
  const uint32_t takers = DebugLineTakers(log, dbg);
  if (takers == kTakenByNobody) return;
  va_list args;
  va_start(args, fmt);
  WriteDebugLineV(takers, log, dbg, fmt, args);
  va_end(args);
}

uint32_t COAP_RpcLogInit(void *root) {
  auto *ctx = static_cast<CoapRpcCtx *>(root);
  ctx->logDiag = COAP_RpcLogDataCreate_(ctx);
  return ctx->logDiag ? 0 : Code(kSiteLogInitNoMemory);
}

uint32_t COAP_RpcLogUninit(void *root) {
  return COAP_RpcLogDataDelete_(static_cast<CoapRpcCtx *>(root));
}

CoapRpcLogDiag *COAP_RpcLogDataCreate_(CoapRpcCtx *ctx) {
  if (!ctx) return nullptr;
  auto diag = NewZeroed<CoapRpcLogDiag>(ctx->param.memHandle);
  if (!diag) return nullptr;
  diag->desc = {COAP_RpcLogUriKeyCmp, offsetof(CoapRpcLogData, uri),
                offsetof(CoapRpcLogData, node)};
  diag->owner = ctx;
  return diag.release();
}

uint32_t COAP_RpcLogDataDelete_(CoapRpcCtx *ctx) {
  if (!ctx || !ctx->logDiag) return 0;
  const uint64_t mem = ctx->param.memHandle;
  DiagTable table = TableOf(*ctx->logDiag);
  table.Drain([&](CoapRpcLogData *data) {
    table.Remove(data);
    PoolFree(mem, data);
  });
  const uint32_t ret = PoolFree(mem, ctx->logDiag);
  ctx->logDiag = nullptr;
  return ret;
}

CoapRpcLogData *COAP_RpcLogRegUri(CoapRpcCtx *ctx, const char *uri) {
  if (!ctx || !ctx->logDiag) return nullptr;
  CoapRpcLogData *data = COAP_RpcLogFindData(ctx->logDiag, uri);
  return data ? data : COAP_RpcLogAddData(ctx->logDiag, uri);
}

CoapRpcLogData *COAP_RpcLogAddData(CoapRpcLogDiag *diag, const char *uri) {
  if (!diag || !uri) return nullptr;
  auto data = NewZeroed<CoapRpcLogData>(diag->owner->param.memHandle);
  if (!data || strcpy_s(data->uri, sizeof(data->uri), uri) != 0) return nullptr;
  data->needRecord = 1;
  data->diagId = -1;
  return TableOf(*diag).Insert(data.get()) ? data.release() : nullptr;
}

CoapRpcLogData *COAP_RpcLogFindData(CoapRpcLogDiag *diag, const char *uri) {
  if (!diag || !uri || TableOf(*diag).IsEmpty()) return nullptr;
  char key[COAP_RPC_URI_SIZE] = {};
  if (strcpy_s(key, sizeof(key), uri) != 0) return nullptr;
  return TableOf(*diag).Find(&key);
}

int32_t COAP_RpcLogUriKeyCmp(const void *uriA, const void *uriB) {
  const int32_t order = OSAL_MemCmp(uriA, uriB, COAP_RPC_URI_SIZE);
  return (order > 0) - (order < 0);
}

uint32_t COAP_RpcNeedRecordDiag(CoapRpcCtx *ctx, const char *uri) {
  const CoapRpcLogData *data = ctx ? COAP_RpcLogFindData(ctx->logDiag, uri) : nullptr;
  return data && data->needRecord != 0;
}
