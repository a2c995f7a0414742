// An application that returns every value: its callbacks take their results, the lengths and bytes
// that they write, and what they do to the instance meanwhile, from the input, while requests of a
// peer and of the instance itself go through.  An input is the length of the script (two bytes),
// the steps, and the script that the callbacks read.
#include <jansson.h>

#include <climits>
#include <cstring>
#include <deque>

#include "coap_svc/rpc/coap_rpc_ext.h"
#include "coap_svc/rpc/coap_rpc_stats.h"
#include "coap_svc/rpc/common/coap_rpc_ctx.h"
#include "fuzz_host.h"
#include "fuzz_json.h"
#include "fuzz_tables.h"
#include "fuzz_wire.h"
#include "test_process.h"

namespace fuzz {
namespace {

using coap_rpc_test::CoapType;
using coap_rpc_test::TestProcess;

constexpr int kMaxSteps = 48;
constexpr uint32_t kLibLogLevel = 6;  // above it libcoap prints every byte of a body, twice
constexpr uint8_t kServer = 1;
constexpr uint16_t kOtherPort = 5684;  // where the server may be attached as well
constexpr uint8_t kCaller = 3;         // what calls to the own server name as their source
constexpr uint8_t kPeer = 11;
constexpr uint32_t kStepsMs[] = {100, 1001, 2500, 9000, 31000, 95000};
constexpr int32_t kLengths[] = {
    0,     -1,    -2,   INT32_MIN, INT32_MAX, 1,     COAP_RPC_MAX_PAYLOAD,
    65471, 65472, 1100, 5000,      40,        65469, 65466};

constexpr Entry kEntries[] = {
    {"sync", COAP_RPC_CON, 0, COAP_RPC_DEFAULT, 0, COAP_RPC_JSON},
    {"async", COAP_RPC_CON, 0, COAP_RPC_DEFAULT, 1, COAP_RPC_JSON},
    {"async", COAP_RPC_CON, 0, COAP_RPC_UNICAST, 1, COAP_RPC_JSON},
    {"post", COAP_RPC_NON, 0, COAP_RPC_UNICAST, 0, COAP_RPC_BYTE},
    {"json", COAP_RPC_CON, 1, COAP_RPC_DEFAULT, 3, COAP_RPC_JSON, kFieldLen},
    {"idl", COAP_RPC_CON, 1, COAP_RPC_DEFAULT, 0, COAP_RPC_BYTE, kFieldLen},
    {"flag", COAP_RPC_NON, 1, COAP_RPC_DEFAULT, 3, COAP_RPC_BYTE},
};

// Application is the instance, and all of its callbacks.
class Application {
 public:
  Application(Input steps, Input script)
      : steps_(steps),
        script_(script),
        param_(host_.Param()),
        ctx_(COAP_RpcInit(&param_)),
        peer_(kPeer, kCoapPort) {
    Check(ctx_ != nullptr, "no instance");
    COAP_RpcSetLibLogLevel(ctx_, kLibLogLevel);
    for (const Entry &entry : kEntries) Register(entry);
    peer_.SetRemote(kServer, kCoapPort);
  }

  ~Application() {
    Check(ctx_->ioDepth == 0, "the I/O is still running");
    Check(hasFailed_ || TestProcess::Get().Asserts().empty(), "an assertion was recorded");
    isStopping_ = true;
    COAP_RpcUninit(ctx_);
  }

  void Run() {
    for (int i = 0; i < kMaxSteps && !steps_.IsEmpty(); ++i) {
      Step();
      RunIo(ctx_);
      peer_.Receive();
    }
  }

 private:
  static Application &Of(uint64_t userData) { return *reinterpret_cast<Application *>(userData); }

  ServerApp ServerSide() {
    ServerApp app;
    app.userData = reinterpret_cast<uint64_t>(this);
    app.onRequest = OnRequest;
    app.onAsyncRequest = OnAsyncRequest;
    app.onObserverNum = OnObserverNum;
    app.buildJson = BuildJson;
    app.buildJsonDelete = BuildJsonDelete;
    app.buildIdl = BuildIdl;
    app.buildIdlDelete = BuildIdlDelete;
    app.getFirst = GetFirst;
    app.getNext = GetNext;
    return app;
  }

  ClientApp ClientSide() {
    ClientApp app;
    app.userData = reinterpret_cast<uint64_t>(this);
    app.buildReq = BuildReq;
    app.onResponse = OnResponse;
    app.onDisconnect = OnDisconnect;
    return app;
  }

  void Register(const Entry &entry) {
    RegisterServer(ctx_, entry, ServerSide());
    AttachAt(ctx_, entry, kServer, kCoapPort);
    RegisterClient(ctx_, entry, ClientSide());
  }

  // What the application may do, in a step or inside a callback.

  void Change(const Entry &entry, uint8_t value) {
    const CoapRpcUriKey key = KeyOf(entry);
    const uint8_t field[kFieldLen] = {static_cast<uint8_t>(value % 8)};
    if (value < 0xC0) {
      COAP_RpcSerObserveDataUpdate(ctx_, &key, field, field);
    } else {
      COAP_RpcSerObserveDataDel(ctx_, &key, field);
    }
  }

