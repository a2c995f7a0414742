// Bodies in blocks from several peers into a server, and out of it. One input is a play of steps of
// one size. Four transfers keep what makes blocks one body: peer, path, method, Request-Tag, size.
// Steps send blocks of them in any order, of any size, repeated, with and without what else a
// request may carry, under any token; fetch blocks of answers; and change the observed data.
#include <jansson.h>

#include <cstring>
#include <deque>

#include "coap_svc/rpc/coap_rpc_ext.h"
#include "coap_svc/rpc/server/coap_rpc_ser_uri.h"
#include "fuzz_blocks.h"
#include "fuzz_tables.h"

namespace fuzz {
namespace {

using coap_rpc_test::Bytes;
using coap_rpc_test::CoapType;

constexpr uint8_t kServer = 1;
constexpr uint16_t kOptRequestTag = 292;
constexpr uint8_t kMethods[] = {1, 2, 2, 1, 3, 4, 5, 6, 7};  // GET, POST, ... FETCH, PATCH, iPATCH
constexpr uint32_t kStepsMs[] = {100, 1000, 2500, 8000, 30000, 95000, 260000};
constexpr uint32_t kLargeAnswer = 3000;

constexpr Entry kEntries[] = {
    {"o", COAP_RPC_CON, 1, COAP_RPC_DEFAULT, 3, COAP_RPC_JSON, kFieldLen},
    {"a", COAP_RPC_CON, 0, COAP_RPC_UNICAST, 0},
    {"async", COAP_RPC_CON, 0, COAP_RPC_UNICAST, 1},
    {"p", COAP_RPC_NON, 1, COAP_RPC_DEFAULT, 3, COAP_RPC_JSON, kFieldLen},
    {"large", COAP_RPC_CON, 0, COAP_RPC_DEFAULT, 0},
    {"large", COAP_RPC_CON, 0, COAP_RPC_BROADCAST, 0},
    {"a", COAP_RPC_CON, 0, COAP_RPC_DEFAULT, 0},
    {"a", COAP_RPC_NON, 0, COAP_RPC_UNICAST, 0},
    {"s", COAP_RPC_CON, 1, COAP_RPC_DEFAULT, 0, COAP_RPC_JSON, kFieldLen},
    {"none", COAP_RPC_CON, 0, COAP_RPC_UNICAST, 2},
};

// Transfer is one body on its way to the server.
struct Transfer {
  uint8_t peer;
  uint8_t entry;
  uint8_t method;
  uint8_t tag;  // 0: none
  uint8_t szx;
  uint8_t numBlocks;
  bool isObserve;
  CoapBlock next;  // the block that is due
  uint16_t lastId;
};

const Entry &EntryOf(const Transfer &transfer) { return kEntries[transfer.entry]; }

// IdOf tells bodies apart that the server must not mix: of several peers, paths and Request-Tags. A
// peer that sends bodies of two methods at once has to tag them: libcoap does not compare methods.
uint32_t IdOf(const Transfer &transfer) {
  const auto path = static_cast<uint32_t>(EntryOf(transfer).uri[0]);
  return path << 16 | static_cast<uint32_t>(transfer.peer << 8) | transfer.tag;
}

CoapBlock BlockAt(const Transfer &transfer, uint32_t num) {
  return {num, num + 1 < transfer.numBlocks, transfer.szx};
}

uint32_t BuildJson(uint64_t, uint8_t *tuple, uint8_t *, void *out) {
  const std::string text(size_t{1} << tuple[0] % 13, 'j');
  json_object_set_new(static_cast<json_t *>(out), "k", json_string(text.c_str()));
  return 0;
}
uint32_t BuildJsonDelete(uint64_t userData, uint8_t *tuple, void *out) {
  return BuildJson(userData, tuple, nullptr, out);
}

uint32_t GetFirst(uint64_t, void *, void *key, void *) {
  memset(key, 11, kFieldLen);
  return 0;
}
uint32_t GetNext(uint64_t, void *, const void *, void *, void *) { return 1; }

class Server : public Scene {
 public:
  Server() {
    for (const Entry &entry : kEntries) Serve(entry);
    for (Peer &peer : peers_) peer.SetRemote(kServer, kCoapPort);
    for (uint8_t i = 0; i < std::size(transfers_); ++i) {
      Begin(&transfers_[i], {0, i, {i, i, 0, 0, 0, i == 0}});
    }
  }

