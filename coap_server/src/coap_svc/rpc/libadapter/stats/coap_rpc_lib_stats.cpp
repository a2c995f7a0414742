#include "coap_svc/rpc/libadapter/stats/coap_rpc_lib_stats.h"

#include <algorithm>
#include <cstring>

#include "coap_svc/rpc/client/coap_rpc_cli_data.h"
#include "coap_svc/rpc/client/coap_rpc_cli_session.h"
#include "coap_svc/rpc/coap_rpc_call.h"
#include "coap_svc/rpc/coap_rpc_direct.h"
#include "coap_svc/rpc/coap_rpc_ext.h"
#include "coap_svc/rpc/common/coap_rpc_sites.h"
#include "coap_svc/rpc/common/coap_rpc_stopwatch.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_data.h"
#include "coap_svc/rpc/libadapter/mirror/coap_rpc_lib_mirror_record.h"
#include "coap_svc/rpc/server/coap_rpc_ser_chg_index.h"
#include "coap_svc/rpc/server/coap_rpc_ser_flight.h"
#include "coap_svc/rpc/server/coap_rpc_ser_uri.h"
#include "coap_svc/rpc/server/sync/coap_rpc_ser_sync.h"
#include "kst_mem.h"
#include "libcoap/ext/coap_rpc_lib_traffic.h"

// Null in a host that does not say.
#pragma weak KST_MemUsage

namespace coap_rpc {
namespace {

constexpr uint64_t kNsPerMs = 1000000;

// CountChgs counts a list of changes as long as there is room.
uint32_t CountChgs(CoapRpcLink &list, uint32_t *room) {
  const PendingChgs chgs(list);
  uint32_t num = 0;
  for (CoapRpcTupleChg *chg = chgs.First(); chg && *room != 0; chg = chgs.After(chg)) {
    ++num;
    --*room;
  }
  return num;
}

uint32_t CountInFlight(CoapRpcSerUriVtbl *entry, uint32_t *room) {
  uint32_t num = 0;
  EntryFlights(entry->flights.list).ForEach([&](ChgFlight *flight) {
    num += CountChgs(flight->chgList, room);
  });
  return num;
}

uint64_t PendingMs(const CoapRpcSerUriVtbl *entry, uint64_t numPending) {
  return numPending != 0 ? (MonotonicNs() - entry->counts.pendingSinceNs) / kNsPerMs : 0;
}

void AddUri(CoapRpcStats &stats, const CoapRpcUriStats &uri) {
  ++stats.uris;
  stats.tuples += uri.tuples;
  stats.changesPending += uri.changesPending;
  stats.changesInFlight += uri.changesInFlight;
  stats.oldestPendingMs = std::max(stats.oldestPendingMs, uri.oldestPendingMs);
  stats.observers += uri.observers;
}

void ReadUris(CoapRpcSerData *ser, CoapRpcStats &stats) {
  uint32_t room = COAP_RPC_STATS_MAX_COUNTED;
  if (!ser) return;
  CoapRpcSerUriVtbl *entry = COAP_RpcSerFindFirstUriVtbl(ser);
  for (; entry; entry = COAP_RpcSerFindNextUriVtbl(ser, &entry->key)) {
    AddUri(stats, ReadUriStats(entry, &room));
  }
}

void ReadMirrors(CoapRpcMirrors *mirrors, CoapRpcStats &stats) {
  if (!mirrors) return;
  AllMirrors(mirrors->list).ForEach([&](const CoapRpcMirror *mirror) {
    ++stats.mirrors[MirrorStateOf(mirror->core, MirrorNowMs()).state];
  });
}

void ReadClient(CoapRpcCliData *cli, CoapRpcStats &stats) {
  if (!cli) return;
  stats.notificationsOld = cli->numOldNotified;
  CoapRpcCliSession *session = COAP_RpcCliFindFirstSession(cli);
  for (; session; session = COAP_RpcCliFindNextSession(cli, &session->key)) ++stats.sessions;
}

void ReadLimits(const coap_context_t *coapCtx, CoapRpcStats &stats) {
  if (!coapCtx) return;
  const CoapRpcLibLimitHits hits = CoapRpcLibGetLimitHits(coapCtx);
  stats.refused[COAP_RPC_LIMIT_OBSERVERS] = hits.observers;
  stats.refused[COAP_RPC_LIMIT_IDLE_PEERS] = hits.idlePeers;
  stats.refused[COAP_RPC_LIMIT_UPLOADS] = hits.uploads;
}

void ReadPool(uint64_t mem, CoapRpcStats &stats) {
  if (KST_MemUsage) KST_MemUsage(mem, &stats.poolBytes, &stats.poolMaxBytes);
}

uint64_t NumObservers(const CoapRpcSerUriVtbl *entry) {
  return entry->observerNum + (entry->sync ? entry->sync->peers.num : 0);
}

uint64_t NumTuples(const CoapRpcSerUriVtbl *entry) {
  return entry->sync ? entry->sync->set.numLive : entry->counts.stats.tuples;
}

// FirstUri returns the first entry after a key, or of all.
CoapRpcSerUriVtbl *FirstUri(CoapRpcSerData *ser, const CoapRpcUriKey *after) {
  if (!ser) return nullptr;
  return after ? COAP_RpcSerFindNextUriVtbl(ser, after) : COAP_RpcSerFindFirstUriVtbl(ser);
}

}  // namespace

CoapRpcUriStats ReadUriStats(CoapRpcSerUriVtbl *entry, uint32_t *room) {
  CoapRpcUriStats stats = entry->counts.stats;
  stats.size = sizeof(stats);
  stats.version = COAP_RPC_STATS_VERSION;
  stats.tuples = NumTuples(entry);
  stats.changesPending = entry->obVtbl ? CountChgs(entry->tupleChgList, room) : 0;
  stats.changesInFlight = CountInFlight(entry, room);
  stats.oldestPendingMs = PendingMs(entry, stats.changesPending);
  stats.observers = NumObservers(entry);
  return stats;
}

void ReadStats(CoapRpcCtx *ctx, CoapRpcStats &stats) {
  stats = ctx->counts;
  stats.version = COAP_RPC_STATS_VERSION;
  stats.refused[COAP_RPC_LIMIT_REMEMBERED] = COAP_RpcGetForgottenNum(ctx);
  stats.openAsync = COAP_RpcGetOpenAsyncNum(ctx);
  stats.openCalls = COAP_RpcGetCallNum(ctx);
  ReadUris(ctx->ser, stats);
  ReadClient(ctx->cli, stats);
  ReadPool(ctx->param.memHandle, stats);
  if (!ctx->lib) return;
  stats.answerSessions = ctx->lib->numAnswerSessions;
  ReadMirrors(ctx->lib->mirrors, stats);
  ReadLimits(ctx->lib->coapCtx, stats);
}

}  // namespace coap_rpc

