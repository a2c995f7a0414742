// Datagrams from several peers into a server with direct entries, through the real receive path.
// One input is a sequence of steps: datagrams as they are or with the ids of what was received,
// requests that are well-formed, repetitions, block requests, acknowledgements, time, and what the
// application does meanwhile.  Whatever comes, no request is executed twice and no handle ends
// twice.
#include <cstring>
#include <deque>
#include <set>

#include "coap_svc/rpc/coap_rpc_direct.h"
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
constexpr uint8_t kServer = 1;
constexpr uint32_t kNoSuchOption = 1900001505;
constexpr uint32_t kStepsMs[] = {100, 1000, 2500, 8000, 30000, 61000, 150000, 250000};

constexpr Entry kEntries[] = {
    {"sync", COAP_RPC_CON, 0, COAP_RPC_DEFAULT, 0, 0},
    {"async", COAP_RPC_NON, 0, COAP_RPC_UNICAST, 1, 0},
    {"none", COAP_RPC_CON, 0, COAP_RPC_DEFAULT, 2, 0},
    {"o", COAP_RPC_CON, 1, COAP_RPC_DEFAULT, 0, COAP_RPC_JSON, kFieldLen},
    {"p", COAP_RPC_NON, 1, COAP_RPC_DEFAULT, 1, 0},
    {"base", COAP_RPC_CON, 0, COAP_RPC_DEFAULT, 1, 0},
};
constexpr size_t kNumDirect = std::size(kEntries) - 1;

class Server {
 public:
  Server() : param_(host_.Param()), ctx_(COAP_RpcInit(&param_)) {
    Check(ctx_ != nullptr, "no instance");
    for (const Entry &entry : kEntries) Serve(entry);
    for (size_t i = 0; i < kNumDirect; ++i) MakeDirect(kEntries[i], 0xFE, 0);
    for (Peer &peer : peers_) peer.SetRemote(kServer, kCoapPort);
  }

