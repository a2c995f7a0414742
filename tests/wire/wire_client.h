/* wire_client.h: a client of the library on the loopback and a raw peer that it calls.
 *
 * libcoap's clock follows the host's (coap_clock.cpp), so a test moves the time of both. */
#ifndef WIRE_CLIENT_H
#define WIRE_CLIENT_H

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "coap_svc/rpc/client/coap_rpc_cli_req.h"
#include "coap_svc/rpc/client/coap_rpc_cli_session.h"
#include "coap_svc/rpc/client/coap_rpc_cli_uri.h"
#include "coap_svc/rpc/coap_rpc_cli.h"
#include "coap_svc/rpc/coap_rpc_ext.h"
#include "coap_svc/rpc/libadapter/call/coap_rpc_lib_call_event.h"
#include "coap_svc/rpc/libadapter/call/coap_rpc_lib_call_pdu.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_handler.h"
#include "coap_svc/rpc/libadapter/call/coap_rpc_lib_call_send.h"
#include "coap_svc/rpc/libadapter/call/coap_rpc_lib_call_session.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_ctx.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_handler.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_io.h"
#include "raw_peer.h"
#include "test_instance.h"

namespace coap_rpc_test {

inline constexpr uint32_t kOwnIp = 0x7F000001;   // 127.0.0.1, what an unbound session sends from
inline constexpr uint32_t kPeerIp = 0x7F000002;  // 127.0.0.2
inline constexpr uint64_t kTickMs = 100;
inline constexpr int kNothingComes = 15;  // rounds without a datagram that count as silence

// App is what the callbacks of one handler table do, and what they were given.
struct App {
  struct Response {
    std::string payload;
    bool isNull;
    bool isTerminated;
    CoapRpcCliRspInfo info;
  };

  std::string out;                 // what buildReq writes
  std::optional<int32_t> built;    // what buildReq returns instead of its length
  uint32_t result = 0;             // of onResponse
  std::function<void()> onBuild;   // inside buildReq
  std::function<void()> onAnswer;  // inside onResponse
  std::function<void()> onGone;    // inside onDisconnect
  std::vector<Response> responses;
  std::vector<CoapRpcIpAddr> gone;  // peers given to onDisconnect
  uint32_t outSize = 0;
  bool isFirstByteZero = false;
  uint64_t reqUserData = 0;
  std::string reqPayload;

  static App &Of(uint64_t userData) { return *reinterpret_cast<App *>(userData); }

  static int32_t BuildReq(uint64_t userData, const CoapRpcCliReqParam *req, uint8_t *out,
                          uint32_t outSize) {
    App &app = Of(userData);
    app.outSize = outSize;
    app.isFirstByteZero = out[0] == 0;
    app.reqUserData = req->userData;
    app.reqPayload.assign(req->payload, req->payload + req->payloadLen);
    if (app.onBuild) app.onBuild();
    std::copy(app.out.begin(), app.out.end(), out);
    return app.built ? *app.built : static_cast<int32_t>(app.out.size());
  }

  static uint32_t OnResponse(uint64_t userData, uint64_t zero, uint8_t *payload, uint32_t len,
                             const CoapRpcCliRspInfo *info) {
    EXPECT_EQ(zero, 0U);
    App &app = Of(userData);
    const bool isNull = payload == nullptr;
    app.responses.push_back({isNull ? "" : std::string(payload, payload + len), isNull,
                             !isNull && payload[len] == 0, *info});
    if (app.onAnswer) app.onAnswer();
    return app.result;
  }

  static void OnDisconnect(uint64_t userData, const CoapRpcIpAddr *peer) {
    App &app = Of(userData);
    app.gone.push_back(*peer);
    if (app.onGone) app.onGone();
  }
};

class WireClient : public testing::Test {
 protected:
  WireClient() : instance_(std::make_unique<TestInstance>(host_)) {}

  CoapRpcCtx *Ctx() const { return instance_->Get(); }

  void Register(const CoapRpcUriKey &key, App *app) {
    CoapRpcCliVtblReg reg = {};
    reg.payloadFormat = COAP_RPC_BYTE;
    reg.userData = reinterpret_cast<uint64_t>(app);
    reg.buildReq = App::BuildReq;
    reg.onResponse = App::OnResponse;
    reg.onDisconnect = App::OnDisconnect;
    ASSERT_EQ(COAP_RpcCliRegVtbl(Ctx(), &key, &reg), 0U);
  }

