/* coap_rpc_lib_sync_body.h: pages that may travel in blocks.
 *
 * A tuple that is longer than a page, JSON, and what a reader asks for in small blocks.  libcoap
 * owns such a page until the last block was sent, or nobody has asked for one in a while.
 *
 * Bounds: kMaxSyncBodies; the oldest goes when there are too many, and its reader starts again. */
#ifndef COAP_RPC_LIB_SYNC_BODY_H
#define COAP_RPC_LIB_SYNC_BODY_H

#include "coap_svc/rpc/common/coap_rpc_own.h"
#include "coap_svc/rpc/libadapter/message/coap_rpc_lib_exchange.h"

namespace coap_rpc {

// SyncBody is a record with the page's bytes after it.
struct SyncBody {
  CoapRpcLink link;         // on the adapter's syncBodyList
  coap_session_t *session;  // lives longer than the record
  CoapRpcCtx *ctx;
  size_t len;
};

inline uint8_t *BytesOf(SyncBody *body) { return reinterpret_cast<uint8_t *>(body + 1); }

// NewSyncBody makes a record for `len` bytes; empty without memory.
PoolPtr<SyncBody> NewSyncBody(const Exchange &exchange, size_t len);

// AttachSyncBody hands a body to libcoap as the response's.  False: no memory.
bool AttachSyncBody(const Exchange &exchange, uint16_t format, PoolPtr<SyncBody> body);

}  // namespace coap_rpc

#endif /* COAP_RPC_LIB_SYNC_BODY_H */
