// The client's entry points: argument checks and their codes, registration, request modes.
#include "coap_svc/rpc/init/coap_rpc_cli.h"

#include "cli_fixture.h"

namespace coap_rpc_test {
namespace {

constexpr char kCliPath[] = "coap_server/src/coap_svc/rpc/init/coap_rpc_cli";

using CallFunc = uint32_t (*)(CoapRpcCtx *, const CoapRpcUriKey *, const CoapRpcCliReqParam *,
                              const CoapRpcCliAddr *);

// EntryPoint is one request function with the numbers that it alone returns.
struct EntryPoint {
  const char *name;
  CallFunc call;
  uint32_t nullCode;
  uint32_t assertLine;
  uint32_t badAddrCode;
  uint32_t badPortCode;
  uint32_t observe;
};

constexpr EntryPoint kEntryPoints[] = {
    {"NonReq", COAP_RpcCliNonReq, 1900000076, 75, 1900001012, 1900001026, 0},
    {"ConReq", COAP_RpcCliConReq, 1900001014, 1013, 1900001015, 1900001027, 0},
    {"ObserveReq", COAP_RpcCliObserveReq, 1900001017, 1016, 1900001018, 1900001028, 1},
    {"Verify", COAP_RpcCliObserveReqVerify, 1900001020, 1019, 1900001021, 1900001029, 1},
    {"Batch", COAP_RpcCliObserveReqBatch, 1900001023, 1022, 1900001024, 1900001030, 1},
};

class CliEntryPoint : public CliFixture, public testing::WithParamInterface<EntryPoint> {
 protected:
  uint32_t Call(const CoapRpcCliAddr &addr) {
    return GetParam().call(&ctx_, &key_, &param_, &addr);
  }

  void ExpectNothingMade() {
    EXPECT_EQ(NumSessions(), 0U);
    EXPECT_EQ(NumReqs(), 0U);
    EXPECT_TRUE(adapter_.calls.empty());
  }

