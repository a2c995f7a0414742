/* test_host.h: a host under test control, in the same process as the library's objects.
 *
 * The static library `test_host` defines every platform function (the pure ones come from the
 * reference host's sources).  Any number of TestHost objects may be alive at once, each with its
 * own pool, log, display service and timers; what the platform functions cannot tell apart by a
 * handle is in TestProcess.  Time stands still until a test moves it. */
#ifndef TEST_HOST_H
#define TEST_HOST_H

#include <cstdint>
#include <string>
#include <vector>

#include "test_disp.h"
#include "test_log.h"
#include "test_pool.h"
#include "test_process.h"
#include "test_timers.h"

namespace coap_rpc_test {

class TestHost {
 public:
  TestHost();   // resets TestProcess when no other host is alive
  ~TestHost();  // calls ExpectNoLeaks
  TestHost(const TestHost &) = delete;
  TestHost &operator=(const TestHost &) = delete;

  // The handles for the start-up record.
  uint64_t Mem() const { return pool_.Handle(); }
  uint64_t Log() const { return log_.Handle(); }
  uint64_t Disp() const { return disp_.Handle(); }
  uint64_t Tmr() const { return timers_.Handle(); }
  uint64_t Dbg() const { return log_.DebugHandle(); }

  // Their services.
  TestPool &Pool() { return pool_; }
  TestLog &Logs() { return log_; }
  TestDisp &Display() { return disp_; }
  TestTimers &Timers() { return timers_; }
  static TestProcess &Process() { return TestProcess::Get(); }

  // What tests use most; see the services for the contracts.
  void AdvanceMs(uint64_t ms) { timers_.AdvanceMs(ms); }
  testing::AssertionResult HasLog(const std::string &text) const { return log_.Has(text); }
  testing::AssertionResult HasDebug(const std::string &text) const { return log_.HasDebug(text); }
  std::vector<LogRecord> LogsOf(const std::string &func) const { return log_.OfFunc(func); }
  void ClearLogs() { log_.Clear(); }

  // RunCommand runs a display command with texts and uint32_t numbers as its parameters.
  // Returns what each invocation printed.
  template <typename... Args>
  std::vector<std::string> RunCommand(const std::string &command, Args... args) {
    return disp_.Run(command, {DispArg(args)...});
  }

  // InvokeOnce turns one page; the saved context is kept between calls.
  template <typename... Args>
  std::string InvokeOnce(const std::string &command, Args... args) {
    return disp_.InvokeOnce(command, {DispArg(args)...});
  }

  // ExpectNoLeaks fails the test when memory, timers or display objects were not given back.
  void ExpectNoLeaks() const;

  // DiscardAll gives everything back in the library's stead: for tests that leave it on purpose.
  // Nothing that used this host may run afterwards.
  void DiscardAll();

 private:
  TestPool pool_;
  TestLog log_;
  TestDisp disp_;
  TestTimers timers_;
};

}  // namespace coap_rpc_test

#endif /* TEST_HOST_H */
