/* coap_rpc_lib_mirror_io.h: the sessions and messages of mirrors. */
#ifndef COAP_RPC_LIB_MIRROR_IO_H
#define COAP_RPC_LIB_MIRROR_IO_H

#include "coap_svc/rpc/libadapter/mirror/coap_rpc_lib_mirror_record.h"

namespace coap_rpc {

// TakeMirrorMessage takes a response or notification that came through a mirror's session; false:
// it did not.
bool TakeMirrorMessage(coap_session_t *session, const coap_pdu_t *received);

// DropMirrorBlock sets the order of a response (CoapRpcLibSetOrder) that is a block which no page
// reaches: libcoap would make room for all that is before it.  False for all others.
bool DropMirrorBlock(coap_session_t *session, const coap_pdu_t *received, int *order);

// TakeMirrorNack takes what became of a message; false when the session is no mirror's.
bool TakeMirrorNack(coap_session_t *session, const coap_pdu_t *sent, coap_nack_reason_t reason);

// PumpMirror does all that the mirror has to do now, and says when it is due next.  Not while it
// may call back.
void PumpMirror(CoapRpcMirror *mirror, uint64_t nowMs);

// ReleaseMirrorSession closes the session of a mirror, which tells the server that it does not
// observe any more.  Not inside libcoap's I/O.
void ReleaseMirrorSession(coap_session_t *session);

}  // namespace coap_rpc

#endif /* COAP_RPC_LIB_MIRROR_IO_H */
