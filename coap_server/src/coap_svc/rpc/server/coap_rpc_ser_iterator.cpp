/* coap_rpc_ser_iterator.cpp: the walk over the tuples of an application. */
#include "coap_svc/rpc/coap_rpc_ser.h"
#include "coap_svc/rpc/common/coap_rpc_log_site.h"
#include "coap_svc/rpc/common/coap_rpc_own.h"

using namespace coap_rpc;

namespace {

constexpr uint8_t kIsFirst = 1;

PoolPtr<uint8_t> NewBytes(uint64_t mem, uint16_t len) {
  return PoolPtr<uint8_t>(static_cast<uint8_t *>(PoolAlloc(mem, len)), PoolDeleter{mem});
}

void CopyParam(CoapRpcIterator *it, const CoapRpcIteratorParam &param) {
  it->flags = kIsFirst;
  it->lastKey = reinterpret_cast<uint8_t *>(it + 1);
  it->userData = param.userData;
  it->keyLen = param.keyLen;
  it->valLen = param.valLen;
  it->getFirstTuple = param.getFirstTuple;
  it->getNextTuple = param.getNextTuple;
}

// CallGetTuple makes the application's step; a first call that fails is not repeated.
uint32_t CallGetTuple(CoapRpcIterator *it) {
  if ((it->flags & kIsFirst) == 0) {
    return it->getNextTuple(it->userData, it->appCursor, it->lastKey, it->keyBuf, it->valBuf);
  }
  it->flags = 0;
  return it->getFirstTuple(it->userData, it->appCursor, it->keyBuf, it->valBuf);
}

}  // namespace

CoapRpcIterator *COAP_RpcNewIterator(const CoapRpcIteratorParam *param, CoapRpcCtx *ctx) {
  if (!param || !ctx) return nullptr;
  const uint64_t mem = ctx->param.memHandle;
  auto it = NewZeroed<CoapRpcIterator>(mem, param->keyLen);
  if (!it) return nullptr;
  CopyParam(it.get(), *param);

  auto keyBuf = NewBytes(mem, param->keyLen);
  if (!keyBuf) return nullptr;
  if (param->valLen != 0) {
    it->valBuf = NewBytes(mem, param->valLen).release();
    if (!it->valBuf) return nullptr;
  }
  it->keyBuf = keyBuf.release();
  return it.release();
}

uint32_t COAP_RpcIterateTupleFromApp(CoapRpcIterator *it, CoapRpcCtx *ctx) {
  if (!it || !ctx || !it->getFirstTuple || !it->getNextTuple) return 0;
  const uint32_t ret = CallGetTuple(it);
  if (ret != 0) {
    // Every walk ends here, so a complete one leaves this record too, deliberately.
    COAP_RPC_LOG(ctx->log, kLogIterateEnd,
                 "[CoapRpcIterator]iterate tuple from app failed, ret=%u.\n", ret);
    return 0;
  }
  if (it->keyLen != 0) memcpy_s(it->lastKey, it->keyLen, it->keyBuf, it->keyLen);
  return 1;
}

void COAP_RpcFreeIterator(CoapRpcIterator *it, CoapRpcCtx *ctx) {
  if (!it || !ctx) return;
  const uint64_t mem = ctx->param.memHandle;
  PoolFree(mem, it->keyBuf);
  PoolFree(mem, it->valBuf);
  PoolFree(mem, it);
}
