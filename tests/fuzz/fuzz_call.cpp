// Calls and observations: whatever an application asks for, and whatever peers answer.  Each that
// was accepted is told of once, and nothing is told of any other.
#include <cstring>
#include <map>

#include "coap_svc/rpc/client/coap_rpc_cli_data.h"
#include "coap_svc/rpc/coap_rpc_call.h"
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
constexpr uint32_t kStepsMs[] = {100, 1001, 2500, 9000, 31000, 70000, 95000, 260000};
constexpr Entry kBase = {"a", COAP_RPC_CON, 0, COAP_RPC_DEFAULT};

class Caller {
 public:
  Caller() : param_(host_.Param()), ctx_(COAP_RpcInit(&param_)) {
    Check(ctx_ != nullptr, "no instance");
    Check(RegisterClient(ctx_, kBase, {}) == 0, "no registration");
    for (Peer &peer : peers_) peer.SetRemote(kClient, kCoapPort);
  }

  ~Caller() {
    isStopping_ = true;
    Check(ctx_->ioDepth == 0, "the I/O is still running");
    Check(TestProcess::Get().Asserts().empty(), "an assertion was recorded");
    COAP_RpcUninit(ctx_);
    Check(open_.empty(), "a call was not told of");
  }

  void Run(Input &input) {
    for (int i = 0; i < kMaxSteps && !input.IsEmpty(); ++i) {
      Step(input);
      RunIo(ctx_);
      for (Peer &peer : peers_) peer.Receive();
    }
  }

 private:
  // Open is a call that was accepted; `then` is what its callback does.
  struct Open {
    bool isObserve;
    uint8_t then;
  };

  static void OnRsp(uint64_t userData, const CoapRpcCallRsp *rsp) {
    reinterpret_cast<Caller *>(userData)->Told(*rsp);
  }

  void Told(const CoapRpcCallRsp &rsp) {
    Check(!isCalling_, "told inside the call");
    const auto call = open_.find(rsp.id);
    Check(call != open_.end(), "told of no call that is open");
    Check(rsp.isLast != 0 || call->second.isObserve, "a call goes on");
    Check(rsp.isLast != 0 || rsp.status == COAP_RPC_CALL_ANSWERED, "goes on without an answer");
    Check(!isStopping_ || rsp.status == COAP_RPC_CALL_STOPPED, "stopped in another way");
    Check((rsp.payload == nullptr) == (rsp.payloadLen == 0), "payload and length differ");
    if (rsp.locationPath) sum_ += strlen(rsp.locationPath);
    for (uint32_t i = 0; i < rsp.payloadLen; ++i) sum_ += rsp.payload[i];
    const uint8_t then = call->second.then;
    if (rsp.isLast != 0) open_.erase(call);
    if (!isStopping_) Then(then);
  }

  void Then(uint8_t what) {
    if ((what & 1) != 0) Cancel(what);
    if ((what & 2) != 0 && numNested_++ < 8) Make(what, false, 0, "nested", "", "");
    if ((what & 4) != 0) COAP_RpcProcIo(ctx_);
  }

  void Step(Input &input) {
    const uint8_t kind = input.Byte() % 11;
    const uint8_t arg = input.Byte();
    Peer &peer = peers_[arg % std::size(peers_)];
    switch (kind) {
      case 0:
        return peer.Send(input.Framed());
      case 1:
        return peer.SendAsAnswer(input.Framed(), arg >> 4);
      case 2:
        return peer.Send(arg < 0xC0 ? AckOf(peer.Last()) : RstOf(peer.Last()));
      case 3:
      case 4:
        return Answer(peer, arg, input);
      case 5:
        return host_.AdvanceMs(kStepsMs[arg % std::size(kStepsMs)]);
      case 6:
      case 7:
        return Call(arg, input);
      case 8:
        return GiveBlock(peer, arg);
      case 9:
        return (arg & 0x80) != 0 ? peer.Open() : peer.Close();
      default:
        return Configure(arg);
    }
  }

  void Answer(Peer &peer, uint8_t arg, Input &input) {
    const CoapMessage &request = peer.Last();
    const uint8_t code = input.Byte();
    CoapMessage answer = (arg & 0x10) != 0 ? Request(CoapType::kAck, code, request.messageId)
                                           : Request(CoapType::kCon, code, ++mid_);
    if ((arg & 0x20) != 0) answer.type = CoapType::kNon;
    answer.Token(request.token);
    if ((arg & 0x40) != 0) answer.AddUint(coap_rpc_test::kOptObserve, input.Byte());
    if ((arg & 0x80) != 0) answer.AddUint(coap_rpc_test::kOptMaxAge, input.Long());
    if ((arg & 0x08) != 0) answer.AddText(coap_rpc_test::kOptLocationPath, input.Line());
    if (const auto block = request.Block(coap_rpc_test::kOptBlock1)) {
      answer.AddBlock(coap_rpc_test::kOptBlock1, *block);
    }
    answer.payload = input.Bytes(input.Byte() % 32);
    peer.Send(answer);
  }

