/* contract_headers_c.c: the platform headers are valid C.  This file only has to compile. */
#include "csvc_dbg.h"
#include "kst.h"
#include "osal.h"
#include "tarn.h"

_Static_assert(sizeof(KST_LogObj) == 32, "the counter is the fourth of four words");
_Static_assert(offsetof(KST_LogObj, counter) == 24, "the counter is the fourth of four words");
_Static_assert(sizeof(OSAL_AVL3_TREE) == 3 * sizeof(void *), "a root is three words");

static const OSAL_AVL3_NODE kFreshNode = OSAL_AVL3_NODE_FRESH;

/* ContractFreshLeftHeight makes use of what C has to understand. */
int ContractFreshLeftHeight(void);

int ContractFreshLeftHeight(void) { return kFreshNode.leftHeight; }
