// COAP_RpcInit when something fails: everything is unwound once, the reason is logged, and the next
// start works.
#include <algorithm>
#include <string>
#include <tuple>
#include <vector>

#include "coap_svc/rpc/init/coap_rpc_main.h"
#include "test_instance.h"

namespace coap_rpc_test {
namespace {

std::string FailedLine(uint32_t result) {
  return "[CoapRpc]ret(" + std::to_string(result) + "), ng\n";
}

// Both ways in which a host may treat a table that fails.
class InitFault : public testing::TestWithParam<bool> {
 protected:
  void SetUp() override { TestHost::Process().Mods().unwinds = GetParam(); }

  void ExpectNothingLeft() {
    EXPECT_EQ(host_.Pool().LiveCount(), 0u) << host_.Pool().LeakText();
    EXPECT_TRUE(host_.Pool().Violations().empty()) << host_.Pool().Violations()[0];
    EXPECT_TRUE(host_.Timers().Running().empty());
    EXPECT_TRUE(host_.Display().Objects().empty());
    EXPECT_TRUE(host_.Display().Commands().empty());
  }

  void ExpectNextStartWorks() {
    host_.Pool().Failures().Clear();
    host_.Timers().Failures().Clear();
    TestHost::Process().Mods().failTable = nullptr;
    { TestInstance ctx(host_); }
    ExpectNothingLeft();
  }

  // The failure of a row is logged as a framework record of its own.
  void ExpectFailureLogged(uint32_t result) {
    const std::vector<LogRecord> records = host_.LogsOf("COAP_RpcInit");
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].module, kInstanceName);
    EXPECT_EQ(records[0].level, 3u);
    EXPECT_EQ(records[0].format, "[CoapRpc]ret(%u), ng\n");
    EXPECT_EQ(records[0].text, FailedLine(result));
    const std::vector<LogRecord> counts = host_.Logs().OfKind(LogKind::kCount);
    ASSERT_FALSE(counts.empty());
    EXPECT_EQ(counts.back().module, kInstanceName);
    EXPECT_EQ(counts.back().line, records[0].line);
    // The context's tag is the line after it.
    const std::vector<LogRecord> debug = host_.LogsOf("COAP_RPC_LOG_MOD_DO");
    ASSERT_FALSE(debug.empty());
    EXPECT_EQ(debug.back().format, "%s");
    EXPECT_TRUE(std::any_of(debug.begin(), debug.end(), [](const LogRecord &record) {
      return record.text.rfind("[CoapRpc]rpc(0x", 0) == 0;
    }));
  }

  TestHost host_;
};

TEST_P(InitFault, EveryAllocationFails_NothingIsLeft) {
  const CoapRpcInitParam param = ParamOf(host_);
  { TestInstance ctx(host_); }
  const uint64_t numCalls = host_.Pool().Failures().NumCalls();
  ASSERT_GE(numCalls, 6u);  // root, name, three sub-contexts, diagnostics
  for (uint64_t n = 1; n <= numCalls; ++n) {
    SCOPED_TRACE(n);
    host_.Pool().Failures().FailOnce(n);
    EXPECT_EQ(COAP_RpcInit(&param), nullptr);
    ExpectNothingLeft();
  }
  ExpectNextStartWorks();
}

TEST_P(InitFault, EveryAllocationFailsFromN_NothingIsLeft) {
  const CoapRpcInitParam param = ParamOf(host_);
  { TestInstance ctx(host_); }
  const uint64_t numCalls = host_.Pool().Failures().NumCalls();
  for (uint64_t n = 1; n <= numCalls; ++n) {
    SCOPED_TRACE(n);
    host_.Pool().Failures().FailFrom(n);
    EXPECT_EQ(COAP_RpcInit(&param), nullptr);
    ExpectNothingLeft();
  }
  ExpectNextStartWorks();
}

TEST_P(InitFault, NoMemoryForTheRoot_NothingIsLogged) {
  const CoapRpcInitParam param = ParamOf(host_);
  for (uint64_t n = 1; n <= 2; ++n) {  // the record, its name
    host_.Pool().Failures().FailOnce(n);
    EXPECT_EQ(COAP_RpcInit(&param), nullptr);
    EXPECT_TRUE(host_.Logs().Records().empty());
  }
}

TEST_P(InitFault, EveryRowOfTheRootTableFails) {
  const CoapRpcInitParam param = ParamOf(host_);
  for (uint32_t row = 0; row < COAP_RPC_MOD_ROWS; ++row) {
    SCOPED_TRACE(row);
    host_.ClearLogs();
    ModsBehaviour &mods = TestHost::Process().Mods();
    mods.failTable = g_CoapRpcModVTbl;
    mods.failRow = row;
    mods.failResult = 4711 + row;
    EXPECT_EQ(COAP_RpcInit(&param), nullptr);
    ExpectFailureLogged(4711 + row);
    ExpectNothingLeft();
  }
  ExpectNextStartWorks();
}

