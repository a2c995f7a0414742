/* coap_rpc_lib_stats_disp.cpp: the numbers as tables: a row for each number of the instance, and a
 * row for each URI.
 *
 * The numbers of an instance are one reading and one call.  URIs are read one by one, a call of the
 * command apart, so that many of them do not hold up the instance's thread; such a row counts at
 * most kMaxCountedInRow changes. */
#include <cinttypes>

#include "coap_svc/rpc/common/coap_rpc_disp.h"
#include "coap_svc/rpc/common/coap_rpc_log_site.h"
#include "coap_svc/rpc/common/coap_rpc_safe.h"
#include "coap_svc/rpc/common/coap_rpc_text.h"
#include "coap_svc/rpc/common/coap_rpc_times.h"
#include "coap_svc/rpc/libadapter/stats/coap_rpc_lib_numbers.h"
#include "coap_svc/rpc/libadapter/stats/coap_rpc_lib_stats.h"
#include "coap_svc/rpc/server/coap_rpc_ser_uri.h"

namespace coap_rpc {
namespace {

// PrintNumbers prints rows of one reading.
void PrintNumbers(CoapRpcCtx *ctx, const char *side, std::span<const Number> numbers) {
  const uint64_t disp = ctx->param.dispHandle;
  CoapRpcStats stats;
  ReadStats(ctx, stats);
  int32_t counter = 0;
  for (const Number &number : numbers) {
    KST_DispPrintf_(disp, "%s stats[%3d]: name(%s)/of(%s)/kind(%s)/unit(%s)/value(%" PRIu64 ")\n",
                    side, counter++, number.name, number.of, number.kind, number.unit,
                    ValueOf(stats, number));
  }
  KST_DispPrintf_(disp, " ***total %d %s number(s) ***\n", counter, side);
}

uint32_t DispServerStats(void *ctx, ...) {
  PrintNumbers(static_cast<CoapRpcCtx *>(ctx), "server", ServerNumbers());
  return 0;
}

uint32_t DispClientStats(void *ctx, ...) {
  PrintNumbers(static_cast<CoapRpcCtx *>(ctx), "client", ClientNumbers());
  return 0;
}

// PrintTimes prints a row for each size of durations; the last one has what all take together.
void PrintTimes(CoapRpcCtx *ctx, const char *side, const char *what, const CoapRpcTimes &times,
                uint64_t sumNs) {
  const uint64_t disp = ctx->param.dispHandle;
  for (uint32_t i = 0; i < kLastTime; ++i) {
    KST_DispPrintf_(disp,
                    "%s times[%3u]: name(%s)/below(%" PRIu64 ")/unit(ns)/count(%" PRIu64 ")\n",
                    side, i, what, TimeBelow(i), times.num[i]);
  }
  KST_DispPrintf_(
      disp, "%s times[%3u]: name(%s)/below(inf)/unit(ns)/count(%" PRIu64 ")/sum(%" PRIu64 ")\n",
      side, kLastTime, what, times.num[kLastTime], sumNs);
  KST_DispPrintf_(disp, " ***total %u %s time(s) ***\n", kLastTime + 1, side);
}

uint32_t DispServerTimes(void *obj, ...) {
  auto *ctx = static_cast<CoapRpcCtx *>(obj);
  PrintTimes(ctx, "server", "callbacks", ctx->counts.callbackTimes, ctx->counts.callbackNs);
  return 0;
}

uint32_t DispClientTimes(void *obj, ...) {
  auto *ctx = static_cast<CoapRpcCtx *>(obj);
  PrintTimes(ctx, "client", "calls", ctx->counts.callTimes, ctx->counts.callNs);
  return 0;
}

// What a row may take: a few of them are printed in a turn of the host's loop.
constexpr uint32_t kMaxCountedInRow = 4096;

struct UriDump : LabelledDump<UriDump> {
  static constexpr char kLabel[] = "server perUri", kCounted[] = "server uri";
  using Key = CoapRpcUriKey;
  static CoapRpcSerData *DataOf(CoapRpcCtx *ctx) { return ctx->ser; }
  static CoapRpcSerUriVtbl *First(CoapRpcSerData *ser) { return COAP_RpcSerFindFirstUriVtbl(ser); }
  static CoapRpcSerUriVtbl *Next(CoapRpcSerData *ser, const Key &key) {
    return COAP_RpcSerFindNextUriVtbl(ser, &key);
  }
  static const Key &KeyOf(const CoapRpcSerUriVtbl &entry) { return entry.key; }
  static char *Text(CoapRpcSerData *, CoapRpcSerUriVtbl *entry, char *buf, uint32_t size) {
    uint32_t room = kMaxCountedInRow;
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
};

uint32_t DispUriStats(void *ctx, ...) { return DumpNextRecord<UriDump>(ctx); }

constexpr DispCommand kCommands[] = {
    {"DispServerStats", DispServerStats, "disp server stats", nullptr,
     "counters of messages, notifications, refusals and time"},
    {"DispUriStats", DispUriStats, "disp server perUri", nullptr,
     "counters of each registered URI"},
    {"DispClientStats", DispClientStats, "disp client stats", nullptr,
     "counters of calls, failures and mirrors"},
    {"DispServerTimes", DispServerTimes, "disp server times", nullptr,
     "how many callbacks took how long"},
    {"DispClientTimes", DispClientTimes, "disp client times", nullptr,
     "how many answers to calls took how long"},
};

}  // namespace

void RegisterStatsCommands(const CoapRpcCtx *ctx) {
  for (const DispCommand &row : kCommands) RegisterCommand(ctx, row);
}

}  // namespace coap_rpc
