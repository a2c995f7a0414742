/* test_support_disp.cpp: the display service of the host under test control. */
#include <cstdarg>

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include "kst_disp.h"
#include "test_host.h"

namespace coap_rpc_test {
namespace {

// Table prints one of its rows per invocation.
struct Table {
  TestHost host;
  std::vector<std::string> rows;

  Table() { KST_DispRegObj(host.Disp(), "table", this); }
  ~Table() { host.DiscardAll(); }

  uint32_t Reg(const char *command, KST_DISP_FUNC handler) {
    return KST_DispRegFunc_(host.Disp(), "Handler", handler, command, 128, "table", 0);
  }
};

uint32_t ShowRows(void *obj, ...) {
  auto *table = static_cast<Table *>(obj);
  uint32_t row = 0;
  KST_DispGetLastCtx_(table->host.Disp(), &row);
  if (row >= table->rows.size()) {
    KST_DispPrintf_(table->host.Disp(), "total %u", row);
    return 0;
  }
  KST_DispPrintf_(table->host.Disp(), "%s", table->rows[row].c_str());
  ++row;
  KST_DispSaveCtx_(table->host.Disp(), "key", 3, &row, sizeof row);
  return 0;
}

uint32_t ShowForever(void *obj, ...) {
  KST_DispSaveCtx_(static_cast<Table *>(obj)->host.Disp(), "key", 3, "", 0);
  return 0;
}

uint32_t ShowArgs(void *obj, ...) {
  auto *table = static_cast<Table *>(obj);
  va_list args;
  va_start(args, obj);
  const char *text = va_arg(args, const char *);
  const uint32_t number = va_arg(args, uint32_t);
  va_end(args);
  KST_DispPrintf_(table->host.Disp(), "%s %u", text, number);
  return 0;
}

TEST(SupportDisp, RunCommand_GivesOneTextPerInvocation) {
  Table table;
  table.rows = {"first", "second"};
  ASSERT_EQ(table.Reg("show rows", ShowRows), 0u);
  EXPECT_EQ(table.host.RunCommand("show rows"),
            std::vector<std::string>({"first", "second", "total 2"}));
  EXPECT_FALSE(table.host.Display().HasContext());
}

TEST(SupportDisp, InvokeOnce_TableMayChangeBetweenPages) {
  Table table;
  table.rows = {"first", "second", "third"};
  ASSERT_EQ(table.Reg("show rows", ShowRows), 0u);
  EXPECT_EQ(table.host.InvokeOnce("show rows"), "first");
  EXPECT_TRUE(table.host.Display().HasContext());
  table.rows.resize(1);
  EXPECT_EQ(table.host.InvokeOnce("show rows"), "total 1");
  EXPECT_FALSE(table.host.Display().HasContext());
}

TEST(SupportDisp, ForgetContext_StartsAgain) {
  Table table;
  table.rows = {"first", "second"};
  ASSERT_EQ(table.Reg("show rows", ShowRows), 0u);
  EXPECT_EQ(table.host.InvokeOnce("show rows"), "first");
  table.host.Display().ForgetContext();
  EXPECT_EQ(table.host.InvokeOnce("show rows"), "first");
}

TEST(SupportDisp, Args_ReachTheHandler) {
  Table table;
  ASSERT_EQ(KST_DispRegFunc_(table.host.Disp(), "ShowArgs", ShowArgs, "show args", 128, "table", 2,
                             "pcText", "uniNumber"),
            0u);
  EXPECT_EQ(table.host.RunCommand("show args", "text", 7u), std::vector<std::string>({"text 7"}));
}

TEST(SupportDisp, WrongUse_FailsTheTest) {
  Table table;
  ASSERT_EQ(table.Reg("show rows", ShowRows), 0u);
  ASSERT_EQ(table.Reg("show forever", ShowForever), 0u);
  EXPECT_NONFATAL_FAILURE(table.host.RunCommand("show nothing"), "no such command");
  EXPECT_NONFATAL_FAILURE(table.host.RunCommand("show rows", 1u), "do not fit");
  EXPECT_NONFATAL_FAILURE(table.host.RunCommand("show forever"), "pages without end");
}

TEST(SupportDisp, Commands_RecordTheRegistration) {
  Table table;
  ASSERT_EQ(KST_DispRegFunc_(table.host.Disp(), "Handler", ShowArgs, "show args", 128, "table", 1,
                             "pcText"),
            0u);
  ASSERT_EQ(table.host.Display().Commands().size(), 1u);
  const DispCommand &command = table.host.Display().Commands()[0];
  EXPECT_EQ(command.handlerName, "Handler");
  EXPECT_EQ(command.handler, ShowArgs);
  EXPECT_EQ(command.command, "show args");
  EXPECT_EQ(command.flags, 128u);
  EXPECT_EQ(command.objName, "table");
  EXPECT_EQ(command.paramNames, std::vector<std::string>({"pcText"}));
}

TEST(SupportDisp, Failures_RefuseRegistrations) {
  TestHost host;
  int object = 0;
  host.Display().ObjFailures().FailOnce(1);
  EXPECT_NE(KST_DispRegObj(host.Disp(), "a", &object), 0u);
  EXPECT_EQ(KST_DispRegObj(host.Disp(), "a", &object), 0u);
  host.Display().FuncFailures().FailOnce(2);
  EXPECT_EQ(KST_DispRegFunc_(host.Disp(), "H", ShowRows, "one", 128, "a", 0), 0u);
  EXPECT_NE(KST_DispRegFunc_(host.Disp(), "H", ShowRows, "two", 128, "a", 0), 0u);
  EXPECT_EQ(host.Display().Commands().size(), 1u);
  EXPECT_EQ(KST_DispUnregObj(host.Disp(), "a"), 0u);
}

TEST(SupportDisp, ObjectLeft_IsAFailureOfTheDestructor) {
  EXPECT_NONFATAL_FAILURE(
      {
        TestHost host;
        KST_DispRegObj(host.Disp(), "forgotten", nullptr);
      },
      "forgotten");
}

}  // namespace
}  // namespace coap_rpc_test
