#include "coap_svc/rpc/libadapter/coap_rpc_lib_handler_block.h"

#include "coap_svc/rpc/common/coap_rpc_limits.h"
#include "coap_svc/rpc/common/coap_rpc_list.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_ctx.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_internals.h"
#include "coap_svc/rpc/server/coap_rpc_ser_uri.h"

namespace coap_rpc {
namespace {

using EntryBlocks = COAP_RPC_LIST(BlockRecord, entryLink);
using AdapterBlocks = COAP_RPC_LIST(BlockRecord, adapterLink);

CoapRpcCtx *RootOf(const CoapRpcSerUriVtbl *entry) { return entry->owner->owner; }

void ClearFlag(BlockRecord *block) {
  if (block->head.entry && block->holdsFlag) block->head.entry->isSendingLargeBlock = 0;
  block->holdsFlag = false;
}

// ClearFlagOfSent frees the entry for its next payload.  The first time counts: a peer that repeats
// its requests does not prolong the silence.  libcoap keeps the payload for them, and releases it
// itself.
void ClearFlagOfSent(BlockRecord *block) {
  if (!block->holdsFlag) return;
  if (block->sentAt == 0) block->sentAt = CoapRpcLibBlocksSentAt(block->session, block);
  if (block->sentAt == 0) return;
  coap_tick_t now = 0;
  coap_ticks(&now);
  constexpr coap_tick_t kSilence = kSentBlocksSilenceMs * COAP_TICKS_PER_SECOND / 1000;
  if (block->sentAt + kSilence <= now) ClearFlag(block);
}

// EndSpareBlocks lets go of the oldest payloads that are not their entry's current one, when there
// are too many: observers that register and never fetch leave one each.
void EndSpareBlocks(CoapRpcCtx *ctx) {
  AdapterBlocks blocks(ctx->lib->blockList);
  uint32_t numSpare = 0;
  for (const BlockRecord *block = blocks.First(); block; block = blocks.After(block)) {
    if (!block->holdsFlag) ++numSpare;
  }
  BlockRecord *next = nullptr;
  for (BlockRecord *block = blocks.First(); block && numSpare > kMaxSpareBlocks; block = next) {
    next = blocks.After(block);
    if (block->holdsFlag) continue;
    CoapRpcLibEndBlocks(block->session, block);
    --numSpare;
  }
}

}  // namespace

PoolPtr<BlockRecord> NewBlock(CoapRpcSerUriVtbl *entry, coap_session_t *session) {
  const uint64_t mem = RootOf(entry)->param.memHandle;
  auto block = NewZeroed<BlockRecord>(mem);
  if (!block) return block;
  block->head.entry = entry;
  block->session = session;
  block->mem = mem;
  return block;
}

CoapRpcSerLargeBlockCtx *StartBlock(PoolPtr<BlockRecord> block, void *buf) {
  CoapRpcSerUriVtbl *entry = block->head.entry;
  EntryBlocks blocks(entry->blockCtxList);
  for (BlockRecord *old = blocks.First(); old; old = blocks.After(old)) old->holdsFlag = false;
  entry->isSendingLargeBlock = 1;
  block->holdsFlag = true;
  block->head.buf = buf;
  blocks.Append(block.get());
  AdapterBlocks(RootOf(entry)->lib->blockList).Append(block.get());
  return &block.release()->head;
}

void EndBlock(BlockRecord *block) {
  ClearFlag(block);
  LinkRemove(block->entryLink);
  LinkRemove(block->adapterLink);
  PoolFree(block->mem, block);
}

void ExpireBlocks(CoapRpcCtx *ctx) {
  EndSpareBlocks(ctx);
  AdapterBlocks blocks(ctx->lib->blockList);
  BlockRecord *next = nullptr;
  for (BlockRecord *block = blocks.First(); block; block = next) {
    next = blocks.After(block);
    ClearFlagOfSent(block);
    CoapRpcLibExpireBlocks(block->session, block, kIdleBlocksKeepMs);
  }
}

void ForgetEntryBlocks(CoapRpcSerUriVtbl *entry) {
  EntryBlocks(entry->blockCtxList).Drain([](BlockRecord *block) {
    block->head.entry = nullptr;
    LinkRemove(block->entryLink);
  });
}

}  // namespace coap_rpc
