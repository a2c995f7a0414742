/* coap_rpc_lib_source.h: the local address that a client session sends from.
 *
 * The system chooses it when a session's socket is connected, and never again: when that address is
 * removed, or the way to the peer leads through another interface, the socket keeps what it has.
 * Sends then fail (IPv4, as a rule) or leave with an address that no answer finds (IPv6).  A
 * session that follows its source is looked at when something went wrong, and only then:
 *
 *   a send fails               the system is asked which address it would choose now; when it is
 *                              another one, the socket moves there and the message is sent again
 *   no acknowledgement in time the socket moves when its address is this machine's no more
 *   a message is given up      as for a send that fails
 *
 * While the system knows no way to the peer at all, nothing moves: the address may come back.  The
 * port stays the same.  The server knows a moved session no more, nor its observe relations: with
 * keep-alive the move counts as a ping without answer. */
#ifndef COAP_RPC_LIB_SOURCE_H
#define COAP_RPC_LIB_SOURCE_H

#include <coap3/coap.h>

#include "coap_svc/rpc/coap_rpc_types.h"

COAP_RPC_C_BEGIN

/* CoapRpcLibFollowSource lets a client session follow its source.  Not for one that is bound to an
 * address: there is no other one to send from. */
void CoapRpcLibFollowSource(coap_session_t *session);

/* CoapRpcLibLeaveLost moves a session that follows its source when its address was removed,
 * CoapRpcLibLeaveStale when the system would choose another one.  Return 1 when the session has
 * moved and keep-alive is on, so that somebody wants to know; else 0. */
int CoapRpcLibLeaveLost(coap_session_t *session);
int CoapRpcLibLeaveStale(coap_session_t *session);

/* CoapRpcLibRenewSource lets the system choose again from which address a session sends, whatever
 * it has now. */
void CoapRpcLibRenewSource(coap_session_t *session);

/* CoapRpcLibIsLost says whether an address is not one of this machine's: nothing can be bound to
 * it. CoapRpcLibIsCutOff says so of the address of a session that does not follow its source. */
int CoapRpcLibIsLost(const coap_address_t *addr);
int CoapRpcLibIsCutOff(coap_session_t *session);

COAP_RPC_C_END
#endif /* COAP_RPC_LIB_SOURCE_H */
