// Bodies in blocks from servers into a client, and out of it. One input is a play of steps of one
// size: calls and observations, some with large requests, and what two servers make of the requests
// they got: blocks in any order and of any size, of several representations, answers to older
// requests, notifications, and other tokens.
#include <cstring>
#include <deque>

#include "coap_svc/rpc/client/coap_rpc_cli_data.h"
#include "coap_svc/rpc/coap_rpc_ext.h"
#include "fuzz_blocks.h"
#include "fuzz_tables.h"

namespace fuzz {
namespace {

using coap_rpc_test::Bytes;
using coap_rpc_test::CoapType;
using coap_rpc_test::Code;

constexpr uint8_t kClient = 1;
constexpr uint8_t kFirstPeer = 11;
constexpr uint32_t kStepsMs[] = {100, 1001, 2500, 9000, 31000, 95000, 260000};
constexpr uint8_t kCodes[] = {Code(2, 5), Code(2, 4), Code(2, 31), Code(4, 13),
                              Code(4, 8), Code(2, 3), Code(4, 4),  Code(2, 1)};

constexpr Entry kCalled[] = {
    {"a", COAP_RPC_CON, 0, COAP_RPC_DEFAULT}, {"o", COAP_RPC_CON, 1, COAP_RPC_DEFAULT},
    {"a", COAP_RPC_NON, 0, COAP_RPC_DEFAULT}, {"p", COAP_RPC_NON, 1, COAP_RPC_DEFAULT},
    {"b", COAP_RPC_CON, 0, COAP_RPC_UNICAST}, {"c", COAP_RPC_CON, 0, COAP_RPC_BROADCAST},
};

// BuildReq makes the request as long as its parameter says, in units of 16 bytes.
int32_t BuildReq(uint64_t, const CoapRpcCliReqParam *req, uint8_t *out, uint32_t) {
  if (req->payloadLen == 0) return 0;
  const uint32_t len = req->payload[0] * 16u;
  memset(out, 'u', len);
  return static_cast<int32_t>(len);
}

void OnDisconnect(uint64_t, const CoapRpcIpAddr *) {}

// A client sends what its application wrote, and nothing else.
void CheckRequestSent(const CoapMessage &request) {
  for (const uint8_t byte : request.payload) Check(byte == 'u', "a request nobody wrote");
}

// Remote is a server, with the requests that it got last.
struct Remote {
  explicit Remote(uint8_t addr) : number(addr), peer(addr, kCoapPort) {}

  void Note() {
    constexpr size_t kMaxRequests = 4;
    const CoapMessage &last = peer.Last();
    if (last.code == 0 || last.code >= Code(2, 0)) return;
    if (!requests.empty() && requests.front() == last) return;
    CheckRequestSent(last);
    if (last.Has(coap_rpc_test::kOptObserve)) observation = last;
    requests.push_front(last);
    if (requests.size() > kMaxRequests) requests.pop_back();
  }

  uint8_t number;
  Peer peer;
  std::deque<CoapMessage> requests;  // the latest first
  CoapMessage observation;           // the latest request with Observe
  uint32_t numNotified = 1;
  uint16_t lastId = 0;
};

class Client : public Scene {
 public:
  Client() {
    for (const Entry &called : kCalled) Register(called);
  }

  ~Client() override { Stop(); }

 private:
  void TakeTurn() override {
    RunIo(ctx_);
    for (Remote &remote : remotes_) {
      remote.peer.Receive();
      remote.Note();
    }
  }

  void Register(const Entry &called) {
    ClientApp app;
    app.userData = reinterpret_cast<uint64_t>(this);
    app.buildReq = BuildReq;
    app.onResponse = OnResponse;
    app.onDisconnect = OnDisconnect;
    Check(RegisterClient(ctx_, called, app) == 0, "no registration");
  }

  // What comes with an error is not a body but a diagnostic text, or the block that ended it.
  static uint32_t OnResponse(uint64_t userData, uint64_t, uint8_t *payload, uint32_t len,
                             const CoapRpcCliRspInfo *info) {
    CheckResponse(payload, len);
    const auto &self = *reinterpret_cast<Client *>(userData);
    if (payload && info->rspCode < 300) self.bodies_.CheckDelivered(payload, len);
    return 0;
  }

  void Play(const Step &step) override {
    Remote &remote = remotes_[step.who % std::size(remotes_)];
    switch (step.kind % 16) {
      case 0:
      case 1:
      case 2:
        return Call(step);
      case 12:
        return Notify(remote, step);
      case 13:
        return remote.peer.Send(step.Has(0, 1) ? RstOf(remote.peer.Last())
                                               : AckOf(remote.peer.Last()));
      case 14:
        return step.Has(0, 1) ? remote.peer.Close() : remote.peer.Open();
      case 15:
        return host_.AdvanceMs(kStepsMs[step.arg[0] % std::size(kStepsMs)]);
      default:
        return Answer(remote, step);
    }
  }

