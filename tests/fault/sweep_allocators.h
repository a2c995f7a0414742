/* sweep_allocators.h: the sources of memory and timers that a sweep makes fail.
 *
 * libcoap's allocator is replaced by the linker (libcoap_memory.h), Jansson's by its own
 * interface. */
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

FailPlan &LibcoapFailures();
FailPlan &JanssonFailures();

// NumJanssonLive is the number of allocations that Jansson has and has not given back.
int64_t NumJanssonLive();

// TakeOverJansson lets Jansson's allocations fail, and be counted, from now on.
void TakeOverJansson();

}  // namespace coap_rpc_test

#endif /* SWEEP_ALLOCATORS_H */
