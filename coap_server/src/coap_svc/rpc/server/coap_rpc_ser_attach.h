/* coap_rpc_ser_attach.h: attaching a registered URI to a listen and to its uri's resource.
 *
 * The listen comes first, the resource second; detaching goes the same way.  Either is made by its
 * first entry and deleted with its last one. */
#ifndef COAP_RPC_SER_ATTACH_H
#define COAP_RPC_SER_ATTACH_H

#include "coap_svc/rpc/server/coap_rpc_ser_conn.h"
#include "coap_svc/rpc/server/coap_rpc_ser_res.h"

COAP_RPC_C_BEGIN

/* COAP_RpcSerCreatListen makes a listen with its endpoint and attaches the key; the spelling is
 * fixed.  Returns 0, 1900000152, 1900000157 or 1900000163 (see COAP_RpcSerSetUri). */
COAP_RPC_API uint32_t COAP_RpcSerCreatListen(CoapRpcCtx *ctx, const CoapRpcUriKey *key,
                                             const CoapRpcSerListenAddr *addr);

/* COAP_RpcSerUpdateListen attaches the key to an existing listen.  Returns 0 or 1900000177. */
COAP_RPC_API uint32_t COAP_RpcSerUpdateListen(CoapRpcCtx *ctx, CoapRpcSerListen *listen,
                                              const CoapRpcUriKey *key);

/* COAP_RpcSerTryDelListen detaches a key.  Returns 0, the resource step's result, or 1900001201
 * when the key is registered but not attached. */
COAP_RPC_API uint32_t COAP_RpcSerTryDelListen(CoapRpcCtx *ctx, const CoapRpcUriKey *key);

/* COAP_RpcSerConnBindUriVtbl attaches a registered entry, taking it off its old listen.  Returns
 * the entry; null for an unregistered key, and the listen is then deleted when it is empty. */
COAP_RPC_API CoapRpcSerUriVtbl *COAP_RpcSerConnBindUriVtbl(CoapRpcSerData *ser,
                                                           CoapRpcSerListen *listen,
                                                           const CoapRpcUriKey *key);

/* COAP_RpcCreateOrUpdateUriRes binds a key's entry to its uri's record and makes or refreshes the
 * CoAP resource.  Failures are logged, never returned; a uri of 64 characters is left alone. */
COAP_RPC_API void COAP_RpcCreateOrUpdateUriRes(CoapRpcCtx *ctx, const CoapRpcUriKey *key);

/* COAP_RpcTryDelUriRes unbinds a key from its uri's record, deleting both with the last entry.
 * Returns 0, strcpy_s's error for a uri of 64 characters, or 1900001221 when the key was not
 * bound. */
COAP_RPC_API uint32_t COAP_RpcTryDelUriRes(CoapRpcCtx *ctx, const CoapRpcUriKey *key);

/* COAP_RpcSerResBindUriVtbl moves a registered key's entry to this record.  Returns it, or null
 * for an unregistered key. */
COAP_RPC_API CoapRpcSerUriVtbl *COAP_RpcSerResBindUriVtbl(CoapRpcSerData *ser,
                                                          CoapRpcSerUriRes *res,
                                                          const CoapRpcUriKey *key);

COAP_RPC_C_END
#endif /* COAP_RPC_SER_ATTACH_H */
