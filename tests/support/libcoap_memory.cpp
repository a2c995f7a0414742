#include "libcoap_memory.h"

#include <utility>

// libcoap's functions, linked with --wrap.
extern "C" {
void *__real_coap_malloc_type(coap_memory_tag_t tag, size_t size);
void *__real_coap_realloc_type(coap_memory_tag_t tag, void *p, size_t size);
void __real_coap_free_type(coap_memory_tag_t tag, void *p);
void *__wrap_coap_malloc_type(coap_memory_tag_t tag, size_t size);
void *__wrap_coap_realloc_type(coap_memory_tag_t tag, void *p, size_t size);
void __wrap_coap_free_type(coap_memory_tag_t tag, void *p);
}

namespace coap_rpc_test {
namespace {

NoMemory *g_noMemory = nullptr;
int64_t g_numLive = 0;

bool IsRefused(const Need &need) { return g_noMemory && g_noMemory->Refuses(need); }

}  // namespace

NoMemory::NoMemory(Match match) : match_(std::move(match)) { g_noMemory = this; }

NoMemory::~NoMemory() { g_noMemory = nullptr; }

bool NoMemory::Refuses(const Need &need) {
  if (!match_(need)) return false;
  ++numRefused_;
  return true;
}

int64_t NumLibcoapLive() { return g_numLive; }

}  // namespace coap_rpc_test

using namespace coap_rpc_test;

void *__wrap_coap_malloc_type(coap_memory_tag_t tag, size_t size) {
  if (IsRefused({tag, size, false})) return nullptr;
  void *p = __real_coap_malloc_type(tag, size);
  if (p) ++g_numLive;
  return p;
}

void *__wrap_coap_realloc_type(coap_memory_tag_t tag, void *p, size_t size) {
  if (!p) return __wrap_coap_malloc_type(tag, size);
  return IsRefused({tag, size, true}) ? nullptr : __real_coap_realloc_type(tag, p, size);
}

void __wrap_coap_free_type(coap_memory_tag_t tag, void *p) {
  if (p) --g_numLive;
  __real_coap_free_type(tag, p);
}