  void Call(const Step &step) {
    const CoapRpcUriKey key = KeyOf(kCalled[step.arg[0] % std::size(kCalled)]);
    uint8_t units = step.arg[1];
    CoapRpcCliReqParam param = {};
    param.payload = units != 0 ? &units : nullptr;
    param.payloadLen = units != 0 ? 1 : 0;
    const auto peer = static_cast<uint8_t>(kFirstPeer + step.who % std::size(remotes_));
    const CoapRpcCliAddr addr = CallAddr(kClient, peer, 1 + step.arg[3] % 4u);
    kCalls[step.arg[2] % std::size(kCalls)](ctx_, &key, &param, &addr);
  }

  // Answer answers one of the latest requests, by default the latest, with what it asks for.
  void Answer(Remote &remote, const Step &step) {
    if (remote.requests.empty()) return;
    const CoapMessage &request = remote.requests[step.who / 4 % 8 % remote.requests.size()];
    SendAnswer(remote, request, CoapType::kAck, step);
  }

  void Notify(Remote &remote, const Step &step) {
    if (remote.observation.code == 0) return;
    SendAnswer(remote, remote.observation, CoapType::kCon, step);
  }

  void SendAnswer(Remote &remote, const CoapMessage &request, CoapType type, const Step &step) {
    CoapMessage answer = Header(remote, request, type, step);
    AddOptions(remote, step.arg[3], step.arg[4], &answer);
    const auto upload = request.Block(coap_rpc_test::kOptBlock1);
    if (upload) AddBlock1(*upload, step, &answer);
    if (!upload || !upload->more) AddBody(remote, request, step, &answer);
    remote.lastId = answer.messageId;
    remote.peer.Send(answer);
  }

  // Header: `arg[2]` chooses the code, the type, the message id and the token.
  CoapMessage Header(const Remote &remote, const CoapMessage &request, CoapType type,
                     const Step &step) {
    const uint8_t choice = step.arg[2];
    if ((choice & 0x08) != 0) type = type == CoapType::kAck ? CoapType::kCon : CoapType::kNon;
    uint16_t id = type == CoapType::kAck ? request.messageId : ++mid_;
    if ((choice & 0x10) != 0) id = remote.lastId;
    CoapMessage answer = Request(type, kCodes[choice % std::size(kCodes)], id, request.token);
    if ((choice & 0x20) != 0) answer.Token(TokenFor(choice >> 5, choice));
    answer.AddPath(request.Path());
    return answer;
  }

  void AddOptions(Remote &remote, uint8_t which, uint8_t value, CoapMessage *answer) {
    if ((which & 0x01) != 0) answer->AddUint(coap_rpc_test::kOptObserve, ++remote.numNotified);
    if ((which & 0x02) != 0) answer->AddUint(coap_rpc_test::kOptSize2, value * 16u);
    if ((which & 0x0C) != 0) answer->AddUint(coap_rpc_test::kOptEtag, which & 0x0C);
    if ((which & 0x10) != 0) answer->AddUint(coap_rpc_test::kOptContentFormat, value & 0x3F);
    if ((which & 0x20) != 0) answer->AddText(coap_rpc_test::kOptUriQuery, "_ual-checkcode=1");
    if ((which & 0x40) != 0) answer->AddUint(coap_rpc_test::kOptObserve, value);
    if ((which & 0x80) != 0) answer->AddUint(coap_rpc_test::kOptMaxAge, value & 3);
  }

  static void AddBlock1(const CoapBlock &upload, const Step &step, CoapMessage *answer) {
    if (upload.more && step.arg[2] % std::size(kCodes) == 0) answer->code = Code(2, 31);
    const uint8_t choice = upload.more ? step.arg[0] : 0;
    answer->AddBlock(coap_rpc_test::kOptBlock1, ChangedBlock(upload, choice, step.arg[1]));
  }

  // AddBody adds the block that is asked for; a whole small body when the step says so.  Each
  // server's and each representation (ETag) is a body of its own; paths are not: most calls have no
  // token, by which alone libcoap tells answers in blocks apart.
  void AddBody(const Remote &remote, const CoapMessage &request, const Step &step,
               CoapMessage *answer) {
    constexpr uint8_t kWhole = 0x20;
    constexpr uint8_t kDefaultSzx = 2;
    const uint32_t id = static_cast<uint32_t>(remote.number << 8 | (step.arg[3] & 0x0C));
    if (step.Has(0, kWhole)) {
      answer->payload = bodies_.Part(id, 0, step.arg[5] * 4u, true);
      return;
    }
    CoapBlock block =
        request.Block(coap_rpc_test::kOptBlock2).value_or(CoapBlock{0, false, kDefaultSzx});
    const uint32_t numBlocks = 2u + (step.who >> 5);
    block.more = block.num + 1 < numBlocks;
    block = ChangedBlock(block, step.arg[0], step.arg[1]);
    answer->AddBlock(coap_rpc_test::kOptBlock2, block);
    answer->payload = bodies_.PartOf(id, block, step.arg[5]);
  }

  Remote remotes_[2] = {Remote(kFirstPeer), Remote(kFirstPeer + 1)};
  Bodies bodies_;
  uint16_t mid_ = 0x7000;
};

}  // namespace
}  // namespace fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  fuzz::PrepareWire();
  fuzz::Input input(data, size);
  fuzz::Client().Run(input);
  return 0;
}
