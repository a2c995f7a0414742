/* live_table.h: the allocations of a pool that are live, found by their address.
 *
 * An open hash table with linear probing and without tombstones.  The pool needs no header in front
 * of an allocation, so a pointer that is not ours is recognised without reading the memory around
 * it. */
#ifndef KESTREL_SRC_MEM_LIVE_TABLE_H
#define KESTREL_SRC_MEM_LIVE_TABLE_H

#include <cstddef>
#include <cstdint>
#include <vector>

namespace kestrel {

// LiveAlloc is one live allocation, packed into two words: more of them fit a cache line.
struct LiveAlloc {
  static constexpr uint32_t kMaxTagIndex = 0xFFFF;

  LiveAlloc() : address(nullptr), size(0), tagIndex(0) {}
  LiveAlloc(void *at, size_t bytes, uint32_t tag)
      : address(at), size(bytes & 0xFFFFFFFFFFFFu), tagIndex(tag & kMaxTagIndex) {}

  void *address;       // null: the slot is free
  uint64_t size : 48;  // bytes asked for; an address space has no room for more
  uint64_t tagIndex : 16;
};
static_assert(sizeof(LiveAlloc) == 16);

class LiveTable {
 public:
  LiveTable() : m_slots(kFirstSlots) {}

  // MakeRoom makes sure that the next Insert finds a slot.  Throws std::bad_alloc.
  void MakeRoom() {
    if ((m_count + 1) * kSlotsPerAlloc > m_slots.size()) Grow();
  }

  // Insert takes up an address that is not in the table.  REQUIRES: MakeRoom since the last one.
  void Insert(const LiveAlloc &alloc) {
    size_t slot = HomeOf(alloc.address);
    while (m_slots[slot].address != nullptr) slot = After(slot);
    m_slots[slot] = alloc;
    ++m_count;
  }

  // Take removes the allocation at `address` into `taken`; false when there is none.
  bool Take(const void *address, LiveAlloc &taken) {
    size_t slot = HomeOf(address);
    while (m_slots[slot].address != address) {
      if (m_slots[slot].address == nullptr) return false;
      slot = After(slot);
    }
    taken = m_slots[slot];
    CloseGap(slot);
    --m_count;
    return true;
  }

  size_t Count() const { return m_count; }

  template <typename Visit>
  void ForEach(Visit visit) const {
    for (const LiveAlloc &slot : m_slots) {
      if (slot.address != nullptr) visit(slot);
    }
  }

 private:
  static constexpr size_t kFirstSlots = 64;    // a power of two, as is every later size
  static constexpr size_t kSlotsPerAlloc = 4;  // so empty that a search seldom takes a second look

  size_t HomeOf(const void *address) const {
    constexpr uint64_t kGoldenRatio = 0x9E3779B97F4A7C15u;
    return static_cast<size_t>((reinterpret_cast<uintptr_t>(address) * kGoldenRatio) >> m_shift);
  }
  size_t After(size_t slot) const { return (slot + 1) & (m_slots.size() - 1); }
  void Grow();

  // CloseGap moves later members of the run into the gap when their search would pass it.
  void CloseGap(size_t gap) {
    const size_t mask = m_slots.size() - 1;
    for (size_t slot = After(gap); m_slots[slot].address != nullptr; slot = After(slot)) {
      const size_t fromHome = (slot - HomeOf(m_slots[slot].address)) & mask;
      const size_t fromGap = (slot - gap) & mask;
      if (fromHome < fromGap) continue;
      m_slots[gap] = m_slots[slot];
      gap = slot;
    }
    m_slots[gap].address = nullptr;
  }

  std::vector<LiveAlloc> m_slots;
  size_t m_count = 0;
  unsigned m_shift = 64 - 6;  // 64 less the number of bits of a slot index
};

}  // namespace kestrel

#endif /* KESTREL_SRC_MEM_LIVE_TABLE_H */
