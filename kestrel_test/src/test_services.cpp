/* test_services.cpp: a host under test control, in the same process as what it hosts. */
#include "test_services.h"

#include <sstream>

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

std::string Titled(const char *what, const std::string &leftovers) {
  return leftovers.empty() ? "" : std::string(what) + ":\n" + leftovers;
}

}  // namespace

TestServices::TestServices() {
  if (g_numHosts == 0) TestProcess::Get().Reset();
  ++g_numHosts;
}

TestServices::~TestServices() { --g_numHosts; }

uint32_t TestServices::Count() { return g_numHosts; }

std::string TestServices::LeakText() const {
  return Titled("memory was not freed", pool_.LeakText()) +
         Titled("timers were not stopped", TimersText(timers_.Running())) +
         Titled("display objects were not unregistered", ObjectsText(disp_.Objects()));
}

void TestServices::DiscardAll() {
  pool_.FreeAll();
  timers_.StopAll();
  disp_.UnregAll();
}

}  // namespace coap_rpc_test
