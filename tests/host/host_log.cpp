/* host_log.cpp: levels, rate limit, counters and the texts of the log. */
#include <gtest/gtest.h>

#include <string>

#include "csvc_dbg.h"
#include "host_support.h"
#include "kst_log.h"
#include "log/log.h"

using host_test::HostPtr;
using host_test::LogLines;
using host_test::LogOnce;

namespace {

uint64_t g_nowMs = 0;

uint64_t NowMs() { return g_nowMs; }

// LimitedParam admits two records per site in 1000 ms.
KestrelParam LimitedParam(LogLines &lines) {
  KestrelParam param = lines.Param();
  param.name = "limited";
  param.logBurst = 2;
  param.logWindowMs = 1000;
  return param;
}

// HostRateLimit is a log on a clock that the test moves.
class HostRateLimit : public testing::Test {
 protected:
  HostRateLimit() { g_nowMs = 5000; }

  uint32_t LogTimes(uint32_t times, uint32_t line) {
    uint32_t printed = 0;
    for (uint32_t i = 0; i < times; ++i) {
      if (LogOnce(m_handle, line, KST_LOG_INFO, "t")) ++printed;
    }
    return printed;
  }

  LogLines m_lines;
  kestrel::Log m_log{LimitedParam(m_lines), NowMs};
  uint64_t m_handle = reinterpret_cast<uintptr_t>(static_cast<KST_LogObj *>(&m_log));
};

class HostLog : public testing::Test {
 protected:
  HostPtr Make(uint32_t level) {
    KestrelParam param = m_lines.Param();
    param.logLevel = level;
    return HostPtr(KestrelNew(&param, nullptr, 0));
  }
  LogLines m_lines;
};

void WriteEndless(const HostPtr &host, const char *text) {
  LogOnce(KestrelLog(host.get()), 1, KST_LOG_ERROR, text);
}

}  // namespace

TEST_F(HostRateLimit, AdmitsABurstPerWindowAndSite) {
  EXPECT_EQ(2u, LogTimes(5, 10));
  EXPECT_EQ(2u, LogTimes(3, 11));
  g_nowMs = 5999;
  EXPECT_EQ(0u, LogTimes(1, 10));
}

TEST_F(HostRateLimit, NextWindow_TellsHowManyWereSuppressed) {
  LogTimes(5, 10);
  g_nowMs = 6000;
  EXPECT_EQ(1u, LogTimes(1, 10));
  EXPECT_EQ(
      (std::vector<std::string>{"t", "t", "3 more records within 1000 ms were suppressed", "t"}),
      m_lines.Texts());
  const auto &summary = m_lines.All()[2];
  EXPECT_EQ(KESTREL_CHANNEL_HOST, static_cast<int>(summary.channel));
  EXPECT_EQ(KST_LOG_INFO, static_cast<int>(summary.level));
  EXPECT_EQ("m", summary.module);
  EXPECT_EQ(10u, summary.line);
}

TEST_F(HostRateLimit, TellDropped_WaitsForTheEndOfTheWindow) {
  uint32_t firstDrops = 0;
  m_log.OnFirstDrop([&] { ++firstDrops; });
  LogTimes(4, 10);
  g_nowMs = 5500;
  LogTimes(4, 11);
  EXPECT_EQ(1u, firstDrops);
  g_nowMs = 6000;
  EXPECT_TRUE(m_log.TellDropped(false));
  EXPECT_EQ(5u, m_lines.All().size());
  g_nowMs = 6500;
  EXPECT_FALSE(m_log.TellDropped(false));
  EXPECT_EQ(6u, m_lines.All().size());
  EXPECT_EQ("2 more records within 1000 ms were suppressed", m_lines.All().back().text);
  LogTimes(3, 10);
  EXPECT_EQ(2u, firstDrops);
}

