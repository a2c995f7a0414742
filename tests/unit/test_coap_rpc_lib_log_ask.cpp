/* test_coap_rpc_lib_log_ask.cpp: a host that can be asked: lines that nobody takes are offered and
 * counted as ever, but neither formatted nor are their arguments evaluated. */
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "coap_svc/rpc/common/coap_rpc_log_site.h"
#include "coap_svc/rpc/libadapter/log/coap_rpc_lib_log.h"
#include "log_costs.h"
#include "logging_functions.h"
#include "test_host.h"

using namespace coap_rpc_test;

namespace {

constexpr uint32_t kNothing = KST_LOG_ERROR + 1;

// Asked is an instance without libcoap context that libcoap asks; its log takes nothing at first.
class Asked : public testing::Test {
 protected:
  Asked() {
    g_isLogTaken = false;
    ctx_.log = host_.Log();
    ctx_.param.dbgHandle = host_.Dbg();
    host_.Logs().SuppressBelow(kNothing);
    CoapRpcLibSetLogRoot(&ctx_);
    coap_startup();
    coap_set_log_level(COAP_LOG_OSCORE);
    coap_set_log_handler(CORP_RpcLibCoapLog);
    CoapRpcLibAskLog();
    g_logCosts = {};
  }
  ~Asked() override {
    coap_cleanup();
    CoapRpcLibSetLogRoot(nullptr);
  }

  std::vector<LogKind> Kinds() {
    std::vector<LogKind> kinds;
    for (const LogRecord &record : host_.Logs().Records()) kinds.push_back(record.kind);
    return kinds;
  }

  TestHost host_;
  CoapRpcCtx ctx_ = {};
};

}  // namespace

TEST_F(Asked, TakenByNobody_IsOfferedAndNotEvaluated) {
  int numEvaluated = 0;
  coap_log_debug("%d", ++numEvaluated);
  EXPECT_EQ(numEvaluated, 0);
  EXPECT_EQ(g_logCosts.numFormatted, 0);
  EXPECT_EQ(g_logCosts.numLookups, 0);
  ASSERT_EQ(Kinds(), std::vector<LogKind>{LogKind::kFirst});
  EXPECT_EQ(host_.Logs().Records()[0].line, 71u);
  EXPECT_EQ(g_logCosts.questions, (std::vector<std::pair<uint64_t, uint32_t>>{{host_.Dbg(), 1}}));
}

TEST_F(Asked, WarningTakenByNobody_IsCounted) {
  coap_log_warn("text");
  EXPECT_EQ(Kinds(), (std::vector<LogKind>{LogKind::kCount, LogKind::kFirst}));
  EXPECT_EQ(g_logCosts.numFormatted, 0);
}

TEST_F(Asked, LoggerItself_AsksToo) {
  LogFromNamedFunction(COAP_LOG_ERR, "text");
  EXPECT_EQ(Kinds(), (std::vector<LogKind>{LogKind::kCount, LogKind::kFirst}));
  EXPECT_EQ(g_logCosts.numFormatted, 0);
}

TEST_F(Asked, HandlerItself_AsksToo) {
  CORP_RpcLibCoapLog(COAP_LOG_ERR, "text");
  EXPECT_EQ(Kinds(), (std::vector<LogKind>{LogKind::kCount, LogKind::kFirst}));
  EXPECT_EQ(g_logCosts.questions.size(), 1u);
  EXPECT_EQ(g_logCosts.numLookups, 0);
}

TEST_F(Asked, BelowTheLevel_NobodyIsAsked) {
  coap_set_log_level(COAP_LOG_WARN);
  coap_log_info("text");
  EXPECT_TRUE(Kinds().empty());
  EXPECT_TRUE(g_logCosts.questions.empty());
}

TEST_F(Asked, TakenByTheLog_IsOfferedOnce) {
  host_.Logs().ShowAll();
  LogIfAsked(COAP_LOG_WARN, "hello\n");
  ASSERT_EQ(Kinds(), (std::vector<LogKind>{LogKind::kCount, LogKind::kFirst, LogKind::kSecond}));
  const LogRecord &record = host_.Logs().Records()[2];
  EXPECT_EQ(record.text, "[CoapRpc][LogIfAsked], level = 4, msg = hello\n");
  EXPECT_EQ(record.format, "[CoapRpc][%s], level = %u, msg = %s");
  EXPECT_EQ(record.func, "CORP_RpcLibCoapLog");
  EXPECT_EQ(record.line, 77u);
  EXPECT_EQ(record.level, 2u);
  EXPECT_EQ(g_logCosts.questions.size(), 1u);
}

