#include <iterator>

#include "coap_svc/rpc/coap_rpc_ser.h"
#include "coap_svc/rpc/init/coap_rpc_main.h"
#include "coap_svc/rpc/init/coap_rpc_side.h"
#include "coap_svc/rpc/server/coap_rpc_ser_conn.h"
#include "coap_svc/rpc/server/coap_rpc_ser_data.h"
#include "coap_svc/rpc/server/coap_rpc_ser_disp.h"
#include "coap_svc/rpc/server/coap_rpc_ser_res.h"
#include "coap_svc/rpc/server/coap_rpc_ser_uri.h"

using namespace coap_rpc;

const KST_ModEntry g_CoapRpcSerModVTbl[] = {
    {COAP_RpcSerVtblInit, COAP_RpcSerVtblUninit},          // operation slots
    {COAP_RpcSerResourceInit, COAP_RpcSerResourceUninit},  // uriResTree
    {COAP_RpcSerConnInit, COAP_RpcSerConnUninit},          // listenTree, endpoints
    {COAP_RpcSerUriInit, COAP_RpcSerUriUninit},            // uriVtblTree, tuples, changes
    {COAP_RpcSerDispInit, COAP_RpcSerDispUninit},          // display commands
};
static_assert(std::size(g_CoapRpcSerModVTbl) == COAP_RPC_SER_MOD_ROWS);

namespace {

const SideModules<CoapRpcSerData> kServer{&CoapRpcCtx::ser, g_CoapRpcSerModVTbl,
                                          COAP_RPC_SER_MOD_ROWS, kSiteSerInitNoMemory,
                                          kSiteSerInitModules};

}  // namespace

uint32_t COAP_RpcSerInit(void *root) { return SideInit(static_cast<CoapRpcCtx *>(root), kServer); }

uint32_t COAP_RpcSerUninit(void *root) {
  return SideUninit(static_cast<CoapRpcCtx *>(root), kServer);
}

CoapRpcSerData *COAP_RpcSerDataCreate_(CoapRpcCtx *ctx) { return SideCreate<CoapRpcSerData>(ctx); }

void COAP_RpcSerDataDelete_(CoapRpcCtx *ctx) { SideDelete(ctx, &CoapRpcCtx::ser); }
