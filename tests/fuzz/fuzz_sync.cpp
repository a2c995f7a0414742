// Readers of a URI whose tuples have versions: any query, in any order, while the application
// changes its set, its parameters and its address, and memory runs out now and then.  One reader
// follows the rules and applies what it gets: whenever a page says that it is at the head, it has
// the server's set.  An input is a sequence of steps.
#include <cstring>
#include <map>
#include <optional>

#include "coap_svc/rpc/coap_rpc_ext.h"
#include "coap_svc/rpc/coap_rpc_sync.h"
#include "coap_svc/rpc/common/coap_rpc_ctx.h"
#include "coap_svc/rpc/server/coap_rpc_ser_uri.h"
#include "coap_svc/rpc/server/sync/coap_rpc_ser_sync.h"
#include "fuzz_host.h"
#include "fuzz_tables.h"
#include "fuzz_wire.h"

namespace fuzz {
namespace {

using coap_rpc_test::CoapType;

constexpr int kMaxSteps = 200;
constexpr uint32_t kLibLogLevel = 4;
constexpr uint8_t kServer = 1;
constexpr uint32_t kStepsMs[] = {100, 1000, 2500, 9000, 31000, 95000};
constexpr uint32_t kPages[] = {0, 256, 300, 1024, 255, 1025};
constexpr uint32_t kAtHead = 1;
constexpr uint32_t kRestart = 2;
constexpr uint16_t kFormatCbor = 60;

constexpr Entry kEntries[] = {
    {"s", COAP_RPC_CON, 1, COAP_RPC_DEFAULT, 3, COAP_RPC_BYTE, kFieldLen},
    {"t", COAP_RPC_NON, 1, COAP_RPC_UNICAST, 3, COAP_RPC_JSON, 2000},
};

// Cbor reads what a page is made of; anything else is a finding.
class Cbor {
 public:
  explicit Cbor(const Bytes &bytes) : bytes_(bytes) {}

  uint64_t Number(uint8_t major) {
    const uint8_t first = Next();
    Check(first >> 5 == major, "a page has another kind of item");
    const uint8_t info = first & 31;
    if (info < 24) return info;
    Check(info < 28, "a page has an item of unknown length");
    uint64_t number = 0;
    for (int i = 0; i < 1 << (info - 24); ++i) number = number << 8 | Next();
    return number;
  }
  uint64_t Uint() { return Number(0); }
  std::string String() {
    const uint64_t len = Number(2);
    Check(len <= bytes_.size() - at_, "a page ends in a string");
    const std::string text(bytes_.begin() + static_cast<ptrdiff_t>(at_),
                           bytes_.begin() + static_cast<ptrdiff_t>(at_ + len));
    at_ += len;
    return text;
  }
  bool TakeNull() {
    if (at_ == bytes_.size() || bytes_[at_] != 0xF6) return false;
    ++at_;
    return true;
  }
  bool IsAtEnd() const { return at_ == bytes_.size(); }

 private:
  uint8_t Next() {
    Check(at_ < bytes_.size(), "a page is too short");
    return bytes_[at_++];
  }

  const Bytes &bytes_;
  size_t at_ = 0;
};

// Reader pulls page by page, and everything again when it is told to: then deletions that are
// forgotten meanwhile make it begin once more.
struct Reader {
  uint64_t replid = 0;
  uint64_t cursor = 0;
  bool isFull = true;
  std::optional<uint64_t> fullHead;  // the head when it began to read everything
  std::map<std::string, std::string> table;

  void Forget() {
    cursor = 0;
    isFull = true;
    fullHead.reset();
    table.clear();
  }

  std::vector<std::string> Query() const {
    char id[32];
    snprintf(id, sizeof(id), "id=%llx", static_cast<unsigned long long>(replid));
    std::vector<std::string> query = {"_sync=1", id, "since=" + std::to_string(cursor)};
    if (isFull) query.push_back("full=1");
    return query;
  }

  // Take applies a page.  True: it says that this is all.
  bool Take(const Bytes &payload) {
    Cbor page(payload);
    const uint64_t num = page.Number(4);
    Check(num >= 8 && (num - 8) % 3 == 0, "a page has an odd number of items");
    Check(page.Uint() == 1, "a page has another format");
    const uint64_t flags = page.Uint();
    const uint64_t life = page.Uint();
    const uint64_t from = page.Uint();
    const uint64_t to = page.Uint();
    const uint64_t head = page.Uint();
    const uint64_t floor = page.Uint();
    Check(floor <= head, "the floor is above the head");
    page.Uint();
    if (life != replid || (flags & kRestart) != 0) {
      replid = life;
      Forget();
      return false;
    }
    Check(from == cursor && to >= from && to <= head, "a page is about something else");
    uint64_t version = from;
    for (uint64_t i = 8; i < num; i += 3) version += Apply(page);
    Check(version <= to && page.IsAtEnd(), "a page goes on after its end");
    Check(to > from || head == from, "a page does not go on");
    cursor = to;
    return IsAll(flags, head, floor);
  }