  void Call(const Entry &entry, uint8_t how) {
    uint8_t payload[] = {how};
    CoapRpcCliReqParam param = {};
    param.userData = how & 1;
    param.payload = (how & 2) != 0 ? payload : nullptr;
    param.payloadLen = (how & 2) != 0 ? sizeof(payload) : 0;
    const CoapRpcCliAddr addr =
        CallAddr(kCaller, (how & 4) != 0 ? kServer : kPeer, 1 + (how >> 3 & 1));
    const CoapRpcUriKey key = KeyOf(entry);
    kCalls[how / 16 % std::size(kCalls)](ctx_, &key, &param, &addr);
  }

  void EndRequest(uint8_t how) {
    if (pending_.empty()) return;
    void *async = pending_.front();
    if (how < 0xE0) pending_.pop_front();
    if (how % 4 == 0) {
      COAP_RpcSerAbortAsyncResponse(ctx_, async);
      return;
    }
    const size_t len = size_t{1} << (how / 4 % 16);
    const std::vector<uint8_t> data(len, 'r');
    COAP_RpcSerSendAsyncResponse(ctx_, async, data.data(), static_cast<uint32_t>(len));
  }

  void FailAllocation(uint8_t n) {
    hasFailed_ = true;
    host_.FailAllocation(n);
  }

  void Step() {
    const uint8_t kind = steps_.Byte() % 10;
    const uint8_t arg = steps_.Byte();
    const Entry &entry = kEntries[arg % std::size(kEntries)];
    switch (kind) {
      case 0:
        return peer_.SendAsAnswer(steps_.Framed(), arg);
      case 1:
        return Ask(entry, arg);
      case 2:
        return peer_.Send(arg < 0xC0 ? AckOf(peer_.Last()) : RstOf(peer_.Last()));
      case 3:
        return host_.AdvanceMs(kStepsMs[arg % std::size(kStepsMs)]);
      case 4:
        return Change(entry, steps_.Byte());
      case 5:
      case 6:
        return Call(entry, steps_.Byte());
      case 7:
        return Respond(arg);
      case 8:
        return FailAllocation(arg);
      default:
        return Act(arg, steps_.Byte());
    }
  }

  // Ask sends a request of the peer, with or without Observe.
  void Ask(const Entry &entry, uint8_t how) {
    const CoapType type = (how & 0x80) != 0 ? CoapType::kNon : CoapType::kCon;
    const uint8_t code = (how & 0x40) != 0 ? coap_rpc_test::kCodePost : coap_rpc_test::kCodeGet;
    CoapMessage request = Request(type, code, ++mid_, {how});
    request.AddPath(entry.uri).PayloadText("question");
    if (entry.observe != 0) request.AddUint(coap_rpc_test::kOptObserve, how >> 5 & 1);
    if ((how & 0x10) != 0) request.AddText(coap_rpc_test::kOptUriQuery, "_ual-checkcode=1");
    peer_.Send(request);
  }

  // Respond answers the last request to the peer.
  void Respond(uint8_t how) {
    const CoapMessage &request = peer_.Last();
    const uint8_t code = coap_rpc_test::Code(2, how % 8);
    CoapMessage answer = Request(CoapType::kAck, code, request.messageId, request.token);
    answer.AddPath(request.Path());
    if ((how & 0x40) != 0) answer.AddUint(coap_rpc_test::kOptObserve, how);
    if ((how & 0x80) != 0) answer.PayloadText("answer");
    peer_.Send(answer);
  }

  // Act does what a callback may do.
  void Act(uint8_t kind, uint8_t arg) {
    const Entry &entry = kEntries[arg % std::size(kEntries)];
    switch (kind % 12) {
      case 0:
        return Call(entry, arg);
      case 1:
        return Change(entry, arg);
      case 2:
        Detach(ctx_, entry);
        return;
      case 3:
        AttachAt(ctx_, entry, kServer, kCoapPort);
        return;
      case 4:
        return EndRequest(arg);
      case 5:
        return host_.AdvanceMs(kStepsMs[arg % std::size(kStepsMs)]);
      case 6:
        COAP_RpcLogRegUri(ctx_, entry.uri);
        return;
      case 7:
        RunIo(ctx_);
        return;
      case 8:
        ReopenAt(ctx_, kServer, arg % 2 == 0 ? kCoapPort : kOtherPort);
        return;
      case 9:
        AttachAt(ctx_, entry, kServer, kOtherPort);
        return;
      case 11:
        return ReadStats(arg);
      default:
        RegisterServer(ctx_, entry, ServerSide());
        RegisterClient(ctx_, entry, ClientSide());
        return;
    }
  }

  // ReadStats looks at all numbers, and acts while it is told of a URI.
  void ReadStats(uint8_t size) {
    CoapRpcStats stats;
    stats.size = size < 0x80 ? size : sizeof(stats);
    COAP_RpcGetStats(ctx_, &stats);
    COAP_RpcVisitUriStats(ctx_, nullptr, size % 8, OnUriStats, reinterpret_cast<uint64_t>(this),
                          nullptr);
  }
  static void OnUriStats(uint64_t self, const CoapRpcUriKey *, const CoapRpcUriStats *) {
    Of(self).Meanwhile();
  }

