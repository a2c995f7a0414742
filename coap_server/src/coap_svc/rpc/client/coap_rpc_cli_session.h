/* coap_rpc_cli_session.h: client sessions, one per source, destination and port.
 *
 * A session carries the requests bound to it and at most one libcoap session.  Without requests it
 * ages for 90 ticks of 1000 ms and is then freed. */
#ifndef COAP_RPC_CLI_SESSION_H
#define COAP_RPC_CLI_SESSION_H

#include "coap_svc/rpc/client/coap_rpc_cli_data.h"

COAP_RPC_C_BEGIN

struct COAP_RPC_PACKED CoapRpcCliSessionKey {
  CoapRpcIpAddr srcIp;
  CoapRpcIpAddr dstIp;
  uint32_t dstPort;
};
static_assert(sizeof(struct CoapRpcCliSessionKey) == 44, "session key size");

enum { COAP_RPC_NUM_MSG_TYPES = 4 };

struct CoapRpcCliSession {
  OSAL_AVL3_NODE node;
  CoapRpcLink agingLink; /* self-linked when not aging */
  CoapRpcCliSessionKey key;
  coap_session_t *coapSession;                   /* null until the first send */
  CoapRpcLink uriDataList;                       /* CoapRpcCliReqData by sessionLink */
  uint32_t msgStatistic[COAP_RPC_NUM_MSG_TYPES]; /* successful sends: CON, NON, ACK, RST */
  uint32_t agingTick;                            /* remaining ticks; 90 whenever armed */
  uint32_t holds; /* sends under way, and 1 for calls; a held session is not freed */
};

/* Module rows; the record is the CoapRpcCliData.  Init starts the aging timer, 1900001401 when that
 * fails; Uninit frees every session without requests and asserts on the others. */
COAP_RPC_API uint32_t COAP_RpcCliSessionInit(void *cli);
COAP_RPC_API uint32_t COAP_RpcCliSessionUninit(void *cli);

/* COAP_RpcSessionCmp_ orders two CoapRpcCliSessionKey: source, destination, port. */
COAP_RPC_API int32_t COAP_RpcSessionCmp_(const void *a, const void *b);

/* Find by the session key that begins `addr`; first; first with a greater key. */
COAP_RPC_API CoapRpcCliSession *COAP_RpcCliFindSession(CoapRpcCliData *cli,
                                                       const CoapRpcCliSessionKey *key);
COAP_RPC_API CoapRpcCliSession *COAP_RpcCliFindFirstSession(CoapRpcCliData *cli);
COAP_RPC_API CoapRpcCliSession *COAP_RpcCliFindNextSession(CoapRpcCliData *cli,
                                                           const CoapRpcCliSessionKey *key);

/* COAP_RpcCliAddSession makes a session for a peer; null without memory or when there is one. */
COAP_RPC_API CoapRpcCliSession *COAP_RpcCliAddSession(CoapRpcCliData *cli,
                                                      const CoapRpcUriKey *notRead,
                                                      const CoapRpcCliAddr *addr);

/* COAP_RpcCliTryDelSession frees a session that has no requests.  Inside a send of that session or
 * inside libcoap's I/O it is left to the next aging tick. */
COAP_RPC_API void COAP_RpcCliTryDelSession(CoapRpcCliData *cli, CoapRpcCliSession *session);

/* Aging list: a session without requests goes to its tail with 90 ticks; any leaves it. */
COAP_RPC_API void COAP_RpcCliInsetAgingList(CoapRpcCliData *cli, CoapRpcCliSession *session);
COAP_RPC_API void COAP_RpcCliRemoveAgingList(CoapRpcCliData *cli, CoapRpcCliSession *session);

/* COAP_RpcCliAgingSessionTimeOut is the aging tick; `root` is the root context.  Always 0. */
COAP_RPC_API uint32_t COAP_RpcCliAgingSessionTimeOut(void *root);
/* Start: 0 or 1900001401.  Stop: only when the aging list is empty. */
COAP_RPC_API uint32_t COAP_RpcCliTryStartAgingSessionTimer(CoapRpcCliData *cli);
COAP_RPC_API void COAP_RpcCliTryStopAgingSessionTimer(CoapRpcCliData *cli);

/* COAP_RpcCliGetSessionStr_ writes "src:%s, dst:%s, port:%u".  Returns buf. */
COAP_RPC_API char *COAP_RpcCliGetSessionStr_(const CoapRpcCliSessionKey *key, char *buf,
                                             uint32_t size);

COAP_RPC_C_END

namespace coap_rpc {

// SessionHold holds a session for as long as it lives.
class SessionHold {
 public:
  explicit SessionHold(CoapRpcCliSession *session) : session_(session) { ++session->holds; }
  ~SessionHold() { --session_->holds; }
  SessionHold(const SessionHold &) = delete;
  SessionHold &operator=(const SessionHold &) = delete;

 private:
  CoapRpcCliSession *session_;
};

}  // namespace coap_rpc

#endif /* COAP_RPC_CLI_SESSION_H */
