/* test_support_host.cpp: several hosts under test control at once. */
#include <gtest/gtest.h>

#include <memory>
#include <set>

#include "kst.h"
#include "test_host.h"

namespace coap_rpc_test {
namespace {

TEST(SupportHost, Handles_AllDifferAndAreNot0) {
  TestHost first;
  TestHost second;
  std::set<uint64_t> handles;
  for (const TestHost *host : {&first, &second}) {
    for (const uint64_t handle :
         {host->Mem(), host->Log(), host->Disp(), host->Tmr(), host->Dbg()}) {
      handles.insert(handle);
    }
  }
  EXPECT_EQ(handles.size(), 10u);
  EXPECT_EQ(handles.count(0), 0u);
}

TEST(SupportHost, Services_AreApart) {
  TestHost first;
  TestHost second;
  int object = 0;
  void *p = KST_Malloc_(first.Mem(), 8, "mallocRsv", 123);
  EXPECT_EQ(KST_DispRegObj(first.Disp(), "name", &object), 0u);
  EXPECT_EQ(KST_DispRegObj(second.Disp(), "name", &object), 0u);
  KST_LogFirstHalf_(second.Log(), "mod", 1, KST_LOG_INFO);
  EXPECT_EQ(first.Pool().LiveCount(), 1u);
  EXPECT_EQ(second.Pool().LiveCount(), 0u);
  EXPECT_EQ(first.Logs().Records().size(), 0u);
  EXPECT_EQ(second.Logs().Records().size(), 1u);
  EXPECT_EQ(KST_DispUnregObj(first.Disp(), "name"), 0u);
  EXPECT_EQ(KST_DispUnregObj(second.Disp(), "name"), 0u);
  EXPECT_EQ(KST_Free_(first.Mem(), p, "freeRsv", 123), 0u);
}

TEST(SupportHost, OneAfterAnother_StartAfresh) {
  for (int i = 0; i < 3; ++i) {
    const auto host = std::make_unique<TestHost>();
    void *p = KST_Malloc_(host->Mem(), 8, "mallocRsv", 123);
    EXPECT_EQ(host->Pool().NumAllocations(), 1u);
    KST_Free_(host->Mem(), p, "freeRsv", 123);
  }
}

}  // namespace
}  // namespace coap_rpc_test
