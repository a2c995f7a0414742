/* coap_rpc_lib_stats.h: reads what an instance has counted, and what it holds.
 *
 * Each counter grows where its event happens, in the root record or in a URI's.  This room adds the
 * gauges, which it takes from the other rooms' records without changing them, and shows both. */
#ifndef COAP_RPC_LIB_STATS_H
#define COAP_RPC_LIB_STATS_H

#include "coap_svc/rpc/common/coap_rpc_ctx.h"
#include "coap_svc/rpc/server/coap_rpc_ser_entry.h"

namespace coap_rpc {

// ReadStats fills everything but `size`.
void ReadStats(CoapRpcCtx *ctx, CoapRpcStats &stats);

// ReadUriStats counts up to `*room` changes, and takes what it has counted off it.
CoapRpcUriStats ReadUriStats(CoapRpcSerUriVtbl *entry, uint32_t *room);

// RegisterStatsCommands adds the commands of COAP_RpcShowStats to the instance's.
void RegisterStatsCommands(const CoapRpcCtx *ctx);
void RegisterUnderWayCommands(const CoapRpcCtx *ctx);

}  // namespace coap_rpc

#endif /* COAP_RPC_LIB_STATS_H */
