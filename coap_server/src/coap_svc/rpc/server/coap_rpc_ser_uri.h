/* coap_rpc_ser_uri.h: registered server URIs and the tuples that observable ones hold.
 *
 * An entry is made by its registration and lives until the server side stops.  It owns its tuples,
 * its copy of the observe record and its update timer. */
#ifndef COAP_RPC_SER_URI_H
#define COAP_RPC_SER_URI_H

#include "coap_svc/rpc/common/coap_rpc_link.h"
#include "coap_svc/rpc/server/coap_rpc_ser_data.h"

COAP_RPC_C_BEGIN

/* CoapRpcSerUriVtbl is one registered server URI. */
struct CoapRpcSerUriVtbl {
  OSAL_AVL3_NODE node;
  CoapRpcLink listenLink; /* on the listen's uriDataList; self-linked when not attached */
  CoapRpcLink resLink;    /* on the resource's uriDataList; self-linked when not bound */
  CoapRpcUriKey key;
  CoapRpcSerVtblReg reg;
  CoapRpcSerObVtblReg *obVtbl; /* owned copy; null for a URI that publishes nothing */
  OSAL_AVL3_TREE tupleSetTree; /* CoapRpcUriTuple by tuple key, owned */
  OSAL_AVL3_DESC tupleSetDesc;
  OSAL_AVL3_TREE tupleChgTree; /* never populated, deliberately */
  OSAL_AVL3_DESC tupleChgDesc;
  CoapRpcLink tupleChgList; /* CoapRpcTupleChg in order of first change, owned */
  uint64_t updateTimer;     /* 0 none; runs from the first change queued */
  CoapRpcSerData *owner;
  CoapRpcSerListen *listen; /* null when not attached */
  uint32_t observerNum;
  uint64_t etag;                /* ms clock of the last payload: the check code */
  uint32_t isSendingLargeBlock; /* 1 while a payload is being sent in blocks */
  coap_session_t *asyncSession; /* sends asynchronous answers; null until needed */
  void *asyncTarget;            /* adapter: what asyncSession belongs to */
  CoapRpcLink blockCtxList;     /* adapter: release contexts that still name this entry */
  void *chgIndex;               /* observe code: index of tupleChgList; null when unused */
  uint32_t hasLoggedTooLong;    /* adapter: 1 once a message that fits into no payload was logged */
  CoapRpcLink flightList;       /* adapter: changes in payloads whose delivery is not known yet */
  uint32_t numGivenUp;          /* payloads in blocks given up since one was delivered */
  const void *givenUpBy;        /* adapter: session that they were for; only compared */
};

/* CoapRpcUriTuple is one tuple: node, then keyLen key bytes, then valLen value bytes. */
struct CoapRpcUriTuple {
  OSAL_AVL3_NODE node;
  __extension__ uint8_t key[];
};

/* Module rows; the record is the CoapRpcSerData. */
COAP_RPC_API uint32_t COAP_RpcSerVtblInit(void *ser);
COAP_RPC_API uint32_t COAP_RpcSerVtblUninit(void *ser);
COAP_RPC_API uint32_t COAP_RpcSerUriInit(void *ser);
COAP_RPC_API uint32_t COAP_RpcSerUriUninit(void *ser);

/* COAP_RpcUriRegSerVtbl registers; an existing entry stays as it is.
 * Returns 0 or 1900000251 when the entry cannot be made. */
COAP_RPC_API uint32_t COAP_RpcUriRegSerVtbl(CoapRpcSerData *ser, const CoapRpcUriKey *key,
                                            const CoapRpcSerVtblReg *reg,
                                            const CoapRpcSerObVtblReg *obReg);

/* Find by key; first in key order; first with a key greater than `key`. */
COAP_RPC_API CoapRpcSerUriVtbl *COAP_RpcSerFindUriVtbl(CoapRpcSerData *ser,
                                                       const CoapRpcUriKey *key);
COAP_RPC_API CoapRpcSerUriVtbl *COAP_RpcSerFindFirstUriVtbl(CoapRpcSerData *ser);
COAP_RPC_API CoapRpcSerUriVtbl *COAP_RpcSerFindNextUriVtbl(CoapRpcSerData *ser,
                                                           const CoapRpcUriKey *key);

/* COAP_RpcSerAddUriVtbl makes an entry; null without memory, for a key that is there already, or
 * for an observe record without comparator. */
COAP_RPC_API CoapRpcSerUriVtbl *COAP_RpcSerAddUriVtbl(CoapRpcSerData *ser, const CoapRpcUriKey *key,
                                                      const CoapRpcSerVtblReg *reg,
                                                      const CoapRpcSerObVtblReg *obReg);

/* COAP_RpcSerAddUriObVtbl gives an entry its observe record and empties its sets; nothing for a
 * null record.  A former record goes with its tuples and changes; the update timer stays.
 *
 * Returns 0 or:  1900000167 no memory   1900001431 no comparator (the entry is left as it was) */
COAP_RPC_API uint32_t COAP_RpcSerAddUriObVtbl(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry,
                                              const CoapRpcSerObVtblReg *obReg);

/* COAP_RpcSerDelUriVtbl frees an entry and everything it owns; listen and resource stay. */
COAP_RPC_API void COAP_RpcSerDelUriVtbl(CoapRpcSerData *ser, CoapRpcSerUriVtbl *entry);

/* Tuples.  ProcUpdateTuple adds or overwrites (0 or 1900000113), ProcDelTuple removes if present;
 * both ignore their key argument. */
COAP_RPC_API uint32_t COAP_RpcSerProcUpdateTuple(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry,
                                                 const CoapRpcUriKey *notRead, const void *tupleKey,
                                                 const void *tupleVal);
COAP_RPC_API void COAP_RpcSerProcDelTuple(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry,
                                          const CoapRpcUriKey *notRead, const void *tupleKey);
COAP_RPC_API CoapRpcUriTuple *COAP_RpcSerFindUriTuple(CoapRpcSerUriVtbl *entry,
                                                      const void *tupleKey);
COAP_RPC_API CoapRpcUriTuple *COAP_RpcSerGetFirstUriTuple(CoapRpcSerUriVtbl *entry);
COAP_RPC_API CoapRpcUriTuple *COAP_RpcSerGetNextUriTuple(CoapRpcSerUriVtbl *entry,
                                                         const CoapRpcUriTuple *tuple);
COAP_RPC_API CoapRpcUriTuple *COAP_RpcSerAddUriTuple(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry,
                                                     const void *tupleKey, const void *tupleVal);
COAP_RPC_API uint32_t COAP_RpcSerUpdateUriTuple(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry,
                                                CoapRpcUriTuple *tuple, const void *tupleKey,
                                                const void *tupleVal);
COAP_RPC_API void COAP_RpcSerDelUriTuple(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry,
                                         CoapRpcUriTuple *tuple);
COAP_RPC_API void COAP_RpcSerDelAllUriTuple(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry);

/* COAP_RpcGetTupleSetCnt counts the tuples by walking them. */
COAP_RPC_API uint32_t COAP_RpcGetTupleSetCnt(CoapRpcSerUriVtbl *entry);

COAP_RPC_C_END
#endif /* COAP_RPC_SER_URI_H */
