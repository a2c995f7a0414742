/* two_instances.h: two instances of the library that talk to each other over the loopback.
 *
 * Each has a host of its own; the clocks move in lock step unless a test stops one of them.
 * The program takes a network of its own when the system lets it, so that port 5683 of 127.0.0.1,
 * where the answers to an unbound client go, is free. */
#ifndef TWO_INSTANCES_H
#define TWO_INSTANCES_H

#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "coap_svc/rpc/client/coap_rpc_cli_req.h"
#include "coap_svc/rpc/client/coap_rpc_cli_session.h"
#include "coap_svc/rpc/client/coap_rpc_cli_uri.h"
#include "coap_svc/rpc/coap_rpc_cli.h"
#include "coap_svc/rpc/coap_rpc_ext.h"
#include "observe_server.h"
#include "own_network.h"

namespace coap_rpc_test {

inline constexpr uint32_t kAskerIp = 0x7F000001;   // where an unbound session sends from
inline constexpr uint32_t kServerIp = 0x7F000002;  // 127.0.0.2
inline constexpr uint8_t kAsyncMode = 1;

// Responses is what the callbacks of a client's table do, and what they were given.
struct Responses {
  struct Response {
    std::string payload;
    CoapRpcCliRspInfo info;
  };

  std::vector<Response> all;
  std::vector<uint32_t> gone;  // IPv4 addresses given to onDisconnect
  std::function<void(const std::string &)> onPayload;

  static Responses &Of(uint64_t userData) { return *reinterpret_cast<Responses *>(userData); }

  // The request's payload is that of the call.
  static int32_t BuildReq(uint64_t, const CoapRpcCliReqParam *req, uint8_t *out, uint32_t size) {
    EXPECT_LE(req->payloadLen, size);
    if (req->payloadLen != 0) memcpy(out, req->payload, req->payloadLen);
    return static_cast<int32_t>(req->payloadLen);
  }
  static uint32_t OnResponse(uint64_t userData, uint64_t, uint8_t *payload, uint32_t len,
                             const CoapRpcCliRspInfo *info) {
    Responses &self = Of(userData);
    self.all.push_back({std::string(payload, payload + len), *info});
    if (self.onPayload) self.onPayload(self.all.back().payload);
    return 0;
  }
  static void OnDisconnect(uint64_t userData, const CoapRpcIpAddr *peer) {
    Of(userData).gone.push_back(peer->addr.ipv4);
  }
};

// Mirror is what an observer has assembled from the payloads of ObserveApp's builders.
struct Mirror {
  std::map<std::string, std::string> tuples;
  size_t numPayloads = 0;
  size_t maxBytes = 0;

  void TakeJson(const std::string &payload) {
    Count(payload);
    json_t *root = json_loadb(payload.data(), payload.size(), 0, nullptr);
    ASSERT_NE(root, nullptr) << payload;
    json_t *data = json_object_get(root, "data");
    for (size_t i = 0; i < json_array_size(data); ++i) {
      const json_t *element = json_array_get(data, i);
      const std::string key = TextOf(element, "key");
      if (TextOf(element, "op") == "u") {
        tuples[key] = TextOf(element, "val").substr(0, 4);
      } else {
        tuples.erase(key);
      }
    }
    json_decref(root);
  }

  // TakeIdl reads messages like "u:key1=val1" and "d:key1".
  void TakeIdl(const std::string &payload) {
    Count(payload);
    uint32_t numMsgs = 0;
    ASSERT_GE(payload.size(), sizeof(numMsgs));
    memcpy(&numMsgs, payload.data(), sizeof(numMsgs));
    size_t at = sizeof(numMsgs);
    for (uint32_t i = 0; i < numMsgs; ++i) {
      uint16_t len = 0;
      ASSERT_GE(payload.size(), at + sizeof(len));
      memcpy(&len, payload.data() + at, sizeof(len));
      TakeMessage(payload.substr(at + sizeof(len), len));
      at += sizeof(len) + len;
    }
    EXPECT_EQ(at, payload.size());
  }

 private:
  static std::string TextOf(const json_t *element, const char *name) {
    const char *text = json_string_value(json_object_get(element, name));
    return text ? text : "";
  }
  void Count(const std::string &payload) {
    ++numPayloads;
    maxBytes = std::max(maxBytes, payload.size());
  }
  void TakeMessage(const std::string &text) {
    if (text[0] == 'u') {
      tuples[text.substr(2, 4)] = text.substr(7, 4);
    } else {
      tuples.erase(text.substr(2, 4));
    }
  }
};

inline CoapRpcIpAddr Ipv4Address(uint32_t ipv4) {
  CoapRpcIpAddr addr = {};
  addr.family = COAP_RPC_IPV4;
  addr.addr.ipv4 = ipv4;
  return addr;
}

// Side is one instance with its host and address.
class Side {
 public:
  explicit Side(uint32_t ipv4) : Side(Ipv4Address(ipv4)) {}
  explicit Side(const CoapRpcIpAddr &address) : address_(address) { Start(); }

  void Start() {
    host_.Logs().SuppressBelow(4);
    instance_ = std::make_unique<TestInstance>(host_);
    COAP_RpcRefreshTaskTimer(Ctx());
  }
  void Stop() { instance_.reset(); }
  bool IsRunning() const { return instance_ != nullptr; }

  TestHost &Host() { return host_; }
  CoapRpcCtx *Ctx() const { return instance_->Get(); }
  CoapRpcIpAddr Address() const { return address_; }
  operator CoapRpcIpAddr() const { return Address(); }

