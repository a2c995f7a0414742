// Mirrors of a server that answers whatever an input says: pages that are right, nearly right and
// wrong, late and foreign ones, errors, blocks, silence; while the application closes and opens
// mirrors, also in their callbacks, and memory runs out.  The table that the callbacks make is that
// of the mirror whenever it calls.
#include <cstring>
#include <map>

#include "coap_svc/rpc/coap_rpc_ext.h"
#include "coap_svc/rpc/coap_rpc_sync.h"
#include "coap_svc/rpc/common/coap_rpc_ctx.h"
#include "fuzz_host.h"
#include "fuzz_wire.h"
#include "test_process.h"

namespace fuzz {
namespace {

using coap_rpc_test::CoapType;
using coap_rpc_test::TestProcess;

constexpr int kMaxSteps = 150;
constexpr uint8_t kPeer = 11;
constexpr uint32_t kStepsMs[] = {10, 100, 600, 1500, 9000, 31000, 65000};
constexpr uint16_t kFormatCbor = 60;
constexpr uint32_t kKeyLen = 2;
constexpr uint32_t kValLen = 2;
constexpr uint32_t kNumMirrors = 2;

class CborOut {
 public:
  void Head(uint8_t major, uint64_t number) {
    const int len = number < 24 ? 0 : number < 256 ? 1 : number < 65536 ? 2 : number >> 32 ? 8 : 4;
    const uint8_t info[] = {0, 24, 25, 0, 26, 0, 0, 0, 27};
    bytes.push_back(static_cast<uint8_t>(uint64_t{major} << 5 | (len == 0 ? number & 31 : info[len])));
    for (int i = len - 1; i >= 0; --i) bytes.push_back(static_cast<uint8_t>(number >> 8 * i));
  }
  void Text(const Bytes &text) {
    Head(2, text.size());
    bytes.insert(bytes.end(), text.begin(), text.end());
  }

  Bytes bytes;
};

class Mirrors {
 public:
  Mirrors() : param_(host_.Param()), ctx_(COAP_RpcInit(&param_)) {
    Check(ctx_ != nullptr, "no instance");
    for (Copy &copy : copies_) copy.all = this;
  }
  ~Mirrors() {
    Check(TestProcess::Get().Asserts().empty(), "an assertion was recorded");
    host_.FailAllocation(0);
    isStopping_ = true;
    COAP_RpcUninit(ctx_);
  }

  void Run(Input &input) {
    Open(copies_[0], input.Byte());
    for (int i = 0; i < kMaxSteps && !input.IsEmpty(); ++i) {
      Step(input);
      RunIo(ctx_);
      peer_.Receive();
      for (Copy &copy : copies_) copy.CheckTable();
    }
  }

 private:
  struct Copy {
    Mirrors *all = nullptr;
    CoapRpcMirror *mirror = nullptr;
    std::map<std::string, std::string> table;
    bool isInCallback = false;

    static Copy &Of(uint64_t userData) {
      Copy &copy = *reinterpret_cast<Copy *>(userData);
      Check(copy.mirror != nullptr, "a mirror that was closed calls back");
      Check(!copy.all->isStopping_, "a mirror calls back at the end");
      Check(!copy.all->isOpening_, "a mirror calls back while it is opened");
      return copy;
    }
    static std::string Key(const void *key) { return {static_cast<const char *>(key), kKeyLen}; }
    static std::string Val(const void *val) { return {static_cast<const char *>(val), kValLen}; }