TEST_F(HostRateLimit, CountersAreKept) {
  KST_LogCnt(reinterpret_cast<KST_LogObj *>(m_handle)->counter, "m", 10);
  KST_LogCnt(0, "m", 10);
  LogTimes(5, 10);
  const KestrelLogSite site = m_log.SiteAccount("m", 10);
  EXPECT_EQ(1u, site.counted);
  EXPECT_EQ(2u, site.printed);
  EXPECT_EQ(3u, site.suppressed);
  EXPECT_EQ(0u, m_log.SiteAccount("m", 99).printed);
  EXPECT_EQ(3u, m_log.Stat().suppressedByRate);
  EXPECT_EQ(2u, m_log.Stat().printed[KST_LOG_INFO]);
}

TEST_F(HostRateLimit, SitesBeyondTheLimit_ShareOne) {
  for (uint32_t line = 0; line < 5000; ++line) LogTimes(1, line);
  EXPECT_EQ(4097u, m_log.Stat().siteCount);
  EXPECT_EQ(2u, m_log.SiteAccount("other", 0).printed);
  EXPECT_EQ(902u, m_log.SiteAccount("other", 0).suppressed);
}

// A sink that logs itself, while the dropped records are told, must not upset the walk.
TEST_F(HostRateLimit, SinkThatLogs) {
  struct Looping {
    uint64_t log = 0;
    uint32_t line = 1000;
    static void OnRecord(void *param, const KestrelLogRecord *record) {
      auto *self = static_cast<Looping *>(param);
      if (record->channel != KESTREL_CHANNEL_HOST) return;
      for (int i = 0; i < 100; ++i) LogOnce(self->log, self->line++, KST_LOG_INFO, "inner");
    }
  };
  Looping looping;
  KestrelParam param = LimitedParam(m_lines);
  param.logCallback = Looping::OnRecord;
  param.logCallbackParam = &looping;
  kestrel::Log log(param, NowMs);
  looping.log = reinterpret_cast<uintptr_t>(static_cast<KST_LogObj *>(&log));
  for (uint32_t line = 0; line < 20; ++line) {
    for (int i = 0; i < 3; ++i) LogOnce(looping.log, line, KST_LOG_INFO, "t");
  }
  EXPECT_FALSE(log.TellDropped(true));
  EXPECT_EQ(2020u, log.Stat().siteCount);
}

TEST_F(HostLog, Level_SuppressesWhatIsBelow) {
  const HostPtr host = Make(KESTREL_LEVEL_WARN);
  const uint64_t log = KestrelLog(host.get());
  EXPECT_FALSE(LogOnce(log, 1, KST_LOG_DEBUG, "d"));
  EXPECT_FALSE(LogOnce(log, 2, KST_LOG_INFO, "i"));
  EXPECT_TRUE(LogOnce(log, 3, KST_LOG_WARN, "w"));
  EXPECT_TRUE(LogOnce(log, 4, KST_LOG_ERROR, "e"));
  EXPECT_TRUE(LogOnce(log, 5, 77, "odd"));
  EXPECT_EQ((std::vector<std::string>{"w", "e", "odd"}), m_lines.Texts());

  KestrelLogStat stat{};
  KestrelLogStatGet(host.get(), &stat);
  EXPECT_EQ(2u, stat.suppressedByLevel);
  EXPECT_EQ(1u, stat.printed[KST_LOG_WARN]);
  EXPECT_EQ(2u, stat.printed[KST_LOG_ERROR]);
}

TEST_F(HostLog, Off_SuppressesAll) {
  const HostPtr host = Make(KESTREL_LEVEL_OFF);
  EXPECT_FALSE(LogOnce(KestrelLog(host.get()), 1, KST_LOG_ERROR, "e"));
  EXPECT_EQ(0u, m_lines.All().size());
}

TEST_F(HostLog, LogZero_IsSuppressed) {
  EXPECT_FALSE(LogOnce(0, 1, KST_LOG_ERROR, "e"));
  KST_LogSecondHalf_(0, "m", 1, KST_LOG_ERROR, "Func", "%d", 1);
}

