/* render.cpp: printf texts of any length as strings. */
#include "render.h"

#include <cstdio>

namespace coap_rpc_test {

std::string Render(const char *fmt, va_list args) {
  va_list again;
  va_copy(again, args);
  const int len = std::vsnprintf(nullptr, 0, fmt, args);
  std::string text(len > 0 ? static_cast<size_t>(len) + 1 : 1, '\0');
  std::vsnprintf(text.data(), text.size(), fmt, again);
  va_end(again);
  text.pop_back();
  return text;
}

std::string Format(const char *fmt, ...) {
  va_list args;
  va_start(args, fmt);
  std::string text = Render(fmt, args);
  va_end(args);
  return text;
}

std::string Chomp(std::string text) {
  if (!text.empty() && text.back() == '\n') text.pop_back();
  return text;
}

}  // namespace coap_rpc_test
