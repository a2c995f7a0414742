/* edge.cpp: printf arguments become texts. */
#include "host/edge.h"

#include <cstdio>

namespace kestrel {

std::string FormatV(const char *fmt, va_list args) {
  char small[512];
  va_list again;
  va_copy(again, args);
  const int len = std::vsnprintf(small, sizeof small, fmt, args);
  std::string text;
  if (len >= 0 && static_cast<size_t>(len) < sizeof small) {
    text.assign(small, static_cast<size_t>(len));
  } else if (len >= 0) {
    text.resize(static_cast<size_t>(len));
    std::vsnprintf(text.data(), text.size() + 1, fmt, again);
  }
  va_end(again);
  return text;
}

std::string Format(const char *fmt, ...) {
  va_list args;
  va_start(args, fmt);
  std::string text = FormatV(fmt, args);
  va_end(args);
  return text;
}

}  // namespace kestrel