    static void OnAdded(uint64_t userData, const void *key, const void *val) {
      Copy &copy = Of(userData);
      Check(copy.table.emplace(Key(key), Val(val)).second, "a tuple was added twice");
      copy.Called();
    }
    static void OnChanged(uint64_t userData, const void *key, const void *was, const void *is) {
      Copy &copy = Of(userData);
      Check(copy.table[Key(key)] == Val(was), "another value was changed");
      Check(Val(was) != Val(is), "an equal value is a change");
      copy.table[Key(key)] = Val(is);
      copy.Called();
    }
    static void OnRemoved(uint64_t userData, const void *key, const void *val) {
      Copy &copy = Of(userData);
      Check(copy.table[Key(key)] == Val(val), "another value was removed");
      copy.table.erase(Key(key));
      copy.Called();
    }
    static void OnSynced(uint64_t userData, uint64_t version) {
      Copy &copy = Of(userData);
      CoapRpcMirrorState state = {};
      COAP_RpcMirrorGetState(copy.mirror, &state);
      Check(state.version == version && state.head <= version, "synced with another version");
      copy.Called();
    }
    static void OnState(uint64_t userData, uint32_t state, uint32_t code) {
      Copy &copy = Of(userData);
      Check(state != COAP_RPC_MIRROR_SYNCED || code == 0, "synced with a code");
      Check(state < COAP_RPC_MIRROR_STALE || code != 0, "no code");
      copy.Called();
    }

    void Called() {
      CheckTable();
      all->Then(*this);
    }
    void CheckTable() const {
      if (!mirror) return;
      auto expected = table.begin();
      for (const uint8_t *tuple = COAP_RpcMirrorNext(mirror, nullptr); tuple;
           tuple = COAP_RpcMirrorNext(mirror, tuple)) {
        Check(expected != table.end() && expected->first == Key(tuple) &&
                  expected->second == Val(tuple + kKeyLen),
              "the table is not what the callbacks made");
        ++expected;
      }
      Check(expected == table.end(), "the table lacks what was told");
    }
  };

  void Then(Copy &copy) {
    const uint8_t what = then_;
    then_ = 0;
    if ((what & 1) != 0) Close(copy);
    if ((what & 2) != 0) COAP_RpcProcIo(ctx_);
    if ((what & 4) != 0) Open(copies_[1], what);
    if ((what & 8) != 0) Close(copies_[0]);
  }

  void Open(Copy &copy, uint8_t arg) {
    if (copy.mirror) return;
    CoapRpcUriKey key = KeyOf("m");
    CoapRpcCallAddr addr = {};
    addr.dstIp = IpAddr(kPeer);
    addr.dstPort = kCoapPort;
    CoapRpcMirrorParam param = {};
    param.keyLen = kKeyLen;
    param.valLen = kValLen;
    param.numInFlight = 1 + arg % 4;
    param.heartbeatMs = (arg & 16) != 0 ? 1000 : 0;
    param.maxBytes = (arg & 32) != 0 ? 300 : 0;
    param.userData = reinterpret_cast<uint64_t>(&copy);
    param.onAdded = Copy::OnAdded;
    param.onChanged = Copy::OnChanged;
    param.onRemoved = Copy::OnRemoved;
    param.onSynced = Copy::OnSynced;
    param.onState = Copy::OnState;
    copy.table.clear();
    isOpening_ = true;
    const uint32_t ret = COAP_RpcMirrorOpen(ctx_, &key, &addr, &param, &copy.mirror);
    isOpening_ = false;
    if (ret != 0) copy.mirror = nullptr;
  }
  static void Close(Copy &copy) {
    CoapRpcMirror *mirror = copy.mirror;
    copy.mirror = nullptr;
    COAP_RpcMirrorClose(mirror);
  }

  void Step(Input &input) {
    const uint8_t kind = input.Byte() % 12;
    const uint8_t arg = input.Byte();
    switch (kind) {
      case 0:
        return peer_.SendAsAnswer(input.Framed(), Peer::kPatchToken);
      case 1:
        return host_.AdvanceMs(kStepsMs[arg % std::size(kStepsMs)]);
      case 2:
        return SendBytes(arg, input.Framed());
      case 3:
        return SendError(arg);
      case 4:
        then_ = arg;
        return;
      case 5:
        return host_.FailAllocation(arg % 16);
      case 6:
        return (arg & 1) != 0 ? Open(copies_[arg / 2 % kNumMirrors], arg)
                              : Close(copies_[arg / 2 % kNumMirrors]);
      case 7:
        return (arg & 1) != 0 ? peer_.Open() : peer_.Close();
      default:
        return SendPage(arg, input);
    }
  }

