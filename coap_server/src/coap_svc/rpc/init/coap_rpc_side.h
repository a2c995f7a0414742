/* coap_rpc_side.h: start and stop of a side's context, the same for server and client. */
#ifndef COAP_RPC_SIDE_H
#define COAP_RPC_SIDE_H

#include "coap_svc/rpc/common/coap_rpc_ctx.h"
#include "coap_svc/rpc/common/coap_rpc_own.h"
#include "coap_svc/rpc/common/coap_rpc_sites.h"
#include "kst_mods.h"

namespace coap_rpc {

// SideModules is what makes one side different from the other.
template <typename Data>
struct SideModules {
  Data *CoapRpcCtx::*field;  // where the root keeps the side's context
  const KST_ModEntry *rows;
  uint32_t numRows;
  Site noMemory;
  Site notStarted;
};

// SideCreate allocates a side's context without storing it; null without memory.
template <typename Data>
Data *SideCreate(CoapRpcCtx *ctx) {
  return ctx ? NewZeroed<Data>(ctx->param.memHandle).release() : nullptr;
}

// SideDelete frees a side's context, the shared buffer first, and clears the root's field.
template <typename Data>
void SideDelete(CoapRpcCtx *ctx, Data *CoapRpcCtx::*field) {
  if (!ctx || !(ctx->*field)) return;
  PoolFree(ctx->param.memHandle, (ctx->*field)->reqBuf);
  PoolFree(ctx->param.memHandle, ctx->*field);
  ctx->*field = nullptr;
}

template <typename Data>
uint32_t SideInit(CoapRpcCtx *ctx, const SideModules<Data> &side) {
  Data *data = SideCreate<Data>(ctx);
  ctx->*side.field = data;
  if (!data) return Code(side.noMemory);
  data->owner = ctx;
  return KST_ModsInit(side.rows, data, side.numRows) == 0 ? 0 : Code(side.notStarted);
}

template <typename Data>
uint32_t SideUninit(CoapRpcCtx *ctx, const SideModules<Data> &side) {
  if (!ctx) return 0;
  KST_ModsUninit(side.rows, ctx->*side.field, side.numRows);
  SideDelete(ctx, side.field);
  return 0;
}

}  // namespace coap_rpc

#endif /* COAP_RPC_SIDE_H */
