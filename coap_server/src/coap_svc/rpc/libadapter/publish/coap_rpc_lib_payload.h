/* coap_rpc_lib_payload.h: pending changes of an observable URI as one JSON or IDL payload.
 *
 * A change whose element was built leaves the list when libcoap has the payload; one whose builder
 * failed stays for the next payload.  No payload is built while another is being sent in blocks. */
#ifndef COAP_RPC_LIB_PAYLOAD_H
#define COAP_RPC_LIB_PAYLOAD_H

#include <coap3/coap.h>

#include "coap_svc/rpc/coap_rpc_ser.h"
#include "coap_svc/rpc/common/coap_rpc_ctx.h"
#include "coap_svc/rpc/libadapter/message/coap_rpc_lib_exchange.h"

struct json_t;

COAP_RPC_C_BEGIN

typedef struct CoapRpcTupleChg CoapRpcTupleChg;

/* CoapRpcSerLargeBlockCtx is the release context that travels with a payload. */
typedef struct CoapRpcSerLargeBlockCtx {
  CoapRpcSerUriVtbl *entry; /* null once the entry is gone */
  void *buf;                /* JSON text or IDL buffer, owned */
} CoapRpcSerLargeBlockCtx;
static_assert(sizeof(CoapRpcSerLargeBlockCtx) == 16, "release context size");

/* COAP_RpcSerHandleOneData appends one change's object to a JSON array.
 *
 * Returns 0 or:  1900000438 builder missing   1900000443 no memory (asserted)
 *                1900000457 the builder failed */
COAP_RPC_API uint32_t COAP_RpcSerHandleOneData(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry,
                                               CoapRpcTupleChg *chg, struct json_t *array);

/* COAP_RpcSerHandleOneIdlMsg builds one change's message.
 *
 * Returns the builder's result or:  1900000469 builder missing   1900000474 no buffer */
COAP_RPC_API uint32_t COAP_RpcSerHandleOneIdlMsg(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry,
                                                 CoapRpcTupleChg *chg, CoapRpcSerIdlMsgBuf *msg);

/* COAP_RpcSerHandleIdlGetPayload builds the whole IDL payload: u32 number of messages, then for
 * each a u16 length and its bytes, in little-endian order.
 *
 *   out   65471 bytes
 *
 * Returns 0 or 1900000608 without memory. */
COAP_RPC_API uint32_t COAP_RpcSerHandleIdlGetPayload(CoapRpcSerUriVtbl *entry, uint8_t *out,
                                                     uint32_t *len);

/* Release functions of JSON and IDL payloads. */
COAP_RPC_API void COAP_OnLargeBlockSent(coap_session_t *session, void *blockCtx);
COAP_RPC_API void COAP_OnLargeIdlMsgBlockSent(coap_session_t *session, void *blockCtx);

COAP_RPC_C_END

namespace coap_rpc {

// PublishJson and PublishIdl build the pending changes of the exchange's entry and hand them to
// libcoap: code 69 with a payload, 65 without.
void PublishJson(const Exchange &to);
void PublishIdl(const Exchange &to);

}  // namespace coap_rpc

#endif /* COAP_RPC_LIB_PAYLOAD_H */
