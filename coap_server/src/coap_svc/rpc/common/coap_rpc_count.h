/* coap_rpc_count.h: what is counted while an instance runs (coap_rpc_stats.h).
 *
 * An instance has one record and a URI has one; each counter of them grows at one place, and is
 * read by libadapter/stats alone, which adds the gauges. */
#ifndef COAP_RPC_COUNT_H
#define COAP_RPC_COUNT_H

#include "coap_svc/rpc/coap_rpc_stats.h"

/* CoapRpcUriCounts is what a URI counts.  Its gauges stay 0, but for tuples, which are counted
 * while they have no versions. */
typedef struct CoapRpcUriCounts {
  CoapRpcUriStats stats;
  uint64_t pendingSinceNs; /* when its list of pending changes was last empty; see MonotonicNs */
} CoapRpcUriCounts;

#endif /* COAP_RPC_COUNT_H */