 private:
  bool IsAll(uint64_t flags, uint64_t head, uint64_t floor) {
    if (isFull && !fullHead) fullHead = head;
    if (isFull && floor > *fullHead) {
      Forget();
      return false;
    }
    if ((flags & kAtHead) == 0) return false;
    isFull = false;
    return true;
  }

  uint64_t Apply(Cbor &page) {
    const uint64_t delta = page.Uint();
    const std::string key = page.String();
    Check(delta != 0, "two changes have a version");
    if (page.TakeNull()) {
      table.erase(key);
    } else {
      table[key] = page.String();
    }
    return delta;
  }
};

class Server {
 public:
  Server() : param_(host_.Param()), ctx_(COAP_RpcInit(&param_)) {
    Check(ctx_ != nullptr, "no instance");
    COAP_RpcSetLibLogLevel(ctx_, kLibLogLevel);
    for (const Entry &entry : kEntries) {
      Check(RegisterServer(ctx_, entry, {}) == 0, "no registration");
      AttachAt(ctx_, entry, kServer, kCoapPort);
    }
    for (Peer &peer : peers_) peer.SetRemote(kServer, kCoapPort);
    SetSync(kEntries[0], 0, 1);
  }
  ~Server() {
    host_.FailAllocation(0);
    CheckSets();
    COAP_RpcUninit(ctx_);
  }

  void Run(Input &input) {
    for (int i = 0; i < kMaxSteps && !input.IsEmpty(); ++i) {
      Step(input);
      RunIo(ctx_);
      for (Peer &peer : peers_) peer.Receive();
    }
    host_.FailAllocation(0);
    AttachAt(ctx_, kEntries[0], kServer, kCoapPort);
    CatchUp();
  }

 private:
  void SetSync(const Entry &entry, uint8_t arg, uint32_t minTombs) {
    CoapRpcSerSyncParam param = {};
    param.windowMs = arg & 1 ? 500 : 0;
    param.pageBytes = kPages[(arg >> 1) % std::size(kPages)];
    param.minTombstones = minTombs;
    param.leaseMs = arg & 0x40 ? 1000 : 0;
    param.userData = reinterpret_cast<uint64_t>(this);
    param.onConfirmed = arg & 0x80 ? OnConfirmed : nullptr;
    const CoapRpcUriKey key = KeyOf(entry);
    COAP_RpcSerSetUriSync(ctx_, &key, &param);
  }

  static void OnConfirmed(uint64_t userData, uint64_t version) {
    auto *self = reinterpret_cast<Server *>(userData);
    self->Change(kEntries[0], static_cast<uint8_t>(version));
    if (version % 16 == 0) Detach(self->ctx_, kEntries[0]);
  }

  void Change(const Entry &entry, uint8_t value) {
    const CoapRpcUriKey key = KeyOf(entry);
    Bytes tuple(kFieldLen + entry.valLen, value);
    std::fill_n(tuple.begin(), kFieldLen, static_cast<uint8_t>(value % 16));
    if (value < 0xA0) {
      COAP_RpcSerObserveDataUpdate(ctx_, &key, tuple.data(), tuple.data() + kFieldLen);
    } else {
      COAP_RpcSerObserveDataDel(ctx_, &key, tuple.data());
    }
  }

  static uint32_t NextTuple(uint64_t userData, void *key, void *val) {
    Input &input = *reinterpret_cast<Input *>(userData);
    const uint8_t value = input.Byte();
    if (input.IsEmpty() || value > 0xC0) return value > 0xF0 ? 7 : COAP_RPC_SYNC_END;
    memset(key, value % 16, kFieldLen);
    memset(val, value, kFieldLen);
    return 0;
  }

  void Ask(Peer &peer, const Entry &entry, const std::vector<std::string> &query, uint8_t how) {
    const CoapType type = how & 1 ? CoapType::kNon : CoapType::kCon;
    CoapMessage get = Request(type, coap_rpc_test::kCodeGet, ++mid_, {how});
    get.AddPath(entry.uri);
    if (how & 2) get.AddUint(coap_rpc_test::kOptObserve, how >> 2 & 1);
    if (how & 8) get.AddUint(coap_rpc_test::kOptAccept, how & 16 ? 50 : kFormatCbor);
    if (how & 32)
      get.AddBlock(coap_rpc_test::kOptBlock2, {static_cast<uint32_t>(how >> 6), false, 2});
    for (const std::string &arg : query) get.AddText(coap_rpc_test::kOptUriQuery, arg);
    peer.Send(get);
  }

  std::vector<std::string> AnyQuery(Input &input, uint8_t arg) {
    std::vector<std::string> query;
    if (arg & 1) query.push_back("_sync=1");
    if (arg & 2) query.push_back(reader_.Query()[1]);
    for (std::string line = input.Line(); !line.empty() && query.size() < 8; line = input.Line()) {
      query.push_back(line.substr(0, 255));
    }
    return query;
  }

