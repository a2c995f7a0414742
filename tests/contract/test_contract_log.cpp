/* test_contract_log.cpp: the two-halves log and the debug channel. */
#include <string>

#include "contract_test.h"
#include "csvc_dbg.h"
#include "kst_log.h"

// Optional: null in a host that has none.
#pragma weak CSVC_DBG_Takes

namespace coap_rpc_test {
namespace {

class ContractLog : public ContractTest {
 protected:
  uint64_t Counter() { return reinterpret_cast<const KST_LogObj *>(Log())->counter; }

  // Print writes a record the way the library does.  Returns the answer of the first half.
  uint32_t Print(uint32_t line, uint32_t level, const std::string &text) {
    const uint32_t answer = KST_LogFirstHalf_(Log(), "module", line, level);
    if (answer == 0) {
      KST_LogSecondHalf_(Log(), "module", line, level, "Function", "%s", text.c_str());
    }
    return answer;
  }
};

TEST_F(ContractLog, Object_FourthWord_IsTheCounter) {
  ASSERT_NE(Counter(), 0u);
  KST_LogCnt(Counter(), "module", 12);
  EXPECT_EQ(Host().LogCount("module", 12), 1u);
}

TEST_F(ContractLog, Cnt_EachSite_IsCountedApart) {
  for (int i = 0; i < 5; ++i) KST_LogCnt(Counter(), "module", 12);
  KST_LogCnt(Counter(), "module", 13);
  KST_LogCnt(Counter(), "other", 12);
  EXPECT_EQ(Host().LogCount("module", 12), 5u);
  EXPECT_EQ(Host().LogCount("module", 13), 1u);
  EXPECT_EQ(Host().LogCount("other", 12), 1u);
  EXPECT_EQ(Host().LogCount("other", 13), 0u);
}

TEST_F(ContractLog, Cnt_PrintsNothing) {
  KST_LogCnt(Counter(), "module", 12);
  EXPECT_EQ(Host().LogLines().size(), 0u);
}

TEST_F(ContractLog, Cnt_Counter0_IsIgnored) {
  KST_LogCnt(0, "module", 12);
  EXPECT_EQ(Host().LogCount("module", 12), 0u);
}

TEST_F(ContractLog, FirstHalf_EveryLevel_IsPrinted) {
  for (uint32_t level = KST_LOG_DEBUG; level <= KST_LOG_ERROR; ++level) {
    EXPECT_EQ(Print(10 + level, level, "text " + std::to_string(level)), 0u);
  }
  const std::vector<ContractLogLine> lines = Host().LogLines();
  ASSERT_EQ(lines.size(), 4u);
  for (uint32_t level = KST_LOG_DEBUG; level <= KST_LOG_ERROR; ++level) {
    EXPECT_EQ(lines[level].module, "module");
    EXPECT_EQ(lines[level].line, 10 + level);
    EXPECT_EQ(lines[level].level, level);
    EXPECT_EQ(lines[level].func, "Function");
    EXPECT_EQ(lines[level].text, "text " + std::to_string(level));
  }
}

TEST_F(ContractLog, FirstHalf_Alone_PrintsNothing) {
  EXPECT_EQ(KST_LogFirstHalf_(Log(), "module", 1, KST_LOG_ERROR), 0u);
  EXPECT_EQ(Host().LogLines().size(), 0u);
}

TEST_F(ContractLog, FirstHalf_Log0_IsSuppressed) {
  EXPECT_NE(KST_LogFirstHalf_(0, "module", 1, KST_LOG_ERROR), 0u);
}

TEST_F(ContractLog, FirstHalf_BelowTheLevel_IsSuppressed) {
  Remake({.logLevel = KST_LOG_WARN});
  EXPECT_NE(Print(1, KST_LOG_DEBUG, "debug"), 0u);
  EXPECT_NE(Print(2, KST_LOG_INFO, "info"), 0u);
  EXPECT_EQ(Print(3, KST_LOG_WARN, "warn"), 0u);
  EXPECT_EQ(Print(4, KST_LOG_ERROR, "error"), 0u);
  ASSERT_EQ(Host().LogLines().size(), 2u);
  EXPECT_EQ(Host().LogLines()[0].text, "warn");
}

TEST_F(ContractLog, FirstHalf_OverTheRate_IsSuppressedForThatSite) {
  Remake({.logRecordsPerSite = 3});
  for (int i = 0; i < 3; ++i) EXPECT_EQ(Print(1, KST_LOG_ERROR, "often"), 0u);
  for (int i = 0; i < 3; ++i) EXPECT_NE(Print(1, KST_LOG_ERROR, "often"), 0u);
  EXPECT_EQ(Print(2, KST_LOG_ERROR, "other line"), 0u);
  EXPECT_EQ(KST_LogFirstHalf_(Log(), "other", 1, KST_LOG_ERROR), 0u);
  EXPECT_EQ(Host().LogLines().size(), 4u);
}

TEST_F(ContractLog, Cnt_OfSuppressedRecords_GoesOn) {
  Remake({.logRecordsPerSite = 1});
  for (int i = 0; i < 10; ++i) {
    KST_LogCnt(Counter(), "module", 1);
    Print(1, KST_LOG_ERROR, "often");
  }
  EXPECT_EQ(Host().LogCount("module", 1), 10u);
  EXPECT_EQ(Host().LogLines().size(), 1u);
}

TEST_F(ContractLog, SecondHalf_WithAndWithoutLineFeed_GivesTheSameLine) {
  Print(1, KST_LOG_ERROR, "text");
  Print(2, KST_LOG_ERROR, "text\n");
  const std::vector<ContractLogLine> lines = Host().LogLines();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0].text, "text");
  EXPECT_EQ(lines[1].text, "text");
}

