#include "coap_svc/rpc/libadapter/sync/coap_rpc_lib_sync_body.h"

#include "coap_svc/rpc/common/coap_rpc_limits.h"
#include "coap_svc/rpc/common/coap_rpc_list.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_data.h"
#include "libcoap/ext/coap_rpc_lib_internals.h"

namespace coap_rpc {
namespace {

using Bodies = COAP_RPC_LIST(SyncBody, link);

void Release(coap_session_t *, void *body) {
  auto *released = static_cast<SyncBody *>(body);
  CoapRpcCtx *ctx = released->ctx;
  LinkRemove(released->link);
  --ctx->lib->numSyncBodies;
  PoolFree(ctx->param.memHandle, released);
}

void EndOldest(CoapRpcLibCtx *lib) {
  SyncBody *oldest = Bodies(lib->syncBodyList).First();
  ++oldest->ctx->counts.refused[COAP_RPC_LIMIT_SYNC_BODIES];
  CoapRpcLibEndBlocks(oldest->session, oldest);
}

}  // namespace

PoolPtr<SyncBody> NewSyncBody(const Exchange &exchange, size_t len) {
  auto body = NewZeroed<SyncBody>(exchange.ctx->param.memHandle, len);
  if (!body) return body;
  LinkInit(body->link);
  body->session = exchange.session;
  body->ctx = exchange.ctx;
  body->len = len;
  return body;
}

// libcoap releases a body that fits into the message at once, as it does when it fails.
bool AttachSyncBody(const Exchange &exchange, uint16_t format, PoolPtr<SyncBody> body) {
  CoapRpcLibCtx *lib = exchange.ctx->lib;
  if (!lib->syncBodyList.next) LinkInit(lib->syncBodyList);
  if (lib->numSyncBodies >= kMaxSyncBodies) EndOldest(lib);
  SyncBody *owned = body.release();
  Bodies(lib->syncBodyList).Append(owned);
  ++lib->numSyncBodies;
  return coap_add_data_large_response(exchange.resource, exchange.session, exchange.request,
                                      exchange.response, exchange.query, format, -1, 0, owned->len,
                                      BytesOf(owned), Release, owned) != 0;
}

}  // namespace coap_rpc
