/* format.h: printf into a string. */
#ifndef BENCH_REPORT_FORMAT_H
#define BENCH_REPORT_FORMAT_H

#include <cstdarg>
#include <cstdio>
#include <string>

namespace bench_report {

// Format cuts what is longer than a line of a picture or a table can be.
__attribute__((format(printf, 1, 2))) inline std::string Format(const char *format, ...) {
  char text[512];
  va_list args;
  va_start(args, format);
  vsnprintf(text, sizeof(text), format, args);
  va_end(args);
  return text;
}

}  // namespace bench_report

#endif /* BENCH_REPORT_FORMAT_H */
