// Command lines into the display commands of an instance whose tables are filled, through the line
// parser of the reference host.  An input is a sequence of commands: a byte that says after how
// many pages the operator stops and what happens between two pages, and a line.
#include <cstring>

#include "coap_svc/rpc/coap_rpc_call.h"
#include "coap_svc/rpc/coap_rpc_cli.h"
#include "coap_svc/rpc/coap_rpc_ext.h"
#include "coap_svc/rpc/coap_rpc_ser.h"
#include "coap_svc/rpc/coap_rpc_stats.h"
#include "fuzz_host.h"
#include "fuzz_wire.h"

namespace fuzz {
namespace {

constexpr uint16_t kFieldLen = 4;
constexpr uint8_t kOwn = 1;
constexpr uint8_t kPeer = 11;
constexpr uint8_t kNumTuples = 3;
constexpr int kMaxLines = 16;
constexpr uint8_t kMaxGrowing = 8;

int32_t FieldCmp(const void *a, const void *b) { return memcmp(a, b, kFieldLen); }

// WholeBuffer is a renderer that leaves no room for a terminator.
const char *WholeBuffer(const void *, char *buf, uint32_t size) {
  memset(buf, 'k', size);
  return buf;
}
const char *NoText(const void *, char *, uint32_t) { return nullptr; }

uint32_t Build(uint64_t, uint8_t *, uint8_t *, void *) { return 0; }
uint32_t BuildDelete(uint64_t, uint8_t *, void *) { return 0; }

// Shown is what has arrived at the operator.
struct Shown {
  uint32_t numLeft;  // texts until the operator has seen enough

  static uint32_t Take(void *self, uint32_t, const char *text, size_t len) {
    auto *shown = static_cast<Shown *>(self);
    Check(memchr(text, 0, len) == nullptr, "a text holds a terminator");
    if (shown->numLeft == 0) return 1;
    --shown->numLeft;
    return 0;
  }
};

class Instance {
 public:
  Instance() : param_(host_.Param()), ctx_(COAP_RpcInit(&param_)), peer_(kPeer, kCoapPort) {
    Check(ctx_ != nullptr, "no instance");
    Check(COAP_RpcShowStats(ctx_) == 0, "no commands for numbers");
    for (const uint32_t pktType : {0u, 1u, 2u, 7u}) Register("plain", COAP_RPC_NON, 0, pktType);
    Register("observed", COAP_RPC_CON, 1, 0);
    Register("rendered", COAP_RPC_CON, 1, 0, WholeBuffer, NoText);
    Register(std::string(COAP_RPC_URI_SIZE, 'u').c_str(), COAP_RPC_CON, 1, 0);
    Observe("observed");
    Observe("rendered");
    for (uint8_t i = 0; i < kNumTuples; ++i) Change("observed", i);
    for (uint8_t i = 0; i < kNumTuples; ++i) Change("rendered", i);
    for (uint32_t i = 0; i < 3; ++i) Call("plain", COAP_RPC_NON, i);
    Call("observed", COAP_RPC_CON, 0);
    for (uint8_t i = 0; i < 3; ++i) Ask("plain", i);
    for (uint32_t i = 0; i < 3; ++i) CallPeer(i);
  }
  ~Instance() { COAP_RpcUninit(ctx_); }

  void Run(Input &input) {
    for (int i = 0; i < kMaxLines && !input.IsEmpty(); ++i) {
      const uint8_t how = input.Byte();
      RunLine(how, input.Line());
    }
  }

 private:
  void Register(const char *uri, uint32_t msgType, uint32_t observe, uint32_t pktType,
                CoapRpcTupleToStr keyToStr = nullptr, CoapRpcTupleToStr valToStr = nullptr) {
    const CoapRpcUriKey key = KeyOf(uri, msgType, observe, pktType);
    CoapRpcSerVtblReg reg = {};
    reg.payloadFormat = static_cast<uint8_t>(pktType);
    reg.mode = 1;
    reg.onAsyncRequest = OnAsyncRequest;
    CoapRpcSerObVtblReg ob = {};
    ob.keyLen = ob.valLen = kFieldLen;
    ob.tupleKeyCmp = FieldCmp;
    ob.keyToStr = keyToStr;
    ob.valToStr = valToStr;
    ob.buildUpdate = Build;
    ob.buildDelete = BuildDelete;
    COAP_RpcSerRegVtbl(ctx_, &key, &reg, &ob);
    CoapRpcCliVtblReg cli = {};
    cli.payloadFormat = pktType;
    COAP_RpcCliRegVtbl(ctx_, &key, &cli);
    CoapRpcSerListenAddr addr = {};
    addr.listenAddr = IpAddr(kOwn);
    addr.port = static_cast<uint16_t>(kCoapPort + pktType);
    COAP_RpcSerSetUri(ctx_, &key, &addr);
  }

