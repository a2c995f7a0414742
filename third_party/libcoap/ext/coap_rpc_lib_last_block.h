/* coap_rpc_lib_last_block.h: what is left of a block transfer that has ended.
 *
 * A peer that missed the last block asks for it again seconds later.  Of a transfer that is sent,
 * libcoap's record stays for that, with the last block in place of the payload; it is no longer
 * libcoap's to find.  Both are libcoap's memory, not the pool's. */
#ifndef COAP_RPC_LIB_LAST_BLOCK_H
#define COAP_RPC_LIB_LAST_BLOCK_H

#include <coap3/coap.h>

#include "coap_svc/rpc/common/coap_rpc_link.h"

COAP_RPC_C_BEGIN

typedef struct CoapRpcSerUriVtbl CoapRpcSerUriVtbl;

typedef struct CoapRpcLastBlock {
  CoapRpcLink link;         /* on the adapter's lastBlockList, oldest first */
  CoapRpcSerUriVtbl *entry; /* whose payload it was */
  coap_session_t *session;  /* of the peer; lives longer than this record */
  coap_tick_t sentAt;       /* when it was first sent */
  coap_lg_xmit_t *blocks;   /* libcoap's record; its data is the last block, after this record */
  void *flight;             /* the payload's changes; null when they are put back already */
  int isOvertaken;          /* a newer payload has begun since */
  int isReplaced;           /* one in blocks has */
} CoapRpcLastBlock;

/* CoapRpcLibEndSent ends the transfer of the session that carries `appPtr`, whose release function
 * runs then.  Returns its last block, owned, with session and blocks set; null without memory and
 * for a session that was opened here. */
CoapRpcLastBlock *CoapRpcLibEndSent(coap_session_t *session, const void *appPtr);

/* CoapRpcLibFreeLastBlock frees the record, which is on no list. */
void CoapRpcLibFreeLastBlock(CoapRpcLastBlock *last);

/* CoapRpcLibIsLastBlock says whether a request of the session asks for this block, in the form in
 * which libcoap would have found the transfer: resource, method, query and Request-Tag. */
int CoapRpcLibIsLastBlock(const CoapRpcLastBlock *last, coap_session_t *session,
                          const coap_resource_t *resource, const coap_pdu_t *request,
                          const coap_string_t *query);

/* CoapRpcLibIsRepeated says whether a request of the session is the one that got this block, sent
 * again. */
int CoapRpcLibIsRepeated(const CoapRpcLastBlock *last, const coap_session_t *session,
                         const coap_pdu_t *request);

/* CoapRpcLibAnswerLastBlock fills the response like libcoap's first answer with this block. */
void CoapRpcLibAnswerLastBlock(const CoapRpcLastBlock *last, coap_pdu_t *response);

COAP_RPC_C_END
#endif /* COAP_RPC_LIB_LAST_BLOCK_H */
