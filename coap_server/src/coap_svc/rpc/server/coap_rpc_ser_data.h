/* coap_rpc_ser_data.h: the server side's context and the slots through which it is wired. */
#ifndef COAP_RPC_SER_DATA_H
#define COAP_RPC_SER_DATA_H

#include "coap_svc/rpc/coap_rpc_ser.h"
#include "coap_svc/rpc/common/coap_rpc_ctx.h"
#include "osal_avl3.h"

COAP_RPC_C_BEGIN

typedef struct CoapRpcSerListen CoapRpcSerListen;
typedef struct CoapRpcTupleChg CoapRpcTupleChg;
typedef struct CoapRpcUriTuple CoapRpcUriTuple;

/* CoapRpcSerData is the server side of an instance.  The first six operations are the adapter's,
 * null until the sides are wired; the next six are the server's own, for the adapter. */
struct CoapRpcSerData {
  CoapRpcCtx *owner;
  coap_endpoint_t *(*createEndPoint)(CoapRpcCtx *ctx, const CoapRpcSerListenAddr *addr);
  void (*deleteEndPoint)(CoapRpcCtx *ctx, CoapRpcSerListen *listen);
  uint32_t (*createOrUpdateResource)(CoapRpcCtx *ctx, const CoapRpcUriKey *key);
  void (*deleteResource)(CoapRpcCtx *ctx, const char *uri);
  uint32_t (*notifyObservers)(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry);
  uint32_t (*refreshTaskTimer)(CoapRpcCtx *ctx);
  CoapRpcSerUriVtbl *(*findUriVtbl)(CoapRpcSerData *ser, const CoapRpcUriKey *key);
  uint32_t (*procTupleChg)(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry, const CoapRpcUriKey *key,
                           const void *tupleKey, const void *tupleVal, uint32_t chgType);
  void (*delTupleChgData)(CoapRpcCtx *ctx, CoapRpcTupleChg *chg);
  CoapRpcUriTuple *(*getFirstUriTuple)(CoapRpcSerUriVtbl *entry);
  CoapRpcUriTuple *(*getNextUriTuple)(CoapRpcSerUriVtbl *entry, const CoapRpcUriTuple *tuple);
  uint32_t (*updateTuple)(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry, const void *tupleKey,
                          const void *tupleVal);
  OSAL_AVL3_TREE listenTree;  /* CoapRpcSerListen by address and port */
  OSAL_AVL3_TREE uriVtblTree; /* CoapRpcSerUriVtbl by key */
  OSAL_AVL3_TREE uriResTree;  /* CoapRpcSerUriRes by uri */
  uint8_t *reqBuf;            /* shared answer buffer, 65471 bytes; null until first used */
};

COAP_RPC_C_END
#endif /* COAP_RPC_SER_DATA_H */
