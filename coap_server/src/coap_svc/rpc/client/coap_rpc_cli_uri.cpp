#include "coap_svc/rpc/client/coap_rpc_cli_uri.h"

#include "coap_svc/rpc/client/coap_rpc_cli_resend.h"
#include "coap_svc/rpc/common/coap_rpc_key.h"
#include "coap_svc/rpc/common/coap_rpc_log_site.h"
#include "coap_svc/rpc/common/coap_rpc_own.h"
#include "coap_svc/rpc/common/coap_rpc_stopwatch.h"
#include "coap_svc/rpc/common/coap_rpc_table.h"

namespace {

using namespace coap_rpc;

using UriTable = COAP_RPC_TABLE(CoapRpcCliUriVtbl, key, CoapRpcUriKey, COAP_RpcUriKeyCmp);

}  // namespace

uint32_t COAP_RpcCliVtblInit(void *record) {
  auto *cli = static_cast<CoapRpcCliData *>(record);
  cli->findUriVtbl = COAP_RpcCliFindUriVtbl;
  cli->findFirstUriVtbl = COAP_RpcCliFindFirstUriVtbl;
  cli->findNextUriVtbl = COAP_RpcCliFindNextUriVtbl;
  cli->resendRequest = COAP_RpcResendRequest;
  return 0;
}

uint32_t COAP_RpcCliVtblUninit(void *record) {
  auto *cli = static_cast<CoapRpcCliData *>(record);
  if (!cli) return 0;
  cli->findUriVtbl = nullptr;
  cli->findFirstUriVtbl = nullptr;
  cli->findNextUriVtbl = nullptr;
  cli->resendRequest = nullptr;
  return 0;
}

uint32_t COAP_RpcCliUriInit(void *record) {
  auto *cli = static_cast<CoapRpcCliData *>(record);
  UriTable(cli->uriVtblTree).Init();
  return 0;
}

uint32_t COAP_RpcCliUriUninit(void *record) {
  auto *cli = static_cast<CoapRpcCliData *>(record);
  if (!cli) return 0;
  UriTable(cli->uriVtblTree).Drain([cli](CoapRpcCliUriVtbl *uriVtbl) {
    COAP_RpcCliDelUriVtbl(cli, uriVtbl);
  });
  return 0;
}

uint32_t COAP_RpcUriRegCliVtbl(CoapRpcCliData *cli, const CoapRpcUriKey *key,
                               const CoapRpcCliVtblReg *reg) {
  if (COAP_RpcCliFindUriVtbl(cli, key)) {
    COAP_RPC_DEBUG(cli->owner,
                   "[CoapRpc]Dup cli uriVtbl reg, uri:%s, msgType:%u, observe:%u, pktType:%u.\n",
                   COAP_RPC_KEY_ARGS(*key));
    return 0;
  }
  if (!COAP_RpcCliAddUriVtbl(cli, key, reg)) return Code(kSiteCliUriAddFailed);
  COAP_RPC_DEBUG(cli->owner,
                 "[CoapRpc]add cli Vtbl reg success, uri:%s, msgType:%u, observe:%u, "
                 "pktType:%u.\n",
                 COAP_RPC_KEY_ARGS(*key));
  return 0;
}

CoapRpcCliUriVtbl *COAP_RpcCliAddUriVtbl(CoapRpcCliData *cli, const CoapRpcUriKey *key,
                                         const CoapRpcCliVtblReg *reg) {
  auto uriVtbl = NewZeroed<CoapRpcCliUriVtbl>(cli->owner->param.memHandle);
  if (!uriVtbl) return nullptr;
  uriVtbl->key = *key;
  uriVtbl->reg = *reg;
  if (!UriTable(cli->uriVtblTree).Insert(uriVtbl.get())) return nullptr;
  return uriVtbl.release();
}

void COAP_RpcCliDelUriVtbl(CoapRpcCliData *cli, CoapRpcCliUriVtbl *uriVtbl) {
  if (!uriVtbl) return;
  UriTable(cli->uriVtblTree).Remove(uriVtbl);
  CallbackTime::Forget(cli->owner, uriVtbl->key.uri);
  PoolFree(cli->owner->param.memHandle, uriVtbl);
}

CoapRpcCliUriVtbl *COAP_RpcCliFindUriVtbl(CoapRpcCliData *cli, const CoapRpcUriKey *key) {
  return UriTable(cli->uriVtblTree).Find(key);
}

CoapRpcCliUriVtbl *COAP_RpcCliFindFirstUriVtbl(CoapRpcCliData *cli) {
  return UriTable(cli->uriVtblTree).First();
}

CoapRpcCliUriVtbl *COAP_RpcCliFindNextUriVtbl(CoapRpcCliData *cli, const CoapRpcUriKey *key) {
  return UriTable(cli->uriVtblTree).After(key);
}
