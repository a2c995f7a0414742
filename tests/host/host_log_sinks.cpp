/* host_log_sinks.cpp: where log records end up. */
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "host_support.h"
#include "kst_log.h"

namespace fs = std::filesystem;
using host_test::HostPtr;
using host_test::LogOnce;

namespace {

class HostLogFile : public testing::Test {
 protected:
  void SetUp() override {
    std::string name = (fs::temp_directory_path() / "host_log_XXXXXX").string();
    ASSERT_NE(nullptr, mkdtemp(name.data()));
    m_dir = name;
    m_file = (m_dir / "host.log").string();
    m_param.name = "unit";
    m_param.logSinks = KESTREL_SINK_FILE;
    m_param.logFile = m_file.c_str();
    m_param.logBurst = UINT32_MAX;
  }
  void TearDown() override { fs::remove_all(m_dir); }

  static std::string Content(const fs::path &path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  size_t FileCount() const {
    const fs::directory_iterator files(m_dir);
    return static_cast<size_t>(std::distance(begin(files), end(files)));
  }

  fs::path m_dir;
  std::string m_file;
  KestrelParam m_param{};
};

}  // namespace

TEST_F(HostLogFile, Line_HasTimeNameLevelSiteAndText) {
  const HostPtr host(KestrelNew(&m_param, nullptr, 0));
  LogOnce(KestrelLog(host.get()), 7, KST_LOG_WARN, "a {} %s b");
  const std::string line = Content(m_file);
  ASSERT_GT(line.size(), 24u);
  EXPECT_EQ(" [unit] warning m:7 Func: a {} %s b\n", line.substr(23));
}

TEST_F(HostLogFile, Line_IsThereAtOnce) {
  const HostPtr host(KestrelNew(&m_param, nullptr, 0));
  EXPECT_EQ("", Content(m_file));
  LogOnce(KestrelLog(host.get()), 7, KST_LOG_INFO, "x");
  EXPECT_NE("", Content(m_file));
}

TEST_F(HostLogFile, DefaultLevel_LeavesDebugOut) {
  const HostPtr host(KestrelNew(&m_param, nullptr, 0));
  EXPECT_FALSE(LogOnce(KestrelLog(host.get()), 7, KST_LOG_DEBUG, "x"));
  EXPECT_EQ("", Content(m_file));
}

TEST_F(HostLogFile, IsRotatedBySize) {
  m_param.logFileBytes = 1000;
  m_param.logFileCount = 2;
  const HostPtr host(KestrelNew(&m_param, nullptr, 0));
  for (int i = 0; i < 100; ++i) {
    LogOnce(KestrelLog(host.get()), 7, KST_LOG_INFO, std::string(100, 'x').c_str());
  }
  EXPECT_EQ(3u, FileCount());
  for (const auto &file : fs::directory_iterator(m_dir)) {
    EXPECT_LE(fs::file_size(file), 1000u);
    EXPECT_GE(fs::file_size(file), 100u);
  }
}

TEST_F(HostLogFile, IsContinuedByTheNextHost) {
  for (int i = 0; i < 2; ++i) {
    const HostPtr host(KestrelNew(&m_param, nullptr, 0));
    LogOnce(KestrelLog(host.get()), 7, KST_LOG_INFO, "x");
  }
  const std::string content = Content(m_file);
  EXPECT_EQ(2, std::count(content.begin(), content.end(), '\n'));
}

TEST_F(HostLogFile, FullDisk_IsCounted) {
  m_param.logFile = "/dev/full";
  char error[200] = "";
  const HostPtr host(KestrelNew(&m_param, error, sizeof error));
  ASSERT_NE(nullptr, host) << error;
  EXPECT_TRUE(LogOnce(KestrelLog(host.get()), 7, KST_LOG_INFO, "x"));
  KestrelLogStat stat{};
  KestrelLogStatGet(host.get(), &stat);
  EXPECT_EQ(1u, stat.sinkErrors);
}

TEST(HostLogStderr, IsTheDefaultAndPlainWithoutATerminal) {
  testing::internal::CaptureStderr();
  {
    const HostPtr host(KestrelNew(nullptr, nullptr, 0));
    LogOnce(KestrelLog(host.get()), 7, KST_LOG_ERROR, "x");
  }
  const std::string line = testing::internal::GetCapturedStderr();
  ASSERT_GT(line.size(), 24u);
  EXPECT_EQ(" [kestrel] error m:7 Func: x\n", line.substr(23));
}

TEST(HostLogStderr, SeveralSinksGetTheSameRecord) {
  host_test::LogLines lines;
  KestrelParam param = lines.Param();
  param.logSinks |= KESTREL_SINK_STDERR | KESTREL_SINK_SYSLOG;
  testing::internal::CaptureStderr();
  {
    const HostPtr host(KestrelNew(&param, nullptr, 0));
    LogOnce(KestrelLog(host.get()), 7, KST_LOG_DEBUG, "x");
  }
  const std::string line = testing::internal::GetCapturedStderr();
  EXPECT_NE(std::string::npos, line.find(" [kestrel] debug m:7 Func: x\n"));
  EXPECT_EQ((std::vector<std::string>{"x"}), lines.Texts());
}