  // Server: Attach opens a port of the side's address for a registered key.
  void Attach(const CoapRpcUriKey &key, uint16_t port = kCoapPort) {
    CoapRpcSerListenAddr addr = {};
    addr.listenAddr = Address();
    addr.port = port;
    EXPECT_EQ(COAP_RpcSerSetUri(Ctx(), &key, &addr), 0u);
  }
  void Detach(const CoapRpcUriKey &key) { EXPECT_EQ(COAP_RpcSerUnsetUri(Ctx(), &key), 0u); }

  void ServeAsync(const CoapRpcUriKey &key, App *app) {
    CoapRpcSerVtblReg reg = {};
    reg.mode = kAsyncMode;
    reg.userData = reinterpret_cast<uint64_t>(app);
    reg.onAsyncRequest = app ? App::OnAsyncRequest : nullptr;
    EXPECT_EQ(COAP_RpcSerRegVtbl(Ctx(), &key, &reg, nullptr), 0u);
    Attach(key);
  }

  void ServeObserve(const CoapRpcUriKey &key, ObserveApp *app, bool isJson,
                    uint16_t port = kCoapPort) {
    CoapRpcSerVtblReg reg = {};
    reg.payloadFormat = isJson ? COAP_RPC_JSON : COAP_RPC_BYTE;
    reg.userData = reinterpret_cast<uint64_t>(static_cast<App *>(app));
    CoapRpcSerObVtblReg ob = {};
    ob.keyLen = ob.valLen = 4;
    ob.tupleKeyCmp = ObserveApp::KeyCmp;
    ob.onObserverNum = ObserveApp::OnObserverNum;
    ob.buildUpdate = isJson ? ObserveApp::BuildUpdate<true> : ObserveApp::BuildUpdate<false>;
    ob.buildDelete = isJson ? ObserveApp::BuildDelete<true> : ObserveApp::BuildDelete<false>;
    ob.getFirstTuple = ObserveApp::First;
    ob.getNextTuple = ObserveApp::Next;
    EXPECT_EQ(COAP_RpcSerRegVtbl(Ctx(), &key, &reg, &ob), 0u);
    Attach(key, port);
  }

  // Client.
  void Register(const CoapRpcUriKey &key, Responses *responses) {
    CoapRpcCliVtblReg reg = {};
    reg.userData = reinterpret_cast<uint64_t>(responses);
    reg.buildReq = Responses::BuildReq;
    reg.onResponse = Responses::OnResponse;
    reg.onDisconnect = Responses::OnDisconnect;
    EXPECT_EQ(COAP_RpcCliRegVtbl(Ctx(), &key, &reg), 0u);
  }

  // AddrOf names a peer.  Sources that differ have sessions that differ; they are bound for packet
  // type BROADCAST only.
  CoapRpcCliAddr AddrOf(const CoapRpcIpAddr &peer, uint32_t source = 0) const {
    CoapRpcCliAddr addr = {};
    addr.srcIp = Address();
    addr.srcIp.addr.ipv4 += source;
    addr.dstIp = peer;
    addr.dstPort = kCoapPort;
    addr.codeType = COAP_RPC_GET;
    return addr;
  }

  using Request = decltype(COAP_RpcCliConReq);
  uint32_t Call(Request *call, const CoapRpcUriKey &key, const CoapRpcIpAddr &peer,
                std::string payload = "", uint32_t source = 0) {
    CoapRpcCliReqParam param = {};
    param.payload = reinterpret_cast<uint8_t *>(payload.data());
    param.payloadLen = static_cast<uint32_t>(payload.size());
    if (payload.empty()) param.payload = nullptr;
    const CoapRpcCliAddr addr = AddrOf(peer, source);
    return call(Ctx(), &key, &param, &addr);
  }
  uint32_t Ask(const CoapRpcUriKey &key, const CoapRpcIpAddr &peer, const std::string &payload,
               uint32_t source = 0) {
    return Call(COAP_RpcCliConReq, key, peer, payload, source);
  }
  uint32_t Observe(const CoapRpcUriKey &key, const CoapRpcIpAddr &peer) {
    return Call(COAP_RpcCliObserveReq, key, peer);
  }

  CoapRpcCliReqData *RecordOf(const CoapRpcUriKey &key) const {
    const CoapRpcCliReqKey reqKey = {key, {}};
    return COAP_RpcCliFindReqData(Ctx()->cli, &reqKey);
  }
  bool HasSession() const { return COAP_RpcCliFindFirstSession(Ctx()->cli) != nullptr; }

 private:
  const CoapRpcIpAddr address_;
  TestHost host_;
  std::unique_ptr<TestInstance> instance_;
};

class TwoInstances : public testing::Test {
 protected:
  static constexpr int kMaxSteps = 3000;  // five minutes

  static void SetUpTestSuite() { EnterOwnNetwork(); }

  void Step() {
    asker_.Host().AdvanceMs(kTickMs);
    server_.Host().AdvanceMs(kTickMs);
  }
  void Steps(int num) {
    for (int i = 0; i < num; ++i) Step();
  }

  // RunUntil moves both clocks until something is so.  Returns whether it ever was.
  template <typename Condition>
  bool RunUntil(Condition condition, int maxSteps = kMaxSteps) {
    for (int i = 0; i < maxSteps; ++i) {
      if (condition()) return true;
      Step();
    }
    return condition();
  }

  Side asker_{kAskerIp};
  Side server_{kServerIp};
};

}  // namespace coap_rpc_test

#endif /* TWO_INSTANCES_H */
