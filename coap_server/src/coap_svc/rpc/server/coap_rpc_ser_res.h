/* coap_rpc_ser_res.h: uris for which a CoAP resource exists.
 *
 * All attached entries of a uri share one record, and the CoAP resource lives as long as it has an
 * entry.  Requests are matched to entries by key, not through this record. */
#ifndef COAP_RPC_SER_RES_H
#define COAP_RPC_SER_RES_H

#include "coap_svc/rpc/server/coap_rpc_ser_entry.h"

COAP_RPC_C_BEGIN

typedef struct CoapRpcSerUriRes {
  OSAL_AVL3_NODE node;
  char uri[COAP_RPC_URI_SIZE];
  CoapRpcLink uriDataList; /* CoapRpcSerUriVtbl by resLink, in bind order */
} CoapRpcSerUriRes;

/* Module rows; the record is the CoapRpcSerData. */
COAP_RPC_API uint32_t COAP_RpcSerResourceInit(void *ser);
COAP_RPC_API uint32_t COAP_RpcSerResourceUninit(void *ser);

/* `uri` is a 64-byte field, NUL-padded. */
COAP_RPC_API CoapRpcSerUriRes *COAP_RpcSerFindUriRes(CoapRpcSerData *ser, const char *uri);
COAP_RPC_API CoapRpcSerUriRes *COAP_RpcSerFindFirstUriRes(CoapRpcSerData *ser);
COAP_RPC_API CoapRpcSerUriRes *COAP_RpcSerFindNextUriRes(CoapRpcSerData *ser, const char *uri);
COAP_RPC_API CoapRpcSerUriRes *COAP_RpcSerAddUriRes(CoapRpcSerData *ser, const char *uri);

/* COAP_RpcSerTryDelUriRes deletes a record without entries and its CoAP resource. */
COAP_RPC_API void COAP_RpcSerTryDelUriRes(CoapRpcSerData *ser, CoapRpcSerUriRes *res);

COAP_RPC_API CoapRpcSerUriVtbl *COAP_RpcSerResIsBindVtbl(CoapRpcSerUriRes *res,
                                                         const CoapRpcUriKey *key);
COAP_RPC_API void COAP_RpcSerResUnBindUriVtbl(const void *notRead1, const void *notRead2,
                                              CoapRpcSerUriVtbl *entry);
COAP_RPC_API void COAP_RpcSerResUnBindAllUriVtbl(const void *notRead, CoapRpcSerUriRes *res);

COAP_RPC_C_END
#endif /* COAP_RPC_SER_RES_H */