  // Asked returns a number that the latest request names, if it does.
  uint64_t Asked(const std::string &name) const {
    for (const Bytes &value : peer_.Last().Values(coap_rpc_test::kOptUriQuery)) {
      const std::string arg(value.begin(), value.end());
      if (arg.rfind(name, 0) == 0) return strtoull(arg.c_str() + name.size(), nullptr, 10);
    }
    return 0;
  }

  // SendPage answers the latest request with a page that fits it as far as the input lets it.
  void SendPage(uint8_t arg, Input &input) {
    const uint8_t shape = input.Byte();
    const uint64_t since = Asked("since=");
    const uint8_t num = shape % 4;
    const uint64_t head = (shape & 0x80) != 0 ? ~uint64_t{0} : since + num + (shape >> 4 & 3);
    uint64_t to = since + num;
    if ((shape & 0x40) != 0) to = since + input.Byte();
    CborOut changes;
    for (uint8_t i = 0; i < num; ++i) {
      changes.Head(0, (shape & 0x08) != 0 ? input.Byte() : 1);
      changes.Text(Field('k', input.Byte(), kKeyLen));
      const uint8_t val = input.Byte();
      if (val % 4 == 0) {
        changes.bytes.push_back(0xF6);
      } else {
        changes.Text(Field('v', val, val == 255 ? 3 : kValLen));
      }
    }
    const uint64_t digest = (arg & 0x20) != 0 ? input.Long() : DigestOfFirst();
    CborOut page;
    page.Head(4, 8 + 3u * num);
    page.Head(0, 1);
    page.Head(0, arg & 31);
    page.Head(0, 1 + (arg >> 6 & 1));
    for (const uint64_t number : {since, to, head, uint64_t{(arg & 0x80) != 0 ? to : 0}, digest}) {
      page.Head(0, number);
    }
    page.bytes.insert(page.bytes.end(), changes.bytes.begin(), changes.bytes.end());
    SendBytes(0, page.bytes);
  }
  static Bytes Field(char letter, uint8_t number, size_t len) {
    Bytes field(len, static_cast<uint8_t>('0' + number % 8));
    field[0] = static_cast<uint8_t>(letter);
    return field;
  }
  uint64_t DigestOfFirst() const {
    CoapRpcMirrorState state = {};
    if (copies_[0].mirror) COAP_RpcMirrorGetState(copies_[0].mirror, &state);
    return state.digest;
  }

  void SendBytes(uint8_t arg, const Bytes &payload) {
    const auto type = (arg & 1) != 0 ? CoapType::kCon : CoapType::kNon;
    CoapMessage answer = Request(type, coap_rpc_test::Code(2, 5), ++mid_, peer_.Last().token);
    if ((arg & 2) != 0) answer.AddUint(coap_rpc_test::kOptObserve, mid_);
    answer.AddUint(coap_rpc_test::kOptContentFormat, (arg & 4) != 0 ? 50 : kFormatCbor);
    if ((arg & 8) != 0) {
      answer.AddBlock(coap_rpc_test::kOptBlock2,
                      {static_cast<uint32_t>(arg >> 6), (arg & 16) != 0, 2});
    }
    answer.payload = payload;
    peer_.Send(answer);
  }
  void SendError(uint8_t arg) {
    static const uint8_t kCodes[] = {coap_rpc_test::Code(4, 4), coap_rpc_test::Code(5, 3),
                                     coap_rpc_test::Code(4, 8), coap_rpc_test::Code(2, 5)};
    peer_.Send(
        Request(CoapType::kNon, kCodes[arg % std::size(kCodes)], ++mid_, peer_.Last().token));
  }

  Host host_;
  CoapRpcInitParam param_;
  CoapRpcCtx *ctx_;
  Peer peer_{kPeer, kCoapPort};
  Copy copies_[kNumMirrors];
  uint16_t mid_ = 0x7000;
  uint8_t then_ = 0;
  bool isOpening_ = false;
  bool isStopping_ = false;
};

}  // namespace
}  // namespace fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  fuzz::PrepareWire();
  fuzz::Input input(data, size);
  fuzz::Mirrors().Run(input);
  return 0;
}
