/* coap_rpc_lib_rpc_call_record.h: the records of calls, and the tables that find them.
 *
 * A call is found by its id, which is its token as well, and by the time at which it is due. */
#ifndef COAP_RPC_LIB_RPC_CALL_RECORD_H
#define COAP_RPC_LIB_RPC_CALL_RECORD_H

#include <coap3/coap.h>

#include "coap_svc/rpc/client/coap_rpc_cli_relation.h"
#include "coap_svc/rpc/client/coap_rpc_cli_session.h"
#include "coap_svc/rpc/coap_rpc_call.h"
#include "coap_svc/rpc/common/coap_rpc_limits.h"
#include "coap_svc/rpc/common/coap_rpc_list.h"
#include "coap_svc/rpc/libadapter/message/coap_rpc_lib_msg.h"

namespace coap_rpc {

inline constexpr uint32_t kNumSpareIds = 32;

// CallAnswer is a message that answered a call, and comes again when its acknowledgement is lost.
struct CallAnswer {
  uint64_t id;  // of the call; 0 for none
  coap_mid_t mid;
  coap_tick_t at;
};

// CallState is told at the head of coap_rpc_lib_rpc_call.cpp.
enum class CallState : uint32_t { kQueued, kSent, kWatched, kLeaving, kEnded };

// RpcCallPeer is a session with the calls that are under way on it, which hold it.
struct RpcCallPeer {
  OSAL_AVL3_NODE node;
  coap_session_t *coapSession;
  CoapRpcCliSession *session;  // its owner
  CoapRpcLink queuedList;      // calls whose turn has not come, in order
  CoapRpcLink sentList;        // all the others
  CoapRpcLink backlogLink;     // alone while queuedList is empty
  uint32_t num;                // calls in the lists, and ended ones that libcoap may be using
};

struct RpcCall;

// WatchKey is what a server knows an observation by, besides its token.
struct WatchKey {
  const coap_session_t *session;
  const coap_pdu_t *request;
};

// CallWatch is what an observation has beyond a call.  Followers are told of in
// coap_rpc_lib_rpc_call_share.cpp.
struct CallWatch {
  OSAL_AVL3_NODE node;
  WatchKey key;                 // zero unless it leads
  RpcCall *call;                // that it belongs to
  CoapRpcCliRelation relation;  // the order of its notifications
  coap_pdu_t *request;          // what registers again, without token; null for a follower
  RpcCall *leader;              // of a follower, until the leader ends
  CoapRpcLink followers;
  CoapRpcLink followLink;
  uint32_t round;  // of a leader: notifications told; of a follower: the latest one that it knows
};

struct CallDue {
  coap_tick_t at;
  uint64_t id;
};

struct RpcCall {
  uint64_t id;  // its bytes are the token
  RpcCall *nextInBucket;
  OSAL_AVL3_NODE node;
  CallDue due;
  CoapRpcLink peerLink;
  CoapRpcLink endLink;  // alone unless libcoap has to be told that it has ended
  RpcCallPeer *peer;
  CallState state;
  uint32_t deadlineMs;
  uint32_t isNon;
  coap_mid_t mid;           // of the latest request
  coap_pdu_t *pdu;          // while queued
  CoapRpcPayload *payload;  // while queued, one that exceeds the message; null for none
  coap_lg_crcv_t *kept;     // libcoap's, until an answer is there; null for none
  uint64_t sentUs;
  coap_tick_t startedAt;
  uint64_t userData;
  CoapRpcOnCallRsp onRsp;  // null: the application has been told of the end
  CallWatch *watch;        // null for a plain call
};

using CallsOfPeer = COAP_RPC_LIST(RpcCall, peerLink);
using EndedCalls = COAP_RPC_LIST(RpcCall, endLink);
using Backlog = COAP_RPC_LIST(RpcCallPeer, backlogLink);

inline coap_bin_const_t TokenOf(const RpcCall &call) {
  return {sizeof(call.id), reinterpret_cast<const uint8_t *>(&call.id)};
}

// IdOf returns the id that a token stands for; 0 for one that no call can have.
uint64_t IdOf(const coap_bin_const_t &token);

}  // namespace coap_rpc

/* CoapRpcCalls is the calls of an instance. */
struct CoapRpcCalls {
  coap_rpc::RpcCall **buckets;  // chains by id; a power of two of them
  uint32_t numBuckets;
  uint32_t num;
  OSAL_AVL3_TREE dueTree;    // by CallDue
  OSAL_AVL3_TREE peerTree;   // RpcCallPeer by session
  OSAL_AVL3_TREE watchTree;  // CallWatch of those that lead, by WatchKey
  CoapRpcLink backlogList;   // RpcCallPeer with queued calls
  uint32_t numBacklog;
  CoapRpcLink endedList;  // RpcCall that libcoap has to be told of
  uint64_t timer;         // 0 none
  coap_tick_t timerAt;    // when it fires next
  uint64_t numDropped;
  uint64_t spareIds[coap_rpc::kNumSpareIds];  // random: drawn many at a time, which costs less
  uint32_t numSpareIds;
  coap_rpc::CallAnswer answers[coap_rpc::kNumKnownCallAnswers];  // the latest, as a ring
  uint32_t nextAnswer;
  uint32_t isStopping;
};

namespace coap_rpc {

RpcCall *FindRpcCall(const CoapRpcCalls *calls, uint64_t id);

// AddRpcCall gives a call its id and puts it into the tables.  False without memory.
bool AddRpcCall(CoapRpcCtx *ctx, CoapRpcCalls *calls, RpcCall *call, coap_tick_t dueAt);
void RemoveRpcCall(CoapRpcCalls *calls, RpcCall *call);

// SetDue moves a call in the order of time, FirstDue returns the one that is due next, and NextDue
// the first after a place in that order; null for none.
void SetDue(CoapRpcCalls *calls, RpcCall *call, coap_tick_t dueAt);
RpcCall *FirstDue(CoapRpcCalls *calls);
RpcCall *NextDue(CoapRpcCalls *calls, const CallDue &after);

// LeadWatch returns the observation that leads those with the registration of this one, which may
// be itself.  StopLeading takes it out of the table, if it is there: nobody can join it any more.
RpcCall *LeadWatch(CoapRpcCalls *calls, RpcCall *call);
void StopLeading(CoapRpcCalls *calls, RpcCall *call);

// NoteAnswer remembers the message that has answered a call, if it has to be acknowledged;
// IsAnswerAgain says whether a message is one of those.
void NoteAnswer(CoapRpcCalls *calls, const RpcCall &call, const coap_pdu_t *answer);
bool IsAnswerAgain(const CoapRpcCalls *calls, const coap_pdu_t *received);

// FreeRpcCall frees a call that is in no table.
void FreeRpcCall(CoapRpcCtx *ctx, RpcCall *call);

}  // namespace coap_rpc

#endif /* COAP_RPC_LIB_RPC_CALL_RECORD_H */
