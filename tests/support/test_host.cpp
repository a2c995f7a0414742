/* test_host.cpp: a host under test control, in the same process as the library's objects. */
#include "test_host.h"

#include <sstream>

#include <gtest/gtest.h>

namespace coap_rpc_test {
namespace {

uint32_t g_numHosts = 0;

std::string TimersText(const std::vector<RunningTimer> &timers) {
  std::ostringstream text;
  for (const RunningTimer &timer : timers) text << timer << "\n";
  return text.str();
}

std::string ObjectsText(const std::map<std::string, void *> &objects) {
  std::string text;
  for (const auto &[name, obj] : objects) text += name + "\n";
  return text;
}

void ExpectNone(const char *what, const std::string &leftovers) {
  if (!leftovers.empty()) ADD_FAILURE() << what << ":\n" << leftovers;
}

}  // namespace

TestHost::TestHost() {
  if (g_numHosts == 0) TestProcess::Get().Reset();
  ++g_numHosts;
}

TestHost::~TestHost() {
  ExpectNoLeaks();
  --g_numHosts;
}

void TestHost::ExpectNoLeaks() const {
  ExpectNone("memory was not freed", pool_.LeakText());
  ExpectNone("timers were not stopped", TimersText(timers_.Running()));
  ExpectNone("display objects were not unregistered", ObjectsText(disp_.Objects()));
}

void TestHost::DiscardAll() {
  pool_.FreeAll();
  timers_.StopAll();
  disp_.UnregAll();
}

}  // namespace coap_rpc_test
