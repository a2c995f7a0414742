/* test_host.h: the host of kestrel-test, for tests with GoogleTest.
 *
 * Complaints of the host, and what is not given back to it, fail the test. */
#ifndef TEST_HOST_H
#define TEST_HOST_H

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "test_services.h"

namespace coap_rpc_test {

class TestHost : public TestServices {
 public:
  TestHost();
  ~TestHost();  // calls ExpectNoLeaks

  // What tests use most; see the services for the contracts.
  void AdvanceMs(uint64_t ms) { Timers().AdvanceMs(ms); }
  std::vector<LogRecord> LogsOf(const std::string &func) const { return Logs().OfFunc(func); }
  void ClearLogs() { Logs().Clear(); }

  // HasLog succeeds when a printed record has exactly this rendered text; HasDebug the same for the
  // debug channel.  On failure the whole log is the message.
  testing::AssertionResult HasLog(const std::string &text) const;
  testing::AssertionResult HasDebug(const std::string &text) const;

  // RunCommand runs a display command with texts and uint32_t numbers as its parameters.
  // Returns what each invocation printed.
  template <typename... Args>
  std::vector<std::string> RunCommand(const std::string &command, Args... args) {
    return Display().Run(command, {DispArg(args)...});
  }

  // InvokeOnce turns one page; the saved context is kept between calls.
  template <typename... Args>
  std::string InvokeOnce(const std::string &command, Args... args) {
    return Display().InvokeOnce(command, {DispArg(args)...});
  }

  // ExpectNoLeaks fails the test when memory, timers or display objects were not given back.
  void ExpectNoLeaks() const;
};

}  // namespace coap_rpc_test

#endif /* TEST_HOST_H */
