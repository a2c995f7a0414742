#include "demo_rpc.h"

#include <coap_svc/rpc/coap_rpc_direct.h>

#include <algorithm>
#include <memory>
#include <string_view>
#include <utility>

namespace {

constexpr char kAskPath[] = "ask";
constexpr double kPatienceSeconds = 5;
constexpr uint32_t kAtOnce = 8;
constexpr uint32_t kAnswerWithinMs = 120000;  // for questions that are answered after many others

// Serve registers an entry, makes it direct and attaches it to a port of the node.
bool Serve(const Node &node, const char *path, uint16_t port, const CoapRpcSerVtblReg &reg) {
  const CoapRpcUriKey key = ExampleKey(path, 0, COAP_RPC_DEFAULT);
  CoapRpcSerDirectParam direct = {};
  direct.timeoutMs = kAnswerWithinMs;
  return ExampleServe(node.Ctx(), &key, &reg, nullptr, node.Self().c_str(), port) == 0 &&
         COAP_RpcSerSetDirect(node.Ctx(), &key, &direct) == 0;
}

}  // namespace

uint64_t Caller::Post(uint16_t port, const char *path, const std::string &text, Answer answer) {
  const CoapRpcCallAddr addr = node_.Server(port);
  CoapRpcCall call = {};
  call.method = COAP_RPC_POST;
  call.path = path;
  call.payload = reinterpret_cast<const uint8_t *>(text.data());
  call.payloadLen = static_cast<uint32_t>(text.size());
  call.userData = reinterpret_cast<uint64_t>(this);
  call.onRsp = OnRsp;
  uint64_t id = 0;
  if (COAP_RpcCall(node_.Ctx(), &addr, &call, &id) == 0) pending_[id] = std::move(answer);
  return id;
}

void Caller::Forget() {
  for (const auto &[id, answer] : std::exchange(pending_, {})) {
    COAP_RpcCallCancel(node_.Ctx(), id);
  }
}

// An error of the server has a code of its own, and perhaps a text: that is no answer here.
void Caller::OnRsp(uint64_t userData, const CoapRpcCallRsp *rsp) {
  constexpr uint32_t kChanged = 204;
  const auto node = reinterpret_cast<Caller *>(userData)->pending_.extract(rsp->id);
  if (node.empty() || rsp->code != kChanged) return;
  const auto *text = reinterpret_cast<const char *>(rsp->payload);
  node.mapped()(text ? std::string(text, rsp->payloadLen) : std::string());
}

Rpc::Rpc(Node &node, Handler handler) : node_(node), handler_(std::move(handler)) {}

bool Rpc::Start() {
  CoapRpcSerVtblReg reg = {};
  reg.payloadFormat = COAP_RPC_JSON;
  reg.mode = 1;
  reg.userData = reinterpret_cast<uint64_t>(this);
  reg.onAsyncRequest = OnAsk;
  return Serve(node_, kAskPath, EXAMPLE_PORT, reg);
}

uint64_t Rpc::Ask(const std::string &question, Answer answer) {
  return caller_.Post(EXAMPLE_PORT, kAskPath, question, std::move(answer));
}

std::string Rpc::AskAndWait(const std::string &question) {
  const auto answer = std::make_shared<std::string>();
  const uint64_t id = Ask(question, [answer](std::string text) { *answer = std::move(text); });
  RunUntil(node_.Host(), kPatienceSeconds, [&] { return !caller_.IsOpen(id); });
  return *answer;
}

void Rpc::AskMany(const std::string &question, uint32_t num, Answer answer) {
  const auto series = std::make_shared<Series>(Series{question, num, std::move(answer)});
  for (uint32_t i = 0; i < std::min(num, kAtOnce); ++i) AskNext(series);
}

void Rpc::AskNext(const std::shared_ptr<Series> &series) {
  if (series->numLeft == 0) return;
  --series->numLeft;
  Ask(series->question, [this, series](std::string text) {
    series->answer(std::move(text));
    AskNext(series);
  });
}

uint32_t Rpc::OnAsk(uint64_t userData, uint8_t *payload, uint32_t len, void *async) {
  Rpc &self = *reinterpret_cast<Rpc *>(userData);
  ++self.numServed_;
  CoapRpcCtx *ctx = self.node_.Ctx();
  self.handler_(std::string(payload, payload + len), [ctx, async](const std::string &text) {
    COAP_RpcSerSendAsyncResponse(ctx, async, reinterpret_cast<const uint8_t *>(text.data()),
                                 static_cast<uint32_t>(text.size()));
  });
  return 0;
}

bool PostBox::Start() {
  CoapRpcSerVtblReg reg = {};
  reg.payloadFormat = COAP_RPC_JSON;
  reg.userData = reinterpret_cast<uint64_t>(this);
  reg.onRequest = OnNote;
  return Serve(node_, kNotePath, kNotePort, reg);
}

int32_t PostBox::OnNote(uint64_t userData, const CoapRpcSerReqInfo *, uint8_t *payload,
                        uint32_t len, uint8_t *out, uint32_t outSize) {
  const uint32_t number = ++reinterpret_cast<PostBox *>(userData)->numNotes_;
  const std::string answer = std::to_string(number) + " " + std::string(payload, payload + len);
  if (answer.size() >= outSize) return -1;
  std::copy(answer.begin(), answer.end(), out);
  return static_cast<int32_t>(answer.size());
}
