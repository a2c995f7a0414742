/* host_new.cpp: how a host is described, made and deleted. */
#include <gtest/gtest.h>

#include <uv.h>

#include <string>

#include "host_support.h"

extern "C" uint64_t HostNewInC(void);

namespace {

// ErrorFor makes a host that must fail and returns the reason.
std::string ErrorFor(const KestrelParam &param) {
  char error[200] = "";
  Kestrel *host = KestrelNew(&param, error, sizeof error);
  EXPECT_EQ(nullptr, host);
  KestrelDelete(host);
  return error;
}

}  // namespace

TEST(HostNew, NullParam_IsAllDefaults) {
  Kestrel *host = KestrelNew(nullptr, nullptr, 0);
  ASSERT_NE(nullptr, host);
  EXPECT_NE(0u, KestrelMem(host));
  EXPECT_NE(0u, KestrelLog(host));
  EXPECT_NE(0u, KestrelDisp(host));
  EXPECT_NE(0u, KestrelTmr(host));
  EXPECT_NE(0u, KestrelDbg(host));
  EXPECT_EQ(0u, KestrelDelete(host));
}

TEST(HostNew, ZeroedParam_WorksFromC) { EXPECT_EQ(1u, HostNewInC()); }

TEST(HostNew, NullHost_IsDeletedAsNothing) { EXPECT_EQ(0u, KestrelDelete(nullptr)); }

TEST(HostNew, UnknownLevel_IsRefused) {
  KestrelParam param{};
  param.logLevel = 6;
  EXPECT_EQ("logLevel is unknown", ErrorFor(param));
}

TEST(HostNew, UnknownSink_IsRefused) {
  KestrelParam param{};
  param.logSinks = 32;
  EXPECT_EQ("logSinks has unknown bits", ErrorFor(param));
}

TEST(HostNew, NoneWithAnotherSink_IsRefused) {
  KestrelParam param{};
  param.logSinks = KESTREL_SINK_NONE | KESTREL_SINK_STDERR;
  EXPECT_EQ("KESTREL_SINK_NONE does not go with other sinks", ErrorFor(param));
}

TEST(HostNew, FileSinkWithoutFile_IsRefused) {
  KestrelParam param{};
  param.logSinks = KESTREL_SINK_FILE;
  EXPECT_EQ("the file sink needs logFile", ErrorFor(param));
  param.logFile = "";
  EXPECT_EQ("the file sink needs logFile", ErrorFor(param));
}

TEST(HostNew, TooManyLogFiles_AreRefused) {
  KestrelParam param{};
  param.logFileCount = 1001;
  EXPECT_EQ("logFileCount is greater than 1000", ErrorFor(param));
}

TEST(HostNew, CallbackSinkWithoutCallback_IsRefused) {
  KestrelParam param{};
  param.logSinks = KESTREL_SINK_CALLBACK;
  EXPECT_EQ("the callback sink needs logCallback", ErrorFor(param));
}

TEST(HostNew, FileThatCannotBeOpened_SaysSo) {
  KestrelParam param{};
  param.logSinks = KESTREL_SINK_FILE;
  param.logFile = "/proc/no/such/place.log";
  EXPECT_NE(std::string::npos, ErrorFor(param).find("/proc/no/such/place.log"));
}

TEST(HostNew, FailureInAForeignLoop_LeavesItUsable) {
  uv_loop_t loop;
  ASSERT_EQ(0, uv_loop_init(&loop));
  KestrelParam param{};
  param.loop = &loop;
  param.logSinks = KESTREL_SINK_FILE;
  param.logFile = "/proc/no/such/place.log";
  EXPECT_NE("", ErrorFor(param));
  uv_run(&loop, UV_RUN_DEFAULT);
  EXPECT_EQ(0, uv_loop_close(&loop));
}

TEST(HostNew, ErrorText_IsCutToItsBuffer) {
  KestrelParam param{};
  param.logLevel = 6;
  char error[9] = "";
  EXPECT_EQ(nullptr, KestrelNew(&param, error, sizeof error));
  EXPECT_STREQ("logLevel", error);
  EXPECT_EQ(nullptr, KestrelNew(&param, error, 0));
}

TEST(HostNew, ResultTexts) {
  EXPECT_STREQ("success", KestrelResultText(KESTREL_OK));
  EXPECT_STREQ("stopped by the sink", KestrelResultText(KESTREL_STOPPED));
  EXPECT_STREQ("unknown result", KestrelResultText(17));
}
