#include "coap_svc/rpc/server/coap_rpc_ser_res.h"

#include "coap_svc/rpc/common/coap_rpc_key.h"
#include "coap_svc/rpc/common/coap_rpc_list.h"
#include "coap_svc/rpc/common/coap_rpc_log_site.h"
#include "coap_svc/rpc/common/coap_rpc_own.h"
#include "coap_svc/rpc/common/coap_rpc_safe.h"
#include "coap_svc/rpc/common/coap_rpc_table.h"
#include "coap_svc/rpc/server/coap_rpc_ser_uri.h"

using namespace coap_rpc;

namespace {

using ResTable = COAP_RPC_TABLE(CoapRpcSerUriRes, uri, char, COAP_RpcUriCmp);
using ResEntries = COAP_RPC_LIST(CoapRpcSerUriVtbl, resLink);
using UriField = char[COAP_RPC_URI_SIZE];

ResTable TableOf(CoapRpcSerData *ser) { return ResTable(ser->uriResTree); }

// CopyUri copies a key's uri into a zeroed field, so that bytes after its terminator do not count.
// Returns 0 or strcpy_s's error when there is no terminator.
uint32_t CopyUri(UriField &uri, const CoapRpcUriKey *key) {
  return static_cast<uint32_t>(strcpy_s(uri, sizeof(uri), key->uri));
}

}  // namespace

uint32_t COAP_RpcSerResourceInit(void *ser) {
  TableOf(static_cast<CoapRpcSerData *>(ser)).Init();
  return 0;
}

uint32_t COAP_RpcSerResourceUninit(void *ser) {
  auto *data = static_cast<CoapRpcSerData *>(ser);
  if (!data) return 0;
  TableOf(data).Drain([=](CoapRpcSerUriRes *res) {
    COAP_RpcSerResUnBindAllUriVtbl(nullptr, res);
    COAP_RpcSerTryDelUriRes(data, res);
  });
  return 0;
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

CoapRpcSerUriRes *COAP_RpcSerFindUriRes(CoapRpcSerData *ser, const char *uri) {
  return TableOf(ser).Find(uri);
}

CoapRpcSerUriRes *COAP_RpcSerFindFirstUriRes(CoapRpcSerData *ser) { return TableOf(ser).First(); }

CoapRpcSerUriRes *COAP_RpcSerFindNextUriRes(CoapRpcSerData *ser, const char *uri) {
  return TableOf(ser).After(uri);
}

CoapRpcSerUriRes *COAP_RpcSerAddUriRes(CoapRpcSerData *ser, const char *uri) {
  auto res = NewZeroed<CoapRpcSerUriRes>(ser->owner->param.memHandle);
  if (!res) return nullptr;
  memcpy_s(res->uri, sizeof(res->uri), uri, sizeof(res->uri));
  LinkInit(res->uriDataList);
  if (!TableOf(ser).Insert(res.get())) return nullptr;
  COAP_RPC_DEBUG(ser->owner, "[CoapRpc]create uriRes success, uri:%s.\n",
                 UriText(res->uri).c_str());
  return res.release();
}

void COAP_RpcSerTryDelUriRes(CoapRpcSerData *ser, CoapRpcSerUriRes *res) {
  if (!ResEntries(res->uriDataList).IsEmpty()) return;
  // Off the table first: deleting calls the application, which may attach to the same uri.
  TableOf(ser).Remove(res);
  ser->deleteResource(ser->owner, res->uri);
  PoolFree(ser->owner->param.memHandle, res);
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

CoapRpcSerUriVtbl *COAP_RpcSerResIsBindVtbl(CoapRpcSerUriRes *res, const CoapRpcUriKey *key) {
  return ResEntries(res->uriDataList).FindIf([=](const CoapRpcSerUriVtbl &entry) {
    return COAP_RpcUriKeyCmp(&entry.key, key) == 0;
  });
}

void COAP_RpcSerResUnBindUriVtbl(const void *, const void *, CoapRpcSerUriVtbl *entry) {
  LinkRemove(entry->resLink);
}

void COAP_RpcSerResUnBindAllUriVtbl(const void *, CoapRpcSerUriRes *res) {
  ResEntries(res->uriDataList).Drain([](CoapRpcSerUriVtbl *entry) {
    COAP_RpcSerResUnBindUriVtbl(nullptr, nullptr, entry);
  });
}
