/* coap_rpc_ser_disp.h: display commands that print the server tables. */
#ifndef COAP_RPC_SER_DISP_H
#define COAP_RPC_SER_DISP_H

#include "coap_svc/rpc/server/coap_rpc_ser_data.h"
#include "coap_svc/rpc/server/coap_rpc_ser_res.h"

COAP_RPC_C_BEGIN

/* Module rows; the record is the CoapRpcSerData.  Uninit returns the low 32 bits of its argument.
 */
COAP_RPC_API uint32_t COAP_RpcSerDispInit(void *ser);
COAP_RPC_API uint32_t COAP_RpcSerDispUninit(void *ser);

/* Command handlers; `ctx` is the CoapRpcCtx, pcUri (const char *) follows where a uri is asked for.
 * The table dumps print one record per invocation. */
COAP_RPC_API uint32_t COAP_RpcDispSerVtbl_(void *ctx, ...);
COAP_RPC_API uint32_t COAP_RpcDispTupleSetTree_(void *ctx, ...);
COAP_RPC_API uint32_t COAP_RpcDispTupleChgList_(void *ctx, ...);
COAP_RPC_API uint32_t COAP_RpcDispSerResource_(void *ctx, ...);
COAP_RPC_API uint32_t COAP_RpcDispSerListen_(void *ctx, ...);

/* Record texts.  All return buf. */
COAP_RPC_API char *COAP_RpcGetSerUriVtblStr_(const CoapRpcSerUriVtbl *entry, char *buf,
                                             uint32_t size);
COAP_RPC_API char *COAP_RpcGetSerUriResStr_(const CoapRpcSerUriRes *res, char *buf, uint32_t size);
COAP_RPC_API char *COAP_RpcGetSerListenStr_(const CoapRpcSerListen *listen, char *buf,
                                            uint32_t size);

COAP_RPC_API void COAP_RpcDispOneTuple_(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry,
                                        const CoapRpcUriTuple *tuple);
COAP_RPC_API void COAP_RpcDispOneChgTuple_(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry,
                                           const CoapRpcTupleChg *chg);
COAP_RPC_API const char *COAP_RpcGetTupleKeyStr(const CoapRpcSerUriVtbl *entry, const void *key,
                                                char *buf, uint32_t size);
COAP_RPC_API const char *COAP_RpcGetTupleValStr(const CoapRpcSerUriVtbl *entry, const void *val,
                                                char *buf, uint32_t size);

COAP_RPC_C_END
#endif /* COAP_RPC_SER_DISP_H */
