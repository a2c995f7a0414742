/* coap_rpc_lib_block.h: observe payloads owned by libcoap.
 *
 * Each payload travels with a record, which is on the entry's list and on the adapter's until
 * libcoap releases the payload.  That may be after the entry is freed.  A payload in one message is
 * released at once; one in blocks goes through these states:
 *
 *   offered    libcoap has sent its first block and waits for the peer
 *   fetched    the peer has asked for a further block
 *   sent       its last block was sent; the peer may still ask for it again
 *   lost       its first block did not arrive
 *   released   the record is freed; of a payload that was sent, the last block is kept
 *   forgotten  nobody has asked for the last block again: it is freed
 *
 * libcoap moves a payload from offered to fetched and sent, by the peer's requests.  The NACK
 * handler makes an offered one lost.  The tick (ExpireBlocks) releases those that are lost, that
 * were sent kSentBlocksKeepMs ago, and that the peer has not asked for in kIdleBlocksKeepMs; it
 * forgets last blocks after kLastBlockKeepMs.  libcoap releases a payload in any state when the
 * observer renews its registration halfway or its session ends.  When an entry is freed, its
 * payloads no longer name it and its last blocks are forgotten.
 *
 * The newest payload of an entry holds the entry's isSendingLargeBlock: no other is built while it
 * is set.  It is cleared when that payload is lost or released, and whenever an observer comes or
 * the last one leaves; the payload before the newest is spare then.
 *
 * Bounds: kMaxSpareBlocks spare payloads and kMaxLastBlocks last blocks of all entries; the oldest
 * go first.  A payload that a peer stops fetching kMaxGivenUp times in a row is not sent again
 * (coap_rpc_ser_flight.h). */
#ifndef COAP_RPC_LIB_BLOCK_H
#define COAP_RPC_LIB_BLOCK_H

#include "coap_svc/rpc/common/coap_rpc_own.h"
#include "coap_svc/rpc/libadapter/message/coap_rpc_lib_exchange.h"
#include "coap_svc/rpc/libadapter/publish/coap_rpc_lib_flight.h"
#include "coap_svc/rpc/libadapter/publish/coap_rpc_lib_payload.h"

namespace coap_rpc {

// BlockRecord is one payload; `head` is its release context.
struct BlockRecord {
  CoapRpcSerLargeBlockCtx head;
  CoapRpcLink entryLink;    // on the entry's blockList, newest last
  CoapRpcLink adapterLink;  // on the adapter's blockList
  coap_session_t *session;  // lives longer than the record
  uint64_t mem;
  coap_lg_xmit_t *blocks;  // libcoap's record; null before there is one
  Flight *flight;          // its changes; null when they are put back already
  coap_tick_t sentAt;      // when its last block was first sent; 0 before
  coap_tick_t queuedAt;    // when its first block was last seen to wait for its acknowledgement
  bool holdsFlag;          // the entry's isSendingLargeBlock is this payload's
  bool isLost;             // its first block did not arrive
};
static_assert(offsetof(BlockRecord, head) == 0, "a record is found by its release context");

// NewBlock makes the record of a payload to come; empty without memory.
PoolPtr<BlockRecord> NewBlock(CoapRpcSerUriVtbl *entry, coap_session_t *session);

// StartBlock takes the record over and makes the entry's flag that of this payload.  It returns the
// release context.
CoapRpcSerLargeBlockCtx *StartBlock(PoolPtr<BlockRecord> block, void *buf);

// NoteTransfer is called when libcoap has taken the payload and means to send it in blocks.
void NoteTransfer(BlockRecord *block);

// IsFetched says whether the peer has begun to fetch blocks.
bool IsFetched(const BlockRecord &block);

// LoseBlock gives up a payload whose first block did not arrive: the entry's flag is free at once,
// and ExpireBlocks releases the payload.
void LoseBlock(BlockRecord *block);

// EndBlock frees the record, ends its flight, and clears the entry's flag when it was this
// payload's.  The buffer is the caller's.
void EndBlock(BlockRecord *block);

// ExpireBlocks releases payloads that were sent a while ago, that were lost, that the peer has
// acknowledged and stopped fetching, and old ones when there are too many; it drops last blocks
// that are old or too many.
void ExpireBlocks(CoapRpcCtx *ctx);

// AnswerLastBlock answers a request for the last block of a payload that has been released.  False:
// the request asks for something else; the response is as it was.
bool AnswerLastBlock(const Exchange &exchange);

// AnswerRepeated does so for a request that is sent again, even when a newer payload in blocks has
// begun.  Both put the payload back when a newer one has: the peer has not got it.
int AnswerRepeated(coap_session_t *session, const coap_pdu_t *request, coap_pdu_t *response);

// NoteOvertaken is called when a payload of the entry begins that goes to the session.
void NoteOvertaken(const CoapRpcSerUriVtbl &entry, const coap_session_t *session, bool isInBlocks);

// ForgetEntryBlocks cuts all payloads loose from an entry that is about to be freed.
// ForgetSessionBlocks and ForgetLastBlocks drop the last blocks of a session, and all of them.
void ForgetEntryBlocks(CoapRpcSerUriVtbl *entry);
void ForgetSessionBlocks(CoapRpcCtx *ctx, const coap_session_t *session);
void ForgetLastBlocks(CoapRpcCtx *ctx);

}  // namespace coap_rpc

#endif /* COAP_RPC_LIB_BLOCK_H */
