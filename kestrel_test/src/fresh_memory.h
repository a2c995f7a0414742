/* fresh_memory.h: memory that nobody has written yet, as the memory sanitizer sees it.
 *
 * Libraries that are not compiled with the sanitizer write without its noticing, so it takes all
 * memory for written except what an allocator of the tests marks as fresh.  Without the sanitizer,
 * fresh memory is filled with kFreshByte, and the checks do nothing. */
#ifndef FRESH_MEMORY_H
#define FRESH_MEMORY_H

#include <cstddef>
#include <cstdint>
#include <cstring>

#ifdef __has_feature
#if __has_feature(memory_sanitizer)
#define COAP_RPC_TEST_HAS_MSAN 1
#include <sanitizer/allocator_interface.h>
#include <sanitizer/msan_interface.h>
#endif
#endif

namespace coap_rpc_test {

inline constexpr uint8_t kFreshByte = 0xA5;

#ifdef COAP_RPC_TEST_HAS_MSAN

inline void MarkFresh(void *p, size_t size) { __msan_poison(p, size); }
inline size_t AllocatedSize(const void *p) { return __sanitizer_get_allocated_size(p); }

// IsFresh says whether the first byte was never written.
inline bool IsFresh(const void *p) { return __msan_test_shadow(p, 1) == 0; }

// CheckWritten stops the program when one of the bytes was never written.
inline void CheckWritten(const void *p, size_t size) {
  if (size != 0) __msan_check_mem_is_initialized(p, size);
}

#else

inline void MarkFresh(void *p, size_t size) { memset(p, kFreshByte, size); }
inline bool IsFresh(const void *p) { return *static_cast<const uint8_t *>(p) == kFreshByte; }
inline void CheckWritten(const void *, size_t) {}

#endif

}  // namespace coap_rpc_test

#endif /* FRESH_MEMORY_H */
