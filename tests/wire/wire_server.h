/* wire_server.h: a server of the library on the loopback and raw peers that talk to it.
 *
 * libcoap's clock follows the host's (coap_clock.cpp), so a test moves the time of both. */
#ifndef WIRE_SERVER_H
#define WIRE_SERVER_H

#include <unistd.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "coap_svc/rpc/coap_rpc_ser.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_ctx.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_io.h"
#include "coap_svc/rpc/server/coap_rpc_ser_data.h"
#include "coap_svc/rpc/server/coap_rpc_ser_uri.h"
#include "raw_peer.h"
#include "test_instance.h"

namespace coap_rpc_test {

inline constexpr uint32_t kLoopback = 0x7F000001;
inline constexpr uint64_t kTickMs = 100;
inline constexpr uint16_t kCoapPort = 5683;
inline constexpr int kNothingComes = 5;  // rounds without a datagram that count as silence

// Loopback addresses that only this process uses, so that all their ports are free.
enum class Role : uint32_t { kServer = 1, kPeer = 2, kOtherPeer = 3 };

inline uint32_t OwnIpv4(Role role) {
  return 0x7F000000 | static_cast<uint32_t>(role) << 22 |
         (static_cast<uint32_t>(getpid()) & 0x3FFFFF);
}

inline std::string OwnHost(Role role) {
  const uint32_t ipv4 = OwnIpv4(role);
  return std::to_string(ipv4 >> 24) + "." + std::to_string(ipv4 >> 16 & 0xFF) + "." +
         std::to_string(ipv4 >> 8 & 0xFF) + "." + std::to_string(ipv4 & 0xFF);
}

// App is what the callbacks of one entry do, and what they were given.
struct App {
  struct Request {
    CoapRpcSerReqInfo info;
    std::string payload;
    bool isTerminated;
  };

  std::vector<Request> requests;
  std::string out;     // put into the answer buffer
  int32_t result = 0;  // of onRequest
  std::vector<void *> handles;
  uint32_t asyncResult = 0;  // of onAsyncRequest
  std::function<void(void *)> onAsync;
  uint32_t outSize = 0;
  bool isBufferClear = false;

  static App &Of(uint64_t userData) { return *reinterpret_cast<App *>(userData); }

  static int32_t OnRequest(uint64_t userData, const CoapRpcSerReqInfo *info, uint8_t *payload,
                           uint32_t len, uint8_t *out, uint32_t outSize) {
    App &app = Of(userData);
    app.requests.push_back({*info, std::string(payload, payload + len), payload[len] == 0});
    app.outSize = outSize;
    app.isBufferClear = std::all_of(out, out + outSize, [](uint8_t byte) { return byte == 0; });
    std::copy(app.out.begin(), app.out.end(), out);
    return app.result;
  }

  static uint32_t OnAsyncRequest(uint64_t userData, uint8_t *payload, uint32_t len, void *async) {
    App &app = Of(userData);
    app.requests.push_back({{}, std::string(payload, payload + len), payload[len] == 0});
    app.handles.push_back(async);
    if (app.onAsync) app.onAsync(async);
    return app.asyncResult;
  }
};

class WireServer : public testing::Test {
 protected:
  WireServer() : instance_(std::make_unique<TestInstance>(host_)) {
    COAP_RpcRefreshTaskTimer(Ctx());
    peer_.SetRemote(Address());
  }

  CoapRpcCtx *Ctx() const { return instance_->Get(); }
  static UdpAddress Address() { return {OwnHost(Role::kServer), kCoapPort}; }

  CoapRpcSerVtblReg RegOf(App *app, uint8_t mode, uint8_t payloadFormat = COAP_RPC_JSON) const {
    CoapRpcSerVtblReg reg = {};
    reg.payloadFormat = payloadFormat;
    reg.mode = mode;
    reg.userData = reinterpret_cast<uint64_t>(app);
    reg.onRequest = App::OnRequest;
    reg.onAsyncRequest = App::OnAsyncRequest;
    return reg;
  }

  // Serve registers an entry and attaches it.  Returns the entry.
  CoapRpcSerUriVtbl *Serve(const CoapRpcUriKey &key, const CoapRpcSerVtblReg &reg,
                           const CoapRpcSerObVtblReg *obReg = nullptr) {
    CoapRpcSerListenAddr addr = {};
    addr.listenAddr.family = COAP_RPC_IPV4;
    addr.listenAddr.addr.ipv4 = OwnIpv4(Role::kServer);
    addr.port = kCoapPort;
    EXPECT_EQ(COAP_RpcSerRegVtbl(Ctx(), &key, &reg, obReg), 0u);
    EXPECT_EQ(COAP_RpcSerSetUri(Ctx(), &key, &addr), 0u);
    return COAP_RpcSerFindUriVtbl(Ctx()->ser, &key);
  }

  void Tick() { host_.AdvanceMs(kTickMs); }
  std::function<void()> Pump() {
    return [this] { Tick(); };
  }

  std::optional<CoapMessage> Next(RawPeer &peer) { return peer.ReceiveMessage(Pump()); }

  // Ask sends a message and returns what comes back next.
  CoapMessage Ask(RawPeer &peer, const CoapMessage &message) {
    peer.Send(message);
    std::optional<CoapMessage> answer = Next(peer);
    EXPECT_TRUE(answer) << "no answer; log:\n" << peer.LogText();
    return answer ? *answer : CoapMessage();
  }
  CoapMessage Ask(const CoapMessage &message) { return Ask(peer_, message); }

  void ExpectSilence(RawPeer &peer) {
    EXPECT_FALSE(peer.Receive(Pump(), kNothingComes)) << peer.LogText();
  }

  CoapMessage Get(CoapType type, const std::string &path, const std::string &payload = "") {
    return Request(type, kCodeGet, ++mid_, {0xAB}).AddPath(path).PayloadText(payload);
  }
  CoapMessage Post(CoapType type, const std::string &path, const std::string &payload = "") {
    return Request(type, kCodePost, ++mid_, {0xAB}).AddPath(path).PayloadText(payload);
  }

  // An empty acknowledgement: no code, no token, no options, no payload.
  static void ExpectEmptyAck(const CoapMessage &answer, const CoapMessage &request) {
    EXPECT_EQ(answer, AckOf(request));
  }

  TestHost host_;
  std::unique_ptr<TestInstance> instance_;
  RawPeer peer_;
  uint16_t mid_ = 0x1000;
};

// ReadBlocks fetches what follows the first block of a response, with `query` when it is not empty.
// Returns the whole body.
template <typename AskOne>
Bytes ReadBlocks(const CoapMessage &first, const std::string &path, const std::string &query,
                 uint16_t mid, AskOne ask) {
  Bytes body = first.payload;
  std::optional<CoapBlock> block = first.Block(kOptBlock2);
  while (block && block->more) {
    CoapMessage next = Request(CoapType::kCon, kCodeGet, ++mid, {0xB0}).AddPath(path);
    if (!query.empty()) next.AddText(kOptUriQuery, query);
    next.AddBlock(kOptBlock2, {block->num + 1, false, block->szx});
    const CoapMessage answer = ask(next);
    if (answer.payload.empty()) break;
    body.insert(body.end(), answer.payload.begin(), answer.payload.end());
    block = answer.Block(kOptBlock2);
  }
  return body;
}

}  // namespace coap_rpc_test

#endif /* WIRE_SERVER_H */
