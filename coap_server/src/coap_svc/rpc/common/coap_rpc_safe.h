/* coap_rpc_safe.h: the bounds-checked C functions, and two formatters that cut. */
#ifndef COAP_RPC_SAFE_H
#define COAP_RPC_SAFE_H

#include <safeclib/safe_mem_lib.h>
#include <safeclib/safe_str_lib.h>

#include <cstdarg>
#include <cstddef>

extern "C" {

/* snprintf_truncated_s and vsnprintf_truncated_s format into `size` bytes and cut what does not
 * fit; the text is always terminated.
 *
 * Returns the number of characters stored, terminator not counted; -1 for a null argument, size 0
 * or a failed conversion (a buffer that has room then holds the empty text). */
int snprintf_truncated_s(char *buf, size_t size, const char *fmt, ...)
    __attribute__((format(printf, 3, 4)));
int vsnprintf_truncated_s(char *buf, size_t size, const char *fmt, va_list args)
    __attribute__((format(printf, 3, 0)));
}

#endif /* COAP_RPC_SAFE_H */
