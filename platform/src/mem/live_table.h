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
  LiveTable() : slots_(kFirstSlots) {}

  // MakeRoom makes sure that the next Insert finds a slot.  Throws std::bad_alloc.
  void MakeRoom() {
    if ((count_ + 1) * kSlotsPerAlloc > slots_.size()) Grow();
  }

  // Insert takes up an address that is not in the table.  REQUIRES: MakeRoom since the last one.
  void Insert(const LiveAlloc &alloc) {
    size_t slot = HomeOf(alloc.address);
    while (slots_[slot].address) slot = After(slot);
    slots_[slot] = alloc;
    ++count_;
  }

  // Take removes the allocation at `address` into `taken`; false when there is none.
  bool Take(const void *address, LiveAlloc &taken) {
    size_t slot = HomeOf(address);
    while (slots_[slot].address != address) {
      if (!slots_[slot].address) return false;
      slot = After(slot);
    }
    taken = slots_[slot];
    CloseGap(slot);
    --count_;
    return true;
  }

  size_t Count() const { return count_; }

  template <typename Visit>
  void ForEach(Visit visit) const {
    for (const LiveAlloc &slot : slots_) {
      if (slot.address) visit(slot);
    }
  }

 private:
  static constexpr size_t kFirstSlots = 64;    // a power of two, as is every later size
  static constexpr size_t kSlotsPerAlloc = 4;  // so empty that a search seldom takes a second look

  size_t HomeOf(const void *address) const {
    constexpr uint64_t kGoldenRatio = 0x9E3779B97F4A7C15u;
    return static_cast<size_t>((reinterpret_cast<uintptr_t>(address) * kGoldenRatio) >> shift_);
  }
  size_t After(size_t slot) const { return (slot + 1) & (slots_.size() - 1); }
  void Grow();

  // CloseGap moves later members of the run into the gap when their search would pass it.
  void CloseGap(size_t gap) {
    const size_t mask = slots_.size() - 1;
    for (size_t slot = After(gap); slots_[slot].address; slot = After(slot)) {
      const size_t fromHome = (slot - HomeOf(slots_[slot].address)) & mask;
      const size_t fromGap = (slot - gap) & mask;
      if (fromHome < fromGap) continue;
      slots_[gap] = slots_[slot];
      gap = slot;
    }
    slots_[gap].address = nullptr;
  }

  std::vector<LiveAlloc> slots_;
  size_t count_ = 0;
  unsigned shift_ = 64 - 6;  // 64 less the number of bits of a slot index
};

}  // namespace kestrel

#endif /* KESTREL_SRC_MEM_LIVE_TABLE_H */
