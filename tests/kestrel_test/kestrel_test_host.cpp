// The host under test control as applications get it: time, I/O, memory, log, and what it says of
// wrong uses. It runs the shared library, as their tests do.
#include <gtest/gtest.h>

#include <string>

#include "coap_svc_rpc.hpp"
#include "kestrel_test.h"
#include "kst.h"
#include "raw_peer.h"

namespace coap_rpc_test {
namespace {

using coaprpc::Answer;
using coaprpc::must;
using coaprpc::Node;
using coaprpc::Result;

std::string AddressOf(uint16_t port) { return "127.0.0.1:" + std::to_string(port); }

constexpr int kManyTimes = 10'000;

class KestrelTestHost : public testing::Test {
 protected:
  ~KestrelTestHost() override { EXPECT_EQ(KestrelTestDelete(host_), numFaults_); }

  Node NewNode(const char *name, const std::string &address = "127.0.0.1") {
    return must(Node::on(KestrelTestParam(host_, name), address));
  }

  void Drive(const Node &node) { KestrelTestDrive(host_, node.ctx()); }

  // Note makes a function that notes how a call has ended.
  auto Note() {
    return [this](const Result<Answer> &answer) {
      end_ = answer ? answer->payload : answer.error().what();
    };
  }
  bool HasEnded() const { return !end_.empty(); }

  size_t NumHeard() {
    while (silent_.ReceiveNow()) continue;
    return silent_.Datagrams().size();
  }

