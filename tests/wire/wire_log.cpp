// A request's log lines, at the level that lets all of libcoap's through: what is offered does not
// depend on who takes it, and what nobody takes costs nothing.
#include "log_costs.h"
#include "wire_server.h"

namespace coap_rpc_test {
namespace {

constexpr uint32_t kNothing = KST_LOG_ERROR + 1;

class LogOfRequest : public WireServer {
 protected:
  LogOfRequest() {
    Serve(KeyOf("a/b", COAP_RPC_CON, 0, COAP_RPC_UNICAST), RegOf(&app_, 0));
    // The first request makes the session.
    app_.out = "first";
    app_.result = 5;
    Ask(Post(CoapType::kCon, "a/b", "first"));
  }

  // Exchange asks for an answer of N bytes; returns the sites that were offered, in order.
  std::vector<LogSite> Exchange(size_t len) {
    app_.out = std::string(len, 1);
    app_.result = static_cast<int32_t>(len - 1);
    host_.ClearLogs();
    g_logCosts = {};
    const CoapMessage answer = Ask(Post(CoapType::kCon, "a/b", "q"));
    EXPECT_EQ(answer.code, Code(2, 1));
    std::vector<LogSite> sites;
    for (const LogRecord &record : host_.Logs().OfKind(LogKind::kFirst)) {
      sites.emplace_back(record.module, record.line);
    }
    return sites;
  }

  // Texts gives what was written of one kind.
  std::vector<std::string> Texts(LogKind kind) {
    std::vector<std::string> texts;
    for (const LogRecord &record : host_.Logs().OfKind(kind)) texts.push_back(record.text);
    return texts;
  }

  App app_;
};

TEST_F(LogOfRequest, TakenByNobody_IsOfferedAndFormatsNothing) {
  const std::vector<LogSite> offered = Exchange(100);
  EXPECT_GT(g_logCosts.NumTexts(), 0);
  host_.Logs().SuppressBelow(kNothing);
  EXPECT_EQ(Exchange(100), offered);
  EXPECT_EQ(g_logCosts.NumTexts(), 0);
  EXPECT_TRUE(Texts(LogKind::kSecond).empty());
  EXPECT_TRUE(Texts(LogKind::kDebug).empty());
}

TEST_F(LogOfRequest, LargeAnswer_TakenByNobody_FormatsNothing) {
  Exchange(65471);
  const std::vector<LogSite> offered =
      Exchange(65471);  // as the one before: it ends that one's body
  host_.Logs().SuppressBelow(kNothing);
  EXPECT_EQ(Exchange(65471), offered);
  EXPECT_EQ(g_logCosts.NumTexts(), 0);
}

// The body of 65471 bytes is shown as a whole, but only what a line holds is formatted.
TEST_F(LogOfRequest, LargeAnswer_Taken_FormatsNoMoreThanALineHolds) {
  Exchange(3000);
  const int numTexts = g_logCosts.NumTexts();
  Exchange(65471);
  Exchange(65471);
  EXPECT_LT(g_logCosts.NumTexts(), numTexts + 20);
}

TEST_F(LogOfRequest, DebugChannelTakesTheSameLines) {
  Exchange(100);
  g_isLogTaken = true;
  Exchange(100);
  g_isLogTaken = false;
  std::vector<std::string> logged;
  for (const LogRecord &record : host_.Logs().OfKind(LogKind::kSecond)) {
    const bool isForBoth =
        record.func == "CORP_RpcLibCoapLog" || record.func == "COAP_RPC_LOG_MOD_DO";
    if (isForBoth) logged.push_back(record.text);
  }
  EXPECT_GT(logged.size(), 5u);
  EXPECT_EQ(Texts(LogKind::kDebug), logged);
}

}  // namespace
}  // namespace coap_rpc_test
