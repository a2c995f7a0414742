#include "coap_svc/rpc/server/sync/coap_rpc_ser_sync_ages.h"

#include <algorithm>
#include <iterator>

namespace coap_rpc {
namespace {

void KeepEverySecond(SyncAges &ages) {
  ages.num = (ages.num + 1) / 2;
  for (uint32_t i = 1; i < ages.num; ++i) ages.marks[i] = ages.marks[2 * i];
}

// IndexOf is that of the last mark up to a version, 0 for those before all.
uint32_t IndexOf(const SyncAges &ages, uint64_t version) {
  uint32_t at = 0;
  while (at + 1 < ages.num && ages.marks[at + 1].version <= version) ++at;
  return at;
}

}  // namespace

void SyncAgesMark(SyncAges &ages, uint64_t version, uint64_t nowMs) {
  if (ages.num == std::size(ages.marks)) KeepEverySecond(ages);
  ages.marks[ages.num++] = {version, nowMs};
}

void SyncAgesForget(SyncAges &ages, uint64_t version) {
  const uint32_t numOld = IndexOf(ages, version);
  std::copy(ages.marks + numOld, ages.marks + ages.num, ages.marks);
  ages.num -= numOld;
}

uint64_t SyncAgeOf(const SyncAges &ages, uint64_t version, uint64_t nowMs) {
  if (ages.num == 0) return 0;
  const uint64_t madeMs = ages.marks[IndexOf(ages, version)].ms;
  return nowMs > madeMs ? nowMs - madeMs : 0;
}

}  // namespace coap_rpc
