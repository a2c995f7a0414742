#include "test_sleep.h"

extern "C" unsigned __real_sleep(unsigned seconds);
extern "C" unsigned __wrap_sleep(unsigned seconds);

namespace {

TestSleep g_sleep = nullptr;

}  // namespace

extern "C" unsigned __wrap_sleep(unsigned seconds) {
  return g_sleep ? g_sleep(seconds) : __real_sleep(seconds);
}

TestSleep SetTestSleep(TestSleep func) {
  const TestSleep old = g_sleep;
  g_sleep = func;
  return old;
}
