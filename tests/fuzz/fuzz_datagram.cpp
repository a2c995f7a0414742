// Datagrams from several peers into a server with every kind of registration, through the real
// receive path: socket, libcoap, look-up, handlers, application callbacks.  One input is a sequence
// of steps: datagrams as they are or with the ids of what was received, proper acknowledgements and
// block requests, time, and what the application does meanwhile.
#include <jansson.h>

#include <cstring>
#include <deque>

#include "coap_svc/rpc/coap_rpc_ext.h"
#include "coap_svc/rpc/server/coap_rpc_ser_uri.h"
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
constexpr uint8_t kOtherServer = 2;
constexpr uint16_t kOtherPort = 5684;
constexpr uint32_t kStepsMs[] = {100, 1000, 1100, 2500, 8000, 30000, 95000, 260000};

constexpr Entry kEntries[] = {
    {"sync", COAP_RPC_CON, 0, COAP_RPC_DEFAULT, 0, 0},
    {"sync", COAP_RPC_NON, 0, COAP_RPC_DEFAULT, 0, 0},
    {"async", COAP_RPC_CON, 0, COAP_RPC_DEFAULT, 1, 0},
    {"async", COAP_RPC_NON, 0, COAP_RPC_DEFAULT, 1, 0},
    {"none", COAP_RPC_CON, 0, COAP_RPC_DEFAULT, 2, 0},
    {"post", COAP_RPC_CON, 0, COAP_RPC_UNICAST, 0, 0},
    {"post", COAP_RPC_NON, 0, COAP_RPC_BROADCAST, 0, 0},
    {"answer", COAP_RPC_CON, 0, COAP_RPC_UNICAST, 1, 0},
    {"terminals/dynamic-mac", COAP_RPC_CON, 0, COAP_RPC_BROADCAST, 0, 0},
    {"o", COAP_RPC_CON, 1, COAP_RPC_DEFAULT, 3, COAP_RPC_JSON, kFieldLen},
    {"o", COAP_RPC_CON, 0, COAP_RPC_DEFAULT, 0, 0},
    {"p", COAP_RPC_NON, 1, COAP_RPC_DEFAULT, 3, COAP_RPC_JSON},
    {"q", COAP_RPC_CON, 1, COAP_RPC_DEFAULT, 3, COAP_RPC_BYTE, kFieldLen},
    {"r", COAP_RPC_NON, 1, COAP_RPC_DEFAULT, 0, COAP_RPC_BYTE, kFieldLen},
    {"s", COAP_RPC_CON, 1, COAP_RPC_UNICAST, 1, COAP_RPC_JSON, kFieldLen},
    {"t", COAP_RPC_NON, 1, COAP_RPC_BROADCAST, 0, COAP_RPC_BYTE, kFieldLen},
};

int32_t OnRequest(uint64_t, const CoapRpcSerReqInfo *, uint8_t *payload, uint32_t len, uint8_t *out,
                  uint32_t outSize) {
  CheckRequest(payload, len);
  if (payload[0] == 'c') return -1;
  if (payload[0] == 'n') return -2;
  const uint32_t numBytes = std::min(len * 40, outSize - 1);
  memset(out, 'x', numBytes);
  return static_cast<int32_t>(numBytes);
}

// IsElsewhere says that an entry has another address than most.
bool IsElsewhere(const Entry &entry) {
  return entry.pktType == COAP_RPC_BROADCAST && entry.msgType == COAP_RPC_NON;
}

// ElementSize makes the elements of a payload small, or so large that they travel in blocks.
size_t ElementSize(const uint8_t *tuple) { return size_t{1} << (tuple[0] % 13); }

uint32_t BuildJson(uint64_t, uint8_t *tuple, uint8_t *, void *out) {
  const std::string text(ElementSize(tuple), 'j');
  json_object_set_new(static_cast<json_t *>(out), "k", json_string(text.c_str()));
  return tuple[0] == 3;
}
uint32_t BuildJsonDelete(uint64_t userData, uint8_t *tuple, void *out) {
  return BuildJson(userData, tuple, nullptr, out);
}

