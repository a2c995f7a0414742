/* coap_rpc_lib_lookup.h: which registered handler table an incoming message belongs to. */
#ifndef COAP_RPC_LIB_LOOKUP_H
#define COAP_RPC_LIB_LOOKUP_H

#include <coap3/coap.h>

#include "coap_svc/rpc/common/coap_rpc_ctx.h"

COAP_RPC_C_BEGIN

typedef struct CoapRpcCliUriVtbl CoapRpcCliUriVtbl;

/* COAP_RpcCliGetVtbl finds the client table of a response or notification by its path, message
 * type (ACK counts as CON) and Observe option, then with the other message type.  Null when there
 * is none or the path is longer than 32 characters. */
COAP_RPC_API CoapRpcCliUriVtbl *COAP_RpcCliGetVtbl(CoapRpcCtx *ctx, const coap_pdu_t *pdu);

/* CoapRpcLibPathOf writes a message's path as it is looked up, "" for one without or with a path
 * that is too long.  Returns `path`, COAP_RPC_URI_SIZE bytes. */
const char *CoapRpcLibPathOf(const coap_pdu_t *pdu, char *path);

/* COAP_RpcSerGetVtbl finds the server entry of a request: a DEFAULT one of either message type
 * (not for POST), then a UNICAST and last a BROADCAST one bound to the receiving address. */
COAP_RPC_API CoapRpcSerUriVtbl *COAP_RpcSerGetVtbl(CoapRpcCtx *ctx, const coap_pdu_t *pdu,
                                                   const coap_session_t *session);

/* CoapRpcLibResourceOf finds the resource of an entry's uri; null when it is not attached. */
coap_resource_t *CoapRpcLibResourceOf(CoapRpcCtx *ctx, const CoapRpcSerUriVtbl *entry);

/* CoapRpcLibObservableVtbl finds the entry that a request would have with the Observe option, or,
 * with `isOfOtherType`, as a message of the other type, CON or NON, beside that. */
CoapRpcSerUriVtbl *CoapRpcLibObservableVtbl(CoapRpcCtx *ctx, const coap_pdu_t *pdu,
                                            const coap_session_t *session, uint32_t isOfOtherType);

/* CoapRpcLibFindObservable goes through all observable entries of a request's path, attached or
 * not.  Returns the first of which `is` says so, or null. */
CoapRpcSerUriVtbl *CoapRpcLibFindObservable(CoapRpcCtx *ctx, const coap_pdu_t *pdu,
                                            int (*is)(CoapRpcSerUriVtbl *entry, const void *arg),
                                            const void *arg);

/* COAP_RpcSerGetVtblByFuzzyMsgType finds a server entry by key, then with the other message type.
 */
COAP_RPC_API CoapRpcSerUriVtbl *COAP_RpcSerGetVtblByFuzzyMsgType(CoapRpcCtx *ctx,
                                                                 const CoapRpcUriKey *key);

/* COAP_GetRpcAndSerUriVtbl finds a request's instance and entry from its resource.
 *
 * Returns 0 or:  1900000198 the resource carries no instance   1900000203 no entry matches */
COAP_RPC_API uint32_t COAP_GetRpcAndSerUriVtbl(coap_resource_t *resource,
                                               const coap_session_t *session, const coap_pdu_t *pdu,
                                               CoapRpcCtx **ctx, CoapRpcSerUriVtbl **entry);

/* COAP_RpcLogVTbl writes the debug line of a look-up bound to a listen. */
COAP_RPC_API void COAP_RpcLogVTbl(CoapRpcCtx *ctx, const CoapRpcUriKey *key, uint32_t ipv4);

/* CoapRpcLibIsDynamicMac recognises the one uri with rules of its own, "terminals/dynamic-mac": its
 * client tables are registered as BROADCAST, its server entries are found as DEFAULT also for POST,
 * and each of its requests draws a token.  Returns 1 or 0. */
uint32_t CoapRpcLibIsDynamicMac(const CoapRpcUriKey *key);

COAP_RPC_C_END
#endif /* COAP_RPC_LIB_LOOKUP_H */
