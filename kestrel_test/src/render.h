/* render.h: printf texts of any length as strings. */
#ifndef RENDER_H
#define RENDER_H

#include <cstdarg>
#include <string>

namespace coap_rpc_test {

// Render and Format write out a printf format.  Render uses the argument list up.
std::string Render(const char *fmt, va_list args) __attribute__((format(printf, 1, 0)));
std::string Format(const char *fmt, ...) __attribute__((format(printf, 1, 2)));

// Chomp returns `text` without one line feed at its end.
std::string Chomp(std::string text);

}  // namespace coap_rpc_test

#endif /* RENDER_H */
