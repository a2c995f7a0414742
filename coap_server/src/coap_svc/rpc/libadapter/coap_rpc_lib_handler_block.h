/* coap_rpc_lib_handler_block.h: observe payloads in libcoap's hands.
 *
 * libcoap keeps a payload for as long as the peer fetches its blocks, which may be longer than the
 * URI entry lives.  Each payload travels with a record that stays on the entry's list and on the
 * adapter's until it is released, within a second after its last block was first sent.  That block
 * alone is remembered for longer, for a peer that missed it. */
#ifndef COAP_RPC_LIB_HANDLER_BLOCK_H
#define COAP_RPC_LIB_HANDLER_BLOCK_H

#include "coap_svc/rpc/common/coap_rpc_own.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_handler_payload.h"

namespace coap_rpc {

// BlockRecord is one payload; `head` is its release context.
struct BlockRecord {
  CoapRpcSerLargeBlockCtx head;
  CoapRpcLink entryLink;    // on the entry's blockCtxList, newest last
  CoapRpcLink adapterLink;  // on the adapter's blockList
  coap_session_t *session;  // lives longer than the record
  uint64_t mem;
  coap_tick_t sentAt;  // when its last block was first sent; 0 before
  bool holdsFlag;      // the entry's isSendingLargeBlock is this payload's
};
static_assert(offsetof(BlockRecord, head) == 0, "a record is found by its release context");

// NewBlock makes the record of a payload to come; empty without memory.
PoolPtr<BlockRecord> NewBlock(CoapRpcSerUriVtbl *entry, coap_session_t *session);

// StartBlock takes the record over and makes the entry's flag that of this payload.  It returns the
// release context.
CoapRpcSerLargeBlockCtx *StartBlock(PoolPtr<BlockRecord> block, void *buf);

// EndBlock frees the record, and clears the entry's flag when it was this payload's.  The buffer is
// the caller's.
void EndBlock(BlockRecord *block);

// ExpireBlocks releases payloads that were sent a while ago, that the peer stopped fetching, and
// old ones when there are too many; it drops last blocks that are old or too many.
void ExpireBlocks(CoapRpcCtx *ctx);

// AnswerLastBlock answers a request for the last block of a payload that has been released.  False:
// the request asks for something else; the response is as it was.
bool AnswerLastBlock(CoapRpcCtx *ctx, coap_resource_t *resource, coap_session_t *session,
                     const coap_pdu_t *request, const coap_string_t *query, coap_pdu_t *response);

// ForgetEntryBlocks cuts all payloads loose from an entry that is about to be freed.
// ForgetSessionBlocks and ForgetLastBlocks drop the last blocks of a session, and all of them.
void ForgetEntryBlocks(CoapRpcSerUriVtbl *entry);
void ForgetSessionBlocks(CoapRpcCtx *ctx, const coap_session_t *session);
void ForgetLastBlocks(CoapRpcCtx *ctx);

}  // namespace coap_rpc

#endif /* COAP_RPC_LIB_HANDLER_BLOCK_H */