  CoapRpcUriKey key_ = KeyOf("a", COAP_RPC_CON, GetParam().observe);
  CoapRpcCliReqParam param_ = ParamOf(1);
  CoapRpcCliAddr addr_ = AddrOf();
};

TEST_P(CliEntryPoint, NullArgument_AssertsAndGivesItsCode) {
  const EntryPoint &entry = GetParam();
  EXPECT_EQ(entry.call(nullptr, &key_, &param_, &addr_), entry.nullCode);
  EXPECT_EQ(entry.call(&ctx_, nullptr, &param_, &addr_), entry.nullCode);
  EXPECT_EQ(entry.call(&ctx_, &key_, nullptr, &addr_), entry.nullCode);
  EXPECT_EQ(entry.call(&ctx_, &key_, &param_, nullptr), entry.nullCode);
  const AssertRecord expected = {kCliPath, entry.assertLine};
  EXPECT_EQ(TestHost::Process().Asserts(), std::vector<AssertRecord>(4, expected));
  ExpectNothingMade();
}

TEST_P(CliEntryPoint, EqualAddresses_GiveTheAddressCodeWithoutALog) {
  host_.ClearLogs();
  EXPECT_EQ(Call(AddrOf(0x0A000001, 0x0A000001)), GetParam().badAddrCode);
  ExpectNothingMade();
  EXPECT_TRUE(host_.Logs().Records().empty());
  EXPECT_TRUE(TestHost::Process().Asserts().empty());
}

TEST_P(CliEntryPoint, MixedFamilies_GiveTheAddressCode) {
  addr_.dstIp.family = COAP_RPC_IPV6;
  EXPECT_EQ(Call(addr_), GetParam().badAddrCode);
  ExpectNothingMade();
}

TEST_P(CliEntryPoint, UnknownFamily_GivesTheAddressCode) {
  for (const uint8_t family : {uint8_t{0}, uint8_t{3}, uint8_t{255}}) {
    addr_.srcIp.family = addr_.dstIp.family = family;
    EXPECT_EQ(Call(addr_), GetParam().badAddrCode) << int{family};
  }
  ExpectNothingMade();
}

TEST_P(CliEntryPoint, InvalidPort_GivesThePortCode) {
  for (const uint32_t port : {0U, 65536U, 71219U, 0xFFFFFFFFU}) {
    EXPECT_EQ(Call(AddrOf(0x0A000001, 0x0A000002, port)), GetParam().badPortCode) << port;
  }
  ExpectNothingMade();
}

TEST_P(CliEntryPoint, BadAddressAndBadPort_GivesTheAddressCode) {
  EXPECT_EQ(Call(AddrOf(0x0A000001, 0x0A000001, 0)), GetParam().badAddrCode);
}

TEST_P(CliEntryPoint, BorderPorts_AreAccepted) {
  EXPECT_EQ(Call(AddrOf(0x0A000001, 0x0A000002, 1)), 0U);
  EXPECT_EQ(Call(AddrOf(0x0A000001, 0x0A000002, 65535)), 0U);
}

TEST_P(CliEntryPoint, Ipv6Peer_IsAccepted) {
  CoapRpcCliAddr addr = {};
  addr.srcIp.family = addr.dstIp.family = COAP_RPC_IPV6;
  addr.dstIp.addr.ipv6[15] = 1;
  addr.dstPort = 5683;
  EXPECT_EQ(Call(addr), 0U);
  EXPECT_EQ(NumSessions(), 1U);
}

INSTANTIATE_TEST_SUITE_P(All, CliEntryPoint, testing::ValuesIn(kEntryPoints),
                         [](const auto &entry) { return entry.param.name; });

class Cli : public CliFixture {};

TEST_F(Cli, CheckAddrValid_OneKnownFamilyAndDifferentAddresses) {
  CoapRpcCliAddr addr = AddrOf(1, 2);
  EXPECT_EQ(COAP_RpcCliCheckAddrValid(&addr), 1U);
  // An IPv4 address is its number; the bytes after it do not make two of them differ.
  addr = AddrOf(1, 1);
  addr.dstIp.addr.ipv6[15] = 9;
  EXPECT_EQ(COAP_RpcCliCheckAddrValid(&addr), 0U);
  addr.srcIp.family = addr.dstIp.family = COAP_RPC_IPV6;
  EXPECT_EQ(COAP_RpcCliCheckAddrValid(&addr), 1U);
  addr.dstIp = addr.srcIp;
  EXPECT_EQ(COAP_RpcCliCheckAddrValid(&addr), 0U);
}

TEST_F(Cli, CheckAddrValid_ReservedFamilyBytesDoNotCount) {
  CoapRpcCliAddr addr = AddrOf(1, 2);
  addr.dstIp.rsv[0] = 1;
  EXPECT_EQ(COAP_RpcCliCheckAddrValid(&addr), 1U);
}

TEST_F(Cli, UnReq_NullArgument_GivesTheAssertionsResult) {
  const CoapRpcUriKey key = KeyOf("a");
  const CoapRpcCliReqParam param = ParamOf(1);
  const CoapRpcCliAddr addr = AddrOf();
  EXPECT_EQ(COAP_RpcCliObserveUnReq(nullptr, &key, &param, &addr), kAssertResult);
  EXPECT_EQ(COAP_RpcCliObserveUnReq(&ctx_, nullptr, &param, &addr), kAssertResult);
  EXPECT_EQ(COAP_RpcCliObserveUnReq(&ctx_, &key, nullptr, &addr), kAssertResult);
  EXPECT_EQ(COAP_RpcCliObserveUnReq(&ctx_, &key, &param, nullptr), kAssertResult);
  EXPECT_EQ(TestHost::Process().Asserts(), std::vector<AssertRecord>(4, {kCliPath, 1025}));
}

TEST_F(Cli, RegVtbl_NullArgument_Gives1900001011) {
  const CoapRpcUriKey key = KeyOf("a");
  const CoapRpcCliVtblReg reg = {};
  EXPECT_EQ(COAP_RpcCliRegVtbl(nullptr, &key, &reg), 1900001011U);
  EXPECT_EQ(COAP_RpcCliRegVtbl(&ctx_, nullptr, &reg), 1900001011U);
  EXPECT_EQ(COAP_RpcCliRegVtbl(&ctx_, &key, nullptr), 1900001011U);
  EXPECT_EQ(TestHost::Process().Asserts(), std::vector<AssertRecord>(3, {kCliPath, 1010}));
}

TEST_F(Cli, ConReqAndNonReq_TakeTheMessageTypeFromTheKey) {
  const CoapRpcUriKey non = KeyOf("a", COAP_RPC_NON);
  const CoapRpcUriKey con = KeyOf("a", COAP_RPC_CON);
  const CoapRpcCliReqParam param = ParamOf(1);
  const CoapRpcCliAddr addr = AddrOf();
  adapter_.sendResult = 1;
  EXPECT_EQ(COAP_RpcCliConReq(&ctx_, &non, &param, &addr), 1900001103U);
  EXPECT_EQ(cli_->resendTimer, 0U);  // a NON request is not queued
  EXPECT_EQ(COAP_RpcCliNonReq(&ctx_, &con, &param, &addr), 1900001103U);
  EXPECT_NE(cli_->resendTimer, 0U);
}

// ModeAfter gives the mode that a call leaves in the record of an observe key.
uint32_t ModeAfter(CoapRpcCliReqData *req) { return req ? req->mode : 99; }

TEST_F(Cli, ObserveModes_TakeEffectFromTheSecondCallOn) {
  const CoapRpcUriKey key = KeyOf("a", COAP_RPC_CON, 1);
  const CoapRpcCliReqParam param = ParamOf(1);
  const CoapRpcCliAddr addr = AddrOf();
  EXPECT_EQ(COAP_RpcCliObserveReqVerify(&ctx_, &key, &param, &addr), 0U);
  EXPECT_EQ(ModeAfter(ReqOf(key, param)), 0U);
  EXPECT_EQ(COAP_RpcCliObserveReqVerify(&ctx_, &key, &param, &addr), 0U);
  EXPECT_EQ(ModeAfter(ReqOf(key, param)), 1U);
  EXPECT_EQ(COAP_RpcCliObserveReqBatch(&ctx_, &key, &param, &addr), 0U);
  EXPECT_EQ(ModeAfter(ReqOf(key, param)), 2U);
  EXPECT_EQ(COAP_RpcCliObserveReq(&ctx_, &key, &param, &addr), 0U);
  EXPECT_EQ(ModeAfter(ReqOf(key, param)), 0U);
}

TEST_F(Cli, UriOf64Characters_IsAKeyLikeAnyOther) {
  const CoapRpcUriKey key = KeyOf(std::string(64, 'u'), COAP_RPC_NON, 1);
  const CoapRpcCliReqParam param = ParamOf(1);
  const CoapRpcCliAddr addr = AddrOf();
  const CoapRpcCliVtblReg reg = {};
  EXPECT_EQ(COAP_RpcCliRegVtbl(&ctx_, &key, &reg), 0U);
  EXPECT_TRUE(host_.HasLog("[CoapRpc]add cli Vtbl reg success, uri:" + std::string(64, 'u') +
                           ", msgType:1, observe:1, pktType:0.\n"));
  EXPECT_EQ(COAP_RpcCliObserveReq(&ctx_, &key, &param, &addr), 0U);
  EXPECT_NE(ReqOf(key, param), nullptr);
}

}  // namespace
}  // namespace coap_rpc_test
