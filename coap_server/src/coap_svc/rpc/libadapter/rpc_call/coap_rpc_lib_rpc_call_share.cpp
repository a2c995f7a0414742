/* coap_rpc_lib_rpc_call_share.cpp: observations that share a registration.
 *
 * A server may keep one observer of a client for each request, whatever its token: libcoap replaces
 * the former one.  So of the observations of an instance that ask a server for the same, options
 * and all, one leads: it is registered.  The others follow it:
 *
 *   sent      the follower has heard nothing so far, and its own deadline counts.  It has let the
 *             leader register again, whose answer is the state of now
 *   watched   it has heard something.  It is told whatever the leader is told, and ends with it
 *
 * A leader that the application has cancelled is silent: it goes on until its last follower has
 * left, and then leaves the server.  Its deadline is that of each registration.
 *
 * A follower costs its record; it has no message. */
#include "coap_svc/rpc/libadapter/rpc_call/coap_rpc_lib_rpc_call_share.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "coap_svc/rpc/libadapter/coap_rpc_lib_data.h"
#include "coap_svc/rpc/libadapter/rpc_call/coap_rpc_lib_rpc_call.h"
#include "coap_svc/rpc/libadapter/rpc_call/coap_rpc_lib_rpc_call_peer.h"
#include "coap_svc/rpc/libadapter/rpc_call/coap_rpc_lib_rpc_call_timer.h"

namespace coap_rpc {
namespace {

// BecomeFollower gives up the message of an observation that needs none.
void BecomeFollower(RpcCall *call, RpcCall *leader) {
  coap_delete_pdu(std::exchange(call->pdu, nullptr));
  coap_delete_pdu(std::exchange(call->watch->request, nullptr));
  call->state = CallState::kSent;
  call->mid = COAP_INVALID_MID;
  call->watch->leader = leader;
  call->watch->round = leader->watch->round;
  Followers(leader->watch->followers).Append(call->watch);
}

}  // namespace

bool JoinShare(CoapRpcCtx *ctx, RpcCall *call) {
  RpcCall *leader = LeadWatch(ctx->lib->calls, call);
  if (leader == call) return false;
  BecomeFollower(call, leader);
  if (leader->state == CallState::kWatched) WaitFor(ctx, leader, 0);
  return true;
}

void TakeFollowers(RpcCall *call, Followers *out) {
  if (!call->watch) return;
  Followers(call->watch->followers).Drain([out](CallWatch *follower) {
    follower->leader = nullptr;
    out->Append(follower);
  });
}

RpcCall *LeaveShare(RpcCall *call) {
  if (!call->watch) return nullptr;
  LinkRemove(call->watch->followLink);
  RpcCall *leader = std::exchange(call->watch->leader, nullptr);
  return leader && !leader->onRsp && !HasFollowers(*leader) ? leader : nullptr;
}

// Those that have been told are at the end of the list, and those that have joined meanwhile.
void TellFollowers(CoapRpcCtx *ctx, RpcCall *leader, const coap_pdu_t *message) {
  Followers followers(leader->watch->followers);
  const uint32_t round = ++leader->watch->round;
  CallWatch *next = followers.First();
  for (; next && next->round != round; next = followers.First()) {
    followers.Append(next);
    next->round = round;
    next->call->state = CallState::kWatched;
    WaitFor(ctx, next->call, UINT32_MAX);
    TellCall(ctx, *next->call, message, 0);
  }
}

}  // namespace coap_rpc
