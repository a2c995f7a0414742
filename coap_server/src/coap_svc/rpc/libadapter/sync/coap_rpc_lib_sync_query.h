/* coap_rpc_lib_sync_query.h: what a reader asks for, in the Uri-Query options of a GET.
 *
 *   _sync=1           this protocol; required
 *   id=<hex>          the life of the set that the reader knows, 1 to 16 digits
 *   since=<version>   what it has of it; 0 when left out
 *   until=<version>   where the page is to end at the latest; the head when left out or beyond it
 *   full=1            it reads everything from 0 on, and minds no deletion that is forgotten
 *
 * Each at most once, in any order, and nothing else: a reader that means more than is understood
 * here is told so. */
#ifndef COAP_RPC_LIB_SYNC_QUERY_H
#define COAP_RPC_LIB_SYNC_QUERY_H

#include <coap3/coap.h>

#include <string_view>

namespace coap_rpc {

struct SyncQuery {
  uint64_t id = 0;
  uint64_t since = 0;
  uint64_t until = UINT64_MAX;
  uint32_t found = 0;  // bit for each argument
};

enum SyncArg : uint32_t {
  kSyncArgSync = 1,
  kSyncArgId = 2,
  kSyncArgSince = 4,
  kSyncArgUntil = 8,
  kSyncArgFull = 16
};

// IsSyncRequest says whether a request has an argument "_sync".
bool IsSyncRequest(const coap_pdu_t *request);

// ReadSyncQuery reads the arguments of a request.  False: they are not as above.
bool ReadSyncQuery(const coap_pdu_t *request, SyncQuery &query);

// ReadSyncArg reads one of them.
bool ReadSyncArg(std::string_view arg, SyncQuery &query);

}  // namespace coap_rpc

#endif /* COAP_RPC_LIB_SYNC_QUERY_H */
