/* kst.h: the whole base framework as the library uses it. */
#ifndef KST_H
#define KST_H

#include "kst_disp.h"
#include "kst_log.h"
#include "kst_mem.h"
#include "kst_mods.h"
#include "kst_tmr.h"

#endif /* KST_H */
