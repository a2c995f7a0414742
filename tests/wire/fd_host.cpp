#include "fd_host.h"

#include <sys/timerfd.h>

#include <map>

extern "C" {
int __wrap_timerfd_settime(int fd, int flags, const itimerspec *value, itimerspec *old);
}

namespace {

using coap_rpc_test::TimerSetting;

std::map<int, TimerSetting> g_settings;

}  // namespace

namespace coap_rpc_test {

TimerSetting SettingOf(int timer) { return g_settings[timer]; }

}  // namespace coap_rpc_test

// The timer itself is not set: a test's time is not the machine's.
int __wrap_timerfd_settime(int fd, int, const itimerspec *value, itimerspec *) {
  constexpr uint64_t kNsPerSecond = 1'000'000'000;
  TimerSetting &setting = g_settings[fd];
  setting.ns = static_cast<uint64_t>(value->it_value.tv_sec) * kNsPerSecond +
               static_cast<uint64_t>(value->it_value.tv_nsec);
  ++setting.num;
  return 0;
}
