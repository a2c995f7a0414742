/* test_coap_rpc_ser_copy_fails.cpp: what happens when the bounded copy refuses.
 *
 * The linker puts a copy that fails on demand in place of the library's (see CMakeLists.txt). */
#include <gtest/gtest.h>

#include "coap_svc/rpc/common/coap_rpc_safe.h"
#include "fail_plan.h"
#include "observed_entry.h"

extern "C" errno_t __real__memcpy_s_chk(void *dest, rsize_t dmax, const void *src, rsize_t slen,
                                        size_t destbos, size_t srcbos);

namespace coap_rpc_test {
namespace {
FailPlan g_copies;
}  // namespace
}  // namespace coap_rpc_test

extern "C" errno_t __wrap__memcpy_s_chk(void *dest, rsize_t dmax, const void *src, rsize_t slen,
                                        size_t destbos, size_t srcbos) {
  if (coap_rpc_test::g_copies.Count()) return ESNOSPC;
  return __real__memcpy_s_chk(dest, dmax, src, slen, destbos, srcbos);
}

namespace coap_rpc_test {
namespace {

using Texts = std::vector<std::string>;

constexpr char kSerUriPath[] = "coap_server/src/coap_svc/rpc/server/coap_rpc_ser_uri";
constexpr char kSerObservePath[] = "coap_server/src/coap_svc/rpc/server/coap_rpc_ser_observe";

// Asserted takes the only assertion so far.
AssertRecord Asserted() {
  const std::vector<AssertRecord> asserts = TestHost::Process().Asserts();
  TestHost::Process().ClearAsserts();
  return asserts.size() == 1 ? asserts[0] : AssertRecord{"not one assertion", 0};
}

TEST(CopyFails, AddUriTuple_Key_Asserts48AndGoesOn) {
  ObservedEntry t;
  g_copies.FailOnce(1);
  EXPECT_NE(COAP_RpcSerAddUriTuple(&t.ctx, &t.entry, "eth0", "1000"), nullptr);
  EXPECT_EQ(Asserted(), (AssertRecord{kSerUriPath, 48}));
  EXPECT_EQ(t.TupleTexts(), (Texts{"....=1000"}));
}

TEST(CopyFails, AddUriTuple_Value_Asserts54AndGoesOn) {
  ObservedEntry t;
  g_copies.FailOnce(2);
  EXPECT_NE(COAP_RpcSerAddUriTuple(&t.ctx, &t.entry, "eth0", "1000"), nullptr);
  EXPECT_EQ(Asserted(), (AssertRecord{kSerUriPath, 54}));
  EXPECT_EQ(t.TupleTexts(), (Texts{"eth0=...."}));
}

TEST(CopyFails, UpdateUriTuple_Asserts76AndGoesOn) {
  ObservedEntry t;
  CoapRpcUriTuple *tuple = COAP_RpcSerAddUriTuple(&t.ctx, &t.entry, "eth0", "1000");
  g_copies.FailOnce(1);
  EXPECT_EQ(COAP_RpcSerUpdateUriTuple(&t.ctx, &t.entry, tuple, "eth0", "2000"), 0u);
  EXPECT_EQ(Asserted(), (AssertRecord{kSerUriPath, 76}));
  EXPECT_EQ(t.TupleTexts(), (Texts{"eth0=1000"}));
  EXPECT_TRUE(t.host.HasLog(
      "[CoapRpc]update when add uri tuple, uri:sensors/temp, msgType:0, observe:1, pktType:0.\n"));
}

TEST(CopyFails, AddTupleChgData_Key_Asserts58AndGoesOn) {
  ObservedEntry t;
  g_copies.FailOnce(1);
  EXPECT_EQ(t.Chg("eth0", "1000", 1), 0u);
  EXPECT_EQ(Asserted(), (AssertRecord{kSerObservePath, 58}));
  EXPECT_EQ(t.ChangeTexts(), (Texts{"1....=1000"}));
}

TEST(CopyFails, AddTupleChgData_Value_Asserts63AndGoesOn) {
  ObservedEntry t;
  g_copies.FailOnce(2);
  EXPECT_EQ(t.Chg("eth0", "1000", 1), 0u);
  EXPECT_EQ(Asserted(), (AssertRecord{kSerObservePath, 63}));
  EXPECT_EQ(t.ChangeTexts(), (Texts{"1eth0=...."}));
}

TEST(CopyFails, Merge_Asserts82AndTakesTheNewType) {
  ObservedEntry t;
  t.Chg("eth0", "1000", 1);
  g_copies.FailOnce(1);
  EXPECT_EQ(t.Chg("eth0", "2000", 2), 0u);
  EXPECT_EQ(Asserted(), (AssertRecord{kSerObservePath, 82}));
  EXPECT_EQ(t.ChangeTexts(), (Texts{"2eth0=1000"}));
}

}  // namespace
}  // namespace coap_rpc_test