  ~Server() override { Stop(); }

 private:
  void TakeTurn() override {
    RunIo(ctx_);
    for (Peer &peer : peers_) {
      peer.Receive();
      CheckSent(peer.Last());
    }
  }

  void Serve(const Entry &entry) {
    ServerApp app;
    app.userData = reinterpret_cast<uint64_t>(this);
    app.onRequest = entry.uri[0] == 'l' ? OnLargeRequest : OnRequest;
    app.onAsyncRequest = OnAsyncRequest;
    app.buildJson = BuildJson;
    app.buildJsonDelete = BuildJsonDelete;
    app.getFirst = GetFirst;
    app.getNext = GetNext;
    Check(RegisterServer(ctx_, entry, app) == 0, "no registration");
    Check(AttachAt(ctx_, entry, kServer, kCoapPort) == 0, "not attached");
  }

  static Server &TakeRequest(uint64_t userData, const uint8_t *payload, uint32_t len) {
    auto &self = *reinterpret_cast<Server *>(userData);
    CheckRequest(payload, len);
    self.bodies_.CheckDelivered(payload, len);
    return self;
  }

  static int32_t OnRequest(uint64_t userData, const CoapRpcSerReqInfo *, uint8_t *payload,
                           uint32_t len, uint8_t *out, uint32_t outSize) {
    TakeRequest(userData, payload, len);
    const uint32_t numBytes = std::min(len, outSize - 1);
    memcpy(out, payload, numBytes);
    return static_cast<int32_t>(numBytes);
  }

  static int32_t OnLargeRequest(uint64_t userData, const CoapRpcSerReqInfo *, uint8_t *payload,
                                uint32_t len, uint8_t *out, uint32_t) {
    TakeRequest(userData, payload, len);
    memset(out, 'x', kLargeAnswer);
    return static_cast<int32_t>(kLargeAnswer);
  }

  static uint32_t OnAsyncRequest(uint64_t userData, uint8_t *payload, uint32_t len, void *async) {
    TakeRequest(userData, payload, len).pending_.push_back(async);
    return 0;
  }

  void Play(const Step &step) override {
    Transfer &transfer = transfers_[step.who % std::size(transfers_)];
    switch (step.kind % 16) {
      case 8:
      case 9:
        return Begin(&transfer, step);
      case 10:
        return Fetch(transfer, step);
      case 11:
        return SendWhole(transfer, step);
      case 12:
        return Change(step);
      case 13:
        return EndAsync(step);
      case 14:
        return Acknowledge(step);
      case 15:
        return host_.AdvanceMs(kStepsMs[step.arg[0] % std::size(kStepsMs)]);
      default:
        return SendBlock(&transfer, step);
    }
  }

  // Begin gives a transfer another body.
  void Begin(Transfer *transfer, const Step &step) {
    constexpr uint8_t kDefaultSzx = 2;
    *transfer = {};
    transfer->peer = static_cast<uint8_t>(step.who / 4 % std::size(peers_));
    transfer->entry = static_cast<uint8_t>(step.arg[0] % std::size(kEntries));
    transfer->method = kMethods[step.arg[1] % std::size(kMethods)];
    transfer->tag = step.arg[2] % 3;
    transfer->szx = static_cast<uint8_t>((step.arg[3] + kDefaultSzx) % 7);
    transfer->numBlocks = static_cast<uint8_t>(2 + step.arg[4] % 8);
    transfer->isObserve = step.Has(5, 1);
    transfer->next = BlockAt(*transfer, 0);
  }

  // NewRequest is a request of the transfer with what `arg[from]` and the next two say.
  CoapMessage NewRequest(const Transfer &transfer, const Step &step, int from) {
    const uint8_t tokenChoice = step.arg[from];
    const CoapType type = (tokenChoice & 0x80) != 0 ? CoapType::kNon : CoapType::kCon;
    CoapMessage request = Request(type, transfer.method, ++mid_);
    request.Token(TokenFor(tokenChoice & 0x0F, static_cast<uint8_t>(step.who << 4 | tokenChoice)));
    request.AddPath(EntryOf(transfer).uri);
    AddOptions(transfer, step.arg[from + 1], step.arg[from + 2], &request);
    return request;
  }

