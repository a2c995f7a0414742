/* csvc_dbg.cpp: the debug channel at the C interface. */
#include "csvc_dbg.h"

#include "dbg/dbg_channel.h"
#include "host/edge.h"

namespace {

void Write(uint64_t dbg, bool toSyslog, uint32_t level, const char *fmt, va_list args)
    __attribute__((format(printf, 4, 0)));

void Write(uint64_t dbg, bool toSyslog, uint32_t level, const char *fmt, va_list args) {
  kestrel::Quietly([&] {
    const auto *channel = kestrel::FromHandle<kestrel::DbgChannel>(dbg);
    channel->write(channel->owner, toSyslog, level, kestrel::FormatV(fmt, args).c_str());
  });
}

}  // namespace

uint32_t CSVC_DBG_Takes(uint64_t dbg, uint32_t level) {
  if (dbg == 0) return 0;
  const auto *channel = kestrel::FromHandle<kestrel::DbgChannel>(dbg);
  return channel->takes(channel->owner, level) ? 1 : 0;
}

// A caller that has asked gets the same answer again.
void CSVC_DBG_Debug(uint64_t dbg, uint32_t level, const char *fmt, ...) {
  if (CSVC_DBG_Takes(dbg, level) == 0) return;
  va_list args;
  va_start(args, fmt);
  Write(dbg, false, level, fmt, args);
  va_end(args);
}

void CSVC_DBG_SysLog(uint64_t dbg, uint32_t level, const char *fmt, ...) {
  if (dbg == 0) return;
  va_list args;
  va_start(args, fmt);
  Write(dbg, true, level, fmt, args);
  va_end(args);
}
