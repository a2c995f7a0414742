/* kst_mem.cpp: pooled memory and framework strings at the C interface. */
#include "kst_mem.h"

#include <cstdarg>
#include <cstring>

#include "host/edge.h"
#include "mem/pool.h"

using kestrel::FromHandle;
using kestrel::Guarded;
using kestrel::Pool;

namespace {

constexpr char kStrTag[] = "KST_StrNew";

void *AllocFrom(Pool &pool, size_t size, const char *tag, uint32_t num) {
  try {
    return pool.Alloc(size, tag, num);
  } catch (...) {
    pool.CountRefusal();
    return nullptr;
  }
}

char *CopyInto(Pool &pool, const std::string &text) {
  auto *copy = static_cast<char *>(AllocFrom(pool, text.size() + 1, kStrTag, 0));
  if (copy) std::memcpy(copy, text.c_str(), text.size() + 1);
  return copy;
}

}  // namespace

void *KST_Malloc_(uint64_t mem, size_t size, const char *tag, uint32_t num) {
  return mem != 0 ? AllocFrom(*FromHandle<Pool>(mem), size, tag, num) : nullptr;
}

uint32_t KST_Free_(uint64_t mem, void *p, const char *tag, uint32_t num) {
  if (!p) return 0;
  if (mem == 0) return 1;
  return Guarded(1u, [&] { return FromHandle<Pool>(mem)->Free(p, tag, num) ? 0u : 1u; });
}

char *KST_StrNew(uint64_t mem, const char *fmt, ...) {
  if (mem == 0) return nullptr;
  va_list args;
  va_start(args, fmt);
  char *text = Guarded(static_cast<char *>(nullptr), [&] {
    return CopyInto(*FromHandle<Pool>(mem), kestrel::FormatV(fmt, args));
  });
  va_end(args);
  return text;
}

void KST_StrDel(uint64_t mem, char *s) { KST_Free_(mem, s, kStrTag, 0); }

uint32_t KST_MemUsage(uint64_t mem, uint64_t *bytes, uint64_t *maxBytes) {
  if (mem == 0) return 1;
  const KestrelMemStat stat = FromHandle<Pool>(mem)->Stat();
  *bytes = stat.liveBytes;
  *maxBytes = stat.peakBytes;
  return 0;
}
