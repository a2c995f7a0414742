/* coap_rpc_ser_entry.h: the records of a registered server URI, its tuples and its pending changes.
 *
 * An entry is on the URI table, and on the lists of its listen and of its resource while it is
 * attached.  Which functions work on which part is in the headers that include this one. */
#ifndef COAP_RPC_SER_ENTRY_H
#define COAP_RPC_SER_ENTRY_H

#include "coap_svc/rpc/common/coap_rpc_count.h"
#include "coap_svc/rpc/common/coap_rpc_lib_entry.h"
#include "coap_svc/rpc/common/coap_rpc_link.h"
#include "coap_svc/rpc/server/coap_rpc_ser_data.h"

COAP_RPC_C_BEGIN

/* CoapRpcSerFlights is the changes in payloads whose delivery is not known yet
 * (coap_rpc_ser_flight.h). */
typedef struct CoapRpcSerFlights {
  CoapRpcLink list;      /* ChgFlight, oldest first */
  uint32_t numGivenUp;   /* payloads in blocks given up since one was delivered */
  const void *givenUpBy; /* session that they were for; only compared */
} CoapRpcSerFlights;

typedef struct CoapRpcSerSync CoapRpcSerSync;

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
  void *chgIndex;               /* index of tupleChgList; null when unused */
  CoapRpcSerFlights flights;
  CoapRpcLibEntry lib;
  CoapRpcSerSync *sync; /* versions of the tuples and who has which; null: they have none */
  CoapRpcUriCounts counts;
};

/* CoapRpcSerRootOf returns the instance of an entry. */
static inline CoapRpcCtx *CoapRpcSerRootOf(const CoapRpcSerUriVtbl *entry) {
  return entry->owner->owner;
}

/* CoapRpcUriTuple is one tuple: node, then keyLen key bytes, then valLen value bytes. */
struct CoapRpcUriTuple {
  OSAL_AVL3_NODE node;
  __extension__ uint8_t key[];
};

/* CoapRpcTupleChg is one pending change: header, keyLen key bytes, valLen value bytes. */
struct CoapRpcTupleChg {
  CoapRpcLink chgLink;
  OSAL_AVL3_NODE node; /* for the change tree; never inserted */
  CoapRpcLink idxLink; /* next to its hash neighbours; alone while there is no index */
  uint8_t chgType;     /* 1 update, 2 delete */
  uint8_t rsv[7];      /* the key begins on a word */
  __extension__ uint8_t key[];
};

COAP_RPC_C_END
#endif /* COAP_RPC_SER_ENTRY_H */