  static CoapRpcCliReqParam ParamOf(uint64_t userData) {
    CoapRpcCliReqParam param = {};
    param.userData = userData;
    return param;
  }

  // AddrOf names a peer; `code` is the request's.
  CoapRpcCliAddr AddrOf(const RawPeer &peer, uint32_t code = COAP_RPC_GET) const {
    CoapRpcCliAddr addr = {};
    addr.srcIp.family = addr.dstIp.family = COAP_RPC_IPV4;
    addr.srcIp.addr.ipv4 = kOwnIp;
    addr.dstIp.addr.ipv4 = kPeerIp;
    addr.dstPort = peer.Local().port;
    addr.codeType = code;
    return addr;
  }
  CoapRpcCliAddr PeerAddr(uint32_t code = COAP_RPC_GET) const { return AddrOf(peer_, code); }

  uint32_t Call(const CoapRpcUriKey &key, uint64_t userData = 1, uint32_t code = COAP_RPC_GET) {
    const CoapRpcCliReqParam param = ParamOf(userData);
    const CoapRpcCliAddr addr = PeerAddr(code);
    return COAP_RpcCliConReq(Ctx(), &key, &param, &addr);
  }
  uint32_t Observe(const CoapRpcUriKey &key, uint64_t userData = 1) {
    const CoapRpcCliReqParam param = ParamOf(userData);
    const CoapRpcCliAddr addr = PeerAddr();
    return COAP_RpcCliObserveReq(Ctx(), &key, &param, &addr);
  }
  uint32_t UnObserve(const CoapRpcUriKey &key, uint64_t userData = 1) {
    const CoapRpcCliReqParam param = ParamOf(userData);
    const CoapRpcCliAddr addr = PeerAddr();
    return COAP_RpcCliObserveUnReq(Ctx(), &key, &param, &addr);
  }

  CoapRpcCliReqData *ReqOf(const CoapRpcUriKey &key, uint64_t userData = 1) const {
    const CoapRpcCliReqKey reqKey = {key, ParamOf(userData)};
    return COAP_RpcCliFindReqData(Ctx()->cli, &reqKey);
  }
  CoapRpcCliSession *SessionOf(const CoapRpcCliAddr &addr) const {
    const CoapRpcCliSessionKey key = {addr.srcIp, addr.dstIp, addr.dstPort};
    return COAP_RpcCliFindSession(Ctx()->cli, &key);
  }
  uint64_t CheckCodeOf(const CoapRpcUriKey &key) const {
    return COAP_RpcCliFindUriVtbl(Ctx()->cli, &key)->checkCode;
  }

  void Tick() { host_.AdvanceMs(kTickMs); }
  void Ticks(uint32_t num) {
    for (uint32_t i = 0; i < num; ++i) Tick();
  }
  std::function<void()> Pump() {
    return [this] { Tick(); };
  }

  // Next returns the next message that arrives at a peer.
  CoapMessage Next(RawPeer &peer) {
    std::optional<CoapMessage> message = peer.ReceiveMessage(Pump());
    EXPECT_TRUE(message) << "nothing came; log:\n" << peer.LogText();
    return message ? *message : CoapMessage();
  }
  CoapMessage Next() { return Next(peer_); }

  bool IsSilent(RawPeer &peer) { return !peer.ReceiveMessage(Pump(), kNothingComes); }
  bool IsSilent() { return IsSilent(peer_); }

  // AnswerOf makes the piggybacked answer to a request, with the path that finds the table.
  static CoapMessage AnswerOf(const CoapMessage &request, uint8_t code = Code(2, 5)) {
    CoapMessage answer = Request(CoapType::kAck, code, request.messageId, request.token);
    answer.AddPath(request.Path());
    return answer;
  }

  // Separate makes a response that is not piggybacked.
  static CoapMessage Separate(CoapType type, uint16_t mid, Bytes token, std::string_view path,
                              uint8_t code = Code(2, 5)) {
    CoapMessage answer = Request(type, code, mid, std::move(token));
    answer.AddPath(path);
    return answer;
  }

  TestHost host_;
  RawPeer peer_{UdpAddress{"127.0.0.2", 0}};
  std::unique_ptr<TestInstance> instance_;
};

}  // namespace coap_rpc_test

#endif /* WIRE_CLIENT_H */
