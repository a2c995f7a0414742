/* coap_rpc_lib_stats_disp.cpp: the numbers as tables: a row for each number of the instance, and a
 * row for each URI.
 *
 * The numbers of an instance are one reading and one call.  URIs are read one by one, a call of the
 * command apart, so that many of them do not hold up the instance's thread. */
#include <cinttypes>
#include <cstring>
#include <iterator>

#include "coap_svc/rpc/common/coap_rpc_disp.h"
#include "coap_svc/rpc/common/coap_rpc_log_site.h"
#include "coap_svc/rpc/common/coap_rpc_safe.h"
#include "coap_svc/rpc/common/coap_rpc_text.h"
#include "coap_svc/rpc/libadapter/stats/coap_rpc_lib_stats.h"
#include "coap_svc/rpc/server/coap_rpc_ser_uri.h"

namespace coap_rpc {
namespace {

// Number is a field of CoapRpcStats as operators see it.
struct Number {
  const char *name;
  size_t at;
};

#define FIELD(field) offsetof(CoapRpcStats, field)

// Two directions of the same kinds of messages.  Requests come to a server, responses leave it; for
// a client it is the other way round.
#define TRAFFIC(way)                                                                            \
  {#way ".messages", FIELD(way.messages)}, {#way ".bytes", FIELD(way.bytes)},                   \
      {#way ".requests.get", FIELD(way.requests[COAP_RPC_GET])},                                \
      {#way ".requests.post", FIELD(way.requests[COAP_RPC_POST])},                              \
      {#way ".requests.put", FIELD(way.requests[COAP_RPC_PUT])},                                \
      {#way ".requests.delete", FIELD(way.requests[COAP_RPC_DELETE])},                          \
      {#way ".requests.fetch", FIELD(way.requests[COAP_RPC_FETCH])},                            \
      {#way ".requests.patch", FIELD(way.requests[COAP_RPC_PATCH])},                            \
      {#way ".requests.ipatch", FIELD(way.requests[COAP_RPC_IPATCH])},                          \
      {#way ".requests.other", FIELD(way.requests[0])},                                         \
      {#way ".responses.2", FIELD(way.responses[2])},                                           \
      {#way ".responses.4", FIELD(way.responses[4])},                                           \
      {#way ".responses.5", FIELD(way.responses[5])},                                           \
      {#way ".responses.other", FIELD(way.responses[0])}, {#way ".acks", FIELD(way.emptyAcks)}, \
      {#way ".resets", FIELD(way.resets)}, {                                                    \
#way ".pings", FIELD(way.pings)                                                             \
  }

constexpr Number kServerNumbers[] = {
    TRAFFIC(in),
    TRAFFIC(out),
    {"bad", FIELD(badMessages)},
    {"resends", FIELD(resends)},
    {"repeats", FIELD(repeats)},
    {"notifications", FIELD(notifications)},
    {"notifications.delivered", FIELD(notificationsDelivered)},
    {"notifications.failed", FIELD(notificationsFailed)},
    {"changes.putBack", FIELD(changesPutBack)},
    {"changes.pending", FIELD(changesPending)},
    {"changes.inFlight", FIELD(changesInFlight)},
    {"changes.oldestMs", FIELD(oldestPendingMs)},
    {"sync.pulls", FIELD(syncPulls)},
    {"sync.pages", FIELD(syncPages)},
    {"sync.full", FIELD(syncFull)},
    {"uris", FIELD(uris)},
    {"tuples", FIELD(tuples)},
    {"observers", FIELD(observers)},
    {"peers", FIELD(peers)},
    {"async.open", FIELD(openAsync)},
    {"async.sessions", FIELD(answerSessions)},
    {"refused.openOfPeer", FIELD(refused[COAP_RPC_LIMIT_OPEN_OF_PEER])},
    {"refused.open", FIELD(refused[COAP_RPC_LIMIT_OPEN])},
    {"refused.askers", FIELD(refused[COAP_RPC_LIMIT_ASKERS])},
    {"refused.answers", FIELD(refused[COAP_RPC_LIMIT_ANSWERS])},
    {"refused.directPeers", FIELD(refused[COAP_RPC_LIMIT_DIRECT_PEERS])},
    {"refused.direct", FIELD(refused[COAP_RPC_LIMIT_DIRECT])},
    {"refused.putBack", FIELD(refused[COAP_RPC_LIMIT_PUT_BACK])},
    {"refused.givenUp", FIELD(refused[COAP_RPC_LIMIT_GIVEN_UP])},
    {"refused.remembered", FIELD(refused[COAP_RPC_LIMIT_REMEMBERED])},
    {"refused.syncBodies", FIELD(refused[COAP_RPC_LIMIT_SYNC_BODIES])},
    {"refused.directBodies", FIELD(refused[COAP_RPC_LIMIT_DIRECT_BODIES])},
    {"callbacks", FIELD(callbacks)},
    {"callbacks.ns", FIELD(callbackNs)},
    {"callbacks.maxNs", FIELD(callbackMaxNs)},
    {"io.runs", FIELD(ioRuns)},
    {"io.ns", FIELD(ioNs)},
    {"io.maxNs", FIELD(ioMaxNs)},
    {"pool.bytes", FIELD(poolBytes)},
    {"pool.maxBytes", FIELD(poolMaxBytes)},
};

constexpr Number kClientNumbers[] = {
    {"calls", FIELD(calls)},
    {"calls.open", FIELD(openCalls)},
    {"calls.answered", FIELD(callEnds[1])},
    {"calls.timeout", FIELD(callEnds[2])},
    {"calls.cancelled", FIELD(callEnds[3])},
    {"calls.reset", FIELD(callEnds[4])},
    {"calls.unreachable", FIELD(callEnds[5])},
    {"calls.stopped", FIELD(callEnds[6])},
    {"calls.notifications", FIELD(callNotifications)},
    {"notifications.old", FIELD(notificationsOld)},
    {"nacks.timeout", FIELD(nacks[COAP_RPC_NACK_TIMEOUT])},
    {"nacks.undeliverable", FIELD(nacks[COAP_RPC_NACK_UNDELIVERABLE])},
    {"nacks.reset", FIELD(nacks[COAP_RPC_NACK_RESET])},
    {"nacks.unreachable", FIELD(nacks[COAP_RPC_NACK_UNREACHABLE])},
    {"nacks.badResponse", FIELD(nacks[COAP_RPC_NACK_BAD_RESPONSE])},
    {"nacks.other", FIELD(nacks[COAP_RPC_NACK_OTHER])},
    {"sessions", FIELD(sessions)},
    {"mirrors.connecting", FIELD(mirrors[1])},
    {"mirrors.fullSync", FIELD(mirrors[2])},
    {"mirrors.synced", FIELD(mirrors[3])},
    {"mirrors.behind", FIELD(mirrors[4])},
    {"mirrors.stale", FIELD(mirrors[5])},
    {"mirrors.refused", FIELD(mirrors[6])},
    {"refused.calls", FIELD(refused[COAP_RPC_LIMIT_CALLS])},
    {"refused.mirrors", FIELD(refused[COAP_RPC_LIMIT_MIRRORS])},
};

uint64_t ValueOf(const CoapRpcStats &stats, const Number &number) {
  uint64_t value = 0;
  memcpy(&value, reinterpret_cast<const uint8_t *>(&stats) + number.at, sizeof(value));
  return value;
}

// PrintNumbers prints rows of one reading.
template <size_t kNum>
void PrintNumbers(CoapRpcCtx *ctx, const char *side, const Number (&numbers)[kNum]) {
  const uint64_t disp = ctx->param.dispHandle;
  CoapRpcStats stats;
  ReadStats(ctx, stats);
  int32_t counter = 0;
  for (const Number &number : numbers) {
    KST_DispPrintf_(disp, "%s stats[%3d]: name(%s)/value(%" PRIu64 ")\n", side, counter++,
                    number.name, ValueOf(stats, number));
  }
  KST_DispPrintf_(disp, " ***total %d %s number(s) ***\n", counter, side);
}

uint32_t DispServerStats(void *ctx, ...) {
  PrintNumbers(static_cast<CoapRpcCtx *>(ctx), "server", kServerNumbers);
  return 0;
}

uint32_t DispClientStats(void *ctx, ...) {
  PrintNumbers(static_cast<CoapRpcCtx *>(ctx), "client", kClientNumbers);
  return 0;
}

struct UriDump {
  using Key = CoapRpcUriKey;
  static CoapRpcSerData *DataOf(CoapRpcCtx *ctx) { return ctx->ser; }
  static CoapRpcSerUriVtbl *First(CoapRpcSerData *ser) { return COAP_RpcSerFindFirstUriVtbl(ser); }
  static CoapRpcSerUriVtbl *Next(CoapRpcSerData *ser, const Key &key) {
    return COAP_RpcSerFindNextUriVtbl(ser, &key);
  }
  static const Key &KeyOf(const CoapRpcSerUriVtbl &entry) { return entry.key; }
  static char *Text(CoapRpcSerData *, CoapRpcSerUriVtbl *entry, char *buf, uint32_t size) {
    uint32_t room = COAP_RPC_STATS_MAX_COUNTED;
    const CoapRpcUriStats stats = ReadUriStats(entry, &room);
    const CoapRpcUriKey &key = entry->key;
    snprintf_truncated_s(
        buf, size,
        "uri(%s)/msgType(%s)/observe(%u)/pktType(%s)/requests(%" PRIu64 ")/callbackNs(%" PRIu64
        ")/callbackMaxNs(%" PRIu64 ")/notifications(%" PRIu64 ")/delivered(%" PRIu64
        ")/failed(%" PRIu64 ")/putBack(%" PRIu64 ")/tuples(%" PRIu64 ")/pending(%" PRIu64
        ")/inFlight(%" PRIu64 ")/oldestMs(%" PRIu64 ")/observers(%" PRIu64 ")",
        UriText(key.uri).c_str(), COAP_RpcGetMsgTypeStr(key.msgType), key.observe,
        COAP_RpcGetPktTypeStr(key.pktType), stats.requests, stats.callbackNs, stats.callbackMaxNs,
        stats.notifications, stats.notificationsDelivered, stats.notificationsFailed,
        stats.changesPutBack, stats.tuples, stats.changesPending, stats.changesInFlight,
        stats.oldestPendingMs, stats.observers);
    return buf;
  }
  static void PrintLine(uint64_t disp, int32_t counter, const char *text) {
    KST_DispPrintf_(disp, "server uriStats[%3d]: %s\n", counter, text);
  }
  static void PrintTotal(uint64_t disp, int32_t counter) {
    KST_DispPrintf_(disp, " ***total %d server uri(s) ***\n", counter);
  }
};

uint32_t DispUriStats(void *ctx, ...) { return DumpNextRecord<UriDump>(ctx); }

constexpr DispCommand kCommands[] = {
    {"DispServerStats", DispServerStats, "disp server stats", nullptr,
     "counters of messages, notifications, refusals and time"},
    {"DispUriStats", DispUriStats, "disp server uriStats", nullptr,
     "counters of each registered URI"},
    {"DispClientStats", DispClientStats, "disp client stats", nullptr,
     "counters of calls, failures and mirrors"},
};

}  // namespace

void RegisterStatsCommands(const CoapRpcCtx *ctx) {
  for (const DispCommand &row : kCommands) RegisterCommand(ctx, row);
}

}  // namespace coap_rpc