uint32_t BuildIdl(uint64_t, uint8_t *tuple, uint8_t *, void *out) {
  auto *msg = static_cast<CoapRpcSerIdlMsgBuf *>(out);
  msg->len = static_cast<uint32_t>(ElementSize(tuple));
  memset(msg->buf, 'i', msg->len);
  return tuple[0] == 3;
}
uint32_t BuildIdlDelete(uint64_t userData, uint8_t *tuple, void *out) {
  return BuildIdl(userData, tuple, nullptr, out);
}

uint32_t GetFirst(uint64_t, void *, void *key, void *) {
  memset(key, 9, kFieldLen);
  return 0;
}
uint32_t GetNext(uint64_t, void *cursor, const void *, void *key, void *) {
  auto *numGiven = static_cast<uint8_t *>(cursor);
  memset(key, ++*numGiven, kFieldLen);
  return *numGiven > 3;
}

// Server is an instance with all entries, and the peers around it.
class Server {
 public:
  Server() : param_(host_.Param()), ctx_(COAP_RpcInit(&param_)) {
    Check(ctx_ != nullptr, "no instance");
    for (const Entry &entry : kEntries) Serve(entry);
    COAP_RpcLogRegUri(ctx_, "sync");
    for (Peer &peer : peers_) peer.SetRemote(kServer, kCoapPort);
    peers_[2].SetRemote(kOtherServer, kOtherPort);
  }

