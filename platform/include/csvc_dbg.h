/* csvc_dbg.h: the debug channel, in addition to the framework log.
 *
 * Both functions accept a null handle: a host may drop the text or write it to a channel of its
 * choice (the reference host drops it).  Texts may or may not end in a line feed. */
#ifndef CSVC_DBG_H
#define CSVC_DBG_H

#include "kst_base.h"

KST_C_BEGIN

/* CSVC_DBG_Debug writes one text to the debug channel.  The library always uses level 1. */
KST_API void CSVC_DBG_Debug(uint64_t dbg, uint32_t level, const char *fmt, ...) KST_PRINTF(3, 4);

/* CSVC_DBG_Takes tells whether CSVC_DBG_Debug would write a text of this level now, also for
 * handle 0.  The library asks before each text, so that it does not format texts that are dropped.
 *
 * Optional: a host without this function gets every text.  The library refers to it weakly.
 *
 * Returns 1: write the text now; 0: it is dropped, counts as dropped, and must not be written. */
KST_API uint32_t CSVC_DBG_Takes(uint64_t dbg, uint32_t level);

/* CSVC_DBG_SysLog writes one text to the system log; used for requests that could not be sent or
 * were not delivered, and for the payloads of URIs under diagnosis.  Also level 1. */
KST_API void CSVC_DBG_SysLog(uint64_t dbg, uint32_t level, const char *fmt, ...) KST_PRINTF(3, 4);

KST_C_END
#endif /* CSVC_DBG_H */
