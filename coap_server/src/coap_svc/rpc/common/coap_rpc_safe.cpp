#include "coap_svc/rpc/common/coap_rpc_safe.h"

#include <cstdio>

int vsnprintf_truncated_s(char *buf, size_t size, const char *fmt, va_list args) {
  if (!buf || size == 0) return -1;
  const int wanted = fmt ? vsnprintf(buf, size, fmt, args) : -1;
  if (wanted < 0) {
    buf[0] = '\0';
    return -1;
  }
  return static_cast<size_t>(wanted) < size ? wanted : static_cast<int>(size - 1);
}

int snprintf_truncated_s(char *buf, size_t size, const char *fmt, ...) {
  va_list args;
  va_start(args, fmt);
  const int stored = vsnprintf_truncated_s(buf, size, fmt, args);
  va_end(args);
  return stored;
}