  ~Server() {
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
  static Server &Of(uint64_t userData) { return *reinterpret_cast<Server *>(userData); }

  void Serve(const Entry &entry) {
    ServerApp app;
    app.userData = reinterpret_cast<uint64_t>(this);
    app.onRequest = OnRequest;
    app.onAsyncRequest = OnAsyncRequest;
    Check(RegisterServer(ctx_, entry, app) == 0, "no registration");
    Check(AttachAt(ctx_, entry, kServer, kCoapPort) == 0, "not attached");
  }

  void MakeDirect(const Entry &entry, uint8_t methods, uint32_t timeoutMs) {
    const CoapRpcUriKey key = KeyOf(entry);
    const CoapRpcSerDirectParam param = {methods & 0xFEu, timeoutMs, OnAsyncEnd};
    Check(COAP_RpcSerSetDirect(ctx_, &key, &param) == 0, "not direct");
  }

  // Ask asks what an application may ask, and says what it may say.
  void Ask(uint8_t byte) {
    CoapRpcSerRequest request;
    char value[8];
    const uint32_t ret = COAP_RpcSerGetRequest(ctx_, &request);
    if (ret != 0) return;  // a base entry's
    Check(request.method >= 1 && request.method <= 7, "no such method");
    Check(request.etagLen <= sizeof(request.etag), "too long an ETag");
    COAP_RpcSerGetQuery(ctx_, "a", value, sizeof(value));
    COAP_RpcSerSetAnswer(ctx_, 200u + byte, byte % 3 == 0 ? COAP_RPC_DIRECT_NO_FORMAT : byte);
    AskOptions();
    for (uint8_t i = 0; i < byte % 11; ++i) AddOption(nullptr, static_cast<uint8_t>(byte + i));
  }

  // AskOptions reads all options of the request, into too little room as well.
  void AskOptions() {
    for (uint32_t number = 0; number < 300; ++number) {
      uint32_t len = 0;
      uint32_t index = 0;
      char value[16];
      while (COAP_RpcSerGetOption(ctx_, number, index, value, sizeof(value), &len) !=
             kNoSuchOption) {
        std::string whole(len, '\0');
        Check(COAP_RpcSerGetOption(ctx_, number, index++, whole.data(), len, &len) == 0, "changed");
      }
    }
  }

  // AddOption adds an option of some number and length to the answer of a handle, or for null to
  // that of the current call.
  void AddOption(void *async, uint8_t byte) {
    constexpr uint32_t kNumbers[] = {COAP_RPC_OPTION_ETAG,           COAP_RPC_OPTION_MAX_AGE,
                                     COAP_RPC_OPTION_LOCATION_PATH,  12,
                                     COAP_RPC_OPTION_LOCATION_QUERY, 8};
    const uint32_t number = kNumbers[byte % std::size(kNumbers)];
    const std::string value(byte < 0xE0 ? byte % 10 : byte + 30u, static_cast<char>(byte));
    const auto len = static_cast<uint32_t>(value.size());
    const uint32_t ret =
        async ? COAP_RpcSerAddAsyncAnswerOption(ctx_, async, number, value.data(), len)
              : COAP_RpcSerAddAnswerOption(ctx_, number, value.data(), len);
    Check(ret != 0 || len <= 255, "too long an option");
  }

  // SetLink gives an entry an attribute of words, or takes one away.
  void SetLink(const Entry &entry, uint8_t byte) {
    constexpr const char *kNames[] = {"rt", "if", "ct", "title"};
    constexpr const char *kValues[] = {"1", "1 22", "a bb ccc", "\"", nullptr, "ab"};
    const CoapRpcUriKey key = KeyOf(entry);
    COAP_RpcSerSetLinkAttribute(ctx_, &key, kNames[byte % 4], kValues[byte / 4 % 6]);
  }

  // AskLinks asks for the links, by a filter too.
  void AskLinks(Peer &peer, Input &input) {
    last_ = coap_rpc_test::Request(CoapType::kCon, 1, ++mid_, {1}).AddPath(".well-known/core");
    const std::vector<uint8_t> filter = input.Framed();
    if (!filter.empty() && filter.size() < 256) last_.Add(coap_rpc_test::kOptUriQuery, filter);
    peer.Send(last_);
  }

  static int32_t OnRequest(uint64_t userData, const CoapRpcSerReqInfo *, uint8_t *payload,
                           uint32_t len, uint8_t *out, uint32_t outSize) {
    Check(payload[len] == 0, "no terminator");
    Of(userData).Ask(payload[0]);
    if (payload[0] == 'n') return -2;
    if (payload[0] == 'm') return static_cast<int32_t>(outSize);
    const uint32_t numBytes = std::min(len * 40, outSize - 1);
    memset(out, 'x', numBytes);
    return static_cast<int32_t>(numBytes);
  }

  static uint32_t OnAsyncRequest(uint64_t userData, uint8_t *payload, uint32_t len, void *async) {
    Server &self = Of(userData);
    Check(payload[len] == 0, "no terminator");
    self.Ask(payload[0]);
    self.pending_.push_back(async);
    if (payload[0] == 'n') COAP_RpcSerSendAsyncResponse(self.ctx_, async, payload, len);
    if (payload[0] == 'a') COAP_RpcSerAbortAsyncResponse(self.ctx_, async);
    if (payload[0] == 'f') COAP_RpcSerFailAsync(self.ctx_, async, 404, "no");
    if (payload[0] == 'd') Detach(self.ctx_, kEntries[1]);
    return 0;
  }

  static void OnAsyncEnd(uint64_t userData, void *async, uint32_t) {
    Server &self = Of(userData);
    Check(self.ended_.insert(async).second, "a handle has ended twice");
    Check(COAP_RpcSerAbortAsyncResponse(self.ctx_, async) != 0, "it is still pending");
  }

  void Step(Input &input) {
    const uint8_t kind = input.Byte() % 14;
    const uint8_t arg = input.Byte();
    Peer &peer = peers_[arg % std::size(peers_)];
    const Entry &entry = kEntries[arg % std::size(kEntries)];
    switch (kind) {
      case 0:
        return peer.Send(input.Framed());
      case 1:
        return peer.SendAsAnswer(input.Framed(), arg >> 4);
      case 2:
        return peer.Send(arg < 0xC0 ? AckOf(peer.Last()) : RstOf(peer.Last()));
      case 3:
      case 4:
        return Request(peer, entry, input);
      case 5:
        return peer.Send(last_);
      case 6:
        return AskForBlock(peer, entry, arg);
      case 7:
        return host_.AdvanceMs(kStepsMs[arg % std::size(kStepsMs)]);
      case 8:
        return Answer(arg);
      case 9:
        Detach(ctx_, entry);
        return;
      case 10:
        AttachAt(ctx_, entry, kServer, kCoapPort);
        return;
      case 11:
        return MakeDirect(kEntries[arg % kNumDirect], input.Byte(), input.Byte() * 100u);
      case 12:
        return SetLink(entry, input.Byte());
      default:
        return AskLinks(peer, input);
    }
  }

  // Request sends a request that is well-formed.
  void Request(Peer &peer, const Entry &entry, Input &input) {
    const uint8_t bits = input.Byte();
    const CoapType type = (bits & 1) != 0 ? CoapType::kNon : CoapType::kCon;
    last_ = coap_rpc_test::Request(type, (bits >> 1 & 7), ++mid_, Bytes(bits >> 4 & 7, bits));
    last_.AddPath(entry.uri).AddText(coap_rpc_test::kOptUriQuery, "a=value");
    const uint8_t options = input.Byte();
    if ((options & 1) != 0) last_.AddUint(coap_rpc_test::kOptObserve, options >> 7);
    if ((options & 2) != 0) last_.AddUint(coap_rpc_test::kOptContentFormat, options);
    if ((options & 4) != 0) last_.AddBlock(coap_rpc_test::kOptBlock2, {0, false, 1});
    if ((options & 8) != 0) last_.AddUint(258, options >> 4);  // No-Response
    if ((options & 32) != 0) last_.Add(coap_rpc_test::kOptIfMatch, {options});
    if ((options & 64) != 0) last_.Add(coap_rpc_test::kOptEtag, {bits});
    const uint8_t block = input.Byte();
    if ((options & 16) != 0) {
      last_.AddBlock(coap_rpc_test::kOptBlock1, {uint32_t{block} >> 4, (block & 8) != 0, 0});
    }
    peer.Send(last_.Payload(input.Framed()));
  }

  // AskForBlock asks for the block after the last one.
  void AskForBlock(Peer &peer, const Entry &entry, uint8_t arg) {
    const CoapBlock last = peer.Last().Block(coap_rpc_test::kOptBlock2).value_or(CoapBlock{});
    CoapMessage request = coap_rpc_test::Request(CoapType::kCon, last_.code, ++mid_, {arg});
    request.AddPath(entry.uri).AddText(coap_rpc_test::kOptUriQuery, "a=value");
    request.AddBlock(coap_rpc_test::kOptBlock2, {last.num + 1, false, last.szx});
    peer.Send(request);
  }

  // Answer ends the oldest asynchronous request, pending or not.
  void Answer(uint8_t arg) {
    if (pending_.empty()) return;
    void *async = pending_.front();
    if (arg < 0xF0) pending_.pop_front();
    if (arg % 4 == 3) {
      COAP_RpcSerFailAsync(ctx_, async, 400u + arg % 32, "text");
      return;
    }
    COAP_RpcSerSetAsyncAnswer(ctx_, async, 201, arg);
    AddOption(async, arg);
    const std::vector<uint8_t> data(size_t{1} << (arg % 13), 'r');
    COAP_RpcSerSendAsyncResponse(ctx_, async, data.data(), static_cast<uint32_t>(data.size()));
  }

  Host host_;
  CoapRpcInitParam param_;
  CoapRpcCtx *ctx_;
  Peer peers_[3] = {{11, kCoapPort}, {12, kCoapPort}, {11, 7000}};
  std::deque<void *> pending_;
  std::set<void *> ended_;
  CoapMessage last_;
  uint16_t mid_ = 0x7000;
};

}  // namespace
}  // namespace fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  fuzz::PrepareWire();
  fuzz::Input input(data, size);
  fuzz::Server().Run(input);
  return 0;
}
