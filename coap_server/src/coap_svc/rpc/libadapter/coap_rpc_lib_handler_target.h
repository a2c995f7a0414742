/* coap_rpc_lib_handler_target.h: client sessions through which asynchronous answers are sent.
 *
 * A target is one session to port 5683 of one peer for the answers of one entry.  It is
 *
 *   cached    the entry's last request came from its peer: entry->asyncSession is its session
 *   busy      another peer has asked the entry since, but requests are still unanswered, or libcoap
 *             is still sending or repeating an answer
 *   spare     neither: kept for a while, so that peers that take turns do not cost a socket each
 *
 * A request makes its peer's target cached, wherever that was, or opens one; the entry's former one
 * becomes busy.  Each turn of the I/O ends with a look at the busy ones without requests: the idle
 * among them become spare.  Spare ones are released at their age, the oldest first when there are
 * too many, and at once when their peer was found to be gone.  Entries share no target: an answer
 * never waits for another entry's. */
#ifndef COAP_RPC_LIB_HANDLER_TARGET_H
#define COAP_RPC_LIB_HANDLER_TARGET_H

#include <coap3/coap.h>

#include "coap_svc/rpc/common/coap_rpc_ctx.h"
#include "coap_svc/rpc/common/coap_rpc_list.h"
#include "coap_svc/rpc/common/coap_rpc_table.h"

namespace coap_rpc {

// PeerKey is where answers go.
struct PeerKey {
  uint8_t addr[16];
  uint16_t family;
  uint16_t port;
  uint32_t proto;
};

PeerKey PeerKeyOf(const coap_address_t &addr, coap_proto_t proto);

// Peer counts what its targets have in common.  It lives as long as one of them.
struct Peer {
  OSAL_AVL3_NODE node;  // in peerTree
  PeerKey key;
  uint32_t numTargets;
  uint32_t numOpen;  // requests that the application has been given and not answered
};

struct TargetKey {
  CoapRpcSerUriVtbl *entry;
  PeerKey peer;
};

struct Target {
  OSAL_AVL3_NODE node;      // in targetTree until its peer is gone or its entry is
  CoapRpcLink allLink;      // on targetList
  CoapRpcLink idleLink;     // on leavingList or spareList; alone while cached or with requests
  CoapRpcLink queuedLink;   // on queuedTargetList while answers are queued
  CoapRpcLink requestList;  // CoapRpcAsync, all of them
  CoapRpcLink heldList;     // of these, answers in blocks, queued after others in blocks
  CoapRpcLink readyList;    // of these, answers that libcoap gets as soon as it has sent others
  TargetKey key;
  Peer *peer;
  coap_session_t *session;  // referenced
  coap_tick_t spareSince;
  coap_mid_t fullUntil;  // libcoap has enough answers until it sends this one; or COAP_INVALID_MID
  uint32_t numQueued;    // answers of requestList, weighed
  uint32_t numBlocks;    // answers in blocks among them that are not held
  bool isCached;
  bool isSpare;
  bool isFailed;  // its peer is gone
  bool isClosed;  // its entry is gone: released when libcoap's I/O ends
};

// AcquireTarget gives an entry the target for a peer and makes it the cached one.  Null on failure,
// or when too many are open; the entry has none then.
Target *AcquireTarget(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry, const coap_address_t &peer,
                      coap_proto_t proto);

// LeaveTarget is to be called when the last request of a target ends.
void LeaveTarget(CoapRpcCtx *ctx, Target *target);

// FindTarget returns the target that a session belongs to, or null.  It looks at each target: call
// it only for what happens rarely.
Target *FindTarget(CoapRpcCtx *ctx, const coap_session_t *session);

// FailTarget notes that the peer of a target is gone: it is not kept when its requests have ended.
void FailTarget(CoapRpcCtx *ctx, Target *target);

// CloseTarget releases a target without requests.  Inside libcoap's I/O, which has fetched the
// sockets that it will serve next, it is released when the I/O ends.
void CloseTarget(CoapRpcCtx *ctx, Target *target);

// RenewTargets lets all targets of a session's entry send from an address that this machine has.
void RenewTargets(coap_session_t *session);

// SettleTargets sorts the targets at the end of a turn, outside libcoap's I/O.
void SettleTargets(CoapRpcCtx *ctx);

// NumBusyTargets counts those that are not spare.
uint32_t NumBusyTargets(const CoapRpcCtx *ctx);

// FreeTargets releases all; to be called before the libcoap context is freed.
void FreeTargets(CoapRpcCtx *ctx);

// ForEachTarget calls `work` for each; `work` may close the one that it is given.
template <typename Work>
void ForEachTarget(CoapRpcLink &list, Work work) {
  COAP_RPC_LIST(Target, allLink) targets(list);
  Target *next = nullptr;
  for (Target *target = targets.First(); target; target = next) {
    next = targets.After(target);
    work(target);
  }
}

}  // namespace coap_rpc

#endif /* COAP_RPC_LIB_HANDLER_TARGET_H */
