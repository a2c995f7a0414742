/* coap_rpc_lib_ctx.h: libcoap's life in an instance, its endpoints and resources.
 *
 * The server and client sides reach these operations only through their slots.  libcoap is entered
 * from the host thread only and is never given a thread of its own. */
#ifndef COAP_RPC_LIB_CTX_H
#define COAP_RPC_LIB_CTX_H

#include <coap3/coap.h>

#include "coap_svc/rpc/coap_rpc_ser.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_data.h"

COAP_RPC_C_BEGIN

typedef struct CoapRpcSerListen CoapRpcSerListen;

/* Module rows of the adapter; the record is the root context.  libcoap's log goes to the instance
 * that started last, until any instance of the process stops: VtblUninit ignores its argument. */
COAP_RPC_API uint32_t COAP_RpcLibVtblInit(void *root);
COAP_RPC_API uint32_t COAP_RpcLibVtblUninit(void *notRead);
COAP_RPC_API uint32_t COAP_RpcCtxInit(void *root);
COAP_RPC_API uint32_t COAP_RpcCtxUninit(void *root);

/* COAP_RpcLibStartup_ starts libcoap for the instance and the 1000 ms I/O timer (whose failure is
 * not reported).  Returns 0 or 1900000434 when libcoap makes no context. */
COAP_RPC_API uint32_t COAP_RpcLibStartup_(CoapRpcCtx *ctx, CoapRpcLibCtx *lib);

/* COAP_RpcLibCleanup_ frees the libcoap context and stops the I/O timer; does nothing when none is
 * started.  libcoap's process-wide state is cleaned up with the last instance. */
COAP_RPC_API void COAP_RpcLibCleanup_(CoapRpcCtx *ctx, CoapRpcLibCtx *lib);

/* COAP_RpcCreateEndPoint opens a UDP endpoint.  Up to three attempts, each failed one followed by
 * a second of sleep.  Returns the endpoint or null.
 *
 * The endpoint has its address and port for itself: it cannot be opened while any socket of the
 * machine holds them, and no other socket can be bound to them afterwards, be it with SO_REUSEADDR
 * or SO_REUSEPORT, in this process or another, to the same address or to the wildcard address of
 * its family.  An IPv6 endpoint takes IPv6 only and leaves the port to an IPv4 one. */
COAP_RPC_API coap_endpoint_t *COAP_RpcCreateEndPoint(CoapRpcCtx *ctx,
                                                     const CoapRpcSerListenAddr *addr);

/* CoapRpcLibOpenEndPoint is one attempt of it, without sleep. */
coap_endpoint_t *CoapRpcLibOpenEndPoint(CoapRpcCtx *ctx, const CoapRpcSerListenAddr *addr);

/* COAP_RpcDeleteEndPoint disconnects the sessions of a listen's endpoint, frees it and clears the
 * listen's field.  Null listens and endpoints are ignored.
 *
 * Called by a callback inside libcoap's I/O, the endpoint takes no further datagram but keeps
 * its address until libcoap is done with the run, so that the answer under way still leaves.  Such
 * an address can be opened again at once; a resource deleted there can be made again too.
 *
 * Calls onObserverNum for each observer that leaves.  What such a callback gives up or takes back
 * is treated in the same way, this endpoint included. */
COAP_RPC_API void COAP_RpcDeleteEndPoint(CoapRpcCtx *ctx, CoapRpcSerListen *listen);

/* COAP_RpcCreateOrUpdateResource makes the resource of a key's uri, or makes an existing one
 * observable when the key is.  Returns 0 or 1900000071 when libcoap makes no resource. */
COAP_RPC_API uint32_t COAP_RpcCreateOrUpdateResource(CoapRpcCtx *ctx, const CoapRpcUriKey *key);

/* COAP_RpcDeleteResource deletes the resource of a uri, if there is one, as endpoints are deleted.
 */
COAP_RPC_API void COAP_RpcDeleteResource(CoapRpcCtx *ctx, const char *uri);

COAP_RPC_C_END
#endif /* COAP_RPC_LIB_CTX_H */
