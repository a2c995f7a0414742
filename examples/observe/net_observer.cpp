#include "net_observer.h"

#include <coap_svc/rpc/coap_rpc_ext.h>
#include <kst_tmr.h>

#include <string_view>

namespace {

// Counted from the last datagram in either direction: asking more often than that would keep the
// keep-alive from ever being tried.
constexpr uint32_t kKeepAliveSeconds = 1;

constexpr uint32_t kTickMs = 1000;

}  // namespace

NetObserver::NetObserver(const Setup &setup)
    : setup_(setup),
      ask_(setup.isBatch ? COAP_RpcCliObserveReqBatch : COAP_RpcCliObserveReqVerify),
      askPeriod_(setup.askPeriod != 0 ? setup.askPeriod : 1) {}

bool NetObserver::Start() {
  CoapRpcCliVtblReg reg = {};
  reg.payloadFormat = setup_.isIdl ? COAP_RPC_BYTE : COAP_RPC_JSON;
  reg.userData = reinterpret_cast<uint64_t>(this);
  reg.onResponse = OnNotification;
  reg.onDisconnect = OnDisconnect;
  COAP_RpcSetKeepAlive(setup_.ctx, kKeepAliveSeconds);
  return COAP_RpcCliRegVtbl(setup_.ctx, &setup_.key, &reg) == 0 &&
         COAP_RpcCliObserveReq(setup_.ctx, &setup_.key, &param_, &setup_.peer) == 0 &&
         KST_TmrStartLoop(setup_.tmr, Tick, kTickMs, this) != 0;
}

uint32_t NetObserver::OnNotification(uint64_t userData, uint64_t, uint8_t *payload, uint32_t len,
                                     const CoapRpcCliRspInfo *) {
  NetObserver &self = Of(userData);
  const std::string_view document(reinterpret_cast<const char *>(payload), len);
  if (document.empty()) return 0;
  const bool isGood =
      self.setup_.isIdl ? self.mirror_.ApplyIdl(document) : self.mirror_.ApplyJson(document);
  ++(isGood ? self.numDocuments_ : self.numRefused_);
  self.OnTable();
  return 0;
}

// We are called from inside the I/O here; the new beginning is left to the next tick.
void NetObserver::OnDisconnect(uint64_t userData, const CoapRpcIpAddr *) {
  Of(userData).OnLost();
  Of(userData).isLost_ = true;
}

uint32_t NetObserver::Tick(void *param) {
  auto *self = static_cast<NetObserver *>(param);
  if (self->isLost_) return self->BeginAgain();
  if (++self->numTicks_ % self->askPeriod_ != 0) return 0;
  return self->ask_(self->setup_.ctx, &self->setup_.key, &self->param_, &self->setup_.peer);
}

// A server that has been away knows nothing of us, and sends its whole set to a new observer.
uint32_t NetObserver::BeginAgain() {
  isLost_ = false;
  mirror_.Clear();
  COAP_RpcCliObserveUnReq(setup_.ctx, &setup_.key, &param_, &setup_.peer);
  return COAP_RpcCliObserveReq(setup_.ctx, &setup_.key, &param_, &setup_.peer);
}
