/* coap_rpc_lib_rpc_call_share.h: observations that share a registration.
 *
 * The story is told at the head of the source file. */
#ifndef COAP_RPC_LIB_RPC_CALL_SHARE_H
#define COAP_RPC_LIB_RPC_CALL_SHARE_H

#include "coap_svc/rpc/libadapter/rpc_call/coap_rpc_lib_rpc_call_record.h"

namespace coap_rpc {

using Followers = COAP_RPC_LIST(CallWatch, followLink);

// JoinShare makes a new observation a follower of the one that has the same registration already.
// False: no other does, and the observation leads from now on.
bool JoinShare(CoapRpcCtx *ctx, RpcCall *call);

inline bool IsFollower(const RpcCall &call) { return call.watch && !call.watch->request; }
inline bool HasFollowers(const RpcCall &call) {
  return call.watch && !LinkIsAlone(call.watch->followers);
}

// TakeFollowers moves the followers of an observation that ends to a list; they follow nobody then.
void TakeFollowers(RpcCall *call, Followers *out);

// LeaveShare takes an observation off its leader, and returns this one when nobody is left who
// would hear of it; else null.
RpcCall *LeaveShare(RpcCall *call);

// TellFollowers hands a notification to the followers that are there now.  To be called inside the
// I/O, so that the leader outlives whatever their callbacks do.
void TellFollowers(CoapRpcCtx *ctx, RpcCall *leader, const coap_pdu_t *message);

}  // namespace coap_rpc

#endif /* COAP_RPC_LIB_RPC_CALL_SHARE_H */
