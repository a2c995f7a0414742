// Log lines and the table of URIs under diagnosis.
#include "coap_svc/rpc/common/coap_rpc_log.h"

#include <cstring>
#include <string>
#include <vector>

#include "coap_svc/rpc/common/coap_rpc_log_site.h"
#include "test_instance.h"

namespace coap_rpc_test {
namespace {

using coap_rpc::kLogLibCoapError;
using coap_rpc::kLogLibCoapInfo;
using coap_rpc::kLogLibCoapWarn;

class LogModDo : public testing::Test {
 protected:
  std::vector<LogKind> Kinds() const {
    std::vector<LogKind> kinds;
    for (const LogRecord &record : host_.Logs().Records()) kinds.push_back(record.kind);
    return kinds;
  }

  mutable TestHost host_;
};

TEST_F(LogModDo, BothHandles_LogFirstThenDebugChannel) {
  COAP_RPC_LOG_MOD_DO(host_.Log(), host_.Dbg(), "[CoapRpc]%s %u\n", "text", 7u);
  EXPECT_EQ(Kinds(), std::vector<LogKind>({LogKind::kFirst, LogKind::kSecond, LogKind::kDebug}));
  const std::vector<LogRecord> &records = host_.Logs().Records();
  EXPECT_EQ(records[1].module, "logDefault");
  EXPECT_EQ(records[1].line, 91u);
  EXPECT_EQ(records[1].level, 0u);
  EXPECT_EQ(records[1].func, "COAP_RPC_LOG_MOD_DO");
  EXPECT_EQ(records[1].format, "%s");
  EXPECT_EQ(records[1].text, "[CoapRpc]text 7\n");
  EXPECT_EQ(records[2].level, 1u);
  EXPECT_EQ(records[2].format, "%s");
  EXPECT_EQ(records[2].text, "[CoapRpc]text 7\n");
}

TEST_F(LogModDo, IsNotCounted) {
  COAP_RPC_LOG_MOD_DO(host_.Log(), 0, "x");
  EXPECT_TRUE(host_.Logs().OfKind(LogKind::kCount).empty());
}

TEST_F(LogModDo, Suppressed_StillGoesToTheDebugChannel) {
  host_.Logs().SuppressBelow(1);
  COAP_RPC_LOG_MOD_DO(host_.Log(), host_.Dbg(), "x");
  EXPECT_EQ(Kinds(), std::vector<LogKind>({LogKind::kFirst, LogKind::kDebug}));
}

TEST_F(LogModDo, NoLog_OnlyTheDebugChannel) {
  COAP_RPC_LOG_MOD_DO(0, host_.Dbg(), "x");
  EXPECT_EQ(Kinds(), std::vector<LogKind>({LogKind::kDebug}));
}

TEST_F(LogModDo, NoDebugChannel_OnlyTheLog) {
  COAP_RPC_LOG_MOD_DO(host_.Log(), 0, "x");
  EXPECT_EQ(Kinds(), std::vector<LogKind>({LogKind::kFirst, LogKind::kSecond}));
  EXPECT_TRUE(TestHost::Process().NullDebugTexts().empty());
}

TEST_F(LogModDo, NoHandle_DoesNothing) {
  COAP_RPC_LOG_MOD_DO(0, 0, "x");
  EXPECT_TRUE(host_.Logs().Records().empty());
  EXPECT_TRUE(TestHost::Process().NullDebugTexts().empty());
}

TEST_F(LogModDo, LongText_IsCutAt1023) {
  for (const size_t len : {1022u, 1023u, 1024u, 10000u}) {
    host_.ClearLogs();
    const std::string text(len, 't');
    COAP_RPC_LOG_MOD_DO(host_.Log(), 0, "%s", text.c_str());
    EXPECT_EQ(host_.LogsOf("COAP_RPC_LOG_MOD_DO")[0].text, text.substr(0, 1023)) << len;
  }
}

TEST_F(LogModDo, EmptyText_IsStillARecord) {
  COAP_RPC_LOG_MOD_DO(host_.Log(), host_.Dbg(), "%s", "");
  EXPECT_EQ(Kinds(), std::vector<LogKind>({LogKind::kFirst, LogKind::kSecond, LogKind::kDebug}));
  EXPECT_EQ(host_.Logs().Records()[1].text, "");
}

TEST_F(LogModDo, PercentInAnArgument_StaysAsItIs) {
  COAP_RPC_LOG_MOD_DO(host_.Log(), 0, "%s", "100%s%n");
  EXPECT_TRUE(host_.HasLog("100%s%n"));
}

class LogRecords : public LogModDo {};

TEST_F(LogRecords, Error_IsCountedThenOfferedThenPrinted) {
  COAP_RPC_LOG(host_.Log(), kLogLibCoapError, "text %u", 1u);
  EXPECT_EQ(Kinds(), std::vector<LogKind>({LogKind::kCount, LogKind::kFirst, LogKind::kSecond}));
  const LogRecord &count = host_.Logs().Records()[0];
  EXPECT_EQ(count.module, "logDefault");
  EXPECT_EQ(count.line, 80u);
}

TEST_F(LogRecords, SuppressedError_IsStillCounted) {
  host_.Logs().SuppressBelow(4);
  COAP_RPC_LOG(host_.Log(), kLogLibCoapWarn, "text");
  EXPECT_EQ(Kinds(), std::vector<LogKind>({LogKind::kCount, LogKind::kFirst}));
}

TEST_F(LogRecords, Info_IsNotCounted) {
  COAP_RPC_LOG(host_.Log(), kLogLibCoapInfo, "text");
  EXPECT_EQ(Kinds(), std::vector<LogKind>({LogKind::kFirst, LogKind::kSecond}));
}

TEST_F(LogRecords, NoLogHandle_SkipsEveryStep) {
  COAP_RPC_LOG(0, kLogLibCoapError, "text");
  EXPECT_TRUE(host_.Logs().Records().empty());
}

TEST_F(LogRecords, Suppressed_ArgumentsAreNotEvaluated) {
  host_.Logs().SuppressBelow(4);
  int numEvaluated = 0;
  COAP_RPC_LOG(host_.Log(), kLogLibCoapError, "%d", ++numEvaluated);
  EXPECT_EQ(numEvaluated, 0);
}

TEST_F(LogRecords, DebugLine_Suppressed_ArgumentsAreNotEvaluated) {
  host_.Logs().SuppressBelow(4);
  CoapRpcCtx ctx = {};
  ctx.log = host_.Log();
  int numEvaluated = 0;
  COAP_RPC_DEBUG(&ctx, "%d", ++numEvaluated);
  EXPECT_EQ(numEvaluated, 0);
  EXPECT_EQ(Kinds(), std::vector<LogKind>({LogKind::kFirst}));
}

// The test host cannot be asked.
TEST_F(LogRecords, DebugLine_Suppressed_GoesToAChannelThatCannotBeAsked) {
  host_.Logs().SuppressBelow(4);
  CoapRpcCtx ctx = {};
  ctx.log = host_.Log();
  ctx.param.dbgHandle = host_.Dbg();
  COAP_RPC_DEBUG(&ctx, "%d", 1);
  EXPECT_EQ(Kinds(), std::vector<LogKind>({LogKind::kFirst, LogKind::kDebug}));
}

TEST_F(LogRecords, LineText_IsAllThatALineHolds) {
  for (const size_t len : {0u, 1u, 1022u, 1023u, 1024u, 10000u}) {
    const std::string text(len, 't');
    EXPECT_EQ(coap_rpc::LineText(text.c_str()).c_str(), text.substr(0, 1023)) << len;
  }
}

TEST_F(LogRecords, KeyArgs_UriWithoutTerminator_IsPrintedBounded) {
  const CoapRpcUriKey key = KeyOf(std::string(64, 'u').c_str(), 1, 2, 3);
  COAP_RPC_LOG(host_.Log(), kLogLibCoapError, "uri:%s, msgType:%u, observe:%u, pktType:%u.\n",
               COAP_RPC_KEY_ARGS(key));
  EXPECT_TRUE(host_.HasLog("uri:" + std::string(64, 'u') + ", msgType:1, observe:2, pktType:3.\n"));
}

// The table of URIs under diagnosis, on a root record of its own.
class LogDiag : public testing::Test {
 protected:
  void SetUp() override {
    ctx_.param = ParamOf(host_);
    ASSERT_EQ(COAP_RpcLogInit(&ctx_), 0u);
  }
  void TearDown() override { COAP_RpcLogUninit(&ctx_); }