TEST_F(HostLog, Record_HasItsParts) {
  const HostPtr host = Make(KESTREL_LEVEL_DEBUG);
  LogOnce(KestrelLog(host.get()), 42, KST_LOG_WARN, "text");
  ASSERT_EQ(1u, m_lines.All().size());
  const auto &line = m_lines.All()[0];
  EXPECT_EQ(KESTREL_CHANNEL_LOG, static_cast<int>(line.channel));
  EXPECT_EQ(KST_LOG_WARN, static_cast<int>(line.level));
  EXPECT_EQ("m", line.module);
  EXPECT_EQ(42u, line.line);
  EXPECT_EQ("Func", line.func);
  EXPECT_EQ("text", line.text);
}

TEST_F(HostLog, Text_StaysOneLine) {
  const HostPtr host = Make(KESTREL_LEVEL_DEBUG);
  WriteEndless(host, "closing\n");
  WriteEndless(host, "forged\n2024 line\r\x1b[2J\x7f");
  WriteEndless(host, "gr\xc3\xbc\xc3\x9f");
  EXPECT_EQ((std::vector<std::string>{"closing", "forged\\x0a2024 line\\x0d\\x1b[2J\\x7f",
                                      "gr\xc3\xbc\xc3\x9f"}),
            m_lines.Texts());
}

TEST_F(HostLog, Text_OfAnyLength) {
  const HostPtr host = Make(KESTREL_LEVEL_DEBUG);
  const std::string text(1 << 20, 'x');
  WriteEndless(host, text.c_str());
  ASSERT_EQ(1u, m_lines.All().size());
  EXPECT_TRUE(m_lines.All()[0].text == text);
}

TEST_F(HostLog, Debug_GoesToItsChannel) {
  const HostPtr host = Make(KESTREL_LEVEL_INFO);
  const uint64_t dbg = KestrelDbg(host.get());
  CSVC_DBG_Debug(dbg, 1, "n=%d\n", 5);
  CSVC_DBG_Debug(dbg, 0, "below the level");
  CSVC_DBG_Debug(0, 1, "dropped");
  ASSERT_EQ(1u, m_lines.All().size());
  EXPECT_EQ(KESTREL_CHANNEL_DEBUG, static_cast<int>(m_lines.All()[0].channel));
  EXPECT_EQ("n=5", m_lines.All()[0].text);
}

TEST_F(HostLog, Syslog_IsSeenByTheCallbackWhateverTheLevel) {
  const HostPtr host = Make(KESTREL_LEVEL_OFF);
  CSVC_DBG_SysLog(KestrelDbg(host.get()), 0, "uri %s", "a/b");
  CSVC_DBG_SysLog(0, 1, "dropped");
  ASSERT_EQ(1u, m_lines.All().size());
  EXPECT_EQ(KESTREL_CHANNEL_SYSLOG, static_cast<int>(m_lines.All()[0].channel));
  EXPECT_EQ("uri a/b", m_lines.All()[0].text);
}

TEST_F(HostLog, DroppedRecords_AreToldByTheLoop) {
  KestrelParam param = m_lines.Param();
  param.logBurst = 1;
  param.logWindowMs = 10;
  const HostPtr host(KestrelNew(&param, nullptr, 0));
  const uint64_t log = KestrelLog(host.get());
  while (LogOnce(log, 1, KST_LOG_INFO, "t")) {
  }
  const size_t printed = m_lines.All().size();
  EXPECT_TRUE(host_test::TurnUntil(host.get(), [&] { return m_lines.All().size() > printed; }));
  EXPECT_EQ("1 more records within 10 ms were suppressed", m_lines.All().back().text);
  EXPECT_TRUE(
      host_test::TurnUntil(host.get(), [&] { return KestrelPollTimeoutMs(host.get()) == -1; }));
}

TEST_F(HostLog, DroppedRecords_AreToldAtTheEnd) {
  KestrelParam param = m_lines.Param();
  param.logBurst = 1;
  param.logWindowMs = 3600000;
  KestrelDelete([&] {
    Kestrel *host = KestrelNew(&param, nullptr, 0);
    for (int i = 0; i < 3; ++i) LogOnce(KestrelLog(host), 1, KST_LOG_INFO, "t");
    return host;
  }());
  EXPECT_EQ((std::vector<std::string>{"t", "2 more records within 3600000 ms were suppressed"}),
            m_lines.Texts());
}
