/* coap_rpc_link.h: the link of an intrusive, circular, doubly linked list.
 *
 * A head that points at itself is an empty list; so is an all-zero head, which is what a record
 * holds before its module has started.  A record's link points at itself while it is on no list. */
#ifndef COAP_RPC_LINK_H
#define COAP_RPC_LINK_H

#include "coap_svc/rpc/coap_rpc_types.h"

COAP_RPC_C_BEGIN

typedef struct CoapRpcLink {
  struct CoapRpcLink *next;
  struct CoapRpcLink *prev;
} CoapRpcLink;

COAP_RPC_C_END
#endif /* COAP_RPC_LINK_H */
