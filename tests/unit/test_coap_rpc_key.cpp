// Keys and their comparators: what order the tables are in.
#include "coap_svc/rpc/common/coap_rpc_key.h"

#include <cstring>
#include <vector>

#include "test_instance.h"

namespace coap_rpc_test {
namespace {

CoapRpcIpAddr Ipv4(uint8_t a, uint8_t b, uint8_t c, uint8_t d) {
  CoapRpcIpAddr addr = {};
  addr.family = 1;
  addr.addr.ipv4 = (uint32_t{a} << 24) | (uint32_t{b} << 16) | (uint32_t{c} << 8) | d;
  return addr;
}

CoapRpcIpAddr Ipv6(uint8_t first, uint8_t last) {
  CoapRpcIpAddr addr = {};
  addr.family = 2;
  addr.addr.ipv6[0] = first;
  addr.addr.ipv6[15] = last;
  return addr;
}

TEST(UriKeyCmp, PktType0And2_OrderThatWay) {
  const CoapRpcUriKey a = KeyOf("a", 0, 0, 0);
  const CoapRpcUriKey b = KeyOf("a", 0, 0, 2);
  EXPECT_EQ(COAP_RpcUriKeyCmp(&a, &b), -1);
  EXPECT_EQ(COAP_RpcUriKeyCmp(&b, &a), 1);
}

TEST(UriKeyCmp, EqualInAllFields_IsZero) {
  const CoapRpcUriKey a = KeyOf("a/b", 1, 1, 2);
  const CoapRpcUriKey b = KeyOf("a/b", 1, 1, 2);
  EXPECT_EQ(COAP_RpcUriKeyCmp(&a, &b), 0);
}

TEST(UriKeyCmp, StrayByteAfterTerminator_MakesAnotherKey) {
  const CoapRpcUriKey clean = KeyOf("a");
  CoapRpcUriKey stray = clean;
  stray.uri[5] = 'x';
  EXPECT_EQ(COAP_RpcUriKeyCmp(&clean, &stray), -1);
  EXPECT_EQ(COAP_RpcUriKeyCmp(&stray, &clean), 1);
  stray = clean;
  stray.uri[63] = 'x';
  EXPECT_EQ(COAP_RpcUriKeyCmp(&clean, &stray), -1);
}

TEST(UriKeyCmp, FieldsCountInTheirOrder) {
  // Each key is greater than the one before although all later fields are smaller.
  const std::vector<CoapRpcUriKey> ordered = {KeyOf("a", 0, 0, 2), KeyOf("a", 0, 1, 1),
                                              KeyOf("a", 1, 0, 0), KeyOf("b", 0, 0, 0)};
  for (size_t i = 0; i < ordered.size(); ++i) {
    for (size_t j = 0; j < ordered.size(); ++j) {
      const int32_t expected = i < j ? -1 : i > j ? 1 : 0;
      EXPECT_EQ(COAP_RpcUriKeyCmp(&ordered[i], &ordered[j]), expected) << i << " " << j;
    }
  }
}

TEST(UriKeyCmp, NumbersAreUnsigned) {
  const CoapRpcUriKey small = KeyOf("a", 1);
  const CoapRpcUriKey large = KeyOf("a", 0xFFFFFFFF);
  EXPECT_EQ(COAP_RpcUriKeyCmp(&small, &large), -1);
}

TEST(UriKeyCmp, BytesAreUnsigned) {
  const CoapRpcUriKey small = KeyOf("\x7f");
  const CoapRpcUriKey large = KeyOf("\x80");
  EXPECT_EQ(COAP_RpcUriKeyCmp(&small, &large), -1);
}

TEST(UriCmp, GivesTheHostsResult) {
  const CoapRpcUriKey a = KeyOf("a", 5);
  const CoapRpcUriKey b = KeyOf("b", 1);
  EXPECT_EQ(COAP_RpcUriCmp(&a, &b), -1);
  EXPECT_EQ(COAP_RpcUriCmp(&b, &a), 1);
  EXPECT_EQ(COAP_RpcUriCmp(&a, &a), 0);
}

TEST(UriCmp, MsgTypeDoesNotCount) {
  const CoapRpcUriKey a = KeyOf("a", 5);
  const CoapRpcUriKey b = KeyOf("a", 1);
  EXPECT_EQ(COAP_RpcUriCmp(&a, &b), 0);
}

TEST(AddrCmp, Ipv4_IsNumeric) {
  const CoapRpcIpAddr high = Ipv4(10, 0, 0, 2);
  const CoapRpcIpAddr low = Ipv4(9, 255, 255, 255);
  EXPECT_EQ(COAP_RpcAddrCmp(&high, &low), 1);
  EXPECT_EQ(COAP_RpcAddrCmp(&low, &high), -1);
  EXPECT_EQ(COAP_RpcAddrCmp(&low, &low), 0);
}

TEST(AddrCmp, Ipv4_SortsBeforeEveryIpv6) {
  const CoapRpcIpAddr v4 = Ipv4(255, 255, 255, 255);
  const CoapRpcIpAddr v6 = Ipv6(0, 0);
  EXPECT_EQ(COAP_RpcAddrCmp(&v4, &v6), -1);
  EXPECT_EQ(COAP_RpcAddrCmp(&v6, &v4), 1);
}

TEST(AddrCmp, Ipv6_IsBytewise) {
  const CoapRpcIpAddr a = Ipv6(1, 255);
  const CoapRpcIpAddr b = Ipv6(2, 0);
  EXPECT_EQ(COAP_RpcAddrCmp(&a, &b), -1);
  EXPECT_EQ(COAP_RpcAddrCmp(&b, &a), 1);
}

TEST(AddrCmp, Ipv4_IgnoresTheBytesAfterTheAddress) {
  const CoapRpcIpAddr a = Ipv4(10, 0, 0, 1);
  CoapRpcIpAddr b = a;
  b.addr.ipv6[15] = 9;
  EXPECT_EQ(COAP_RpcAddrCmp(&a, &b), 0);
}

TEST(AddrCmp, OtherFamilies_AreBytewise) {
  CoapRpcIpAddr a = Ipv6(1, 1);
  CoapRpcIpAddr b = Ipv6(1, 2);
  a.family = b.family = 7;
  EXPECT_EQ(COAP_RpcAddrCmp(&a, &b), -1);
}

TEST(AddrV4Cmp, IsUnsigned) {
  EXPECT_EQ(COAP_RpcAddrV4Cmp(1, 0x80000000), -1);
  EXPECT_EQ(COAP_RpcAddrV4Cmp(0x80000000, 1), 1);
  EXPECT_EQ(COAP_RpcAddrV4Cmp(7, 7), 0);
}

TEST(AddrV6Cmp, ComparesTheGivenLength) {
  EXPECT_EQ(COAP_RpcAddrV6Cmp("abc", "abd", 2), 0);
  EXPECT_EQ(COAP_RpcAddrV6Cmp("abc", "abd", 3), -1);
  EXPECT_EQ(COAP_RpcAddrV6Cmp("abd", "abc", 3), 1);
}

}  // namespace
}  // namespace coap_rpc_test