  KestrelTest *host_ = KestrelTestNew();
  RawPeer silent_;
  const std::string silentAddress_ = AddressOf(silent_.Local().port);
  const std::string server_ = AddressOf(FindFreeUdpPort());
  uint64_t numFaults_ = 0;
  std::string end_;
};

TEST_F(KestrelTestHost, CallBetweenDrivenInstances_TakesNoTime) {
  Node server = NewNode("server", server_), caller = NewNode("caller");
  Drive(server);
  Drive(caller);
  must(server.serve("upper", [](std::string_view text) { return "U:" + std::string(text); }));
  caller.call(server_, "upper", "hi").then(Note());
  const uint64_t beginMs = KestrelTestNowMs(host_);
  for (int i = 0; i < kManyTimes && !HasEnded(); ++i) KestrelTestAdvanceMs(host_, 0);
  EXPECT_EQ(end_, "U:hi");
  EXPECT_EQ(KestrelTestNowMs(host_), beginMs);
}

TEST_F(KestrelTestHost, CallBetweenOthers_TakesTicksOfTheirTimers) {
  Node server = NewNode("server", server_), caller = NewNode("caller");
  must(server.serve("upper", [](std::string_view text) { return "U:" + std::string(text); }));
  caller.call(server_, "upper", "hi").then(Note());
  KestrelTestAdvanceMs(host_, 0);
  EXPECT_EQ(end_, "");
  EXPECT_TRUE(KestrelTestRunUntil(
      host_, [&] { return HasEnded(); }, 10'000));
  EXPECT_EQ(end_, "U:hi");
}

TEST_F(KestrelTestHost, Undriven_IsNotRun) {
  Node caller = NewNode("caller");
  Drive(caller);
  KestrelTestUndrive(host_, caller.ctx());
  caller = NewNode("another");
  KestrelTestAdvanceMs(host_, 100);
}

TEST_F(KestrelTestHost, SilentPeer_GetsAllTransmissionsInTheHostsTime) {
  Node caller = NewNode("caller");
  Drive(caller);
  const uint64_t beginMs = KestrelTestNowMs(host_);
  caller.call(silentAddress_, "a").then(Note());
  EXPECT_TRUE(KestrelTestRunUntil(
      host_, [&] { return HasEnded(); }, 94'000));
  EXPECT_GE(KestrelTestNowMs(host_) - beginMs, 62'000u);
  EXPECT_EQ(NumHeard(), 5u);
}

TEST_F(KestrelTestHost, RunUntil_GivesUpAtItsTime) {
  const uint64_t beginMs = KestrelTestNowMs(host_);
  EXPECT_FALSE(KestrelTestRunUntil(
      host_, [] { return false; }, 1'234));
  EXPECT_EQ(KestrelTestNowMs(host_) - beginMs, 1'234u);
  EXPECT_TRUE(KestrelTestRunUntil(
      host_, [] { return true; }, 0));
}

TEST_F(KestrelTestHost, RunUntilIdle_WaitsForTheCall) {
  Node caller = NewNode("caller");
  Drive(caller);
  caller.call(silentAddress_, "a").then(Note());
  EXPECT_FALSE(KestrelTestRunUntilIdle(host_, 30'000));
  EXPECT_FALSE(HasEnded());
  EXPECT_TRUE(KestrelTestRunUntilIdle(host_, 94'000));
  EXPECT_TRUE(HasEnded());
}

TEST_F(KestrelTestHost, RunUntilIdle_OfNobodyTakesTwoSeconds) {
  const uint64_t beginMs = KestrelTestNowMs(host_);
  EXPECT_TRUE(KestrelTestRunUntilIdle(host_, 10'000));
  EXPECT_EQ(KestrelTestNowMs(host_) - beginMs, 2'000u);
}

TEST_F(KestrelTestHost, EachAllocationFails_NothingIsLost) {
  for (uint64_t n = 1;; ++n) {
    ASSERT_LT(n, 1'000u);
    const uint64_t numFailed = KestrelTestFailedNum(host_);
    KestrelTestFailAlloc(host_, n);
    { const Result<Node> node = Node::on(KestrelTestParam(host_, "node"), "127.0.0.1"); }
    EXPECT_EQ(KestrelTestLiveBlocks(host_), 0u) << n;
    if (KestrelTestFailedNum(host_) == numFailed) break;
  }
  EXPECT_GT(KestrelTestFailedNum(host_), 5u);
  EXPECT_GT(KestrelTestLogHas(host_, "ng"), 0u);
}

TEST_F(KestrelTestHost, FailAllocsFrom_LastsUntilItIsEnded) {
  const uint64_t pool = KestrelTestParam(host_, "").memHandle;
  KestrelTestFailAllocsFrom(host_, 2);
  void *first = KST_Malloc_(pool, 8, "app", 1);
  EXPECT_NE(first, nullptr);
  EXPECT_EQ(KST_Malloc_(pool, 8, "app", 1), nullptr);
  EXPECT_EQ(KST_Malloc_(pool, 8, "app", 1), nullptr);
  KestrelTestFailAllocsFrom(host_, 0);
  void *last = KST_Malloc_(pool, 8, "app", 1);
  EXPECT_NE(last, nullptr);
  EXPECT_EQ(KestrelTestAllocNum(host_), 4u);
  EXPECT_EQ(KST_Free_(pool, first, "app", 1), 0u);
  EXPECT_EQ(KST_Free_(pool, last, "app", 1), 0u);
}

TEST_F(KestrelTestHost, LimitBytes_RefusesWhatGoesBeyond) {
  const uint64_t pool = KestrelTestParam(host_, "").memHandle;
  KestrelTestLimitBytes(host_, 100);
  void *first = KST_Malloc_(pool, 60, "app", 1);
  EXPECT_EQ(KST_Malloc_(pool, 41, "app", 1), nullptr);
  void *second = KST_Malloc_(pool, 40, "app", 1);
  EXPECT_EQ(KestrelTestLiveBytes(host_), 100u);
  EXPECT_EQ(KestrelTestLiveBlocks(host_), 2u);
  KST_Free_(pool, first, "app", 1);
  KST_Free_(pool, second, "app", 1);
}

TEST_F(KestrelTestHost, Log_HasLinesInOrder) {
  const uint64_t log = KestrelTestParam(host_, "").logHandle;
  for (const char *text : {"one\n", "two\n"}) {
    ASSERT_EQ(KST_LogFirstHalf_(log, "app", 1, KST_LOG_WARN), 0u);
    KST_LogSecondHalf_(log, "app", 1, KST_LOG_WARN, "Func", "%s", text);
  }
  KestrelTestLogLine line = {};
  EXPECT_EQ(KestrelTestLogNum(host_), 2u);
  EXPECT_EQ(KestrelTestLogGet(host_, 1, &line), 0u);
  EXPECT_EQ(line.level, uint32_t{KST_LOG_WARN});
  EXPECT_STREQ(line.func, "Func");
  EXPECT_STREQ(line.text, "two\n");
  EXPECT_EQ(KestrelTestLogGet(host_, 2, &line), 1u);
  EXPECT_EQ(KestrelTestLogHas(host_, "o"), 2u);
  EXPECT_EQ(KestrelTestLogHas(host_, "one"), 1u);
  KestrelTestClearLog(host_);
  EXPECT_EQ(KestrelTestLogNum(host_), 0u);
}

TEST_F(KestrelTestHost, Log_LeavesOutLowerLevels) {
  const uint64_t log = KestrelTestParam(host_, "").logHandle;
  EXPECT_NE(KST_LogFirstHalf_(log, "app", 1, KST_LOG_DEBUG), 0u);
  EXPECT_EQ(KST_LogFirstHalf_(log, "app", 1, KST_LOG_INFO), 0u);
  KestrelTestSetLogLevel(host_, KST_LOG_ERROR);
  EXPECT_NE(KST_LogFirstHalf_(log, "app", 1, KST_LOG_WARN), 0u);
  EXPECT_EQ(KestrelTestLogNum(host_), 0u);
}

TEST_F(KestrelTestHost, Asserts_AreCounted) {
  EXPECT_EQ(KestrelTestAssertNum(), 0u);
  EXPECT_EQ(COAP_RpcInit(nullptr), nullptr);
  EXPECT_EQ(KestrelTestAssertNum(), 1u);
}

TEST_F(KestrelTestHost, WhatIsLeft_IsCountedAndListed) {
  KST_Malloc_(KestrelTestParam(host_, "").memHandle, 8, "app", 1);
  testing::internal::CaptureStderr();
  EXPECT_EQ(KestrelTestDelete(std::exchange(host_, nullptr)), 1u);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "kestrel-test: memory was not freed:\nallocation 1: 8 bytes, app\n");
}

TEST_F(KestrelTestHost, StaleHandle_IsAFault) {
  testing::internal::CaptureStderr();
  EXPECT_EQ(KST_Malloc_(1, 8, "app", 1), nullptr);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "kestrel-test: KST_Malloc_: no such handle: 0x1\n");
  numFaults_ = 1;
}

TEST_F(KestrelTestHost, TimeMovedInACallback_IsAFault) {
  Node server = NewNode("server", server_), caller = NewNode("caller");
  Drive(server);
  Drive(caller);
  must(server.serve("upper", [&](std::string_view text) {
    KestrelTestAdvanceMs(host_, 1);
    EXPECT_FALSE(KestrelTestRunUntil(
        host_, [] { return false; }, 1));
    return std::string(text);
  }));
  caller.call(server_, "upper", "hi").then(Note());
  testing::internal::CaptureStderr();
  for (int i = 0; i < kManyTimes && !HasEnded(); ++i) KestrelTestAdvanceMs(host_, 0);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "kestrel-test: time cannot be moved in a callback\n"
            "kestrel-test: time cannot be moved in a callback\n");
  EXPECT_EQ(end_, "hi");
  numFaults_ = 2;
}

}  // namespace
}  // namespace coap_rpc_test
