/* load_node.h: where a load runs: an instance, its address and its peer's, time, chance. */
#ifndef LOAD_NODE_H
#define LOAD_NODE_H

#include <random>

#include "two_instances.h"

namespace coap_rpc_test {

struct LoadNode {
  CoapRpcCtx *ctx = nullptr;
  CoapRpcIpAddr self = {};
  CoapRpcIpAddr peer = {};
  std::mt19937 random;
  uint64_t nowMs = 0;

  uint32_t Below(uint32_t limit) { return static_cast<uint32_t>(random() % limit); }

  void Attach(const CoapRpcUriKey &key) const {
    CoapRpcSerListenAddr addr = {};
    addr.listenAddr = self;
    addr.port = kCoapPort;
    EXPECT_EQ(COAP_RpcSerSetUri(ctx, &key, &addr), 0u);
  }

  void Detach(const CoapRpcUriKey &key) const { EXPECT_EQ(COAP_RpcSerUnsetUri(ctx, &key), 0u); }

  // Call sends a request to the peer.  Sources that differ have sessions that differ; the requests
  // of packet type BROADCAST come from `self` in truth and have source 0.
  uint32_t Call(Side::Request *call, const CoapRpcUriKey &key, uint32_t codeType,
                std::string payload = "", uint32_t source = 0) const {
    CoapRpcCliAddr addr = {};
    addr.srcIp = self;
    addr.srcIp.addr.ipv4 += source;
    addr.dstIp = peer;
    addr.dstPort = kCoapPort;
    addr.codeType = codeType;
    CoapRpcCliReqParam param = {};
    if (!payload.empty()) param.payload = reinterpret_cast<uint8_t *>(payload.data());
    param.payloadLen = static_cast<uint32_t>(payload.size());
    return call(ctx, &key, &param, &addr);
  }
};

// Pace says when something that happens every so often, with chance, happens next.
class Pace {
 public:
  explicit Pace(uint32_t periodMs) : periodMs_(periodMs) {}

  bool IsDue(LoadNode &node) {
    if (node.nowMs < nextMs_) return false;
    nextMs_ = node.nowMs + 1 + node.Below(2 * periodMs_);
    return true;
  }

 private:
  const uint32_t periodMs_;
  uint64_t nextMs_ = 0;
};

}  // namespace coap_rpc_test

#endif /* LOAD_NODE_H */