  void Step(Input &input) {
    const uint8_t kind = input.Byte() % 13;
    const uint8_t arg = input.Byte();
    Peer &peer = peers_[arg % std::size(peers_)];
    const Entry &entry = kEntries[arg % 8 == 7];
    const CoapRpcUriKey key = KeyOf(entry);
    switch (kind) {
      case 0:
      case 1:
        return Change(entry, input.Byte());
      case 2:
        return Ask(peer, entry, AnyQuery(input, arg), input.Byte());
      case 3:
        return Ask(peer, entry, {"_sync=1"}, 2 | (input.Byte() & 5));
      case 4:
        return Ask(peer, entry,
                   {"_sync=1", reader_.Query()[1], "since=" + std::to_string(input.Byte())},
                   input.Byte());
      case 5:
        return peer.Send(arg < 0xC0 ? AckOf(peer.Last()) : RstOf(peer.Last()));
      case 6:
        return host_.AdvanceMs(kStepsMs[arg % std::size(kStepsMs)]);
      case 7:
        return SetSync(entry, input.Byte(), arg % 4);
      case 8:
        COAP_RpcSerSyncReplace(ctx_, &key, NextTuple, reinterpret_cast<uint64_t>(&input));
        return;
      case 9:
        Detach(ctx_, entry);
        return;
      case 10:
        AttachAt(ctx_, entry, kServer, kCoapPort);
        return;
      case 11:
        return host_.FailAllocation(arg % 8);
      default:
        Pull();
    }
  }

  // Pull is one step of the reader.  True: it has everything.
  bool Pull() {
    constexpr uint8_t kToken = 0x77;
    CoapMessage get = Request(CoapType::kCon, coap_rpc_test::kCodeGet, ++mid_, {kToken});
    get.AddPath(kEntries[0].uri);
    for (const std::string &arg : reader_.Query()) get.AddText(coap_rpc_test::kOptUriQuery, arg);
    readerPeer_.SetRemote(kServer, kCoapPort);
    readerPeer_.Send(get);
    RunIo(ctx_);
    readerPeer_.Receive();
    const CoapMessage &answer = readerPeer_.Last();
    const bool isPage = answer.messageId == mid_ && answer.code == coap_rpc_test::Code(2, 5) &&
                        answer.Uint(coap_rpc_test::kOptContentFormat) == kFormatCbor;
    if (!isPage || !reader_.Take(answer.payload)) return false;
    CheckReader();
    return true;
  }

  void CatchUp() {
    constexpr int kMaxPulls = 20;
    for (int i = 0; i < kMaxPulls; ++i) {
      if (Pull()) return;
    }
    Check(false, "a reader never has everything");
  }

  CoapRpcSerUriVtbl *EntryOf(const Entry &entry) {
    const CoapRpcUriKey key = KeyOf(entry);
    return COAP_RpcSerFindUriVtbl(ctx_->ser, &key);
  }

  void CheckReader() {
    CoapRpcSerUriVtbl *entry = EntryOf(kEntries[0]);
    size_t num = 0;
    for (CoapRpcUriTuple *tuple = COAP_RpcSerGetFirstUriTuple(entry); tuple;
         tuple = COAP_RpcSerGetNextUriTuple(entry, tuple), ++num) {
      const uint8_t *val = tuple->key + kFieldLen;
      const auto found = reader_.table.find(std::string(tuple->key, tuple->key + kFieldLen));
      Check(found != reader_.table.end(), "a reader lacks a tuple");
      Check(found->second == std::string(val, val + kFieldLen), "a reader has another value");
    }
    Check(num == reader_.table.size(), "a reader has a tuple too many");
  }

  // CheckSets looks at the numbers of each set.
  void CheckSets() {
    for (const Entry &each : kEntries) {
      CoapRpcSerUriVtbl *entry = EntryOf(each);
      if (!entry->sync) continue;
      coap_rpc::SyncSet &set = entry->sync->set;
      coap_rpc::SyncWalk walk(set, 0);
      coap_rpc::SyncChange change = {};
      uint64_t last = 0;
      uint32_t numLive = 0;
      uint32_t numTombs = 0;
      while (walk.Next(change)) {
        Check(change.version > last && change.version <= set.head, "versions are in disorder");
        last = change.version;
        ++(change.val ? numLive : numTombs);
      }
      Check(numLive == set.numLive && numTombs == set.numTombs, "tuples are miscounted");
      Check(numLive == COAP_RpcGetTupleSetCnt(entry), "a live tuple has no version");
      Check(numTombs <= std::max(set.minTombs, numLive / 4), "too many tombstones");
    }
  }

  Host host_;
  CoapRpcInitParam param_;
  CoapRpcCtx *ctx_;
  Peer peers_[3] = {{11, 7001}, {12, 7002}, {13, 7003}};
  Peer readerPeer_{14, 7004};
  Reader reader_;
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
