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
    ASSERT_NE(mkdtemp(name.data()), nullptr);
    dir_ = name;
    file_ = (dir_ / "host.log").string();
    param_.name = "unit";
    param_.logSinks = KESTREL_SINK_FILE;
    param_.logFile = file_.c_str();
    param_.logBurst = UINT32_MAX;
  }
  void TearDown() override { fs::remove_all(dir_); }

  static std::string Content(const fs::path &path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  size_t FileCount() const {
    const fs::directory_iterator files(dir_);
    return static_cast<size_t>(std::distance(begin(files), end(files)));
  }

  fs::path dir_;
  std::string file_;
  KestrelParam param_{};
};

}  // namespace

TEST_F(HostLogFile, Line_HasTimeNameLevelSiteAndText) {
  const HostPtr host(KestrelNew(&param_, nullptr, 0));
  LogOnce(KestrelLog(host.get()), 7, KST_LOG_WARN, "a {} %s b");
  const std::string line = Content(file_);
  ASSERT_GT(line.size(), 24u);
  EXPECT_EQ(line.substr(23), " [unit] warning m:7 Func: a {} %s b\n");
}

TEST_F(HostLogFile, Line_IsThereAtOnce) {
  const HostPtr host(KestrelNew(&param_, nullptr, 0));
  EXPECT_EQ(Content(file_), "");
  LogOnce(KestrelLog(host.get()), 7, KST_LOG_INFO, "x");
  EXPECT_NE(Content(file_), "");
}

TEST_F(HostLogFile, DefaultLevel_LeavesDebugOut) {
  const HostPtr host(KestrelNew(&param_, nullptr, 0));
  EXPECT_FALSE(LogOnce(KestrelLog(host.get()), 7, KST_LOG_DEBUG, "x"));
  EXPECT_EQ(Content(file_), "");
}

TEST_F(HostLogFile, IsRotatedBySize) {
  param_.logFileBytes = 1000;
  param_.logFileCount = 2;
  const HostPtr host(KestrelNew(&param_, nullptr, 0));
  for (int i = 0; i < 100; ++i) {
    LogOnce(KestrelLog(host.get()), 7, KST_LOG_INFO, std::string(100, 'x').c_str());
  }
  EXPECT_EQ(FileCount(), 3u);
  for (const auto &file : fs::directory_iterator(dir_)) {
    EXPECT_LE(fs::file_size(file), 1000u);
    EXPECT_GE(fs::file_size(file), 100u);
  }
}

TEST_F(HostLogFile, IsContinuedByTheNextHost) {
  for (int i = 0; i < 2; ++i) {
    const HostPtr host(KestrelNew(&param_, nullptr, 0));
    LogOnce(KestrelLog(host.get()), 7, KST_LOG_INFO, "x");
  }
  const std::string content = Content(file_);
  EXPECT_EQ(std::count(content.begin(), content.end(), '\n'), 2);
}

TEST_F(HostLogFile, FullDisk_IsCounted) {
  param_.logFile = "/dev/full";
  char error[200] = "";
  const HostPtr host(KestrelNew(&param_, error, sizeof error));
  ASSERT_NE(host, nullptr) << error;
  EXPECT_TRUE(LogOnce(KestrelLog(host.get()), 7, KST_LOG_INFO, "x"));
  KestrelLogStat stat{};
  KestrelLogStatGet(host.get(), &stat);
  EXPECT_EQ(stat.sinkErrors, 1u);
}

TEST(HostLogStderr, IsTheDefaultAndPlainWithoutATerminal) {
  testing::internal::CaptureStderr();
  {
    const HostPtr host(KestrelNew(nullptr, nullptr, 0));
    LogOnce(KestrelLog(host.get()), 7, KST_LOG_ERROR, "x");
  }
  const std::string line = testing::internal::GetCapturedStderr();
  ASSERT_GT(line.size(), 24u);
  EXPECT_EQ(line.substr(23), " [kestrel] error m:7 Func: x\n");
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
  EXPECT_NE(line.find(" [kestrel] debug m:7 Func: x\n"), std::string::npos);
  EXPECT_EQ(lines.Texts(), (std::vector<std::string>{"x"}));
}
