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
      if (LogOnce(handle_, line, KST_LOG_INFO, "t")) ++printed;
    }
    return printed;
  }

  LogLines lines_;
  kestrel::Log log_{LimitedParam(lines_), NowMs};
  uint64_t handle_ = reinterpret_cast<uintptr_t>(static_cast<KST_LogObj *>(&log_));
};

// HostDebugLimit is a debug channel on a clock that the test moves.
class HostDebugLimit : public HostRateLimit {
 protected:
  HostDebugLimit() {
    log_.OnFirstDrop([this] { ++firstDrops_; });
  }

  void Write(uint32_t times, uint32_t level = KST_LOG_INFO) {
    for (uint32_t i = 0; i < times; ++i) CSVC_DBG_Debug(dbg_, level, "%s", text_.c_str());
  }
  uint32_t Takes(uint32_t level = KST_LOG_INFO) { return CSVC_DBG_Takes(dbg_, level); }

  std::string text_ = "d";
  uint32_t firstDrops_ = 0;
  kestrel::DbgChannel channel_ = {
      [](void *log, uint32_t level) { return static_cast<kestrel::Log *>(log)->TakesDebug(level); },
      [](void *log, bool toSyslog, uint32_t level, const char *text) {
        auto *to = static_cast<kestrel::Log *>(log);
        toSyslog ? to->Syslog(level, text) : to->Debug(level, text);
      },
      &log_};
  uint64_t dbg_ = reinterpret_cast<uintptr_t>(&channel_);
};

class HostLog : public testing::Test {
 protected:
  HostPtr Make(uint32_t level) {
    KestrelParam param = lines_.Param();
    param.logLevel = level;
    return HostPtr(KestrelNew(&param, nullptr, 0));
  }
  LogLines lines_;
};

void WriteEndless(const HostPtr &host, const char *text) {
  LogOnce(KestrelLog(host.get()), 1, KST_LOG_ERROR, text);
}

}  // namespace

TEST_F(HostRateLimit, AdmitsABurstPerWindowAndSite) {
  EXPECT_EQ(LogTimes(5, 10), 2u);
  EXPECT_EQ(LogTimes(3, 11), 2u);
  g_nowMs = 5999;
  EXPECT_EQ(LogTimes(1, 10), 0u);
}

TEST_F(HostRateLimit, NextWindow_TellsHowManyWereSuppressed) {
  LogTimes(5, 10);
  g_nowMs = 6000;
  EXPECT_EQ(LogTimes(1, 10), 1u);
  EXPECT_EQ(lines_.Texts(), (std::vector<std::string>{
                                "t", "t", "3 more records within 1000 ms were suppressed", "t"}));
  const auto &summary = lines_.All()[2];
  EXPECT_EQ(static_cast<int>(summary.channel), KESTREL_CHANNEL_HOST);
  EXPECT_EQ(static_cast<int>(summary.level), KST_LOG_INFO);
  EXPECT_EQ(summary.module, "m");
  EXPECT_EQ(summary.line, 10u);
}

TEST_F(HostRateLimit, TellDropped_WaitsForTheEndOfTheWindow) {
  uint32_t firstDrops = 0;
  log_.OnFirstDrop([&] { ++firstDrops; });
  LogTimes(4, 10);
  g_nowMs = 5500;
  LogTimes(4, 11);
  EXPECT_EQ(firstDrops, 1u);
  g_nowMs = 6000;
  EXPECT_TRUE(log_.TellDropped(false));
  EXPECT_EQ(lines_.All().size(), 5u);
  g_nowMs = 6500;
  EXPECT_FALSE(log_.TellDropped(false));
  EXPECT_EQ(lines_.All().size(), 6u);
  EXPECT_EQ(lines_.All().back().text, "2 more records within 1000 ms were suppressed");
  LogTimes(3, 10);
  EXPECT_EQ(firstDrops, 2u);
}

