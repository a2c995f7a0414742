// fuzz_memory.cpp: what the memory sanitizer has to know about code that it does not see. All that
// malloc gives out counts as written, since other libraries write there; the allocators of the
// tests mark what is not (fresh_memory.h). The bounds-checked functions are another library's as
// well, and those of CBOR.
#include <cbor.h>
#include <safeclib/safe_mem_lib.h>
#include <safeclib/safe_str_lib.h>

#include <cstdarg>
#include <cstring>

#include "fresh_memory.h"

extern "C" {

const char *__msan_default_options();
errno_t __real__memcpy_s_chk(void *dest, rsize_t dmax, const void *src, rsize_t len, size_t destBos,
                             size_t srcBos);
errno_t __real__memset_s_chk(void *dest, rsize_t dmax, int value, rsize_t len, size_t destBos);
errno_t __real__strcpy_s_chk(char *dest, rsize_t dmax, const char *src, size_t destBos);
errno_t __wrap__memcpy_s_chk(void *dest, rsize_t dmax, const void *src, rsize_t len, size_t destBos,
                             size_t srcBos);
errno_t __wrap__memset_s_chk(void *dest, rsize_t dmax, int value, rsize_t len, size_t destBos);
errno_t __wrap__strcpy_s_chk(char *dest, rsize_t dmax, const char *src, size_t destBos);
int __wrap__sprintf_s_chk(char *dest, rsize_t dmax, size_t destBos, const char *fmt, ...);
size_t __real_cbor_encode_array_start(size_t num, unsigned char *out, size_t size);
size_t __real_cbor_encode_bytestring_start(size_t len, unsigned char *out, size_t size);
size_t __real_cbor_encode_uint(uint64_t value, unsigned char *out, size_t size);
size_t __real_cbor_encode_null(unsigned char *out, size_t size);
cbor_decoder_result __real_cbor_stream_decode(cbor_data source, size_t size,
                                              const cbor_callbacks *callbacks, void *arg);
size_t __wrap_cbor_encode_array_start(size_t num, unsigned char *out, size_t size);
size_t __wrap_cbor_encode_bytestring_start(size_t len, unsigned char *out, size_t size);
size_t __wrap_cbor_encode_uint(uint64_t value, unsigned char *out, size_t size);
size_t __wrap_cbor_encode_null(unsigned char *out, size_t size);
cbor_decoder_result __wrap_cbor_stream_decode(cbor_data source, size_t size,
                                              const cbor_callbacks *callbacks, void *arg);

// libcoap compares a token with what is in its place before it writes it there.
const char *__msan_default_options() { return "poison_in_malloc=0:intercept_memcmp=0"; }

void __sanitizer_malloc_hook(const volatile void *p, size_t size) { __msan_unpoison(p, size); }

// A copy of what was never written was not written either.
errno_t __wrap__memcpy_s_chk(void *dest, rsize_t dmax, const void *src, rsize_t len, size_t destBos,
                             size_t srcBos) {
  const errno_t ret = __real__memcpy_s_chk(dest, dmax, src, len, destBos, srcBos);
  if (ret == 0) memcpy(dest, src, len);
  return ret;
}

errno_t __wrap__memset_s_chk(void *dest, rsize_t dmax, int value, rsize_t len, size_t destBos) {
  const errno_t ret = __real__memset_s_chk(dest, dmax, value, len, destBos);
  if (ret == 0) __msan_unpoison(dest, len);
  return ret;
}

errno_t __wrap__strcpy_s_chk(char *dest, rsize_t dmax, const char *src, size_t destBos) {
  const errno_t ret = __real__strcpy_s_chk(dest, dmax, src, destBos);
  if (ret == 0) strcpy(dest, src);
  return ret;
}

int __wrap__sprintf_s_chk(char *dest, rsize_t dmax, size_t destBos, const char *fmt, ...) {
  va_list args;
  va_start(args, fmt);
  const int len = _vsprintf_s_chk(dest, dmax, destBos, fmt, args);
  va_end(args);
  if (len >= 0) __msan_unpoison(dest, static_cast<size_t>(len) + 1);
  return len;
}

static size_t Written(const unsigned char *out, size_t len) {
  __msan_unpoison(out, len);
  return len;
}

size_t __wrap_cbor_encode_array_start(size_t num, unsigned char *out, size_t size) {
  return Written(out, __real_cbor_encode_array_start(num, out, size));
}

size_t __wrap_cbor_encode_bytestring_start(size_t len, unsigned char *out, size_t size) {
  return Written(out, __real_cbor_encode_bytestring_start(len, out, size));
}

size_t __wrap_cbor_encode_uint(uint64_t value, unsigned char *out, size_t size) {
  return Written(out, __real_cbor_encode_uint(value, out, size));
}

size_t __wrap_cbor_encode_null(unsigned char *out, size_t size) {
  return Written(out, __real_cbor_encode_null(out, size));
}

cbor_decoder_result __wrap_cbor_stream_decode(cbor_data source, size_t size,
                                              const cbor_callbacks *callbacks, void *arg) {
  cbor_decoder_result result = __real_cbor_stream_decode(source, size, callbacks, arg);
  __msan_unpoison(&result, sizeof(result));
  return result;
}
}
