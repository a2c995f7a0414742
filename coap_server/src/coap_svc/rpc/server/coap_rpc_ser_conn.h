/* coap_rpc_ser_conn.h: listens, one per local address and port that the server serves.
 *
 * A listen owns one CoAP endpoint and links the URI entries attached to it.  It is made by the
 * first attach and deleted by the last detach.  A listen whose endpoint could not be opened stays
 * without one; one whose last entry moved away stays until a detach or the end finds it empty. */
#ifndef COAP_RPC_SER_CONN_H
#define COAP_RPC_SER_CONN_H

#include "coap_svc/rpc/server/coap_rpc_ser_entry.h"

COAP_RPC_C_BEGIN

struct CoapRpcSerListen {
  OSAL_AVL3_NODE node;
  CoapRpcSerListenAddr key;
  coap_endpoint_t *endPoint; /* null when opening failed */
  CoapRpcLink uriDataList;   /* CoapRpcSerUriVtbl by listenLink, in attach order */
};

/* Module rows; the record is the CoapRpcSerData. */
COAP_RPC_API uint32_t COAP_RpcSerConnInit(void *ser);
COAP_RPC_API uint32_t COAP_RpcSerConnUninit(void *ser);

/* COAP_RpcSerConnCmp_ orders two CoapRpcSerListenAddr by address, then port: -1, 0 or 1. */
COAP_RPC_API int32_t COAP_RpcSerConnCmp_(const void *a, const void *b);

COAP_RPC_API CoapRpcSerListen *COAP_RpcSerConnFindListen(CoapRpcSerData *ser,
                                                         const CoapRpcSerListenAddr *addr);
COAP_RPC_API CoapRpcSerListen *COAP_RpcSerFindFirstListen(CoapRpcSerData *ser);
COAP_RPC_API CoapRpcSerListen *COAP_RpcSerFindNextListen(CoapRpcSerData *ser,
                                                         const CoapRpcSerListenAddr *addr);

/* COAP_RpcSerConnAddListen makes a listen without endpoint; null without memory or when there is
 * one for the address. */
COAP_RPC_API CoapRpcSerListen *COAP_RpcSerConnAddListen(CoapRpcSerData *ser,
                                                        const CoapRpcUriKey *notRead,
                                                        const CoapRpcSerListenAddr *addr);

/* COAP_RpcSerConnIsBindVtbl returns the entry with that key on this listen, or null. */
COAP_RPC_API CoapRpcSerUriVtbl *COAP_RpcSerConnIsBindVtbl(CoapRpcSerListen *listen,
                                                          const CoapRpcUriKey *key);

COAP_RPC_API void COAP_RpcSerConnUnBindUriVtbl(const void *notRead1, const void *notRead2,
                                               CoapRpcSerUriVtbl *entry);
COAP_RPC_API void COAP_RpcSerConnUnBindAllUriVtbl(const void *notRead, CoapRpcSerListen *listen);

/* COAP_RpcSerConnTryDelListen closes and frees a listen that has no entry. */
COAP_RPC_API void COAP_RpcSerConnTryDelListen(CoapRpcSerData *ser, CoapRpcSerListen *listen);

/* COAP_RpcSerGetListenStr_ writes "addr:%s, port:%u".  Returns buf. */
COAP_RPC_API char *COAP_RpcSerGetListenStr_(const CoapRpcSerListenAddr *addr, char *buf,
                                            uint32_t size);

COAP_RPC_C_END
#endif /* COAP_RPC_SER_CONN_H */
