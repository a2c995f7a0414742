/* records.h: fills the library's packed records, whose members cffi would access without regard to
 * their alignment. */
#ifndef COAPRPC_RECORDS_H
#define COAPRPC_RECORDS_H

#include <string.h>

#include "coap_svc/rpc/coap_rpc.h"
#include "coap_svc/rpc/coap_rpc_ser.h"
#include "kestrel.h"

enum { COAPRPC_IPV4_LEN = 4, COAPRPC_IPV6_LEN = 16 };

/* `bytes` is an address in network order. */
static void coaprpc_set_ip(CoapRpcIpAddr *ip, const uint8_t *bytes, size_t len) {
  memset(ip, 0, sizeof(*ip));
  ip->family = len == COAPRPC_IPV4_LEN ? COAP_RPC_IPV4 : COAP_RPC_IPV6;
  if (len == COAPRPC_IPV4_LEN) {
    ip->addr.ipv4 = (uint32_t)bytes[0] << 24 | (uint32_t)bytes[1] << 16 | (uint32_t)bytes[2] << 8 | bytes[3];
  } else {
    memcpy(ip->addr.ipv6, bytes, COAPRPC_IPV6_LEN);
  }
}

/* Writes up to 16 bytes; returns how many. */
static size_t coaprpc_get_ip(const CoapRpcIpAddr *ip, uint8_t *bytes) {
  if (ip->family != COAP_RPC_IPV4) {
    memcpy(bytes, ip->addr.ipv6, COAPRPC_IPV6_LEN);
    return COAPRPC_IPV6_LEN;
  }
  for (int i = 0; i < COAPRPC_IPV4_LEN; ++i) bytes[i] = (uint8_t)(ip->addr.ipv4 >> (24 - 8 * i));
  return COAPRPC_IPV4_LEN;
}

/* `uri` is shorter than COAP_RPC_URI_SIZE. */
static void coaprpc_set_key(CoapRpcUriKey *key, const char *uri, uint32_t observe) {
  memset(key, 0, sizeof(*key));
  strncpy(key->uri, uri, sizeof(key->uri) - 1);
  key->observe = observe;
}

static void coaprpc_set_listen(CoapRpcSerListenAddr *addr, const uint8_t *bytes, size_t len, uint16_t port) {
  memset(addr, 0, sizeof(*addr));
  coaprpc_set_ip(&addr->listenAddr, bytes, len);
  addr->port = port;
}

/* The callbacks of a mode that the entry does not have are null. */
static void coaprpc_set_handler(CoapRpcSerVtblReg *reg, uint64_t userData, CoapRpcSerOnRequest onRequest,
                                CoapRpcSerOnAsyncRequest onAsyncRequest) {
  memset(reg, 0, sizeof(*reg));
  reg->payloadFormat = COAP_RPC_JSON;
  reg->mode = onAsyncRequest ? 1 : 0;
  reg->userData = userData;
  reg->onRequest = onRequest;
  reg->onAsyncRequest = onAsyncRequest;
}

/* `logHandle` 0: no log; `dispHandle` 0: no display commands. */
static CoapRpcCtx *coaprpc_init(const char *name, Kestrel *host, uint64_t logHandle, uint64_t dispHandle) {
  const CoapRpcInitParam param = {.name = name, .logEnable = logHandle != 0, .memHandle = KestrelMem(host),
                                  .dispHandle = dispHandle, .logHandle = logHandle,
                                  .tmrHandle = KestrelTmr(host)};
  return COAP_RpcInit(&param);
}

#endif /* COAPRPC_RECORDS_H */
