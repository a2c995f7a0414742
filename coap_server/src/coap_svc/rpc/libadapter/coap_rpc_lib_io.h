/* coap_rpc_lib_io.h: turns of libcoap's I/O, by timer or by descriptor. */
#ifndef COAP_RPC_LIB_IO_H
#define COAP_RPC_LIB_IO_H

#include "coap_svc/rpc/libadapter/coap_rpc_lib_data.h"

COAP_RPC_C_BEGIN

/* I/O timers.  Start: 0 or 1900000156.  Refresh switches to the 100 ms task, once and for good:
 * 0 or 1900000171 (the 1000 ms timer is gone then; the next refresh tries again). */
COAP_RPC_API uint32_t COAP_RpcStartTaskTimer(CoapRpcCtx *ctx);
COAP_RPC_API void COAP_RpcStopTaskTimer(CoapRpcCtx *ctx);
COAP_RPC_API uint32_t COAP_RpcRefreshTaskTimer(CoapRpcCtx *ctx);
COAP_RPC_API void COAP_RpcSetSvcFlag(CoapRpcCtx *ctx);

/* CoapRpcLibStartTimer, CoapRpcLibStopTimer: the same for a record that the instance may not have
 * yet, or no longer. */
uint32_t CoapRpcLibStartTimer(CoapRpcCtx *ctx, CoapRpcLibCtx *lib);
void CoapRpcLibStopTimer(CoapRpcCtx *ctx, CoapRpcLibCtx *lib);

/* Timer ticks; `root` is the root context.  ProcTask makes 1 call of coap_io_process, up to 256
 * while the service flag is set; ProcQuickTask makes 25.  None of them waits. */
COAP_RPC_API uint32_t COAP_RpcProcTask(void *root);
COAP_RPC_API uint32_t COAP_RpcProcQuickTask(void *root);

/* CoapRpcLibRunSoon makes the I/O run within a millisecond: by the descriptor, which the caller has
 * made readable, or by a timer of its own on a host that has never served that. */
void CoapRpcLibRunSoon(CoapRpcCtx *ctx);

/* CoapRpcLibRetired frees what has just been given up, endpoints and resources; inside libcoap's
 * I/O, which may be using it, when the turn ends. */
void CoapRpcLibRetired(CoapRpcCtx *ctx);

COAP_RPC_C_END
#endif /* COAP_RPC_LIB_IO_H */
