#include "coap_svc/rpc/libadapter/publish/coap_rpc_lib_flight.h"

#include "coap_svc/rpc/common/coap_rpc_probe.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_data.h"
#include "coap_svc/rpc/libadapter/publish/coap_rpc_lib_block.h"
#include "libcoap/ext/coap_rpc_lib_internals.h"

namespace coap_rpc {
namespace {

using AdapterFlights = COAP_RPC_LIST(Flight, adapterLink);

void Free(Flight *flight) {
  if (flight->block) flight->block->flight = nullptr;
  if (flight->last) flight->last->flight = nullptr;
  LinkRemove(flight->chgs.entryLink);
  LinkRemove(flight->adapterLink);
  PoolFree(flight->mem, flight);
}

CoapRpcStats &CountsOf(const CoapRpcSerUriVtbl *entry) { return CoapRpcSerRootOf(entry)->counts; }

// Abandon ends a flight whose outcome nobody will know.
void Abandon(Flight *flight) {
  NoteDelivered(flight->chgs);
  FreeChgs(flight->chgs);
  Free(flight);
}

void EndDelivered(Flight *flight) {
  ++CountsOf(flight->chgs.entry).notificationsDelivered;
  ++flight->chgs.entry->counts.stats.notificationsDelivered;
  Abandon(flight);
}

void EndFailed(Flight *flight) {
  ++CountsOf(flight->chgs.entry).notificationsFailed;
  ++flight->chgs.entry->counts.stats.notificationsFailed;
  PutBackChgs(flight->chgs);
  Free(flight);
}

Flight *FlightOf(ChgFlight *chgs) { return reinterpret_cast<Flight *>(chgs); }

// ForEach calls `visit` for each flight of the instance, ForEachOf for each of an entry; it may end
// that flight.
template <typename Visit>
void ForEach(CoapRpcCtx *ctx, Visit visit) {
  if (!ctx->lib) return;
  AdapterFlights(ctx->lib->flightList).ForEach(visit);
}

template <typename Visit>
void ForEachOf(CoapRpcSerUriVtbl *entry, Visit visit) {
  EntryFlights(entry->flights.list).ForEach([=](ChgFlight *flight) { visit(FlightOf(flight)); });
}

Flight *Find(CoapRpcCtx *ctx, const coap_session_t *session, coap_mid_t mid) {
  if (!ctx || !ctx->lib) return nullptr;
  return AdapterFlights(ctx->lib->flightList).FindIf([&](const Flight &flight) {
    return flight.session == session && flight.mid == mid;
  });
}

bool IsQueued(const Flight &flight) {
  return CoapRpcLibIsStillQueued(CoapRpcSerRootOf(flight.chgs.entry)->lib->coapCtx, flight.session,
                                 flight.mid) != 0;
}

bool IsInOneMessage(const Flight &flight) { return !flight.block && !flight.last; }

// Settle ends a flight in one message that was delivered.
void Settle(Flight *flight) {
  if (IsInOneMessage(*flight) && !IsQueued(*flight)) EndDelivered(flight);
}

bool IsSpare(const Flight &flight) {
  const EntryFlights flights(flight.chgs.entry->flights.list);
  return IsInOneMessage(flight) && flights.Last() != &flight.chgs;
}

// EndSpareFlights puts the oldest spare payloads back when there are too many: their observers
// acknowledge nothing.
void EndSpareFlights(CoapRpcCtx *ctx) {
  EndOldest(ctx, AdapterFlights(ctx->lib->flightList), IsSpare, EndFailed);
}

// Fail ends a flight that did not arrive, unless its peer is fetching it.
void Fail(Flight *flight) {
  if (flight->last || (flight->block && IsFetched(*flight->block))) return;
  if (flight->block) LoseBlock(flight->block);
  EndFailed(flight);
}

}  // namespace

PoolPtr<Flight> NewFlight(CoapRpcSerUriVtbl *entry, const coap_session_t *session, coap_mid_t mid) {
  const uint64_t mem = CoapRpcSerRootOf(entry)->param.memHandle;
  auto flight = NewZeroed<Flight>(mem);
  if (!flight) return flight;
  LinkInit(flight->chgs.chgList);
  flight->chgs.entry = entry;
  flight->session = session;
  flight->mid = mid;
  flight->mem = mem;
  return flight;
}

void StartFlight(PoolPtr<Flight> flight) {
  CoapRpcSerUriVtbl *entry = flight->chgs.entry;
  CoapRpcCtx *ctx = CoapRpcSerRootOf(entry);
  ++ctx->counts.notifications;
  ++entry->counts.stats.notifications;
  COAP_RPC_PROBE3(notification, ctx, entry->key.uri, flight->mid);
  ForEachOf(entry, Settle);
  NoteOvertaken(*entry, flight->session, flight->block != nullptr);
  const bool isOnly = EntryFlights(entry->flights.list).IsEmpty();
  EntryFlights(entry->flights.list).Append(&flight->chgs);
  AdapterFlights(ctx->lib->flightList).Append(flight.get());
  if (flight->block) NoteTransfer(flight->block);
  (void)flight.release();
  if (!isOnly) EndSpareFlights(ctx);
}

void EndFlightOfBlocks(Flight *flight, bool isAllSent) {
  if (!flight) return;
  flight->block->flight = nullptr;
  flight->block = nullptr;
  if (LinkIsAlone(flight->adapterLink)) return;  // libcoap is still being given the payload
  isAllSent ? EndDelivered(flight) : EndFailed(flight);
}

void EndFlightOfLastBlock(Flight *flight, bool isDelivered) {
  if (!flight) return;
  isDelivered ? EndDelivered(flight) : EndFailed(flight);
}

bool IsFirstBlockQueued(const Flight &flight) { return IsQueued(flight); }

bool NoteNack(const coap_session_t *session, const coap_pdu_t *sent, coap_nack_reason_t reason,
              coap_mid_t mid) {
  // A reset of a message that waits for nothing: it was a NON one, and has been delivered.
  if (!sent && reason == COAP_NACK_RST) return false;
  if (Flight *flight = Find(CoapRpcLibRootOf(session), session, mid)) Fail(flight);
  return !sent && reason == COAP_NACK_NOT_DELIVERABLE && mid != 0;
}

void NoteObserverLeaves(CoapRpcCtx *ctx, const coap_session_t *session, const coap_pdu_t *stored) {
  Flight *flight = stored ? Find(ctx, session, coap_pdu_get_mid(stored)) : nullptr;
  if (!flight) return;
  // One that is queued no longer was acknowledged, or its failure is about to be told.
  if (flight->block || IsQueued(*flight)) Fail(flight);
}

void SettleFlights(CoapRpcCtx *ctx) { ForEach(ctx, Settle); }

void ForgetEntryFlights(CoapRpcSerUriVtbl *entry) { ForEachOf(entry, Abandon); }

void ForgetFlights(CoapRpcCtx *ctx) { ForEach(ctx, Abandon); }

}  // namespace coap_rpc
