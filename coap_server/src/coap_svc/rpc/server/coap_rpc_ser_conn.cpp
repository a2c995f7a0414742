#include "coap_svc/rpc/server/coap_rpc_ser_conn.h"

#include "coap_svc/rpc/common/coap_rpc_key.h"
#include "coap_svc/rpc/common/coap_rpc_limits.h"
#include "coap_svc/rpc/common/coap_rpc_list.h"
#include "coap_svc/rpc/common/coap_rpc_log_site.h"
#include "coap_svc/rpc/common/coap_rpc_own.h"
#include "coap_svc/rpc/common/coap_rpc_safe.h"
#include "coap_svc/rpc/common/coap_rpc_table.h"
#include "coap_svc/rpc/common/coap_rpc_text.h"

using namespace coap_rpc;

namespace {

using ListenTable = COAP_RPC_TABLE(CoapRpcSerListen, key, CoapRpcSerListenAddr,
                                   COAP_RpcSerConnCmp_);
using ListenEntries = COAP_RPC_LIST(CoapRpcSerUriVtbl, listenLink);

ListenTable TableOf(CoapRpcSerData *ser) { return ListenTable(ser->listenTree); }

ListenEntries EntriesOf(CoapRpcSerListen *listen) { return ListenEntries(listen->uriDataList); }

}  // namespace

uint32_t COAP_RpcSerConnInit(void *ser) {
  TableOf(static_cast<CoapRpcSerData *>(ser)).Init();
  return 0;
}

uint32_t COAP_RpcSerConnUninit(void *ser) {
  auto *data = static_cast<CoapRpcSerData *>(ser);
  if (!data) return 0;
  TableOf(data).Drain([=](CoapRpcSerListen *listen) {
    COAP_RpcSerConnUnBindAllUriVtbl(nullptr, listen);
    COAP_RpcSerConnTryDelListen(data, listen);
  });
  return 0;
}

int32_t COAP_RpcSerConnCmp_(const void *a, const void *b) {
  const auto *addrA = static_cast<const CoapRpcSerListenAddr *>(a);
  const auto *addrB = static_cast<const CoapRpcSerListenAddr *>(b);
  const int32_t byAddr = COAP_RpcAddrCmp(&addrA->listenAddr, &addrB->listenAddr);
  return byAddr != 0 ? byAddr : (addrA->port > addrB->port) - (addrA->port < addrB->port);
}

CoapRpcSerListen *COAP_RpcSerConnFindListen(CoapRpcSerData *ser, const CoapRpcSerListenAddr *addr) {
  return TableOf(ser).Find(addr);
}

CoapRpcSerListen *COAP_RpcSerFindFirstListen(CoapRpcSerData *ser) { return TableOf(ser).First(); }

CoapRpcSerListen *COAP_RpcSerFindNextListen(CoapRpcSerData *ser, const CoapRpcSerListenAddr *addr) {
  return TableOf(ser).After(addr);
}

CoapRpcSerListen *COAP_RpcSerConnAddListen(CoapRpcSerData *ser, const CoapRpcUriKey *,
                                           const CoapRpcSerListenAddr *addr) {
  auto listen = NewZeroed<CoapRpcSerListen>(ser->owner->param.memHandle);
  if (!listen) return nullptr;
  listen->key = *addr;
  LinkInit(listen->uriDataList);
  if (!TableOf(ser).Insert(listen.get())) return nullptr;

  char text[kRecordTextSize];
  COAP_RPC_DEBUG(ser->owner, "[CoapRpc]create listen success, %s.\n",
                 COAP_RpcSerGetListenStr_(addr, text, sizeof(text)));
  return listen.release();
}

CoapRpcSerUriVtbl *COAP_RpcSerConnIsBindVtbl(CoapRpcSerListen *listen, const CoapRpcUriKey *key) {
  return EntriesOf(listen).FindIf([=](const CoapRpcSerUriVtbl &entry) {
    return COAP_RpcUriKeyCmp(&entry.key, key) == 0 && entry.listen == listen;
  });
}

void COAP_RpcSerConnUnBindUriVtbl(const void *, const void *, CoapRpcSerUriVtbl *entry) {
  if (LinkIsAlone(entry->listenLink)) return;
  LinkRemove(entry->listenLink);
  entry->listen = nullptr;
}

void COAP_RpcSerConnUnBindAllUriVtbl(const void *, CoapRpcSerListen *listen) {
  EntriesOf(listen).Drain(
      [](CoapRpcSerUriVtbl *entry) { COAP_RpcSerConnUnBindUriVtbl(nullptr, nullptr, entry); });
}

void COAP_RpcSerConnTryDelListen(CoapRpcSerData *ser, CoapRpcSerListen *listen) {
  if (!EntriesOf(listen).IsEmpty()) return;
  // Off the table first: closing calls the application, which may attach to the same address.
  TableOf(ser).Remove(listen);
  ser->deleteEndPoint(ser->owner, listen);
  PoolFree(ser->owner->param.memHandle, listen);
}

char *COAP_RpcSerGetListenStr_(const CoapRpcSerListenAddr *addr, char *buf, uint32_t size) {
  char text[kAddrTextSize] = {};
  snprintf_truncated_s(buf, size, "addr:%s, port:%u",
                       COAP_RpcIpAddrGetStr(&addr->listenAddr, text, sizeof(text)), addr->port);
  return buf;
}
