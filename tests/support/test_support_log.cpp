/* test_support_log.cpp: the log of the host under test control. */
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include "csvc_dbg.h"
#include "kst_log.h"
#include "test_host.h"

namespace coap_rpc_test {
namespace {

// Write logs one record by the protocol.
void Write(const TestHost &host, uint32_t line, uint32_t level, const char *func, int number) {
  const auto *object = reinterpret_cast<const KST_LogObj *>(host.Log());
  if (level >= KST_LOG_WARN) KST_LogCnt(object->counter, "mod", line);
  if (KST_LogFirstHalf_(host.Log(), "mod", line, level) != 0) return;
  KST_LogSecondHalf_(host.Log(), "mod", line, level, func, "number %d\n", number);
}

std::string Kinds(TestHost &host) {
  std::string kinds;
  for (const LogRecord &record : host.Logs().Records()) {
    kinds += "CFSDL"[static_cast<int>(record.kind)];
  }
  return kinds;
}

TEST(SupportLog, Records_AreInOneSequence) {
  TestHost host;
  Write(host, 5, KST_LOG_ERROR, "Func", 7);
  CSVC_DBG_Debug(host.Dbg(), 1, "debug %s", "text");
  CSVC_DBG_SysLog(host.Dbg(), 2, "system");
  Write(host, 6, KST_LOG_DEBUG, "Func", 8);
  EXPECT_EQ(Kinds(host), "CFSDLFS");
}

TEST(SupportLog, Record_HasEveryMember) {
  TestHost host;
  Write(host, 5, KST_LOG_ERROR, "Func", 7);
  CSVC_DBG_SysLog(host.Dbg(), 2, "uri:%s", "a/b");
  const std::vector<LogRecord> &records = host.Logs().Records();
  ASSERT_EQ(records.size(), 4u);
  EXPECT_EQ(records[0].module, "mod");
  EXPECT_EQ(records[0].line, 5u);
  EXPECT_EQ(records[1].level, 3u);
  EXPECT_FALSE(records[1].suppressed);
  EXPECT_EQ(records[2].module, "mod");
  EXPECT_EQ(records[2].line, 5u);
  EXPECT_EQ(records[2].level, 3u);
  EXPECT_EQ(records[2].func, "Func");
  EXPECT_EQ(records[2].format, "number %d\n");
  EXPECT_EQ(records[2].text, "number 7\n");
  EXPECT_EQ(records[3].level, 2u);
  EXPECT_EQ(records[3].format, "uri:%s");
  EXPECT_EQ(records[3].text, "uri:a/b");
}

TEST(SupportLog, Has_ExactTextOnly) {
  TestHost host;
  Write(host, 5, KST_LOG_ERROR, "Func", 7);
  CSVC_DBG_Debug(host.Dbg(), 1, "debug");
  EXPECT_TRUE(host.HasLog("number 7\n"));
  EXPECT_FALSE(host.HasLog("number 7"));
  EXPECT_FALSE(host.HasLog("debug"));
  EXPECT_TRUE(host.HasDebug("debug"));
  EXPECT_FALSE(host.HasDebug("number 7\n"));
  host.ClearLogs();
  EXPECT_FALSE(host.HasLog("number 7\n"));
}

TEST(SupportLog, Has_Failure_ShowsTheLog) {
  TestHost host;
  Write(host, 5, KST_LOG_ERROR, "Func", 7);
  EXPECT_NONFATAL_FAILURE(EXPECT_TRUE(host.HasLog("other")),
                          "print mod:5 level 3 Func \"number 7\\n\"");
}

TEST(SupportLog, LogsOf_PicksPrintedRecordsOfAFunction) {
  TestHost host;
  Write(host, 5, KST_LOG_ERROR, "Func", 1);
  Write(host, 6, KST_LOG_ERROR, "Other", 2);
  Write(host, 7, KST_LOG_ERROR, "Func", 3);
  ASSERT_EQ(host.LogsOf("Func").size(), 2u);
  EXPECT_EQ(host.LogsOf("Func")[1].text, "number 3\n");
  EXPECT_EQ(host.LogsOf("None").size(), 0u);
}

TEST(SupportLog, Suppression_ByLevelSiteAndPredicate) {
  TestHost host;
  host.Logs().SuppressBelow(KST_LOG_WARN);
  host.Logs().SuppressSite("mod", 5);
  host.Logs().SuppressIf([](const std::string &, uint32_t line, uint32_t) { return line == 6; });
  Write(host, 4, KST_LOG_INFO, "Func", 4);
  Write(host, 5, KST_LOG_ERROR, "Func", 5);
  Write(host, 6, KST_LOG_ERROR, "Func", 6);
  EXPECT_EQ(Kinds(host), "FCFCF");
  EXPECT_TRUE(host.Logs().Records()[0].suppressed);
  Write(host, 7, KST_LOG_ERROR, "Func", 7);
  EXPECT_EQ(host.LogsOf("Func").size(), 1u);
  host.Logs().ShowAll();
  for (uint32_t line = 4; line <= 6; ++line) Write(host, line, KST_LOG_DEBUG, "Func", 0);
  EXPECT_EQ(host.LogsOf("Func").size(), 4u);
}

TEST(SupportLog, SecondHalfWithoutFirst_IsAViolation) {
  TestHost host;
  Write(host, 5, KST_LOG_ERROR, "Func", 7);
  EXPECT_EQ(host.Logs().Violations().size(), 0u);
  KST_LogSecondHalf_(host.Log(), "mod", 5, KST_LOG_ERROR, "Func", "again");
  EXPECT_EQ(host.Logs().Violations().size(), 1u);
  EXPECT_EQ(KST_LogFirstHalf_(host.Log(), "mod", 5, KST_LOG_ERROR), 0u);
  KST_LogSecondHalf_(host.Log(), "mod", 5, KST_LOG_WARN, "Func", "other level");
  EXPECT_EQ(host.Logs().Violations().size(), 2u);
}

TEST(SupportLog, RecordPrintedOnly_LeavesOutHowItIsAsked) {
  TestHost host;
  host.Logs().RecordPrintedOnly();
  Write(host, 5, KST_LOG_ERROR, "Func", 7);
  EXPECT_EQ(Kinds(host), "S");
  EXPECT_EQ(host.Logs().Violations().size(), 0u);
}

TEST(SupportLog, DebugWithoutHandle_GoesToTheProcess) {
  TestHost host;
  CSVC_DBG_Debug(0, 1, "number %d", 1);
  CSVC_DBG_SysLog(0, 1, "number %d", 2);
  EXPECT_EQ(Kinds(host), "");
  EXPECT_EQ(TestHost::Process().NullDebugTexts(),
            std::vector<std::string>({"number 1", "number 2"}));
}

}  // namespace
}  // namespace coap_rpc_test
