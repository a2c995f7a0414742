#include "coap_svc/rpc/init/coap_rpc_cli.h"

#include <iterator>

#include "coap_svc/rpc/client/coap_rpc_cli_data.h"
#include "coap_svc/rpc/client/coap_rpc_cli_disp.h"
#include "coap_svc/rpc/client/coap_rpc_cli_req.h"
#include "coap_svc/rpc/client/coap_rpc_cli_session.h"
#include "coap_svc/rpc/client/coap_rpc_cli_uri.h"
#include "coap_svc/rpc/init/coap_rpc_main.h"
#include "coap_svc/rpc/init/coap_rpc_side.h"

using namespace coap_rpc;

const KST_ModEntry g_CoapRpcCliModVTbl[] = {
    {COAP_RpcCliVtblInit, COAP_RpcCliVtblUninit},        // URI-table operation slots
    {COAP_RpcCliSessionInit, COAP_RpcCliSessionUninit},  // sessionTree, aging list and timer
    {COAP_RpcCliReqInit, COAP_RpcCliReqUninit},          // reqTree, resend list and timer
    {COAP_RpcCliUriInit, COAP_RpcCliUriUninit},          // uriVtblTree
    {COAP_RpcCliDispInit, COAP_RpcCliDispUninit},        // display commands
};
static_assert(std::size(g_CoapRpcCliModVTbl) == COAP_RPC_CLI_MOD_ROWS);

namespace {

const SideModules<CoapRpcCliData> kClient{&CoapRpcCtx::cli, g_CoapRpcCliModVTbl,
                                          COAP_RPC_CLI_MOD_ROWS, kSiteCliInitNoMemory,
                                          kSiteCliInitModules};

}  // namespace

uint32_t COAP_RpcCliInit(void *root) { return SideInit(static_cast<CoapRpcCtx *>(root), kClient); }

uint32_t COAP_RpcCliUninit(void *root) {
  return SideUninit(static_cast<CoapRpcCtx *>(root), kClient);
}

CoapRpcCliData *COAP_RpcCliDataCreate_(CoapRpcCtx *ctx) { return SideCreate<CoapRpcCliData>(ctx); }

void COAP_RpcCliDataDelete_(CoapRpcCtx *ctx) { SideDelete(ctx, &CoapRpcCtx::cli); }
