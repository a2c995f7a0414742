/* osal.h: the OS layer: trees, byte and text helpers, clocks, address texts. */
#ifndef OSAL_H
#define OSAL_H

#include "osal_avl3.h"

KST_C_BEGIN

/* OSAL_MemCmp compares `len` bytes as unsigned numbers.  Returns exactly -1, 0 or 1. */
KST_API int32_t OSAL_MemCmp(const void *a, const void *b, size_t len);

/* OSAL_StrChr and OSAL_StrRChr find the first and the last `c` in `s`; null if there is none.
 * The terminator counts as a character of the text. */
KST_API char *OSAL_StrChr(const char *s, int c);
KST_API char *OSAL_StrRChr(const char *s, int c);

/* OSAL_MillSecNow returns the time in milliseconds as two halves of a 64-bit number.
 *
 * The number is never 0 and also grows across restarts of the process (for example milliseconds
 * since 1970): check codes are made from it.
 *
 * Returns 0, or non-zero when the clock cannot be read (outputs untouched). */
KST_API uint32_t OSAL_MillSecNow(uint32_t *high, uint32_t *low);

/* OSAL_Systime is a local calendar time. */
typedef struct OSAL_Systime {
  uint32_t year;   /* for example 2024 */
  uint32_t month;  /* 1 to 12 */
  uint32_t day;    /* 1 to 31 */
  uint32_t hour;   /* 0 to 23 */
  uint32_t minute; /* 0 to 59 */
  uint32_t second; /* 0 to 60 */
  uint32_t millis; /* 0 to 999 */
} OSAL_Systime;

/* OSAL_SystimeGet reads the local time.  Returns 0 or more; a negative code on failure. */
KST_API int32_t OSAL_SystimeGet(OSAL_Systime *now);

/* OSAL_IpAddrToStrEx writes an IPv4 address (host byte order) as dotted quad.
 *
 * Returns buf, or null when `len` bytes do not hold the text and its terminator. */
KST_API char *OSAL_IpAddrToStrEx(uint32_t ipv4, char *buf, uint32_t len);

/* OSAL_Inet_ntoa_b_ipv6_ex writes an IPv6 address in the usual text form (RFC 5952).
 *
 *   high, low   the first and the last eight address bytes as they lie in memory, network order
 *
 * Returns 0, or non-zero when `len` bytes do not hold the text and its terminator. */
KST_API uint32_t OSAL_Inet_ntoa_b_ipv6_ex(uint64_t high, uint64_t low, char *buf, uint32_t len);

KST_C_END
#endif /* OSAL_H */