  void AddOptions(const Transfer &transfer, uint8_t which, uint8_t value, CoapMessage *request) {
    const bool isObserve = transfer.isObserve != ((which & 0x01) != 0);
    if (isObserve) request->AddUint(coap_rpc_test::kOptObserve, value & 1);
    if ((which & 0x02) != 0) request->AddUint(coap_rpc_test::kOptSize1, value * 16u);
    if ((which & 0x04) != 0) request->AddUint(coap_rpc_test::kOptSize2, value & 0x80);
    if ((which & 0x08) != 0) request->AddUint(coap_rpc_test::kOptEtag, value);
    if ((which & 0x10) != 0) request->AddUint(coap_rpc_test::kOptContentFormat, value & 0x3F);
    if ((which & 0x20) != 0) request->AddText(coap_rpc_test::kOptUriQuery, "_ual-checkcode=1");
    if ((which & 0x40) != 0) {
      request->AddBlock(coap_rpc_test::kOptBlock2, {value & 3u, false, transfer.szx});
    }
    if (transfer.tag != 0) request->Add(kOptRequestTag, Bytes(transfer.tag, transfer.tag));
  }

  void SendBlock(Transfer *transfer, const Step &step) {
    constexpr uint8_t kSameId = 0x20;
    const CoapBlock block = ChangedBlock(transfer->next, step.arg[0], step.arg[1]);
    CoapMessage request = NewRequest(*transfer, step, 2);
    if (step.Has(0, kSameId)) request.messageId = transfer->lastId;
    request.AddBlock(coap_rpc_test::kOptBlock1, block);
    request.payload = bodies_.PartOf(IdOf(*transfer), block, step.arg[5]);
    transfer->lastId = request.messageId;
    transfer->next = BlockAt(*transfer, block.num + 1);
    peers_[transfer->peer].Send(request);
  }

  void SendWhole(const Transfer &transfer, const Step &step) {
    CoapMessage request = NewRequest(transfer, step, 2);
    request.payload = bodies_.Part(IdOf(transfer), 0, step.arg[0] * 4u, true);
    peers_[transfer.peer].Send(request);
  }

  // Fetch asks for a block of an answer or a notification, by default for the one that is due.
  void Fetch(const Transfer &transfer, const Step &step) {
    Peer &peer = peers_[transfer.peer];
    CoapBlock due = peer.Last().Block(coap_rpc_test::kOptBlock2).value_or(CoapBlock{});
    due = {due.num + 1, false, due.szx};
    CoapMessage request = NewRequest(transfer, step, 2);
    if (step.Has(5, 1)) request.code = coap_rpc_test::kCodeGet;
    if (step.Has(5, 2)) request.Token(peer.Last().token);
    request.AddBlock(coap_rpc_test::kOptBlock2, ChangedBlock(due, step.arg[0], step.arg[1]));
    peer.Send(request);
  }

  void Change(const Step &step) {
    const CoapRpcUriKey key = KeyOf(kEntries[step.who % std::size(kEntries)]);
    const uint8_t field[kFieldLen] = {step.arg[0]};
    COAP_RpcSerObserveDataUpdate(ctx_, &key, field, field);
  }

  void EndAsync(const Step &step) {
    if (pending_.empty()) return;
    void *async = pending_.front();
    pending_.pop_front();
    const Bytes data(size_t{1} << step.arg[0] % 13, 'r');
    COAP_RpcSerSendAsyncResponse(ctx_, async, data.data(), static_cast<uint32_t>(data.size()));
  }

  void Acknowledge(const Step &step) {
    Peer &peer = peers_[step.who % std::size(peers_)];
    peer.Send(step.Has(0, 1) ? RstOf(peer.Last()) : AckOf(peer.Last()));
  }

  Peer peers_[2] = {{11, kCoapPort}, {12, kCoapPort}};
  Transfer transfers_[4];
  Bodies bodies_;
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
