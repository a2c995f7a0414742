/* sweep_allocators.h: the sources of memory and timers that a sweep makes fail.
 *
 * libcoap's allocator is replaced by the linker (see CMakeLists.txt), Jansson's by its own
 * interface.  What both have given out is counted. */
#ifndef SWEEP_ALLOCATORS_H
#define SWEEP_ALLOCATORS_H

#include <cstdint>

#include "fail_plan.h"

namespace coap_rpc_test {

enum Source : uint32_t {
  kPool = 1,     // the instance's pool, framework strings included
  kTimers = 2,   // KST_TmrStartLoop
  kLibcoap = 4,  // coap_malloc_type, coap_realloc_type
  kJansson = 8,
};

inline constexpr Source kAllSources[] = {kPool, kTimers, kLibcoap, kJansson};

const char *NameOf(Source source);

struct Allocator {
  FailPlan failures;
  int64_t numLive = 0;
};

Allocator &LibcoapAllocator();
Allocator &JanssonAllocator();

// TakeOverJansson lets Jansson allocate through JanssonAllocator from now on.
void TakeOverJansson();

}  // namespace coap_rpc_test

#endif /* SWEEP_ALLOCATORS_H */
