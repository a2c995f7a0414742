// Texts of enumerations, addresses and the clock.
#include "coap_svc/rpc/common/coap_rpc_text.h"

#include <arpa/inet.h>

#include <cstring>

#include "test_host.h"

namespace coap_rpc_test {
namespace {

constexpr uint32_t kHomeIpv4 = 0xC0A80101;  // 192.168.1.1

TEST(EnumTexts, MsgType) {
  EXPECT_STREQ(COAP_RpcGetMsgTypeStr(0), "CON");
  EXPECT_STREQ(COAP_RpcGetMsgTypeStr(1), "NON");
  EXPECT_STREQ(COAP_RpcGetMsgTypeStr(2), "__unknown__");
  EXPECT_STREQ(COAP_RpcGetMsgTypeStr(0xFFFFFFFF), "__unknown__");
}

TEST(EnumTexts, PktType) {
  EXPECT_STREQ(COAP_RpcGetPktTypeStr(0), "DEFAULT");
  EXPECT_STREQ(COAP_RpcGetPktTypeStr(1), "BROADCAST");
  EXPECT_STREQ(COAP_RpcGetPktTypeStr(2), "UNICAST");
  EXPECT_STREQ(COAP_RpcGetPktTypeStr(3), "__unknown__");
}

TEST(EnumTexts, PayloadFormat) {
  EXPECT_STREQ(COAP_RpcGetPayloadFormatStr(0), "__unknown__");
  EXPECT_STREQ(COAP_RpcGetPayloadFormatStr(1), "JSON");
  EXPECT_STREQ(COAP_RpcGetPayloadFormatStr(2), "BYTE");
  EXPECT_STREQ(COAP_RpcGetPayloadFormatStr(3), "__unknown__");
}

TEST(EnumTexts, CodeType) {
  EXPECT_STREQ(COAP_RpcGetCodeTypeStr(0), "__unknown__");
  EXPECT_STREQ(COAP_RpcGetCodeTypeStr(1), "GET");
  EXPECT_STREQ(COAP_RpcGetCodeTypeStr(2), "POST");
  EXPECT_STREQ(COAP_RpcGetCodeTypeStr(3), "PUT");
  EXPECT_STREQ(COAP_RpcGetCodeTypeStr(4), "DELETE");
  EXPECT_STREQ(COAP_RpcGetCodeTypeStr(5), "__unknown__");
}

TEST(IpAddrGetStr, Ipv4_GivesTheBuffer) {
  CoapRpcIpAddr addr = {};
  addr.family = 1;
  addr.addr.ipv4 = kHomeIpv4;
  char buf[32];
  EXPECT_EQ(COAP_RpcIpAddrGetStr(&addr, buf, sizeof(buf)), buf);
  EXPECT_STREQ(buf, "192.168.1.1");
}

TEST(IpAddrGetStr, Ipv4_DoesNotFit_GivesTheMarker) {
  CoapRpcIpAddr addr = {};
  addr.family = 1;
  addr.addr.ipv4 = kHomeIpv4;
  char buf[11];
  EXPECT_STREQ(COAP_RpcIpAddrGetStr(&addr, buf, sizeof(buf)), "-v4i-");
  EXPECT_STREQ(COAP_RpcIpAddrGetStr(&addr, nullptr, 0), "-v4i-");
}

TEST(IpAddrGetStr, Ipv6_GivesTheBuffer) {
  CoapRpcIpAddr addr = {};
  addr.family = 2;
  inet_pton(AF_INET6, "2001:db8::1", addr.addr.ipv6);
  char buf[64];
  EXPECT_EQ(COAP_RpcIpAddrGetStr(&addr, buf, sizeof(buf)), buf);
  EXPECT_STREQ(buf, "2001:db8::1");
}

TEST(IpAddrGetStr, Ipv6_DoesNotFit_GivesTheMarker) {
  CoapRpcIpAddr addr = {};
  addr.family = 2;
  inet_pton(AF_INET6, "2001:db8::1", addr.addr.ipv6);
  char buf[5];
  EXPECT_STREQ(COAP_RpcIpAddrGetStr(&addr, buf, sizeof(buf)), "-v6i-");
}

TEST(IpAddrGetStr, BufferIsNotClearedFirst) {
  CoapRpcIpAddr addr = {};
  addr.family = 1;
  addr.addr.ipv4 = 0x01020304;
  char buf[32];
  memset(buf, 'x', sizeof(buf));
  COAP_RpcIpAddrGetStr(&addr, buf, sizeof(buf));
  EXPECT_EQ(buf[31], 'x');
}

TEST(Ip4GetStr, ClearsTheBuffer) {
  char buf[32];
  memset(buf, 'x', sizeof(buf));
  EXPECT_EQ(COAP_RpcIp4GetStr(kHomeIpv4, buf, sizeof(buf)), buf);
  EXPECT_STREQ(buf, "192.168.1.1");
  EXPECT_EQ(buf[31], '\0');
}

TEST(Ip4GetStr, DoesNotFit_ClearsTheBufferAndGivesTheMarker) {
  char buf[4] = {'x', 'x', 'x', 'x'};
  EXPECT_STREQ(COAP_RpcIp4GetStr(kHomeIpv4, buf, sizeof(buf)), "-v4i-");
  EXPECT_EQ(buf[3], '\0');
}

TEST(PrintIpPort, WritesAddressColonPort) {
  char buf[64];
  EXPECT_EQ(COAP_PrintIpPort(kHomeIpv4, 5683, buf, sizeof(buf)), buf);
  EXPECT_STREQ(buf, "192.168.1.1:5683");
}

TEST(PrintIpPort, IsCutAtTheBuffer) {
  char buf[14];
  EXPECT_STREQ(COAP_PrintIpPort(kHomeIpv4, 5683, buf, sizeof(buf)), "192.168.1.1:5");
  char one[1] = {'x'};
  EXPECT_STREQ(COAP_PrintIpPort(kHomeIpv4, 5683, one, sizeof(one)), "");
}

TEST(PrintIpPort, PortIs32BitsWide) {
  char buf[64];
  EXPECT_STREQ(COAP_PrintIpPort(0, 4294967295u, buf, sizeof(buf)), "0.0.0.0:4294967295");
}

class CurrTime : public testing::Test {
 protected:
  TestHost host_;
};

TEST_F(CurrTime, HasNoYear) {
  TestHost::Process().SetSystime({2024, 3, 9, 4, 5, 6, 789});
  char buf[32];
  EXPECT_GE(COAP_RpcGetCurrTimeStr(nullptr, buf, sizeof(buf)), 0);
  EXPECT_STREQ(buf, "03-09 04:05:06");
}

TEST_F(CurrTime, ClockFailure_IsPassedOnBitForBit_BufferUntouched) {
  TestHost::Process().FailSystime(static_cast<int32_t>(0xDEADBEEF));
  char buf[32] = "before";
  EXPECT_EQ(static_cast<uint32_t>(COAP_RpcGetCurrTimeStr(nullptr, buf, sizeof(buf))), 0xDEADBEEF);
  EXPECT_STREQ(buf, "before");
}

TEST_F(CurrTime, FirstArgumentIsNotRead) {
  char buf[32];
  EXPECT_GE(COAP_RpcGetCurrTimeStr(reinterpret_cast<const void *>(1), buf, sizeof(buf)), 0);
}

}  // namespace
}  // namespace coap_rpc_test
