/* coap_rpc_lib_entry.h: what the adapter remembers of a server entry. */
#ifndef COAP_RPC_LIB_ENTRY_H
#define COAP_RPC_LIB_ENTRY_H

#include "coap_svc/rpc/common/coap_rpc_link.h"

COAP_RPC_C_BEGIN

/* CoapRpcLibEntry is all zero in a new entry.  Only the adapter reads and writes it; others may ask
 * whether there is a `direct`. */
typedef struct CoapRpcLibEntry {
  void *answerSession;       /* what the entry's asyncSession belongs to; null for none */
  CoapRpcLink blockList;     /* payloads owned by libcoap that still name the entry */
  uint32_t hasLoggedTooLong; /* 1 once a message that fits into no payload was logged */
  void *direct;              /* how a direct entry is served, owned; null for others */
} CoapRpcLibEntry;

COAP_RPC_C_END
#endif /* COAP_RPC_LIB_ENTRY_H */
