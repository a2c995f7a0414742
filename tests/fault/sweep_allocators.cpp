#include "sweep_allocators.h"

#include <jansson.h>

#include <cstdlib>

#include "libcoap_memory.h"

namespace coap_rpc_test {
namespace {

int64_t g_numJanssonLive = 0;

void *JanssonMalloc(size_t size) {
  if (JanssonFailures().Count()) return nullptr;
  ++g_numJanssonLive;
  return malloc(size);
}

void JanssonFree(void *p) {
  if (p) --g_numJanssonLive;
  free(p);
}

}  // namespace

const char *NameOf(Source source) {
  switch (source) {
    case kPool:
      return "pool";
    case kTimers:
      return "timers";
    case kLibcoap:
      return "libcoap";
    case kJansson:
      return "jansson";
  }
  return "";
}

FailPlan &LibcoapFailures() {
  static FailPlan failures;
  static const NoMemory kNoMemory([](const Need &) { return failures.Count(); });
  return failures;
}

FailPlan &JanssonFailures() {
  static FailPlan failures;
  return failures;
}

int64_t NumJanssonLive() { return g_numJanssonLive; }

void TakeOverJansson() { json_set_alloc_funcs(JanssonMalloc, JanssonFree); }

}  // namespace coap_rpc_test