  // GiveBlock gives the block of an answer that was asked for, the first one unless one was.
  void GiveBlock(Peer &peer, uint8_t arg) {
    const CoapMessage &request = peer.Last();
    const CoapBlock asked =
        request.Block(coap_rpc_test::kOptBlock2).value_or(CoapBlock{0, false, 2});
    CoapMessage answer =
        Request(CoapType::kAck, coap_rpc_test::Code(2, 5), request.messageId, request.token);
    if (asked.num == 0 && (arg & 1) != 0) answer.AddUint(coap_rpc_test::kOptObserve, ++number_);
    const bool isMore = asked.num < arg / 64u;
    const uint32_t num = arg == 0xFF ? 0xFFFFF : asked.num;
    answer.AddBlock(coap_rpc_test::kOptBlock2, {num, isMore, asked.szx});
    answer.payload.assign(isMore ? size_t{16} << asked.szx : 5, 'b');
    peer.Send(answer);
  }

  void Call(uint8_t arg, Input &input) {
    const uint8_t how = input.Byte();
    if (how >= 0xF0) return Cancel(arg);
    if (how >= 0xE0) return CallBase(arg);
    const uint8_t then = input.Byte();
    const std::string path = input.Line();
    const std::string query = input.Line();
    const std::string payload(how % 4 == 3 ? 300u * (then % 16u) : how % 4u, 'p');
    Make(arg, how % 8 == 4, then, path.c_str(), query.c_str(), payload);
  }

  void Make(uint8_t arg, bool isObserve, uint8_t then, const char *path, const char *query,
            const std::string &payload) {
    CoapRpcCallEtag tag = {arg % 10u, {1, 2, 3}};
    CoapRpcCall call = {};
    call.method = isObserve ? COAP_RPC_GET : arg / 8 % 9;
    call.isNon = arg & 1;
    call.path = path;
    call.query = query;
    call.payload = isObserve ? nullptr : reinterpret_cast<const uint8_t *>(payload.data());
    call.payloadLen = isObserve ? 0 : static_cast<uint32_t>(payload.size());
    call.has = then % 8;
    call.contentFormat = then;
    call.accept = then * 300u;
    call.numEtags = arg / 64;
    call.etags = call.numEtags == 1 ? &tag : nullptr;
    call.numIfMatch = call.numEtags == 3;
    call.ifMatch = &tag;
    call.deadlineMs = then % 4 == 0 ? 1 : then * 1000u;
    call.userData = reinterpret_cast<uint64_t>(this);
    call.onRsp = OnRsp;
    Submit(arg, isObserve, then, call);
  }

  void Submit(uint8_t arg, bool isObserve, uint8_t then, const CoapRpcCall &call) {
    CoapRpcCallAddr addr = {};
    if ((arg & 4) != 0) addr.srcIp = IpAddr(kClient);
    addr.dstIp = IpAddr(static_cast<uint8_t>(kFirstPeer + arg % std::size(peers_)));
    addr.dstPort = kCoapPort;
    uint64_t id = 0;
    isCalling_ = true;
    const uint32_t ret = (isObserve ? COAP_RpcCallObserve : COAP_RpcCall)(ctx_, &addr, &call, &id);
    isCalling_ = false;
    if (ret != 0) return;
    Check(id != 0 && open_.count(id) == 0, "an id was used twice");
    open_[id] = {isObserve, then};
    last_ = id;
  }

  void Cancel(uint8_t arg) {
    const bool isOpen = open_.count(last_) != 0;
    const uint32_t ret = COAP_RpcCallCancel(ctx_, (arg & 0x40) != 0 ? arg : last_);
    if ((arg & 0x40) == 0) Check((ret == 0) == isOpen, "cancelled what was not open");
  }

  void CallBase(uint8_t arg) {
    const CoapRpcUriKey key = KeyOf(kBase);
    CoapRpcCliReqParam param = {};
    const auto peer = static_cast<uint8_t>(kFirstPeer + arg % std::size(peers_));
    const CoapRpcCliAddr addr = CallAddr(kClient, peer, COAP_RPC_GET);
    COAP_RpcCliConReq(ctx_, &key, &param, &addr);
  }

  void Configure(uint8_t arg) {
    if (arg % 4 == 0) {
      COAP_RpcSetKeepAlive(ctx_, arg / 2);
    } else {
      COAP_RpcSetNstart(ctx_, arg / 4);
    }
  }

  Host host_;
  CoapRpcInitParam param_;
  CoapRpcCtx *ctx_;
  Peer peers_[2] = {{kFirstPeer, kCoapPort}, {kFirstPeer + 1, kCoapPort}};
  std::map<uint64_t, Open> open_;
  uint64_t last_ = 1;
  uint64_t sum_ = 0;
  uint16_t mid_ = 0x7000;
  uint32_t number_ = 1;
  uint32_t numNested_ = 0;
  bool isCalling_ = false;
  bool isStopping_ = false;
};

}  // namespace
}  // namespace fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  fuzz::PrepareWire();
  fuzz::Input input(data, size);
  fuzz::Caller().Run(input);
  return 0;
}
