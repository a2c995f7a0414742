/* render.h: printf texts of any length as strings. */
#ifndef RENDER_H
#define RENDER_H

#include <cstdarg>
#include <string>

namespace coap_rpc_test {

// Render writes out a printf format.  The argument list is used up.
std::string Render(const char *fmt, va_list args) __attribute__((format(printf, 1, 0)));

// Chomp returns `text` without one line feed at its end.
std::string Chomp(std::string text);

}  // namespace coap_rpc_test

#endif /* RENDER_H */
