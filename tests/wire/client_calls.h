/* client_calls.h: a client that makes calls, and a raw peer that answers them as a test says. */
#ifndef CLIENT_CALLS_H
#define CLIENT_CALLS_H

#include "coap_svc/rpc/coap_rpc_call.h"
#include "wire_client.h"

namespace coap_rpc_test {

class ClientCalls : public WireClient {
 protected:
  ~ClientCalls() override { instance_.reset(); }  // which tells of the calls that are left

  // Told is what an onRsp was given.
  struct Told {
    CoapRpcCallRsp rsp;
    std::string payload;
    std::string location;
    bool hasLocation;
  };

  CoapRpcCallAddr To(const RawPeer &peer) const {
    CoapRpcCallAddr addr = {};
    addr.dstIp.family = COAP_RPC_IPV4;
    addr.dstIp.addr.ipv4 = kPeerIp;
    addr.dstPort = peer.Local().port;
    return addr;
  }

  static void OnRsp(uint64_t userData, const CoapRpcCallRsp *rsp) {
    auto &self = *reinterpret_cast<ClientCalls *>(userData);
    EXPECT_FALSE(self.isInCall_) << "told inside the call";
    const std::string payload(rsp->payload, rsp->payload + rsp->payloadLen);
    const bool hasLocation = rsp->locationPath != nullptr;
    self.told_.push_back({*rsp, payload, hasLocation ? rsp->locationPath : "", hasLocation});
    if (self.onTold_) self.onTold_(*rsp);
  }

  CoapRpcCall Get(const char *path) {
    CoapRpcCall call = {};
    call.method = COAP_RPC_GET;
    call.path = path;
    call.userData = reinterpret_cast<uint64_t>(this);
    call.onRsp = OnRsp;
    return call;
  }
  CoapRpcCall Post(const char *path, std::string_view payload) {
    CoapRpcCall call = Get(path);
    call.method = COAP_RPC_POST;
    call.payload = reinterpret_cast<const uint8_t *>(payload.data());
    call.payloadLen = static_cast<uint32_t>(payload.size());
    return call;
  }

  uint32_t Try(const CoapRpcCall &call, const CoapRpcCallAddr &addr) {
    isInCall_ = true;
    const uint32_t ret = COAP_RpcCall(Ctx(), &addr, &call, &id_);
    isInCall_ = false;
    return ret;
  }
  uint32_t Try(const CoapRpcCall &call) { return Try(call, To(peer_)); }
  uint64_t Make(const CoapRpcCall &call) {
    EXPECT_EQ(Try(call), 0U);
    EXPECT_NE(id_, 0U);
    return id_;
  }
  uint64_t Watch(const CoapRpcCall &call) {
    const CoapRpcCallAddr addr = To(peer_);
    EXPECT_EQ(COAP_RpcCallObserve(Ctx(), &addr, &call, &id_), 0U);
    return id_;
  }

  // BaseAddr is the address of base requests that share the calls' session.
  CoapRpcCliAddr BaseAddr() const {
    CoapRpcCliAddr addr = PeerAddr();
    addr.srcIp.addr.ipv4 = 0;
    return addr;
  }

  // Piggyback makes the acknowledgement of a request with an answer in it, and nothing of its path.
  static CoapMessage Piggyback(const CoapMessage &request, uint8_t code = Code(2, 5)) {
    return Request(CoapType::kAck, code, request.messageId, request.token);
  }
  static CoapMessage Apart(CoapType type, uint16_t mid, const CoapMessage &request,
                           uint8_t code = Code(2, 5)) {
    return Request(type, code, mid, request.token);
  }

  void Say(const CoapMessage &message) {
    peer_.Send(message);
    Ticks(3);
  }
  // Wait lets time go by in front of a peer that says nothing.
  void Wait(uint64_t ms) {
    for (uint64_t t = 0; t < ms; t += kTickMs) {
      Tick();
      (void)peer_.ReceiveNow();
    }
  }

  std::vector<uint32_t> Statuses() const {
    std::vector<uint32_t> all;
    for (const Told &told : told_) all.push_back(told.rsp.status);
    return all;
  }
  uint64_t NumDropped() const { return COAP_RpcGetDroppedAnswerNum(Ctx()); }
  uint32_t NumCalls() const { return COAP_RpcGetCallNum(Ctx()); }

  std::vector<Told> told_;
  std::function<void(const CoapRpcCallRsp &)> onTold_;
  uint64_t id_ = 0;
  bool isInCall_ = false;
};

using Ends = std::vector<uint32_t>;  // statuses

}  // namespace coap_rpc_test

#endif /* CLIENT_CALLS_H */
