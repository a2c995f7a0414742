#include "coap_svc/rpc/libadapter/publish/coap_rpc_lib_block.h"

#include <cstring>

#include "coap_svc/rpc/common/coap_rpc_limits.h"
#include "coap_svc/rpc/common/coap_rpc_list.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_data.h"
#include "coap_svc/rpc/libadapter/message/coap_rpc_lib_clock.h"
#include "coap_svc/rpc/server/coap_rpc_ser_uri.h"
#include "libcoap/ext/coap_rpc_lib_internals.h"
#include "libcoap/ext/coap_rpc_lib_last_block.h"

namespace coap_rpc {
namespace {

using EntryBlocks = COAP_RPC_LIST(BlockRecord, entryLink);
using AdapterBlocks = COAP_RPC_LIST(BlockRecord, adapterLink);
using LastBlocks = COAP_RPC_LIST(CoapRpcLastBlock, link);

void ClearFlag(BlockRecord *block) {
  if (block->head.entry && block->holdsFlag) block->head.entry->isSendingLargeBlock = 0;
  block->holdsFlag = false;
}

Flight *FlightOf(const CoapRpcLastBlock &last) { return static_cast<Flight *>(last.flight); }

// Forget takes a payload whose last block nobody has asked for again for delivered.
void Forget(CoapRpcLastBlock *last) {
  EndFlightOfLastBlock(FlightOf(*last), true);
  LinkRemove(last->link);
  CoapRpcLibFreeLastBlock(last);
}

// ForgetIf drops the last blocks that `match` says yes to.
template <typename Match>
void ForgetIf(CoapRpcCtx *ctx, Match match) {
  if (!ctx->lib) return;
  LastBlocks(ctx->lib->lastBlockList).ForEach([&](CoapRpcLastBlock *last) {
    if (match(*last)) Forget(last);
  });
}

// ExpireLastBlocks also drops the oldest ones when there are too many.
void ExpireLastBlocks(CoapRpcCtx *ctx) {
  uint32_t num = 0;
  LastBlocks(ctx->lib->lastBlockList).ForEach([&](const CoapRpcLastBlock *) { ++num; });
  ForgetIf(ctx, [&](const CoapRpcLastBlock &last) {
    const bool isOver = HasPassed(last.sentAt, kLastBlockKeepMs);
    if (!isOver && num <= kMaxLastBlocks) return false;
    if (!isOver) ++ctx->counts.refused[COAP_RPC_LIMIT_LAST_BLOCKS];
    --num;
    return true;
  });
}

// NoteSent takes down when the last block was sent.  The first time counts: a peer that repeats its
// requests does not prolong the silence.
void NoteSent(BlockRecord *block) {
  if (block->sentAt == 0) block->sentAt = CoapRpcLibBlocksSentAt(block->session, block);
}

// ExpireIdle gives up a payload that the peer has stopped fetching.  While its first block is
// repeated the peer may not know of it.
void ExpireIdle(BlockRecord *block) {
  if (block->flight && IsFirstBlockQueued(*block->flight)) block->queuedAt = NowTicks();
  const bool isIdle =
      CoapRpcLibIsIdleFor(block->session, block, block->queuedAt, kIdleBlocksKeepMs) != 0;
  if (!isIdle) return;
  if (block->flight) NoteGivenUp(block->flight->chgs, block->session);
  CoapRpcLibEndBlocks(block->session, block);
}

// EndSent releases a payload that was sent; the record is gone then.  Its last block is remembered
// while the entry is there and if memory allows.
void EndSent(CoapRpcCtx *ctx, BlockRecord *block) {
  CoapRpcSerUriVtbl *entry = block->head.entry;
  const coap_tick_t sentAt = block->sentAt;
  if (!entry) return CoapRpcLibEndBlocks(block->session, block);
  Flight *flight = block->flight;
  if (flight) flight->block = nullptr;
  block->flight = nullptr;
  CoapRpcLastBlock *last = CoapRpcLibEndSent(block->session, block);
  if (!last) return EndFlightOfLastBlock(flight, true);
  if (flight) flight->last = last;
  last->flight = flight;
  last->entry = entry;
  last->sentAt = sentAt;
  LastBlocks(ctx->lib->lastBlockList).Append(last);
}

// IsSameUri says whether both entries are served by one resource.
bool IsSameUri(const CoapRpcSerUriVtbl &a, const CoapRpcSerUriVtbl &b) {
  return strncmp(a.key.uri, b.key.uri, COAP_RPC_URI_SIZE) == 0;
}

// Answer answers with the last block for which `match` says yes.  A peer that asks for it after a
// newer payload has begun has not got the older one, and may not take it any more.
template <typename Match>
bool Answer(CoapRpcCtx *ctx, coap_pdu_t *response, Match match) {
  if (!ctx || !ctx->lib) return false;
  CoapRpcLastBlock *last = LastBlocks(ctx->lib->lastBlockList).FindIf(match);
  if (!last) return false;
  ++ctx->counts.repeats;
  CoapRpcLibAnswerLastBlock(last, response);
  if (last->isOvertaken) EndFlightOfLastBlock(FlightOf(*last), false);
  return true;
}

void Release(BlockRecord *block) { CoapRpcLibEndBlocks(block->session, block); }

// EndSpareBlocks releases the oldest payloads that are not their entry's current one, when there
// are too many: observers that register and never fetch leave one each.
void EndSpareBlocks(CoapRpcCtx *ctx) {
  EndOldest(
      ctx, AdapterBlocks(ctx->lib->blockList),
      [](const BlockRecord &block) { return !block.holdsFlag; }, Release);
}

// Expire looks at one payload; its record may be gone then.
void Expire(CoapRpcCtx *ctx, BlockRecord *block) {
  NoteSent(block);
  if (block->sentAt != 0) {
    if (HasPassed(block->sentAt, kSentBlocksKeepMs)) EndSent(ctx, block);
  } else if (block->isLost) {
    Release(block);
  } else {
    ExpireIdle(block);
  }
}

}  // namespace

PoolPtr<BlockRecord> NewBlock(CoapRpcSerUriVtbl *entry, coap_session_t *session) {
  const uint64_t mem = CoapRpcSerRootOf(entry)->param.memHandle;
  auto block = NewZeroed<BlockRecord>(mem);
  if (!block) return block;
  block->head.entry = entry;
  block->session = session;
  block->mem = mem;
  return block;
}

CoapRpcSerLargeBlockCtx *StartBlock(PoolPtr<BlockRecord> block, void *buf) {
  CoapRpcSerUriVtbl *entry = block->head.entry;
  EntryBlocks blocks(entry->lib.blockList);
  blocks.ForEach([](BlockRecord *old) { old->holdsFlag = false; });
  entry->isSendingLargeBlock = 1;
  block->holdsFlag = true;
  block->head.buf = buf;
  blocks.Append(block.get());
  AdapterBlocks(CoapRpcSerRootOf(entry)->lib->blockList).Append(block.get());
  return &block.release()->head;
}

void NoteTransfer(BlockRecord *block) {
  block->blocks = CoapRpcLibFindBlocks(block->session, block);
}

bool IsFetched(const BlockRecord &block) { return CoapRpcLibIsBegun(block.blocks) != 0; }

void LoseBlock(BlockRecord *block) {
  ClearFlag(block);
  block->isLost = true;
}

void EndBlock(BlockRecord *block) {
  ClearFlag(block);
  EndFlightOfBlocks(block->flight, block->sentAt != 0 || CoapRpcLibIsAllSent(block->blocks) != 0);
  LinkRemove(block->entryLink);
  LinkRemove(block->adapterLink);
  PoolFree(block->mem, block);
}

void ExpireBlocks(CoapRpcCtx *ctx) {
  EndSpareBlocks(ctx);
  AdapterBlocks(ctx->lib->blockList).ForEach([=](BlockRecord *block) { Expire(ctx, block); });
  ExpireLastBlocks(ctx);
}

bool AnswerLastBlock(const Exchange &exchange) {
  return Answer(exchange.ctx, exchange.response, [&](const CoapRpcLastBlock &last) {
    return !last.isReplaced && CoapRpcLibIsLastBlock(&last, exchange.session, exchange.resource,
                                                     exchange.request, exchange.query) != 0;
  });
}

int AnswerRepeated(coap_session_t *session, const coap_pdu_t *request, coap_pdu_t *response) {
  return Answer(CoapRpcLibRootOf(session), response, [&](const CoapRpcLastBlock &last) {
    return CoapRpcLibIsRepeated(&last, session, request) != 0;
  });
}

void NoteOvertaken(const CoapRpcSerUriVtbl &entry, const coap_session_t *session, bool isInBlocks) {
  LastBlocks blocks(CoapRpcSerRootOf(&entry)->lib->lastBlockList);
  blocks.ForEach([&](CoapRpcLastBlock *last) {
    if (last->session != session || !IsSameUri(*last->entry, entry)) return;
    last->isOvertaken = 1;
    last->isReplaced |= isInBlocks ? 1 : 0;
  });
}

void ForgetEntryBlocks(CoapRpcSerUriVtbl *entry) {
  ForgetIf(CoapRpcSerRootOf(entry),
           [&](const CoapRpcLastBlock &last) { return last.entry == entry; });
  ForgetEntryFlights(entry);
  EntryBlocks(entry->lib.blockList).Drain([](BlockRecord *block) {
    block->head.entry = nullptr;
    LinkRemove(block->entryLink);
  });
}

void ForgetSessionBlocks(CoapRpcCtx *ctx, const coap_session_t *session) {
  ForgetIf(ctx, [&](const CoapRpcLastBlock &last) { return last.session == session; });
}

void ForgetLastBlocks(CoapRpcCtx *ctx) {
  ForgetIf(ctx, [](const CoapRpcLastBlock &) { return true; });
}

}  // namespace coap_rpc
