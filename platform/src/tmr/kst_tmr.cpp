/* kst_tmr.cpp: the timer service at the C interface. */
#include "kst_tmr.h"

#include "host/edge.h"
#include "tmr/loop_timers.h"

using kestrel::FromHandle;
using kestrel::LoopTimers;

uint64_t KST_TmrStartLoop(uint64_t tmr, KST_TmrTick tick, uint32_t periodMs, void *param) {
  if (tmr == 0) return 0;
  return kestrel::Guarded(
      uint64_t{0}, [&] { return FromHandle<LoopTimers>(tmr)->Start(tick, periodMs, param); });
}

void KST_TmrStop(uint64_t tmr, uint64_t id) {
  if (tmr != 0) FromHandle<LoopTimers>(tmr)->Stop(id);
}
