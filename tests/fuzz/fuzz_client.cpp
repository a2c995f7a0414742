// Datagrams from peers into a client with open requests and observe relations, through the real
// receive path.  One input is a sequence of steps: calls, answers as they are, with the ids of the
// request, or properly made from it, acknowledgements, blocks, time, and peers that come and go.
// The instance also serves the path to which a server sends asynchronous answers.
#include <cstring>

#include "coap_svc/rpc/client/coap_rpc_cli_data.h"
#include "coap_svc/rpc/coap_rpc_ext.h"
#include "fuzz_host.h"
#include "fuzz_tables.h"
#include "fuzz_wire.h"
#include "test_process.h"

namespace fuzz {
namespace {

using coap_rpc_test::CoapBlock;
using coap_rpc_test::CoapType;
using coap_rpc_test::TestProcess;

constexpr int kMaxSteps = 64;
constexpr uint8_t kClient = 1;
constexpr uint8_t kFirstPeer = 11;
constexpr uint32_t kStepsMs[] = {100, 1001, 2500, 5000, 9000, 31000, 95000, 260000};

constexpr Entry kCalled[] = {
    {"a", COAP_RPC_CON, 0, COAP_RPC_DEFAULT},
    {"a", COAP_RPC_NON, 0, COAP_RPC_DEFAULT},
    {"a/b", COAP_RPC_CON, 0, COAP_RPC_UNICAST},
    {"answer", COAP_RPC_CON, 0, COAP_RPC_BROADCAST},
    {"answer", COAP_RPC_CON, 0, COAP_RPC_DEFAULT},
    {"terminals/dynamic-mac", COAP_RPC_CON, 0, COAP_RPC_BROADCAST},
    {"o", COAP_RPC_CON, 1, COAP_RPC_DEFAULT},
    {"p", COAP_RPC_NON, 1, COAP_RPC_DEFAULT},
};

constexpr Entry kAnswers = {"answer", COAP_RPC_CON, 0, COAP_RPC_UNICAST, 1};

int32_t BuildReq(uint64_t, const CoapRpcCliReqParam *req, uint8_t *out, uint32_t outSize) {
  Check(out[0] == 0, "the first byte is not zero");
  if (req->payloadLen == 0) return 0;
  if (req->payload[0] == 'f') return -1;
  // Long requests travel in blocks.
  const uint32_t len = std::min(req->payloadLen * 400, outSize - 1);
  memset(out, req->payload[0], len);
  return static_cast<int32_t>(len);
}

uint32_t OnResponse(uint64_t, uint64_t, uint8_t *payload, uint32_t len, const CoapRpcCliRspInfo *) {
  CheckResponse(payload, len);
  return payload && payload[0] == 'r';
}

void OnDisconnect(uint64_t, const CoapRpcIpAddr *) {}

class Client {
 public:
  Client() : param_(host_.Param()), ctx_(COAP_RpcInit(&param_)) {
    Check(ctx_ != nullptr, "no instance");
    for (const Entry &called : kCalled) Register(called);
    ServeAnswers();
    COAP_RpcLogRegUri(ctx_, "a");
    for (Peer &peer : peers_) peer.SetRemote(kClient, kCoapPort);
  }

  ~Client() {
    Check(ctx_->ioDepth == 0, "the I/O is still running");
    Check(TestProcess::Get().Asserts().empty(), "an assertion was recorded");
    COAP_RpcUninit(ctx_);
  }

  void Run(Input &input) {
    for (int i = 0; i < kMaxSteps && !input.IsEmpty(); ++i) {
      Step(input);
      RunIo(ctx_);
      for (Peer &peer : peers_) peer.Receive();
    }
  }

 private:
  void Register(const Entry &called) {
    ClientApp app;
    app.buildReq = BuildReq;
    app.onResponse = OnResponse;
    app.onDisconnect = OnDisconnect;
    Check(RegisterClient(ctx_, called, app) == 0, "no registration");
  }

  void ServeAnswers() {
    Check(RegisterServer(ctx_, kAnswers, {}) == 0, "no registration");
    Check(AttachAt(ctx_, kAnswers, kClient, kCoapPort) == 0, "not attached");
  }

