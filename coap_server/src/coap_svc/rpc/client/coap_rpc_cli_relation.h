/* coap_rpc_cli_relation.h: what a request record remembers of its observe relation.
 *
 * All zero for a relation that is new to its peer.  The adapter keeps it and has the rules
 * (libadapter/message/coap_rpc_lib_order.h). */
#ifndef COAP_RPC_CLI_RELATION_H
#define COAP_RPC_CLI_RELATION_H

#include "coap_svc/rpc/coap_rpc_types.h"

COAP_RPC_C_BEGIN

/* What the freshest message of a relation was. */
enum {
  COAP_RPC_FRESHEST_NONE = 0,
  COAP_RPC_FRESHEST_NOTIFICATION = 1,
  COAP_RPC_FRESHEST_ANSWER = 2 /* the piggybacked response to a registration */
};

/* Whether something was dropped that nobody has: then the next verification asks for everything. */
enum {
  COAP_RPC_MISSING_NOTHING = 0,
  COAP_RPC_MISSING_SOME = 1,
  COAP_RPC_MISSING_ASKED = 2 /* everything has been asked for, and not answered yet */
};

typedef struct CoapRpcCliRelation {
  uint32_t freshest;     /* COAP_RPC_FRESHEST_* */
  uint32_t number;       /* its Observe number, 24 bits */
  uint64_t freshAt;      /* when it came, in libcoap's ticks */
  uint64_t seen;         /* bit i: the number i before `number` has come */
  uint32_t isAwaited;    /* 1: the latest registration has no response yet */
  uint32_t wasNumbered;  /* 1: `numberSent` is a number */
  uint32_t numberSent;   /* `number` when the latest registration was sent */
  uint32_t formerNumber; /* the last one before the peer began to count again */
  uint64_t formerUntil;  /* until when copies with such numbers may come; 0: no restart seen */
  uint32_t numBodies;    /* payloads in blocks begun */
  uint32_t heldFor;      /* the one that a renewal waits for, counted from 1; 0 none */
  uint32_t isBodyOld;    /* 1: a newer payload has overtaken the one that is coming in */
  uint32_t missing;      /* COAP_RPC_MISSING_* */
} CoapRpcCliRelation;

COAP_RPC_C_END
#endif /* COAP_RPC_CLI_RELATION_H */