TEST_F(ContractLog, SecondHalf_Format_IsRendered) {
  ASSERT_EQ(KST_LogFirstHalf_(Log(), "module", 1, KST_LOG_INFO), 0u);
  KST_LogSecondHalf_(Log(), "module", 1, KST_LOG_INFO, "Function", "ret(%u), %s%%", 19u, "ng");
  ASSERT_EQ(Host().LogLines().size(), 1u);
  EXPECT_EQ(Host().LogLines()[0].text, "ret(19), ng%");
}

TEST_F(ContractLog, TwoHosts_WriteToTheirOwnLogs) {
  const std::unique_ptr<ContractHost> other = MakeContractHost();
  ASSERT_NE(other, nullptr);
  Print(1, KST_LOG_ERROR, "mine");
  KST_LogCnt(Counter(), "module", 1);
  EXPECT_EQ(other->LogLines().size(), 0u);
  EXPECT_EQ(other->LogCount("module", 1), 0u);
}

TEST_F(ContractLog, Debug_AnyHandle_IsAccepted) {
  for (const uint64_t dbg : {uint64_t{0}, Host().Dbg()}) {
    CSVC_DBG_Debug(dbg, 1, "number %d\n", 7);
    CSVC_DBG_Debug(dbg, 1, "%s", "no line feed");
    CSVC_DBG_SysLog(dbg, 1, "uri:%s", "a/b");
  }
  EXPECT_EQ(Host().LogLines().size(), 0u);
}

// A host that has no answer takes every text.
TEST_F(ContractLog, DebugQuestion_AnyHandle_AskingChangesNothing) {
  for (const uint64_t dbg : {uint64_t{0}, Host().Dbg()}) {
    const uint32_t first = CSVC_DBG_Takes ? CSVC_DBG_Takes(dbg, 1) : 1;
    EXPECT_LE(first, 1u);
    for (int i = 0; i < 1000; ++i) {
      ASSERT_EQ(CSVC_DBG_Takes ? CSVC_DBG_Takes(dbg, 1) : 1, first);
    }
  }
  EXPECT_EQ(Host().LogLines().size(), 0u);
}

}  // namespace
}  // namespace coap_rpc_test
