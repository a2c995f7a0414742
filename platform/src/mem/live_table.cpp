/* live_table.cpp: growth of the table of live allocations. */
#include "mem/live_table.h"

namespace kestrel {

void LiveTable::Grow() {
  std::vector<LiveAlloc> old(m_slots.size() * 2);
  old.swap(m_slots);
  m_count = 0;
  --m_shift;
  for (const LiveAlloc &alloc : old) {
    if (alloc.address != nullptr) Insert(alloc);
  }
}

}  // namespace kestrel
