/* test_coap_rpc_ser_iterator.cpp: the walk over an application's own tuples. */
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "coap_svc/rpc/coap_rpc_ser.h"
#include "coap_svc/rpc/common/coap_rpc_ctx.h"
#include "test_host.h"

namespace coap_rpc_test {
namespace {

// App is the application: tuples of 4 + 4 bytes; the cursor holds the index of the last one.
struct App {
  std::vector<std::string> tuples;
  uint32_t firstResult = 0;
  uint32_t endResult = 9;
  std::vector<std::string> lastKeys;
  std::vector<const void *> valBufs;
  uint32_t numFirst = 0;
  bool cursorWasZero = false;
};

App &AppOf(uint64_t userData) { return *reinterpret_cast<App *>(static_cast<uintptr_t>(userData)); }

uint32_t Give(App &app, uint32_t index, void *key, void *val) {
  app.valBufs.push_back(val);
  if (index >= app.tuples.size()) return app.endResult;
  memcpy(key, app.tuples[index].data(), 4);
  if (val) memcpy(val, app.tuples[index].data() + 4, 4);
  return 0;
}

uint32_t GetFirst(uint64_t userData, void *appCursor, void *key, void *val) {
  App &app = AppOf(userData);
  ++app.numFirst;
  const uint8_t zero[64] = {};
  app.cursorWasZero = memcmp(appCursor, zero, sizeof(zero)) == 0;
  return app.firstResult != 0 ? app.firstResult : Give(app, 0, key, val);
}

uint32_t GetNext(uint64_t userData, void *appCursor, const void *lastKey, void *key, void *val) {
  App &app = AppOf(userData);
  app.lastKeys.emplace_back(static_cast<const char *>(lastKey), 4);
  uint32_t index = 0;
  memcpy(&index, appCursor, sizeof(index));
  ++index;
  memcpy(appCursor, &index, sizeof(index));
  return Give(app, index, key, val);
}

class SerIterator : public testing::Test {
 protected:
  SerIterator() {
    ctx_.param.memHandle = host_.Mem();
    ctx_.log = host_.Log();
    param_.userData = reinterpret_cast<uintptr_t>(&app_);
    param_.keyLen = 4;
    param_.valLen = 4;
    param_.getFirstTuple = GetFirst;
    param_.getNextTuple = GetNext;
  }

  std::string Current(const CoapRpcIterator *it) {
    return std::string(it->keyBuf, it->keyBuf + 4) +
           (it->valBuf ? std::string(it->valBuf, it->valBuf + 4) : "");
  }

  // Walk makes steps until the end.
  std::vector<std::string> Walk() {
    std::vector<std::string> found;
    CoapRpcIterator *it = COAP_RpcNewIterator(&param_, &ctx_);
    while (COAP_RpcIterateTupleFromApp(it, &ctx_) == 1) found.push_back(Current(it));
    COAP_RpcFreeIterator(it, &ctx_);
    return found;
  }

