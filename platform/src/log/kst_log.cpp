/* kst_log.cpp: the two halves of logging at the C interface. */
#include "kst_log.h"

#include "host/edge.h"
#include "log/log.h"

using kestrel::FromHandle;
using kestrel::Log;

namespace {

Log &LogOf(uint64_t handle) { return static_cast<Log &>(*FromHandle<KST_LogObj>(handle)); }

}  // namespace

void KST_LogCnt(uint64_t counter, const char *module, uint32_t line) {
  if (counter == 0) return;
  kestrel::Quietly([&] { FromHandle<Log>(counter)->Count(module, line); });
}

uint32_t KST_LogFirstHalf_(uint64_t log, const char *module, uint32_t line, uint32_t level) {
  if (log == 0) return 1;
  return kestrel::Guarded(1u, [&] { return LogOf(log).Admits(module, line, level) ? 0u : 1u; });
}

void KST_LogSecondHalf_(uint64_t log, const char *module, uint32_t line, uint32_t level,
                        const char *func, const char *fmt, ...) {
  if (log == 0) return;
  va_list args;
  va_start(args, fmt);
  kestrel::Quietly([&] { LogOf(log).Print(module, line, level, func, fmt, args); });
  va_end(args);
}
