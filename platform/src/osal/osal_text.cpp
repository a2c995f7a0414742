/* osal_text.cpp: byte and text helpers, and the text forms of addresses. */
#include <arpa/inet.h>

#include <cstring>

#include "osal.h"

int32_t OSAL_MemCmp(const void *a, const void *b, size_t len) {
  if (len == 0) return 0;
  const int order = std::memcmp(a, b, len);
  return (order > 0) - (order < 0);
}

char *OSAL_StrChr(const char *s, int c) { return const_cast<char *>(std::strchr(s, c)); }

char *OSAL_StrRChr(const char *s, int c) { return const_cast<char *>(std::strrchr(s, c)); }

char *OSAL_IpAddrToStrEx(uint32_t ipv4, char *buf, uint32_t len) {
  const in_addr address{htonl(ipv4)};
  return inet_ntop(AF_INET, &address, buf, len) ? buf : nullptr;
}

uint32_t OSAL_Inet_ntoa_b_ipv6_ex(uint64_t high, uint64_t low, char *buf, uint32_t len) {
  in6_addr address;
  std::memcpy(&address, &high, sizeof high);
  std::memcpy(reinterpret_cast<char *>(&address) + sizeof high, &low, sizeof low);
  return inet_ntop(AF_INET6, &address, buf, len) ? 0 : 1;
}
