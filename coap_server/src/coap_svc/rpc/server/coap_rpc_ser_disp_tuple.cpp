/* coap_rpc_ser_disp_tuple.cpp: display of the tuples and pending changes of a URI. */
#include <cstdarg>
#include <cstring>

#include "coap_svc/rpc/common/coap_rpc_limits.h"
#include "coap_svc/rpc/common/coap_rpc_list.h"
#include "coap_svc/rpc/common/coap_rpc_log_site.h"
#include "coap_svc/rpc/common/coap_rpc_safe.h"
#include "coap_svc/rpc/server/coap_rpc_ser_disp.h"
#include "coap_svc/rpc/server/coap_rpc_ser_observe.h"
#include "coap_svc/rpc/server/coap_rpc_ser_uri.h"
#include "kst_disp.h"

using namespace coap_rpc;

namespace {

constexpr uint32_t kBytesPerGroup = 16;

// ShownText holds what a renderer gave, cut at its buffer's size: an application may return a text
// of its own, of any length, or leave the buffer without terminator.
class ShownText {
 public:
  explicit ShownText(const char *text) {
    const size_t len = strnlen(text, kTupleTextSize);
    memcpy(text_, text, len);
    text_[len] = '\0';
  }
  const char *c_str() const { return text_; }

 private:
  char text_[kTupleTextSize + 1];
};

const char *Render(CoapRpcTupleToStr toStr, const void *bytes, uint32_t len, char *buf,
                   uint32_t size) {
  if (!toStr) return KST_GetMemStr(bytes, len, kBytesPerGroup, buf, size);
  const char *text = toStr(bytes, buf, size);
  return text ? text : "";
}

void PrintKeyAndVal(CoapRpcCtx *ctx, const CoapRpcSerUriVtbl *entry, const uint8_t *key) {
  const CoapRpcSerObVtblReg &ob = *entry->obVtbl;
  char keyBuf[kTupleTextSize] = {};
  char valBuf[kTupleTextSize] = {};
  const uint8_t *val = ob.valLen != 0 ? key + ob.keyLen : nullptr;
  const ShownText keyText(COAP_RpcGetTupleKeyStr(entry, key, keyBuf, sizeof(keyBuf)));
  const ShownText valText(COAP_RpcGetTupleValStr(entry, val, valBuf, sizeof(valBuf)));
  KST_DispPrintf_(ctx->param.dispHandle, "key(%s)/val(%s)\n", keyText.c_str(), valText.c_str());
}

// FindObservable returns the entry whose tuples can be shown: confirmable, observable, default
// packet type.  Says so when there is none; a uri that is too long ends the command silently.
CoapRpcSerUriVtbl *FindObservable(CoapRpcCtx *ctx, const char *pcUri) {
  CoapRpcUriKey key = {};
  if (strcpy_s(key.uri, sizeof(key.uri), pcUri) != 0) return nullptr;
  key.observe = 1;
  CoapRpcSerUriVtbl *entry = ctx->ser ? COAP_RpcSerFindUriVtbl(ctx->ser, &key) : nullptr;
  if (entry && entry->obVtbl) return entry;
  KST_DispPrintf_(ctx->param.dispHandle, "No oberver tupleSetTree for uri(%s).\n", pcUri);
  return nullptr;
}

void DispTupleSet(CoapRpcCtx *ctx, const char *pcUri) {
  CoapRpcSerUriVtbl *entry = FindObservable(ctx, pcUri);
  if (!entry) return;
  KST_DispPrintf_(ctx->param.dispHandle, "TupleInfo: uri:%s, cnt:%u\n",
                  UriText(entry->key.uri).c_str(), COAP_RpcGetTupleSetCnt(entry));
  for (CoapRpcUriTuple *tuple = COAP_RpcSerGetFirstUriTuple(entry); tuple;
       tuple = COAP_RpcSerGetNextUriTuple(entry, tuple)) {
    COAP_RpcDispOneTuple_(ctx, entry, tuple);
  }
}

void DispTupleChgs(CoapRpcCtx *ctx, const char *pcUri) {
  CoapRpcSerUriVtbl *entry = FindObservable(ctx, pcUri);
  if (!entry) return;
  KST_DispPrintf_(ctx->param.dispHandle, "ChgTupleInfo: uri:%s\n", UriText(entry->key.uri).c_str());
  const COAP_RPC_LIST(CoapRpcTupleChg, chgLink) chgs(entry->tupleChgList);
  chgs.ForEach([=](const CoapRpcTupleChg *chg) { COAP_RpcDispOneChgTuple_(ctx, entry, chg); });
}

}  // namespace

uint32_t COAP_RpcDispTupleSetTree_(void *ctx, ...) {
  va_list args;
  va_start(args, ctx);
  DispTupleSet(static_cast<CoapRpcCtx *>(ctx), va_arg(args, const char *));
  va_end(args);
  return 0;
}

uint32_t COAP_RpcDispTupleChgList_(void *ctx, ...) {
  va_list args;
  va_start(args, ctx);
  DispTupleChgs(static_cast<CoapRpcCtx *>(ctx), va_arg(args, const char *));
  va_end(args);
  return 0;
}

void COAP_RpcDispOneTuple_(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry,
                           const CoapRpcUriTuple *tuple) {
  if (tuple) PrintKeyAndVal(ctx, entry, tuple->key);
}

void COAP_RpcDispOneChgTuple_(CoapRpcCtx *ctx, CoapRpcSerUriVtbl *entry,
                              const CoapRpcTupleChg *chg) {
  if (chg) PrintKeyAndVal(ctx, entry, chg->key);
}

const char *COAP_RpcGetTupleKeyStr(const CoapRpcSerUriVtbl *entry, const void *key, char *buf,
                                   uint32_t size) {
  return Render(entry->obVtbl->keyToStr, key, entry->obVtbl->keyLen, buf, size);
}

const char *COAP_RpcGetTupleValStr(const CoapRpcSerUriVtbl *entry, const void *val, char *buf,
                                   uint32_t size) {
  return Render(entry->obVtbl->valToStr, val, entry->obVtbl->valLen, buf, size);
}
