/* kst_tmr.h: repeating timers on the host thread. */
#ifndef KST_TMR_H
#define KST_TMR_H

#include "kst_base.h"

KST_C_BEGIN

/* KST_TmrTick is one tick of a timer.  It may start and stop any timer, including its own.
 * Its result is ignored. */
typedef uint32_t (*KST_TmrTick)(void *param);

/* KST_TmrStartLoop starts a repeating timer on the timer service `tmr`.
 *
 *   periodMs   milliseconds, at least 1; the first tick is one period from now, the following
 *              ones keep that phase (a late tick does not shift the next one; missed ticks are
 *              not repeated)
 *   param      passed to every tick, not otherwise used
 *
 * Returns the timer's id, never 0 and not reused while the timer runs; 0 when it cannot be started,
 * also for service 0. */
KST_API uint64_t KST_TmrStartLoop(uint64_t tmr, KST_TmrTick tick, uint32_t periodMs, void *param);

/* KST_TmrStop stops timer `id`; its tick is not called again, not even one that is already due.
 *
 * Safe inside any tick, including that of the same timer.  Service 0, and an id that is 0 or no
 * longer runs, are ignored. */
KST_API void KST_TmrStop(uint64_t tmr, uint64_t id);

KST_C_END
#endif /* KST_TMR_H */
