/* test_contract_osal.cpp: byte and text helpers, clocks, address texts. */
#include <arpa/inet.h>

#include <cstring>
#include <string>

#include "contract_test.h"
#include "osal.h"

namespace coap_rpc_test {
namespace {

class ContractOsal : public ContractTest {};

uint64_t NowMs() {
  uint32_t high = 0;
  uint32_t low = 0;
  EXPECT_EQ(OSAL_MillSecNow(&high, &low), 0u);
  return uint64_t{high} << 32 | low;
}

// Ipv6Text converts a numeric address with a buffer of `len` bytes; "" when it does not fit.
std::string Ipv6Text(const char *address, uint32_t len = 64) {
  uint8_t bytes[16];
  uint64_t high = 0;
  uint64_t low = 0;
  EXPECT_EQ(inet_pton(AF_INET6, address, bytes), 1) << address;
  std::memcpy(&high, bytes, 8);
  std::memcpy(&low, bytes + 8, 8);
  std::vector<char> buf(len, 'x');
  return OSAL_Inet_ntoa_b_ipv6_ex(high, low, buf.data(), len) == 0 ? buf.data() : "";
}

std::string Ipv4Text(uint32_t address, uint32_t len = 64) {
  std::vector<char> buf(len, 'x');
  const char *text = OSAL_IpAddrToStrEx(address, buf.data(), len);
  if (text) {
    EXPECT_EQ(text, buf.data());
  }
  return text ? text : "";
}

TEST_F(ContractOsal, MemCmp_ComparesUnsignedBytes) {
  EXPECT_EQ(OSAL_MemCmp("abc", "abc", 3), 0);
  EXPECT_EQ(OSAL_MemCmp("abc", "abd", 3), -1);
  EXPECT_EQ(OSAL_MemCmp("abz", "abc", 3), 1);
  EXPECT_EQ(OSAL_MemCmp("\x7F", "\x80", 1), -1);
  EXPECT_EQ(OSAL_MemCmp("\xFF", "\x01", 1), 1);
}

TEST_F(ContractOsal, MemCmp_Length_LimitsTheComparison) {
  EXPECT_EQ(OSAL_MemCmp("abX", "abY", 2), 0);
  EXPECT_EQ(OSAL_MemCmp("a", "b", 0), 0);
  EXPECT_EQ(OSAL_MemCmp("a\0b", "a\0c", 3), -1);
}

TEST_F(ContractOsal, StrChr_FindsTheFirst) {
  const char *text = "a/b/c";
  EXPECT_EQ(OSAL_StrChr(text, '/'), text + 1);
  EXPECT_EQ(OSAL_StrChr(text, 'a'), text);
  EXPECT_EQ(OSAL_StrChr(text, 'x'), nullptr);
  EXPECT_EQ(OSAL_StrChr("", 'x'), nullptr);
}

TEST_F(ContractOsal, StrRChr_FindsTheLast) {
  const char *text = "a/b/c";
  EXPECT_EQ(OSAL_StrRChr(text, '/'), text + 3);
  EXPECT_EQ(OSAL_StrRChr(text, 'c'), text + 4);
  EXPECT_EQ(OSAL_StrRChr(text, 'x'), nullptr);
  EXPECT_EQ(OSAL_StrRChr("", 'x'), nullptr);
}

TEST_F(ContractOsal, MillSecNow_IsNever0AndMovesForward) {
  const uint64_t beforeMs = NowMs();
  EXPECT_GT(beforeMs, 0u);
  Host().AdvanceMs(20);
  EXPECT_GE(NowMs() + 1, beforeMs + 20);
  if (Host().HasExactTime()) {
    EXPECT_EQ(NowMs(), beforeMs + 20);
  }
}

TEST_F(ContractOsal, SystimeGet_GivesACalendarTime) {
  OSAL_Systime now = {};
  EXPECT_GE(OSAL_SystimeGet(&now), 0);
  EXPECT_GE(now.year, 2024u);
  EXPECT_GE(now.month, 1u);
  EXPECT_LE(now.month, 12u);
  EXPECT_GE(now.day, 1u);
  EXPECT_LE(now.day, 31u);
  EXPECT_LE(now.hour, 23u);
  EXPECT_LE(now.minute, 59u);
  EXPECT_LE(now.second, 60u);
  EXPECT_LE(now.millis, 999u);
}

TEST_F(ContractOsal, IpAddrToStr_HostOrder_GivesADottedQuad) {
  EXPECT_EQ(Ipv4Text(0x7F000001), "127.0.0.1");
  EXPECT_EQ(Ipv4Text(0), "0.0.0.0");
  EXPECT_EQ(Ipv4Text(0xFFFFFFFF), "255.255.255.255");
  EXPECT_EQ(Ipv4Text(0x0A010203), "10.1.2.3");
}

TEST_F(ContractOsal, IpAddrToStr_BufferLength_MustHoldTheTerminator) {
  EXPECT_EQ(Ipv4Text(0xFFFFFFFF, 16), "255.255.255.255");
  EXPECT_EQ(Ipv4Text(0xFFFFFFFF, 15), "");
  EXPECT_EQ(Ipv4Text(0x01020304, 8), "1.2.3.4");
  EXPECT_EQ(Ipv4Text(0x01020304, 7), "");
  EXPECT_EQ(Ipv4Text(0x01020304, 0), "");
}

TEST_F(ContractOsal, Ipv6_UsualForms) {
  EXPECT_EQ(Ipv6Text("::"), "::");
  EXPECT_EQ(Ipv6Text("::1"), "::1");
  EXPECT_EQ(Ipv6Text("2001:DB8:0:0:0:0:0:1"), "2001:db8::1");
  EXPECT_EQ(Ipv6Text("2001:0db8::0001"), "2001:db8::1");
  EXPECT_EQ(Ipv6Text("1:2:3:4:5:6:7:8"), "1:2:3:4:5:6:7:8");
  EXPECT_EQ(Ipv6Text("fe80::"), "fe80::");
}

TEST_F(ContractOsal, Ipv6_ZeroRuns_AreShortenedByTheRules) {
  EXPECT_EQ(Ipv6Text("2001:db8:0:1:1:1:1:1"), "2001:db8:0:1:1:1:1:1");  // not a single group
  EXPECT_EQ(Ipv6Text("2001:0:0:1:0:0:0:1"), "2001:0:0:1::1");           // the longest run
  EXPECT_EQ(Ipv6Text("2001:db8:0:0:1:0:0:1"), "2001:db8::1:0:0:1");     // the first of equals
}

TEST_F(ContractOsal, Ipv6_BufferLength_MustHoldTheTerminator) {
  const char *longest = "1111:2222:3333:4444:5555:6666:7777:8888";
  EXPECT_EQ(Ipv6Text(longest, 40), longest);
  EXPECT_EQ(Ipv6Text(longest, 39), "");
  EXPECT_EQ(Ipv6Text("::1", 4), "::1");
  EXPECT_EQ(Ipv6Text("::1", 3), "");
  EXPECT_EQ(Ipv6Text("::1", 0), "");
}

}  // namespace
}  // namespace coap_rpc_test