  ~Server() {
    Settle();
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
  void Serve(const Entry &entry) {
    ServerApp app;
    app.userData = reinterpret_cast<uint64_t>(this);
    app.onRequest = OnRequest;
    app.onAsyncRequest = OnAsyncRequest;
    app.buildJson = BuildJson;
    app.buildJsonDelete = BuildJsonDelete;
    app.buildIdl = BuildIdl;
    app.buildIdlDelete = BuildIdlDelete;
    app.getFirst = GetFirst;
    app.getNext = GetNext;
    Check(RegisterServer(ctx_, entry, app) == 0, "no registration");
    Attach(entry);
  }

  void Attach(const Entry &entry) {
    const uint32_t ret = IsElsewhere(entry) ? AttachAt(ctx_, entry, kOtherServer, kOtherPort)
                                            : AttachAt(ctx_, entry, kServer, kCoapPort);
    Check(ret == 0, "not attached");
  }

  static uint32_t OnAsyncRequest(uint64_t userData, uint8_t *payload, uint32_t len, void *async) {
    auto *self = reinterpret_cast<Server *>(userData);
    CheckRequest(payload, len);
    if (payload[0] == 'n') COAP_RpcSerSendAsyncResponse(self->ctx_, async, payload, len);
    if (payload[0] == 'a') COAP_RpcSerAbortAsyncResponse(self->ctx_, async);
    self->pending_.push_back(async);
    return payload[0] == 'f';
  }

  void Step(Input &input) {
    const uint8_t kind = input.Byte() % 12;
    const uint8_t arg = input.Byte();
    Peer &peer = peers_[arg % std::size(peers_)];
    const Entry &entry = kEntries[arg % std::size(kEntries)];
    switch (kind) {
      case 0:
      case 1:
        return peer.Send(input.Framed());
      case 2:
        return peer.SendAsAnswer(input.Framed(), arg >> 4);
      case 3:
        return peer.Send(arg < 0xC0 ? AckOf(peer.Last()) : RstOf(peer.Last()));
      case 4:
        return AskForBlock(peer, arg);
      case 5:
        return host_.AdvanceMs(kStepsMs[arg % std::size(kStepsMs)]);
      case 6:
        return Change(entry, input.Byte());
      case 7:
        return Remove(entry, input.Byte());
      case 8:
        return Answer(arg);
      case 9:
        Detach(ctx_, entry);
        return;
      case 10:
        return Attach(entry);
      default:
        return Observe(peer, entry, arg);
    }
  }

  // AskForBlock asks for the block after the last one, or for another.
  void AskForBlock(Peer &peer, uint8_t arg) {
    const CoapBlock last = peer.Last().Block(coap_rpc_test::kOptBlock2).value_or(CoapBlock{});
    CoapMessage get = Request(CoapType::kCon, coap_rpc_test::kCodeGet, ++mid_, {arg});
    get.AddPath(kEntries[arg % std::size(kEntries)].uri);
    const uint8_t szx = arg < 0xF0 ? last.szx : arg & 7;
    get.AddBlock(coap_rpc_test::kOptBlock2, {last.num + 1, false, szx});
    peer.Send(get);
  }

  void Observe(Peer &peer, const Entry &entry, uint8_t arg) {
    const CoapType type = (arg & 0x40) != 0 ? CoapType::kNon : CoapType::kCon;
    CoapMessage get = Request(type, coap_rpc_test::kCodeGet, ++mid_, {arg});
    get.AddPath(entry.uri).AddUint(coap_rpc_test::kOptObserve, arg >> 7);
    if ((arg & 0x20) != 0) get.AddText(coap_rpc_test::kOptUriQuery, "_ual-checkcode=1");
    peer.Send(get);
  }

  // Change changes a tuple, or many: a long list of changes is searched in another way.
  void Change(const Entry &entry, uint8_t value) {
    constexpr uint8_t kMany = 100;
    const CoapRpcUriKey key = KeyOf(entry);
    const uint8_t num = value < 0xE0 ? 1 : kMany;
    for (uint8_t i = 0; i < num; ++i) {
      const uint8_t field[kFieldLen] = {value, i};
      COAP_RpcSerObserveDataUpdate(ctx_, &key, field, field);
    }
  }

  void Remove(const Entry &entry, uint8_t value) {
    const uint8_t field[kFieldLen] = {value};
    const CoapRpcUriKey key = KeyOf(entry);
    COAP_RpcSerObserveDataDel(ctx_, &key, field);
  }

  // Answer ends the oldest asynchronous request.
  void Answer(uint8_t arg) {
    if (pending_.empty()) return;
    void *async = pending_.front();
    if (arg < 0xF0) pending_.pop_front();
    if (arg % 4 == 3) {
      COAP_RpcSerAbortAsyncResponse(ctx_, async);
      return;
    }
    const std::vector<uint8_t> data(size_t{1} << (arg % 13), 'r');
    COAP_RpcSerSendAsyncResponse(ctx_, async, data.data(), static_cast<uint32_t>(data.size()));
  }

  bool IsSending() {
    for (CoapRpcSerUriVtbl *entry = First(); entry; entry = Next(entry)) {
      if (entry->isSendingLargeBlock != 0) return true;
    }
    return false;
  }
  CoapRpcSerUriVtbl *First() { return COAP_RpcSerFindFirstUriVtbl(ctx_->ser); }
  CoapRpcSerUriVtbl *Next(const CoapRpcSerUriVtbl *entry) {
    return COAP_RpcSerFindNextUriVtbl(ctx_->ser, &entry->key);
  }

  // Settle lets time pass without traffic: what is being sent in blocks is given up in the end.
  void Settle() {
    constexpr int kMaxRounds = 40;
    for (int i = 0; i < kMaxRounds && IsSending(); ++i) host_.AdvanceMs(10'000);
    Check(!IsSending(), "a payload is being sent for ever");
    Check(ctx_->ioDepth == 0, "the I/O is still running");
    Check(TestProcess::Get().Asserts().empty(), "an assertion was recorded");
  }

  Host host_;
  CoapRpcInitParam param_;
  CoapRpcCtx *ctx_;
  Peer peers_[4] = {{11, kCoapPort}, {12, kCoapPort}, {13, 7000}, {11, 7000}};
  std::deque<void *> pending_;
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
