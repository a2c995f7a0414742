#include "coap_svc/rpc/server/coap_rpc_ser_attach.h"

#include "coap_svc/rpc/common/coap_rpc_key.h"
#include "coap_svc/rpc/common/coap_rpc_list.h"
#include "coap_svc/rpc/common/coap_rpc_log_site.h"
#include "coap_svc/rpc/common/coap_rpc_safe.h"
#include "coap_svc/rpc/server/coap_rpc_ser_uri.h"

using namespace coap_rpc;

namespace {

using ListenEntries = COAP_RPC_LIST(CoapRpcSerUriVtbl, listenLink);
using ResEntries = COAP_RPC_LIST(CoapRpcSerUriVtbl, resLink);
using UriField = char[COAP_RPC_URI_SIZE];

// IsAttached asks the URI table, which is quicker than walking a listen with thousands of entries.
bool IsAttached(CoapRpcSerData *ser, const CoapRpcSerListen *listen, const CoapRpcUriKey *key) {
  const CoapRpcSerUriVtbl *entry = COAP_RpcSerFindUriVtbl(ser, key);
  return entry && entry->listen == listen;
}

// RenewSource is for asynchronous answers: their session has been sending from an address that need
// not be there any more.
void RenewSource(CoapRpcSerData *ser, const CoapRpcSerUriVtbl *entry) {
  const CoapRpcLibExtOps *ops = ser->owner->libExt;
  if (ops && entry->asyncSession) ops->renewSource(entry->asyncSession);
}

// CopyUri copies a key's uri into a zeroed field, so that bytes after its terminator do not count.
// Returns 0 or strcpy_s's error when there is no terminator.
uint32_t CopyUri(UriField &uri, const CoapRpcUriKey *key) {
  return static_cast<uint32_t>(strcpy_s(uri, sizeof(uri), key->uri));
}

}  // namespace

uint32_t COAP_RpcSerCreatListen(CoapRpcCtx *ctx, const CoapRpcUriKey *key,
                                const CoapRpcSerListenAddr *addr) {
  CoapRpcSerData *ser = ctx->ser;
  CoapRpcSerListen *listen = COAP_RpcSerConnAddListen(ser, key, addr);
  if (!listen) return Code(kSiteCreatListenNoListen);
  // A listen without endpoint stays, deliberately: only its making opens one.
  listen->endPoint = ser->createEndPoint(ctx, addr);
  if (!listen->endPoint) return Code(kSiteCreatListenNoEndPoint);
  if (!COAP_RpcSerConnBindUriVtbl(ser, listen, key)) return Code(kSiteCreatListenNotBound);
  COAP_RpcCreateOrUpdateUriRes(ctx, key);
  return 0;
}

uint32_t COAP_RpcSerUpdateListen(CoapRpcCtx *ctx, CoapRpcSerListen *listen,
                                 const CoapRpcUriKey *key) {
  if (!IsAttached(ctx->ser, listen, key) && !COAP_RpcSerConnBindUriVtbl(ctx->ser, listen, key)) {
    return Code(kSiteUpdateListenNotBound);
  }
  COAP_RpcCreateOrUpdateUriRes(ctx, key);
  return 0;
}

uint32_t COAP_RpcSerTryDelListen(CoapRpcCtx *ctx, const CoapRpcUriKey *key) {
  CoapRpcSerUriVtbl *entry = COAP_RpcSerFindUriVtbl(ctx->ser, key);
  if (!entry) return 0;
  CoapRpcSerListen *listen = entry->listen;
  if (!listen) return Code(kSiteTryDelListenNotAttached);
  COAP_RpcSerConnUnBindUriVtbl(nullptr, nullptr, entry);
  COAP_RpcSerConnTryDelListen(ctx->ser, listen);
  // A callback may have deleted it, or attached it again: then the resource is in use.
  entry = COAP_RpcSerFindUriVtbl(ctx->ser, key);
  return !entry || entry->listen ? 0 : COAP_RpcTryDelUriRes(ctx, key);
}

CoapRpcSerUriVtbl *COAP_RpcSerConnBindUriVtbl(CoapRpcSerData *ser, CoapRpcSerListen *listen,
                                              const CoapRpcUriKey *key) {
  CoapRpcSerUriVtbl *entry = COAP_RpcSerFindUriVtbl(ser, key);
  if (!entry) {
    COAP_RPC_LOG(ser->owner->log, kLogConnBindNotRegistered,
                 "[CoapRpc]findUriVtbl fail, uri:%s, msgType:%u, observe:%u, pktType:%u.\n",
                 COAP_RPC_KEY_ARGS(*key));
    COAP_RpcSerConnTryDelListen(ser, listen);
    return nullptr;
  }
  ListenEntries(listen->uriDataList).Append(entry);
  entry->listen = listen;
  RenewSource(ser, entry);
  COAP_RPC_DEBUG(ser->owner,
                 "[CoapRpc]create uri success, uri:%s, msgType:%u, observe:%u, pktType:%u.\n",
                 COAP_RPC_KEY_ARGS(*key));
  return entry;
}

void COAP_RpcCreateOrUpdateUriRes(CoapRpcCtx *ctx, const CoapRpcUriKey *key) {
  CoapRpcSerData *ser = ctx->ser;
  UriField uri = {};
  if (CopyUri(uri, key) != 0) return;
  CoapRpcSerUriRes *res = COAP_RpcSerFindUriRes(ser, uri);
  if (!res) res = COAP_RpcSerAddUriRes(ser, uri);
  if (!res) return;

  if (!COAP_RpcSerResIsBindVtbl(res, key) && !COAP_RpcSerResBindUriVtbl(ser, res, key)) {
    COAP_RpcSerTryDelUriRes(ser, res);
    return;
  }
  if (ser->createOrUpdateResource(ctx, key) == 0) return;
  COAP_RPC_LOG(ctx->log, kLogAddResourceFailed,
               "[CoapRpc]add resource Failed, uri:%s, msgType:%u, observe:%u, pktType:%u.\n",
               COAP_RPC_KEY_ARGS(*key));
}

uint32_t COAP_RpcTryDelUriRes(CoapRpcCtx *ctx, const CoapRpcUriKey *key) {
  UriField uri = {};
  if (const uint32_t ret = CopyUri(uri, key); ret != 0) return ret;
  CoapRpcSerUriRes *res = COAP_RpcSerFindUriRes(ctx->ser, uri);
  if (!res) return 0;
  CoapRpcSerUriVtbl *entry = COAP_RpcSerResIsBindVtbl(res, key);
  if (!entry) return Code(kSiteTryDelUriResNotBound);

  COAP_RpcSerResUnBindUriVtbl(nullptr, nullptr, entry);
  COAP_RpcSerTryDelUriRes(ctx->ser, res);
  return 0;
}

CoapRpcSerUriVtbl *COAP_RpcSerResBindUriVtbl(CoapRpcSerData *ser, CoapRpcSerUriRes *res,
                                             const CoapRpcUriKey *key) {
  CoapRpcSerUriVtbl *entry = COAP_RpcSerFindUriVtbl(ser, key);
  if (!entry) return nullptr;
  ResEntries(res->uriDataList).Append(entry);
  COAP_RPC_DEBUG(ser->owner,
                 "[CoapRpc]bind uriRes success, uri:%s, msgType:%u, observe:%u, pktType:%u.\n",
                 COAP_RPC_KEY_ARGS(*key));
  return entry;
}