  TestHost host_;
  CoapRpcCtx ctx_ = {};
};

TEST_F(LogDiag, UnregisteredUri_Is0_RegisteredIs1) {
  EXPECT_EQ(COAP_RpcNeedRecordDiag(&ctx_, "a/b"), 0u);
  EXPECT_NE(COAP_RpcLogRegUri(&ctx_, "a/b"), nullptr);
  EXPECT_EQ(COAP_RpcNeedRecordDiag(&ctx_, "a/b"), 1u);
  EXPECT_EQ(COAP_RpcNeedRecordDiag(&ctx_, "a"), 0u);
}

TEST_F(LogDiag, NewEntry_HasItsFields) {
  const CoapRpcLogData *data = COAP_RpcLogRegUri(&ctx_, "a/b");
  ASSERT_NE(data, nullptr);
  EXPECT_STREQ(data->uri, "a/b");
  EXPECT_EQ(data->diagId, -1);
  EXPECT_EQ(data->needRecord, 1);
  char rest[COAP_RPC_URI_SIZE - 3] = {};
  EXPECT_EQ(memcmp(data->uri + 3, rest, sizeof(rest)), 0);
}

TEST_F(LogDiag, RegisterAgain_GivesTheSameEntryUntouched) {
  CoapRpcLogData *data = COAP_RpcLogRegUri(&ctx_, "a");
  data->needRecord = 0;
  EXPECT_EQ(COAP_RpcLogRegUri(&ctx_, "a"), data);
  EXPECT_EQ(data->needRecord, 0);
  EXPECT_EQ(COAP_RpcNeedRecordDiag(&ctx_, "a"), 0u);
}

TEST_F(LogDiag, UriOf63_IsTaken_64AndMoreAreNot) {
  const uint64_t live = host_.Pool().LiveCount();
  EXPECT_EQ(COAP_RpcLogRegUri(&ctx_, std::string(64, 'u').c_str()), nullptr);
  EXPECT_EQ(COAP_RpcLogRegUri(&ctx_, std::string(65, 'u').c_str()), nullptr);
  EXPECT_EQ(COAP_RpcLogRegUri(&ctx_, std::string(10000, 'u').c_str()), nullptr);
  EXPECT_EQ(host_.Pool().LiveCount(), live);
  const std::string longest(63, 'u');
  EXPECT_NE(COAP_RpcLogRegUri(&ctx_, longest.c_str()), nullptr);
  EXPECT_EQ(COAP_RpcNeedRecordDiag(&ctx_, longest.c_str()), 1u);
  EXPECT_EQ(COAP_RpcNeedRecordDiag(&ctx_, std::string(64, 'u').c_str()), 0u);
}

TEST_F(LogDiag, AddData_Duplicate_IsNullAndFreed) {
  EXPECT_NE(COAP_RpcLogAddData(ctx_.logDiag, "a"), nullptr);
  const uint64_t live = host_.Pool().LiveCount();
  EXPECT_EQ(COAP_RpcLogAddData(ctx_.logDiag, "a"), nullptr);
  EXPECT_EQ(host_.Pool().LiveCount(), live);
}

TEST_F(LogDiag, AddData_NoMemory_IsNull_TableUnchanged) {
  host_.Pool().Failures().FailOnce(1);
  EXPECT_EQ(COAP_RpcLogRegUri(&ctx_, "a"), nullptr);
  EXPECT_EQ(COAP_RpcLogFindData(ctx_.logDiag, "a"), nullptr);
  EXPECT_NE(COAP_RpcLogRegUri(&ctx_, "a"), nullptr);
}

TEST_F(LogDiag, NullArguments_AreAnsweredSilently) {
  EXPECT_EQ(COAP_RpcLogRegUri(nullptr, "a"), nullptr);
  EXPECT_EQ(COAP_RpcLogRegUri(&ctx_, nullptr), nullptr);
  EXPECT_EQ(COAP_RpcLogAddData(nullptr, "a"), nullptr);
  EXPECT_EQ(COAP_RpcLogAddData(ctx_.logDiag, nullptr), nullptr);
  EXPECT_EQ(COAP_RpcLogFindData(nullptr, "a"), nullptr);
  EXPECT_EQ(COAP_RpcNeedRecordDiag(nullptr, "a"), 0u);
  EXPECT_EQ(COAP_RpcNeedRecordDiag(&ctx_, nullptr), 0u);
  CoapRpcCtx noTable = {};
  EXPECT_EQ(COAP_RpcLogRegUri(&noTable, "a"), nullptr);
  EXPECT_EQ(COAP_RpcNeedRecordDiag(&noTable, "a"), 0u);
  EXPECT_TRUE(TestHost::Process().Asserts().empty());
}

TEST_F(LogDiag, Uninit_FreesEverything_Twice) {
  COAP_RpcLogRegUri(&ctx_, "a");
  COAP_RpcLogRegUri(&ctx_, "b");
  EXPECT_EQ(COAP_RpcLogUninit(&ctx_), 0u);
  EXPECT_EQ(ctx_.logDiag, nullptr);
  EXPECT_EQ(host_.Pool().LiveCount(), 0u);
  EXPECT_EQ(COAP_RpcLogUninit(&ctx_), 0u);
  EXPECT_EQ(COAP_RpcLogUninit(nullptr), 0u);
}

TEST_F(LogDiag, Init_NoMemory_Gives1900000085) {
  COAP_RpcLogUninit(&ctx_);
  host_.Pool().Failures().FailOnce(1);
  EXPECT_EQ(COAP_RpcLogInit(&ctx_), 1900000085u);
  EXPECT_EQ(ctx_.logDiag, nullptr);
}

TEST_F(LogDiag, DataCreate_DoesNotStore) {
  CoapRpcCtx other = {};
  other.param = ParamOf(host_);
  CoapRpcLogDiag *diag = COAP_RpcLogDataCreate_(&other);
  ASSERT_NE(diag, nullptr);
  EXPECT_EQ(other.logDiag, nullptr);
  EXPECT_EQ(diag->owner, &other);
  EXPECT_EQ(diag->desc.cmp, &COAP_RpcLogUriKeyCmp);
  EXPECT_EQ(diag->desc.keyOffset, offsetof(CoapRpcLogData, uri));
  other.logDiag = diag;
  EXPECT_EQ(COAP_RpcLogDataDelete_(&other), 0u);
  EXPECT_EQ(COAP_RpcLogDataCreate_(nullptr), nullptr);
}

TEST(LogUriKeyCmp, Compares64Bytes) {
  const CoapRpcUriKey a = KeyOf("a");
  const CoapRpcUriKey b = KeyOf("b");
  CoapRpcUriKey stray = a;
  stray.uri[63] = 1;
  EXPECT_EQ(COAP_RpcLogUriKeyCmp(a.uri, b.uri), -1);
  EXPECT_EQ(COAP_RpcLogUriKeyCmp(b.uri, a.uri), 1);
  EXPECT_EQ(COAP_RpcLogUriKeyCmp(a.uri, a.uri), 0);
  EXPECT_EQ(COAP_RpcLogUriKeyCmp(a.uri, stray.uri), -1);
}

}  // namespace
}  // namespace coap_rpc_test
