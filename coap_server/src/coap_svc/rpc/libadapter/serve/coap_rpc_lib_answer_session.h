/* coap_rpc_lib_answer_session.h: client sessions through which asynchronous answers are sent.
 *
 * An answer session is one session to port 5683 of one peer for the answers of one entry.  It is
 *
 *   cached    the entry's last request came from its peer: entry->asyncSession is its session
 *   busy      another peer has asked the entry since, but requests are still unanswered, or libcoap
 *             is still sending or repeating an answer
 *   spare     neither: kept for a while, so that peers that take turns do not cost a socket each
 *
 * A request makes its peer's one cached, wherever that was, or opens one; the entry's former one
 * becomes busy.  Each turn of the I/O ends with a look at the busy ones without requests: the idle
 * among them become spare.  Spare ones are released at their age, the oldest first when there are
 * too many, and at once when their peer was found to be gone.  Entries share none: an answer never
 * waits for another entry's. */
#ifndef COAP_RPC_LIB_ANSWER_SESSION_H
#define COAP_RPC_LIB_ANSWER_SESSION_H

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

// Peer counts what its answer sessions have in common.  It lives as long as one of them.
struct Peer {
  OSAL_AVL3_NODE node;  // in peerTree
  PeerKey key;
  uint32_t numAnswerSessions;
  uint32_t numOpen;  // requests that the application has been given and not answered
};

struct AnswerSessionKey {
  CoapRpcSerUriVtbl *entry;
  PeerKey peer;
};

struct AnswerSession {
  OSAL_AVL3_NODE node;      // in answerSessionTree until its peer is gone or its entry is
  CoapRpcLink allLink;      // on answerSessionList
  CoapRpcLink idleLink;     // on leavingList or spareList; alone while cached or with requests
  CoapRpcLink queuedLink;   // on queuedSessionList while answers are queued
  CoapRpcLink requestList;  // CoapRpcAsync, all of them
  CoapRpcLink heldList;     // of these, answers in blocks, queued after others in blocks
  CoapRpcLink readyList;    // of these, answers that libcoap gets as soon as it has sent others
  AnswerSessionKey key;
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

// AcquireAnswerSession gives an entry the answer session for a peer and makes it the cached one.
// Null on failure, or when too many are open; the entry has none then.
AnswerSession *AcquireAnswerSession(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry,
                                    const coap_address_t &peer, coap_proto_t proto);

// LeaveAnswerSession is to be called when the last request of one ends.
void LeaveAnswerSession(CoapRpcCtx *ctx, AnswerSession *sender);

// FindAnswerSession returns the one that a libcoap session belongs to, or null.  It looks at each:
// call it only for what happens rarely.
AnswerSession *FindAnswerSession(CoapRpcCtx *ctx, const coap_session_t *session);

// FailAnswerSession notes that the peer is gone: it is not kept when its requests have ended.
void FailAnswerSession(CoapRpcCtx *ctx, AnswerSession *sender);

// CloseAnswerSession releases one without requests.  Inside libcoap's I/O, which has fetched the
// sockets that it will serve next, it is released when the I/O ends.
void CloseAnswerSession(CoapRpcCtx *ctx, AnswerSession *sender);

// RenewAnswerSessions lets all of a session's entry send from an address that this machine has.
void RenewAnswerSessions(coap_session_t *session);

// SettleAnswerSessions sorts them at the end of a turn, outside libcoap's I/O.
void SettleAnswerSessions(CoapRpcCtx *ctx);

// NumAnswerSessions counts those that are not spare.
uint32_t NumAnswerSessions(const CoapRpcCtx *ctx);

// FreeAnswerSessions releases all; to be called before the libcoap context is freed.
void FreeAnswerSessions(CoapRpcCtx *ctx);

using AllSessions = COAP_RPC_LIST(AnswerSession, allLink);

}  // namespace coap_rpc

#endif /* COAP_RPC_LIB_ANSWER_SESSION_H */
