#include "coap_svc/rpc/server/sync/coap_rpc_ser_sync_disp.h"

#include <cinttypes>

#include "coap_svc/rpc/common/coap_rpc_disp.h"
#include "coap_svc/rpc/common/coap_rpc_log_site.h"
#include "coap_svc/rpc/common/coap_rpc_safe.h"
#include "coap_svc/rpc/server/coap_rpc_ser_uri.h"
#include "coap_svc/rpc/server/sync/coap_rpc_ser_sync.h"

namespace coap_rpc {
namespace {

struct SyncDump {
  using Key = CoapRpcUriKey;
  static CoapRpcSerData *DataOf(CoapRpcCtx *ctx) { return ctx->ser; }
  static CoapRpcSerUriVtbl *First(CoapRpcSerData *ser) {
    return FirstSynced(ser, COAP_RpcSerFindFirstUriVtbl(ser));
  }
  static CoapRpcSerUriVtbl *Next(CoapRpcSerData *ser, const Key &key) {
    return FirstSynced(ser, COAP_RpcSerFindNextUriVtbl(ser, &key));
  }
  static CoapRpcSerUriVtbl *FirstSynced(CoapRpcSerData *ser, CoapRpcSerUriVtbl *from) {
    while (from && !from->sync) from = COAP_RpcSerFindNextUriVtbl(ser, &from->key);
    return from;
  }
  static const Key &KeyOf(const CoapRpcSerUriVtbl &entry) { return entry.key; }
  static char *Text(CoapRpcSerData *, CoapRpcSerUriVtbl *entry, char *buf, uint32_t size) {
    const CoapRpcSerSyncState state = SyncStateOf(entry);
    snprintf_truncated_s(buf, size,
                         "uri(%s)/replid(%016" PRIx64 ")/head(%" PRIu64 ")/floor(%" PRIu64
                         ")/digest(%016" PRIx64 ")/confirmed(%" PRIu64 ")/unconfirmedMs(%" PRIu64
                         ")/live(%u)/tombstones(%u)/observers(%u)/behind(%u)/bytes(%" PRIu64 ")",
                         UriText(entry->key.uri).c_str(), state.replid, state.head, state.floor,
                         state.digest, state.confirmed, state.unconfirmedMs, state.numLive,
                         state.numTombstones, state.numObservers, state.numBehind, state.bytes);
    return buf;
  }
  static void PrintLine(uint64_t disp, int32_t counter, const char *text) {
    KST_DispPrintf_(disp, "server sync[%3d]: %s\n", counter, text);
  }
  static void PrintTotal(uint64_t disp, int32_t counter) {
    KST_DispPrintf_(disp, " ***total %d server sync(s) ***\n", counter);
  }
};

uint32_t DispSync(void *ctx, ...) { return DumpNextRecord<SyncDump>(ctx); }

}  // namespace

void RegisterSyncCommand(const CoapRpcCtx *ctx) {
  RegisterCommand(ctx, {"DispSync", DispSync, "disp server sync", nullptr,
                        "the versions that each observable URI keeps"});
}

}  // namespace coap_rpc