  void Step(Input &input) {
    const uint8_t kind = input.Byte() % 12;
    const uint8_t arg = input.Byte();
    Peer &peer = peers_[arg % std::size(peers_)];
    switch (kind) {
      case 0:
        return peer.Send(input.Framed());
      case 1:
      case 2:
        return peer.SendAsAnswer(input.Framed(), arg >> 4);
      case 3:
        return peer.Send(arg < 0xC0 ? AckOf(peer.Last()) : RstOf(peer.Last()));
      case 4:
        return Answer(peer, arg, input);
      case 5:
        return host_.AdvanceMs(kStepsMs[arg % std::size(kStepsMs)]);
      case 6:
      case 7:
        return Call(input.Byte(), arg, input);
      case 8:
        return GiveBlock(peer, arg);
      case 9:
        return TakeBlock(peer, arg);
      case 10:
        return (arg & 0x80) != 0 ? peer.Open() : peer.Close();
      default:
        return Configure(arg);
    }
  }

  // Answer makes a proper answer to the last request, with a code and a payload of the input.
  void Answer(Peer &peer, uint8_t arg, Input &input) {
    const CoapMessage &request = peer.Last();
    const uint8_t code = input.Byte();
    CoapMessage answer = (arg & 0x10) != 0 ? Request(CoapType::kAck, code, request.messageId)
                                           : Request(CoapType::kCon, code, ++mid_);
    if ((arg & 0x20) != 0) answer.type = CoapType::kNon;
    answer.Token(request.token).AddPath(request.Path());
    if ((arg & 0x40) != 0) answer.AddUint(coap_rpc_test::kOptObserve, ++numNotified_);
    if ((arg & 0x80) != 0) answer.AddUint(coap_rpc_test::kOptEtag, 0x1234 + arg);
    if ((arg & 0x08) != 0) answer.AddText(coap_rpc_test::kOptUriQuery, "_ual-checkcode=1");
    answer.payload = input.Bytes(input.Byte() % 32);
    peer.Send(answer);
  }

  // GiveBlock gives the block of a response that was asked for, the first one unless one was.
  void GiveBlock(Peer &peer, uint8_t arg) {
    const CoapMessage &request = peer.Last();
    const CoapBlock asked =
        request.Block(coap_rpc_test::kOptBlock2).value_or(CoapBlock{0, false, 2});
    CoapMessage answer =
        Request(CoapType::kAck, coap_rpc_test::Code(2, 5), request.messageId, request.token);
    answer.AddPath(request.Path());
    if (asked.num == 0) answer.AddUint(coap_rpc_test::kOptObserve, ++numNotified_);
    const bool isMore = asked.num < arg / 64u;
    answer.AddBlock(coap_rpc_test::kOptBlock2, {asked.num, isMore, asked.szx});
    answer.AddUint(coap_rpc_test::kOptEtag, 1);
    answer.payload.assign(isMore ? size_t{16} << asked.szx : 5, 'b');
    peer.Send(answer);
  }

  // TakeBlock asks for the next block of a request.
  void TakeBlock(Peer &peer, uint8_t arg) {
    const CoapMessage &request = peer.Last();
    CoapBlock block = request.Block(coap_rpc_test::kOptBlock1).value_or(CoapBlock{});
    if (arg >= 0xF0) block.szx = arg & 7;
    const uint8_t code = block.more ? coap_rpc_test::Code(2, 31) : coap_rpc_test::Code(2, 4);
    CoapMessage answer = Request(CoapType::kAck, code, request.messageId, request.token);
    peer.Send(answer.AddBlock(coap_rpc_test::kOptBlock1, block));
  }

  void Call(uint8_t which, uint8_t arg, Input &input) {
    const CoapRpcUriKey key = KeyOf(kCalled[which % std::size(kCalled)]);
    std::vector<uint8_t> payload = input.Bytes(arg >> 5);
    CoapRpcCliReqParam param = {};
    param.userData = arg / 4 % 2;
    param.payload = payload.empty() ? nullptr : payload.data();
    param.payloadLen = static_cast<uint32_t>(payload.size());
    const auto peer = static_cast<uint8_t>(kFirstPeer + arg % std::size(peers_));
    const CoapRpcCliAddr addr = CallAddr(kClient, peer, 1 + arg / 8 % 4);
    kCalls[which / std::size(kCalled) % std::size(kCalls)](ctx_, &key, &param, &addr);
  }

  void Configure(uint8_t arg) {
    if (arg % 2 == 0) {
      COAP_RpcSetKeepAlive(ctx_, arg / 2);
    } else {
      COAP_RpcSetNstart(ctx_, arg / 2);
    }
  }

  Host host_;
  CoapRpcInitParam param_;
  CoapRpcCtx *ctx_;
  Peer peers_[2] = {{kFirstPeer, kCoapPort}, {kFirstPeer + 1, kCoapPort}};
  uint16_t mid_ = 0x7000;
  uint32_t numNotified_ = 1;
};

}  // namespace
}  // namespace fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  fuzz::PrepareWire();
  fuzz::Input input(data, size);
  fuzz::Client().Run(input);
  return 0;
}
