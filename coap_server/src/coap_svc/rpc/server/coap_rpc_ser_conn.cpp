#include "coap_svc/rpc/server/coap_rpc_ser_conn.h"

#include "coap_svc/rpc/common/coap_rpc_key.h"
#include "coap_svc/rpc/common/coap_rpc_limits.h"
#include "coap_svc/rpc/common/coap_rpc_list.h"
#include "coap_svc/rpc/common/coap_rpc_log_site.h"
#include "coap_svc/rpc/common/coap_rpc_own.h"
#include "coap_svc/rpc/common/coap_rpc_safe.h"
#include "coap_svc/rpc/common/coap_rpc_table.h"
#include "coap_svc/rpc/common/coap_rpc_text.h"
#include "coap_svc/rpc/server/coap_rpc_ser_res.h"
#include "coap_svc/rpc/server/coap_rpc_ser_uri.h"

using namespace coap_rpc;

namespace {

using ListenTable = COAP_RPC_TABLE(CoapRpcSerListen, key, CoapRpcSerListenAddr,
                                   COAP_RpcSerConnCmp_);
using ListenEntries = COAP_RPC_LIST(CoapRpcSerUriVtbl, listenLink);

ListenTable TableOf(CoapRpcSerData *ser) { return ListenTable(ser->listenTree); }

ListenEntries EntriesOf(CoapRpcSerListen *listen) { return ListenEntries(listen->uriDataList); }

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
  EntriesOf(listen).Append(entry);
  entry->listen = listen;
  RenewSource(ser, entry);
  COAP_RPC_DEBUG(ser->owner,
                 "[CoapRpc]create uri success, uri:%s, msgType:%u, observe:%u, pktType:%u.\n",
                 COAP_RPC_KEY_ARGS(*key));
  return entry;
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

uint32_t COAP_RpcSerTryDelListen(CoapRpcCtx *ctx, const CoapRpcUriKey *key) {
  CoapRpcSerUriVtbl *entry = COAP_RpcSerFindUriVtbl(ctx->ser, key);
  if (!entry) return 0;
  CoapRpcSerListen *listen = entry->listen;
  if (!listen) return Code(kSiteTryDelListenNotAttached);
  COAP_RpcSerConnUnBindUriVtbl(nullptr, nullptr, entry);
  COAP_RpcSerConnTryDelListen(ctx->ser, listen);
  // Attached again by a callback: the resource is in use.
  return entry->listen ? 0 : COAP_RpcTryDelUriRes(ctx, key);
}

char *COAP_RpcSerGetListenStr_(const CoapRpcSerListenAddr *addr, char *buf, uint32_t size) {
  char text[kAddrTextSize] = {};
  snprintf_truncated_s(buf, size, "addr:%s, port:%u",
                       COAP_RpcIpAddrGetStr(&addr->listenAddr, text, sizeof(text)), addr->port);
  return buf;
}
