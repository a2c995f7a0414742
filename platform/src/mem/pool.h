/* pool.h: one memory pool, malloc with an account.
 *
 * Every allocation is one of malloc, so a memory checker sees each of them with its exact bounds;
 * the pool also records who holds how much. */
#ifndef KESTREL_SRC_MEM_POOL_H
#define KESTREL_SRC_MEM_POOL_H

#include <functional>
#include <string>
#include <unordered_map>
#include <vector>

#include "kestrel.h"
#include "mem/live_table.h"

namespace kestrel {

// Tally counts allocations and their bytes.
struct Tally {
  uint64_t count = 0;
  uint64_t bytes = 0;

  void Add(uint64_t size) {
    ++count;
    bytes += size;
  }
};

// Account keeps what was ever allocated and freed; what is live is the difference.  (Two pairs that
// only grow are quicker than one that both sides change: no load waits for half a store.)
struct Account {
  Tally allocated;
  Tally freed;

  uint64_t LiveCount() const { return allocated.count - freed.count; }
  uint64_t LiveBytes() const { return allocated.bytes - freed.bytes; }
};

// BadFreeReport tells of a free of something that is not live in the pool.
using BadFreeReport = std::function<void(const std::string &pool, const char *tag, uint32_t num)>;

class Pool {
 public:
  Pool(std::string name, uint64_t limitBytes, BadFreeReport onBadFree);
  ~Pool();  // frees what is still live
  Pool(const Pool &) = delete;
  Pool &operator=(const Pool &) = delete;

  // Alloc returns null at the limit or without memory.  Throws std::bad_alloc for its own records.
  void *Alloc(size_t size, const char *tag, uint32_t num);

  // Free returns false, and frees nothing, when `p` is not live in this pool.
  bool Free(void *p, const char *tag, uint32_t num);

  // CountRefusal counts an allocation that failed by an exception.
  void CountRefusal() { ++refusedCount_; }

  const std::string &Name() const { return name_; }
  KestrelMemStat Stat() const;
  uint32_t TagCount() const { return static_cast<uint32_t>(tags_.size()); }
  KestrelMemTagStat TagStat(uint32_t index) const;

 private:
  struct Tag {
    const char *text;
    uint32_t num;
    Account account;
  };

  // Tags are told apart by the address of their text: it outlives the pool.
  struct TagKey {
    const char *tag;
    uint32_t num;
    bool operator==(const TagKey &) const = default;
  };
  struct TagHash {
    size_t operator()(const TagKey &key) const {
      return std::hash<const void *>()(key.tag) * 31 + key.num;
    }
  };

  bool ExceedsLimit(size_t size) const;
  uint32_t TagIndex(const char *tag, uint32_t num);
  uint32_t AddTag(const char *tag, uint32_t num);
  void BookAlloc(size_t size, uint32_t tagIndex);
  void BookFree(const LiveAlloc &alloc);

  std::string name_;
  BadFreeReport onBadFree_;
  uint64_t limitBytes_;
  Account account_;
  uint64_t peakCount_ = 0;
  uint64_t peakBytes_ = 0;
  uint64_t refusedCount_ = 0;
  uint64_t badFreeCount_ = 0;
  LiveTable live_;
  std::vector<Tag> tags_;
  std::unordered_map<TagKey, uint32_t, TagHash> tagIndex_;
  uint32_t lastTag_ = 0;
};

}  // namespace kestrel

#endif /* KESTREL_SRC_MEM_POOL_H */