  // Meanwhile is what a callback does before it answers; nothing once the script is over, so that
  // callbacks that lead to each other come to an end.
  void Meanwhile() {
    Check(!isStopping_, "a callback while the instance stops");
    for (uint32_t left = script_.Byte() % 4; left != 0 && !script_.IsEmpty(); --left) {
      const uint8_t kind = script_.Byte();
      Act(kind, script_.Byte());
    }
  }

  int32_t Length() {
    const uint8_t which = script_.Byte();
    if (which < std::size(kLengths)) return kLengths[which];
    return which < 0xF0 ? which : static_cast<int32_t>(script_.Long());
  }

  // Fill writes as much of an answer as fits.
  int32_t Fill(uint8_t *out, uint32_t outSize) {
    const int32_t len = Length();
    const uint32_t numBytes = len < 0 ? outSize : std::min(static_cast<uint32_t>(len), outSize);
    memset(out, script_.Byte(), numBytes);
    return len;
  }

  static int32_t OnRequest(uint64_t userData, const CoapRpcSerReqInfo *, uint8_t *payload,
                           uint32_t len, uint8_t *out, uint32_t outSize) {
    CheckRequest(payload, len);
    memset(payload, 0xFF, len + 1);  // the copy is the callback's to spoil
    Application &self = Of(userData);
    self.Meanwhile();
    return self.Fill(out, outSize);
  }

  static uint32_t OnAsyncRequest(uint64_t userData, uint8_t *payload, uint32_t len, void *async) {
    CheckRequest(payload, len);
    Application &self = Of(userData);
    self.pending_.push_back(async);
    self.Meanwhile();
    return self.script_.Byte();
  }

  static int32_t BuildReq(uint64_t userData, const CoapRpcCliReqParam *, uint8_t *out,
                          uint32_t outSize) {
    Application &self = Of(userData);
    self.Meanwhile();
    return self.Fill(out, outSize);
  }

  static uint32_t OnResponse(uint64_t userData, uint64_t, uint8_t *payload, uint32_t len,
                             const CoapRpcCliRspInfo *) {
    CheckResponse(payload, len);
    Application &self = Of(userData);
    self.Meanwhile();
    return self.script_.Byte() % 4;
  }

  static void OnObserverNum(uint64_t userData, uint32_t) { Of(userData).Meanwhile(); }

  static void OnDisconnect(uint64_t userData, const CoapRpcIpAddr *) { Of(userData).Meanwhile(); }

  static uint32_t BuildJson(uint64_t userData, uint8_t *, uint8_t *, void *out) {
    Application &self = Of(userData);
    self.Meanwhile();
    json_object_set_new_nocheck(static_cast<json_t *>(out), "v", JsonValue(self.script_));
    return self.script_.Byte() % 4 == 3;
  }
  static uint32_t BuildJsonDelete(uint64_t userData, uint8_t *tuple, void *out) {
    return BuildJson(userData, tuple, nullptr, out);
  }

  static uint32_t BuildIdl(uint64_t userData, uint8_t *, uint8_t *val, void *out) {
    Application &self = Of(userData);
    self.Meanwhile();
    auto *msg = static_cast<CoapRpcSerIdlMsgBuf *>(out);
    msg->len = static_cast<uint32_t>(self.Fill(msg->buf, msg->size));
    if (val) memset(val, 0, kFieldLen);
    return self.script_.Byte() % 4 == 3;
  }
  static uint32_t BuildIdlDelete(uint64_t userData, uint8_t *tuple, void *out) {
    return BuildIdl(userData, tuple, nullptr, out);
  }

  static uint32_t GetFirst(uint64_t userData, void *cursor, void *key, void *val) {
    Application &self = Of(userData);
    self.Meanwhile();
    memset(cursor, 0xFF, COAP_RPC_APP_CURSOR_SIZE);
    memset(key, self.script_.Byte(), kFieldLen);
    if (val) memset(val, 1, kFieldLen);
    return self.script_.IsEmpty() ? 1 : self.script_.Byte() % 8 == 7;
  }
  static uint32_t GetNext(uint64_t userData, void *cursor, const void *, void *key, void *val) {
    return GetFirst(userData, cursor, key, val);
  }

  Input steps_;
  Input script_;
  Host host_;
  CoapRpcInitParam param_;
  CoapRpcCtx *ctx_;
  Peer peer_;
  std::deque<void *> pending_;
  uint16_t mid_ = 0x7000;
  bool hasFailed_ = false;
  bool isStopping_ = false;
};

}  // namespace
}  // namespace fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  fuzz::PrepareWire();
  if (size < 2) return 0;
  const size_t scriptLen = std::min<size_t>(fuzz::Input(data, size).Word(), size - 2);
  const size_t stepsLen = size - 2 - scriptLen;
  fuzz::Application({data + 2, stepsLen}, {data + 2 + stepsLen, scriptLen}).Run();
  return 0;
}
