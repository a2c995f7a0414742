/* live_table.cpp: growth of the table of live allocations. */
#include "mem/live_table.h"

namespace kestrel {

void LiveTable::Grow() {
  std::vector<LiveAlloc> old(slots_.size() * 2);
  old.swap(slots_);
  count_ = 0;
  --shift_;
  for (const LiveAlloc &alloc : old) {
    if (alloc.address) Insert(alloc);
  }
}

}  // namespace kestrel
