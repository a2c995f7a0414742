/* osal_clock.cpp: the clocks of the OS layer. */
#include <ctime>

#include "osal.h"

uint32_t OSAL_MillSecNow(uint32_t *high, uint32_t *low) {
  timespec now;
  if (clock_gettime(CLOCK_REALTIME, &now) != 0) return 1;
  const uint64_t millis =
      static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_nsec) / 1000000;
  *high = static_cast<uint32_t>(millis >> 32);
  *low = static_cast<uint32_t>(millis);
  return 0;
}

int32_t OSAL_SystimeGet(OSAL_Systime *now) {
  timespec spec;
  tm local;
  if (clock_gettime(CLOCK_REALTIME, &spec) != 0) return -1;
  if (!localtime_r(&spec.tv_sec, &local)) return -2;
  *now = {static_cast<uint32_t>(local.tm_year + 1900),  static_cast<uint32_t>(local.tm_mon + 1),
          static_cast<uint32_t>(local.tm_mday),         static_cast<uint32_t>(local.tm_hour),
          static_cast<uint32_t>(local.tm_min),          static_cast<uint32_t>(local.tm_sec),
          static_cast<uint32_t>(spec.tv_nsec / 1000000)};
  return 0;
}
