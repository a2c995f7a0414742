/* host_log.cpp: levels, rate limit, counters and the texts of the log. */
#include <gtest/gtest.h>

#include <string>

#include "csvc_dbg.h"
#include "dbg/dbg_channel.h"
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
  param.debugBurst = 3;
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

// HostDebugLimit is a debug channel on a clock that the test moves.
class HostDebugLimit : public HostRateLimit {
 protected:
  HostDebugLimit() {
    m_log.OnFirstDrop([this] { ++m_firstDrops; });
  }

  void Write(uint32_t times, uint32_t level = KST_LOG_INFO) {
    for (uint32_t i = 0; i < times; ++i) CSVC_DBG_Debug(m_dbg, level, "%s", m_text.c_str());
  }
  uint32_t Takes(uint32_t level = KST_LOG_INFO) { return CSVC_DBG_Takes(m_dbg, level); }

  std::string m_text = "d";
  uint32_t m_firstDrops = 0;
  kestrel::DbgChannel m_channel = {
      [](void *log, uint32_t level) { return static_cast<kestrel::Log *>(log)->TakesDebug(level); },
      [](void *log, bool toSyslog, uint32_t level, const char *text) {
        auto *to = static_cast<kestrel::Log *>(log);
        toSyslog ? to->Syslog(level, text) : to->Debug(level, text);
      },
      &m_log};
  uint64_t m_dbg = reinterpret_cast<uintptr_t>(&m_channel);
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

TEST_F(HostDebugLimit, NextWindow_TellsHowManyWereDropped) {
  Write(5);
  g_nowMs = 5999;
  Write(1);
  g_nowMs = 6000;
  Write(1);
  EXPECT_EQ((std::vector<std::string>{"d", "d", "d",
                                      "3 more records within 1000 ms were suppressed", "d"}),
            m_lines.Texts());
  const auto &summary = m_lines.All()[3];
  EXPECT_EQ(KESTREL_CHANNEL_HOST, static_cast<int>(summary.channel));
  EXPECT_EQ(KST_LOG_INFO, static_cast<int>(summary.level));
  EXPECT_EQ("debug", summary.module);
  EXPECT_EQ(0u, summary.line);
  EXPECT_EQ(3u, m_log.Stat().suppressedByRate);
  EXPECT_EQ(1u, m_firstDrops);
}

// A question uses nothing up; a refusal is a dropped text, whether or not it would have been
// written.
TEST_F(HostDebugLimit, Asked_AnswersAsTheChannelThenActs) {
  for (int i = 0; i < 10; ++i) EXPECT_EQ(1u, Takes());
  Write(3);
  EXPECT_EQ(0u, m_log.Stat().suppressedByRate);
  EXPECT_EQ(0u, Takes());
  EXPECT_EQ(0u, Takes());
  Write(1);
  EXPECT_EQ(3u, m_log.Stat().suppressedByRate);
  g_nowMs = 6000;
  EXPECT_EQ(1u, Takes());
  EXPECT_EQ("3 more records within 1000 ms were suppressed", m_lines.Texts().back());
}

TEST_F(HostDebugLimit, Asked_LevelAndNoChannel) {
  KestrelParam param = LimitedParam(m_lines);
  param.logLevel = KESTREL_LEVEL_WARN;
  kestrel::Log log(param, NowMs);
  m_channel.owner = &log;
  EXPECT_EQ(0u, Takes(KST_LOG_INFO));
  EXPECT_EQ(1u, Takes(KST_LOG_WARN));
  EXPECT_EQ(1u, Takes(77));
  EXPECT_EQ(0u, CSVC_DBG_Takes(0, KST_LOG_ERROR));
  EXPECT_EQ(0u, log.Stat().suppressedByRate);
}

// Nothing can be read at that address.
TEST_F(HostDebugLimit, Dropped_IsNotFormatted) {
  Write(3);
  const char *const nowhere = reinterpret_cast<const char *>(1);
  CSVC_DBG_Debug(m_dbg, KST_LOG_INFO, "%s", nowhere);
  CSVC_DBG_Debug(0, KST_LOG_INFO, "%s", nowhere);
  EXPECT_EQ(1u, m_log.Stat().suppressedByRate);
}

TEST_F(HostDebugLimit, TellDropped_WaitsForTheEndOfTheWindow) {
  Write(4);
  EXPECT_TRUE(m_log.TellDropped(false));
  g_nowMs = 6000;
  EXPECT_FALSE(m_log.TellDropped(false));
  EXPECT_EQ("1 more records within 1000 ms were suppressed", m_lines.Texts().back());
}

TEST_F(HostDebugLimit, SystemLogAndLogSites_HaveNoShareInIt) {
  Write(4);
  CSVC_DBG_SysLog(m_dbg, KST_LOG_INFO, "s");
  EXPECT_EQ("s", m_lines.Texts().back());
  EXPECT_EQ(2u, LogTimes(3, 0));
  EXPECT_EQ(1u, m_log.Stat().siteCount);
}

TEST_F(HostLog, DebugLimit_Is100_OrAsGiven) {
  for (const uint32_t burst : {0u, 7u, UINT32_MAX}) {
    LogLines lines;
    KestrelParam param = lines.Param();
    param.logWindowMs = 3600000;
    param.debugBurst = burst;
    const HostPtr host(KestrelNew(&param, nullptr, 0));
    for (int i = 0; i < 500; ++i) CSVC_DBG_Debug(KestrelDbg(host.get()), 1, "d");
    EXPECT_EQ(burst == 0 ? 100u : burst == 7 ? 7u : 500u, lines.All().size());
  }
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