TEST_F(HostRateLimit, CountersAreKept) {
  KST_LogCnt(reinterpret_cast<KST_LogObj *>(handle_)->counter, "m", 10);
  KST_LogCnt(0, "m", 10);
  LogTimes(5, 10);
  const KestrelLogSite site = log_.SiteAccount("m", 10);
  EXPECT_EQ(site.counted, 1u);
  EXPECT_EQ(site.printed, 2u);
  EXPECT_EQ(site.suppressed, 3u);
  EXPECT_EQ(log_.SiteAccount("m", 99).printed, 0u);
  EXPECT_EQ(log_.Stat().suppressedByRate, 3u);
  EXPECT_EQ(log_.Stat().printed[KST_LOG_INFO], 2u);
}

TEST_F(HostRateLimit, SitesBeyondTheLimit_ShareOne) {
  for (uint32_t line = 0; line < 5000; ++line) LogTimes(1, line);
  EXPECT_EQ(log_.Stat().siteCount, 4097u);
  EXPECT_EQ(log_.SiteAccount("other", 0).printed, 2u);
  EXPECT_EQ(log_.SiteAccount("other", 0).suppressed, 902u);
}

TEST_F(HostDebugLimit, NextWindow_TellsHowManyWereDropped) {
  Write(5);
  g_nowMs = 5999;
  Write(1);
  g_nowMs = 6000;
  Write(1);
  EXPECT_EQ(lines_.Texts(),
            (std::vector<std::string>{"d", "d", "d",
                                      "3 more records within 1000 ms were suppressed", "d"}));
  const auto &summary = lines_.All()[3];
  EXPECT_EQ(static_cast<int>(summary.channel), KESTREL_CHANNEL_HOST);
  EXPECT_EQ(static_cast<int>(summary.level), KST_LOG_INFO);
  EXPECT_EQ(summary.module, "debug");
  EXPECT_EQ(summary.line, 0u);
  EXPECT_EQ(log_.Stat().suppressedByRate, 3u);
  EXPECT_EQ(firstDrops_, 1u);
}

// A question uses nothing up; a refusal is a dropped text, whether or not it would have been
// written.
TEST_F(HostDebugLimit, Asked_AnswersAsTheChannelThenActs) {
  for (int i = 0; i < 10; ++i) EXPECT_EQ(Takes(), 1u);
  Write(3);
  EXPECT_EQ(log_.Stat().suppressedByRate, 0u);
  EXPECT_EQ(Takes(), 0u);
  EXPECT_EQ(Takes(), 0u);
  Write(1);
  EXPECT_EQ(log_.Stat().suppressedByRate, 3u);
  g_nowMs = 6000;
  EXPECT_EQ(Takes(), 1u);
  EXPECT_EQ(lines_.Texts().back(), "3 more records within 1000 ms were suppressed");
}

TEST_F(HostDebugLimit, Asked_LevelAndNoChannel) {
  KestrelParam param = LimitedParam(lines_);
  param.logLevel = KESTREL_LEVEL_WARN;
  kestrel::Log log(param, NowMs);
  channel_.owner = &log;
  EXPECT_EQ(Takes(KST_LOG_INFO), 0u);
  EXPECT_EQ(Takes(KST_LOG_WARN), 1u);
  EXPECT_EQ(Takes(77), 1u);
  EXPECT_EQ(CSVC_DBG_Takes(0, KST_LOG_ERROR), 0u);
  EXPECT_EQ(log.Stat().suppressedByRate, 0u);
}

// Nothing can be read at that address.
TEST_F(HostDebugLimit, Dropped_IsNotFormatted) {
  Write(3);
  const char *const nowhere = reinterpret_cast<const char *>(1);
  CSVC_DBG_Debug(dbg_, KST_LOG_INFO, "%s", nowhere);
  CSVC_DBG_Debug(0, KST_LOG_INFO, "%s", nowhere);
  EXPECT_EQ(log_.Stat().suppressedByRate, 1u);
}

