#include "log_costs.h"

#include <coap3/coap.h>

#include <cstdarg>
#include <cstdio>

#include "csvc_dbg.h"

using coap_rpc_test::g_isLogTaken;
using coap_rpc_test::g_logCosts;

// Linked with --wrap.
extern "C" {
int __real_vsnprintf(char *buf, size_t size, const char *fmt, va_list args);
int __wrap_vsnprintf(char *buf, size_t size, const char *fmt, va_list args);
int __wrap_snprintf(char *buf, size_t size, const char *fmt, ...);
char **__real_backtrace_symbols(void *const *frames, int size);
char **__wrap_backtrace_symbols(void *const *frames, int size);
const char *__real_coap_session_str(const coap_session_t *session);
const char *__wrap_coap_session_str(const coap_session_t *session);
}

int __wrap_vsnprintf(char *buf, size_t size, const char *fmt, va_list args) {
  ++g_logCosts.numFormatted;
  return __real_vsnprintf(buf, size, fmt, args);
}

int __wrap_snprintf(char *buf, size_t size, const char *fmt, ...) {
  va_list args;
  va_start(args, fmt);
  const int len = __wrap_vsnprintf(buf, size, fmt, args);
  va_end(args);
  return len;
}

char **__wrap_backtrace_symbols(void *const *frames, int size) {
  ++g_logCosts.numLookups;
  return __real_backtrace_symbols(frames, size);
}

const char *__wrap_coap_session_str(const coap_session_t *session) {
  ++g_logCosts.numSessionTexts;
  return __real_coap_session_str(session);
}

// The host's answer; the test host has none.
uint32_t CSVC_DBG_Takes(uint64_t dbg, uint32_t level) {
  g_logCosts.questions.emplace_back(dbg, level);
  return g_isLogTaken ? 1 : 0;
}
