#include "coap_svc/rpc/common/coap_rpc_text.h"

#include <cstring>
#include <iterator>

#include "coap_svc/rpc/common/coap_rpc_limits.h"
#include "coap_svc/rpc/common/coap_rpc_safe.h"
#include "osal.h"

namespace {

using namespace coap_rpc;

// TextAt returns the text at `index`; unlisted values are null in the array or after its end.
template <size_t Count>
const char *TextAt(const char *const (&texts)[Count], uint32_t index) {
  return index < Count && texts[index] ? texts[index] : "__unknown__";
}

constexpr const char *kMsgTypes[] = {"CON", "NON"};
constexpr const char *kPktTypes[] = {"DEFAULT", "BROADCAST", "UNICAST"};
constexpr const char *kPayloadFormats[] = {nullptr, "JSON", "BYTE"};
constexpr const char *kCodeTypes[] = {nullptr, "GET", "POST", "PUT", "DELETE"};

const char *Ipv4Text(uint32_t ipv4, char *buf, uint32_t len) {
  const char *text = OSAL_IpAddrToStrEx(ipv4, buf, len);
  return text ? text : "-v4i-";
}

const char *Ipv6Text(const uint8_t (&ipv6)[16], char *buf, uint32_t len) {
  uint64_t halves[2];
  memcpy_s(halves, sizeof(halves), ipv6, sizeof(ipv6));
  return OSAL_Inet_ntoa_b_ipv6_ex(halves[0], halves[1], buf, len) == 0 ? buf : "-v6i-";
}

}  // namespace

const char *COAP_RpcGetMsgTypeStr(uint32_t msgType) { return TextAt(kMsgTypes, msgType); }

const char *COAP_RpcGetPktTypeStr(uint32_t pktType) { return TextAt(kPktTypes, pktType); }

const char *COAP_RpcGetPayloadFormatStr(uint8_t payloadFormat) {
  return TextAt(kPayloadFormats, payloadFormat);
}

const char *COAP_RpcGetCodeTypeStr(uint32_t codeType) { return TextAt(kCodeTypes, codeType); }

const char *COAP_RpcIpAddrGetStr(const CoapRpcIpAddr *addr, char *buf, uint32_t len) {
  return addr->family == COAP_RPC_IPV4 ? Ipv4Text(addr->addr.ipv4, buf, len)
                                       : Ipv6Text(addr->addr.ipv6, buf, len);
}

const char *COAP_RpcIp4GetStr(uint32_t ipv4, char *buf, uint32_t len) {
  memset_s(buf, len, 0, len);
  return Ipv4Text(ipv4, buf, len);
}

char *COAP_PrintIpPort(uint32_t ipv4, uint32_t port, char *buf, uint32_t len) {
  memset_s(buf, len, 0, len);
  char addr[kAddrTextSize] = {};
  snprintf_truncated_s(buf, len, "%s:%u", Ipv4Text(ipv4, addr, sizeof(addr)), port);
  return buf;
}

int32_t COAP_RpcGetCurrTimeStr(const void *, char *buf, uint32_t len) {
  OSAL_Systime now;
  const int32_t ret = OSAL_SystimeGet(&now);
  if (ret < 0) return ret;
  return snprintf_truncated_s(buf, len, "%02u-%02u %02u:%02u:%02u", now.month, now.day, now.hour,
                              now.minute, now.second);
}
