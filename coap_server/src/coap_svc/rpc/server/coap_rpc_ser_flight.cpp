#include "coap_svc/rpc/server/coap_rpc_ser_flight.h"

#include <algorithm>
#include <utility>

#include "coap_svc/rpc/common/coap_rpc_clock.h"
#include "coap_svc/rpc/common/coap_rpc_limits.h"
#include "coap_svc/rpc/server/coap_rpc_ser_chg_index.h"

namespace coap_rpc {
namespace {

using FlightChgs = COAP_RPC_LIST(CoapRpcTupleChg, chgLink);

void Free(CoapRpcSerUriVtbl *entry, CoapRpcTupleChg *chg) {
  entry->owner->delTupleChgData(CoapRpcSerRootOf(entry), chg);
}

bool IsOutdated(CoapRpcSerUriVtbl *entry, const CoapRpcTupleChg *chg) {
  return FindPendingChg(entry, chg->key) != nullptr;
}

void DropOutdatedOf(CoapRpcSerUriVtbl *entry, ChgFlight &flight) {
  FlightChgs(flight.chgList).ForEach([=](CoapRpcTupleChg *chg) {
    if (IsOutdated(entry, chg)) Free(entry, chg);
  });
}

void PutBack(CoapRpcSerUriVtbl *entry, CoapRpcTupleChg *chg, uint32_t *room) {
  if (IsOutdated(entry, chg)) return Free(entry, chg);
  if (*room == 0) {
    ++CoapRpcSerRootOf(entry)->counts.refused[COAP_RPC_LIMIT_PUT_BACK];
    return Free(entry, chg);
  }
  --*room;
  ++CoapRpcSerRootOf(entry)->counts.changesPutBack;
  ++entry->counts.stats.changesPutBack;
  RemovePendingChg(chg);
  PrependPendingChg(CoapRpcSerRootOf(entry)->param.memHandle, entry, chg);
}

uint32_t RoomOf(CoapRpcSerUriVtbl *entry) {
  const PendingChgs chgs(entry->tupleChgList);
  uint32_t room = kMaxPutBackChgs;
  for (CoapRpcTupleChg *chg = chgs.First(); chg && room != 0; chg = chgs.After(chg)) --room;
  return room;
}

// RenewEtag never repeats the check code of the payload that failed, however short ago it was.
void RenewEtag(CoapRpcSerUriVtbl *entry) {
  entry->etag = std::max(NowMs().value_or(0), entry->etag + 1);
}

}  // namespace

void DropOutdatedChgs(CoapRpcSerUriVtbl *entry) {
  EntryFlights(entry->flights.list).ForEach([=](ChgFlight *flight) {
    DropOutdatedOf(entry, *flight);
  });
}

void TakeChg(ChgFlight &flight, CoapRpcTupleChg *chg) {
  RemovePendingChg(chg);
  FlightChgs(flight.chgList).Append(chg);
}

void FreeChgs(ChgFlight &flight) {
  FlightChgs(flight.chgList).Drain([&](CoapRpcTupleChg *chg) { Free(flight.entry, chg); });
}

void PutBackChgs(ChgFlight &flight) {
  CoapRpcSerUriVtbl *entry = flight.entry;
  FlightChgs chgs(flight.chgList);
  if (chgs.IsEmpty()) return;
  uint32_t room = RoomOf(entry);
  while (CoapRpcTupleChg *last = chgs.Last()) PutBack(entry, last, &room);
  RenewEtag(entry);
  COAP_RpcSerStartUriUpdateTimer(CoapRpcSerRootOf(entry), &entry->key);
}

void NoteDelivered(ChgFlight &flight) {
  if (!FlightChgs(flight.chgList).IsEmpty()) flight.entry->flights.numGivenUp = 0;
}

void NoteGivenUp(ChgFlight &flight, const void *session) {
  CoapRpcSerFlights &flights = flight.entry->flights;
  if (std::exchange(flights.givenUpBy, session) != session) flights.numGivenUp = 0;
  if (++flights.numGivenUp < kMaxGivenUp) return;
  flights.numGivenUp = 0;
  ++CoapRpcSerRootOf(flight.entry)->counts.refused[COAP_RPC_LIMIT_GIVEN_UP];
  FreeChgs(flight);
  RenewEtag(flight.entry);
}

}  // namespace coap_rpc
