/* fail_plan.h: decides which calls of one kind are to fail.
 *
 * Calls are counted over the plan's life, so that a test can first count the calls of a run and
 * then let each of them fail in turn. */
#ifndef FAIL_PLAN_H
#define FAIL_PLAN_H

#include <cstdint>

namespace coap_rpc_test {

class FailPlan {
 public:
  // FailOnce lets the n-th call from now fail (1 is the next one), and only that one.
  void FailOnce(uint64_t n) { Arm(n, false); }

  // FailFrom lets the n-th call from now and all later ones fail.
  void FailFrom(uint64_t n) { Arm(n, true); }

  // Clear lets no further call fail.
  void Clear() { failAt_ = 0; }

  // Count counts one call.  Returns true when that call is to fail.
  [[nodiscard]] bool Count();

  uint64_t NumCalls() const { return numCalls_; }
  uint64_t NumFailed() const { return numFailed_; }

 private:
  void Arm(uint64_t n, bool forGood);

  uint64_t numCalls_ = 0;
  uint64_t numFailed_ = 0;
  uint64_t failAt_ = 0;  // number of the call that fails; 0: none
  bool forGood_ = false;
};

inline void FailPlan::Arm(uint64_t n, bool forGood) {
  failAt_ = numCalls_ + n;
  forGood_ = forGood;
}

inline bool FailPlan::Count() {
  ++numCalls_;
  const bool fails = failAt_ != 0 && (forGood_ ? numCalls_ >= failAt_ : numCalls_ == failAt_);
  if (fails) ++numFailed_;
  return fails;
}

}  // namespace coap_rpc_test

#endif /* FAIL_PLAN_H */
