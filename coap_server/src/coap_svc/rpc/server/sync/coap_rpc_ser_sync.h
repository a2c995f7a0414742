/* coap_rpc_ser_sync.h: what an entry whose tuples have versions has beyond others.
 *
 * It is made once, by COAP_RpcSerSetUriSync, and lives as long as the entry's observe record. */
#ifndef COAP_RPC_SER_SYNC_H
#define COAP_RPC_SER_SYNC_H

#include "coap_svc/rpc/coap_rpc_sync.h"
#include "coap_svc/rpc/server/sync/coap_rpc_ser_sync_set.h"

struct CoapRpcSerSync {
  coap_rpc::SyncSet set;
  CoapRpcSerSyncParam param;  // without zeros that stand for defaults
};

namespace coap_rpc {

// SetSync gives an entry with an observe record its versions, or others parameters.  Returns 0 or
// the codes of COAP_RpcSerSetUriSync from 1900001513 on.
uint32_t SetSync(CoapRpcSerUriVtbl *entry, const CoapRpcSerSyncParam &param);

// SyncDrop frees the versions of an entry, if it has any, with its tuples.
void SyncDrop(CoapRpcSerUriVtbl *entry);

}  // namespace coap_rpc

#endif /* COAP_RPC_SER_SYNC_H */
