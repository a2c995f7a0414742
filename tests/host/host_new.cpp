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
  EXPECT_EQ(host, nullptr);
  KestrelDelete(host);
  return error;
}

}  // namespace

TEST(HostNew, NullParam_IsAllDefaults) {
  Kestrel *host = KestrelNew(nullptr, nullptr, 0);
  ASSERT_NE(host, nullptr);
  EXPECT_NE(KestrelMem(host), 0u);
  EXPECT_NE(KestrelLog(host), 0u);
  EXPECT_NE(KestrelDisp(host), 0u);
  EXPECT_NE(KestrelTmr(host), 0u);
  EXPECT_NE(KestrelDbg(host), 0u);
  EXPECT_EQ(KestrelDelete(host), 0u);
}

TEST(HostNew, ZeroedParam_WorksFromC) { EXPECT_EQ(HostNewInC(), 1u); }

TEST(HostNew, NullHost_IsDeletedAsNothing) { EXPECT_EQ(KestrelDelete(nullptr), 0u); }

TEST(HostNew, UnknownLevel_IsRefused) {
  KestrelParam param{};
  param.logLevel = 6;
  EXPECT_EQ(ErrorFor(param), "logLevel is unknown");
}

TEST(HostNew, UnknownSink_IsRefused) {
  KestrelParam param{};
  param.logSinks = 32;
  EXPECT_EQ(ErrorFor(param), "logSinks has unknown bits");
}

TEST(HostNew, NoneWithAnotherSink_IsRefused) {
  KestrelParam param{};
  param.logSinks = KESTREL_SINK_NONE | KESTREL_SINK_STDERR;
  EXPECT_EQ(ErrorFor(param), "KESTREL_SINK_NONE does not go with other sinks");
}

TEST(HostNew, FileSinkWithoutFile_IsRefused) {
  KestrelParam param{};
  param.logSinks = KESTREL_SINK_FILE;
  EXPECT_EQ(ErrorFor(param), "the file sink needs logFile");
  param.logFile = "";
  EXPECT_EQ(ErrorFor(param), "the file sink needs logFile");
}

TEST(HostNew, TooManyLogFiles_AreRefused) {
  KestrelParam param{};
  param.logFileCount = 1001;
  EXPECT_EQ(ErrorFor(param), "logFileCount is greater than 1000");
}

TEST(HostNew, CallbackSinkWithoutCallback_IsRefused) {
  KestrelParam param{};
  param.logSinks = KESTREL_SINK_CALLBACK;
  EXPECT_EQ(ErrorFor(param), "the callback sink needs logCallback");
}

TEST(HostNew, FileThatCannotBeOpened_SaysSo) {
  KestrelParam param{};
  param.logSinks = KESTREL_SINK_FILE;
  param.logFile = "/proc/no/such/place.log";
  EXPECT_NE(ErrorFor(param).find("/proc/no/such/place.log"), std::string::npos);
}

TEST(HostNew, FailureInAForeignLoop_LeavesItUsable) {
  uv_loop_t loop;
  ASSERT_EQ(uv_loop_init(&loop), 0);
  KestrelParam param{};
  param.loop = &loop;
  param.logSinks = KESTREL_SINK_FILE;
  param.logFile = "/proc/no/such/place.log";
  EXPECT_NE(ErrorFor(param), "");
  uv_run(&loop, UV_RUN_DEFAULT);
  EXPECT_EQ(uv_loop_close(&loop), 0);
}

TEST(HostNew, ErrorText_IsCutToItsBuffer) {
  KestrelParam param{};
  param.logLevel = 6;
  char error[9] = "";
  EXPECT_EQ(KestrelNew(&param, error, sizeof error), nullptr);
  EXPECT_STREQ(error, "logLevel");
  EXPECT_EQ(KestrelNew(&param, error, 0), nullptr);
}

TEST(HostNew, ResultTexts) {
  EXPECT_STREQ(KestrelResultText(KESTREL_OK), "success");
  EXPECT_STREQ(KestrelResultText(KESTREL_STOPPED), "stopped by the sink");
  EXPECT_STREQ(KestrelResultText(17), "unknown result");
}