TEST_F(HostDebugLimit, TellDropped_WaitsForTheEndOfTheWindow) {
  Write(4);
  EXPECT_TRUE(log_.TellDropped(false));
  g_nowMs = 6000;
  EXPECT_FALSE(log_.TellDropped(false));
  EXPECT_EQ(lines_.Texts().back(), "1 more records within 1000 ms were suppressed");
}

TEST_F(HostDebugLimit, SystemLogAndLogSites_HaveNoShareInIt) {
  Write(4);
  CSVC_DBG_SysLog(dbg_, KST_LOG_INFO, "s");
  EXPECT_EQ(lines_.Texts().back(), "s");
  EXPECT_EQ(LogTimes(3, 0), 2u);
  EXPECT_EQ(log_.Stat().siteCount, 1u);
}

TEST_F(HostLog, DebugLimit_Is100_OrAsGiven) {
  for (const uint32_t burst : {0u, 7u, UINT32_MAX}) {
    LogLines lines;
    KestrelParam param = lines.Param();
    param.logWindowMs = 3600000;
    param.debugBurst = burst;
    const HostPtr host(KestrelNew(&param, nullptr, 0));
    for (int i = 0; i < 500; ++i) CSVC_DBG_Debug(KestrelDbg(host.get()), 1, "d");
    EXPECT_EQ(lines.All().size(), burst == 0 ? 100u : burst == 7 ? 7u : 500u);
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
  KestrelParam param = LimitedParam(lines_);
  param.logCallback = Looping::OnRecord;
  param.logCallbackParam = &looping;
  kestrel::Log log(param, NowMs);
  looping.log = reinterpret_cast<uintptr_t>(static_cast<KST_LogObj *>(&log));
  for (uint32_t line = 0; line < 20; ++line) {
    for (int i = 0; i < 3; ++i) LogOnce(looping.log, line, KST_LOG_INFO, "t");
  }
  EXPECT_FALSE(log.TellDropped(true));
  EXPECT_EQ(log.Stat().siteCount, 2020u);
}

TEST_F(HostLog, Level_SuppressesWhatIsBelow) {
  const HostPtr host = Make(KESTREL_LEVEL_WARN);
  const uint64_t log = KestrelLog(host.get());
  EXPECT_FALSE(LogOnce(log, 1, KST_LOG_DEBUG, "d"));
  EXPECT_FALSE(LogOnce(log, 2, KST_LOG_INFO, "i"));
  EXPECT_TRUE(LogOnce(log, 3, KST_LOG_WARN, "w"));
  EXPECT_TRUE(LogOnce(log, 4, KST_LOG_ERROR, "e"));
  EXPECT_TRUE(LogOnce(log, 5, 77, "odd"));
  EXPECT_EQ(lines_.Texts(), (std::vector<std::string>{"w", "e", "odd"}));

  KestrelLogStat stat{};
  KestrelLogStatGet(host.get(), &stat);
  EXPECT_EQ(stat.suppressedByLevel, 2u);
  EXPECT_EQ(stat.printed[KST_LOG_WARN], 1u);
  EXPECT_EQ(stat.printed[KST_LOG_ERROR], 2u);
}

TEST_F(HostLog, Off_SuppressesAll) {
  const HostPtr host = Make(KESTREL_LEVEL_OFF);
  EXPECT_FALSE(LogOnce(KestrelLog(host.get()), 1, KST_LOG_ERROR, "e"));
  EXPECT_EQ(lines_.All().size(), 0u);
}

TEST_F(HostLog, LogZero_IsSuppressed) {
  EXPECT_FALSE(LogOnce(0, 1, KST_LOG_ERROR, "e"));
  KST_LogSecondHalf_(0, "m", 1, KST_LOG_ERROR, "Func", "%d", 1);
}

TEST_F(HostLog, Record_HasItsParts) {
  const HostPtr host = Make(KESTREL_LEVEL_DEBUG);
  LogOnce(KestrelLog(host.get()), 42, KST_LOG_WARN, "text");
  ASSERT_EQ(lines_.All().size(), 1u);
  const auto &line = lines_.All()[0];
  EXPECT_EQ(static_cast<int>(line.channel), KESTREL_CHANNEL_LOG);
  EXPECT_EQ(static_cast<int>(line.level), KST_LOG_WARN);
  EXPECT_EQ(line.module, "m");
  EXPECT_EQ(line.line, 42u);
  EXPECT_EQ(line.func, "Func");
  EXPECT_EQ(line.text, "text");
}

TEST_F(HostLog, Text_StaysOneLine) {
  const HostPtr host = Make(KESTREL_LEVEL_DEBUG);
  WriteEndless(host, "closing\n");
  WriteEndless(host, "forged\n2024 line\r\x1b[2J\x7f");
  WriteEndless(host, "gr\xc3\xbc\xc3\x9f");
  EXPECT_EQ(lines_.Texts(),
            (std::vector<std::string>{"closing", "forged\\x0a2024 line\\x0d\\x1b[2J\\x7f",
                                      "gr\xc3\xbc\xc3\x9f"}));
}

TEST_F(HostLog, Text_OfAnyLength) {
  const HostPtr host = Make(KESTREL_LEVEL_DEBUG);
  const std::string text(1 << 20, 'x');
  WriteEndless(host, text.c_str());
  ASSERT_EQ(lines_.All().size(), 1u);
  EXPECT_TRUE(lines_.All()[0].text == text);
}

TEST_F(HostLog, Debug_GoesToItsChannel) {
  const HostPtr host = Make(KESTREL_LEVEL_INFO);
  const uint64_t dbg = KestrelDbg(host.get());
  CSVC_DBG_Debug(dbg, 1, "n=%d\n", 5);
  CSVC_DBG_Debug(dbg, 0, "below the level");
  CSVC_DBG_Debug(0, 1, "dropped");
  ASSERT_EQ(lines_.All().size(), 1u);
  EXPECT_EQ(static_cast<int>(lines_.All()[0].channel), KESTREL_CHANNEL_DEBUG);
  EXPECT_EQ(lines_.All()[0].text, "n=5");
}

TEST_F(HostLog, Syslog_IsSeenByTheCallbackWhateverTheLevel) {
  const HostPtr host = Make(KESTREL_LEVEL_OFF);
  CSVC_DBG_SysLog(KestrelDbg(host.get()), 0, "uri %s", "a/b");
  CSVC_DBG_SysLog(0, 1, "dropped");
  ASSERT_EQ(lines_.All().size(), 1u);
  EXPECT_EQ(static_cast<int>(lines_.All()[0].channel), KESTREL_CHANNEL_SYSLOG);
  EXPECT_EQ(lines_.All()[0].text, "uri a/b");
}

TEST_F(HostLog, DroppedRecords_AreToldByTheLoop) {
  KestrelParam param = lines_.Param();
  param.logBurst = 1;
  param.logWindowMs = 10;
  const HostPtr host(KestrelNew(&param, nullptr, 0));
  const uint64_t log = KestrelLog(host.get());
  while (LogOnce(log, 1, KST_LOG_INFO, "t")) {
  }
  const size_t printed = lines_.All().size();
  EXPECT_TRUE(host_test::TurnUntil(host.get(), [&] { return lines_.All().size() > printed; }));
  EXPECT_EQ(lines_.All().back().text, "1 more records within 10 ms were suppressed");
  EXPECT_TRUE(
      host_test::TurnUntil(host.get(), [&] { return KestrelPollTimeoutMs(host.get()) == -1; }));
}

TEST_F(HostLog, DroppedRecords_AreToldAtTheEnd) {
  KestrelParam param = lines_.Param();
  param.logBurst = 1;
  param.logWindowMs = 3600000;
  KestrelDelete([&] {
    Kestrel *host = KestrelNew(&param, nullptr, 0);
    for (int i = 0; i < 3; ++i) LogOnce(KestrelLog(host), 1, KST_LOG_INFO, "t");
    return host;
  }());
  EXPECT_EQ(lines_.Texts(),
            (std::vector<std::string>{"t", "2 more records within 3600000 ms were suppressed"}));
}
