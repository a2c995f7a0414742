/* test_pool.h: the memory pool of a host under test control.
 *
 * Every allocation is one of malloc, so that address checkers see its bounds and its end.  The
 * pool knows each of them by address: it refuses foreign and double frees, counts, and lists what
 * was never given back.  Fresh memory is filled with kFreshByte, so that missing clearing shows. */
#ifndef TEST_POOL_H
#define TEST_POOL_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "fail_plan.h"
#include "fresh_memory.h"

namespace coap_rpc_test {

class TestPool {
 public:
  static constexpr uint8_t kFreshByte = coap_rpc_test::kFreshByte;
  static constexpr size_t kMaxBytes = size_t{1} << 30;  // larger requests are refused

  TestPool();
  ~TestPool();  // frees what is left, without a word
  TestPool(const TestPool &) = delete;
  TestPool &operator=(const TestPool &) = delete;

  uint64_t Handle() const { return handle_; }

  // Failures decides which allocations fail.  Framework strings count as allocations too.
  FailPlan &Failures() { return failures_; }
  const FailPlan &Failures() const { return failures_; }

  // SetByteLimit refuses allocations that would bring LiveBytes above `numBytes`; 0: no limit.
  void SetByteLimit(uint64_t numBytes) { byteLimit_ = numBytes; }

  uint64_t LiveCount() const { return live_.size(); }
  uint64_t LiveBytes() const { return liveBytes_; }
  uint64_t PeakBytes() const { return peakBytes_; }
  uint64_t NumAllocations() const { return numAllocations_; }  // successful ones

  // Violations lists calls that break the library's own rules: other tags than "mallocRsv" and
  // "freeRsv" with number 123, and frees of what is not a live allocation of this pool.
  const std::vector<std::string> &Violations() const { return violations_; }
  void ClearViolations() { violations_.clear(); }

  // AllowAnyTag is for pools that applications use as well: other tags are no violations then.
  void AllowAnyTag() { checksTags_ = false; }

  // LeakText describes the live allocations, one line each, oldest first; "" when there are none.
  std::string LeakText() const;

  // FreeAll frees everything that is live.
  void FreeAll();

  // The operations of KST_Malloc_, KST_Free_, KST_StrNew and KST_StrDel.
  void *Malloc(size_t size, const char *tag, uint32_t num);
  uint32_t Free(void *p, const char *tag, uint32_t num);
  char *NewString(const std::string &text);
  void DeleteString(char *s);

 private:
  struct Allocation {
    size_t size;
    uint64_t number;  // counted from 1 over the pool's life
    std::string tag;
    bool isString;
  };

  void *Allocate(size_t size, const std::string &tag, bool isString);
  bool MayAllocate(size_t size);
  bool Release(void *p, bool isString, const char *caller);
  void CheckTag(const char *caller, const char *tag, uint32_t num, const char *expectedTag);

  std::unordered_map<void *, Allocation> live_;
  std::vector<std::string> violations_;
  FailPlan failures_;
  bool checksTags_ = true;
  uint64_t byteLimit_ = 0;
  uint64_t liveBytes_ = 0;
  uint64_t peakBytes_ = 0;
  uint64_t numAllocations_ = 0;
  uint64_t handle_;
};

}  // namespace coap_rpc_test

#endif /* TEST_POOL_H */
