/* test_process_api.cpp: the platform functions without a handle: module tables, clocks and
 * assertions, all of them controlled through TestProcess. */
#include "kst_mods.h"
#include "osal.h"
#include "tarn.h"
#include "test_process.h"

using coap_rpc_test::kAssertResult;
using coap_rpc_test::ModsBehaviour;
using coap_rpc_test::TestProcess;

namespace {

uint32_t InitRow(const KST_ModEntry *rows, uint32_t row, void *record) {
  const ModsBehaviour &mods = TestProcess::Get().Mods();
  if (rows == mods.failTable && row == mods.failRow) return mods.failResult;
  const auto mask = mods.failMasks.find(rows);
  if (mask != mods.failMasks.end() && (mask->second >> row & 1) != 0) return 1;
  return rows[row].init ? rows[row].init(record) : 0;
}

}  // namespace

uint32_t KST_ModsInit(const KST_ModEntry *rows, void *record, uint32_t rowCount) {
  const ModsBehaviour &mods = TestProcess::Get().Mods();
  uint32_t firstFailure = 0;
  for (uint32_t row = 0; row < rowCount; ++row) {
    const uint32_t ret = InitRow(rows, row, record);
    if (ret == 0) continue;
    if (firstFailure == 0) firstFailure = ret;
    if (mods.goesOn) continue;
    if (mods.unwinds) KST_ModsUninit(rows, record, row);
    break;
  }
  return firstFailure;
}

uint32_t KST_ModsUninit(const KST_ModEntry *rows, void *record, uint32_t rowCount) {
  for (uint32_t row = rowCount; row > 0; --row) {
    if (rows[row - 1].uninit) rows[row - 1].uninit(record);
  }
  return 0;
}

uint32_t OSAL_MillSecNow(uint32_t *high, uint32_t *low) {
  const TestProcess &process = TestProcess::Get();
  if (process.MillSecResult() != 0) return process.MillSecResult();
  *high = static_cast<uint32_t>(process.NowMs() >> 32);
  *low = static_cast<uint32_t>(process.NowMs());
  return 0;
}

int32_t OSAL_SystimeGet(OSAL_Systime *now) {
  const TestProcess &process = TestProcess::Get();
  if (process.SystimeResult() >= 0) *now = process.Systime();
  return process.SystimeResult();
}

uint32_t TARN_Assert(const char *path, uint32_t line, uint32_t) {
  TestProcess::Get().RecordAssert(path, line);
  return kAssertResult;
}
