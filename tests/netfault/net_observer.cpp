#include "net_observer.h"

#include <coap_svc/rpc/coap_rpc_ext.h>
#include <kst_tmr.h>

#include <algorithm>
#include <string_view>

namespace {

// Counted from the last datagram in either direction: asking more often than that would keep the
// keep-alive from ever being tried.
constexpr uint32_t kKeepAliveSeconds = 1;

// A question is repeated for up to 21 s.  Before that, another one would only be queued after it.
constexpr uint32_t kLeastAskSeconds = 21;

constexpr size_t kMaxIdlSize = 65'471;  // of a notification

constexpr uint32_t kTickMs = 1000;

}  // namespace

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
  if (len == 0) return 0;
  if (!self.Take({reinterpret_cast<const char *>(payload), len})) {
    self.isInDoubt_ = self.needsAll_ = true;
  }
  self.OnTable();
  return 0;
}

// Take says whether the table is all right now, as far as one can tell.  A notification of IDL
// messages that is full may have left some for the next.
bool NetObserver::Take(std::string_view document) {
  const bool isGood = setup_.isIdl ? mirror_.ApplyIdl(document) : mirror_.ApplyJson(document);
  ++(isGood ? numDocuments_ : numRefused_);
  const bool isFull = setup_.isIdl && document.size() + 2 + NetElement::kUpdateSize > kMaxIdlSize;
  return isGood && (isFull || mirror_.IsWhole());
}

// We are called from inside the I/O here; the question is left to a tick.
void NetObserver::OnDisconnect(uint64_t userData, const CoapRpcIpAddr *) {
  Of(userData).OnLost();
  Of(userData).isInDoubt_ = true;
}

uint32_t NetObserver::Tick(void *param) {
  auto *self = static_cast<NetObserver *>(param);
  const uint32_t period = self->setup_.askPeriod;
  const uint32_t patience = self->isInDoubt_ ? std::min(period, kLeastAskSeconds) : period;
  return ++self->sinceAsked_ >= patience ? self->Ask() : 0;
}

uint32_t NetObserver::Ask() {
  const auto ask =
      setup_.isBatch || needsAll_ ? COAP_RpcCliObserveReqBatch : COAP_RpcCliObserveReqVerify;
  sinceAsked_ = 0;
  isInDoubt_ = needsAll_ = false;
  return ask(setup_.ctx, &setup_.key, &param_, &setup_.peer);
}
