/* kst_mods.h: module tables: ordered lists of start and stop functions for one record. */
#ifndef KST_MODS_H
#define KST_MODS_H

#include "kst_base.h"

KST_C_BEGIN

/* KST_ModFunc starts or stops one module of `record`.  Returns 0 or the module's own code. */
typedef uint32_t (*KST_ModFunc)(void *record);

/* KST_ModEntry is one row.  Either function may be null: nothing to do for that direction. */
typedef struct KST_ModEntry {
  KST_ModFunc init;
  KST_ModFunc uninit;
} KST_ModEntry;

/* KST_ModsInit runs the init functions of `rows` in row order on `record`.
 *
 * It stops at the first row that does not return 0 and returns that row's result.  A host may or
 * may not unwind the rows that had started; the library supports both and unwinds all of them
 * itself.  The reference host unwinds nothing. */
KST_API uint32_t KST_ModsInit(const KST_ModEntry *rows, void *record, uint32_t rowCount);

/* KST_ModsUninit runs the uninit functions of `rows` in REVERSE row order on `record`, skipping
 * null ones, also for rows that never started, and also when `record` is null.
 *
 * Results of the rows do not stop it.  Returns 0. */
KST_API uint32_t KST_ModsUninit(const KST_ModEntry *rows, void *record, uint32_t rowCount);

KST_C_END
#endif /* KST_MODS_H */
