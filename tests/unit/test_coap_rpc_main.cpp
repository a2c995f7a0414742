// Life of an instance: root record, module tables, what is logged.
#include "coap_svc/rpc/init/coap_rpc_main.h"

#include <cstring>
#include <string>
#include <vector>

#include "coap_svc/rpc/client/coap_rpc_cli_data.h"
#include "coap_svc/rpc/client/coap_rpc_cli_disp.h"
#include "coap_svc/rpc/client/coap_rpc_cli_req.h"
#include "coap_svc/rpc/client/coap_rpc_cli_session.h"
#include "coap_svc/rpc/client/coap_rpc_cli_uri.h"
#include "coap_svc/rpc/common/coap_rpc_log_site.h"
#include "coap_svc/rpc/libadapter/call/coap_rpc_lib_call_response.h"
#include "coap_svc/rpc/libadapter/call/coap_rpc_lib_call_send.h"
#include "coap_svc/rpc/libadapter/call/coap_rpc_lib_call_session.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_ctx.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_io.h"
#include "coap_svc/rpc/libadapter/publish/coap_rpc_lib_observe.h"
#include "coap_svc/rpc/server/coap_rpc_ser_conn.h"
#include "coap_svc/rpc/server/coap_rpc_ser_data.h"
#include "coap_svc/rpc/server/coap_rpc_ser_disp.h"
#include "coap_svc/rpc/server/coap_rpc_ser_res.h"
#include "coap_svc/rpc/server/coap_rpc_ser_uri.h"
#include "kst_mem.h"
#include "test_instance.h"

