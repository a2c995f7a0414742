/* coap_rpc_lib_exchange.h: one request that libcoap runs a handler for. */
#ifndef COAP_RPC_LIB_EXCHANGE_H
#define COAP_RPC_LIB_EXCHANGE_H

#include <coap3/coap.h>

#include "coap_svc/rpc/common/coap_rpc_ctx.h"
#include "coap_svc/rpc/common/coap_rpc_limits.h"
#include "coap_svc/rpc/common/coap_rpc_own.h"
#include "coap_svc/rpc/server/coap_rpc_ser_entry.h"

namespace coap_rpc {

// Exchange is made once for a request or a notification and handed on.  All that it names is
// borrowed for the time of the handler.
struct Exchange {
  CoapRpcCtx *ctx;           // null when the resource was given up
  CoapRpcSerUriVtbl *entry;  // null until looked up, or when none matches
  coap_resource_t *resource;
  coap_session_t *session;
  const coap_pdu_t *request;  // of a notification: the registration that libcoap keeps
  const coap_string_t *query;
  coap_pdu_t *response;
};

// RootOf returns the instance of a resource; null for a null resource, or when it was given up.
inline CoapRpcCtx *RootOf(coap_resource_t *resource) {
  return resource ? static_cast<CoapRpcCtx *>(coap_resource_get_userdata(resource)) : nullptr;
}

inline Exchange MakeExchange(coap_resource_t *resource, coap_session_t *session,
                             const coap_pdu_t *request, const coap_string_t *query,
                             coap_pdu_t *response) {
  return {RootOf(resource), nullptr, resource, session, request, query, response};
}

// Modes of an entry.
inline constexpr uint32_t kModeSync = 0;
inline constexpr uint32_t kModeAsync = 1;
inline uint32_t ModeOf(const CoapRpcSerUriVtbl *entry) { return entry->reg.mode & 0x03u; }

// LogRequest writes the lines of a request that is given to its entry's callback; the payload is
// NUL-terminated.
void LogRequest(const Exchange &exchange, const uint8_t *payload, uint32_t len);

// SharedAnswerBuffer returns the buffer in which synchronous answers are written, kPayloadBufSize
// bytes of whatever the last ones have left there; null without memory.
inline uint8_t *SharedAnswerBuffer(CoapRpcSerData *ser) {
  if (!ser->reqBuf) {
    ser->reqBuf = static_cast<uint8_t *>(PoolAlloc(ser->owner->param.memHandle, kPayloadBufSize));
  }
  return ser->reqBuf;
}

}  // namespace coap_rpc

#endif /* COAP_RPC_LIB_EXCHANGE_H */