  TestHost host_;
  CoapRpcCtx ctx_ = {};
  CoapRpcIteratorParam param_ = {};
  App app_;
};

TEST_F(SerIterator, New_StartsZeroed) {
  CoapRpcIterator *it = COAP_RpcNewIterator(&param_, &ctx_);
  ASSERT_NE(it, nullptr);
  EXPECT_EQ(it->flags, 1);
  EXPECT_EQ(it->userData, param_.userData);
  EXPECT_EQ(it->keyLen, 4);
  EXPECT_EQ(it->valLen, 4);
  EXPECT_EQ(it->lastKey, reinterpret_cast<uint8_t *>(it) + sizeof(*it));
  EXPECT_EQ(Current(it), std::string(8, '\0'));
  EXPECT_EQ(std::string(it->lastKey, it->lastKey + 4), std::string(4, '\0'));
  EXPECT_EQ(host_.Pool().LiveCount(), 3u);
  EXPECT_EQ(host_.Pool().LiveBytes(), sizeof(*it) + 4 + 4 + 4);
  COAP_RpcFreeIterator(it, &ctx_);
}

TEST_F(SerIterator, New_NullParameter_GivesNull) {
  EXPECT_EQ(COAP_RpcNewIterator(nullptr, &ctx_), nullptr);
  EXPECT_EQ(COAP_RpcNewIterator(&param_, nullptr), nullptr);
}

TEST_F(SerIterator, New_EveryAllocationFails_GivesNullWithoutLeak) {
  for (uint64_t n = 1; n <= 3; ++n) {
    host_.Pool().Failures().FailOnce(n);
    EXPECT_EQ(COAP_RpcNewIterator(&param_, &ctx_), nullptr);
    EXPECT_EQ(host_.Pool().LiveCount(), 0u);
  }
}

TEST_F(SerIterator, New_ValLen0_HasNoValueBuffer) {
  param_.valLen = 0;
  app_.tuples = {"eth0"};
  EXPECT_EQ(Walk(), (std::vector<std::string>{"eth0"}));
  EXPECT_EQ(app_.valBufs, (std::vector<const void *>{nullptr, nullptr}));
}

TEST_F(SerIterator, New_KeyLen0_CanBeWalked) {
  param_.keyLen = 0;
  param_.valLen = 0;
  param_.getFirstTuple = [](uint64_t, void *, void *, void *) { return 0u; };
  param_.getNextTuple = [](uint64_t, void *, const void *, void *, void *) { return 1u; };
  CoapRpcIterator *it = COAP_RpcNewIterator(&param_, &ctx_);
  ASSERT_NE(it, nullptr);
  EXPECT_EQ(COAP_RpcIterateTupleFromApp(it, &ctx_), 1u);
  EXPECT_EQ(COAP_RpcIterateTupleFromApp(it, &ctx_), 0u);
  COAP_RpcFreeIterator(it, &ctx_);
}

TEST_F(SerIterator, Walk_DeliversEachTupleAndTheLastKey) {
  app_.tuples = {"eth01000", "eth11001", "lo..0000"};
  EXPECT_EQ(Walk(), app_.tuples);
  EXPECT_EQ(app_.numFirst, 1u);
  EXPECT_TRUE(app_.cursorWasZero);
  EXPECT_EQ(app_.lastKeys, (std::vector<std::string>{"eth0", "eth1", "lo.."}));
}

TEST_F(SerIterator, Walk_EndIsLoggedOnce) {
  app_.tuples = {"eth01000"};
  Walk();
  const std::vector<LogRecord> records = host_.LogsOf("COAP_RpcIterateTupleFromApp");
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0].text, "[CoapRpcIterator]iterate tuple from app failed, ret=9.\n");
  EXPECT_EQ(records[0].line, 1031u);
  EXPECT_EQ(records[0].level, 3u);
}

TEST_F(SerIterator, Walk_FirstFails_IsEmptyAndLogged) {
  app_.firstResult = 4294967295;
  EXPECT_TRUE(Walk().empty());
  EXPECT_EQ(host_.LogsOf("COAP_RpcIterateTupleFromApp").size(), 1u);
  EXPECT_TRUE(host_.HasLog("[CoapRpcIterator]iterate tuple from app failed, ret=4294967295.\n"));
}

TEST_F(SerIterator, Step_AfterAFailedFirst_AsksForTheNext) {
  app_.firstResult = 5;
  app_.tuples = {"eth01000", "eth11001"};
  CoapRpcIterator *it = COAP_RpcNewIterator(&param_, &ctx_);
  EXPECT_EQ(COAP_RpcIterateTupleFromApp(it, &ctx_), 0u);
  EXPECT_EQ(COAP_RpcIterateTupleFromApp(it, &ctx_), 1u);
  EXPECT_EQ(Current(it), "eth11001");
  EXPECT_EQ(app_.numFirst, 1u);
  EXPECT_EQ(app_.lastKeys, (std::vector<std::string>{std::string(4, '\0')}));
  COAP_RpcFreeIterator(it, &ctx_);
}

TEST_F(SerIterator, Step_NullIteratorOrCallback_Gives0Silently) {
  EXPECT_EQ(COAP_RpcIterateTupleFromApp(nullptr, &ctx_), 0u);
  app_.tuples = {"eth01000"};
  param_.getFirstTuple = nullptr;
  EXPECT_TRUE(Walk().empty());
  param_.getFirstTuple = GetFirst;
  param_.getNextTuple = nullptr;
  EXPECT_TRUE(Walk().empty());
  EXPECT_EQ(app_.numFirst, 0u);
  EXPECT_TRUE(host_.Logs().Records().empty());
}

TEST_F(SerIterator, Free_Null_IsIgnored) {
  COAP_RpcFreeIterator(nullptr, &ctx_);
  EXPECT_TRUE(host_.Pool().Violations().empty());
}

}  // namespace
}  // namespace coap_rpc_test
