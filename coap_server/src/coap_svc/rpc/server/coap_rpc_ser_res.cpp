#include "coap_svc/rpc/server/coap_rpc_ser_res.h"

#include "coap_svc/rpc/common/coap_rpc_key.h"
#include "coap_svc/rpc/common/coap_rpc_list.h"
#include "coap_svc/rpc/common/coap_rpc_log_site.h"
#include "coap_svc/rpc/common/coap_rpc_own.h"
#include "coap_svc/rpc/common/coap_rpc_safe.h"
#include "coap_svc/rpc/common/coap_rpc_table.h"

using namespace coap_rpc;

namespace {

using ResTable = COAP_RPC_TABLE(CoapRpcSerUriRes, uri, char, COAP_RpcUriCmp);
using ResEntries = COAP_RPC_LIST(CoapRpcSerUriVtbl, resLink);
ResTable TableOf(CoapRpcSerData *ser) { return ResTable(ser->uriResTree); }

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
