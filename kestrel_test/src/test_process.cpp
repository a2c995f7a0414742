/* test_process.cpp: what belongs to the whole process and not to one host. */
#include "test_process.h"

#include <algorithm>

namespace coap_rpc_test {

std::ostream &operator<<(std::ostream &out, const AssertRecord &record) {
  return out << record.path << ":" << record.line;
}

TestProcess &TestProcess::Get() {
  static TestProcess process;
  return process;
}

void TestProcess::Reset() {
  const uint64_t elapsedMs = elapsedMs_;  // hosts that are alive measure their time by it
  *this = TestProcess();
  elapsedMs_ = elapsedMs;
  SetNowMs(kDefaultNowMs);
}

void TestProcess::FollowTo(uint64_t elapsedMs) { elapsedMs_ = std::max(elapsedMs_, elapsedMs); }

void TestProcess::SetSystime(const OSAL_Systime &systime, int32_t result) {
  systime_ = systime;
  systimeResult_ = result;
}

void TestProcess::RecordAssert(const char *path, uint32_t line) {
  asserts_.push_back({path, line});
}

}  // namespace coap_rpc_test
