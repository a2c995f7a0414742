#include "coap_svc/rpc/libadapter/mirror/coap_rpc_lib_mirror_disp.h"

#include <cinttypes>
#include <cstring>

#include "coap_svc/rpc/common/coap_rpc_disp.h"
#include "coap_svc/rpc/common/coap_rpc_log_site.h"
#include "coap_svc/rpc/common/coap_rpc_safe.h"
#include "coap_svc/rpc/common/coap_rpc_text.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_data.h"
#include "coap_svc/rpc/libadapter/mirror/coap_rpc_lib_mirror_record.h"

namespace coap_rpc {
namespace {

// MirrorId is an id as bytes.
struct MirrorId {
  uint8_t bytes[sizeof(uint64_t)];
};

const char *StateText(uint32_t state) {
  static const char *const kTexts[] = {"",       "connecting", "full sync", "synced",
                                       "behind", "stale",      "refused"};
  return kTexts[state];
}

struct MirrorDump : LabelledDump<MirrorDump> {
  static constexpr char kLabel[] = "client mirror", kCounted[] = "client mirror";
  using Key = MirrorId;
  static CoapRpcMirrors *DataOf(CoapRpcCtx *ctx) { return ctx->lib ? ctx->lib->mirrors : nullptr; }
  static CoapRpcMirror *First(CoapRpcMirrors *mirrors) { return AllMirrors(mirrors->list).First(); }
  static CoapRpcMirror *Next(CoapRpcMirrors *mirrors, const Key &key) {
    uint64_t id = 0;
    memcpy(&id, key.bytes, sizeof(id));
    return AllMirrors(mirrors->list).FindIf([id](const CoapRpcMirror &mirror) {
      return mirror.due.id > id;
    });
  }
  static const Key &KeyOf(const CoapRpcMirror &mirror) {
    return reinterpret_cast<const Key &>(mirror.due.id);
  }
  static char *Text(CoapRpcMirrors *, CoapRpcMirror *mirror, char *buf, uint32_t size) {
    const CoapRpcMirrorState state = MirrorStateOf(mirror->core, MirrorNowMs());
    char ip[kIpTextSize] = "";
    snprintf_truncated_s(
        buf, size,
        "uri(%s)/server(%s:%u)/state(%s)/code(%u)/replid(%016" PRIx64 ")/version(%" PRIu64
        ")/head(%" PRIu64 ")/tuples(%" PRIu64 ")/bytes(%" PRIu64 ")/silentMs(%" PRIu64
        ")/pulls(%" PRIu64 ")/repeats(%" PRIu64 ")/notifications(%" PRIu64 ")/fullSyncs(%" PRIu64
        ")/sockets(%" PRIu64 ")/digestErrors(%" PRIu64 ")/bad(%" PRIu64 ")/window(%u)",
        UriText(mirror->key.uri).c_str(), COAP_RpcIpAddrGetStr(&mirror->addr.dstIp, ip, sizeof(ip)),
        mirror->addr.dstPort, StateText(state.state), state.code, state.replid, state.version,
        state.head, state.numTuples, state.bytes, state.silentMs, state.numPulls, state.numRepeats,
        state.numNotifications, state.numFullSyncs, state.numRegistrations, state.numDigestErrors,
        state.numBadMessages, state.window);
    return buf;
  }
};

uint32_t DispMirror(void *ctx, ...) { return DumpNextRecord<MirrorDump>(ctx); }

}  // namespace

void RegisterMirrorCommand(const CoapRpcCtx *ctx) {
  RegisterCommand(ctx, {"DispMirror", DispMirror, "disp client mirror", nullptr,
                        "mirrors of tables of other hosts"});
}

}  // namespace coap_rpc
