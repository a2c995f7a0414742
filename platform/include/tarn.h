/* tarn.h: the assertion hook. */
#ifndef TARN_H
#define TARN_H

#include "kst_base.h"

KST_C_BEGIN

/* TARN_Assert records a violated contract and returns; it never aborts.
 *
 *   path   source file without extension, from the project's root; a constant that outlives the
 *          process's use of it
 *   line   fixed number of the check in that file
 *   zero   always 0
 *
 * Returns a fixed non-zero value: some entry points pass it on as their result. */
KST_API uint32_t TARN_Assert(const char *path, uint32_t line, uint32_t zero);

KST_C_END
#endif /* TARN_H */
