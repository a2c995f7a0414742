/* key_order.h: orders of keys by their bytes.
 *
 * A table's comparison is not told how long its keys are, and one in Python would be called for each
 * step of each look-up.  So there is a function for each length up to COAPRPC_MAX_KEY. */
#ifndef COAPRPC_KEY_ORDER_H
#define COAPRPC_KEY_ORDER_H

#include <string.h>

#include "coap_svc/rpc/coap_rpc_ser.h"

enum { COAPRPC_MAX_KEY = 255 };

#define COAPRPC_16(X, high)                                                                       \
  X(high##0) X(high##1) X(high##2) X(high##3) X(high##4) X(high##5) X(high##6) X(high##7)         \
  X(high##8) X(high##9) X(high##a) X(high##b) X(high##c) X(high##d) X(high##e) X(high##f)
#define COAPRPC_256(X)                                                                            \
  COAPRPC_16(X, 0x0) COAPRPC_16(X, 0x1) COAPRPC_16(X, 0x2) COAPRPC_16(X, 0x3)                     \
  COAPRPC_16(X, 0x4) COAPRPC_16(X, 0x5) COAPRPC_16(X, 0x6) COAPRPC_16(X, 0x7)                     \
  COAPRPC_16(X, 0x8) COAPRPC_16(X, 0x9) COAPRPC_16(X, 0xa) COAPRPC_16(X, 0xb)                     \
  COAPRPC_16(X, 0xc) COAPRPC_16(X, 0xd) COAPRPC_16(X, 0xe) COAPRPC_16(X, 0xf)

#define COAPRPC_DEFINE_CMP(len) \
  static int32_t CmpKeys_##len(const void *a, const void *b) { return (int32_t)memcmp(a, b, len); }
#define COAPRPC_NAME_CMP(len) CmpKeys_##len,

COAPRPC_256(COAPRPC_DEFINE_CMP)

/* `len` is 0 to COAPRPC_MAX_KEY. */
static CoapRpcTupleKeyCmp coaprpc_key_cmp(size_t len) {
  static const CoapRpcTupleKeyCmp kCmps[] = {COAPRPC_256(COAPRPC_NAME_CMP)};
  return kCmps[len];
}

#endif /* COAPRPC_KEY_ORDER_H */
