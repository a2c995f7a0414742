#include "demo_rpc.h"

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <utility>

namespace {

constexpr char kAskUri[] = "ask", kNoteUri[] = "note";
constexpr double kPatienceSeconds = 5;
constexpr uint32_t kAtOnce = 8;

// BuildCopy makes what was handed to the call the payload.
int32_t BuildCopy(uint64_t, const CoapRpcCliReqParam *req, uint8_t *out, uint32_t outSize) {
  if (req->payloadLen > outSize) return -1;
  std::copy_n(req->payload, req->payloadLen, out);
  return static_cast<int32_t>(req->payloadLen);
}

uint32_t Call(CoapRpcCtx *ctx, const CoapRpcUriKey &key, const CoapRpcCliAddr &peer,
              std::string &text) {
  CoapRpcCliReqParam param = {};
  param.payload = reinterpret_cast<uint8_t *>(text.data());
  param.payloadLen = static_cast<uint32_t>(text.size());
  return COAP_RpcCliConReq(ctx, &key, &param, &peer);
}

// Split takes the number off the front of a text.
uint64_t Split(std::string &text) {
  const uint64_t number = std::strtoull(text.c_str(), nullptr, 10);
  const size_t blank = text.find(' ');
  text.erase(0, blank == std::string::npos ? text.size() : blank + 1);
  return number;
}

}  // namespace

Rpc::Rpc(Node &node, Handler handler) : node_(node), handler_(std::move(handler)) {}

bool Rpc::Start() {
  const CoapRpcUriKey served = ExampleKey(kAskUri, 0, COAP_RPC_DEFAULT);
  const CoapRpcUriKey sent = ExampleKey(kAskUri, 0, COAP_RPC_BROADCAST);
  CoapRpcSerVtblReg ser = {};
  ser.payloadFormat = COAP_RPC_JSON;
  ser.mode = 1;
  ser.userData = reinterpret_cast<uint64_t>(this);
  ser.onAsyncRequest = OnAsk;
  CoapRpcCliVtblReg cli = {};
  cli.payloadFormat = COAP_RPC_JSON;
  cli.userData = ser.userData;
  cli.buildReq = BuildCopy;
  cli.onResponse = OnAnswer;
  CoapRpcCtx *ctx = node_.Ctx();
  // Questions go out with the table of their own key; answers are looked up as DEFAULT.
  return ExampleServe(ctx, &served, &ser, nullptr, node_.Self().c_str(), EXAMPLE_PORT) == 0 &&
         ExampleTakeAnswers(ctx, kAskUri, node_.Self().c_str()) == 0 &&
         COAP_RpcCliRegVtbl(ctx, &sent, &cli) == 0 && COAP_RpcCliRegVtbl(ctx, &served, &cli) == 0;
}

void Rpc::Ask(const std::string &question, Answer answer) {
  const CoapRpcUriKey key = ExampleKey(kAskUri, 0, COAP_RPC_BROADCAST);
  const uint64_t number = ++lastNumber_;
  std::string text = std::to_string(number) + " " + question;
  pending_[number] = std::move(answer);
  Call(node_.Ctx(), key, node_.Peer(EXAMPLE_PORT, COAP_RPC_GET), text);
}

std::string Rpc::AskAndWait(const std::string &question) {
  const auto answer = std::make_shared<std::pair<bool, std::string>>(false, "");
  Ask(question, [answer](std::string text) { *answer = {true, std::move(text)}; });
  RunUntil(node_.Host(), kPatienceSeconds, [&] { return answer->first; });
  return answer->second;
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
  Rpc &self = Of(userData);
  std::string question(payload, payload + len);
  const std::string number = std::to_string(Split(question));
  ++self.numServed_;
  CoapRpcCtx *ctx = self.node_.Ctx();
  self.handler_(question, [ctx, async, number](const std::string &text) {
    const std::string answer = number + " " + text;
    COAP_RpcSerSendAsyncResponse(ctx, async, reinterpret_cast<const uint8_t *>(answer.data()),
                                 static_cast<uint32_t>(answer.size()));
  });
  return 0;
}

uint32_t Rpc::OnAnswer(uint64_t userData, uint64_t, uint8_t *payload, uint32_t len,
                       const CoapRpcCliRspInfo *) {
  Rpc &self = Of(userData);
  std::string text(payload, payload + len);
  const auto found = self.pending_.find(Split(text));
  if (found == self.pending_.end()) return 0;
  const Answer answer = std::move(found->second);
  self.pending_.erase(found);
  answer(std::move(text));
  return 0;
}

bool Poster::Start() {
  const CoapRpcUriKey key = ExampleKey(kNoteUri, 0, COAP_RPC_BROADCAST);
  CoapRpcCliVtblReg reg = {};
  reg.payloadFormat = COAP_RPC_JSON;
  reg.buildReq = BuildCopy;
  return COAP_RpcCliRegVtbl(node_.Ctx(), &key, &reg) == 0;
}

bool Poster::Post(std::string text) {
  const CoapRpcUriKey key = ExampleKey(kNoteUri, 0, COAP_RPC_BROADCAST);
  return Call(node_.Ctx(), key, node_.Peer(kNotePort, COAP_RPC_POST), text) == 0;
}

bool PostBox::Start() {
  const CoapRpcUriKey key = ExampleKey(kNoteUri, 0, COAP_RPC_UNICAST);
  CoapRpcSerVtblReg reg = {};
  reg.payloadFormat = COAP_RPC_JSON;
  reg.userData = reinterpret_cast<uint64_t>(this);
  reg.onRequest = OnNote;
  return ExampleServe(node_.Ctx(), &key, &reg, nullptr, node_.Self().c_str(), kNotePort) == 0;
}

int32_t PostBox::OnNote(uint64_t userData, const CoapRpcSerReqInfo *, uint8_t *, uint32_t,
                        uint8_t *, uint32_t) {
  ++reinterpret_cast<PostBox *>(userData)->numNotes_;
  return 0;
}
