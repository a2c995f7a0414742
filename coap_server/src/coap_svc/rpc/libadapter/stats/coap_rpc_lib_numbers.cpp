#include "coap_svc/rpc/libadapter/stats/coap_rpc_lib_numbers.h"

#include "coap_svc/rpc/coap_rpc_call.h"
#include "coap_svc/rpc/coap_rpc_direct.h"
#include "coap_svc/rpc/coap_rpc_sync.h"

namespace coap_rpc {
namespace {

constexpr Number Of(const char *name, const char *of, size_t at) {
  return {name, of, kCounter, kNoUnit, at};
}
constexpr Number Count(const char *name, size_t at, const char *unit = kNoUnit) {
  return {name, kNoUnit, kCounter, unit, at};
}
constexpr Number Gauge(const char *name, size_t at, const char *unit = kNoUnit) {
  return {name, kNoUnit, kGauge, unit, at};
}
constexpr Number GaugeOf(const char *name, const char *of, size_t at) {
  return {name, of, kGauge, kNoUnit, at};
}

#define AT(field) offsetof(CoapRpcStats, field)

// Two directions of the same kinds of messages.  Requests come to a server, responses leave it; for
// a client it is the other way round.
#define TRAFFIC(way)                                                                       \
  Count(#way ".messages", AT(way.messages)), Count(#way ".bytes", AT(way.bytes), "bytes"), \
      Of(#way ".requests", "get", AT(way.requests[1])),                                    \
      Of(#way ".requests", "post", AT(way.requests[2])),                                   \
      Of(#way ".requests", "put", AT(way.requests[3])),                                    \
      Of(#way ".requests", "delete", AT(way.requests[4])),                                 \
      Of(#way ".requests", "fetch", AT(way.requests[5])),                                  \
      Of(#way ".requests", "patch", AT(way.requests[6])),                                  \
      Of(#way ".requests", "ipatch", AT(way.requests[7])),                                 \
      Of(#way ".requests", "other", AT(way.requests[0])),                                  \
      Of(#way ".responses", "2xx", AT(way.responses[2])),                                  \
      Of(#way ".responses", "4xx", AT(way.responses[4])),                                  \
      Of(#way ".responses", "5xx", AT(way.responses[5])),                                  \
      Of(#way ".responses", "other", AT(way.responses[0])),                                \
      Count(#way ".acks", AT(way.emptyAcks)), Count(#way ".resets", AT(way.resets)),       \
      Count(#way ".pings", AT(way.pings))

constexpr Number Refused(const char *of, size_t limit) {
  return Of("refused", of, AT(refused) + limit * sizeof(uint64_t));
}

constexpr Number kServerNumbers[] = {
    TRAFFIC(in),
    TRAFFIC(out),
    Count("bad", AT(badMessages)),
    Count("resends", AT(resends)),
    Count("repeats", AT(repeats)),
    Count("notifications", AT(notifications)),
    Count("notifications.delivered", AT(notificationsDelivered)),
    Count("notifications.failed", AT(notificationsFailed)),
    Count("changes.putBack", AT(changesPutBack)),
    Gauge("changes.pending", AT(changesPending)),
    Gauge("changes.inFlight", AT(changesInFlight)),
    Gauge("changes.oldest", AT(oldestPendingMs), "ms"),
    Count("sync.pulls", AT(syncPulls)),
    Count("sync.pages", AT(syncPages)),
    Count("sync.full", AT(syncFull)),
    Gauge("uris", AT(uris)),
    Gauge("tuples", AT(tuples)),
    Gauge("observers", AT(observers)),
    Gauge("peers", AT(peers)),
    Gauge("async.open", AT(openAsync)),
    Gauge("async.sessions", AT(answerSessions)),
    Refused("openOfPeer", COAP_RPC_LIMIT_OPEN_OF_PEER),
    Refused("open", COAP_RPC_LIMIT_OPEN),
    Refused("askers", COAP_RPC_LIMIT_ASKERS),
    Refused("answers", COAP_RPC_LIMIT_ANSWERS),
    Refused("directPeers", COAP_RPC_LIMIT_DIRECT_PEERS),
    Refused("direct", COAP_RPC_LIMIT_DIRECT),
    Refused("putBack", COAP_RPC_LIMIT_PUT_BACK),
    Refused("givenUp", COAP_RPC_LIMIT_GIVEN_UP),
    Refused("remembered", COAP_RPC_LIMIT_REMEMBERED),
    Refused("syncBodies", COAP_RPC_LIMIT_SYNC_BODIES),
    Refused("directBodies", COAP_RPC_LIMIT_DIRECT_BODIES),
    Refused("observers", COAP_RPC_LIMIT_OBSERVERS),
    Refused("idlePeers", COAP_RPC_LIMIT_IDLE_PEERS),
    Refused("uploads", COAP_RPC_LIMIT_UPLOADS),
    Refused("payloads", COAP_RPC_LIMIT_PAYLOADS),
    Refused("lastBlocks", COAP_RPC_LIMIT_LAST_BLOCKS),
    Refused("syncRegistrations", COAP_RPC_LIMIT_SYNC_REGISTRATIONS),
    Count("callbacks", AT(callbacks)),
    Count("callbacks.time", AT(callbackNs), "ns"),
    Gauge("callbacks.longest", AT(callbackMaxNs), "ns"),
    Count("io.runs", AT(ioRuns)),
    Count("io.time", AT(ioNs), "ns"),
    Gauge("io.longest", AT(ioMaxNs), "ns"),
    Gauge("pool.used", AT(poolBytes), "bytes"),
    Gauge("pool.most", AT(poolMaxBytes), "bytes"),
};

constexpr Number kClientNumbers[] = {
    Count("calls", AT(calls)),
    Gauge("calls.open", AT(openCalls)),
    Of("calls.ended", "answered", AT(callEnds[1])),
    Of("calls.ended", "timeout", AT(callEnds[2])),
    Of("calls.ended", "cancelled", AT(callEnds[3])),
    Of("calls.ended", "reset", AT(callEnds[4])),
    Of("calls.ended", "unreachable", AT(callEnds[5])),
    Of("calls.ended", "stopped", AT(callEnds[6])),
    Count("calls.notifications", AT(callNotifications)),
    Count("calls.time", AT(callNs), "ns"),
    Count("notifications.old", AT(notificationsOld)),
    Of("nacks", "timeout", AT(nacks[COAP_RPC_NACK_TIMEOUT])),
    Of("nacks", "undeliverable", AT(nacks[COAP_RPC_NACK_UNDELIVERABLE])),
    Of("nacks", "reset", AT(nacks[COAP_RPC_NACK_RESET])),
    Of("nacks", "unreachable", AT(nacks[COAP_RPC_NACK_UNREACHABLE])),
    Of("nacks", "badResponse", AT(nacks[COAP_RPC_NACK_BAD_RESPONSE])),
    Of("nacks", "other", AT(nacks[COAP_RPC_NACK_OTHER])),
    Gauge("sessions", AT(sessions)),
    GaugeOf("mirrors", "connecting", AT(mirrors[1])),
    GaugeOf("mirrors", "fullSync", AT(mirrors[2])),
    GaugeOf("mirrors", "synced", AT(mirrors[3])),
    GaugeOf("mirrors", "behind", AT(mirrors[4])),
    GaugeOf("mirrors", "stale", AT(mirrors[5])),
    GaugeOf("mirrors", "refused", AT(mirrors[6])),
    Refused("calls", COAP_RPC_LIMIT_CALLS),
    Refused("mirrors", COAP_RPC_LIMIT_MIRRORS),
    Refused("followed", COAP_RPC_LIMIT_FOLLOWED),
};

// The texts are of these numbers.
static_assert(COAP_RPC_GET == 1 && COAP_RPC_POST == 2 && COAP_RPC_PUT == 3 && COAP_RPC_DELETE == 4);
static_assert(COAP_RPC_FETCH == 5 && COAP_RPC_PATCH == 6 && COAP_RPC_IPATCH == 7);
static_assert(COAP_RPC_CALL_ANSWERED == 1 && COAP_RPC_CALL_TIMEOUT == 2 &&
              COAP_RPC_CALL_CANCELLED == 3 && COAP_RPC_CALL_RESET == 4 &&
              COAP_RPC_CALL_UNREACHABLE == 5 && COAP_RPC_CALL_STOPPED == 6);
static_assert(COAP_RPC_MIRROR_CONNECTING == 1 && COAP_RPC_MIRROR_FULL_SYNC == 2 &&
              COAP_RPC_MIRROR_SYNCED == 3 && COAP_RPC_MIRROR_BEHIND == 4 &&
              COAP_RPC_MIRROR_STALE == 5 && COAP_RPC_MIRROR_REFUSED == 6);

}  // namespace

std::span<const Number> ServerNumbers() { return kServerNumbers; }
std::span<const Number> ClientNumbers() { return kClientNumbers; }

}  // namespace coap_rpc
