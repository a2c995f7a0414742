/* coap_rpc_lib_rpc_call_peer.h: the sessions that calls go out on, and their turns. */
#ifndef COAP_RPC_LIB_RPC_CALL_PEER_H
#define COAP_RPC_LIB_RPC_CALL_PEER_H

#include "coap_svc/rpc/libadapter/rpc_call/coap_rpc_lib_rpc_call_record.h"

namespace coap_rpc {

// CheckCallAddr returns 0 or the code of what is wrong with an address.
uint32_t CheckCallAddr(const CoapRpcCallAddr &addr);

// IsAny says whether a source leaves the address to the system.
bool IsAny(const CoapRpcIpAddr &ip);

// SessionAddrOf says between which addresses the session of a call is; the source is zero when it
// may be any.
CoapRpcCliAddr SessionAddrOf(const CoapRpcCallAddr &addr);

// OpenCallPeer finds or opens the session of an address.  Returns 0 or a code.  ReleaseCallPeer
// gives a peer without calls back: the session ages from then on.
uint32_t OpenCallPeer(CoapRpcCtx *ctx, CoapRpcCalls *calls, const CoapRpcCallAddr &addr,
                      RpcCallPeer **out);
void ReleaseCallPeer(CoapRpcCtx *ctx, CoapRpcCalls *calls, RpcCallPeer *peer);

// FindCallPeer returns the calls of a libcoap session, or null.
RpcCallPeer *FindCallPeer(CoapRpcCtx *ctx, coap_session_t *session);

// A call joins a peer, is queued or among the sent ones, or neither once it has ended, and leaves.
// The last one that leaves releases the peer.
void JoinPeer(RpcCall *call, RpcCallPeer *peer);
void QueueCall(CoapRpcCalls *calls, RpcCall *call);
void MoveToSent(CoapRpcCalls *calls, RpcCall *call);
void TakeOffPeer(CoapRpcCalls *calls, RpcCall *call);
void LeavePeer(CoapRpcCtx *ctx, CoapRpcCalls *calls, RpcCall *call);

// FirstOf returns a call of the peer that has not ended; null for none.
RpcCall *FirstOf(RpcCallPeer *peer);

// HasTurn says whether a call can go out on the peer's session now.
bool HasTurn(const RpcCallPeer &peer, bool isNon);

inline coap_session_t *SessionOf(const RpcCall &call) { return call.peer->coapSession; }

}  // namespace coap_rpc

#endif /* COAP_RPC_LIB_RPC_CALL_PEER_H */
