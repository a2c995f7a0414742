/* test_host.cpp: the host of kestrel-test, for tests with GoogleTest. */
#include "test_host.h"

#include "complaint.h"

namespace coap_rpc_test {
namespace {

void FailTest(const std::string &complaint) { ADD_FAILURE() << complaint; }

testing::AssertionResult HasText(const TestLog &log, LogKind kind, const std::string &text) {
  if (log.Has(kind, text)) {
    return testing::AssertionSuccess() << "in the log: " << testing::PrintToString(text);
  }
  return testing::AssertionFailure()
         << "not in the log: " << testing::PrintToString(text) << "\nthe log is:\n"
         << log.AllText();
}

}  // namespace

TestHost::TestHost() { SetComplaintSink(FailTest); }

TestHost::~TestHost() { ExpectNoLeaks(); }

testing::AssertionResult TestHost::HasLog(const std::string &text) const {
  return HasText(Logs(), LogKind::kSecond, text);
}

testing::AssertionResult TestHost::HasDebug(const std::string &text) const {
  return HasText(Logs(), LogKind::kDebug, text);
}

void TestHost::ExpectNoLeaks() const {
  const std::string leaks = LeakText();
  if (!leaks.empty()) ADD_FAILURE() << leaks;
}

}  // namespace coap_rpc_test
