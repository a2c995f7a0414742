// The table of registered client URIs.
#include "coap_svc/rpc/client/coap_rpc_cli_uri.h"

#include "cli_fixture.h"

namespace coap_rpc_test {
namespace {

class CliUri : public CliFixture {
 protected:
  static CoapRpcCliVtblReg RegOf(uint64_t userData) {
    CoapRpcCliVtblReg reg = {};
    reg.payloadFormat = COAP_RPC_JSON;
    reg.userData = userData;
    return reg;
  }
};

TEST_F(CliUri, Reg_CopiesKeyAndRecordAndLogs) {
  CoapRpcUriKey key = KeyOf("a/b", COAP_RPC_NON, 1, COAP_RPC_UNICAST);
  CoapRpcCliVtblReg reg = RegOf(7);
  EXPECT_EQ(COAP_RpcUriRegCliVtbl(cli_, &key, &reg), 0U);
  EXPECT_TRUE(host_.HasLog(
      "[CoapRpc]add cli Vtbl reg success, uri:a/b, msgType:1, observe:1, pktType:2.\n"));
  EXPECT_TRUE(host_.HasDebug(
      "[CoapRpc]add cli Vtbl reg success, uri:a/b, msgType:1, observe:1, pktType:2.\n"));
  const CoapRpcCliUriVtbl *entry = COAP_RpcCliFindUriVtbl(cli_, &key);
  ASSERT_NE(entry, nullptr);
  EXPECT_EQ(memcmp(&entry->key, &key, sizeof key), 0);
  EXPECT_EQ(memcmp(&entry->reg, &reg, sizeof reg), 0);
  EXPECT_EQ(entry->checkCode, 0U);
}

TEST_F(CliUri, RegTwice_KeepsTheFirstAndSucceeds) {
  const CoapRpcUriKey key = KeyOf("a");
  const CoapRpcCliVtblReg first = RegOf(1);
  const CoapRpcCliVtblReg second = RegOf(2);
  EXPECT_EQ(COAP_RpcUriRegCliVtbl(cli_, &key, &first), 0U);
  const uint64_t numLive = host_.Pool().LiveCount();
  EXPECT_EQ(COAP_RpcUriRegCliVtbl(cli_, &key, &second), 0U);
  EXPECT_TRUE(
      host_.HasLog("[CoapRpc]Dup cli uriVtbl reg, uri:a, msgType:0, observe:0, pktType:0.\n"));
  EXPECT_EQ(host_.Pool().LiveCount(), numLive);
  const uint64_t userData = COAP_RpcCliFindUriVtbl(cli_, &key)->reg.userData;
  EXPECT_EQ(userData, 1U);
}

TEST_F(CliUri, RegWithoutMemory_Gives1900001051) {
  const CoapRpcUriKey key = KeyOf("a");
  const CoapRpcCliVtblReg reg = RegOf(1);
  host_.Pool().Failures().FailOnce(1);
  EXPECT_EQ(COAP_RpcUriRegCliVtbl(cli_, &key, &reg), 1900001051U);
  EXPECT_EQ(COAP_RpcCliFindUriVtbl(cli_, &key), nullptr);
}

TEST_F(CliUri, AddOfAPresentKey_GivesNullAndLeaksNothing) {
  const CoapRpcUriKey key = KeyOf("a");
  const CoapRpcCliVtblReg reg = RegOf(1);
  ASSERT_NE(COAP_RpcCliAddUriVtbl(cli_, &key, &reg), nullptr);
  const uint64_t numLive = host_.Pool().LiveCount();
  EXPECT_EQ(COAP_RpcCliAddUriVtbl(cli_, &key, &reg), nullptr);
  EXPECT_EQ(host_.Pool().LiveCount(), numLive);
}

TEST_F(CliUri, FirstAndNext_WalkInKeyOrder) {
  const CoapRpcCliVtblReg reg = RegOf(1);
  const CoapRpcUriKey keys[] = {KeyOf("a"), KeyOf("a", COAP_RPC_NON), KeyOf("b")};
  for (int i : {2, 0, 1}) ASSERT_EQ(COAP_RpcUriRegCliVtbl(cli_, &keys[i], &reg), 0U);
  CoapRpcCliUriVtbl *entry = COAP_RpcCliFindFirstUriVtbl(cli_);
  for (const CoapRpcUriKey &key : keys) {
    ASSERT_NE(entry, nullptr);
    EXPECT_EQ(memcmp(&entry->key, &key, sizeof key), 0);
    entry = COAP_RpcCliFindNextUriVtbl(cli_, &key);
  }
  EXPECT_EQ(entry, nullptr);
  const CoapRpcUriKey absent = KeyOf("aa");
  EXPECT_STREQ(COAP_RpcCliFindNextUriVtbl(cli_, &absent)->key.uri, "b");
}

TEST_F(CliUri, Del_TakesOneEntryOut) {
  const CoapRpcUriKey key = KeyOf("a");
  const CoapRpcCliVtblReg reg = RegOf(1);
  CoapRpcCliUriVtbl *entry = COAP_RpcCliAddUriVtbl(cli_, &key, &reg);
  COAP_RpcCliDelUriVtbl(cli_, entry);
  EXPECT_EQ(COAP_RpcCliFindFirstUriVtbl(cli_), nullptr);
}

TEST_F(CliUri, VtblInit_InstallsTheFourOperations) {
  EXPECT_EQ(cli_->findUriVtbl, COAP_RpcCliFindUriVtbl);
  EXPECT_EQ(cli_->findFirstUriVtbl, COAP_RpcCliFindFirstUriVtbl);
  EXPECT_EQ(cli_->findNextUriVtbl, COAP_RpcCliFindNextUriVtbl);
  EXPECT_EQ(cli_->resendRequest, COAP_RpcResendRequest);
}

TEST_F(CliUri, Uninit_OfNullZeroedAndTwice_IsHarmless) {
  EXPECT_EQ(COAP_RpcCliUriUninit(nullptr), 0U);
  EXPECT_EQ(COAP_RpcCliVtblUninit(nullptr), 0U);
  CoapRpcCliData zeroed = {};
  EXPECT_EQ(COAP_RpcCliUriUninit(&zeroed), 0U);
  const CoapRpcUriKey key = KeyOf("a");
  const CoapRpcCliVtblReg reg = RegOf(1);
  ASSERT_EQ(COAP_RpcUriRegCliVtbl(cli_, &key, &reg), 0U);
  EXPECT_EQ(COAP_RpcCliUriUninit(cli_), 0U);
  EXPECT_EQ(COAP_RpcCliUriUninit(cli_), 0U);
  EXPECT_EQ(COAP_RpcCliFindFirstUriVtbl(cli_), nullptr);
}

}  // namespace
}  // namespace coap_rpc_test