TEST_P(InitFault, EveryRowOfTheInnerTablesFails) {
  const CoapRpcInitParam param = ParamOf(host_);
  const std::tuple<const KST_ModEntry *, uint32_t, uint32_t> tables[] = {
      {g_CoapRpcLibModVTbl, COAP_RPC_LIB_MOD_ROWS, 1900000053},
      {g_CoapRpcSerModVTbl, COAP_RPC_SER_MOD_ROWS, 1900000060},
      {g_CoapRpcCliModVTbl, COAP_RPC_CLI_MOD_ROWS, 1900000060}};
  for (const auto &[table, numRows, result] : tables) {
    for (uint32_t row = 0; row < numRows; ++row) {
      SCOPED_TRACE(result);
      SCOPED_TRACE(row);
      host_.ClearLogs();
      ModsBehaviour &mods = TestHost::Process().Mods();
      mods.failTable = table;
      mods.failRow = row;
      mods.failResult = 1;
      EXPECT_EQ(COAP_RpcInit(&param), nullptr);
      ExpectFailureLogged(result);
      ExpectNothingLeft();
    }
  }
  ExpectNextStartWorks();
}

TEST_P(InitFault, EveryTimerRefusesToStart_InstanceLivesOrGoesCleanly) {
  const CoapRpcInitParam param = ParamOf(host_);
  { TestInstance ctx(host_); }
  const uint64_t numCalls = host_.Timers().Failures().NumCalls();
  ASSERT_GE(numCalls, 1u);
  for (uint64_t n = 1; n <= numCalls; ++n) {
    SCOPED_TRACE(n);
    host_.Timers().Failures().FailOnce(n);
    COAP_RpcUninit(COAP_RpcInit(&param));
    ExpectNothingLeft();
  }
  ExpectNextStartWorks();
}

TEST_P(InitFault, DisplayRefusesEverything_InstanceLives) {
  host_.Display().ObjFailures().FailFrom(1);
  host_.Display().FuncFailures().FailFrom(1);
  { TestInstance ctx(host_); }
  ExpectNothingLeft();
}

TEST_P(InitFault, LogDisabled_FailureIsNotLogged) {
  CoapRpcInitParam param = ParamOf(host_);
  param.logEnable = 0;
  TestHost::Process().Mods().failTable = g_CoapRpcModVTbl;
  TestHost::Process().Mods().failRow = 5;
  TestHost::Process().Mods().failResult = 9;
  EXPECT_EQ(COAP_RpcInit(&param), nullptr);
  EXPECT_TRUE(host_.Logs().OfKind(LogKind::kCount).empty());
  EXPECT_TRUE(host_.Logs().OfKind(LogKind::kSecond).empty());
  ExpectNothingLeft();
}

struct TableRows {
  const KST_ModEntry *table;
  uint32_t numRows;
};

// A host that runs the rows after one that failed as well.
class InitGoesOn : public InitFault {
 protected:
  void SetUp() override {
    InitFault::SetUp();
    TestHost::Process().Mods().goesOn = true;
  }

  // StartWith starts an instance while the rows of the masks fail; only without any it lives.
  void StartWith(const KST_ModEntry *table, uint32_t mask, uint32_t rootMask) {
    SCOPED_TRACE(mask);
    SCOPED_TRACE(rootMask);
    ModsBehaviour &mods = TestHost::Process().Mods();
    mods.failMasks = {{table, mask}, {g_CoapRpcModVTbl, rootMask}};
    CoapRpcCtx *ctx = COAP_RpcInit(&param_);
    if (rootMask != 0) {
      EXPECT_EQ(ctx, nullptr);
    }
    COAP_RpcUninit(ctx);
    mods.failMasks.clear();
    ExpectNothingLeft();
  }

  const CoapRpcInitParam param_ = ParamOf(host_);
};

TEST_P(InitGoesOn, AnyRowsOfAnyTableFail_NothingIsLeft) {
  static constexpr uint32_t kRootMasks = 1u << COAP_RPC_MOD_ROWS;
  const TableRows inner[] = {{g_CoapRpcLibModVTbl, COAP_RPC_LIB_MOD_ROWS},
                             {g_CoapRpcSerModVTbl, COAP_RPC_SER_MOD_ROWS},
                             {g_CoapRpcCliModVTbl, COAP_RPC_CLI_MOD_ROWS}};
  for (const auto &[table, numRows] : inner) {
    for (uint32_t mask = 0; mask < 1u << numRows; ++mask) StartWith(table, mask, 0);
    for (uint32_t rootMask = 0; rootMask < kRootMasks; ++rootMask) {
      StartWith(table, 0, rootMask);
      for (uint32_t row = 0; row < numRows; ++row) StartWith(table, 1u << row, rootMask);
    }
  }
  ExpectNextStartWorks();
}

TEST_P(InitGoesOn, EveryAllocationFails_NothingIsLeft) {
  uint64_t numCalls = host_.Pool().Failures().NumCalls();
  { TestInstance ctx(host_); }
  numCalls = host_.Pool().Failures().NumCalls() - numCalls;
  for (uint64_t n = 1; n <= numCalls; ++n) {
    SCOPED_TRACE(n);
    for (const bool isOnce : {true, false}) {
      if (isOnce) host_.Pool().Failures().FailOnce(n);
      if (!isOnce) host_.Pool().Failures().FailFrom(n);
      EXPECT_EQ(COAP_RpcInit(&param_), nullptr);
      host_.Pool().Failures().Clear();
      ExpectNothingLeft();
    }
  }
  ExpectNextStartWorks();
}

std::string BehaviourName(const testing::TestParamInfo<bool> &unwinds) {
  return unwinds.param ? "Unwinds" : "UnwindsNothing";
}

INSTANTIATE_TEST_SUITE_P(Host, InitFault, testing::Bool(), BehaviourName);
INSTANTIATE_TEST_SUITE_P(Host, InitGoesOn, testing::Values(false), BehaviourName);

}  // namespace
}  // namespace coap_rpc_test
