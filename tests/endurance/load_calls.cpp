#include "load_calls.h"

#include <algorithm>

namespace coap_rpc_test {
namespace {

constexpr uint32_t kMaxDelayMs = 2000;  // until a question is answered

CoapRpcUriKey CallKey(uint32_t msgType, uint32_t pktType) {
  return KeyOf(msgType == COAP_RPC_CON ? "rpc/con" : "rpc/non", msgType, 0, pktType);
}

std::string Padded(std::string text, size_t len) {
  text.resize(std::max(text.size(), len), 'x');
  return text;
}

}  // namespace

void Calls::Start() {
  StartOf(COAP_RPC_CON);
  StartOf(COAP_RPC_NON);
}

// Questions go out with the table of their own key; answers are looked up as DEFAULT.
void Calls::StartOf(uint32_t msgType) {
  CoapRpcSerVtblReg ser = {};
  ser.mode = kAsyncMode;
  ser.userData = reinterpret_cast<uint64_t>(this);
  ser.onAsyncRequest = OnAsk;
  CoapRpcCliVtblReg cli = {};
  cli.userData = ser.userData;
  cli.buildReq = Responses::BuildReq;
  cli.onResponse = OnAnswer;
  const CoapRpcUriKey served = CallKey(msgType, COAP_RPC_DEFAULT);
  const CoapRpcUriKey sent = CallKey(msgType, COAP_RPC_BROADCAST);
  const CoapRpcUriKey answers = CallKey(msgType, COAP_RPC_UNICAST);
  EXPECT_EQ(COAP_RpcSerRegVtbl(node_.ctx, &served, &ser, nullptr), 0u);
  ser.onAsyncRequest = nullptr;
  EXPECT_EQ(COAP_RpcSerRegVtbl(node_.ctx, &answers, &ser, nullptr), 0u);
  EXPECT_EQ(COAP_RpcCliRegVtbl(node_.ctx, &sent, &cli), 0u);
  EXPECT_EQ(COAP_RpcCliRegVtbl(node_.ctx, &served, &cli), 0u);
}

void Calls::Attach() {
  for (const uint32_t msgType : {COAP_RPC_CON, COAP_RPC_NON}) {
    node_.Attach(CallKey(msgType, COAP_RPC_DEFAULT));
    node_.Attach(CallKey(msgType, COAP_RPC_UNICAST));
  }
}

void Calls::Detach() {
  for (const uint32_t msgType : {COAP_RPC_CON, COAP_RPC_NON}) {
    node_.Detach(CallKey(msgType, COAP_RPC_DEFAULT));
    node_.Detach(CallKey(msgType, COAP_RPC_UNICAST));
  }
}

// Most bodies are small; some travel in blocks.
uint32_t Calls::Length() {
  const uint32_t which = node_.Below(100);
  if (which == 0) return 20'000;
  return which < 5 ? 1500 + node_.Below(3000) : 20 + node_.Below(200);
}

void Calls::Ask() {
  const uint64_t number = ++counts_.asked;
  Question &question = pending_[number];
  question.patienceMs = patienceMs_;
  question.isCon = node_.Below(10) != 0;
  question.answerLen = question.isCon ? Length() : 40;
  const uint32_t len = question.isCon ? Length() : 40;
  question.text =
      Padded(std::to_string(number) + " " + std::to_string(question.answerLen) + " ", len);
  Send(&question);
}

void Calls::Send(Question *question) {
  const uint32_t msgType = question->isCon ? COAP_RPC_CON : COAP_RPC_NON;
  question->dueMs = node_.nowMs + question->patienceMs;
  // A refused NON question is asked again like one that was lost.
  const auto call = question->isCon ? COAP_RpcCliConReq : COAP_RpcCliNonReq;
  node_.Call(call, CallKey(msgType, COAP_RPC_BROADCAST), COAP_RPC_GET, question->text);
}

void Calls::Step() {
  for (auto job = jobs_.begin(); job != jobs_.end();) {
    if (job->dueMs > node_.nowMs) {
      ++job;
      continue;
    }
    EXPECT_EQ(COAP_RpcSerSendAsyncResponse(node_.ctx, job->handle,
                                           reinterpret_cast<const uint8_t *>(job->answer.data()),
                                           static_cast<uint32_t>(job->answer.size())),
              0u);
    job = jobs_.erase(job);
  }
  for (auto &[number, question] : pending_) {
    if (question.dueMs > node_.nowMs) continue;
    ++counts_.repeated;
    // Each time later, so that a link with a backlog does not get ever more to do.
    question.patienceMs = std::min(2 * question.patienceMs, maxPatienceMs_);
    Send(&question);
  }
}

uint32_t Calls::OnAsk(uint64_t userData, uint8_t *payload, uint32_t len, void *handle) {
  Calls &self = Of(userData);
  char *end = nullptr;
  const std::string text(payload, payload + len);
  const uint64_t number = strtoull(text.c_str(), &end, 10);
  const uint32_t answerLen = static_cast<uint32_t>(strtoul(end, nullptr, 10));
  ++self.counts_.served;
  self.jobs_.push_back({handle, Padded(std::to_string(number) + " ", answerLen),
                        self.node_.nowMs + self.node_.Below(kMaxDelayMs)});
  return 0;
}

uint32_t Calls::OnAnswer(uint64_t userData, uint64_t, uint8_t *payload, uint32_t len,
                         const CoapRpcCliRspInfo *) {
  Calls &self = Of(userData);
  const std::string text(payload, payload + len);
  const auto found = self.pending_.find(strtoull(text.c_str(), nullptr, 10));
  if (found == self.pending_.end()) return 0;  // answered twice, or of an earlier life
  EXPECT_EQ(text, Padded(std::to_string(found->first) + " ", found->second.answerLen));
  ++self.counts_.answered;
  self.pending_.erase(found);
  return 0;
}

}  // namespace coap_rpc_test