namespace coap_rpc_test {
namespace {

constexpr char kMainPath[] = "coap_server/src/coap_svc/rpc/init/coap_rpc_main";

std::string TagLine(const CoapRpcCtx *ctx) {
  char text[64];
  snprintf(text, sizeof(text), "[CoapRpc]rpc(%#x)\n",
           coap_rpc::ContextTag(reinterpret_cast<uintptr_t>(ctx)));
  return text;
}

class Lifecycle : public testing::Test {
 protected:
  TestHost host_;
};

TEST_F(Lifecycle, InitNull_AssertsAndReturnsNull) {
  EXPECT_EQ(COAP_RpcInit(nullptr), nullptr);
  EXPECT_EQ(TestHost::Process().Asserts(), std::vector<AssertRecord>({{kMainPath, 1001}}));
}

TEST_F(Lifecycle, InitNullName_AssertsAndReturnsNull) {
  CoapRpcInitParam param = ParamOf(host_);
  param.name = nullptr;
  EXPECT_EQ(COAP_RpcInit(&param), nullptr);
  EXPECT_EQ(TestHost::Process().Asserts(), std::vector<AssertRecord>({{kMainPath, 1001}}));
}

TEST_F(Lifecycle, UninitNull_DoesNothing) {
  COAP_RpcUninit(nullptr);
  EXPECT_TRUE(host_.Logs().Records().empty());
}

TEST_F(Lifecycle, Init_FillsTheRootRecord) {
  TestInstance ctx(host_);
  CoapRpcCtx *root = ctx;
  EXPECT_EQ(root->log, host_.Log());
  EXPECT_STREQ(root->nameStr, kInstanceName);
  EXPECT_NE(root->nameStr, kInstanceName);
  EXPECT_EQ(root->param.name, root->nameStr);
  ASSERT_NE(root->lib, nullptr);
  ASSERT_NE(root->ser, nullptr);
  ASSERT_NE(root->cli, nullptr);
  EXPECT_NE(root->logDiag, nullptr);
  EXPECT_EQ(root->ser->owner, root);
  EXPECT_EQ(root->cli->owner, root);
}

TEST_F(Lifecycle, CarriedFields_AreCopiedVerbatim) {
  CoapRpcInitParam param = ParamOf(host_);
  param.hostHandle1 = 0x1111111111111111;
  param.hostHandle2 = 0x2222222222222222;
  param.hostHandle3[0] = 0x3333333333333333;
  param.hostHandle3[1] = 0x4444444444444444;
  memset(param.rsv1, 0x55, sizeof(param.rsv1));
  param.rsv2 = 0x66666666;
  TestInstance ctx(param);
  CoapRpcInitParam expected = param;
  expected.name = ctx.Get()->nameStr;
  EXPECT_EQ(memcmp(&ctx.Get()->param, &expected, sizeof(expected)), 0);
}

TEST_F(Lifecycle, Name_IsCopied) {
  char name[] = "volatile";
  CoapRpcInitParam param = ParamOf(host_);
  param.name = name;
  TestInstance ctx(param);
  memset(name, 'x', sizeof(name) - 1);
  EXPECT_STREQ(ctx.Get()->nameStr, "volatile");
}

TEST_F(Lifecycle, Name_IsNotAFormat) {
  CoapRpcInitParam param = ParamOf(host_);
  param.name = "100%s%n";
  TestInstance ctx(param);
  EXPECT_STREQ(ctx.Get()->nameStr, "100%s%n");
}

TEST_F(Lifecycle, Init_RegistersTheDisplayObjectUnderItsName) {
  TestInstance ctx(host_);
  ASSERT_EQ(host_.Display().Objects().count(kInstanceName), 1u);
  EXPECT_EQ(host_.Display().Objects().at(kInstanceName), ctx.Get());
  ctx.Stop();
  EXPECT_TRUE(host_.Display().Objects().empty());
}

TEST_F(Lifecycle, InitAndUninit_WriteTheirDebugLines) {
  TestInstance ctx(host_);
  EXPECT_EQ(host_.Logs().OfKind(LogKind::kSecond).at(0).text, "[CoapRpc]\n");
  const std::string tag = TagLine(ctx);
  host_.ClearLogs();
  ctx.Stop();
  EXPECT_EQ(host_.Logs().OfKind(LogKind::kSecond).at(0).text, tag);
  EXPECT_EQ(host_.Logs().OfKind(LogKind::kDebug).at(0).text, tag);
}

TEST_F(Lifecycle, LogDisabled_NoFrameworkRecords_DebugChannelStillServed) {
  CoapRpcInitParam param = ParamOf(host_);
  param.logEnable = 0;
  TestInstance ctx(param);
  EXPECT_EQ(ctx.Get()->log, 0u);
  ctx.Stop();
  for (const LogKind kind : {LogKind::kCount, LogKind::kFirst, LogKind::kSecond}) {
    EXPECT_TRUE(host_.Logs().OfKind(kind).empty());
  }
  EXPECT_TRUE(host_.HasDebug("[CoapRpc]\n"));
}

TEST_F(Lifecycle, AnyNonZeroLogEnable_TurnsTheLogOn) {
  CoapRpcInitParam param = ParamOf(host_);
  param.logEnable = 0x80000000;
  TestInstance ctx(param);
  EXPECT_EQ(ctx.Get()->log, host_.Log());
}

TEST_F(Lifecycle, NoServices_InstanceStillComesAndGoes) {
  CoapRpcInitParam param = {};
  param.name = "bare";
  param.memHandle = host_.Mem();
  param.tmrHandle = host_.Tmr();
  TestInstance ctx(param);
  EXPECT_NE(ctx.Get(), nullptr);
}

TEST_F(Lifecycle, NoPool_GivesNull) {
  CoapRpcInitParam param = ParamOf(host_);
  param.memHandle = 0;
  EXPECT_EQ(COAP_RpcInit(&param), nullptr);
  EXPECT_TRUE(host_.Logs().Records().empty());
}

TEST_F(Lifecycle, TwoInstances_OneStopped_TheOtherLives) {
  TestInstance first(host_);
  CoapRpcInitParam param = ParamOf(host_);
  param.name = "second";
  TestInstance second(param);
  first.Stop();
  EXPECT_NE(second.Get()->lib->coapCtx, nullptr);
  host_.AdvanceMs(3000);
  EXPECT_EQ(coap_get_log_level(), static_cast<coap_log_t>(8));
}

TEST_F(Lifecycle, ManyTimes_LeavesNothing) {
  for (int i = 0; i < 20; ++i) TestInstance ctx(host_);
  EXPECT_EQ(host_.Pool().LiveCount(), 0u);
  EXPECT_TRUE(host_.Timers().Running().empty());
}

TEST(ContextTag, LowSixteenBits_BitZeroForced) {
  EXPECT_EQ(coap_rpc::ContextTag(0x7f0012341230), 0x1231u);
  EXPECT_EQ(coap_rpc::ContextTag(0x7f0012341231), 0x1231u);
  EXPECT_EQ(coap_rpc::ContextTag(0xFFFFFFFF0000), 0x1u);
  EXPECT_EQ(coap_rpc::ContextTag(0xFFFFFFFFFFFF), 0xFFFFu);
}

TEST_F(Lifecycle, DataNew_ThenDataDelete) {
  const CoapRpcInitParam param = ParamOf(host_);
  CoapRpcCtx *ctx = COAP_RpcDataNew_(&param);
  ASSERT_NE(ctx, nullptr);
  EXPECT_EQ(ctx->lib, nullptr);
  EXPECT_EQ(ctx->ser, nullptr);
  EXPECT_EQ(ctx->cli, nullptr);
  EXPECT_EQ(ctx->logDiag, nullptr);
  COAP_RpcDataDelete_(ctx);
  COAP_RpcDataDelete_(nullptr);
}

TEST_F(Lifecycle, DispInit_Is0WhateverTheHostSays_UninitPassesTheHostsResult) {
  const CoapRpcInitParam param = ParamOf(host_);
  CoapRpcCtx *ctx = COAP_RpcDataNew_(&param);
  host_.Display().ObjFailures().FailOnce(1);
  EXPECT_EQ(COAP_RpcDispInit(ctx), 0u);
  EXPECT_NE(COAP_RpcDispUninit(ctx), 0u);
  EXPECT_EQ(COAP_RpcDispInit(ctx), 0u);
  EXPECT_EQ(COAP_RpcDispUninit(ctx), 0u);
  COAP_RpcDataDelete_(ctx);
}

// Sub-contexts made and deleted by hand.
class SubContexts : public Lifecycle {
 protected:
  void SetUp() override {
    const CoapRpcInitParam param = ParamOf(host_);
    ctx_ = COAP_RpcDataNew_(&param);
  }
  void TearDown() override { COAP_RpcDataDelete_(ctx_); }

