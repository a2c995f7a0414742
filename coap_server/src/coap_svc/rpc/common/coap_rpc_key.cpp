#include "coap_svc/rpc/common/coap_rpc_key.h"

#include "osal.h"

namespace {

template <typename Number>
int32_t Order(Number a, Number b) {
  return (a > b) - (a < b);
}

}  // namespace

int32_t COAP_RpcUriKeyCmp(const void *a, const void *b) {
  const auto *keyA = static_cast<const CoapRpcUriKey *>(a);
  const auto *keyB = static_cast<const CoapRpcUriKey *>(b);
  const int32_t byUri = Order(OSAL_MemCmp(keyA->uri, keyB->uri, sizeof(keyA->uri)), 0);
  if (byUri != 0) return byUri;
  const int32_t byMsgType = Order<uint32_t>(keyA->msgType, keyB->msgType);
  if (byMsgType != 0) return byMsgType;
  const int32_t byObserve = Order<uint32_t>(keyA->observe, keyB->observe);
  return byObserve != 0 ? byObserve : Order<uint32_t>(keyA->pktType, keyB->pktType);
}

int32_t COAP_RpcUriCmp(const void *a, const void *b) {
  return OSAL_MemCmp(a, b, COAP_RPC_URI_SIZE);
}

int32_t COAP_RpcAddrCmp(const void *a, const void *b) {
  const auto *addrA = static_cast<const CoapRpcIpAddr *>(a);
  const auto *addrB = static_cast<const CoapRpcIpAddr *>(b);
  if (addrA->family != addrB->family) return Order(addrA->family, addrB->family);
  if (addrA->family == COAP_RPC_IPV4) return COAP_RpcAddrV4Cmp(addrA->addr.ipv4, addrB->addr.ipv4);
  return COAP_RpcAddrV6Cmp(addrA->addr.ipv6, addrB->addr.ipv6, sizeof(addrA->addr.ipv6));
}

int32_t COAP_RpcAddrV4Cmp(uint32_t a, uint32_t b) { return Order(a, b); }

int32_t COAP_RpcAddrV6Cmp(const void *a, const void *b, uint32_t len) {
  return Order(OSAL_MemCmp(a, b, len), 0);
}
