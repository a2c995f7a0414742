/* test_services.h: a host under test control, in the same process as what it hosts.
 *
 * Any number of them may be alive at once, each with its own pool, log, display service and timers;
 * what the platform functions cannot tell apart by a handle is in TestProcess.  Time stands still
 * until a test moves it. */
#ifndef TEST_SERVICES_H
#define TEST_SERVICES_H

#include <cstdint>
#include <string>

#include "test_disp.h"
#include "test_log.h"
#include "test_pool.h"
#include "test_process.h"
#include "test_timers.h"

namespace coap_rpc_test {

class TestServices {
 public:
  TestServices();  // resets TestProcess when no other host is alive
  ~TestServices();
  TestServices(const TestServices &) = delete;
  TestServices &operator=(const TestServices &) = delete;

  // Count counts the hosts that are alive.
  static uint32_t Count();

  // The handles for the start-up record.
  uint64_t Mem() const { return pool_.Handle(); }
  uint64_t Log() const { return log_.Handle(); }
  uint64_t Disp() const { return disp_.Handle(); }
  uint64_t Tmr() const { return timers_.Handle(); }
  uint64_t Dbg() const { return log_.DebugHandle(); }

  TestPool &Pool() { return pool_; }
  const TestPool &Pool() const { return pool_; }
  TestLog &Logs() { return log_; }
  const TestLog &Logs() const { return log_; }
  TestDisp &Display() { return disp_; }
  const TestDisp &Display() const { return disp_; }
  TestTimers &Timers() { return timers_; }
  const TestTimers &Timers() const { return timers_; }
  static TestProcess &Process() { return TestProcess::Get(); }

  // LeakText lists memory, timers and display objects that were not given back, one on each line
  // below a line that says what they are; "" when there are none.
  std::string LeakText() const;

  // DiscardAll gives everything back in place of its owners.  None of them may run afterwards.
  void DiscardAll();

 private:
  TestPool pool_;
  TestLog log_;
  TestDisp disp_;
  TestTimers timers_;
};

}  // namespace coap_rpc_test

#endif /* TEST_SERVICES_H */