TEST_F(Asked, TakenByTheDebugChannel_LogHasOnlyRefused) {
  g_isLogTaken = true;
  LogIfAsked(COAP_LOG_DEBUG, "hello");
  ASSERT_EQ(Kinds(), (std::vector<LogKind>{LogKind::kFirst, LogKind::kDebug}));
  EXPECT_EQ(host_.Logs().Records()[1].text, "[CoapRpc][LogIfAsked], level = 7, msg = hello");
  EXPECT_EQ(host_.Logs().Records()[1].format, "[CoapRpc][%s], level = %u, msg = %s");
  EXPECT_EQ(host_.Logs().Records()[1].level, 1u);
}

TEST_F(Asked, NoHandles_TheChannelIsAskedAboutNull) {
  ctx_.log = 0;
  ctx_.param.dbgHandle = 0;
  LogIfAsked(COAP_LOG_ERR, "refused");
  EXPECT_EQ(g_logCosts.numFormatted, 0);
  g_isLogTaken = true;
  LogIfAsked(COAP_LOG_ERR, "taken");
  EXPECT_EQ(g_logCosts.questions, (std::vector<std::pair<uint64_t, uint32_t>>{{0, 1}, {0, 1}}));
  EXPECT_EQ(TestHost::Process().NullDebugTexts(),
            std::vector<std::string>{"[CoapRpc][LogIfAsked], level = 3, msg = taken"});
}

TEST_F(Asked, NoInstance_NobodyIsAsked) {
  CoapRpcLibSetLogRoot(nullptr);
  g_isLogTaken = true;
  LogIfAsked(COAP_LOG_ERR, "text");
  EXPECT_TRUE(g_logCosts.questions.empty());
  EXPECT_EQ(g_logCosts.numFormatted, 0);
}

TEST_F(Asked, SamePlace_IsLookedUpOnce) {
  g_isLogTaken = true;
  for (int i = 0; i < 3; ++i) LogIfAsked(COAP_LOG_INFO, "text");
  EXPECT_LE(g_logCosts.numLookups, 1);  // 0 when an earlier test had it looked up
}

TEST_F(Asked, AnotherHandler_GetsEveryLine) {
  static int numLines;
  numLines = 0;
  coap_set_log_handler([](coap_log_t, const char *) { ++numLines; });
  LogIfAsked(COAP_LOG_DEBUG, "text");
  EXPECT_EQ(numLines, 1);
  EXPECT_TRUE(g_logCosts.questions.empty());
}

TEST_F(Asked, OwnDebugLine_TakenByNobody_IsOfferedAndNotEvaluated) {
  int numEvaluated = 0;
  COAP_RPC_DEBUG(&ctx_, "%d", ++numEvaluated);
  EXPECT_EQ(numEvaluated, 0);
  COAP_RPC_LOG_MOD_DO(ctx_.log, ctx_.param.dbgHandle, "text");
  EXPECT_EQ(Kinds(), (std::vector<LogKind>{LogKind::kFirst, LogKind::kFirst}));
  EXPECT_EQ(g_logCosts.numFormatted, 0);
  EXPECT_EQ(g_logCosts.questions.size(), 2u);
}

TEST_F(Asked, OwnDebugLine_TakenByEither_IsTheSame) {
  g_isLogTaken = true;
  COAP_RPC_DEBUG(&ctx_, "text %d", 1);
  g_isLogTaken = false;
  host_.Logs().ShowAll();
  COAP_RPC_DEBUG(&ctx_, "text %d", 2);
  ASSERT_EQ(Kinds(), (std::vector<LogKind>{LogKind::kFirst, LogKind::kDebug, LogKind::kFirst,
                                           LogKind::kSecond}));
  EXPECT_EQ(host_.Logs().Records()[1].text, "text 1");
  EXPECT_EQ(host_.Logs().Records()[3].text, "text 2");
}

TEST_F(Asked, OwnDebugLine_NullHandle_IsNotAskedAbout) {
  ctx_.param.dbgHandle = 0;
  g_isLogTaken = true;
  COAP_RPC_DEBUG(&ctx_, "text");
  EXPECT_TRUE(g_logCosts.questions.empty());
  EXPECT_TRUE(TestHost::Process().NullDebugTexts().empty());
}
