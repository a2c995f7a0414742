/* coap_rpc_log_site.h: framework records written from a log site, and what log lines share. */
#ifndef COAP_RPC_LOG_SITE_H
#define COAP_RPC_LOG_SITE_H

#include <cstring>

#include "coap_svc/rpc/common/coap_rpc_limits.h"
#include "coap_svc/rpc/common/coap_rpc_log.h"
#include "coap_svc/rpc/common/coap_rpc_sites.h"
#include "kst_log.h"

namespace coap_rpc {

inline constexpr char kLogModule[] = "logDefault";

// The one level at which the library writes to the debug channel and the system log.
inline constexpr uint32_t kDebugChannelLevel = 1;

// Who takes a line: bits that add up.
inline constexpr uint32_t kTakenByNobody = 0;
inline constexpr uint32_t kTakenByLog = 1;
inline constexpr uint32_t kTakenByDebug = 2;

// LogWanted takes a record through counting and the first half; true: print it now.
bool LogWanted(uint64_t log, const char *module, const LogSite &site);

// DebugWanted asks the debug channel about its next text, handle 0 included; true: write it now.
bool DebugWanted(uint64_t dbg);

// DebugLineTakers offers a line of COAP_RPC_LOG_MOD_DO to both sinks.
uint32_t DebugLineTakers(uint64_t log, uint64_t dbg);

// WriteDebugLine writes the line to those that take it.
void WriteDebugLine(uint32_t takers, uint64_t log, uint64_t dbg, const char *fmt, ...)
    COAP_RPC_PRINTF(4, 5);

// ContextTag is how logs name an instance: never its full address.
constexpr uint32_t ContextTag(uintptr_t address) {
  return static_cast<uint32_t>((address & 0xFFFE) | 1);
}

// UriText is a NUL-terminated copy of a 64-byte uri field, which need not be terminated itself.
class UriText {
 public:
  explicit UriText(const char (&uri)[COAP_RPC_URI_SIZE]) {
    memcpy(text_, uri, COAP_RPC_URI_SIZE);
    text_[COAP_RPC_URI_SIZE] = '\0';
  }
  const char *c_str() const { return text_; }

 private:
  char text_[COAP_RPC_URI_SIZE + 1];
};

// LineText is as much of a text as a line has room for: a text of 65 kB is not read to its end.  A
// null text is shown as the C library's printf shows it.
class LineText {
 public:
  explicit LineText(const char *text) {
    if (!text) text = "(null)";
    const size_t len = strnlen(text, kLogTextSize - 1);
    memcpy(text_, text, len);
    text_[len] = '\0';
  }
  const char *c_str() const { return text_; }

 private:
  char text_[kLogTextSize];
};

}  // namespace coap_rpc

// COAP_RPC_LOG_AS(log, module, site, fmt, ...) writes a framework record; the arguments are
// evaluated only when it is printed.
#define COAP_RPC_LOG_AS(log, module, site, ...)                                                 \
  do {                                                                                          \
    if (coap_rpc::LogWanted((log), (module), (site))) {                                         \
      KST_LogSecondHalf_((log), (module), (site).line, (site).level, (site).func, __VA_ARGS__); \
    }                                                                                           \
  } while (false)

// COAP_RPC_LOG(log, site, fmt, ...) writes it under the usual module name.
#define COAP_RPC_LOG(log, site, ...) COAP_RPC_LOG_AS(log, coap_rpc::kLogModule, site, __VA_ARGS__)

// COAP_RPC_DEBUG(ctx, fmt, ...) is COAP_RPC_LOG_MOD_DO with the sinks of an instance; the arguments
// are evaluated only when one of them takes the line.
#define COAP_RPC_DEBUG(ctx, ...)                                                                 \
  do {                                                                                           \
    if (const uint32_t takers = coap_rpc::DebugLineTakers((ctx)->log, (ctx)->param.dbgHandle)) { \
      coap_rpc::WriteDebugLine(takers, (ctx)->log, (ctx)->param.dbgHandle, __VA_ARGS__);         \
    }                                                                                            \
  } while (false)

// The four values of "uri:%s, msgType:%u, observe:%u, pktType:%u".
#define COAP_RPC_KEY_ARGS(key) \
  coap_rpc::UriText((key).uri).c_str(), (key).msgType, (key).observe, (key).pktType

#endif /* COAP_RPC_LOG_SITE_H */
