/* test_contract_mods.cpp: module tables. */
#include <string>

#include "contract_test.h"
#include "kst_mods.h"

namespace coap_rpc_test {
namespace {

// Modules write their steps into the record: a capital letter for init, a small one for uninit.
struct Steps {
  std::string text;
  char failing = 0;  // letter of the init that fails with 77
};

template <char kLetter>
uint32_t Init(void *record) {
  auto *steps = static_cast<Steps *>(record);
  steps->text += kLetter;
  return steps->failing == kLetter ? 77 : 0;
}

template <char kLetter>
uint32_t Uninit(void *record) {
  static_cast<Steps *>(record)->text += kLetter;
  return 99;
}

constexpr KST_ModEntry kRows[] = {
    {Init<'A'>, Uninit<'a'>},
    {nullptr, Uninit<'b'>},
    {Init<'C'>, nullptr},
    {Init<'D'>, Uninit<'d'>},
};

uint32_t g_numNullRecords = 0;

uint32_t CountNullRecord(void *record) {
  if (!record) ++g_numNullRecords;
  return 0;
}

class ContractMods : public ContractTest {};

TEST_F(ContractMods, Init_AllRowsSucceed_RunsInOrder) {
  Steps steps;
  EXPECT_EQ(KST_ModsInit(kRows, &steps, 4), 0u);
  EXPECT_EQ(steps.text, "ACD");
}

TEST_F(ContractMods, Init_NoRows_Gives0) {
  Steps steps;
  EXPECT_EQ(KST_ModsInit(kRows, &steps, 0), 0u);
  EXPECT_EQ(KST_ModsUninit(kRows, &steps, 0), 0u);
  EXPECT_EQ(steps.text, "");
}

TEST_F(ContractMods, Init_RowCount_LimitsTheTable) {
  Steps steps;
  EXPECT_EQ(KST_ModsInit(kRows, &steps, 3), 0u);
  EXPECT_EQ(steps.text, "AC");
}

TEST_F(ContractMods, Init_ThirdRowFails_StopsWithItsResult) {
  Steps steps;
  steps.failing = 'C';
  EXPECT_EQ(KST_ModsInit(kRows, &steps, 4), 77u);
  EXPECT_TRUE(steps.text == "AC" || steps.text == "ACba") << steps.text;
}

TEST_F(ContractMods, Init_FirstRowFails_StopsWithItsResult) {
  Steps steps;
  steps.failing = 'A';
  EXPECT_EQ(KST_ModsInit(kRows, &steps, 4), 77u);
  EXPECT_EQ(steps.text, "A");
}

TEST_F(ContractMods, Uninit_ResultsOfRows_DoNotStopIt) {
  Steps steps;
  EXPECT_EQ(KST_ModsUninit(kRows, &steps, 4), 0u);
  EXPECT_EQ(steps.text, "dba");
}

TEST_F(ContractMods, Uninit_NullRecord_RunsAllRows) {
  constexpr KST_ModEntry kNullRows[] = {{nullptr, CountNullRecord}, {nullptr, CountNullRecord}};
  g_numNullRecords = 0;
  EXPECT_EQ(KST_ModsUninit(kNullRows, nullptr, 2), 0u);
  EXPECT_EQ(g_numNullRecords, 2u);
}

}  // namespace
}  // namespace coap_rpc_test
