/* pool.cpp: malloc with an account. */
#include "mem/pool.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

namespace kestrel {

Pool::Pool(std::string name, uint64_t limitBytes, BadFreeReport onBadFree)
    : m_name(std::move(name)), m_onBadFree(std::move(onBadFree)), m_limitBytes(limitBytes) {}

Pool::~Pool() {
  m_live.ForEach([](const LiveAlloc &alloc) { std::free(alloc.address); });
}

void *Pool::Alloc(size_t size, const char *tag, uint32_t num) {
  const uint32_t tagIndex = TagIndex(tag != nullptr ? tag : "", num);
  m_live.MakeRoom();
  void *p = ExceedsLimit(size) ? nullptr : std::malloc(std::max<size_t>(size, 1));
  if (p == nullptr) {
    CountRefusal();
    return nullptr;
  }
  m_live.Insert({p, size, tagIndex});
  BookAlloc(size, tagIndex);
  return p;
}

bool Pool::Free(void *p, const char *tag, uint32_t num) {
  LiveAlloc alloc;
  if (!m_live.Take(p, alloc)) {
    ++m_badFreeCount;
    if (m_onBadFree) m_onBadFree(m_name, tag != nullptr ? tag : "", num);
    return false;
  }
  BookFree(alloc);
  std::free(p);
  return true;
}

bool Pool::ExceedsLimit(size_t size) const {
  return m_limitBytes != 0 && size > m_limitBytes - m_account.LiveBytes();
}

uint32_t Pool::TagIndex(const char *tag, uint32_t num) {
  if (m_lastTag < m_tags.size() && m_tags[m_lastTag].text == tag && m_tags[m_lastTag].num == num) {
    return m_lastTag;
  }
  const TagKey key{tag, num};
  const auto found = m_tagIndex.find(key);
  if (found != m_tagIndex.end()) return m_lastTag = found->second;
  if (m_tags.size() < LiveAlloc::kMaxTagIndex) {
    m_lastTag = AddTag(tag, num);
    m_tagIndex.emplace(key, m_lastTag);
    return m_lastTag;
  }
  if (m_tags.size() == LiveAlloc::kMaxTagIndex) AddTag("other", 0);
  return LiveAlloc::kMaxTagIndex;
}

uint32_t Pool::AddTag(const char *tag, uint32_t num) {
  m_tags.push_back({tag, num, {}});
  return static_cast<uint32_t>(m_tags.size() - 1);
}

void Pool::BookAlloc(size_t size, uint32_t tagIndex) {
  m_tags[tagIndex].account.allocated.Add(size);
  m_account.allocated.Add(size);
  m_peakCount = std::max(m_peakCount, m_account.LiveCount());
  m_peakBytes = std::max(m_peakBytes, m_account.LiveBytes());
}

void Pool::BookFree(const LiveAlloc &alloc) {
  m_tags[alloc.tagIndex].account.freed.Add(alloc.size);
  m_account.freed.Add(alloc.size);
}

KestrelMemStat Pool::Stat() const {
  KestrelMemStat stat{};
  stat.liveCount = m_account.LiveCount();
  stat.liveBytes = m_account.LiveBytes();
  stat.peakCount = m_peakCount;
  stat.peakBytes = m_peakBytes;
  stat.allocCount = m_account.allocated.count;
  stat.allocBytes = m_account.allocated.bytes;
  stat.freeCount = m_account.freed.count;
  stat.refusedCount = m_refusedCount;
  stat.badFreeCount = m_badFreeCount;
  stat.limitBytes = m_limitBytes;
  return stat;
}

KestrelMemTagStat Pool::TagStat(uint32_t index) const {
  const Tag &tag = m_tags[index];
  return {tag.text, tag.num, tag.account.LiveCount(), tag.account.LiveBytes(),
          tag.account.allocated.count};
}

}  // namespace kestrel
