/* coap_rpc_ser_flight.h: changes that are in a payload whose delivery is not known yet.
 *
 * A change is pending, then in flight, then freed; or it goes back to where it was pending.  The
 * record itself moves, so that no step of it needs memory.  A key is in flight at most once for
 * each entry, in the newest payload that has it: what comes back can never overtake a newer value,
 * and an entry's changes in flight are at most as many as its tuples were. */
#ifndef COAP_RPC_SER_FLIGHT_H
#define COAP_RPC_SER_FLIGHT_H

#include "coap_svc/rpc/common/coap_rpc_list.h"
#include "coap_svc/rpc/server/coap_rpc_ser_observe.h"
#include "coap_svc/rpc/server/coap_rpc_ser_uri.h"

namespace coap_rpc {

// ChgFlight is the changes of one payload.
struct ChgFlight {
  CoapRpcLink entryLink;     // on the entry's flights, oldest first
  CoapRpcLink chgList;       // CoapRpcTupleChg in the order in which they were pending, owned
  CoapRpcSerUriVtbl *entry;  // outlives the flight
};

using EntryFlights = COAP_RPC_LIST(ChgFlight, entryLink);

// DropOutdatedChgs frees what is in flight of the entry and has a newer change pending.  It comes
// before pending changes are taken into a flight.
void DropOutdatedChgs(CoapRpcSerUriVtbl *entry);

// TakeChg moves a pending change to the end of the flight.
void TakeChg(ChgFlight &flight, CoapRpcTupleChg *chg);

// FreeChgs frees the changes of a flight: they were delivered, or nobody wants them any more.
void FreeChgs(ChgFlight &flight);

// PutBackChgs makes the changes of a flight pending again, in front of the others and in their old
// order, unless their keys have newer ones pending.  The check code changes with it: a peer may
// have the payload all the same.  The update timer sends them.  Where kMaxPutBackChgs are pending
// the oldest go nowhere, and only the check code tells of them.
void PutBackChgs(ChgFlight &flight);

// NoteDelivered and NoteGivenUp count the payloads in blocks that one peer, known by its session,
// stops fetching in a row.  One for which the payload is too large would get the same one for ever,
// and nobody anything else: the changes of the last one of kMaxGivenUp go nowhere, and the check
// code changes.
void NoteDelivered(ChgFlight &flight);
void NoteGivenUp(ChgFlight &flight, const void *session);

}  // namespace coap_rpc

#endif /* COAP_RPC_SER_FLIGHT_H */
