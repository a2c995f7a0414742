/* pool.cpp: malloc with an account. */
#include "mem/pool.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

namespace kestrel {

Pool::Pool(std::string name, uint64_t limitBytes, BadFreeReport onBadFree)
    : name_(std::move(name)), onBadFree_(std::move(onBadFree)), limitBytes_(limitBytes) {}

Pool::~Pool() {
  live_.ForEach([](const LiveAlloc &alloc) { std::free(alloc.address); });
}

void *Pool::Alloc(size_t size, const char *tag, uint32_t num) {
  const uint32_t tagIndex = TagIndex(tag ? tag : "", num);
  live_.MakeRoom();
  void *p = ExceedsLimit(size) ? nullptr : std::malloc(std::max<size_t>(size, 1));
  if (!p) {
    CountRefusal();
    return nullptr;
  }
  live_.Insert({p, size, tagIndex});
  BookAlloc(size, tagIndex);
  return p;
}

bool Pool::Free(void *p, const char *tag, uint32_t num) {
  LiveAlloc alloc;
  if (!live_.Take(p, alloc)) {
    ++badFreeCount_;
    if (onBadFree_) onBadFree_(name_, tag ? tag : "", num);
    return false;
  }
  BookFree(alloc);
  std::free(p);
  return true;
}

bool Pool::ExceedsLimit(size_t size) const {
  return limitBytes_ != 0 && size > limitBytes_ - account_.LiveBytes();
}

uint32_t Pool::TagIndex(const char *tag, uint32_t num) {
  if (lastTag_ < tags_.size() && tags_[lastTag_].text == tag && tags_[lastTag_].num == num) {
    return lastTag_;
  }
  const TagKey key{tag, num};
  const auto found = tagIndex_.find(key);
  if (found != tagIndex_.end()) return lastTag_ = found->second;
  if (tags_.size() < LiveAlloc::kMaxTagIndex) {
    lastTag_ = AddTag(tag, num);
    tagIndex_.emplace(key, lastTag_);
    return lastTag_;
  }
  if (tags_.size() == LiveAlloc::kMaxTagIndex) AddTag("other", 0);
  return LiveAlloc::kMaxTagIndex;
}

uint32_t Pool::AddTag(const char *tag, uint32_t num) {
  tags_.push_back({tag, num, {}});
  return static_cast<uint32_t>(tags_.size() - 1);
}

void Pool::BookAlloc(size_t size, uint32_t tagIndex) {
  tags_[tagIndex].account.allocated.Add(size);
  account_.allocated.Add(size);
  peakCount_ = std::max(peakCount_, account_.LiveCount());
  peakBytes_ = std::max(peakBytes_, account_.LiveBytes());
}

void Pool::BookFree(const LiveAlloc &alloc) {
  tags_[alloc.tagIndex].account.freed.Add(alloc.size);
  account_.freed.Add(alloc.size);
}

KestrelMemStat Pool::Stat() const {
  KestrelMemStat stat{};
  stat.liveCount = account_.LiveCount();
  stat.liveBytes = account_.LiveBytes();
  stat.peakCount = peakCount_;
  stat.peakBytes = peakBytes_;
  stat.allocCount = account_.allocated.count;
  stat.allocBytes = account_.allocated.bytes;
  stat.freeCount = account_.freed.count;
  stat.refusedCount = refusedCount_;
  stat.badFreeCount = badFreeCount_;
  stat.limitBytes = limitBytes_;
  return stat;
}

KestrelMemTagStat Pool::TagStat(uint32_t index) const {
  const Tag &tag = tags_[index];
  return {tag.text, tag.num, tag.account.LiveCount(), tag.account.LiveBytes(),
          tag.account.allocated.count};
}

}  // namespace kestrel