  CoapRpcCtx *ctx_ = nullptr;
};

TEST_F(SubContexts, Create_GivesAZeroedRecordAndDoesNotStoreIt) {
  CoapRpcSerData *ser = COAP_RpcSerDataCreate_(ctx_);
  ASSERT_NE(ser, nullptr);
  EXPECT_EQ(ctx_->ser, nullptr);
  const CoapRpcSerData zero = {};
  EXPECT_EQ(memcmp(ser, &zero, sizeof(zero)), 0);
  ctx_->ser = ser;
  COAP_RpcSerDataDelete_(ctx_);
  EXPECT_EQ(ctx_->ser, nullptr);

  ctx_->cli = COAP_RpcCliDataCreate_(ctx_);
  ASSERT_NE(ctx_->cli, nullptr);
  COAP_RpcCliDataDelete_(ctx_);
  EXPECT_EQ(ctx_->cli, nullptr);

  ctx_->lib = COAP_RpclibDataCreate_(ctx_);
  ASSERT_NE(ctx_->lib, nullptr);
  COAP_RpclibDataDelete_(ctx_);
  EXPECT_EQ(ctx_->lib, nullptr);
}

TEST_F(SubContexts, Delete_FreesTheSharedBufferFirst) {
  ctx_->ser = COAP_RpcSerDataCreate_(ctx_);
  ctx_->ser->reqBuf = static_cast<uint8_t *>(KST_Malloc_(host_.Mem(), 10, "mallocRsv", 123));
  ctx_->cli = COAP_RpcCliDataCreate_(ctx_);
  ctx_->cli->reqBuf = static_cast<uint8_t *>(KST_Malloc_(host_.Mem(), 10, "mallocRsv", 123));
  COAP_RpcSerDataDelete_(ctx_);
  COAP_RpcCliDataDelete_(ctx_);
  EXPECT_EQ(host_.Pool().LiveCount(), 2u);  // the root record and its name
}

TEST_F(SubContexts, Create_NoMemory_GivesNull) {
  host_.Pool().Failures().FailFrom(1);
  EXPECT_EQ(COAP_RpcSerDataCreate_(ctx_), nullptr);
  EXPECT_EQ(COAP_RpcCliDataCreate_(ctx_), nullptr);
  EXPECT_EQ(COAP_RpclibDataCreate_(ctx_), nullptr);
  EXPECT_EQ(COAP_RpcLogDataCreate_(ctx_), nullptr);
}

TEST_F(SubContexts, NullRoot_IsCopedWith) {
  EXPECT_EQ(COAP_RpcSerDataCreate_(nullptr), nullptr);
  EXPECT_EQ(COAP_RpcCliDataCreate_(nullptr), nullptr);
  EXPECT_EQ(COAP_RpclibDataCreate_(nullptr), nullptr);
  COAP_RpcSerDataDelete_(nullptr);
  COAP_RpcCliDataDelete_(nullptr);
  COAP_RpclibDataDelete_(nullptr);
}

TEST_F(SubContexts, Init_NoMemory_GivesItsCodeAndClearsTheField) {
  ctx_->lib = reinterpret_cast<CoapRpcLibCtx *>(1);
  host_.Pool().Failures().FailFrom(1);
  EXPECT_EQ(COAP_RpcLibInit(ctx_), 1900000048u);
  EXPECT_EQ(ctx_->lib, nullptr);
  EXPECT_EQ(COAP_RpcSerInit(ctx_), 1900000054u);
  EXPECT_EQ(ctx_->ser, nullptr);
  EXPECT_EQ(COAP_RpcCliInit(ctx_), 1900000054u);
  EXPECT_EQ(ctx_->cli, nullptr);
}

TEST_F(SubContexts, Init_ModuleFails_GivesItsCodeAndKeepsTheField) {
  ModsBehaviour &mods = TestHost::Process().Mods();
  mods = {false, g_CoapRpcLibModVTbl, 0, 5};
  EXPECT_EQ(COAP_RpcLibInit(ctx_), 1900000053u);
  EXPECT_NE(ctx_->lib, nullptr);
  EXPECT_EQ(COAP_RpcLibUninit(ctx_), 0u);
  EXPECT_EQ(ctx_->lib, nullptr);

  mods = {false, g_CoapRpcSerModVTbl, 0, 5};
  EXPECT_EQ(COAP_RpcSerInit(ctx_), 1900000060u);
  EXPECT_NE(ctx_->ser, nullptr);
  EXPECT_EQ(COAP_RpcSerUninit(ctx_), 0u);
  EXPECT_EQ(ctx_->ser, nullptr);

  mods = {false, g_CoapRpcCliModVTbl, 0, 5};
  EXPECT_EQ(COAP_RpcCliInit(ctx_), 1900000060u);
  EXPECT_NE(ctx_->cli, nullptr);
  EXPECT_EQ(COAP_RpcCliUninit(ctx_), 0u);
  EXPECT_EQ(ctx_->cli, nullptr);
}

TEST(ModuleTables, RowsAreFixed) {
  const KST_ModEntry root[] = {
      {COAP_RpcDispInit, COAP_RpcDispUninit}, {COAP_RpcLibInit, COAP_RpcLibUninit},
      {COAP_RpcSerInit, COAP_RpcSerUninit},   {COAP_RpcCliInit, COAP_RpcCliUninit},
      {COAP_RpcLibRegInit, nullptr},          {COAP_RpcLogInit, COAP_RpcLogUninit}};
  const KST_ModEntry lib[] = {{COAP_RpcLibVtblInit, COAP_RpcLibVtblUninit},
                              {COAP_RpcCtxInit, COAP_RpcCtxUninit}};
  const KST_ModEntry ser[] = {{COAP_RpcSerVtblInit, COAP_RpcSerVtblUninit},
                              {COAP_RpcSerResourceInit, COAP_RpcSerResourceUninit},
                              {COAP_RpcSerConnInit, COAP_RpcSerConnUninit},
                              {COAP_RpcSerUriInit, COAP_RpcSerUriUninit},
                              {COAP_RpcSerDispInit, COAP_RpcSerDispUninit}};
  const KST_ModEntry cli[] = {{COAP_RpcCliVtblInit, COAP_RpcCliVtblUninit},
                              {COAP_RpcCliSessionInit, COAP_RpcCliSessionUninit},
                              {COAP_RpcCliReqInit, COAP_RpcCliReqUninit},
                              {COAP_RpcCliUriInit, COAP_RpcCliUriUninit},
                              {COAP_RpcCliDispInit, COAP_RpcCliDispUninit}};
  EXPECT_EQ(memcmp(g_CoapRpcModVTbl, root, sizeof(root)), 0);
  EXPECT_EQ(memcmp(g_CoapRpcLibModVTbl, lib, sizeof(lib)), 0);
  EXPECT_EQ(memcmp(g_CoapRpcSerModVTbl, ser, sizeof(ser)), 0);
  EXPECT_EQ(memcmp(g_CoapRpcCliModVTbl, cli, sizeof(cli)), 0);
}

TEST_F(Lifecycle, LibRegInit_FillsBothSides) {
  TestInstance ctx(host_);
  const CoapRpcSerData *ser = ctx.Get()->ser;
  EXPECT_EQ(ser->createEndPoint, &COAP_RpcCreateEndPoint);
  EXPECT_EQ(ser->deleteEndPoint, &COAP_RpcDeleteEndPoint);
  EXPECT_EQ(ser->createOrUpdateResource, &COAP_RpcCreateOrUpdateResource);
  EXPECT_EQ(ser->deleteResource, &COAP_RpcDeleteResource);
  EXPECT_EQ(ser->notifyObservers, &COAP_RpcSerNotifyObservers);
  EXPECT_EQ(ser->refreshTaskTimer, &COAP_RpcRefreshTaskTimer);
  const CoapRpcCliData *cli = ctx.Get()->cli;
  EXPECT_EQ(cli->createCliSession, &COAP_RpcCreateCliSession);
  EXPECT_EQ(cli->deleteCliSession, &COAP_RpcDeleteCliSession);
  EXPECT_EQ(cli->sendRequest, &COAP_RpcCliSendRequest);
  EXPECT_EQ(cli->cancelRequest, &COAP_RpcCliCancelRequest);
  EXPECT_EQ(cli->refreshTaskTimer, &COAP_RpcRefreshTaskTimer);
  EXPECT_EQ(cli->setSvcFlag, &COAP_RpcSetSvcFlag);
}

// Every Uninit function stands on its own.
TEST(ModuleTables, EveryUninit_CopesWithNull) {
  for (const KST_ModEntry &row : g_CoapRpcModVTbl) {
    if (row.uninit) row.uninit(nullptr);
  }
  for (const KST_ModEntry &row : g_CoapRpcLibModVTbl) row.uninit(nullptr);
  for (const KST_ModEntry &row : g_CoapRpcSerModVTbl) row.uninit(nullptr);
  for (const KST_ModEntry &row : g_CoapRpcCliModVTbl) row.uninit(nullptr);
}

TEST_F(SubContexts, EveryUninit_CopesWithAZeroedRecord_Twice) {
  CoapRpcSerData ser = {};
  CoapRpcCliData cli = {};
  ser.owner = cli.owner = ctx_;
  for (int times = 0; times < 2; ++times) {
    for (const KST_ModEntry &row : g_CoapRpcSerModVTbl) row.uninit(&ser);
    for (const KST_ModEntry &row : g_CoapRpcCliModVTbl) row.uninit(&cli);
    for (const KST_ModEntry &row : g_CoapRpcLibModVTbl) row.uninit(ctx_);
    for (const KST_ModEntry &row : g_CoapRpcModVTbl) {
      if (row.uninit) row.uninit(ctx_);
    }
  }
}

}  // namespace
}  // namespace coap_rpc_test
