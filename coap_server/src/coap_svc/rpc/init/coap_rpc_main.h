/* coap_rpc_main.h: module tables and the components' start and stop functions.
 *
 * Rows start in order and are unwound in reverse, all of them, whatever had started: every Uninit
 * copes with a null record, a zeroed one, one that was half made, and a second call. */
#ifndef COAP_RPC_MAIN_H
#define COAP_RPC_MAIN_H

#include "coap_svc/rpc/coap_rpc.h"
#include "coap_svc/rpc/common/coap_rpc_ctx.h"
#include "kst_mods.h"

COAP_RPC_C_BEGIN

enum {
  COAP_RPC_MOD_ROWS = 6,
  COAP_RPC_LIB_MOD_ROWS = 2,
  COAP_RPC_SER_MOD_ROWS = 5,
  COAP_RPC_CLI_MOD_ROWS = 5
};

COAP_RPC_API extern const KST_ModEntry g_CoapRpcModVTbl[COAP_RPC_MOD_ROWS];        /* root */
COAP_RPC_API extern const KST_ModEntry g_CoapRpcLibModVTbl[COAP_RPC_LIB_MOD_ROWS]; /* root */
COAP_RPC_API extern const KST_ModEntry g_CoapRpcSerModVTbl[COAP_RPC_SER_MOD_ROWS]; /* server */
COAP_RPC_API extern const KST_ModEntry g_CoapRpcCliModVTbl[COAP_RPC_CLI_MOD_ROWS]; /* client */

/* COAP_RpcDataNew_ allocates and fills the root record; null without memory.
 * COAP_RpcDataDelete_ frees the name and the record; null is accepted. */
COAP_RPC_API CoapRpcCtx *COAP_RpcDataNew_(const CoapRpcInitParam *param);
COAP_RPC_API void COAP_RpcDataDelete_(CoapRpcCtx *ctx);

/* Rows of g_CoapRpcModVTbl; the record is the root context.
 *
 *   DispInit    always 0            DispUninit  the host's result
 *   LibInit     0, 1900000048 no memory, 1900000053 a module did not start
 *   SerInit     0, 1900000054 no memory, 1900000060 a module did not start
 *   CliInit     as SerInit
 *   LibRegInit  always 0: stores the adapter's operations into both sides */
COAP_RPC_API uint32_t COAP_RpcDispInit(void *root);
COAP_RPC_API uint32_t COAP_RpcDispUninit(void *root);
COAP_RPC_API uint32_t COAP_RpcLibInit(void *root);
COAP_RPC_API uint32_t COAP_RpcLibUninit(void *root);
COAP_RPC_API uint32_t COAP_RpcSerInit(void *root);
COAP_RPC_API uint32_t COAP_RpcSerUninit(void *root);
COAP_RPC_API uint32_t COAP_RpcCliInit(void *root);
COAP_RPC_API uint32_t COAP_RpcCliUninit(void *root);
COAP_RPC_API uint32_t COAP_RpcLibRegInit(void *root);

/* Create allocates a zeroed sub-context without storing it, null without memory; Delete frees what
 * the root's field points at, its auxiliary block first, and clears the field. */
COAP_RPC_API CoapRpcLibCtx *COAP_RpclibDataCreate_(CoapRpcCtx *ctx);
COAP_RPC_API void COAP_RpclibDataDelete_(CoapRpcCtx *ctx);
COAP_RPC_API CoapRpcSerData *COAP_RpcSerDataCreate_(CoapRpcCtx *ctx);
COAP_RPC_API void COAP_RpcSerDataDelete_(CoapRpcCtx *ctx);
COAP_RPC_API CoapRpcCliData *COAP_RpcCliDataCreate_(CoapRpcCtx *ctx);
COAP_RPC_API void COAP_RpcCliDataDelete_(CoapRpcCtx *ctx);

COAP_RPC_C_END
#endif /* COAP_RPC_MAIN_H */
