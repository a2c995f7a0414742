/* coap_rpc_own.h: allocation from the instance's pool, and its ownership.
 *
 * Build a record under a PoolPtr, insert it, then release(): every early return is then clean. */
#ifndef COAP_RPC_OWN_H
#define COAP_RPC_OWN_H

#include <cstring>
#include <memory>

#include "coap_svc/rpc/coap_rpc_types.h"
#include "coap_svc/rpc/common/coap_rpc_safe.h"
#include "kst_mem.h"

namespace coap_rpc {

// Every allocation carries these in place of a source position.
inline constexpr char kMallocTag[] = "mallocRsv";
inline constexpr char kFreeTag[] = "freeRsv";
inline constexpr uint32_t kMemNum = 123;

// PoolAlloc returns `size` zeroed bytes (at least one), or null.
inline void *PoolAlloc(uint64_t mem, size_t size) {
  const size_t bytes = size != 0 ? size : 1;
  void *p = KST_Malloc_(mem, bytes, kMallocTag, kMemNum);
  if (p) memset_s(p, bytes, 0, bytes);
  return p;
}

// PoolFree frees `p`; null is not handed to the host.  Returns the host's result.
inline uint32_t PoolFree(uint64_t mem, void *p) {
  return p ? KST_Free_(mem, p, kFreeTag, kMemNum) : 0;
}

struct PoolDeleter {
  uint64_t mem;
  void operator()(void *p) const { PoolFree(mem, p); }
};

// PoolPtr owns a record of trivial type from a pool.
template <typename Rec>
using PoolPtr = std::unique_ptr<Rec, PoolDeleter>;

// NewZeroed makes a zeroed record with `extraBytes` after it; empty if out of memory.
template <typename Rec>
PoolPtr<Rec> NewZeroed(uint64_t mem, size_t extraBytes = 0) {
  return PoolPtr<Rec>(static_cast<Rec *>(PoolAlloc(mem, sizeof(Rec) + extraBytes)),
                      PoolDeleter{mem});
}

}  // namespace coap_rpc

#endif /* COAP_RPC_OWN_H */
