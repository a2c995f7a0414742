/* coap_rpc_cli_end.h: CON requests under way, so that their ends can be told.
 *
 * Kept only while the application has set a callback (COAP_RpcSetOnRequestEnd).  A request that
 * went out is open.  It leaves the open ones in one of these ways, whichever comes first:
 *
 *   a response came           forgotten when onResponse took it, else told by the response handler
 *   libcoap gave it up        told by the NACK handler; ICMP alone ends nothing and is remembered
 *                             as the reason
 *   libcoap has it no more,   told by the aging tick, 247 s after it was last seen with libcoap: an
 *   and nothing came          empty acknowledgement came, or a body that was never completed
 *   its session was closed    told by the next aging tick: the one who closes may be a callback
 *   the application ended     forgotten
 *   the relation, the
 *   callback or the instance
 *
 * At most kMaxOpenRequests are kept.  What is sent beyond, or without memory for a record, is only
 * counted; the next aging tick tells the number. */
#ifndef COAP_RPC_CLI_END_H
#define COAP_RPC_CLI_END_H

#include "coap_svc/rpc/client/coap_rpc_cli_req_data.h"
#include "coap_svc/rpc/client/coap_rpc_cli_session.h"
#include "coap_svc/rpc/coap_rpc_ext.h"
#include "coap_svc/rpc/common/coap_rpc_own.h"

/* CoapRpcCliEnds is who wants to know of ends, and what is under way. */
struct CoapRpcCliEnds {
  CoapRpcOnRequestEnd onEnd;
  uint64_t userData;
  CoapRpcLink openList;   /* OpenReq, in order of sending or of the last look at libcoap */
  CoapRpcLink endedList;  /* OpenReq for the next aging tick to tell */
  uint32_t num;           /* of both lists */
  uint32_t numUnfollowed; /* requests without a record, not told yet */
  uint32_t tick;          /* aging ticks so far */
};

namespace coap_rpc {

// OpenReq is one sending of a request.
struct OpenReq {
  CoapRpcLink link;
  const coap_session_t *session;
  int32_t mid;
  uint64_t tokenLen;  // 0: none, or drawn for this message alone
  uint8_t token[COAP_RPC_TOKEN_SIZE];
  uint32_t since;      // aging tick
  uint32_t isRefused;  // 1: the network said that it was not delivered
  CoapRpcRequestEnd end;
};

// Sign is what a message says about the request that it belongs to.
struct Sign {
  const coap_session_t *session;
  int32_t mid;  // of the request; -1: unknown
  const uint8_t *token;
  size_t tokenLen;
  const char *path;  // of a response to any request without token; "" names none; null: not one
};

// FollowRequest opens a CON request that has just been sent.
void FollowRequest(CoapRpcCtx *ctx, const CoapRpcCliSession *session, const CoapRpcCliReqData *req);

// FindOpen finds the request of a sign: by its message, else by its token, else the oldest one
// without token that has the path.  Null when none is known.
OpenReq *FindOpen(const CoapRpcCliData *cli, const Sign &sign);

// TakeOpen is FindOpen; the caller owns the record, which is open no more.
PoolPtr<OpenReq> TakeOpen(CoapRpcCliData *cli, const Sign &sign);

// TellEnd tells the application of a request, and frees its record; null is ignored.
void TellEnd(CoapRpcCtx *ctx, PoolPtr<OpenReq> req, uint32_t reason, uint32_t rspCode = 0);

// ForgetOpen forgets the sendings of a relation that the application ends; FreeEnds all of them,
// and the callback.
void ForgetOpen(CoapRpcCliData *cli, const CoapRpcCliReqData &req);
void FreeEnds(CoapRpcCliData *cli);

// CloseOpen ends the requests of a session that is about to be closed.
void CloseOpen(CoapRpcCliData *cli, const coap_session_t *session);

// TickEnds is the aging tick's part.
void TickEnds(CoapRpcCtx *ctx);

}  // namespace coap_rpc

#endif /* COAP_RPC_CLI_END_H */
