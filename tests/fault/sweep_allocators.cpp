#include "sweep_allocators.h"

#include <coap3/coap.h>
#include <jansson.h>

#include <cstdlib>

// libcoap's functions, linked with --wrap.
extern "C" {
void *__real_coap_malloc_type(coap_memory_tag_t type, size_t size);
void *__real_coap_realloc_type(coap_memory_tag_t type, void *p, size_t size);
void __real_coap_free_type(coap_memory_tag_t type, void *p);
void *__wrap_coap_malloc_type(coap_memory_tag_t type, size_t size);
void *__wrap_coap_realloc_type(coap_memory_tag_t type, void *p, size_t size);
void __wrap_coap_free_type(coap_memory_tag_t type, void *p);
}

namespace coap_rpc_test {
namespace {

void *JanssonMalloc(size_t size) {
  if (JanssonAllocator().failures.Count()) return nullptr;
  ++JanssonAllocator().numLive;
  return malloc(size);
}

void JanssonFree(void *p) {
  if (p) --JanssonAllocator().numLive;
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

Allocator &LibcoapAllocator() {
  static Allocator allocator;
  return allocator;
}

Allocator &JanssonAllocator() {
  static Allocator allocator;
  return allocator;
}

void TakeOverJansson() { json_set_alloc_funcs(JanssonMalloc, JanssonFree); }

}  // namespace coap_rpc_test

using coap_rpc_test::LibcoapAllocator;

void *__wrap_coap_malloc_type(coap_memory_tag_t type, size_t size) {
  if (LibcoapAllocator().failures.Count()) return nullptr;
  ++LibcoapAllocator().numLive;
  return __real_coap_malloc_type(type, size);
}

void *__wrap_coap_realloc_type(coap_memory_tag_t type, void *p, size_t size) {
  if (LibcoapAllocator().failures.Count()) return nullptr;
  if (!p) ++LibcoapAllocator().numLive;
  return __real_coap_realloc_type(type, p, size);
}

void __wrap_coap_free_type(coap_memory_tag_t type, void *p) {
  if (p) --LibcoapAllocator().numLive;
  __real_coap_free_type(type, p);
}
