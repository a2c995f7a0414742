/* test_pool.cpp: the memory pool of a host under test control. */
#include "test_pool.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <map>

#include "fresh_memory.h"
#include "handle_table.h"

namespace coap_rpc_test {

TestPool::TestPool() : handle_(HandleTable<TestPool>::Add(this, this)) {}

TestPool::~TestPool() {
  FreeAll();
  HandleTable<TestPool>::Remove(handle_);
}

std::string TestPool::LeakText() const {
  std::map<uint64_t, std::string> lines;
  for (const auto &[p, allocation] : live_) {
    lines[allocation.number] = "allocation " + std::to_string(allocation.number) + ": " +
                               std::to_string(allocation.size) + " bytes, " + allocation.tag + "\n";
  }
  std::string text;
  for (const auto &[number, line] : lines) text += line;
  return text;
}

void TestPool::FreeAll() {
  for (const auto &[p, allocation] : live_) std::free(p);
  live_.clear();
  liveBytes_ = 0;
}

void *TestPool::Malloc(size_t size, const char *tag, uint32_t num) {
  CheckTag("KST_Malloc_", tag, num, "mallocRsv");
  return Allocate(size, tag, false);
}

uint32_t TestPool::Free(void *p, const char *tag, uint32_t num) {
  CheckTag("KST_Free_", tag, num, "freeRsv");
  return !p || Release(p, false, "KST_Free_") ? 0 : 1;
}

char *TestPool::NewString(const std::string &text) {
  void *copy = Allocate(text.size() + 1, "string \"" + text.substr(0, 40) + "\"", true);
  if (copy) std::memcpy(copy, text.c_str(), text.size() + 1);
  return static_cast<char *>(copy);
}

void TestPool::DeleteString(char *s) {
  if (s) Release(s, true, "KST_StrDel");
}

void *TestPool::Allocate(size_t size, const std::string &tag, bool isString) {
  if (!MayAllocate(size)) return nullptr;
  void *p = std::malloc(size);
  if (!p) return nullptr;
  MarkFresh(p, size);
  live_[p] = {size, ++numAllocations_, tag, isString};
  liveBytes_ += size;
  peakBytes_ = std::max(peakBytes_, liveBytes_);
  return p;
}

bool TestPool::MayAllocate(size_t size) {
  if (failures_.Count()) return false;
  if (size > kMaxBytes) return false;
  return byteLimit_ == 0 || liveBytes_ + size <= byteLimit_;
}

bool TestPool::Release(void *p, bool isString, const char *caller) {
  const auto found = live_.find(p);
  if (found == live_.end() || found->second.isString != isString) {
    violations_.push_back(std::string(caller) + ": not a live allocation of this pool");
    return false;
  }
  liveBytes_ -= found->second.size;
  live_.erase(found);
  std::free(p);
  return true;
}

void TestPool::CheckTag(const char *caller, const char *tag, uint32_t num,
                        const char *expectedTag) {
  if (!checksTags_ || (std::strcmp(tag, expectedTag) == 0 && num == 123)) return;
  violations_.push_back(std::string(caller) + ": tag " + tag + " " + std::to_string(num));
}

}  // namespace coap_rpc_test
