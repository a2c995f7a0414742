/* logging_functions.cpp: functions with names that log through libcoap's logger. */
#include "logging_functions.h"

namespace {

// StayCaller keeps the call before it from being the last thing that a function does: a compiler
// makes a jump of that.
inline void StayCaller() { asm volatile(""); }

}  // namespace

void LogFromNamedFunction(coap_log_t level, const char *message) {
  coap_log_impl(level, "%s", message);
  StayCaller();
}

void LogFromOtherFunction(coap_log_t level, const char *message) {
  coap_log_impl(level, "other %s", message);
  StayCaller();
}

void LogIfAsked(coap_log_t level, const char *message) {
  coap_log(level, "%s", message);
  StayCaller();
}

void LogFromThirdFunction(coap_log_t level, const char *message) {
  coap_log_impl(level, "%s", message);
  StayCaller();
}
