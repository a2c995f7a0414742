/* test_process.h: what belongs to the whole process and not to one host.
 *
 * The clocks of the OS layer, the assertion record, the way module tables behave, and debug texts
 * that were written without a handle.  The first host alive resets all of it. */
#ifndef TEST_PROCESS_H
#define TEST_PROCESS_H

#include <cstdint>
#include <map>
#include <ostream>
#include <string>
#include <vector>

#include "kst_mods.h"
#include "osal.h"

namespace coap_rpc_test {

inline constexpr uint32_t kAssertResult = 1900000999;         // what TARN_Assert returns
inline constexpr uint64_t kDefaultNowMs = 1'700'000'000'000;  // after Reset

struct AssertRecord {
  std::string path;
  uint32_t line = 0;

  bool operator==(const AssertRecord &) const = default;
};

std::ostream &operator<<(std::ostream &out, const AssertRecord &record);

// ModsBehaviour says how module tables run.  After Reset: no unwinding, no failing row.
struct ModsBehaviour {
  bool unwinds = false;                     // a failing table is unwound by the host as well
  const KST_ModEntry *failTable = nullptr;  // table with the row that fails; null: none
  uint32_t failRow = 0;                     // counted from 0; its init is not called ...
  uint32_t failResult = 0;                  // ... this is its result instead
  bool goesOn = false;                      // the rows after one that failed run as well
  // Rows that fail, uncalled, with result 1: bit 0 is the first one of the table.
  std::map<const KST_ModEntry *, uint32_t> failMasks = {};
};

class TestProcess {
 public:
  static TestProcess &Get();

  // Reset brings everything to the state at program start.
  void Reset();

  // The clock that OSAL_MillSecNow reads.  It moves with the hosts: each host keeps its own time,
  // and the clock follows the one that is ahead.
  uint64_t NowMs() const { return epochMs_ + elapsedMs_; }
  void SetNowMs(uint64_t nowMs) { epochMs_ = nowMs - elapsedMs_; }
  void FailMillSecNow(uint32_t result) { millSecResult_ = result; }  // 0: works again
  uint32_t MillSecResult() const { return millSecResult_; }

  // ElapsedMs is the time of the host that is ahead; FollowTo tells how far a host has come.
  uint64_t ElapsedMs() const { return elapsedMs_; }
  void FollowTo(uint64_t elapsedMs);

  // The calendar time that OSAL_SystimeGet gives, and its result.  It stands still.
  void SetSystime(const OSAL_Systime &systime, int32_t result = 0);
  void FailSystime(int32_t result) { systimeResult_ = result; }
  const OSAL_Systime &Systime() const { return systime_; }
  int32_t SystimeResult() const { return systimeResult_; }

  // Asserts gives the calls of TARN_Assert in order.
  const std::vector<AssertRecord> &Asserts() const { return asserts_; }
  void ClearAsserts() { asserts_.clear(); }
  void RecordAssert(const char *path, uint32_t line);

  ModsBehaviour &Mods() { return mods_; }

  // NullDebugTexts gives what was written to the debug channel or the system log with handle 0.
  const std::vector<std::string> &NullDebugTexts() const { return nullDebugTexts_; }
  void RecordNullDebug(std::string text) { nullDebugTexts_.push_back(std::move(text)); }

 private:
  uint64_t epochMs_ = kDefaultNowMs;
  uint64_t elapsedMs_ = 0;
  uint32_t millSecResult_ = 0;
  OSAL_Systime systime_ = {2024, 1, 2, 3, 4, 5, 6};
  int32_t systimeResult_ = 0;
  std::vector<AssertRecord> asserts_;
  ModsBehaviour mods_;
  std::vector<std::string> nullDebugTexts_;
};

}  // namespace coap_rpc_test

#endif /* TEST_PROCESS_H */
