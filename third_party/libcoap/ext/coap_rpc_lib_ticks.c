#include "coap3/coap_internal.h"

#include "libcoap/ext/coap_rpc_lib_ticks.h"

/* 0 means "never" to libcoap, so a clock that begins with 0 begins later. */
static const coap_tick_t kStartTicks = 1000 * COAP_TICKS_PER_SECOND;

static uint64_t (*g_nowMs)(void);

/* Of coap_time.c. */
void coap_ticks_of_system(coap_tick_t *ticks);

void CoapRpcLibSetClock(uint64_t (*nowMs)(void)) { g_nowMs = nowMs; }

void coap_ticks(coap_tick_t *ticks) {
  if (g_nowMs) {
    *ticks = kStartTicks + g_nowMs() * COAP_TICKS_PER_SECOND / 1000;
  } else {
    coap_ticks_of_system(ticks);
  }
}
