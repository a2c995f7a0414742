/* coap_rpc_cli_req_data.h: the records of client requests, and the session that each is bound to.
 *
 * A record is on the table by its key, on its session's list while bound, and on the resend list
 * while it is queued.  What is deleted while held leaves table and lists at once and is freed when
 * the last hold ends. */
#ifndef COAP_RPC_CLI_REQ_DATA_H
#define COAP_RPC_CLI_REQ_DATA_H

#include "coap_svc/rpc/client/coap_rpc_cli_data.h"
#include "coap_svc/rpc/client/coap_rpc_cli_relation.h"

COAP_RPC_C_BEGIN

struct COAP_RPC_PACKED CoapRpcCliReqKey {
  CoapRpcUriKey uri;
  CoapRpcCliReqParam param; /* payload: the record's own copy, or null with payloadLen 0 */
};
static_assert(sizeof(struct CoapRpcCliReqKey) == 112, "request key size");

enum { COAP_RPC_TOKEN_SIZE = 8 };
enum { COAP_RPC_MODE_PLAIN = 0, COAP_RPC_MODE_VERIFY = 1, COAP_RPC_MODE_BATCH = 2 };

struct CoapRpcCliReqData {
  OSAL_AVL3_NODE node;
  CoapRpcLink sessionLink; /* on the session's uriDataList */
  CoapRpcLink resendLink;  /* self-linked when not queued */
  CoapRpcCliReqKey key;
  uint32_t codeType;                 /* refreshed by every call */
  uint8_t reqRsv[COAP_RPC_RSV_SIZE]; /* refreshed by every call */
  uint64_t tokenLen;                 /* 0: no token yet */
  uint8_t token[COAP_RPC_TOKEN_SIZE];
  CoapRpcCliSession *session; /* null when unbound */
  int32_t mid;                /* of the last successful send */
  uint32_t reSnd;             /* send attempts */
  uint32_t Tout;              /* reports of too many retransmissions */
  uint32_t mode;              /* check-code mode of the next send */
  uint32_t holds;             /* functions that use the record; a held one is not freed */
  uint32_t isDropped;         /* 1: deleted while held, in no table; freed with the last hold */
  uint32_t isTokenForeign;    /* 1: moved here and not sent since: the token may be taken here */
  CoapRpcCliRelation relation;
};

/* COAP_RpcCliReqCmp_ orders two CoapRpcCliReqKey: uri key, userData, payload pointer, reqKeyRsv;
 * payloadLen is not compared.  A key with a payload never equals a stored one, deliberately. */
COAP_RPC_API int32_t COAP_RpcCliReqCmp_(const void *a, const void *b);

COAP_RPC_API CoapRpcCliReqData *COAP_RpcCliFindReqData(CoapRpcCliData *cli,
                                                       const CoapRpcCliReqKey *key);
COAP_RPC_API CoapRpcCliReqData *COAP_RpcCliFindFirstReqData(CoapRpcCliData *cli);
COAP_RPC_API CoapRpcCliReqData *COAP_RpcCliFindNextReqData(CoapRpcCliData *cli,
                                                           const CoapRpcCliReqKey *key);

/* COAP_RpcCliAddReqData makes a record with a copy of the payload; null without memory or for an
 * equal key. */
COAP_RPC_API CoapRpcCliReqData *COAP_RpcCliAddReqData(CoapRpcCliData *cli,
                                                      const CoapRpcCliReqKey *key,
                                                      const CoapRpcCliAddr *addr);
/* COAP_RpcCliDelReqData takes a record out of table and lists and frees it, once nothing holds it.
 */
COAP_RPC_API void COAP_RpcCliDelReqData(CoapRpcCliData *cli, CoapRpcCliReqData *req);

/* Binding of a record to one session; the old session is offered to the aging list.  A record that
 * moves to another session keeps its token, unless it turns out to be taken there when it is sent.
 */
COAP_RPC_API void COAP_RpcCliReqBindSession(CoapRpcCliData *cli, CoapRpcCliSession *session,
                                            CoapRpcCliReqData *req);
COAP_RPC_API void COAP_RpcCliReqUnbindSession(CoapRpcCliData *cli, CoapRpcCliReqData *req);
/* COAP_RpcCliReqIsBindSession returns 1 when the session holds a record of an equal 112-byte key
 * that is bound to it, else 0. */
COAP_RPC_API uint32_t COAP_RpcCliReqIsBindSession(const CoapRpcCliSession *session,
                                                  const CoapRpcCliReqData *req);

/* COAP_RpcCliReqPayload fills a record from a call, payload copy included; 0 or 1900001106 without
 * memory.  COAP_RpcCliReqPayloadFree frees the copy. */
COAP_RPC_API uint32_t COAP_RpcCliReqPayload(CoapRpcCliData *cli, CoapRpcCliReqData *req,
                                            const CoapRpcCliReqKey *key,
                                            const CoapRpcCliAddr *addr);
COAP_RPC_API void COAP_RpcCliReqPayloadFree(CoapRpcCliData *cli, CoapRpcCliReqData *req);

COAP_RPC_C_END

namespace coap_rpc {

// TakeCallFields copies what every call sets again.
void TakeCallFields(CoapRpcCliReqData *req, const CoapRpcCliAddr *addr);

// HoldReq keeps a record in memory until ReleaseReq: sending calls the application's buildReq,
// which may cancel the very request that is being sent.
void HoldReq(CoapRpcCliReqData *req);
void ReleaseReq(CoapRpcCliData *cli, CoapRpcCliReqData *req);

// ReqHold holds a record for as long as it lives.
class ReqHold {
 public:
  ReqHold(CoapRpcCliData *cli, CoapRpcCliReqData *req) : cli_(cli), req_(req) { HoldReq(req); }
  ~ReqHold() { ReleaseReq(cli_, req_); }
  ReqHold(const ReqHold &) = delete;
  ReqHold &operator=(const ReqHold &) = delete;

 private:
  CoapRpcCliData *cli_;
  CoapRpcCliReqData *req_;
};

}  // namespace coap_rpc

#endif /* COAP_RPC_CLI_REQ_DATA_H */
