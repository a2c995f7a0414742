/* usage.h: what a process holds: allocations of the pool, heap, descriptors. */
#ifndef USAGE_H
#define USAGE_H

#include <dirent.h>
#include <gtest/gtest.h>
#include <malloc.h>

#include <cstdint>

#include "test_pool.h"

// gcc and clang say in different ways that the address checker is on.
#if defined(__SANITIZE_ADDRESS__)
#define COAP_RPC_ADDRESS_CHECKER 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define COAP_RPC_ADDRESS_CHECKER 1
#endif
#endif

#ifdef COAP_RPC_ADDRESS_CHECKER
// The checker's own count; gcc has no header for it.
extern "C" size_t __sanitizer_get_current_allocated_bytes();
#endif

namespace coap_rpc_test {

// Counts that take long under the address checker are divided by this there.
#ifdef COAP_RPC_ADDRESS_CHECKER
inline constexpr int kSlowdown = 20;
#else
inline constexpr int kSlowdown = 1;
#endif

// The test's own bookkeeping, and without the checker freed pieces that the allocator caches: up to
// 7 of each of 64 sizes up to 1 KiB, which count as allocated.
#ifdef COAP_RPC_ADDRESS_CHECKER
inline constexpr uint64_t kHeapSlack = 64 * 1024;
#else
inline constexpr uint64_t kHeapSlack = 320 * 1024;
#endif

// HeapBytes counts what is allocated and not freed: libcoap's memory and the test's own as well.
inline uint64_t HeapBytes() {
#ifdef COAP_RPC_ADDRESS_CHECKER
  return __sanitizer_get_current_allocated_bytes();
#else
  const struct mallinfo2 info = mallinfo2();
  return info.uordblks + info.hblkhd;
#endif
}

inline uint32_t NumFds() {
  uint32_t num = 0;
  DIR *dir = opendir("/proc/self/fd");
  while (dir && readdir(dir)) ++num;
  if (dir) closedir(dir);
  return num;
}

struct Usage {
  uint64_t poolCount = 0;
  uint64_t heapBytes = 0;  // without the pool's
  uint32_t numFds = 0;

  static Usage Now(const TestPool &pool) {
    return {pool.LiveCount(), HeapBytes() - pool.LiveBytes(), NumFds()};
  }

  void ExpectAtMost(const Usage &base, uint64_t heapSlack = kHeapSlack) const {
    EXPECT_LE(poolCount, base.poolCount);
    EXPECT_LE(heapBytes, base.heapBytes + heapSlack);
    EXPECT_LE(numFds, base.numFds);
  }
};

}  // namespace coap_rpc_test

#endif /* USAGE_H */
