/* kst_log.h: rate-limited logging in two halves.
 *
 * A log record is written in up to three steps: KST_LogCnt counts the occurrence (warnings and
 * errors only), KST_LogFirstHalf_ decides whether it is printed, and only then are its arguments
 * evaluated and passed to KST_LogSecondHalf_.  A site is the pair (module, line). */
#ifndef KST_LOG_H
#define KST_LOG_H

#include "kst_base.h"

KST_C_BEGIN

enum { KST_LOG_DEBUG = 0, KST_LOG_INFO = 1, KST_LOG_WARN = 2, KST_LOG_ERROR = 3 };

/* KST_LogObj is the head of the object that a log handle points to: the library reads the counter
 * handle from its fourth 64-bit word and nothing else.  The other words, and what follows them, are
 * the host's. */
typedef struct KST_LogObj {
  uint64_t hostWords[3];
  uint64_t counter;
} KST_LogObj;

/* KST_LogCnt counts one occurrence at the site, printed or not.  Counter 0 is ignored. */
KST_API void KST_LogCnt(uint64_t counter, const char *module, uint32_t line);

/* KST_LogFirstHalf_ decides whether a record of `level` from the site is to be printed now.
 *
 * Returns 0: print it; any other value: suppressed (by level or by rate).  Log 0 is suppressed. */
KST_API uint32_t KST_LogFirstHalf_(uint64_t log, const char *module, uint32_t line, uint32_t level);

/* KST_LogSecondHalf_ prints the record that KST_LogFirstHalf_ has just allowed.
 *
 *   func   name of the writing function; `fmt` may or may not end in a line feed
 * Log 0 is ignored. */
KST_API void KST_LogSecondHalf_(uint64_t log, const char *module, uint32_t line, uint32_t level,
                                const char *func, const char *fmt, ...) KST_PRINTF(6, 7);

KST_C_END
#endif /* KST_LOG_H */
