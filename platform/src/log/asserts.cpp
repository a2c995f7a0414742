/* asserts.cpp: the assertion hook, with the last broken contracts kept in a ring. */
#include "log/asserts.h"

#include <algorithm>
#include <array>
#include <vector>

#include "host/edge.h"
#include "tarn.h"

namespace kestrel {

namespace {

struct Asserts {
  std::array<KestrelAssert, KESTREL_ASSERTS_KEPT> ring{};
  uint64_t count = 0;
  std::vector<Log *> logs;  // oldest first
};

// Never destroyed: an assert may come as late as from a destructor of the application.
Asserts &TheAsserts() {
  static Asserts &asserts = *new Asserts;
  return asserts;
}

}  // namespace

void AddAssertLog(Log *log) { TheAsserts().logs.push_back(log); }

void RemoveAssertLog(Log *log) { std::erase(TheAsserts().logs, log); }

}  // namespace kestrel

using kestrel::Quietly;
using kestrel::TheAsserts;

uint32_t TARN_Assert(const char *path, uint32_t line, uint32_t) {
  Quietly([&] {
    auto &asserts = TheAsserts();
    const char *where = path ? path : "-";
    asserts.ring[asserts.count++ % asserts.ring.size()] = {where, line};
    if (asserts.logs.empty()) return;
    asserts.logs.front()->NoteAt(where, line, KST_LOG_ERROR, "assertion failed");
  });
  return KESTREL_ASSERT_RESULT;
}

uint64_t KestrelAssertCount(void) { return TheAsserts().count; }

uint32_t KestrelAssertGet(uint32_t back, KestrelAssert *assertion) {
  const auto &asserts = TheAsserts();
  if (back >= std::min<uint64_t>(asserts.count, asserts.ring.size())) return KESTREL_NOT_FOUND;
  *assertion = asserts.ring[(asserts.count - 1 - back) % asserts.ring.size()];
  return KESTREL_OK;
}

void KestrelAssertClear(void) { TheAsserts().count = 0; }
