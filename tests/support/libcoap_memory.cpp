#include "libcoap_memory.h"

#include <utility>

#include "fresh_memory.h"

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

// Grow marks what was added.  Without the memory sanitizer nobody knows how much that is.
void *Grow(coap_memory_tag_t tag, void *p, size_t size) {
#ifdef COAP_RPC_TEST_HAS_MSAN
  const size_t oldSize = AllocatedSize(p);
  p = __real_coap_realloc_type(tag, p, size);
  if (p && size > oldSize) MarkFresh(static_cast<uint8_t *>(p) + oldSize, size - oldSize);
  return p;
#else
  return __real_coap_realloc_type(tag, p, size);
#endif
}

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
  if (!p) return nullptr;
  ++g_numLive;
  MarkFresh(p, size);
  return p;
}

void *__wrap_coap_realloc_type(coap_memory_tag_t tag, void *p, size_t size) {
  if (!p) return __wrap_coap_malloc_type(tag, size);
  return IsRefused({tag, size, true}) ? nullptr : Grow(tag, p, size);
}

void __wrap_coap_free_type(coap_memory_tag_t tag, void *p) {
  if (p) --g_numLive;
  __real_coap_free_type(tag, p);
}
