/* test_services_api.cpp: the platform functions that have a handle, forwarded to its services. */
#include <cstdarg>

#include "csvc_dbg.h"
#include "handle_table.h"
#include "kst.h"
#include "render.h"
#include "test_disp.h"
#include "test_log.h"
#include "test_pool.h"
#include "test_process.h"
#include "test_timers.h"

using coap_rpc_test::DebugChannel;
using coap_rpc_test::DispCommand;
using coap_rpc_test::HandleTable;
using coap_rpc_test::LogCounter;
using coap_rpc_test::LogKind;
using coap_rpc_test::LogRecord;
using coap_rpc_test::Render;
using coap_rpc_test::TestDisp;
using coap_rpc_test::TestLog;
using coap_rpc_test::TestPool;
using coap_rpc_test::TestProcess;
using coap_rpc_test::TestTimers;

namespace {

void WriteDebug(uint64_t dbg, const LogRecord &record, const char *caller) {
  if (const DebugChannel *channel = HandleTable<DebugChannel>::Find(dbg, caller)) {
    channel->log->Debug(record);
  } else if (dbg == 0) {
    TestProcess::Get().RecordNullDebug(record.text);
  }
}

std::vector<std::string> ReadNames(uint32_t count, va_list args) {
  std::vector<std::string> names;
  for (uint32_t i = 0; i < count; ++i) names.emplace_back(va_arg(args, const char *));
  return names;
}

}  // namespace

void *KST_Malloc_(uint64_t mem, size_t size, const char *tag, uint32_t num) {
  TestPool *pool = HandleTable<TestPool>::Find(mem, "KST_Malloc_");
  return pool ? pool->Malloc(size, tag, num) : nullptr;
}

uint32_t KST_Free_(uint64_t mem, void *p, const char *tag, uint32_t num) {
  TestPool *pool = HandleTable<TestPool>::Find(mem, "KST_Free_");
  if (!pool) return p ? 1 : 0;
  return pool->Free(p, tag, num);
}

uint32_t KST_MemUsage(uint64_t mem, uint64_t *bytes, uint64_t *maxBytes) {
  const TestPool *pool = HandleTable<TestPool>::Find(mem, "KST_MemUsage");
  if (!pool) return 1;
  *bytes = pool->LiveBytes();
  *maxBytes = pool->PeakBytes();
  return 0;
}

char *KST_StrNew(uint64_t mem, const char *fmt, ...) {
  TestPool *pool = HandleTable<TestPool>::Find(mem, "KST_StrNew");
  va_list args;
  va_start(args, fmt);
  const std::string text = Render(fmt, args);
  va_end(args);
  return pool ? pool->NewString(text) : nullptr;
}

void KST_StrDel(uint64_t mem, char *s) {
  if (TestPool *pool = HandleTable<TestPool>::Find(mem, "KST_StrDel")) pool->DeleteString(s);
}

uint64_t KST_TmrStartLoop(uint64_t tmr, KST_TmrTick tick, uint32_t periodMs, void *param) {
  TestTimers *timers = HandleTable<TestTimers>::Find(tmr, "KST_TmrStartLoop");
  return timers ? timers->Start(tick, periodMs, param) : 0;
}

void KST_TmrStop(uint64_t tmr, uint64_t id) {
  if (TestTimers *timers = HandleTable<TestTimers>::Find(tmr, "KST_TmrStop")) timers->Stop(id);
}

void KST_LogCnt(uint64_t counter, const char *module, uint32_t line) {
  const LogCounter *found = HandleTable<LogCounter>::Find(counter, "KST_LogCnt");
  if (found) found->log->Count(module, line);
}

uint32_t KST_LogFirstHalf_(uint64_t log, const char *module, uint32_t line, uint32_t level) {
  TestLog *found = HandleTable<TestLog>::Find(log, "KST_LogFirstHalf_");
  return found && found->FirstHalf(module, line, level) ? 0 : 1;
}

void KST_LogSecondHalf_(uint64_t log, const char *module, uint32_t line, uint32_t level,
                        const char *func, const char *fmt, ...) {
  TestLog *found = HandleTable<TestLog>::Find(log, "KST_LogSecondHalf_");
  va_list args;
  va_start(args, fmt);
  const std::string text = Render(fmt, args);
  va_end(args);
  if (found) found->SecondHalf({LogKind::kSecond, module, line, level, func, fmt, text, false});
}

void CSVC_DBG_Debug(uint64_t dbg, uint32_t level, const char *fmt, ...) {
  va_list args;
  va_start(args, fmt);
  const std::string text = Render(fmt, args);
  va_end(args);
  WriteDebug(dbg, {LogKind::kDebug, "", 0, level, "", fmt, text, false}, "CSVC_DBG_Debug");
}

void CSVC_DBG_SysLog(uint64_t dbg, uint32_t level, const char *fmt, ...) {
  va_list args;
  va_start(args, fmt);
  const std::string text = Render(fmt, args);
  va_end(args);
  WriteDebug(dbg, {LogKind::kSysLog, "", 0, level, "", fmt, text, false}, "CSVC_DBG_SysLog");
}

uint32_t KST_DispRegObj(uint64_t disp, const char *name, void *obj) {
  TestDisp *found = HandleTable<TestDisp>::Find(disp, "KST_DispRegObj");
  return found ? found->RegObj(name, obj) : 1;
}

uint32_t KST_DispUnregObj(uint64_t disp, const char *name) {
  TestDisp *found = HandleTable<TestDisp>::Find(disp, "KST_DispUnregObj");
  return found ? found->UnregObj(name) : 1;
}

uint32_t KST_DispRegFunc_(uint64_t disp, const char *handlerName, KST_DISP_FUNC handler,
                          const char *command, uint32_t flags, const char *objName,
                          uint32_t paramCount, ...) {
  TestDisp *found = HandleTable<TestDisp>::Find(disp, "KST_DispRegFunc_");
  if (!found || paramCount > KST_DISP_MAX_PARAMS) return 1;
  va_list args;
  va_start(args, paramCount);
  const std::vector<std::string> names = ReadNames(paramCount, args);
  va_end(args);
  return found->RegFunc({handlerName, handler, command, flags, objName, names});
}

void KST_DispPrintf_(uint64_t disp, const char *fmt, ...) {
  TestDisp *found = HandleTable<TestDisp>::Find(disp, "KST_DispPrintf_");
  va_list args;
  va_start(args, fmt);
  const std::string text = Render(fmt, args);
  va_end(args);
  if (found) found->Print(text);
}

void KST_DispSaveCtx_(uint64_t disp, const void *key, uint32_t keyLen, const void *counter,
                      uint32_t counterLen) {
  TestDisp *found = HandleTable<TestDisp>::Find(disp, "KST_DispSaveCtx_");
  if (found) found->SaveContext(key, keyLen, counter, counterLen);
}

const void *KST_DispGetLastCtx_(uint64_t disp, void *counter) {
  const TestDisp *found = HandleTable<TestDisp>::Find(disp, "KST_DispGetLastCtx_");
  return found ? found->LastContext(counter) : nullptr;
}
