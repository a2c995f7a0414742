/* kst_mem.h: pooled memory and framework strings. */
#ifndef KST_MEM_H
#define KST_MEM_H

#include "kst_base.h"

KST_C_BEGIN

/* KST_Malloc_ allocates `size` bytes from the pool `mem`, aligned for any type, not cleared.
 *
 *   tag, num   who allocates, for the pool's statistics; the text outlives the pool
 *
 * Returns null when the pool is 0 or exhausted, or `size` is unavailable.  Size 0 returns a unique
 * pointer that can be freed. */
KST_API void *KST_Malloc_(uint64_t mem, size_t size, const char *tag, uint32_t num);

/* KST_Free_ returns `p` to the pool that it came from.  Null is accepted.
 *
 * Returns 0, or a non-zero value when `p` is not a live allocation of `mem` (nothing is freed). */
KST_API uint32_t KST_Free_(uint64_t mem, void *p, const char *tag, uint32_t num);

/* KST_StrNew creates a framework string from a printf format, allocated from `mem`.
 *
 * Returns the NUL-terminated text, or null if out of memory or for pool 0.  Free it with KST_StrDel
 * only. */
KST_API char *KST_StrNew(uint64_t mem, const char *fmt, ...) KST_PRINTF(2, 3);

/* KST_StrDel frees a text of KST_StrNew from the same pool.  Null is accepted; with pool 0
 * nothing happens. */
KST_API void KST_StrDel(uint64_t mem, char *s);

/* KST_MemUsage says how many bytes are in use in a pool, and how many were at most so far.
 *
 * Optional: a host without this function does not say.  The library refers to it weakly.
 *
 * Returns 0; non-zero for pool 0, and then nothing is written. */
KST_API uint32_t KST_MemUsage(uint64_t mem, uint64_t *bytes, uint64_t *maxBytes);

KST_C_END
#endif /* KST_MEM_H */
