/* coap_rpc_cli_data.h: the client side's context and the slots through which it is wired. */
#ifndef COAP_RPC_CLI_DATA_H
#define COAP_RPC_CLI_DATA_H

#include "coap_svc/rpc/coap_rpc_cli.h"
#include "coap_svc/rpc/common/coap_rpc_ctx.h"
#include "coap_svc/rpc/common/coap_rpc_link.h"
#include "osal_avl3.h"

COAP_RPC_C_BEGIN

typedef struct CoapRpcCliEnds CoapRpcCliEnds;
typedef struct CoapRpcCliReqData CoapRpcCliReqData;
typedef struct CoapRpcCliReqKey CoapRpcCliReqKey;
typedef struct CoapRpcCliSession CoapRpcCliSession;
typedef struct CoapRpcCliSessionKey CoapRpcCliSessionKey;
typedef struct CoapRpcCliUriVtbl CoapRpcCliUriVtbl;

/* CoapRpcCliData is the client side of an instance.  The first six operations are the adapter's,
 * null until the sides are wired; the next four are the client's own, for the adapter. */
struct CoapRpcCliData {
  CoapRpcCtx *owner;
  coap_session_t *(*createCliSession)(CoapRpcCtx *ctx, const CoapRpcCliReqKey *key,
                                      const CoapRpcCliSessionKey *addr);
  void (*deleteCliSession)(CoapRpcCtx *ctx, CoapRpcCliSession *session);
  uint32_t (*sendRequest)(CoapRpcCtx *ctx, CoapRpcCliSession *session, CoapRpcCliReqData *req);
  void (*cancelRequest)(CoapRpcCtx *ctx, CoapRpcCliSession *session, CoapRpcCliReqData *req);
  uint32_t (*refreshTaskTimer)(CoapRpcCtx *ctx);
  void (*setSvcFlag)(CoapRpcCtx *ctx);
  CoapRpcCliUriVtbl *(*findUriVtbl)(CoapRpcCliData *cli, const CoapRpcUriKey *key);
  CoapRpcCliUriVtbl *(*findFirstUriVtbl)(CoapRpcCliData *cli);
  CoapRpcCliUriVtbl *(*findNextUriVtbl)(CoapRpcCliData *cli, const CoapRpcUriKey *key);
  void (*resendRequest)(CoapRpcCtx *ctx, int32_t mid);
  OSAL_AVL3_TREE sessionTree; /* CoapRpcCliSession by source, destination, port */
  OSAL_AVL3_TREE reqTree;     /* CoapRpcCliReqData by request key */
  OSAL_AVL3_TREE uriVtblTree; /* CoapRpcCliUriVtbl by key */
  CoapRpcLink resendList;     /* CoapRpcCliReqData by resendLink, in order of appending */
  uint64_t resendTimer;       /* 0 none; runs while the resend list is not empty */
  CoapRpcLink agingList;      /* CoapRpcCliSession by agingLink: sessions without requests */
  uint64_t agingTimer;        /* 0 none */
  uint8_t *reqBuf;            /* shared request-payload buffer, 65471 bytes; null until used */
  uint32_t numTokenlessRsp;   /* separate responses without token; see coap_rpc_ext.h */
  uint64_t numOldNotified;    /* dropped ones; see coap_rpc_ext.h */
  CoapRpcCliEnds *ends; /* requests under way; null unless somebody wants to know their ends */
};

COAP_RPC_C_END
#endif /* COAP_RPC_CLI_DATA_H */
