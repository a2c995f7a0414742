// One message as libcoap parses it: its description, path, query and options, and the look-ups that
// are made with them on both sides.
#include <coap3/coap.h>

#include <cstring>

#include "coap_svc/rpc/coap_rpc_cli.h"
#include "coap_svc/rpc/coap_rpc_ser.h"
#include "coap_svc/rpc/libadapter/message/coap_rpc_lib_lookup.h"
#include "coap_svc/rpc/libadapter/message/coap_rpc_lib_msg.h"
#include "fuzz_host.h"

namespace fuzz {
namespace {

constexpr uint8_t kGuard = 0x5A;

// Lengths that a buffer may have; the library itself uses 64 for paths.
constexpr uint32_t kBufSizes[] = {0, 1, 63, 64, 255};

// Guarded is a buffer that shows when it is overrun.
struct Guarded {
  char bytes[256];

  Guarded() { memset(bytes, kGuard, sizeof(bytes)); }
  void Expect(uint32_t size) const { Check(bytes[size] == kGuard, "a buffer was overrun"); }
};

void Describe(const coap_pdu_t *pdu) {
  CoapRpcMsgOptions opt = {};
  COAP_RpcParseOptions(pdu, &opt);
  Check(strnlen(opt.query, sizeof(opt.query)) < sizeof(opt.query), "a query is not terminated");
  uint32_t value = 0;
  const uint32_t isObserve = COAP_RpcGetObserveOption(pdu, &value);
  Check(isObserve == COAP_RpcCheckObserveOption(pdu), "Observe is there and is not");
  Check(isObserve == ((opt.optMask & COAP_RPC_OPT_OBSERVE) != 0), "Observe is described wrongly");
  COAP_RpcGetMsgType(pdu, &value);
  Check(value != COAP_MESSAGE_ACK, "an acknowledgement has its own type");
  COAP_RpcGetCodeType(pdu, &value);
}

void Encode(const char *path) {
  for (const uint32_t size : kBufSizes) {
    Guarded out;
    const int32_t len = Coap_RpcPrecentEncode(out.bytes, size, path);
    Check(len == -1 || static_cast<uint32_t>(len) <= size, "more was encoded than fits");
    out.Expect(size);
  }
}

void ReadPath(CoapRpcCtx *ctx, const coap_pdu_t *pdu) {
  for (const uint32_t size : kBufSizes) {
    Guarded out;
    const uint32_t ret = COAP_RpcGetUriStr(pdu, out.bytes, size);
    out.Expect(size);
    if (ret != 0 || size == 0) continue;
    Check(strnlen(out.bytes, size) < size, "a path is not terminated");
    Encode(out.bytes);
    Coap_RpcGetUriHostIp(ctx, out.bytes);
  }
}

// WritePath puts the payload, as a path, into another message.
void WritePath(CoapRpcCtx *ctx, const coap_pdu_t *pdu) {
  size_t len = 0;
  const uint8_t *data = nullptr;
  if (coap_get_data(pdu, &len, &data) == 0) return;
  CoapRpcPayload *copy = COAP_RpcNewPayload(ctx, data, static_cast<uint32_t>(len));
  Check(copy && memcmp(copy->data, data, len) == 0, "a payload was not copied");
  coap_pdu_t *other = coap_pdu_init(COAP_MESSAGE_CON, COAP_REQUEST_CODE_GET, 1, 1024);
  Check(other != nullptr, "no message");
  COAP_RpcSetUriPath(ctx, other, reinterpret_cast<const char *>(copy->data));
  ReadPath(ctx, other);
  coap_delete_pdu(other);
  COAP_RpcFreePayload(copy);
}

// Instance has an entry for each kind of look-up.
class Instance {
 public:
  Instance() : param_(host_.Param()), ctx_(COAP_RpcInit(&param_)) {
    Check(ctx_ != nullptr, "no instance");
    for (const char *uri : {"a", "a/b", "terminals/dynamic-mac", ""}) {
      for (uint32_t kind = 0; kind < 12; ++kind) Register(uri, kind);
    }
  }
  ~Instance() { COAP_RpcUninit(ctx_); }

  CoapRpcCtx *Get() const { return ctx_; }

 private:
  void Register(const char *uri, uint32_t kind) {
    const CoapRpcUriKey key = KeyOf(uri, kind % 2, kind / 2 % 2, kind / 4);
    const CoapRpcSerVtblReg ser = {};
    const CoapRpcCliVtblReg cli = {};
    COAP_RpcSerRegVtbl(ctx_, &key, &ser, nullptr);
    COAP_RpcCliRegVtbl(ctx_, &key, &cli);
  }

  Host host_;
  CoapRpcInitParam param_;
  CoapRpcCtx *ctx_;
};

void LookUp(CoapRpcCtx *ctx, const coap_pdu_t *pdu) {
  COAP_RpcCliGetVtbl(ctx, pdu);
  COAP_RpcSerGetVtbl(ctx, pdu, nullptr);
  Coap_RpcGetListenIp(ctx, pdu, nullptr);
}

}  // namespace
}  // namespace fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static fuzz::Instance instance;
  coap_pdu_t *pdu = coap_pdu_init(COAP_MESSAGE_CON, COAP_REQUEST_CODE_GET, 1, size + 16);
  if (!pdu) return 0;
  if (coap_pdu_parse(COAP_PROTO_UDP, data, size, pdu) != 0) {
    fuzz::Describe(pdu);
    fuzz::ReadPath(instance.Get(), pdu);
    fuzz::WritePath(instance.Get(), pdu);
    fuzz::LookUp(instance.Get(), pdu);
  }
  coap_delete_pdu(pdu);
  return 0;
}