  // Observe makes changes wait for their notification.
  void Observe(const char *uri) {
    peer_.SetRemote(kOwn, kCoapPort);
    CoapMessage get =
        Request(coap_rpc_test::CoapType::kCon, coap_rpc_test::kCodeGet, ++mid_, {1, 2});
    peer_.Send(get.AddPath(uri).AddUint(coap_rpc_test::kOptObserve, 0));
    COAP_RpcProcIo(ctx_);
  }

  void Change(const char *uri, uint8_t value) {
    const CoapRpcUriKey key = KeyOf(uri, COAP_RPC_CON, 1);
    const uint8_t field[kFieldLen] = {value, 0xFF, '%', 'n'};
    COAP_RpcSerObserveDataUpdate(ctx_, &key, field, field);
  }

  void Call(const char *uri, uint32_t msgType, uint64_t userData) {
    const CoapRpcUriKey key = KeyOf(uri, msgType, msgType == COAP_RPC_CON);
    CoapRpcCliReqParam param = {};
    param.userData = userData;
    CoapRpcCliAddr addr = {};
    addr.srcIp = IpAddr(kOwn);
    addr.dstIp = IpAddr(kPeer);
    addr.dstPort = kCoapPort + static_cast<uint32_t>(userData);
    addr.codeType = static_cast<uint32_t>(userData);
    if (msgType == COAP_RPC_CON) {
      COAP_RpcCliObserveReq(ctx_, &key, &param, &addr);
    } else {
      COAP_RpcCliNonReq(ctx_, &key, &param, &addr);
    }
  }

  // CallPeer makes a call that nobody answers.
  void CallPeer(uint32_t port) {
    CoapRpcCallAddr addr = {};
    addr.dstIp = IpAddr(kPeer);
    addr.dstPort = kCoapPort + port;
    CoapRpcCall call = {};
    call.method = COAP_RPC_GET;
    call.path = "call";
    call.onRsp = OnRsp;
    uint64_t id = 0;
    COAP_RpcCall(ctx_, &addr, &call, &id);
  }
  static void OnRsp(uint64_t, const CoapRpcCallRsp *) {}

  // Ask leaves a request with the application, which keeps it.
  void Ask(const char *uri, uint8_t token) {
    peer_.SetRemote(kOwn, kCoapPort);
    peer_.Send(Request(coap_rpc_test::CoapType::kCon, coap_rpc_test::kCodeGet, ++mid_, {token})
                   .AddPath(uri)
                   .PayloadText("q"));
    COAP_RpcProcIo(ctx_);
  }
  static uint32_t OnAsyncRequest(uint64_t, uint8_t *, uint32_t, void *) { return 0; }

  void RunLine(uint8_t how, const std::string &line) {
    constexpr int kMaxPages = 400;  // more than any table here has rows
    Shown shown{how % 8 == 7 ? how / 8u : 1000};
    kestrel::DispRun run(Shown::Take, &shown);
    const char *object = (how & 0x40) != 0 ? kInstanceName : nullptr;
    uint32_t ret = host_.Display().Start(run, line.c_str(), object);
    if (ret != KESTREL_OK) return;
    for (int page = 0; page < kMaxPages; ++page) {
      ret = host_.Display().Step(run);
      if (ret != kestrel::DispService::kMorePages) return;
      Disturb(how % 8, static_cast<uint8_t>(page));
    }
    Check(false, "a command has no end");
  }

  // Disturb changes the tables after the page that was printed.
  void Disturb(uint8_t how, uint8_t page) {
    const CoapRpcUriKey key = KeyOf("plain", COAP_RPC_NON, 0, page % 3);
    const uint8_t field[kFieldLen] = {page, 0xFF, '%', 'n'};
    const CoapRpcUriKey observed = KeyOf("observed", COAP_RPC_CON, 1);
    switch (how) {
      case 1:
        COAP_RpcSerUnsetUri(ctx_, &key);
        return;
      case 2:
        return Register("plain", COAP_RPC_NON, 0, page % 3);
      case 3:
        return COAP_RpcSerObserveDataDel(ctx_, &observed, field);
      case 4:
        return Call("plain", COAP_RPC_NON, page);
      case 5:
        return host_.AdvanceMs(95'000);
      case 6:
        if (page >= kMaxGrowing) return;  // a table that grows with each page has no end
        CallPeer(page);
        return Ask("plain", page);
      default:
        return;
    }
  }

  Host host_;
  CoapRpcInitParam param_;
  CoapRpcCtx *ctx_;
  Peer peer_;
  uint16_t mid_ = 0x7000;
};

}  // namespace
}  // namespace fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  fuzz::PrepareWire();
  fuzz::Input input(data, size);
  fuzz::Instance().Run(input);
  return 0;
}
