/* kst_mods.cpp: runs module tables up and down. */
#include "kst_mods.h"

uint32_t KST_ModsInit(const KST_ModEntry *rows, void *record, uint32_t rowCount) {
  for (uint32_t i = 0; i < rowCount; ++i) {
    const uint32_t ret = rows[i].init ? rows[i].init(record) : 0;
    if (ret != 0) return ret;
  }
  return 0;
}

uint32_t KST_ModsUninit(const KST_ModEntry *rows, void *record, uint32_t rowCount) {
  for (uint32_t i = rowCount; i > 0; --i) {
    if (rows[i - 1].uninit) rows[i - 1].uninit(record);
  }
  return 0;
}
