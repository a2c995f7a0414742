/* coap_rpc_lib_flight.h: observe payloads until it is known what became of them.
 *
 * A change of an observable URI goes through these states:
 *
 * - pending: it is on the entry's tupleChgList;
 * - built: it is still there, with a mark, while a payload is made;
 * - in flight: it is on the list of its payload, from when libcoap has taken that;
 * - delivered, and freed;
 * - or put back: pending again, in front, unless a newer change of its key is pending.
 *
 * A payload in one message is delivered when it was sent and libcoap has it queued no longer.  For
 * a NON one that is at once; a CON one leaves the queue with its acknowledgement, of which libcoap
 * tells nobody, so each tick looks.  Everything else that takes it off the queue is told to the
 * NACK handler, and puts it back: a reset, no acknowledgement, an ICMP error, a session that is
 * disconnected, a socket that refuses the message.
 *
 * A payload in blocks is delivered when its last block was sent and is forgotten, 10 s later, or
 * put back when the peer asks for that block after a newer payload has begun.  Released before, it
 * is put back: it was given up, ended by a renewal, replaced, or its session is gone. The NACK
 * handler counts until the peer has begun to fetch: it has the first block then.
 *
 * The end of an observer puts back what it has not got.  The end of the entry frees everything.
 *
 * Bounds: an entry has a key in flight once (coap_rpc_ser_flight.h), so it has no more changes in
 * flight than tuples.  Of payloads in one message that are not their entry's newest there are at
 * most kMaxSpareBlocks, as of those in blocks; the oldest are put back.  What is put back is sent
 * by the entry's update timer: a peer that refuses everything, or an interface that is down, costs
 * one payload in 1000 ms. */
#ifndef COAP_RPC_LIB_FLIGHT_H
#define COAP_RPC_LIB_FLIGHT_H

#include <coap3/coap.h>

#include "coap_svc/rpc/common/coap_rpc_limits.h"
#include "coap_svc/rpc/common/coap_rpc_own.h"
#include "coap_svc/rpc/server/coap_rpc_ser_flight.h"
#include "libcoap/ext/coap_rpc_lib_last_block.h"

namespace coap_rpc {

struct BlockRecord;

// Flight is one payload.
struct Flight {
  ChgFlight chgs;
  CoapRpcLink adapterLink;        // on the adapter's flightList, oldest first
  const coap_session_t *session;  // may be gone: only compared
  coap_mid_t mid;                 // of its only message, or of that with its first block
  BlockRecord *block;             // null unless it travels in blocks
  CoapRpcLastBlock *last;         // null unless all of these were sent
  uint64_t mem;
};
static_assert(offsetof(Flight, chgs) == 0, "a flight is found by its changes");

// EndOldest calls `end`, which takes a record off its list, for the oldest of those that `isSpare`
// says yes to, until kMaxSpareBlocks of them are left.
template <typename AnyList, typename IsSpare, typename End>
void EndOldest(CoapRpcCtx *ctx, const AnyList &list, IsSpare isSpare, End end) {
  uint32_t numSpare = 0;
  list.ForEach([&](const auto *rec) { numSpare += isSpare(*rec) ? 1 : 0; });
  list.ForEach([&](auto *rec) {
    if (numSpare <= kMaxSpareBlocks || !isSpare(*rec)) return;
    ++ctx->counts.refused[COAP_RPC_LIMIT_PAYLOADS];
    end(rec);
    --numSpare;
  });
}

// NewFlight makes the record of a payload to come; empty without memory.
PoolPtr<Flight> NewFlight(CoapRpcSerUriVtbl *entry, const coap_session_t *session, coap_mid_t mid);

// StartFlight takes the record of a payload that libcoap has taken.
void StartFlight(PoolPtr<Flight> flight);

// EndFlightOfBlocks ends the flight of a payload in blocks that is released.
void EndFlightOfBlocks(Flight *flight, bool isAllSent);

// EndFlightOfLastBlock ends that of a payload of which only the last block is remembered; null:
// none.
void EndFlightOfLastBlock(Flight *flight, bool isDelivered);

// IsFirstBlockQueued says whether the message with the first block waits for its acknowledgement.
bool IsFirstBlockQueued(const Flight &flight);

// NoteNack handles what libcoap's NACK handler is told.  True: it was about a notification that was
// never sent, and nothing else has to be done.
bool NoteNack(const coap_session_t *session, const coap_pdu_t *sent, coap_nack_reason_t reason,
              coap_mid_t mid);

// NoteObserverLeaves handles the end of the observer whose request is `stored`.
void NoteObserverLeaves(CoapRpcCtx *ctx, const coap_session_t *session, const coap_pdu_t *stored);

// SettleFlights ends the flights that were delivered meanwhile.
void SettleFlights(CoapRpcCtx *ctx);

// ForgetEntryFlights and ForgetFlights free the flights of an entry, and all of them, with their
// changes.
void ForgetEntryFlights(CoapRpcSerUriVtbl *entry);
void ForgetFlights(CoapRpcCtx *ctx);

}  // namespace coap_rpc

#endif /* COAP_RPC_LIB_FLIGHT_H */