using namespace coap_rpc;

uint32_t COAP_RpcGetStats(CoapRpcCtx *ctx, CoapRpcStats *stats) {
  constexpr uint32_t kHeadSize = offsetof(CoapRpcStats, in);
  if (!ctx || !stats) return Violated(kSiteGetStatsNullArg);
  if (stats->size < kHeadSize) return Code(kSiteGetStatsBadSize);
  CoapRpcStats whole;
  ReadStats(ctx, whole);
  whole.size = std::min(stats->size, uint32_t{sizeof(whole)});
  memcpy(stats, &whole, whole.size);
  return 0;
}

uint32_t COAP_RpcVisitUriStats(CoapRpcCtx *ctx, const CoapRpcUriKey *after, uint32_t maxNum,
                               CoapRpcOnUriStats onUri, uint64_t userData, uint32_t *num) {
  if (!ctx || !onUri) return Violated(kSiteVisitUriStatsNullArg);
  uint32_t room = COAP_RPC_STATS_MAX_COUNTED;
  uint32_t numVisited = 0;
  CoapRpcSerUriVtbl *entry = FirstUri(ctx->ser, after);
  while (entry && (maxNum == 0 || numVisited < maxNum)) {
    const CoapRpcUriStats stats = ReadUriStats(entry, &room);
    const CoapRpcUriKey key = entry->key;  // the callback may remove the entry
    ++numVisited;
    onUri(userData, &key, &stats);
    entry = FirstUri(ctx->ser, &key);
  }
  if (num) *num = numVisited;
  return 0;
}

uint32_t COAP_RpcShowStats(CoapRpcCtx *ctx) {
  if (!ctx) return Violated(kSiteShowStatsNullArg);
  RegisterStatsCommands(ctx);
  RegisterUnderWayCommands(ctx);
  return 0;
}
